"""What the pages of `zotuning report` take: a table of sizes and times. bench/run runs it.

The other side of the last two is a copy with one number, or every number, of each file moved by up to 0.5 %.
"""

import argparse
import json
import pathlib
import shutil
import subprocess
import tempfile

from compare import change, processor_seconds, settings

MEASURE = pathlib.Path(__file__).parent.parent / "web/test/measure.mjs"


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("tool")
    parser.add_argument("projects", type=pathlib.Path, nargs="+", help="only the first is compared with others")
    parser.add_argument("--rounds", type=int, default=5)
    arguments = parser.parse_args()
    print("| page of | files | JSON, MB | page, MB | made in, s | first screen, s | move: median / slowest, ms |")
    print("|---|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as work:
        page = pathlib.Path(work) / "report.html"
        other = pathlib.Path(work) / "other"

        def measure(name, project, *options):
            sides = [project, *options[1:]]
            sizes = [path.stat().st_size for side in sides for path in settings(side)]
            command = [arguments.tool, "-C", project, "report", *options, "-o", page]
            made = processor_seconds(command, arguments.rounds)
            shown = [
                json.loads(subprocess.run(["node", MEASURE, page], check=True, stdout=subprocess.PIPE).stdout)
                for _ in range(arguments.rounds)
            ]
            best = {key: min(each[key] for each in shown) for key in shown[0]}
            print(
                f"| {name} | {len(sizes)} | {sum(sizes) / 1e6:.1f} | {page.stat().st_size / 1e6:.2f} | {made:.2f} "
                f"| {best['first']:.2f} | {best['median']:.0f} / {best['slowest']:.0f} |"
            )

        for project in arguments.projects:
            measure(project.name, project)
        first = arguments.projects[0]
        shutil.copytree(first, other)
        for numbers, text in [(1, "one number of each file differs"), (0, "every number differs")]:
            change(other, numbers)
            measure(f"{first.name}, {text}", first, "--against", other)


if __name__ == "__main__":
    main()
