#!/usr/bin/python3 -B
"""flatc: JSON to FlatBuffers, one process per module. Its schema is made from the .proto files beforehand.

Its output is another format, one file per module name that each setting overwrites. It makes no labels, no versions and
no bins, drops no rules, and checks no fields."""

import collections
import os
import subprocess
import sys

import peer


def main():
    project, out = sys.argv[1:]
    peer.require("flatc")
    proto_dir = os.path.abspath(os.path.join(project, "proto"))
    subprocess.run(["flatc", "--proto", "-I", proto_dir, "-o", out, *(f"{proto_dir}/{x}" for x in
                                                                   peer.proto_files(project))], check=True)
    schema_of = {}
    for name in os.listdir(out):
        if name.endswith(".fbs"):
            with open(os.path.join(out, name), encoding="utf-8") as file:
                for line in file:
                    if line.startswith("table "):
                        schema_of[line.split()[1]] = os.path.join(out, name)
    scopes = [os.path.join(project, name) for name in ["default", *peer.sensors(project)]]

    def pack():
        files = collections.defaultdict(list)
        for scope in scopes:
            for path in peer.json_files(scope):
                files[peer.type_name(os.path.basename(path)[: -len(".json")])].append(path)
        for (package, name), paths in files.items():
            subprocess.run(["flatc", "--binary", "--root-type", f"{package}.{name}", "-I", out, "-o", f"{out}/bins",
                            schema_of[name], *paths], check=True)

    peer.serve(pack, through="flatc")


main()
