#!/usr/bin/python3 -B
"""capnp convert: JSON to Cap'n Proto, one process per module, which reads all settings of it as one stream.

Names in its schemas cannot have underscores, so it gets a schema and a copy of the files in camel case, made
beforehand. Its output is a different format, one file per module. It makes no labels, no versions and no bins, drops no
rules, and checks no fields."""

import collections
import os
import re
import subprocess
import sys

import peer

try:
    from google.protobuf import descriptor_pb2
except ImportError:
    peer.skip("python3-protobuf, which makes its schema, is not installed")

_Field = descriptor_pb2.FieldDescriptorProto
_TYPES = {
    _Field.TYPE_DOUBLE: "Float64", _Field.TYPE_FLOAT: "Float32", _Field.TYPE_INT64: "Int64",
    _Field.TYPE_UINT64: "UInt64", _Field.TYPE_INT32: "Int32", _Field.TYPE_UINT32: "UInt32",
    _Field.TYPE_BOOL: "Bool", _Field.TYPE_STRING: "Text",
}
_ID = 0xD7A1C0DE00000001


def camel(name, upper=False):
    words = [word for word in name.split("_") if word]
    text = "".join(word[0].upper() + word[1:] for word in words)
    return text if upper else text[0].lower() + text[1:]


def type_of(full_name):
    """One file holds all types, so that a package becomes part of the name."""
    return camel(full_name.lstrip(".").replace(".", "_"), upper=True)


def enumerant(name):
    return camel(name.lower())


def schema_text(descriptors):
    lines = [f"@{_ID:#x};"]
    for file in descriptors.file:
        for item in file.enum_type:
            values = [f"{enumerant(value.name)} @{i};" for i, value in enumerate(item.value)]
            lines.append(f"enum {type_of(f'{file.package}.{item.name}')} {{ {' '.join(values)} }}")
        for item in file.message_type:
            lines.append(f"struct {type_of(f'{file.package}.{item.name}')} {{")
            for i, field in enumerate(item.field):
                kind = _TYPES.get(field.type) or type_of(field.type_name)
                if field.label == _Field.LABEL_REPEATED:
                    kind = f"List({kind})"
                lines.append(f"  {camel(field.name)} @{i} :{kind};")
            lines.append("}")
    return "\n".join(lines) + "\n"


def main():
    project, out = sys.argv[1:]
    peer.require("capnp")
    descriptors = descriptor_pb2.FileDescriptorSet()
    with open(peer.descriptor_set(project, out), "rb") as file:
        descriptors.ParseFromString(file.read())
    schema = os.path.join(out, "schema.capnp")
    with open(schema, "w", encoding="utf-8") as file:
        file.write(schema_text(descriptors))

    names = {value.name: enumerant(value.name)
             for file in descriptors.file for item in file.enum_type for value in item.value}
    name_pattern = re.compile(r'"([A-Za-z]\w*_\w*)"')
    files = collections.defaultdict(list)
    for number, scope in enumerate(["default", *peer.sensors(project)]):
        for count, path in enumerate(peer.json_files(os.path.join(project, scope))):
            copy = os.path.join(out, f"{number}-{count}.json")
            with open(path, encoding="utf-8") as source, open(copy, "w", encoding="utf-8") as target:
                target.write(name_pattern.sub(lambda hit: f'"{names.get(hit[1]) or camel(hit[1])}"', source.read()))
            files[".".join(peer.type_name(os.path.basename(path)[: -len(".json")]))].append(copy)

    def pack():
        for name, paths in files.items():
            with open(os.path.join(out, f"{name}.bin"), "wb") as target:
                convert = subprocess.Popen(["capnp", "convert", "--quiet", "json:binary", schema, type_of(name)],
                                           stdin=subprocess.PIPE, stdout=target)
                for path in paths:
                    with open(path, "rb") as source:
                        convert.stdin.write(source.read())
                convert.stdin.close()
                if convert.wait() != 0:
                    sys.exit(f"capnp could not convert {name}")

    peer.serve(pack, through="capnp")


main()
