#!/usr/bin/env python3
"""Checks that each program of a folder ends with the error of endless growth, at the line marked `# begins`.

    growth_without_end.py VESKC FOLDER

Prints a line for each program: its name and the note that names the growing step. The compiler may take half a gigabyte of
memory, two gigabytes of address space and a minute: without a bound in breadth it would need more than any machine has.
"""
import json
import os
import resource
import subprocess
import sys
import threading
from pathlib import Path

MESSAGE = "Generic specialization grows without end"
LARGEST_KB = 500 * 1024


def limit_memory():
    if "ASAN_OPTIONS" not in os.environ:  # a sanitizer takes terabytes of addresses
        resource.setrlimit(resource.RLIMIT_AS, (2 << 30, 2 << 30))


def run(words, seconds):
    """Status, errors and the most memory in KiB of a command that ends in time."""
    process = subprocess.Popen(words, preexec_fn=limit_memory, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
    watch = threading.Timer(seconds, process.kill)
    watch.start()
    errors = process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    watch.cancel()
    return os.waitstatus_to_exitcode(status), errors, usage.ru_maxrss


def main():
    veskc, folder = sys.argv[1], Path(sys.argv[2])
    for file in sorted(folder.glob("*.vk")):
        lines = file.read_text(encoding="utf-8").splitlines()
        begins = next(number for number, line in enumerate(lines, 1) if line.endswith("# begins"))
        isSanitized = "ASAN_OPTIONS" in os.environ
        status, text, memory = run([veskc, "check", "--cache=memory", "--diagnostics=json", str(file)], 600 if isSanitized else 60)
        errors = [json.loads(line) for line in text.splitlines() if line.startswith("{")]
        found = [error for error in errors if error["message"] == MESSAGE]
        if status != 1 or len(found) != 1:
            print(f"{file.name}: status {status}, {[error['message'] for error in errors]}", text[:300])
        elif memory > LARGEST_KB and not isSanitized:
            print(f"{file.name}: takes {memory} KiB")
        elif found[0]["line"] != begins:
            print(f"{file.name}: reported in line {found[0]['line']}")
        else:
            print(f"{file.name}: {found[0]['notes'][0]['message']}")


main()
