#!/usr/bin/env python3
"""What instantiation costs here, beside general-purpose compilers, in one run on one machine.

    compare.py --veskc build-bench/bin/veskc [--quick] [--write docs/performance.md]

Every compiler turns the same programs (workloads.py) into unoptimised output text. CPU is user + system time of the
command, the median of several runs; a figure is the slope between two sizes, so that start-up falls out, less the slope
of the workload's control. Compilers that are not installed are skipped with a word.
"""
import argparse
import datetime
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

import workloads

BEGIN, END = "<!-- figures begin -->", "<!-- figures end -->"


def peers(veskc):
    """Name -> (language, command, output suffix, pattern of one instantiation in the output)."""
    rustc = shutil.which("rustc")
    if rustc:  # the compiler itself, not a version switch in front of it
        root = subprocess.run([rustc, "--print", "sysroot"], capture_output=True, text=True, check=False).stdout.strip()
        real = os.path.join(root, "bin", "rustc")
        rustc = real if root and os.path.exists(real) else rustc
    return {
        "vesk": ("vesk", [veskc, "emit", "{source}", "--emit=il", "-O0", "--cache=memory", "-o", "{output}"], ".ll",
                 r"^define .*__vesk_f_pick__T_"),
        "clang": ("cpp", ["clang++-19", "-std=c++20", "-O0", "-S", "-emit-llvm", "{source}", "-o", "{output}"], ".ll",
                  r"^define .*4pickI"),
        "g++": ("cpp", ["g++", "-std=c++20", "-O0", "-S", "{source}", "-o", "{output}"], ".s", r"^_Z4pickI\w*:"),
        "rustc": ("rust", [rustc or "rustc", "--edition=2021", "-C", "opt-level=0", "-C", "codegen-units=1", "-C", "debuginfo=0",
                           "--crate-type=lib", "--emit=llvm-ir", "{source}", "-o", "{output}"], ".ll", r"^define .*4pick17h"),
    }


class Runner:
    def __init__(self, scratch, repetitions):
        self.scratch, self.repetitions = Path(scratch), repetitions
        self.gnu_time = shutil.which("time")

    def once(self, command):
        """CPU seconds and peak resident KiB of one run."""
        memory = self.scratch / "memory"
        # A process in between: otherwise this script's own size would be the least peak that can be seen.
        wrapped = [self.gnu_time, "-q", "-f", "%M", "-o", str(memory), *command] if self.gnu_time else command
        child = subprocess.Popen(wrapped, cwd=self.scratch, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                 stderr=subprocess.PIPE)
        errors = child.stderr.read()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: status {child.returncode}\n{errors[-1500:].decode('utf-8', 'replace')}")
        peak = int(memory.read_text().split()[-1]) if self.gnu_time else usage.ru_maxrss
        return usage.ru_utime + usage.ru_stime, peak

    def measure(self, peer, workload, sizes):
        """Size -> (median CPU seconds, median peak KiB, instantiations found)."""
        language, command, suffix, pattern = peer
        runs, found, commands = {size: [] for size in sizes}, {}, {}
        for size in sizes:
            source = self.scratch / f"p{size}{workloads.LANGUAGES[language]['suffix']}"
            source.write_text(workloads.program(language, workload, size))
            output = self.scratch / f"p{size}{suffix}"
            commands[size] = [part.format(source=source.name, output=output.name) for part in command]
            self.once(commands[size])
            found[size] = len(re.findall(pattern, output.read_text(errors="replace"), re.M))
        for _ in range(self.repetitions):
            for size in sizes:
                runs[size].append(self.once(commands[size]))
        return {size: (statistics.median(run[0] for run in runs[size]), statistics.median(run[1] for run in runs[size]),
                       found[size]) for size in sizes}


def slope(measured, low, high, which, scale):
    return (measured[high][which] - measured[low][which]) / (high - low) * scale


def compare(veskc, quick):
    types = (100, 500, 1000) if quick else (250, 1000, 4000)
    calls = (1000, 5000, 10000) if quick else (1000, 10000, 50000)
    sizes = {"distinct": types, "distinct control": types, "by hand": types, "repeat": calls, "repeat control": calls}
    rows, versions = {}, []
    with tempfile.TemporaryDirectory() as scratch:
        runner = Runner(scratch, 3 if quick else 7)
        for name, peer in peers(veskc).items():
            if not shutil.which(peer[1][0]):
                print(f"{name}: not installed, skipped", file=sys.stderr)
                continue
            version = subprocess.run([peer[1][0], "--version"], capture_output=True, text=True, check=False).stdout
            versions.append(f"{name}: {version.strip().splitlines()[0]}")
            print(f"{name}: measuring", file=sys.stderr, flush=True)
            empty = runner.measure(peer, "repeat control", (0,)) if name != "vesk" else empty_program(runner, peer)
            measured = {workload: runner.measure(peer, workload, sizes[workload]) for workload in sizes}
            a, b, c = types
            net = lambda low, high, what, which=0, scale=1e6: (slope(measured[what], low, high, which, scale)
                                                               - slope(measured["distinct control"], low, high, which, scale))
            wanted = measured["distinct"][b][2]
            if wanted != b:
                print(f"{name}: {wanted} instantiations in the output for {b} types", file=sys.stderr)
            rows[name] = {
                "start-up": empty[0][0] * 1e3,
                "distinct": net(b, c, "distinct"),
                "growth": slope(measured["distinct"], b, c, 0, 1) / slope(measured["distinct"], a, b, 0, 1),
                "by hand": net(b, c, "by hand"),
                "memory": net(b, c, "distinct", 1, 1),
                "repeat": slope(measured["repeat"], calls[1], calls[2], 0, 1e6),
                "repeat net": slope(measured["repeat"], calls[1], calls[2], 0, 1e6)
                              - slope(measured["repeat control"], calls[1], calls[2], 0, 1e6),
                "control": slope(measured["distinct control"], b, c, 0, 1e6),
            }
    return rows, versions


def empty_program(runner, peer):
    """An empty vesk program; the other languages' empty library is their workload of size 0."""
    source = runner.scratch / "empty.vk"
    source.write_text("def main() -> Void:\n    pass\n")
    command = [part.format(source=source.name, output="empty.ll") for part in peer[1]]
    runs = [runner.once(command) for _ in range(runner.repetitions + 3)]
    return {0: (statistics.median(run[0] for run in runs), statistics.median(run[1] for run in runs), 0)}


COLUMNS = [
    ("start-up", "start-up, ms", 1),
    ("control", "one more type and its use, us", 1),
    ("distinct", "one more instantiation, net, us", 1),
    ("by hand", "one more written function, net, us", 1),
    ("growth", "growth 1,000 to 4,000", 2),
    ("memory", "peak memory an instantiation, KiB", 2),
    ("repeat", "one more call, us", 2),
    ("repeat net", "over a plain call, us", 2),
]


def table(rows, versions):
    lines = ["| | " + " | ".join(title for _, title, _ in COLUMNS) + " |", "|---|" + "--:|" * len(COLUMNS)]
    for name, row in rows.items():
        lines.append(f"| {name} | " + " | ".join(f"{row[key]:.{digits}f}" for key, _, digits in COLUMNS) + " |")
    vesk = rows.get("vesk")
    for name, row in rows.items():
        if name != "vesk" and vesk:
            ratio = [f"{vesk[key] / row[key]:.2f}" if row[key] > 0 else "-" for key, _, _ in COLUMNS]
            lines.append(f"| vesk / {name} | " + " | ".join(ratio) + " |")
    date = datetime.date.today().isoformat()
    return "\n".join([f"Measured on {date}, {os.cpu_count()} processors; " + "; ".join(versions) + ".", "", *lines])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--veskc", type=Path, required=True)
    parser.add_argument("--quick", action="store_true", help="small sizes, few runs: a smoke test, not figures")
    parser.add_argument("--write", type=Path, help="put the table between the marks of this file")
    args = parser.parse_args()
    text = table(*compare(str(args.veskc.resolve()), args.quick))
    print(text)
    if args.write:
        before, rest = args.write.read_text().split(BEGIN)
        args.write.write_text(f"{before}{BEGIN}\n{text}\n{END}{rest.split(END)[1]}")


if __name__ == "__main__":
    main()
