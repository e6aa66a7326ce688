#!/usr/bin/env python3
"""Times collections of 1,000,000 elements: vesk at -O2 beside C++ and its standard library, both in this one run.

    compare_collections.py VESKC [CXX]

For each step, the time of a run with many repetitions less that of a run with few, so that start-up falls out; of several runs the
least of each.
Exit status 1 when a step takes more than twice as long as in C++, 2 when the two disagree about the result.
"""
import resource
import subprocess
import sys
import tempfile
from pathlib import Path

STEPS = {"append": (2, 42), "index": (2, 402), "iterate": (2, 802), "lookup": (1, 11), "sort": (1, 6)}
LIMIT = 2.0
PAIRS = 5


def seconds(command):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    output = subprocess.run(command, stdout=subprocess.PIPE, check=True).stdout
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    return after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime, output


def step_time(program, step):
    few, many = STEPS[step]
    short, long, output = [], [], None
    for _ in range(PAIRS):
        short.append(seconds([*program, step, str(few)])[0])
        time, output = seconds([*program, step, str(many)])
        long.append(time)
    return (min(long) - min(short)) / (many - few), output


def main():
    veskc, cxx = sys.argv[1], sys.argv[2] if len(sys.argv) > 2 else "c++"
    here = Path(__file__).resolve().parent
    status = 0
    with tempfile.TemporaryDirectory() as folder:
        ours, theirs = [veskc, "run", str(here / "collections.vk"), "-O2", "--"], [f"{folder}/collections"]
        subprocess.run([cxx, "-std=c++20", "-O2", str(here / "collections.cpp"), "-o", theirs[0]], check=True)
        for step in STEPS:
            own, own_output = step_time(ours, step)
            other, other_output = step_time(theirs, step)
            ratio = own / other if other > 0 else float("inf")
            print(f"{step:8} vesk {own * 1e3:8.3f} ms   C++ {other * 1e3:8.3f} ms   ratio {ratio:.2f}")
            if own_output != other_output:
                print(f"{step}: the results differ")
                status = 2
            elif ratio > LIMIT and status == 0:
                status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
