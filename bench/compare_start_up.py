#!/usr/bin/env python3
"""Times the start of programs that use collections beside one that does not, all in this one run.

    compare_start_up.py VESKC [RUNS]

Processor time of `veskc run` (user and system), the median of RUNS runs (25) of each program in turn, with a warm cache
of its own: other programs have used the same classes, these programs themselves are new. So each run gets a program
whose text nobody has seen. Three figures: the time; what it is above a program that prints a number; and above a twin
with as many statements, calls and function values of its own that use no collection. Exit status 1 when a collection
costs more than 5 ms above the twin, or one kind of it more than 5 ms above the number.
"""
import os
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

LIMIT_MS = 5.0
HEADER = "import vesk.collections\n\n"
TWIN_HEADER = "def apply(x: Int, f: (Int) -> Int) -> Int:\n    return f(x)\n\n"
MAIN = "def main() -> Void:\n"
# Statements with a collection, and as many without.
USES = {
    "ArrayList": (
        ["var numbers = [{n}, 1, 2]", "numbers.add(4)", "print(numbers.size())"],
        ['var first = "{n}"', 'first.contains("4")', "print(first.length())"],
    ),
    "HashMap": (
        ['var ages = {{"a": {n}}}', 'ages.put("b", 2)', "print(ages.size())"],
        ['var second = "a{n}"', 'second.contains("b")', "print(second.length())"],
    ),
    "HashSet": (
        ["var seen = HashSet<Int>()", "seen.add({n})", "print(seen.size())"],
        ['var third = "{n}"', 'third.startsWith("b")', "print(third.length())"],
    ),
    "SortedMap": (
        ["var order = SortedMap<String, Int>()", 'order.put("z", {n})', "print(order.size())"],
        ['var fourth = "{n}"', 'fourth.endsWith("b")', "print(fourth.length())"],
    ),
    "LinkedList": (
        ["var names = LinkedList<String>()", 'names.add("{n}")', "print(names.size())"],
        ['var fifth = "{n}"', 'fifth.indexOf("b")', "print(fifth.length())"],
    ),
    "generic methods": (
        [
            "var some = [{n}, 1, 2]",
            "print(some.map((x: Int) => x * 2).fold(0, (a: Int, b: Int) => a + b))",
            "print(some.sortedBy((x: Int) => x).size())",
        ],
        [
            "var sixth = {n}",
            "print(apply(apply(sixth, (x: Int) => x * 2), (a: Int) => a + 1))",
            "print(apply(sixth, (x: Int) => x))",
        ],
    ),
}


def program(names, number):
    lines = [line for name in names for line in USES[name][0]]
    return HEADER + MAIN + "".join(f"    {line.format(n=number)}\n" for line in lines)


def twin(names, number):
    lines = [line for name in names for line in USES[name][1]]
    header = TWIN_HEADER if "generic methods" in names else ""
    return header + MAIN + "".join(f"    {line.format(n=number)}\n" for line in lines)


SETS = {**{name: [name] for name in USES}, "all of these": list(USES)}
NUMBER = "a number"
PROGRAMS = {NUMBER: lambda number: f"def main() -> Void:\n    print({number})\n"}
for title, members in SETS.items():
    PROGRAMS[title] = lambda number, names=members: program(names, number)
    PROGRAMS[f"{title} (twin)"] = lambda number, names=members: twin(names, number)


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
    medians = {name: statistics.median(all_times) for name, all_times in times.items()}
    base = medians[NUMBER]
    print(f"{NUMBER:16} {base:7.2f} ms")
    status = 0
    for name, names in SETS.items():
        own, other = medians[name], medians[f"{name} (twin)"]
        print(f"{name:16} {own:7.2f} ms   {own - base:+6.2f} ms above the number   {own - other:+6.2f} ms above its twin")
        if own - other > LIMIT_MS or (len(names) == 1 and own - base > LIMIT_MS):
            status = 1
    return status


if __name__ == "__main__":
    sys.exit(main())
