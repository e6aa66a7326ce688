#!/usr/bin/env python3
"""Generated programs against a reference interpreter: `./dev fuzz programs [--seed N] [--count M]`.

Program k of seed N is always the same. A failing one is saved, and made smaller where the reducer can.
"""

import argparse
import os
import re
import signal
import sys
import time
from concurrent.futures import ProcessPoolExecutor

from reducer import reduce_complaint
from trial import Plan, try_program

HERE = os.path.dirname(os.path.abspath(__file__))


def arguments():
    parser = argparse.ArgumentParser(prog="./dev fuzz programs", description=__doc__)
    parser.add_argument("--seed", type=int, default=None, help="default: the time")
    parser.add_argument("--count", type=int, default=200)
    parser.add_argument("--first", type=int, default=0, help="the number of the first program")
    parser.add_argument("--veskc", default=os.path.join(HERE, "..", "..", "build", "bin", "veskc"))
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--everything", action="store_true", help="all modes and variants of each program, not some")
    parser.add_argument("--modes", type=int, default=3)
    parser.add_argument("--variants", type=int, default=1)
    parser.add_argument("--mutations", type=int, default=2)
    parser.add_argument("--slow", type=float, default=0.1, help="the share of programs that are also optimized")
    parser.add_argument("--save", default=os.path.join(HERE, "..", "..", "build", "failed-programs"))
    parser.add_argument("--stop-after", type=int, default=25, help="stop after so many kinds of failures")
    parser.add_argument("--no-reduce", action="store_true")
    return parser.parse_args()


def work(task):
    seed, number, veskc, plan = task
    try:
        return number, try_program(f"{seed}.{number}", veskc, plan), None
    except Exception as error:  # a fault of the generator is a failure too
        import traceback
        return number, [], f"{error!r}\n{traceback.format_exc(limit=-4)}"


def kind_of(complaint):
    """Complaints that look alike: names and numbers do not count."""
    return complaint.kind + ": " + re.sub(r"[\w.]*\d[\w.]*|'[^']*'|\"[^\"]*\"|<.*>", "_", complaint.text)[:120]


def save(folder, seed, number, complaint):
    target = os.path.join(folder, f"{seed}.{number}-{complaint.kind.replace(' ', '-')}")
    for path, text in complaint.files.items():
        whole = os.path.join(target, path)
        os.makedirs(os.path.dirname(whole), exist_ok=True)
        with open(whole, "w", encoding="utf-8", errors="replace") as f:
            f.write(text)
    with open(os.path.join(target, "complaint.txt"), "w", encoding="utf-8") as f:
        f.write(f"{complaint.kind}: {complaint.text}\n")
    if complaint.expected:
        with open(os.path.join(target, "expected.txt"), "w", encoding="utf-8") as f:
            f.write(complaint.expected.output)
    return target


def main():
    options = arguments()
    veskc = os.path.realpath(options.veskc)
    if not os.access(veskc, os.X_OK):
        sys.exit(f"there is no compiler at {veskc}: run ./dev build")
    seed = options.seed if options.seed is not None else int(time.time())
    plan = Plan(options.modes, options.variants, options.mutations, options.everything, options.slow)
    tasks = [(seed, n, veskc, plan) for n in range(options.first, options.first + options.count)]
    print(f"seed {seed}, programs {options.first} to {options.first + options.count - 1}", flush=True)
    started, kinds, failed, done = time.monotonic(), {}, 0, 0
    # Unlike a pool of multiprocessing it says so when a worker dies.
    with ProcessPoolExecutor(options.jobs, initializer=signal.signal, initargs=(signal.SIGINT, signal.SIG_IGN)) as pool:
        for number, complaints, fault in pool.map(work, tasks):
            done += 1
            if fault:
                failed += 1
                print(f"program {number}: the generator fails: {fault}", flush=True)
                kinds["generator " + fault[:40]] = 1
            for complaint in complaints:
                failed += 1
                kind = kind_of(complaint)
                kinds[kind] = kinds.get(kind, 0) + 1
                if kinds[kind] > 1:
                    continue
                print(f"program {number}: {complaint.kind}: {complaint.text}", flush=True)
                if not options.no_reduce:
                    reduce_complaint(f"{seed}.{number}", veskc, complaint)
                print(f"    saved in {save(options.save, seed, number, complaint)}; again: ./dev fuzz programs "
                      f"--seed {seed} --first {number} --count 1{' --everything' if options.everything else ''}", flush=True)
            if len(kinds) >= options.stop_after:
                print(f"stopped after {len(kinds)} kinds of failures", flush=True)
                pool.shutdown(cancel_futures=True)
                break
    seconds = time.monotonic() - started
    for kind, count in sorted(kinds.items(), key=lambda item: -item[1]):
        print(f"{count:6} {kind}")
    print(f"{done} programs in {seconds:.1f} s ({done / seconds:.1f} a second), {failed} failures")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
