#!/usr/bin/env python3
"""Checks that each program of a folder ends with the error of endless growth, at the line marked `# begins`.

    growth_without_end.py VESKC FOLDER

Prints a line for each program: its name and the note that names the growing step. The compiler may take two gigabytes of
address space and a minute: without a bound in breadth it would need more than any machine has.
"""
import json
import os
import resource
import subprocess
import sys
from pathlib import Path

MESSAGE = "Generic specialization grows without end"


def limit_memory():
    if "ASAN_OPTIONS" not in os.environ:  # a sanitizer takes terabytes of addresses
        resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))


def main():
    veskc, folder = sys.argv[1], Path(sys.argv[2])
    for file in sorted(folder.glob("*.vk")):
        lines = file.read_text(encoding="utf-8").splitlines()
        begins = next(number for number, line in enumerate(lines, 1) if line.endswith("# begins"))
        result = subprocess.run([veskc, "check", "--cache=memory", "--diagnostics=json", str(file)], timeout=600 if "ASAN_OPTIONS" in os.environ else 60,
                                preexec_fn=limit_memory, capture_output=True, text=True, check=False)
        errors = [json.loads(line) for line in result.stderr.splitlines() if line.startswith("{")]
        found = [error for error in errors if error["message"] == MESSAGE]
        if result.returncode != 1 or len(found) != 1:
            print(f"{file.name}: status {result.returncode}, {[error['message'] for error in errors]}", result.stderr[:300])
        elif found[0]["line"] != begins:
            print(f"{file.name}: reported in line {found[0]['line']}")
        else:
            print(f"{file.name}: {found[0]['notes'][0]['message']}")


main()
