"""Projects of extreme sizes: what an operation costs at one size and at a larger one. scripts/dev check scale runs it.

Each operation runs in a process of its own, best of a few runs by processor time; its descriptors are counted while it
runs. Fails if the time grows more than twice as fast as the size, if memory grows with the number of files, or if an
operation does not end as it should.
"""

import argparse
import json
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading
import time

GROSS_GROWTH = 2.0  # of the time for a unit, from the size to the larger one
NOISE_SECONDS = 0.05  # times below are not compared
MEMORY_NOISE_MB = 8.0
KILOBYTES_PER_FILE = 3.0  # for its name and labels; the text of a setting is larger
MOST_DESCRIPTORS = 16
SMALL_STACK_KB = 1024  # what a thread on Android has
MODULE = "Small"

PROJECT_PROTO = """syntax = "proto3";
package ZO_TUNING;
message TuningProjConfig { string proj_name = 1; repeated string sensor_names = 2; }
message Version { string name = 1; string version = 2; }
message FloatRule { string description = 1; string recommend = 2; }
message FloatData { FloatRule rule = 1; float value = 2; }
message FloatArrayRule { string description = 1; string recommend = 2; int32 order = 3; string len = 4; }
message FloatArrayData { FloatArrayRule rule = 1; repeated float value = 2; }
"""

LEVELS = ["mode", "scenario", "feature0", "function", "sub_function", "scene", "filter"]


def label_proto(modules, labels=8, values=2):
    """The label's schema: `labels` fields, each but the mode an enum of `values` values."""
    names = (LEVELS + [f"further{i}" for i in range(labels)])[: labels - 1]
    fields = ["Module module = 1;", "int32 mode = 2;"]
    enums = ["enum Module { " + " ".join(f"Module_{m} = {i};" for i, m in enumerate(modules)) + " }"]
    for number, name in enumerate(names[1:], 3):
        enum = f"E{number}"
        fields.append(f"{enum} {name} = {number};")
        enums.append(f"enum {enum} {{ " + " ".join(f"{enum}_V{i} = {i};" for i in range(values)) + " }")
    return (
        'syntax = "proto3";\npackage ZO_TUNING;\nmessage TuningDataLabel {\n '
        + "\n ".join(fields) + "\n}\n" + "\n".join(enums) + "\n"
    )


def float_data(value):
    return {"rule": {"description": "[Float]", "recommend": "None"}, "value": value}


def fields(count):
    """A module's fields and a text with all of them."""
    names = [f"parameter_{i:05d}" for i in range(count)]
    schema = " ".join(f"FloatData {name} = {i};" for i, name in enumerate(names, 1))
    return schema, json.dumps({name: float_data(i + 0.5) for i, name in enumerate(names)}, indent=1)


class Project:
    """A project in a folder, made by the command-line tool from a schema."""

    def __init__(self, tool, dir, messages, modules=(MODULE,), sensors=("one",), **label):
        self.tool, self.path, self.sensors = tool, dir / "project", sensors
        proto = dir / "schema"
        (proto / "version").mkdir(parents=True)
        (proto / "project.proto").write_text(PROJECT_PROTO)
        (proto / "label.proto").write_text(label_proto(modules, **label))
        for name, text in messages.items():
            (proto / f"{name}.proto").write_text(
                'syntax = "proto3";\npackage ZO_TUNING;\nimport "project.proto";\n' + text)
        self.init = [tool, "init", "project", "--proto", str(proto), "--into", str(dir)]
        for sensor in sensors:
            self.init += ["--sensor", sensor]
        subprocess.run(self.init, check=True, stdout=subprocess.DEVNULL)

    def write(self, file, text):
        path = self.path / file
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def shown(value):
    return f"{value:.0f}" if value else "–"


class Measure:
    """The cost of one run of a command. Memory and descriptors are 0 if it ended before they were measured."""

    def __init__(self, command, code):
        process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        self.descriptors, self.megabytes = 0, 0.0
        watch = threading.Thread(target=self._watch, args=(process.pid,))
        watch.start()
        self.errors = process.stderr.read().decode(errors="replace")
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        watch.join()
        self.seconds = usage.ru_utime + usage.ru_stime
        if process.returncode != code:
            raise RuntimeError(f"{' '.join(map(str, command[:8]))} ended with {process.returncode} instead of {code}: "
                               f"{self.errors[:2000]}")

    def _watch(self, pid):
        # The usage record of a child counts what this program held when it started it, so the memory is read here too.
        status = pathlib.Path(f"/proc/{pid}/status")
        try:
            while True:
                self.descriptors = max(self.descriptors, len(os.listdir(f"/proc/{pid}/fd")))
                for line in status.read_text().splitlines():
                    if line.startswith("VmHWM:"):
                        self.megabytes = max(self.megabytes, int(line.split()[1]) * 1024 / 1e6)
                time.sleep(0.001)
        except OSError:
            pass  # it has ended


class Operation:
    """A command for a project in `dir`; {out} in it is replaced by a fresh folder, which finally becomes `keep`. It
    must end with `code` and print `says` to standard error. Settings in the sensor folder `clear` are removed first."""

    def __init__(self, name, command, code=0, keep=None, says="", clear=None):
        self.name, self.command, self.code, self.keep, self.says, self.clear = name, command, code, keep, says, clear

    def run(self, dir, rounds, best=None):
        """The best of this many runs and of `best`, which is updated."""
        for _ in range(rounds):
            out = dir / "out"
            shutil.rmtree(out, ignore_errors=True)
            out.mkdir()
            for path in self.clear.glob("mode_*") if self.clear else ():
                shutil.rmtree(path)
            run = Measure([str(word).replace("{out}", str(out)) for word in self.command], self.code)
            if self.says not in run.errors:
                raise RuntimeError(f"{self.name} does not say {self.says!r}: {run.errors[:2000]}")
            if best is None:
                best = run
            best.seconds = min(best.seconds, run.seconds)
            # The most that was seen: a short run may end between two looks.
            best.descriptors = max(best.descriptors, run.descriptors)
            best.megabytes = max(best.megabytes, run.megabytes)
        if self.keep:
            shutil.rmtree(dir / self.keep, ignore_errors=True)
            out.rename(dir / self.keep)
        return best


class Extremes:
    def __init__(self, options, work):
        self.options, self.work, self.faults = options, work, []
        self.tool = str(pathlib.Path(options.build) / "zotuning")
        self.library = str(pathlib.Path(options.build) / "bench" / "run_operation")

    # ---- The cases: each makes a project of a size and names what is done with it.

    def settings(self, dir, count):
        schema, text = fields(64)
        project = Project(self.tool, dir, {"module": f"message {MODULE} {{ {schema} }}"})
        project.write(f"default/{MODULE}.json", text)
        bins = dir / "packed" / "zo_tuning"
        return [
            Operation("make settings", [self.library, "new", project.path, "one", count], clear=project.path / "one"),
            Operation("pack, library", [self.library, "pack", project.path, "{out}"], keep="packed"),
            Operation("dump, library", [self.library, "dump", project.path, bins]),
            Operation("zotuning pack", [self.tool, "-C", project.path, "pack", "-o", "{out}"]),
            Operation("zotuning verify", [self.tool, "-C", project.path, "verify", bins]),
            Operation("zotuning tree", [self.tool, "-C", project.path, "tree"]),
            Operation("zotuning show --text", [self.tool, "-C", project.path, "show", "--text", bins / "one.bin"]),
        ]

    def large_file(self, dir, megabytes, end=""):
        project = Project(self.tool, dir, {"module": f"message {MODULE} {{ FloatArrayData curve = 1; }}"})
        text = ",\n".join("   %.6f" % (i % 1000 * 0.001 + 0.5) for i in range(10000)) + ",\n"
        path = project.path / f"default/{MODULE}.json"
        path.parent.mkdir(exist_ok=True)
        with path.open("w") as file:
            file.write('{\n "curve": {\n  "rule": {"description": "[FloatArr]", "recommend": "None", "order": 0,'
                       ' "len": "-1"},\n  "value": [\n')
            while file.tell() < megabytes * 1_000_000:
                file.write(text)
            file.write(f"   0.25{end}\n  ]\n }}\n}}\n")
        bins = dir / "packed" / "zo_tuning"
        return [
            Operation("pack, library", [self.library, "pack", project.path, "{out}"], keep="packed"),
            Operation("dump, library", [self.library, "dump", project.path, bins]),
            Operation("zotuning pack", [self.tool, "-C", project.path, "pack", "-o", "{out}"]),
            Operation("zotuning verify", [self.tool, "-C", project.path, "verify", bins]),
        ]

    def types(self, dir, count):
        schema, text = fields(8)
        modules = [f"Module{i:05d}" for i in range(count)]
        messages = "\n".join(f"message {module} {{ {schema} }}" for module in modules)
        project = Project(self.tool, dir, {"modules": messages}, modules)
        for module in modules:
            project.write(f"default/{module}.json", text)
        bins = dir / "packed" / "zo_tuning"
        return [
            Operation("template of one", [self.library, "template", project.path, modules[-1]]),
            Operation("pack, library", [self.library, "pack", project.path, "{out}"], keep="packed"),
            Operation("dump, library", [self.library, "dump", project.path, bins]),
            Operation("zotuning modules", [self.tool, "-C", project.path, "modules"]),
            Operation("zotuning pack", [self.tool, "-C", project.path, "pack", "-o", "{out}"]),
            Operation("zotuning template --all", [self.tool, "-C", project.path, "template", "--all", "--force"]),
        ]

    def fields(self, dir, count):
        schema, text = fields(count)
        project = Project(self.tool, dir, {"module": f"message {MODULE} {{ {schema} }}"})
        for sensor_mode in range(20):
            project.write(f"one/mode_{sensor_mode}/{MODULE}.json", text)
        bins = dir / "packed" / "zo_tuning"
        return [
            Operation("template", [self.library, "template", project.path, MODULE]),
            Operation("pack of 20 files, library", [self.library, "pack", project.path, "{out}"], keep="packed"),
            Operation("dump, library", [self.library, "dump", project.path, bins]),
            Operation("zotuning pack", [self.tool, "-C", project.path, "pack", "-o", "{out}"]),
        ]

    def labels(self, dir, count):
        schema, text = fields(8)
        project = Project(self.tool, dir, {"module": f"message {MODULE} {{ {schema} }}"}, labels=count, values=1000)
        project.write(f"default/{MODULE}.json", text)
        for i in range(1000):
            levels = "/".join(f"{level}_V{i}" for level in LEVELS[1:])
            project.write(f"one/mode_{i}/{levels}/{MODULE}.json", text)
        bins = dir / "packed" / "zo_tuning"
        return [
            Operation("pack of 1,000 settings, library", [self.library, "pack", project.path, "{out}"], keep="packed"),
            Operation("dump, library", [self.library, "dump", project.path, bins]),
            Operation("zotuning labels", [self.tool, "-C", project.path, "labels"]),
            Operation("zotuning pack", [self.tool, "-C", project.path, "pack", "-o", "{out}"]),
            Operation("zotuning tree", [self.tool, "-C", project.path, "tree"]),
        ]

    def sensors(self, dir, count):
        schema, text = fields(8)
        sensors = [f"sensor{i:04d}" for i in range(count)]
        project = Project(self.tool, dir, {"module": f"message {MODULE} {{ {schema} }}"}, sensors=sensors)
        for sensor in ["default"] + sensors:
            project.write(f"{sensor}/{MODULE}.json", text)
        bins = dir / "packed" / "zo_tuning"
        init = [word if word != str(dir) else "{out}" for word in project.init]
        return [
            Operation("zotuning init", init),
            Operation("pack, library", [self.library, "pack", project.path, "{out}"], keep="packed"),
            Operation("dump, library", [self.library, "dump", project.path, bins]),
            Operation("zotuning sensors", [self.tool, "-C", project.path, "sensors"]),
            Operation("zotuning pack", [self.tool, "-C", project.path, "pack", "-o", "{out}"]),
            Operation("zotuning verify", [self.tool, "-C", project.path, "verify", bins]),
            Operation("zotuning show", [self.tool, "-C", project.path, "show", bins]),
        ]

    # ---- Nesting.

    def nested(self, dir, json_depth, schema_depth, code):
        """A text of nested objects, for a chain of this many types (1: a recursive type)."""
        if schema_depth == 1:
            schema = f"message {MODULE} {{ float level = 1; {MODULE} next = 2; }}"
        else:
            names = [MODULE] + [f"Type{i}" for i in range(1, schema_depth)]
            schema = "\n".join(f"message {name} {{ float level = 1; {next_name} next = 2; }}"
                               for name, next_name in zip(names, names[1:] + ["FloatData"]))
        project = Project(self.tool, dir, {"module": schema})
        file = f"default/{MODULE}.json"
        project.write(file, '{"level": 1, "next": ' * (json_depth - 1) + '{"level": 1}' + "}" * (json_depth - 1) + "\n")
        operations = [
            Operation("pack, library", [self.library, "pack", project.path, "{out}"], code, keep="packed"),
            Operation("zotuning pack",
                      [self.tool, "-C", project.path, "pack", "-o", "{out}", "--allow", "json-missing-field"], code,
                      says=file if code else ""),
        ]
        if code == 0:
            operations.append(
                Operation("dump, library", [self.library, "dump", project.path, dir / "packed" / "zo_tuning"]))
        if schema_depth > 1:
            operations.append(Operation("template, library", [self.library, "template", project.path, MODULE]))
        return operations

    def folders(self, dir, depth):
        """A setting this many folders below its sensor."""
        schema, text = fields(8)
        project = Project(self.tool, dir, {"module": f"message {MODULE} {{ {schema} }}"})
        project.write("one/" + "f/" * depth + f"{MODULE}.json", text)
        return [
            Operation("pack, library", [self.library, "pack", project.path, "{out}"]),
            Operation("zotuning pack",
                      [self.tool, "-C", project.path, "pack", "-o", "{out}", "--allow", "unknown-label"]),
        ]

    def least_stack(self, operation, dir):
        """The smallest thread stack, in kilobytes and a power of two, on which a library operation works as on the
        usual one. On a smaller one it may reject its input, but crash only at sizes that no real thread has."""
        if operation.command[0] != self.library:
            return "–"
        for stack in (64, 128, 256, 512, 1024, 2048, 4096, 8192):
            small = Operation(operation.name, [self.library, "--stack", stack, *operation.command[1:]], operation.code)
            try:
                small.run(dir, 1)
                return f"{stack:,}"
            except RuntimeError as error:
                refused = "ended with 1 " in str(error)
                if stack == 8192 or not (refused or stack < SMALL_STACK_KB):
                    raise

    # ---- Running them.

    def case(self, title, make, unit, sizes, memory=None):
        """A table of the operations of `make` at both sizes. A unit may raise the peak by `memory` megabytes."""
        print(f"\n## {title}\n", flush=True)
        print(f"| operation | s for {sizes[0]:,} {unit} | for {sizes[1]:,} | growth for a unit | peak MB | then | "
              "descriptors | then |\n|---|---|---|---|---|---|---|---|", flush=True)
        dirs = [self.folder() for _ in sizes]
        for pair in zip(*(make(dir, size) for dir, size in zip(dirs, sizes))):
            name = pair[0].name
            try:
                first, then = (op.run(dir, self.options.rounds) for op, dir in zip(pair, dirs))
                for _ in range(4):
                    growth = then.seconds / max(first.seconds, 1e-3) / (sizes[1] / sizes[0])
                    gross = growth > GROSS_GROWTH and then.seconds > NOISE_SECONDS
                    if not gross:
                        break
                    # Other work on the machine can do that too: once more.
                    pair[0].run(dirs[0], 1, first)
                    pair[1].run(dirs[1], 1, then)
            except RuntimeError as error:
                self.fault(f"{title}: {error}")
                continue
            print(f"| {name} | {first.seconds:.3f} | {then.seconds:.3f} | {growth:.2f} | {shown(first.megabytes)} | "
                  f"{shown(then.megabytes)} | {shown(first.descriptors)} | {shown(then.descriptors)} |", flush=True)
            if gross:
                self.fault(f"{title}: {name} takes {growth:.1f} times as long for a unit")
            allowed = first.megabytes + memory * (sizes[1] - sizes[0]) + MEMORY_NOISE_MB if memory else float("inf")
            if first.megabytes and then.megabytes > allowed:
                self.fault(f"{title}: the memory of {name} grows from {first.megabytes:.0f} to {then.megabytes:.0f} MB")
            for run in (first, then):
                self.check_descriptors(title, name, run)
        for dir in dirs:
            shutil.rmtree(dir)

    def nesting(self):
        print("\n## Nesting\n\n| what | operation | s | peak MB | descriptors | least stack of a thread, kB |\n"
              "|---|---|---|---|---|---|", flush=True)
        cases = [(f"JSON of {levels:,} levels, {types}", lambda dir, row=row: self.nested(dir, *row))
                 for *row, levels, types in (
                     (90, 1, 0, 90, "a type that holds itself"), (90, 90, 0, 90, "90 types"),
                     (5000, 1, 1, 5000, "a type that holds itself"), (5000, 5000, 1, 5000, "5,000 types"),
                     (90, 5000, 1, 90, "5,000 types"))]
        cases.append(("a setting 400 folders deep", lambda dir: self.folders(dir, 400)))
        for title, make in cases:
            dir = self.folder()
            for operation in make(dir):
                try:
                    run = operation.run(dir, 1)
                    stack = self.least_stack(operation, dir)
                except RuntimeError as error:
                    self.fault(f"nesting, {title}: {error}")
                    continue
                print(f"| {title} | {operation.name}{', refused' if operation.code else ''} | {run.seconds:.3f} | "
                      f"{shown(run.megabytes)} | {shown(run.descriptors)} | {stack} |", flush=True)
                self.check_descriptors(title, operation.name, run)
            shutil.rmtree(dir)

    def check_descriptors(self, title, name, run):
        if run.descriptors > MOST_DESCRIPTORS:
            self.fault(f"{title}: {name} holds {run.descriptors} descriptors")

    def folder(self):
        return pathlib.Path(tempfile.mkdtemp(dir=self.work))

    def fault(self, text):
        self.faults.append(text)
        print(f"check-scale: {text}", file=sys.stderr, flush=True)

    def run(self):
        part = 10 if self.options.quick else 1
        four = lambda size: (size // part // 4, size // part)
        for_names = KILOBYTES_PER_FILE / 1e3
        cases = {
            "settings": lambda: self.case("Settings of 7 kB", self.settings, "settings", four(20000), for_names),
            "file": lambda: self.case("One large file", self.large_file, "MB", four(200), 2),
            "odd": lambda: self.case("One large file with a comma at its end, which takes the slow path",
                                     lambda dir, size: self.large_file(dir, size, ","), "MB", four(200), 5),
            "types": lambda: self.case("Message types", self.types, "types", four(2000)),
            "fields": lambda: self.case("Fields in one type", self.fields, "fields", four(2000)),
            "nesting": self.nesting,
            "labels": lambda: self.case("Labels with 1,000 values each", self.labels, "labels", (16, 64)),
            "sensors": lambda: self.case("Sensors", self.sensors, "sensors", four(500), for_names),
        }
        for name, run in cases.items():
            if not self.options.only or name in self.options.only:
                run()
        return 1 if self.faults else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true", help="a tenth of the sizes, one run each")
    parser.add_argument("--only", action="append", help="a case: settings, file, types, ...")
    parser.add_argument("--rounds", type=int, help="runs of each operation, of which the best counts")
    parser.add_argument("build", help="the folder with the programs")
    options = parser.parse_args()
    options.rounds = options.rounds or (1 if options.quick else 3)
    with tempfile.TemporaryDirectory(prefix="extremes.") as work:
        return Extremes(options, work).run()


if __name__ == "__main__":
    sys.exit(main())
