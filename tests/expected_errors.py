#!/usr/bin/env python3
"""Checks a faulty program and compares its errors, exactly, with the comments on the lines that cause them.

    expected_errors.py VESKC FILE [OPTION ...]

An expectation is a comment `# error COLUMN: message` or `# note COLUMN: message` at the end of its line; several on one
line are joined by ` && `. `# error COLUMN~: text` is content with a message that contains the text. Notes may appear
in any number where the file expects none.
"""
import json
import re
import subprocess
import sys
from pathlib import Path

EXPECTED = re.compile(r"(error|note) (\d+)(~?): (.*)")


def expectations(path):
    found = []
    for number, line in enumerate(path.read_text(encoding="utf-8", errors="replace").splitlines(), 1):
        start = re.search(r"# (?=(?:error|note) \d+~?: )", line)
        if not start:
            continue
        for part in line[start.end():].split(" && "):
            match = EXPECTED.fullmatch(part)
            if not match:
                raise SystemExit(f"{path}:{number}: cannot read the expectation {part!r}")
            found.append((match[1], number, int(match[2]), match[3] == "~", match[4]))
    return found


def diagnostics(text):
    found = []
    for line in text.splitlines():
        try:
            entry = json.loads(line)
        except ValueError:
            raise SystemExit(f"this is no diagnostic: {line}")
        for record in [entry, *entry["notes"]]:
            found.append((record["severity"], record.get("line", 0), record.get("column", 0), record["message"]))
    return found


def main():
    veskc, file, options = sys.argv[1], Path(sys.argv[2]), sys.argv[3:]
    result = subprocess.run([veskc, "check", str(file), "--diagnostics=json", *options], capture_output=True, text=True,
                            timeout=120, check=False)
    expected, actual = expectations(file), diagnostics(result.stderr)
    if not any(kind == "note" for kind, *_ in expected):
        actual = [entry for entry in actual if entry[0] == "error"]
    report = []
    for kind, line, column, partly, message in expected:
        for entry in actual:
            if entry[:3] == (kind, line, column) and (message in entry[3] if partly else message == entry[3]):
                actual.remove(entry)
                break
        else:
            report.append(f"{file}:{line}:{column}: expected but not reported: {kind}: {message}")
    report += [f"{file}:{line}:{column}: not expected: {kind}: {message}" for kind, line, column, message in actual]
    if not expected:
        report.append(f"{file}: expects no error")
    if result.returncode != 1:
        report.append(f"status {result.returncode}, not 1")
    print("\n".join(report))
    return 1 if report else 0


if __name__ == "__main__":
    sys.exit(main())
