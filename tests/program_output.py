#!/usr/bin/env python3
"""Runs a program and compares what it does with what the comment at its beginning promises.

    program_output.py VESKC FILE [OPTION ...]

The comment: after a line `# Prints:` (standard output), `# Complains:` (standard error) or `# Arguments:` (of the
program) the following comment lines, indented by two more blanks, are the exact text; `# Status: N` is the exit
status (0 when it is not there). Standard error must be empty unless it is promised; in a promised one, {FILE} stands
for the program's path, and {STDLIB}/PATH for a place inside the standard library.
"""
import difflib
import os
import re
import subprocess
import sys
from pathlib import Path

HEADS = {"# Prints:": "output", "# Complains:": "errors", "# Arguments:": "arguments"}


def promise(path):
    promised = {"output": None, "errors": None, "arguments": None, "status": 0}
    part = None
    for line in path.read_text(encoding="utf-8").splitlines():
        if line in HEADS:
            part = HEADS[line]
            promised[part] = []
        elif match := re.fullmatch(r"# Status: (\d+)", line):
            promised["status"], part = int(match[1]), None
        elif part and line.startswith("#   "):
            promised[part].append(line[4:])
        elif part and line == "#":
            promised[part].append("")
        elif not line.startswith("#") and line.strip():
            break
        else:
            part = None
    return promised


def text(lines):
    return "".join(line + "\n" for line in lines or [])


def differences(what, expected, actual):
    if expected == actual:
        return ""
    rows = difflib.unified_diff(expected.splitlines(), actual.splitlines(), f"promised {what}", f"actual {what}", lineterm="", n=2)
    return "\n".join(rows) + "\n" if expected.splitlines() != actual.splitlines() else f"{what}: the last line end differs\n"


def main():
    veskc, file, options = sys.argv[1], Path(sys.argv[2]), sys.argv[3:]
    promised = promise(file)
    if promised["output"] is None and promised["errors"] is None:
        print(f"{file}: the comment at the beginning promises nothing")
        return 1
    arguments = [word for line in promised["arguments"] or [] for word in line.split()]
    result = subprocess.run([veskc, "run", str(file), "--color=never", *options, *(["--", *arguments] if arguments else [])],
                            stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120, check=False)
    name = os.path.relpath(file)
    shown = name if not name.startswith("..") else str(file)
    errors = text(promised["errors"]).replace("{FILE}", shown)
    report = differences("output", text(promised["output"]), result.stdout.decode("utf-8", "replace"))
    actual = re.sub(r"\S*stdlib/vesk/(\S+?\.vk):\d+", r"{STDLIB}/\1", result.stderr.decode("utf-8", "replace"))
    report += differences("standard error", errors, actual)
    if result.returncode != promised["status"]:
        report += f"status {result.returncode}, promised {promised['status']}\n"
    print(report, end="")
    return 1 if report else 0


if __name__ == "__main__":
    sys.exit(main())
