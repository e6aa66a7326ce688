#!/usr/bin/env python3
"""Times the start of programs that use collections beside one that does not, all in this one run.

    compare_start_up.py VESKC [RUNS]

Processor time of `veskc run` (user and system), the median of RUNS runs (25) of each program in turn, with a warm cache
of its own: other programs have used the same classes, these programs themselves are new. So each run gets a program
whose text nobody has seen, and the warming is done by a program that uses all classes. The figure is what a program
costs above the one that prints a number. Exit status 1 when that is more than 5 ms.
"""
import os
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

LIMIT_MS = 5.0
HEADER = "import vesk.collections\n\ndef main() -> Void:\n"
USES = {
    "ArrayList": ["var numbers = [{n}, 1, 2]", "numbers.add(4)", "print(numbers.size())"],
    "HashMap": ['var ages = {{"a": {n}}}', 'ages.put("b", 2)', "print(ages.size())"],
    "HashSet": ["var seen = HashSet<Int>()", "seen.add({n})", "print(seen.size())"],
    "SortedMap": ["var order = SortedMap<String, Int>()", 'order.put("z", {n})', "print(order.size())"],
    "LinkedList": ["var names = LinkedList<String>()", 'names.add("{n}")', "print(names.size())"],
    "generic methods": [
        "var some = [{n}, 1, 2]",
        "print(some.map((x: Int) => x * 2).fold(0, (a: Int, b: Int) => a + b))",
        "print(some.sortedBy((x: Int) => x).size())",
    ],
}


def program(names, number):
    lines = [line for name in names for line in USES[name]]
    return HEADER + "".join(f"    {line.format(n=number)}\n" for line in lines)


PROGRAMS = {"a number": lambda number: f"def main() -> Void:\n    print({number})\n"}
for single in USES:
    PROGRAMS[single] = lambda number, name=single: program([name], number)
PROGRAMS["all of these"] = lambda number: program(list(USES), number)


def milliseconds(command):
    process = subprocess.Popen(command, stdout=subprocess.DEVNULL)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = status
    if status != 0:
        sys.exit(f"{' '.join(command)} failed with {status}")
    return (usage.ru_utime + usage.ru_stime) * 1e3


def main():
    veskc = sys.argv[1]
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 25
    times = {name: [] for name in PROGRAMS}
    with tempfile.TemporaryDirectory() as folder:
        source = Path(folder) / "main.vk"

        def run(name, number):
            source.write_text(PROGRAMS[name](number))
            return milliseconds([veskc, "run", str(source), f"--cache-dir={folder}/cache"])

        for name in PROGRAMS:
            run(name, 999)
        for number in range(runs):
            for name in PROGRAMS:
                times[name].append(run(name, number + 1))
    base = statistics.median(times["a number"])
    status = 0
    for name, all_times in times.items():
        median = statistics.median(all_times)
        print(f"{name:16} {median:7.2f} ms   {median - base:+6.2f} ms")
        if median - base > LIMIT_MS:
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
