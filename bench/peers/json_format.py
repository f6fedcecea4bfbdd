#!/usr/bin/python3 -B
"""Python's json_format: the descriptor set is made by protoc beforehand, outside the clock. There is no field check.

Debian's Python, whose package python3-protobuf is built on the same C++ library."""

import os
import struct
import sys

import peer

try:
    from google.protobuf import descriptor_pb2, descriptor_pool, json_format, message_factory
except ImportError:
    peer.skip("python3-protobuf is not installed")


def prune(message):
    for field in message.DESCRIPTOR.fields:
        if field.label == field.LABEL_REPEATED or field.message_type is None:
            continue
        part = getattr(message, field.name)
        part.SetInParent()
        if field.message_type.name == "StructArrayRule":
            message.ClearField(field.name)
        elif peer.DATA_TYPE.fullmatch(field.message_type.name):
            part.ClearField("rule")
        else:
            prune(part)


class Packer:
    """The schema of one run."""

    def __init__(self, descriptor_set):
        self._pool = descriptor_pool.DescriptorPool()
        with open(descriptor_set, "rb") as file:
            for item in descriptor_pb2.FileDescriptorSet.FromString(file.read()).file:
                self._pool.Add(item)
        self._factory = message_factory.MessageFactory(self._pool)
        self._label = self._pool.FindMessageTypeByName("ZO_TUNING.TuningDataLabel")

    def _new(self, name):
        return self._factory.GetPrototype(self._pool.FindMessageTypeByName(name))()

    def _label_of(self, path, scope, module):
        label = self._new("ZO_TUNING.TuningDataLabel")
        fields = self._label.fields
        for field in fields:
            setattr(label, field.name, -1)
        setattr(label, fields[0].name, self._value(fields[0], module))
        folders = os.path.relpath(os.path.dirname(path), scope).split(os.sep)
        for field, folder in zip(fields[1:], folders):
            if not folder.startswith(field.name + "_"):
                break
            setattr(label, field.name, self._value(field, folder[len(field.name) + 1:]))
        return label

    @staticmethod
    def _value(field, text):
        if field.enum_type is None:
            return int(text)
        return field.enum_type.values_by_name[f"{field.enum_type.name}_{text}"].number

    def pack_scope(self, scope, version_dir, bin_path):
        with open(bin_path, "wb") as file:
            versions = [name for name in os.listdir(version_dir) if name.endswith(".json")]
            file.write(struct.pack("<i", len(versions)))
            for name in versions:
                self._write(file, self._parse(os.path.join(version_dir, name), "ZO_TUNING.Version"))
            for path in peer.json_files(scope):
                module = os.path.basename(path)[: -len(".json")]
                self._write(file, self._label_of(path, scope, module))
                message = self._parse(path, ".".join(peer.type_name(module)))
                prune(message)
                self._write(file, message)

    def _parse(self, path, name):
        with open(path, encoding="utf-8") as file:
            return json_format.Parse(file.read(), self._new(name))

    @staticmethod
    def _write(file, message):
        data = message.SerializeToString()
        file.write(struct.pack("<i", len(data)))
        file.write(data)


def main():
    project, out = sys.argv[1:]
    descriptor_set = peer.descriptor_set(project, out)
    sensor_names = peer.sensors(project)

    def pack():
        packer = Packer(descriptor_set)
        packer.pack_scope(f"{project}/default", f"{project}/proto/version", f"{out}/default.bin")
        for sensor in sensor_names:
            packer.pack_scope(f"{project}/{sensor}", f"{project}/{sensor}/version", f"{out}/{sensor}.bin")

    peer.serve(pack)


main()
