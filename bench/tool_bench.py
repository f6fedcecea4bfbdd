"""The cost of the tool relative to the library's own packing, in processor time. scripts/dev bench runs it.

The tool's `pack` checks what it packs and should take at most 1.7 times as long as the library; `check` reads
everything and may take 3 times as long. Checking one file is for editors and should take less than 50 ms
of wall-clock time.
"""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import time


def run(command, directory, codes):
    """Processor seconds and seconds of one run."""
    begin = time.perf_counter()
    process = subprocess.Popen(command, cwd=directory, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    errors = process.stderr.read().decode(errors="replace")
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode not in codes:
        sys.exit(f"tool_bench: {' '.join(command)} ended with {process.returncode}: {errors[:2000]}")
    return usage.ru_utime + usage.ru_stime, time.perf_counter() - begin


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rounds", type=int, required=True)
    parser.add_argument("--tool", required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("projects", nargs="+")
    options = parser.parse_args()
    print("| Project | Files | library-pack | pack-tool | pack-tool/library-pack | check | check/library-pack | "
          "check of one file |")
    print("|---|---|---|---|---|---|---|---|")
    for project in options.projects:
        files = sorted(path for path in pathlib.Path(project).rglob("*.json") if "version" not in path.parts)
        one = str(files[len(files) // 2].relative_to(project))
        out = tempfile.mkdtemp()
        best = {}
        for _ in range(options.rounds):
            # In turns, so that whatever else the machine does meets all of them.
            for name, command, codes in (
                    ("library", [options.library, "pack", ".", out], (0,)),
                    ("pack", [options.tool, "pack", "-o", out], (0,)),
                    ("check", [options.tool, "check"], (0,)),
                    ("one", [options.tool, "check", one], (0,))):
                for entry in os.listdir(out):
                    shutil.rmtree(os.path.join(out, entry))
                took = run(command, project, codes)
                best[name] = tuple(map(min, best.get(name, took), took))
        shutil.rmtree(out)
        library, pack, check = (best[name][0] for name in ("library", "pack", "check"))
        print(f"| {pathlib.Path(project).name} | {len(files)} | {library * 1e3:.0f} ms | {pack * 1e3:.0f} ms | "
              f"{pack / library:.2f} | {check * 1e3:.0f} ms | {check / library:.2f} | {best['one'][1] * 1e3:.1f} ms |")


main()
