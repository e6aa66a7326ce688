"""Runs of commands and what they cost: CPU of the process and its children, peak memory; the compilers that are compared."""
import os
import re
import shutil
import statistics
import subprocess
from dataclasses import dataclass, field
from pathlib import Path


@dataclass
class Peer:
    """A compiler as it is called: `{source}` and `{output}` stand for file names."""
    name: str
    language: str
    command: list
    suffix: str  # of the output
    function: str = ""  # pattern of one instantiation of the generic function in the output
    method: str = ""  # and of the generic method
    module_command: list = field(default_factory=list)  # makes the module that units share; empty: they read its text

    @property
    def is_installed(self):
        return shutil.which(self.command[0]) is not None

    def filled(self, source, output, command=None):
        return [part.format(source=source, output=output) for part in command or self.command]

    def version(self):
        text = subprocess.run([self.command[0], "--version"], capture_output=True, text=True, check=False).stdout
        return f"{self.name}: {text.strip().splitlines()[0]}"


def veskc_command(veskc, cache):
    return [veskc, "emit", "{source}", "--emit=il", "-O0", f"--cache={cache}", "-o", "{output}"]


def compilers(veskc):
    """vesk in memory mode, and the others."""
    rustc = shutil.which("rustc")
    if rustc:  # the compiler itself, not a version switch in front of it
        root = subprocess.run([rustc, "--print", "sysroot"], capture_output=True, text=True, check=False).stdout.strip()
        real = os.path.join(root, "bin", "rustc")
        rustc = real if root and os.path.exists(real) else rustc
    rust = [rustc or "rustc", "--edition=2021", "-C", "opt-level=0", "-C", "codegen-units=1", "-C", "debuginfo=0", "-L", "."]
    return [
        Peer("vesk", "vesk", veskc_command(veskc, "memory"), ".ll", r"^define .*__vesk_f_pick__T_",
             r"^define .*__vesk_m_Holder__T_Int_swap__T_"),
        Peer("clang", "cpp", ["clang++-19", "-std=c++20", "-O0", "-S", "-emit-llvm", "{source}", "-o", "{output}"], ".ll",
             r"^define .*4pickI", r"^define .*4swapI"),
        Peer("g++", "cpp", ["g++", "-std=c++20", "-O0", "-S", "{source}", "-o", "{output}"], ".s",
             r"^_Z4pickI\w*:", r"^_ZN\w*4swapI\w*:"),
        Peer("rustc", "rust", [*rust, "--crate-type=lib", "--emit=llvm-ir", "{source}", "-o", "{output}"], ".ll",
             r"^define .*4pick17h", r"^define .*4swap17h", [*rust, "--crate-type=rlib", "{source}"]),
        # As bitcode: its writer of text takes time that grows with the square of the functions.
        Peer("ldc2", "d", ["ldc2", "-O0", "-c", "--output-bc", "-I.", "{source}", "-of={output}"], ".bc",
             r"_D\w*?__T4pickT", r"_D\w*?__T4swapT", ["ldc2", "-O0", "-c", "{source}"]),
    ]


@dataclass
class Cost:
    cpu: float  # seconds, user and system
    peak: float  # KiB


def median(costs):
    return Cost(statistics.median(cost.cpu for cost in costs), statistics.median(cost.peak for cost in costs))


class Runner:
    """Runs commands in a folder of its own."""

    def __init__(self, scratch, repetitions):
        self.scratch, self.repetitions = Path(scratch), repetitions
        self.gnu_time = shutil.which("time")

    def folder(self, name):
        """A new empty folder."""
        path = self.scratch / name
        shutil.rmtree(path, ignore_errors=True)
        path.mkdir(parents=True)
        return path

    def once(self, command, cwd=None, environment=None):
        memory = self.scratch / "memory"
        # A process in between: otherwise this script's own size would be the least peak that can be seen.
        wrapped = [self.gnu_time, "-q", "-f", "%M", "-o", str(memory), *command] if self.gnu_time else command
        child = subprocess.Popen(wrapped, cwd=cwd or self.scratch, env={**os.environ, **(environment or {})},
                                 stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
        errors = child.stderr.read()
        child.stderr.close()
        _, status, usage = os.wait4(child.pid, 0)
        child.returncode = os.waitstatus_to_exitcode(status)
        if child.returncode != 0:
            raise RuntimeError(f"{' '.join(command)}: status {child.returncode}\n{errors[-1500:].decode('utf-8', 'replace')}")
        peak = int(memory.read_text().split()[-1]) if self.gnu_time else usage.ru_maxrss
        return Cost(usage.ru_utime + usage.ru_stime, peak)

    def alternating(self, runs):
        """Name -> median cost, each of the named runs made in turn `repetitions` times, after one that is not counted."""
        for run in list(runs.values())[:2]:
            run()
        costs = {name: [] for name in runs}
        for _ in range(self.repetitions):
            for name, run in runs.items():
                costs[name].append(run())
        return {name: median(all_costs) for name, all_costs in costs.items()}


def occurrences(pattern, path):
    return len(re.findall(pattern, path.read_text(errors="replace"), re.M)) if pattern else 0


def slope(costs, low, high):
    """Microseconds that one more costs between two sizes."""
    return (costs[high].cpu - costs[low].cpu) / (high - low) * 1e6


def peak_slope(costs, low, high):
    """KiB that one more costs between two sizes."""
    return (costs[high].peak - costs[low].peak) / (high - low)
