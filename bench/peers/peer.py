"""What the peers in Python have in common: the modules of a project, and the answers to pack_bench."""

import os
import re
import resource
import shutil
import subprocess
import sys
import time

DATA_TYPE = re.compile(r"(Bool|Int32|Uint32|Int64|Uint64|Double|Float)(Data|ArrayData|ArrayData_2D)")
_PACKAGES = {"Af": "ZO_TUNING_AF", "AW": "ZO_TUNING_AWB", "AE": "ZO_TUNING_AEC", "Pd": "ZO_TUNING_PD"}


def skip(reason):
    """Tells pack_bench why this peer cannot take part."""
    print(reason, flush=True)
    sys.exit(1)


def require(program):
    if shutil.which(program) is None:
        skip(f"{program} is not installed")


def type_name(module):
    """The package and the name of the message type of a module."""
    end = module.find("LinkKey")
    name = module if end < 0 else module[: end + len("LinkKey")]
    return _PACKAGES.get(module[:2], "ZO_TUNING"), name


def proto_files(project):
    return sorted(name for name in os.listdir(os.path.join(project, "proto")) if name.endswith(".proto"))


def descriptor_set(project, out):
    """Has protoc describe the schema; Python has no reader for .proto files."""
    require("protoc")
    path = os.path.join(out, "schema.desc")
    proto_dir = os.path.join(project, "proto")
    subprocess.run(["protoc", "-I", proto_dir, f"--descriptor_set_out={path}", *proto_files(project)], check=True)
    return path


def sensors(project):
    return sorted(
        name for name in os.listdir(project)
        if name != "proto" and os.path.isdir(os.path.join(project, name, "version"))
    )


def json_files(scope):
    for directory, folders, files in os.walk(scope):
        if "version" in folders:
            folders.remove("version")
        for name in files:
            if name.endswith(".json"):
                yield os.path.join(directory, name)


def _processor_time():
    """Seconds of this process and of the programs that it has started."""
    usages = [resource.getrusage(who) for who in (resource.RUSAGE_SELF, resource.RUSAGE_CHILDREN)]
    return sum(usage.ru_utime + usage.ru_stime for usage in usages)


def serve(pack, through=None):
    """Calls pack() for every line "run" of standard input, and prints the milliseconds that it took, by the clock and
    of the processor.

    `through` names the program that pack() starts, if it does."""
    print(f"ready through {through}" if through else "ready", flush=True)
    for line in sys.stdin:
        if line.strip() != "run":
            break
        begin, processor = time.perf_counter(), _processor_time()
        pack()
        print(f"{(time.perf_counter() - begin) * 1000:.3f} {(_processor_time() - processor) * 1000:.3f}", flush=True)
