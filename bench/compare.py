#!/usr/bin/env python3
"""What instantiation costs here, beside general-purpose compilers, in one run on one machine.

    compare.py --veskc build-bench/bin/veskc [--quick] [--part functions,methods,units] [--write docs/performance.md]

Every compiler turns the same programs (workloads.py) into unoptimised output text. CPU is user + system time of the
command, the median of several runs; a figure is the slope between two sizes, so that start-up falls out, less the slope
of the workload's control. Compilers that are not installed are skipped with a word.
"""
import argparse
import datetime
import os
import shutil
import sys
import tempfile
from pathlib import Path

import units
import workloads
from measuring import Runner, compilers, occurrences, peak_slope, slope, veskc_command

BEGIN, END = "<!-- figures begin -->", "<!-- figures end -->"
TYPES = (250, 1000, 4000)
UNIT_TYPES = 200
BUNDLES = 1000
PARTS = ("functions", "methods", "units")


def tell(text):
    print(text, file=sys.stderr, flush=True)


def measure(runner, peer, workload, sizes):
    """Size -> cost, of programs in one file."""
    folder = runner.folder("programs")
    commands = {}
    for size in sizes:
        source = folder / f"p{size}{workloads.LANGUAGES[peer.language]['suffix']}"
        source.write_text(workloads.program(peer.language, workload, size))
        commands[size] = peer.filled(source.name, f"p{size}{peer.suffix}")
    costs = runner.alternating({size: lambda size=size: runner.once(commands[size], folder) for size in sizes})
    if workload in ("distinct", "methods"):
        pattern = peer.method if workload == "methods" else peer.function
        for size in sizes:
            found = occurrences(pattern, folder / f"p{size}{peer.suffix}")
            if found != size:
                tell(f"{peer.name}: {found} instantiations in the output for {size} types of '{workload}'")
    return costs


def measure_bundles(runner, veskc, workload, sizes, cache):
    """Size -> cost, of programs whose generic class lies in a package of its own, so that its methods go to bundles."""
    folder = runner.folder("programs")

    def run(size):
        if cache == "cold":
            shutil.rmtree(folder / f"cache{size}", ignore_errors=True)
        command = [part.format(source="main.vk", output="main.ll")
                   for part in veskc_command(veskc, "memory" if cache == "memory" else "on")]
        return runner.once([*command, f"--cache-dir={folder}/cache{size}"], folder / str(size))

    for size in sizes:
        (folder / str(size) / "shapes").mkdir(parents=True)
        (folder / str(size) / "shapes" / "shapes.vk").write_text(workloads.module("vesk", workload, size))
        (folder / str(size) / "main.vk").write_text(workloads.user("vesk", workload, size))
        if cache == "warm":
            run(size)
    costs = runner.alternating({size: lambda size=size: run(size) for size in sizes})
    if cache != "memory" and workload == "methods":
        for size in sizes:
            found = len(list((folder / f"cache{size}").rglob("*__GM_*.vk")))
            if found != size:
                tell(f"vesk: {found} bundles in the cache for {size} types")
    return costs


def start_up(runner, peer):
    """Milliseconds for an empty vesk program; the other languages' empty library is their workload of size 0."""
    text = "def main() -> Void:\n    pass\n" if peer.name == "vesk" else workloads.program(peer.language, "repeat control", 0)
    folder = runner.folder("empty")
    source = folder / f"empty{workloads.LANGUAGES[peer.language]['suffix']}"
    source.write_text(text)
    command = peer.filled(source.name, f"empty{peer.suffix}")
    return runner.alternating({0: lambda: runner.once(command, folder)})[0].cpu * 1e3


def distinct_row(costs, control):
    a, b, c = TYPES
    return {
        "net": slope(costs, b, c) - slope(control, b, c),
        "growth": slope(costs, b, c) / slope(costs, a, b),
        "memory": peak_slope(costs, b, c) - peak_slope(control, b, c),
    }


def repeat_row(costs, control, calls):
    return {"repeat": slope(costs, *calls), "repeat net": slope(costs, *calls) - slope(control, *calls)}


def compare_functions(runner, peers, calls):
    rows = {}
    for peer in peers:
        tell(f"{peer.name}: generic functions")
        measured = {workload: measure(runner, peer, workload, TYPES)
                    for workload in ("distinct", "distinct control", "by hand")}
        repeated = {workload: measure(runner, peer, workload, calls) for workload in ("repeat", "repeat control")}
        control = measured["distinct control"]
        rows[peer.name] = {
            "start-up": start_up(runner, peer),
            "control": slope(control, *TYPES[1:]),
            "by hand": slope(measured["by hand"], *TYPES[1:]) - slope(control, *TYPES[1:]),
            **distinct_row(measured["distinct"], control),
            **repeat_row(repeated["repeat"], repeated["repeat control"], calls),
        }
    return rows


def compare_methods(runner, peers, veskc, calls):
    rows = {}
    for peer in peers:
        tell(f"{peer.name}: generic methods")
        run = lambda workload, sizes: measure(runner, peer, workload, sizes)
        rows[peer.name] = {
            **distinct_row(run("methods", TYPES), run("methods control", TYPES)),
            **repeat_row(run("repeat methods", calls), run("repeat methods control", calls), calls),
        }
    for cache, name in (("memory", "vesk, bundles in memory"), ("cold", "vesk, bundles on disk, cold"),
                        ("warm", "vesk, bundles on disk, warm")):
        tell(name)
        run = lambda workload, sizes: measure_bundles(runner, veskc, workload, sizes, cache)
        rows[name] = {
            **distinct_row(run("methods", TYPES), run("methods control", TYPES)),
            **repeat_row(run("repeat methods", calls), run("repeat methods control", calls), calls),
        }
    return rows


def compare_units(runner, peers, veskc, standard_library, count):
    rows = {}
    tell("vesk: units")
    of_library = units.of_library(runner, veskc, standard_library, count, UNIT_TYPES)
    of_program = units.of_program(runner, veskc, count, UNIT_TYPES)
    rows["vesk, methods of a library's class"] = dict(zip(("made", "found"), of_library))
    rows["vesk, methods of the program's class"] = dict(zip(("made", "found"), of_program))
    for peer in peers:
        if peer.name == "vesk":
            continue
        for workload, control, what in (("methods", "methods control", "methods"),
                                        ("distinct", "distinct control", "functions")):
            tell(f"{peer.name}: units, {what}")
            both = units.of_compiler(runner, peer, workload, control, count, UNIT_TYPES)
            rows[f"{peer.name}, {what}"] = dict(zip(("made", "found"), both))
    tell("vesk: preloading")
    return rows, units.preloading(runner, veskc, standard_library, BUNDLES)


FUNCTION_COLUMNS = [
    ("start-up", "start-up, ms", 1),
    ("control", "one more type and its use, us", 1),
    ("net", "one more instantiation, net, us", 1),
    ("by hand", "one more written function, net, us", 1),
    ("growth", "growth 1,000 to 4,000", 2),
    ("memory", "peak memory an instantiation, KiB", 2),
    ("repeat", "one more call, us", 2),
    ("repeat net", "over a plain call, us", 2),
]
METHOD_COLUMNS = [column for column in FUNCTION_COLUMNS if column[0] not in ("start-up", "control", "by hand")]
UNIT_COLUMNS = [("made", "made in the unit, net, us", 1), ("found", "made by another process, net, us", 1)]


def shown(value, digits):
    return "-" if value is None else f"{value:.{digits}f}"


def table(title, columns, rows, ratios=True):
    lines = [f"| {title} | " + " | ".join(head for _, head, _ in columns) + " |", "|---|" + "--:|" * len(columns)]
    for name, row in rows.items():
        lines.append(f"| {name} | " + " | ".join(shown(row[key], digits) for key, _, digits in columns) + " |")
    vesk = rows.get("vesk")
    for name, row in rows.items():
        if ratios and vesk and not name.startswith("vesk"):
            ratio = [f"{vesk[key] / row[key]:.2f}" if row[key] > 0 else "-" for key, _, _ in columns]
            lines.append(f"| vesk / {name} | " + " | ".join(ratio) + " |")
    return lines + [""]


def goals(functions, methods, shared, preload):
    """What was measured beside what is to be reached: text, figure, limit, text of the limit."""
    if functions:
        vesk = functions["vesk"]
        yield "start-up of an empty program, ms", vesk["start-up"], 12.0, ""
        if "rustc" in functions:
            yield "one more function instantiation, net, us", vesk["net"], functions["rustc"]["net"], " (rustc)"
        yield "a further call of a generic function over a plain call, us", vesk["repeat net"], 1.0, ""
        yield "growth from 1,000 to 4,000 function instantiations", vesk["growth"], 1.2, ""
        yield "peak memory a function instantiation, KiB", vesk["memory"], 8.0, ""
    if methods:
        vesk, memory = methods["vesk"], methods["vesk, bundles in memory"]
        cold = methods["vesk, bundles on disk, cold"]
        if "rustc" in methods:
            limit = methods["rustc"]["net"]
            yield "one more method instantiation, net, us", vesk["net"], limit, " (rustc)"
            yield "the same with a bundle, in memory, net, us", memory["net"], limit, " (rustc)"
        yield "the same with a cold cache, over memory mode", cold["net"] / memory["net"], 2.5, ""
        yield "growth from 1,000 to 4,000 method instantiations", vesk["growth"], 1.2, ""
        yield "the same with bundles in memory", memory["growth"], 1.2, ""
        yield "the same with a cold cache", cold["growth"], 1.2, ""
        yield "a further call of a generic method over a plain call, us", vesk["repeat net"], 1.5, ""
        yield "the same with a bundle, in memory, us", memory["repeat net"], 1.5, ""
    if shared:
        found = shared["vesk, methods of a library's class"]["found"]
        for what in ("methods", "functions"):
            limit = shared.get(f"rustc, {what}", {}).get("found")
            if limit is not None:
                yield "a specialization found in a bundle of another process, us", found, limit, f" (rustc, {what})"
    if preload is not None:
        yield f"preloading an owner with {BUNDLES:,} bundles, us a bundle", preload, 15.0, ""


def goal_table(all_goals):
    lines = ["| | vesk | at most | |", "|---|--:|--:|---|"]
    for text, figure, limit, whose in all_goals:
        lines.append(f"| {text} | {figure:.2f} | {limit:.2f}{whose} | {'reached' if figure <= limit else 'missed'} |")
    return lines


def compare(veskc, standard_library, quick, parts):
    calls = (10000, 20000) if quick else (10000, 50000)
    peers, text = [], []
    with tempfile.TemporaryDirectory(prefix="vesk-bench-") as scratch:
        runner = Runner(scratch, 3 if quick else 7)
        # No run takes anything from a cache of this machine.
        os.environ["VESK_CACHE_DIR"] = str(runner.folder("unused cache"))
        for peer in compilers(veskc):
            if peer.is_installed:
                peers.append(peer)
            else:
                tell(f"{peer.name}: not installed, skipped")
        functions = compare_functions(runner, peers, calls) if "functions" in parts else {}
        methods = compare_methods(runner, peers, veskc, calls) if "methods" in parts else {}
        shared, preload = {}, None
        if "units" in parts:
            few = Runner(Path(scratch) / "units", 2 if quick else 5)
            shared, preload = compare_units(few, peers, veskc, standard_library, 10 if quick else 20)
    if functions:
        text += table("generic functions", FUNCTION_COLUMNS, functions)
    if methods:
        text += table("generic methods", METHOD_COLUMNS, methods)
    if shared:
        text += table(f"one of {UNIT_TYPES} specializations in a unit", UNIT_COLUMNS, shared, ratios=False)
    text += goal_table(goals(functions, methods, shared, preload))
    date = datetime.date.today().isoformat()
    versions = "; ".join(peer.version() for peer in peers)
    return "\n".join([f"Measured on {date}, {os.cpu_count()} processors; {versions}.", "", *text])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--veskc", type=Path, required=True)
    parser.add_argument("--quick", action="store_true", help="few runs, fewer calls and units")
    parser.add_argument("--part", default=",".join(PARTS), help="what to measure: " + ", ".join(PARTS))
    parser.add_argument("--standard-library", type=Path, default=Path(__file__).resolve().parent.parent / "stdlib",
                        help="what `shapes` of the units is added to")
    parser.add_argument("--write", type=Path, help="put the table between the marks of this file")
    args = parser.parse_args()
    parts = args.part.split(",")
    if set(parts) - set(PARTS) or (args.write and set(parts) != set(PARTS)):
        parser.error("parts are " + ", ".join(PARTS) + "; a table is written with all of them")
    text = compare(str(args.veskc.resolve()), args.standard_library.resolve(), args.quick, parts)
    print(text)
    if args.write:
        before, rest = args.write.read_text().split(BEGIN)
        args.write.write_text(f"{before}{BEGIN}\n{text}\n{END}{rest.split(END)[1]}")


if __name__ == "__main__":
    main()
