#!/usr/bin/env python3
"""What a further call of an existing instantiation costs above a plain call, in microseconds of processor time.

    compare_repeated_calls.py VESKC [RUNS]

`veskc emit --emit=il -O0` in memory mode, on programs with 5,000 and with 25,000 calls in turn (workloads.py); the median of
RUNS runs (15) of each. A figure is the slope between the two sizes.
"""
import os
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

import workloads

SIZES = (5_000, 25_000)
KINDS = {"functions": "repeat", "methods": "repeat methods"}


def processor_time(command):
    process = subprocess.Popen(command)
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = status
    if status != 0:
        sys.exit(f"{' '.join(command)} failed with {status}")
    return usage.ru_utime + usage.ru_stime


def main():
    veskc = sys.argv[1]
    runs = int(sys.argv[2]) if len(sys.argv) > 2 else 15
    times = {}
    with tempfile.TemporaryDirectory() as folder:
        for workload in [name for kind in KINDS.values() for name in (kind, f"{kind} control")]:
            for size in SIZES:
                source = Path(folder) / f"{workload.replace(' ', '_')}_{size}.vk"
                source.write_text(workloads.program("vesk", workload, size))
                times[workload, size] = (source, [])
        for _ in range(runs):
            for source, taken in times.values():
                command = [veskc, "emit", str(source), "--emit=il", "-O0", "--cache=memory", "-o", f"{folder}/out.ll"]
                taken.append(processor_time(command))
    small, large = SIZES

    def slope(workload):
        median = {size: statistics.median(times[workload, size][1]) for size in SIZES}
        return (median[large] - median[small]) / (large - small) * 1e6

    for title, workload in KINDS.items():
        call, plain = slope(workload), slope(f"{workload} control")
        print(f"{title:10} generic {call:6.2f} us   plain {plain:6.2f} us   above {call - plain:+6.2f} us")


if __name__ == "__main__":
    main()
