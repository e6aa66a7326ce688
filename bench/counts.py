#!/usr/bin/env python3
"""What the compiler costs in instructions, which no other work on the machine disturbs.

    counts.py --veskc build/bin/veskc [--peers] [--compare] [--write [--because TEXT]]

Instructions are those of `valgrind --tool=cachegrind --cache-sim=no`. A figure is what one more of something costs: the
slope between programs with 200 and with 600 of them (workloads.py), less that of the workload's control. W1 is one more
type that a generic function is called with, W2 the same for a generic method, `class` one more class. Each is taken as
checked, as IL text and as an object; `empty` is a whole run over a program that does nothing.

--compare fails when a figure is more than 3% above the one that is stored beside this file; --write stores the new ones,
and wants a reason where one has grown by so much. --peers counts other compilers too, where they are installed.
"""
import argparse
import json
import subprocess
import sys
import tempfile
from pathlib import Path

import workloads
from measuring import compilers

STORED = Path(__file__).with_name("counts.json")
SIZES = (200, 600)
TOLERATED = 1.03
WORKLOADS = {"W1": ("distinct", "distinct control"), "W2": ("methods", "methods control"), "class": ("classes", None)}
STAGES = ("checked", "IL", "object")


def commands(veskc):
    """Compiler -> stage -> command; `{source}` stands for the program."""
    rustc = next(peer for peer in compilers(veskc) if peer.name == "rustc").command[0]
    memory = "--cache=memory"
    rust = [rustc, "--edition=2021", "--crate-type=lib", "-C", "opt-level=0", "-C", "codegen-units=1", "-C", "debuginfo=0"]
    return {
        "vesk": ("vesk", {"checked": [veskc, "check", memory, "{source}"],
                          "IL": [veskc, "emit", "{source}", "--emit=il", "-O0", memory, "-o", "out.ll"],
                          "object": [veskc, "emit", "{source}", "--emit=obj", "-O0", memory, "-o", "out.o"]}),
        "clang": ("cpp", {"checked": ["clang++-19", "-std=c++20", "-fsyntax-only", "{source}"],
                          "IL": ["clang++-19", "-std=c++20", "-O0", "-S", "-emit-llvm", "{source}", "-o", "out.ll"],
                          "object": ["clang++-19", "-std=c++20", "-O0", "-c", "{source}", "-o", "out.o"]}),
        "rustc": ("rust", {"checked": [*rust, "--emit=metadata", "{source}", "-o", "out.rmeta"],
                           "IL": [*rust, "--emit=llvm-ir", "{source}", "-o", "out.ll"],
                           "object": [*rust, "--emit=obj", "{source}", "-o", "out.o"]}),
        "ldc2": ("d", {"checked": ["ldc2", "-O0", "-o-", "{source}"],
                       "IL": ["ldc2", "-O0", "--output-ll", "{source}", "-of=out.ll"],
                       "object": ["ldc2", "-O0", "-c", "{source}", "-of=out.o"]}),
    }


def program(language, workload, size):
    if workload == "empty":
        return "def main():\n    pass\n" if language == "vesk" else workloads.program(language, "repeat control", 0)
    if workload == "classes":
        head = workloads.LANGUAGES[language].get("head", "")
        return head + workloads.declarations(language, "distinct control", size)
    return workloads.program(language, workload, size)


class Counter:
    """Counts each program once."""

    def __init__(self, folder):
        self.folder, self.known = Path(folder), {}

    def count(self, language, command, workload, size):
        key = (tuple(command), workload, size)
        if key not in self.known:
            source = self.folder / f"p{workloads.LANGUAGES[language]['suffix']}"
            source.write_text(program(language, workload, size))
            result = self.folder / "counts"
            wrapped = ["valgrind", "--tool=cachegrind", "--cache-sim=no", "--trace-children=yes",
                       f"--cachegrind-out-file={result}.%p", *[part.format(source=source.name) for part in command]]
            ran = subprocess.run(wrapped, cwd=self.folder, capture_output=True, text=True, check=False)
            if ran.returncode != 0:
                raise RuntimeError(f"{' '.join(command)}: status {ran.returncode}\n{ran.stderr[-1500:]}")
            self.known[key] = 0
            for path in self.folder.glob("counts.*"):
                summary = [line for line in path.read_text(errors="replace").splitlines() if line.startswith("summary:")]
                self.known[key] += int(summary[-1].split()[1])
                path.unlink()
        return self.known[key]

    def slope(self, language, command, workload):
        low, high = SIZES
        return (self.count(language, command, workload, high) - self.count(language, command, workload, low)) / (high - low)


def figures(counter, language, stages):
    """Name -> thousands of instructions."""
    found = {}
    for stage in STAGES:
        command = stages[stage]
        found[f"empty, {stage}"] = counter.count(language, command, "empty", 0) / 1000
        for name, (workload, control) in WORKLOADS.items():
            net = counter.slope(language, command, workload) - (counter.slope(language, command, control) if control else 0)
            found[f"{name}, {stage}"] = net / 1000
    return {name: round(count, 1) for name, count in found.items()}


def show(columns):
    names = list(next(iter(columns.values())))
    print("thousands of instructions".ljust(28) + "".join(compiler.rjust(14) for compiler in columns))
    for name in names:
        print(name.ljust(28) + "".join(f"{column[name]:14,.1f}" for column in columns.values()))


def grown(stored, now):
    return [f"{name}: {stored[name]:,.1f} -> {count:,.1f}" for name, count in now.items()
            if name in stored and count > stored[name] * TOLERATED]


def run():
    parser = argparse.ArgumentParser()
    parser.add_argument("--veskc", required=True)
    parser.add_argument("--peers", action="store_true")
    parser.add_argument("--compare", action="store_true")
    parser.add_argument("--write", action="store_true")
    parser.add_argument("--because", default="")
    options = parser.parse_args()
    columns = {}
    with tempfile.TemporaryDirectory() as folder:
        counter = Counter(folder)
        for compiler, (language, stages) in commands(str(Path(options.veskc).resolve())).items():
            if compiler != "vesk" and not options.peers:
                continue
            try:
                columns[compiler] = figures(counter, language, stages)
            except FileNotFoundError:
                print(f"{compiler} is not installed", file=sys.stderr)
            except RuntimeError as error:
                if compiler == "vesk":
                    raise
                print(f"{compiler} is left out: {error}", file=sys.stderr)
    show(columns)
    stored = json.loads(STORED.read_text()) if STORED.exists() else {"figures": {}, "grown": []}
    more = grown(stored["figures"], columns["vesk"])
    if options.write:
        if more and not options.because:
            print("these have grown by more than 3%; --because says why:\n  " + "\n  ".join(more), file=sys.stderr)
            return 1
        stored["grown"] += [f"{line} ({options.because})" for line in more]
        stored["figures"] = columns["vesk"]
        STORED.write_text(json.dumps(stored, indent=2) + "\n")
    if options.compare and more:
        print("more than 3% above the stored figures:\n  " + "\n  ".join(more) +
              "\n`./dev bench --counts --write --because ...` stores what has its reason", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(run())
