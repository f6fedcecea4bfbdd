"""What comparing two projects costs, relative to packing one: a table of processor times. bench/run runs it.

The other project is a copy: identical, or with one number or every number of each file changed. Fails if a comparison
takes more than MOST_TIMES the processor time of packing.
"""

import argparse
import pathlib
import re
import resource
import shutil
import subprocess
import sys
import tempfile

MOST_TIMES = 4.0
REAL = re.compile(rb"(?<=[\s\[:])-?\d+\.\d+(?=\s*[,\]\n}])")


def processor_seconds(command, rounds):
    """Processor time of the fastest round, including child processes."""
    best = float("inf")
    for _ in range(rounds):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        best = min(best, after.ru_utime - before.ru_utime + after.ru_stime - before.ru_stime)
    return best


def larger(number):
    return b"%.5f" % (float(number[0]) * 1.01 + 0.001)


def settings(project):
    """The JSON files of settings and defaults."""
    return [path for path in project.rglob("*.json") if path.parent.name != "version"]


def change(project, numbers):
    """Changes this many numbers in each file (0: all). Returns the number of files changed."""
    changed = 0
    for path in settings(project):
        text = path.read_bytes()
        other = REAL.sub(larger, text, count=numbers)
        path.write_bytes(other)
        changed += other != text
    return changed


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("project", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=11)
    arguments = parser.parse_args()
    slow = False
    with tempfile.TemporaryDirectory() as work:
        tool = [arguments.tool, "-C", arguments.project]
        pack = processor_seconds([*tool, "pack", "--force", "-o", f"{work}/out"], arguments.rounds)
        print("| | files that differ | processor time, ms | times packing |\n|---|---|---|---|")
        print(f"| `zotuning pack` | | {pack * 1e3:.0f} | 1.00 |")
        for name, numbers in [("the same", None), ("one number of each file", 1), ("every number", 0)]:
            other = pathlib.Path(work) / "other"
            shutil.rmtree(other, ignore_errors=True)
            shutil.copytree(arguments.project, other)
            changed = 0 if numbers is None else change(other, numbers)
            seconds = processor_seconds([*tool, "diff", arguments.project, other], arguments.rounds)
            print(f"| `zotuning diff`, {name} | {changed} | {seconds * 1e3:.0f} | {seconds / pack:.2f} |")
            slow |= seconds > MOST_TIMES * pack
    if slow:
        sys.exit(f"compare.py: a comparison takes more than {MOST_TIMES:.0f} times the time of packing")


if __name__ == "__main__":
    main()
