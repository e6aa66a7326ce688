"""Sources that are no ordinary files, or cannot be read: odd_sources.py VESKC FOLDER

Every command says which one it is and why, in the system's words, and ends with 2; none waits for a pipe or reads a file
that is larger than memory. Unless a reason is given, the program runs: what is not a source is not looked at.
"""
import os
import shutil
import subprocess
import sys
from pathlib import Path

VESKC, FOLDER = sys.argv[1], Path(sys.argv[2])
PROGRAM = "import p\n\ndef main() -> Void:\n    print(f())\n"
LIBRARY = "package p\n\ndef f() -> Int:\n    return 1\n"
HUGE = 20 << 30


def pipe(path):
    os.mkfifo(path)


def sparse(path):
    path.touch()
    os.truncate(path, HUGE)


def loop(path):
    path.symlink_to(path.name)


def nowhere(path):
    path.symlink_to(path.parent / "nothing")


def endless(path):
    path.symlink_to("/dev/zero")


def folder(path):
    path.mkdir()


NO_FILE, TOO_LARGE, LOOP = "it is no ordinary file", "File too large", "Too many levels of symbolic links"
# What lies in the place of a file, and what is said when it is the program, and when it is beside a package's file.
CASES = [
    ("a pipe", pipe, NO_FILE, None),
    ("a sparse file", sparse, TOO_LARGE, TOO_LARGE),
    ("a link to itself", loop, LOOP, LOOP),
    ("a link to nothing", nowhere, "No such file or directory", None),
    ("a link to an endless file", endless, NO_FILE, None),
    ("a folder", folder, "there is no .vk file in folder", None),
]


def commands(program):
    built = str(FOLDER / "built")
    return [["run", program], ["check", program], ["build", program, "-o", built], ["emit", program, "--emit=il"],
            ["emit", program, "--emit=tokens"], ["emit", program, "--emit=ast"], ["explain", f"{program}:4:11"]]


def expect(words, reason, text=None):
    result = subprocess.run([VESKC, *words, f"--cache-dir={FOLDER}/cache"] if words[0] != "repl" else [VESKC, "repl"],
                            input=text, capture_output=True, text=True, timeout=60, check=False)
    what = f"{words}: status {result.returncode}, {result.stdout[:200]!r}, {result.stderr!r}"
    if reason is None:
        assert result.returncode == 0, what
        assert result.stderr == "", what
    elif words[0] == "repl":
        assert result.returncode == 0 and reason in result.stderr and result.stdout == "2\n", what
    else:
        assert result.returncode == 2, what
        assert result.stderr.startswith("veskc: ") and result.stderr.count("\n") == 1 and reason in result.stderr, what


def place(name):
    base = FOLDER / name.replace(" ", "-")
    shutil.rmtree(base, ignore_errors=True)
    (base / "p").mkdir(parents=True)
    return base


def main():
    shutil.rmtree(FOLDER, ignore_errors=True)
    FOLDER.mkdir(parents=True)
    for name, make, asProgram, asPackage in CASES:
        program = place(name) / "main.vk"
        make(program)
        for words in commands(str(program)):
            expect(words, asProgram)
        expect(["repl"], asProgram if name != "a folder" else "is a folder", f":load {program}\nprint(1 + 1)\n")
        # Beside it in a folder that is the program, and in the folder of a package.
        base = place(name)
        (base / "main.vk").write_text(PROGRAM)
        (base / "p" / "f.vk").write_text(LIBRARY)
        make(base / "p" / "odd.vk")
        for words in commands(str(base / "main.vk"))[:4]:
            expect(words, asPackage)
        if asPackage:
            expect(["run", str(base / "p")], asPackage)
        # A package may have no other file.
        (base / "p" / "f.vk").unlink()
        result = subprocess.run([VESKC, "run", str(base / "main.vk")], capture_output=True, text=True, timeout=60, check=False)
        assert result.returncode == (2 if asPackage else 1), (name, result)
        assert (asPackage or "Unknown package 'p'") in result.stderr, (name, result)


main()
