#!/usr/bin/env node
// protobufjs: reads the .proto files itself; JSON.parse, then fromObject, which accepts enum names and 64-bit numbers
// in quotes. Unknown keys are skipped, and there is no field check.

import fs from 'node:fs';
import path from 'node:path';
import { kDataType, main } from './pack.mjs';

let protobuf;
try {
  protobuf = (await import('protobufjs')).default;
} catch {
  console.log('not installed (npm)');
  process.exit(1);
}

// Pruning, on the parsed JSON: what is removed is not encoded.
function prune(object, type) {
  for (const field of type.fieldsArray) {
    const kind = field.resolvedType;
    if (field.repeated || !(kind instanceof protobuf.Type)) continue;
    if (kind.name === 'StructArrayRule') {
      delete object[field.name];
    } else if (kDataType.test(kind.name)) {
      delete (object[field.name] ??= {}).rule;
    } else {
      prune(object[field.name] ??= {}, kind);
    }
  }
}

function loadSchema(protoDir) {
  const root = new protobuf.Root();
  root.resolvePath = (_, target) => (path.isAbsolute(target) ? target : path.join(protoDir, target));
  const files = fs.readdirSync(protoDir).filter((name) => name.endsWith('.proto'));
  root.loadSync(files, { keepCase: true });
  root.resolveAll();
  const label = root.lookupType('ZO_TUNING.TuningDataLabel');
  const version = root.lookupType('ZO_TUNING.Version');
  const labels = label.fieldsArray.map((field) => {
    const kind = field.resolvedType;
    if (!kind) return { name: field.name };
    return { name: field.name,
      values: new Map(Object.entries(kind.values).map(([name, value]) => [name.slice(kind.name.length + 1), value])) };
  });
  return {
    labels,
    encodeLabel: (object) => label.encode(object).finish(),
    encodeVersion: (text) => version.encode(version.fromObject(JSON.parse(text))).finish(),
    encodeModule: (name, text) => {
      const type = root.lookupType(name);
      const object = JSON.parse(text);
      prune(object, type);
      return type.encode(type.fromObject(object)).finish();
    },
  };
}

await main(loadSchema);
