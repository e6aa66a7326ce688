#!/usr/bin/env python3
"""Shows how the cost of compiling grows with each construct of the grammar: `./dev growth`.

    growth.py [--veskc PATH] [--quick] [--mode MODE ...] [--list] [NAME ...]

A MODE that is asked for is measured for every construct that has programs without mistakes; without one, each construct
is measured in its own modes.

Every construct (constructs.py) is generated in sizes n, 2n, 4n, ... until it costs enough to be measured. The cost is
the processor time of the command less that of an empty program, the least of several runs; the machine's counter of
instructions takes its place where there is one. The exponent is the slope of cost over size, both as logarithms, over
the last two doublings: 1 is linear, n log n comes to about 1.1 at these sizes, 2 is quadratic. Above 1.35 (for memory
too) the construct fails, and so does the command; noise on a busy machine stays below that, because what looks too
steep is measured again. NAME selects the constructs whose name contains it.
"""
import argparse
import math
import os
import resource
import shutil
import subprocess
import sys
import tempfile
from dataclasses import dataclass
from pathlib import Path

from constructs import CONSTRUCTS, main

ROOT = Path(__file__).resolve().parent.parent.parent
STEEPEST = 1.35
SECONDS_PER_RUN = 60
MEMORY_LIMIT = 8 << 30
MEMORY_FLOOR = 48 << 20  # growth below it says nothing: pools and pages
MODES = {
    "check": ["check", "main.vk"],
    "run": ["run", "-O0", "main.vk"],
    "optimized": ["run", "-O2", "main.vk"],
    "emit": ["emit", "main.vk", "--emit", "il", "-O2", "-o", "program.ll"],
    "build": ["build", "main.vk", "-o", "program"],
    "repl": ["repl"],
}
PROGRAM_MODES = ("optimized", "emit", "build")


class Failure(Exception):
    """A run that did not end as it should."""


class Bound(Exception):
    """The compiler said that the program goes beyond a bound of the language."""


@dataclass
class Cost:
    work: float  # seconds or instructions
    memory: int  # bytes


def counts_instructions():
    """Whether the machine counts instructions for us."""
    if not shutil.which("perf"):
        return False
    result = subprocess.run(["perf", "stat", "-x,", "-e", "instructions:u", "true"], capture_output=True, text=True, check=False)
    return result.returncode == 0 and result.stderr.split(",")[0].isdigit()


class Meter:
    """Runs the command on programs and says what they cost."""

    def __init__(self, veskc, folder, with_instructions):
        self.veskc = str(Path(veskc).resolve())
        self.folder = folder
        self.with_instructions = with_instructions
        self.floors = {}

    def run(self, mode, status):
        """The cost of one run in the folder, its cache empty but for the library."""
        command = [self.veskc, *MODES[mode]]
        if mode == "repl":
            command += ["--cache", "memory"]
        else:
            command[2:2] = ["--cache", "memory"]
        counts = self.folder / "counts"
        if self.with_instructions:
            command = ["perf", "stat", "-x,", "-o", str(counts), "-e", "instructions:u", *command]
        source = open(self.folder / "main.vk", "rb") if mode == "repl" else subprocess.DEVNULL

        def limits():
            resource.setrlimit(resource.RLIMIT_CPU, (SECONDS_PER_RUN, SECONDS_PER_RUN))
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))

        with open(self.folder / "errors", "wb") as errors:
            process = subprocess.Popen(command, cwd=self.folder, stdin=source, stdout=subprocess.DEVNULL, stderr=errors,
                                       preexec_fn=limits)
            _, ended, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(ended)
        if process.returncode != status:
            said = (self.folder / "errors").read_text(errors="replace").strip().split("\n")
            if process.returncode == 1 and any("nested too deeply" in line for line in said[:1]):
                raise Bound(said[0].split("error: ")[-1])
            raise Failure(f"status {process.returncode}, not {status}: {said[0][:150]}")
        work = usage.ru_utime + usage.ru_stime
        if self.with_instructions:
            work = int(counts.read_text().strip().split("\n")[-1].split(",")[0])
        return Cost(work, usage.ru_maxrss << 10)

    def write(self, program):
        for path in self.folder.iterdir():
            shutil.rmtree(path) if path.is_dir() else path.unlink()
        if isinstance(program, str):
            program = {"main.vk": program}
        for name, text in program.items():
            path = self.folder / name
            path.parent.mkdir(parents=True, exist_ok=True)
            path.write_text(text)

    def floor(self, mode):
        if mode not in self.floors:
            self.write("1\n" if mode == "repl" else main("print(1)"))
            costs = [self.run(mode, 0) for _ in range(5)]
            self.floors[mode] = Cost(min(cost.work for cost in costs), min(cost.memory for cost in costs))
        return self.floors[mode]

    def cost(self, construct, size, mode, repeats):
        floor = self.floor(mode)
        self.write(construct.make(size))
        status = construct.status if mode != "repl" else 0
        costs = [self.run(mode, status) for _ in range(repeats)]
        return Cost(max(0.0, min(cost.work for cost in costs) - floor.work),
                    max(0, min(cost.memory for cost in costs) - floor.memory))


def slope(sizes, values):
    """Least squares through the logarithms."""
    points = [(math.log2(size), math.log2(value)) for size, value in zip(sizes, values) if value > 0]
    if len(points) < 2:
        return None
    mean_x = sum(x for x, _ in points) / len(points)
    mean_y = sum(y for _, y in points) / len(points)
    spread = sum((x - mean_x) ** 2 for x, _ in points)
    return sum((x - mean_x) * (y - mean_y) for x, y in points) / spread


@dataclass
class Row:
    name: str
    mode: str
    sizes: list
    costs: list
    limit: str = ""
    known: str = ""
    failure: str = ""

    def exponent(self):
        return slope(self.sizes[-3:], [cost.work for cost in self.costs[-3:]])

    def memory_exponent(self):
        if not self.costs or self.costs[-1].memory < MEMORY_FLOOR:
            return None
        kept = [(size, cost.memory) for size, cost in zip(self.sizes[-3:], self.costs[-3:]) if cost.memory > MEMORY_FLOOR / 16]
        return slope([size for size, _ in kept], [memory for _, memory in kept]) if len(kept) > 1 else None

    def is_too_steep(self):
        return any(each is not None and each > STEEPEST for each in (self.exponent(), self.memory_exponent()))


def sizes_of(construct):
    size = construct.first
    while size <= construct.largest:
        yield size
        if size < construct.largest < 2 * size and construct.limit:
            yield construct.largest
        size *= 2


def measure(meter, construct, mode, enough):
    """Doubles the size until the cost is `enough`, or a bound is met."""
    row = Row(construct.name, mode, [], [], known=construct.known)
    try:
        for size in sizes_of(construct):
            row.sizes.append(size)
            row.costs.append(meter.cost(construct, size, mode, 1))
            if row.costs[-1].work >= enough:
                break
        else:
            row.limit = construct.limit or "cheap at any size measured"
        # What is noise disappears when it is measured again; what grows too fast stays.
        for _ in range(3):
            if len(row.sizes) < 2 or not row.is_too_steep():
                break
            for at in range(max(0, len(row.sizes) - 3), len(row.sizes)):
                again = meter.cost(construct, row.sizes[at], mode, 2)
                row.costs[at] = Cost(min(row.costs[at].work, again.work), min(row.costs[at].memory, again.memory))
    except Bound as bound:
        row.limit = f"{bound} at size {row.sizes.pop()}"
    except Failure as failure:
        row.failure = f"at size {row.sizes[-1]}: {failure}"
    return row


def judge(row, least):
    """"ok", or what is wrong; what costs next to nothing has no growth to speak of."""
    if row.failure:
        return "FAILS " + row.failure
    if len(row.costs) < 2 or row.costs[-1].work < least:
        return "ok (too cheap to tell)" if not row.limit else f"ok ({row.limit})"
    if row.is_too_steep():
        return f"STEEP, KNOWN: {row.known}" if row.known else "TOO STEEP"
    return "ok" if not row.limit else f"ok ({row.limit})"


def figures(row, unit):
    work, memory = row.exponent(), row.memory_exponent()
    costs = " ".join(f"{cost.work / unit:.2f}" for cost in row.costs[-3:])
    return (f"{row.sizes[-1] if row.sizes else 0:>9}  {costs:>22}  {'' if work is None else f'{work:.2f}':>5}  "
            f"{(row.costs[-1].memory >> 20) if row.costs else 0:>6}  {'' if memory is None else f'{memory:.2f}':>5}")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("names", nargs="*")
    parser.add_argument("--veskc", default=str(ROOT / "build" / "bin" / "veskc"))
    parser.add_argument("--quick", action="store_true", help="`check` alone, up to smaller sizes: two minutes")
    parser.add_argument("--mode", action="append", choices=list(MODES))
    parser.add_argument("--list", action="store_true", help="print the names of the constructs")
    return parser.parse_args()


def modes_of(construct, asked):
    """Those asked for, or the construct's own; sessions and programs keep to themselves, and mistakes to `check`."""
    def is_possible(mode):
        return mode in construct.modes or ("run" in construct.modes and mode in PROGRAM_MODES)
    return [mode for mode in MODES if (mode in asked and is_possible(mode) if asked else mode in construct.modes)]


def run():
    options = arguments()
    chosen = [each for each in CONSTRUCTS if not options.names or any(name in each.name for name in options.names)]
    if not chosen:
        sys.exit("growth: no construct has such a name")
    if options.list:
        print("\n".join(each.name for each in chosen))
        return 0
    with_instructions = counts_instructions()
    unit, enough, least = (1e9, 4e9, 2e8) if with_instructions else (1.0, 1.0, 0.06)
    if options.quick:
        enough /= 5
    print(f"cost in {'billions of instructions' if with_instructions else 'seconds of processor time'} above an empty program; "
          f"allowed exponent {STEEPEST}")
    print(f"{'construct':<46} {'mode':<9} {'size':>9}  {'last three costs':>22}  {'exp.':>5}  {'MiB':>6}  {'exp.':>5}")
    bad = known = 0
    with tempfile.TemporaryDirectory(prefix="growth-") as folder:
        meter = Meter(options.veskc, Path(folder), with_instructions)
        for construct in chosen:
            modes = modes_of(construct, options.mode)
            for mode in modes[:1] if options.quick else modes:
                row = measure(meter, construct, mode, enough)
                verdict = judge(row, least)
                known += verdict.startswith("STEEP, KNOWN")
                bad += not verdict.startswith(("ok", "STEEP, KNOWN"))
                print(f"{row.name:<46} {row.mode:<9} {figures(row, unit)}  {verdict}", flush=True)
    if known:
        print(f"{known} of the rows above grow faster than n log n for a known reason")
    if bad:
        print(f"{bad} of the rows above grow faster than n log n or fail")
    elif not known:
        print("nothing grows faster than n log n")
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(run())
