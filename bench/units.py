"""Processes that use the same specializations: what one costs where it is made and where another process has made it.

A module declares the types, the generic function and the generic class; each unit is a file, compiled by a process of its
own, that uses all of them. The control's units make no generic call. Compilers with a compiled module are measured with
one that has made no instantiation and with one that has made them all ("shared").
"""
import os
import re
import shutil
import statistics
import subprocess
from pathlib import Path

import workloads
from measuring import occurrences, veskc_command


def net(costs, control, size):
    """Microseconds for one specialization, the medians of all units of all repetitions."""
    return (statistics.median(costs) - statistics.median(control)) / size * 1e6


def of_compiler(runner, peer, workload, control, units, size):
    """Microseconds for one instantiation made in each unit, and for one that a compiled module has made (or None)."""
    kinds = [workload, control] + ([workload + " shared"] if peer.module_command else [])
    costs, found = {kind: [] for kind in kinds}, {}
    for _ in range(runner.repetitions):
        for kind in kinds:
            shared = kind.endswith(" shared")
            name = kind.removesuffix(" shared")
            folder = runner.folder("units")
            suffix = workloads.LANGUAGES[peer.language]["suffix"]
            (folder / f"shapes{suffix}").write_text(workloads.module(peer.language, workload, size, shared))
            if peer.module_command:
                runner.once(peer.filled(f"shapes{suffix}", "", peer.module_command), folder)
            for unit in range(units):
                (folder / f"unit{unit}{suffix}").write_text(workloads.user(peer.language, name, size, f"{unit}x"))
                command = peer.filled(f"unit{unit}{suffix}", f"unit{unit}{peer.suffix}")
                costs[kind].append(runner.once(command, folder).cpu)
            pattern = peer.method if workload == "methods" else peer.function
            found[kind] = occurrences(pattern, folder / f"unit0{peer.suffix}")
    made = net(costs[workload], costs[control], size)
    shared = workload + " shared"
    again = net(costs[shared], costs[control], size) if shared in costs else None
    if again is not None and found[shared]:
        again = None  # it has not looked there: the unit has made them again
    return made, again


def cached(veskc, name, cache):
    """The command that compiles a file with this cache."""
    command = [part.format(source=f"{name}.vk", output=f"{name}.ll") for part in veskc_command(veskc, "on")]
    return [*command, f"--cache-dir={cache}"]


class Library:
    """A standard library with the package `shapes` in it, whose specializations all programs share."""

    def __init__(self, runner, standard_library, size):
        self.runner, self.size = runner, size
        self.folder = runner.folder("library")
        self.root = self.folder / "stdlib"
        shutil.copytree(standard_library, self.root)
        (self.root / "shapes").mkdir()
        (self.root / "shapes" / "shapes.vk").write_text(workloads.module("vesk", "methods", size))

    def write(self, name, workload, lines, prefix=""):
        (self.folder / f"{name}.vk").write_text(workloads.user("vesk", workload, lines, prefix))

    def compile(self, veskc, name, cache):
        return self.runner.once(cached(veskc, name, cache), self.folder, {"VESK_STDLIB": str(self.root)}).cpu

    def from_bundles(self, veskc, name, cache):
        """How many methods a compilation takes from bundles, and how many it specializes."""
        return statistics_of(veskc, name, cache, self.folder, {"VESK_STDLIB": str(self.root)})


def statistics_of(veskc, name, cache, folder, environment):
    text = subprocess.run([*cached(veskc, name, cache), "--stats"], cwd=folder, env={**os.environ, **environment},
                          capture_output=True, text=True, check=True).stderr
    counts = dict(re.findall(r"^([\w ]+): (\d+)$", text, re.M))
    return int(counts["generic methods from bundles"]), int(counts["generic methods specialized"])


def must_be(what, found, wanted):
    if found != wanted:
        raise RuntimeError(f"{what}: {found[0]} methods from bundles and {found[1]} specialized, not {wanted[0]} and {wanted[1]}")


def of_library(runner, veskc, standard_library, units, size):
    """A class of the library: the first unit makes the specializations, each further one finds them in bundles."""
    library = Library(runner, standard_library, size)
    made, found = {"methods": [], "methods control": []}, {"methods": [], "methods control": []}
    for kind in made:
        for unit in range(units):
            library.write(f"{kind.replace(' ', '_')}{unit}", kind, size, f"{unit}x")
    for _ in range(runner.repetitions):
        for kind in made:
            cache = runner.folder("cache")
            costs = [library.compile(veskc, f"{kind.replace(' ', '_')}{unit}", cache) for unit in range(units)]
            made[kind].append(costs[0])
            found[kind] += costs[1:]
            if kind == "methods":
                must_be("a unit of the library's class", library.from_bundles(veskc, "methods0", cache), (size, 0))
    return net(made["methods"], made["methods control"], size), net(found["methods"], found["methods control"], size)


def of_program(runner, veskc, units, size):
    """A class of the program: each unit makes its own bundles, and finds them when it is compiled again."""
    made, found = {"methods": [], "methods control": []}, {"methods": [], "methods control": []}
    folder = runner.folder("units")
    (folder / "shapes").mkdir()
    (folder / "shapes" / "shapes.vk").write_text(workloads.module("vesk", "methods", size))
    for kind in made:
        for unit in range(units):
            (folder / f"{kind.replace(' ', '_')}{unit}.vk").write_text(workloads.user("vesk", kind, size, f"{unit}x"))
    for _ in range(runner.repetitions):
        for kind in made:
            cache = runner.folder("cache")
            for times in (made, found):
                for unit in range(units):
                    command = cached(veskc, f"{kind.replace(' ', '_')}{unit}", cache)
                    times[kind].append(runner.once(command, folder).cpu)
            if kind == "methods":
                must_be("a unit compiled again", statistics_of(veskc, "methods0", cache, folder, {}), (size, 0))
    return net(made["methods"], made["methods control"], size), net(found["methods"], found["methods control"], size)


def preloading(runner, veskc, standard_library, bundles):
    """Microseconds that each further bundle of an owner costs a process that makes one call on this owner."""
    library = Library(runner, standard_library, bundles)
    library.write("all", "methods", bundles)
    library.write("one", "methods", 1)
    full, single = runner.folder("full cache"), runner.folder("single cache")
    library.compile(veskc, "all", full)
    for cache in (full, single):
        library.compile(veskc, "one", cache)
        must_be("a call on the preloaded owner", library.from_bundles(veskc, "one", cache), (1, 0))
    count = len([path for path in Path(full).rglob("*.vk") if "__GM_" in path.name])
    if count != bundles:
        raise RuntimeError(f"{count} bundles in the cache, not {bundles}")
    costs = {cache: [] for cache in (full, single)}
    for _ in range(4 * runner.repetitions):  # runs are short and the difference small
        for cache, times in costs.items():
            times.append(library.compile(veskc, "one", cache))
    return net(costs[full], costs[single], bundles - 1)
