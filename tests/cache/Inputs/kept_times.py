#!/usr/bin/env python3
"""Edits that keep a source's size and times: each command has to answer as one without a cache does.

    kept_times.py VESKC FOLDER
"""
import os
import shutil
import subprocess
import sys
from pathlib import Path

STDLIB = Path(__file__).resolve().parents[3] / "stdlib"
MAIN = """import vesk.collections
import q
import shapes

def main() -> Void:
    var names = ArrayList<String>()
    names.add("a")
    print(names)
    print(names.map((x: String) => x + "!"))
    print(Q().f(7))
    print(Q().g<Int>(7))
    print(Box<Int>(1).put<String>("a"))
    print(label())
    var boxes = ArrayList<Box<Int>>()
    boxes.add(Box<Int>(4))
    print(boxes.map((b: Box<Int>) => b.put<Int>(3)))
    print(boxes.describe(1))
"""
FILES = {
    "lib/q/q.vk": "package q\nclass Q:\n    def f<T>(x: T):\n        return help()\n    def g<T>(x: T):\n        return 71\n",
    "lib/q/help.vk": "package q\ndef help() -> Int:\n    return 1\n",
    "shapes/box.vk": "package shapes\nclass Box<T>:\n    private value: T\n    def init(value: T):\n        self.value = value\n"
    '    def put<U>(other: U) -> String:\n        return "box of " + self.value + " with " + other\n'
    '    def toString() -> String:\n        return "Box"\n',
    "shapes/label.vk": 'package shapes\ndef label():\n    return "1"\n',
    "main.vk": MAIN,
}
LISTS = "stdlib/vesk/collections/lists.vk"
COLLECTION = "stdlib/vesk/collections/collection.vk"
# A generic method without a written type, of a library class, with a type of the application among its arguments.
DESCRIBE = "    def describe<A>(x: A):\n        return 100\n"
EDITS = [  # a file, a text in it, and what takes its place: as long
    ("lib/q/help.vk", "Int:\n    return 1", "Int:\n    return 2"),
    ("lib/q/q.vk", "return 71", "return 72"),
    ("lib/q/q.vk", "return 72", 'return ""'),
    ("lib/q/q.vk", 'return ""', "return 73"),
    ("shapes/box.vk", " with ", " upon "),
    ("shapes/box.vk", '"Box"', '"box"'),
    ("shapes/label.vk", '"1"', '111'),
    ("shapes/label.vk", '111', '"2"'),
    ("main.vk", '"!"', '"?"'),
    (COLLECTION, "return 100", "return 200"),
    (COLLECTION, "return 200", 'return "2"'),
    (COLLECTION, 'return "2"', "return 1.5"),
    (COLLECTION, "return 1.5", "return 700"),
    ("stdlib/vesk/numbers.vk", "# ", "#  "),
]
COMMANDS = [
    ["run", "main.vk"],
    ["run", "main.vk", "--cache=readonly"],
    ["run", "main.vk", "-O2"],
    ["check", "main.vk"],
    ["emit", "main.vk", "--emit=il"],
    ["build", "main.vk", "-o", "program"],
    ["repl"],
]


def perform(veskc, folder, command, *cache):
    environment = {**os.environ, "VESK_STDLIB": str(folder / "stdlib")}
    words = [veskc, *command, "--source-path", "lib", *cache]
    chunks = "".join(line[4:] + "\n" for line in MAIN.splitlines() if line.startswith("    "))
    imports = "".join(line + "\n" for line in MAIN.splitlines() if line.startswith("import"))
    done = subprocess.run(words, cwd=folder, capture_output=True, text=True, env=environment, timeout=120, input=imports + chunks)
    if command[0] == "build" and done.returncode == 0:
        done = subprocess.run([folder / "program"], capture_output=True, text=True, timeout=60)
    return done.returncode, done.stdout, done.stderr


def replace_keeping_times(path, old, new):
    about = path.stat()
    text = path.read_text()
    assert text.count(old) == 1 or len(old) != len(new), (path, old)
    if len(old) == len(new):
        changed = text.replace(old, new)
    else:  # a remark grows, another text shrinks: here the end of the file
        changed = text.replace(old, new, 1)[: len(text)]
    assert len(changed) == len(text), (path, old)
    path.write_text(changed)
    os.utime(path, ns=(about.st_atime_ns, about.st_mtime_ns))


def main():
    veskc, folder = sys.argv[1], Path(sys.argv[2]).resolve()
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    shutil.copytree(STDLIB, folder / "stdlib")
    for name, text in FILES.items():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        (folder / name).write_text(text)
    collection = folder / COLLECTION
    lines = collection.read_text().splitlines(keepends=True)
    at = next(i for i, line in enumerate(lines) if line.startswith("    def "))
    collection.write_text("".join(lines[:at]) + DESCRIBE + "\n" + "".join(lines[at:]))
    for path in folder.rglob("*.vk"):
        os.utime(path, ns=(10**18, 10**18))
    wrong, seen = 0, set()
    for edit in [None, *EDITS]:
        if edit:
            replace_keeping_times(folder / edit[0], *edit[1:])
        for command in COMMANDS:
            plain = [word for word in command if not word.startswith("--cache")]
            expected = perform(veskc, folder, plain, "--cache=off")
            seen.add(expected)
            if expected[0] not in (0, 1):
                sys.exit(f"no answer to compare with: {expected}")
            for attempt in range(2 if command == COMMANDS[0] else 1):
                found = perform(veskc, folder, command, "--cache-dir", "cache")
                if found != expected:
                    wrong += 1
                    print(f"after {edit}, {' '.join(command)}, time {attempt + 1}: {found} instead of {expected}")
    # The edits show at all.
    if len(seen) < len(EDITS):
        sys.exit(f"only {len(seen)} different answers")
    print(f"{len(EDITS)} edits, {wrong} wrong answers")
    return 1 if wrong else 0


sys.exit(main())
