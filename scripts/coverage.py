#!/usr/bin/env python3
"""Line coverage of one folder from the counters of an instrumented build; exit 1 below the wanted percentage.

    coverage.py --build FOLDER --folder SOURCES --least PERCENT

Reads the counters with gcov itself, so that nothing but the compiler is needed. A line counts when any object of the
build ran it; tests and headers of other folders do not count.
"""
import argparse
import collections
import gzip
import json
import subprocess
import sys
import tempfile
from pathlib import Path


def line_counts(build, folder):
    """Path -> {line: hits} over all counter files of the build."""
    lines = collections.defaultdict(lambda: collections.defaultdict(int))
    counters = sorted(build.rglob("*.gcno"))
    with tempfile.TemporaryDirectory() as scratch:
        for begin in range(0, len(counters), 40):
            subprocess.run(["gcov", "--json-format", "--preserve-paths", *map(str, counters[begin:begin + 40])], cwd=scratch,
                           stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
        for report in Path(scratch).glob("*.gcov.json.gz"):
            data = json.loads(gzip.decompress(report.read_bytes()))
            for file in data["files"]:
                path = (Path(data["current_working_directory"]) / file["file"]).resolve()
                if not path.is_relative_to(folder) or path.stem.endswith("_test"):
                    continue
                for line in file["lines"]:
                    lines[path][line["line_number"]] += line["count"]
    return lines


def ranges(numbers):
    """1 2 3 7 -> "1-3 7"."""
    out, numbers = [], sorted(numbers)
    for number in numbers:
        if out and number == out[-1][1] + 1:
            out[-1][1] = number
        else:
            out.append([number, number])
    return " ".join(str(a) if a == b else f"{a}-{b}" for a, b in out)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, required=True)
    parser.add_argument("--folder", type=Path, required=True)
    parser.add_argument("--least", type=float, required=True)
    args = parser.parse_args()
    folder = args.folder.resolve()
    lines = line_counts(args.build.resolve(), folder)
    if not lines:
        print(f"no counters for {folder}")
        return 1
    all_lines = all_hit = 0
    for path in sorted(lines):
        hit = sum(1 for count in lines[path].values() if count)
        all_lines += len(lines[path])
        all_hit += hit
        missed = ranges(number for number, count in lines[path].items() if not count)
        print(f"{100 * hit / len(lines[path]):6.1f}%  {path.relative_to(folder)}" + (f"   not run: {missed}" if missed else ""))
    percent = 100 * all_hit / all_lines
    print(f"line coverage of {folder.name}/: {percent:.1f}% ({all_hit} of {all_lines} lines), wanted {args.least:.0f}%")
    return 0 if percent >= args.least else 1


if __name__ == "__main__":
    sys.exit(main())
