#!/usr/bin/env python3
"""Holds a session with `veskc repl` and compares it with a transcript.

    repl_transcript.py VESKC FILE [OPTION ...] [--update]

The transcript, behind a comment at its beginning: a line after `> ` begins a chunk or a command, lines after `. ` go on
with it (`.` alone is an empty line); all other lines are what the session answers, standard output and standard error as
they come. The session must end with status 0. `--update` writes the answers into the file, for review.
"""
import difflib
import re
import subprocess
import sys
from pathlib import Path


def is_input(line):
    return line.startswith(("> ", ". ")) or line == "."


def session(veskc, lines, options):
    given = "".join(line[2:] + "\n" for line in lines if is_input(line))
    result = subprocess.run([veskc, "repl", "--color=never", *options], input=given, text=True, timeout=120, check=False,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8", errors="replace")
    # How deep a stack is depends on the optimization and the machine.
    answer = re.sub(r"^(    \.\.\. )\d+ more$", r"\1N more", result.stdout, flags=re.M)
    return answer.splitlines(), result.returncode


def main():
    veskc, file = sys.argv[1], Path(sys.argv[2])
    options = [word for word in sys.argv[3:] if word != "--update"]
    lines = file.read_text(encoding="utf-8").splitlines()
    begin = next(i for i, line in enumerate(lines) if not line.startswith("#"))
    body = lines[begin:]
    answers, status = session(veskc, body, options)
    if "--update" in sys.argv:
        update(veskc, file, lines[:begin], body, options)
        return 0
    report = "" if status == 0 else f"status {status}\n"
    promised = [line for line in body if not is_input(line)]
    if promised != answers:
        report += "\n".join(difflib.unified_diff(promised, answers, "promised", "answered", lineterm="", n=3)) + "\n"
    print(report, end="")
    return 1 if report else 0


def update(veskc, file, head, body, options):
    """The answer to each input is what it adds to the answers of the session before it."""
    inputs = [line for line in body if is_input(line)]
    written, seen = list(head), 0
    for i, line in enumerate(inputs):
        written.append(line)
        if i + 1 < len(inputs) and not inputs[i + 1].startswith("> "):
            continue
        answers, _ = session(veskc, inputs[:i + 1], options)
        written += answers[seen:]
        seen = len(answers)
    file.write_text("\n".join(written) + "\n", encoding="utf-8")


if __name__ == "__main__":
    sys.exit(main())
