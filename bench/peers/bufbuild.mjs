#!/usr/bin/env node
// @bufbuild/protobuf: cannot read .proto files, so protoc makes a descriptor set beforehand, outside the measured time;
// fromJson rejects unknown keys as the library does. There is no field check.

import { execFileSync } from 'node:child_process';
import fs from 'node:fs';
import path from 'node:path';
import { kDataType, main } from './pack.mjs';

let buf;
let wkt;
try {
  buf = await import('@bufbuild/protobuf');
  wkt = await import('@bufbuild/protobuf/wkt');
} catch {
  console.log('not installed (npm)');
  process.exit(1);
}

function makeDescriptorSet(protoDir, out) {
  const file = path.join(out, 'schema.desc');
  const protos = fs.readdirSync(protoDir).filter((name) => name.endsWith('.proto'));
  try {
    execFileSync('protoc', ['-I', protoDir, `--descriptor_set_out=${file}`, ...protos]);
  } catch {
    console.log('protoc could not be run');
    process.exit(1);
  }
  return file;
}

function prune(message, type) {
  for (const field of type.fields) {
    if (field.fieldKind !== 'message') continue;
    const kind = field.message;
    if (kind.name === 'StructArrayRule') {
      delete message[field.localName];
      continue;
    }
    const part = message[field.localName] ??= buf.create(kind);
    if (kDataType.test(kind.name)) {
      delete part.rule;
    } else {
      prune(part, kind);
    }
  }
}

function loadSchema(protoDir, descriptorSet) {
  const set = buf.fromBinary(wkt.FileDescriptorSetSchema, fs.readFileSync(descriptorSet));
  const registry = buf.createFileRegistry(set);
  const label = registry.getMessage('ZO_TUNING.TuningDataLabel');
  const version = registry.getMessage('ZO_TUNING.Version');
  const labels = label.fields.map((field) => (field.enum
    ? { name: field.name,
      values: new Map(field.enum.values.map((value) => [value.name.slice(field.enum.name.length + 1), value.number])) }
    : { name: field.name }));
  const localNames = new Map(label.fields.map((field) => [field.name, field.localName]));
  return {
    labels,
    encodeLabel: (values) => {
      const message = buf.create(label);
      for (const [name, value] of Object.entries(values)) message[localNames.get(name)] = value;
      return buf.toBinary(label, message);
    },
    encodeVersion: (text) => buf.toBinary(version, buf.fromJsonString(version, text)),
    encodeModule: (name, text) => {
      const type = registry.getMessage(name);
      const message = buf.fromJsonString(type, text, { registry });
      prune(message, type);
      return buf.toBinary(type, message);
    },
  };
}

await main(loadSchema, makeDescriptorSet);
