#!/usr/bin/env python3
"""Builds programs, runs them, and compares what they do with what `veskc run` does: both outputs and the status.

    built_program.py VESKC FOLDER FILE ... [-O0..-O3]

The executables are made in FOLDER. Arguments of a program are those that the comment at its beginning names (see
program_output.py).
"""
import subprocess
import sys
from pathlib import Path

from program_output import differences, promise


def behaviour(command):
    result = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120,
                            check=False)
    return (result.stdout.decode("utf-8", "replace"), result.stderr.decode("utf-8", "replace"), result.returncode)


def report_on(veskc, folder, file, options):
    executable = folder / file.stem
    built = subprocess.run([veskc, "build", str(file), "-o", str(executable), *options], stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, timeout=120, check=False)
    if built.returncode != 0 or built.stdout:
        return f"status {built.returncode} of the build: {built.stdout.decode('utf-8', 'replace')}\n"
    arguments = [word for line in promise(file)["arguments"] or [] for word in line.split()]
    run = behaviour([veskc, "run", str(file), *options, "--", *arguments])
    own = behaviour([str(executable.absolute()), *arguments])
    report = differences("output", run[0], own[0]) + differences("standard error", run[1], own[1])
    return report + (f"status {own[2]}, with `run` {run[2]}\n" if own[2] != run[2] else "")


def main():
    veskc, folder, words = sys.argv[1], Path(sys.argv[2]), sys.argv[3:]
    options = [word for word in words if word.startswith("-")]
    folder.mkdir(parents=True, exist_ok=True)
    failed = 0
    for file in (Path(word) for word in words if not word.startswith("-")):
        if report := report_on(veskc, folder, file, options):
            print(f"{file}:\n{report}", end="")
            failed += 1
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
