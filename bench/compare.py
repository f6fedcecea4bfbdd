"""What comparing two projects costs, relative to packing one: a table of processor times. bench/run runs it.

The other project is a copy: the same, or with one number or every number of each file moved by up to 0.5 %. Fails when
a comparison takes more than MOST_TIMES the processor time of packing; --all and --json, which print 40 times the text
and more, are measured only.
"""

import argparse
import pathlib
import random
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


def moved(number, source):
    """Another number with as many decimals."""
    decimals = len(number) - number.index(b".") - 1
    value = round(float(number) * (1 + source.uniform(-0.005, 0.005)), decimals)
    return b"%.*f" % (decimals, value if value != float(number) else value + 10**-decimals)


def settings(project):
    """The JSON files of settings and defaults."""
    return [path for path in project.rglob("*.json") if path.parent.name != "version"]


def change(project, numbers):
    """Changes this many numbers in each file (0: all). Returns the number of files changed."""
    changed = 0
    source = random.Random(1)
    for path in sorted(settings(project)):
        text = path.read_bytes()
        other = REAL.sub(lambda match: moved(match[0], source), text, count=numbers)
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
        other = pathlib.Path(work) / "other"
        shutil.copytree(arguments.project, other)
        changed = 0

        def measure(name, *options):
            seconds = processor_seconds([*tool, "diff", arguments.project, other, *options], arguments.rounds)
            command = " ".join(["zotuning diff", *options])
            print(f"| `{command}`, {name} | {changed} | {seconds * 1e3:.0f} | {seconds / pack:.2f} |")
            return seconds > MOST_TIMES * pack

        slow |= measure("the same")
        changed = change(other, 1)
        slow |= measure("one number of each file")
        changed = change(other, 0)
        slow |= measure("every number")
        measure("every number", "--json")
        measure("every number", "--all")
    if slow:
        sys.exit(f"compare.py: a comparison takes more than {MOST_TIMES:.0f} times the time of packing")


if __name__ == "__main__":
    main()
