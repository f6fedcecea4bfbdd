// What the peers on Node share: the walk through a project and the bins. A peer provides a function that loads the
// schema again and returns how to encode one message:
//
//   loadSchema(protoDir, setup) -> { labels, encodeLabel(label), encodeVersion(text), encodeModule(typeName, text) }
//
// `labels` are the names and enum values of the label's fields, in the order of the folders.

import fs from 'node:fs';
import path from 'node:path';
import readline from 'node:readline';

export const kDataType = /^(Bool|Int32|Uint32|Int64|Uint64|Double|Float)(Data|ArrayData|ArrayData_2D)$/;
const kPackages = { Af: 'ZO_TUNING_AF', AW: 'ZO_TUNING_AWB', AE: 'ZO_TUNING_AEC', Pd: 'ZO_TUNING_PD' };

function typeName(module) {
  const end = module.indexOf('LinkKey');
  const name = end < 0 ? module : module.slice(0, end + 'LinkKey'.length);
  return `${kPackages[module.slice(0, 2)] ?? 'ZO_TUNING'}.${name}`;
}

function* jsonFiles(dir) {
  for (const entry of fs.readdirSync(dir, { withFileTypes: true })) {
    const file = path.join(dir, entry.name);
    if (entry.isDirectory()) {
      if (entry.name !== 'version') yield* jsonFiles(file);
    } else if (entry.name.endsWith('.json')) {
      yield file;
    }
  }
}

// The label of a file from its path: the module by its name, the other levels by the folders.
function labelOf(file, scope, labels, module) {
  const label = {};
  for (const { name, values } of labels) label[name] = name === 'module' ? values.get(module) : -1;
  const folders = path.relative(scope, path.dirname(file)).split(path.sep);
  for (const [i, { name, values }] of labels.slice(1, folders.length + 1).entries()) {
    if (!folders[i].startsWith(`${name}_`)) break;
    const value = folders[i].slice(name.length + 1);
    label[name] = values ? values.get(value) : Number(value);
  }
  return label;
}

function writeRecord(fd, bytes) {
  const length = Buffer.alloc(4);
  length.writeInt32LE(bytes.length);
  fs.writeSync(fd, length);
  if (bytes.length > 0) fs.writeSync(fd, bytes);
}

function packScope(schema, scope, versionDir, binPath) {
  const fd = fs.openSync(binPath, 'w');
  const versions = fs.readdirSync(versionDir).filter((name) => name.endsWith('.json'));
  const count = Buffer.alloc(4);
  count.writeInt32LE(versions.length);
  fs.writeSync(fd, count);
  for (const name of versions) {
    writeRecord(fd, schema.encodeVersion(fs.readFileSync(path.join(versionDir, name), 'utf8')));
  }
  for (const file of jsonFiles(scope)) {
    const module = path.basename(file, '.json');
    writeRecord(fd, schema.encodeLabel(labelOf(file, scope, schema.labels, module)));
    writeRecord(fd, schema.encodeModule(typeName(module), fs.readFileSync(file, 'utf8')));
  }
  fs.closeSync(fd);
}

// Answers lines of standard input, as pack_bench asks; `setup` makes what is not measured.
export async function main(loadSchema, setup) {
  const [project, out] = process.argv.slice(2);
  const prepared = setup ? setup(path.join(project, 'proto'), out) : undefined;
  const sensors = fs.readdirSync(project).filter((name) => fs.existsSync(path.join(project, name, 'version'))
                                                           && name !== 'proto');
  console.log('ready');
  for await (const line of readline.createInterface({ input: process.stdin })) {
    if (line !== 'run') break;
    const begin = process.hrtime.bigint();
    const processor = process.cpuUsage();
    const schema = loadSchema(path.join(project, 'proto'), prepared);
    packScope(schema, path.join(project, 'default'), path.join(project, 'proto', 'version'),
      path.join(out, 'default.bin'));
    for (const sensor of sensors) {
      packScope(schema, path.join(project, sensor), path.join(project, sensor, 'version'),
        path.join(out, `${sensor}.bin`));
    }
    const milliseconds = Number(process.hrtime.bigint() - begin) / 1e6;
    const { user, system } = process.cpuUsage(processor);
    console.log(`${milliseconds.toFixed(3)} ${((user + system) / 1000).toFixed(3)}`);
  }
}
