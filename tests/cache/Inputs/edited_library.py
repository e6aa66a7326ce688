#!/usr/bin/env python3
"""Edits what a generic method of a package returns, between runs that share a cache: each run has to answer as one
without a cache does.

    edited_library.py VESKC FOLDER
"""
import os
import shutil
import subprocess
import sys
from pathlib import Path

HELPER = "package q\ndef help() -> {}:\n    return {}\n"
EDITS = [  # the body of Q.f, the helper's type and value
    ("def f<T>(x: T):\n        return 2.5", "Int", "1"),
    ("def f<T>(x: T):\n        return 7", "Int", "1"),
    ("def f<T>(x: T) -> Double:\n        return 7.0", "Int", "1"),
    ("def f<T>(x: T) -> Int:\n        return 7", "Int", "1"),
    ("def f<T>(x: T):\n        return help()", "Double", "7.0"),
    ("def f<T>(x: T):\n        return help()", "Int", "7"),
    ("def f<T>(x: T, y: Int = 1):\n        return y", "Int", "7"),
    ("def f<T>(x: T, y: Object = 1):\n        return 4", "Int", "7"),
    ("def f<T>(x: T, *y: Int):\n        return y.size()", "Int", "7"),
    ("static def f<T>(x: T) -> Int:\n        return 7", "Int", "7"),  # a mistake at the call
    ("def f<T>(x: T) -> Int:\n        return 9", "Int", "7"),
]


def run(veskc, folder, cache):
    command = [veskc, "run", "--source-path", "lib", "main.vk", *cache]
    done = subprocess.run(command, cwd=folder, capture_output=True, text=True)
    return done.returncode, done.stdout, done.stderr


def main():
    veskc, folder = sys.argv[1], Path(sys.argv[2])
    shutil.rmtree(folder, ignore_errors=True)
    (folder / "lib/q").mkdir(parents=True)
    (folder / "main.vk").write_text("import q\n\ndef main() -> Void:\n    print(Q().f(7) / 2)\n")
    wrong = 0
    for body, kind, value in EDITS:
        (folder / "lib/q/q.vk").write_text(f"package q\nimport vesk.collections\nclass Q:\n    {body}\n")
        (folder / "lib/q/help.vk").write_text(HELPER.format(kind, value))
        expected = run(veskc, folder, ["--cache=off"])
        if expected[0] not in (0, 1):
            sys.exit(f"no answer to compare with: {expected}")
        for attempt in range(3):
            found = run(veskc, folder, ["--cache-dir", "cache"])
            if found != expected:
                wrong += 1
                print(f"{body!r}, run {attempt + 1}: {found} instead of {expected}")
    return 1 if wrong else 0


sys.exit(main())
