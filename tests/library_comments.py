#!/usr/bin/env python3
"""Finds declarations of the standard library that users see and that have no comment.

    library_comments.py FOLDER

A declaration is commented when the line above it, or above its annotations, is a comment. Private members, and members
that follow directly on a commented one of the same name, need none.
"""
import re
import sys
from pathlib import Path

DECLARATION = re.compile(r"( *)(?:(?:public|protected|private|static|native) )*(?:(?:class|interface|def) (operator\S+?|\w+)|(\w+)(?=: ))")


def uncommented(path):
    lines = path.read_text(encoding="utf-8").splitlines()
    found, last = [], None
    for number, line in enumerate(lines, 1):
        match = DECLARATION.match(line)
        is_field = match and match[3] and re.match(r" {4}\S", line)
        if not match or not (match[2] or is_field) or " private " in line or len(match[1]) > 4:
            continue
        above = number - 2
        while above >= 0 and lines[above].strip().startswith("@"):
            above -= 1
        name = match[2] or match[3]
        if above >= 0 and lines[above].strip().startswith("#"):
            last = name
        elif name != last:
            found.append(f"{path}:{number}: {name} has no comment")
    return found


def main():
    files = sorted(Path(sys.argv[1]).rglob("*.vk"))
    found = [entry for path in files for entry in uncommented(path)]
    print("\n".join(found) or f"{len(files)} files, every declaration with a comment")
    return 1 if found or not files else 0


if __name__ == "__main__":
    sys.exit(main())
