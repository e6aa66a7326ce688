#!/usr/bin/env python3
"""Lines of ordinary files that look like those of a bundle's manifest are comments.

    manifest_comments.py VESKC

Every kind of line and whole manifests, in the main file, a second one, a file of another package, files with a bundle's
name, and a chunk: the program prints the same, cold and warm, in every cache mode and built.
"""
import itertools
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

LIBRARY = """\
import vesk.collections

class Own<T>:
    value: T
    def init(value: T):
        self.value = value
    def with<U>(other: U) -> String:
        return str(self.value) + str(other)

def both<T>(x: T) -> ArrayList<T>:
    return [x].map((y: T) => y)
"""
MAIN = """\
import vesk.collections

def main() -> Void:
    print(Own<Int>(1).with("a"))
    print(Own<String>("b").with(2))
    print(both(3))
    print([4].map((x: Int) => str(x) + "!"))
"""
PRINTED = "1a\nb2\n[3]\n[4!]\n"
KEY = "# @vesk-generic-"
FULL = (f"{KEY}method-bundle-version 7\n{KEY}method-owner {{owner}}\n{{caller}}{KEY}method-arg Int\n"
        f"{KEY}method-spec-begin\n{KEY}method-name with\n{KEY}method-overload 1\n{KEY}method-static 0\n"
        f"{KEY}method-variadic 0\n{KEY}method-variadic-index -1\n{KEY}method-named-variadic 0\n"
        f"{KEY}method-named-variadic-index -1\n{KEY}method-return String\n{KEY}method-symbol __vesk_m_Own_with__T_1\n"
        f"{KEY}method-spec-param-type String\n{KEY}method-spec-end\n\n")


def caller(path):
    return f"{KEY}caller-source-unit {path}\n"


# By name: the comment, for a file at a path in a folder.
COMMENTS = {
    "a caller that is not there": lambda folder, path: caller("/some/path"),
    "an empty caller": lambda folder, path: KEY + "caller-source-unit \n",
    "itself": lambda folder, path: caller(path),
    "a relative caller": lambda folder, path: caller("main.vk"),
    "a folder": lambda folder, path: caller(folder),
    "a chain": lambda folder, path: caller(folder / "first.vk"),
    "a circle": lambda folder, path: caller(folder / "circle.vk"),
    "two callers": lambda folder, path: caller("/a") + caller("/b"),
    "behind other comments": lambda folder, path: "# x\n\n  " + caller("/some/path"),
    "the owner": lambda folder, path: KEY + "method-owner Own\n",
    "the version": lambda folder, path: KEY + "method-bundle-version 7\n",
    "an argument": lambda folder, path: KEY + "method-arg Int\n",
    "a manifest": lambda folder, path: FULL.format(owner="Own", caller=""),
    "a manifest of the package": lambda folder, path: FULL.format(owner="lib.Own", caller=""),
    "a manifest with a caller": lambda folder, path: FULL.format(owner="Own", caller=caller("/some/path")),
    "a manifest of the library": lambda folder, path: FULL.format(owner="vesk.collections.ArrayList", caller=""),
    "a broken manifest": lambda folder, path: FULL.format(owner="Own", caller="").replace("spec-end", "spec-bend"),
}


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")
    return path


# By name: writes the program with the comment; answers the files to give.
def in_main(folder, comment):
    path = folder / "main.vk"
    write(path, comment(folder, path) + LIBRARY + MAIN.replace("import vesk.collections\n", ""))
    return ["main.vk"]


def in_second(folder, comment):
    path = folder / "second.vk"
    write(path, comment(folder, path) + LIBRARY)
    write(folder / "main.vk", MAIN)
    return ["main.vk", "second.vk"]


def in_package(folder, comment, name="all.vk"):
    path = folder / "lib" / name
    write(path, comment(folder, path) + "package lib\n" + LIBRARY)
    write(folder / "main.vk", "import lib\n" + MAIN)
    return ["main.vk"]


def in_caller(folder, comment):
    """The file whose calls go to another package: its bundles are kept apart by caller."""
    path = folder / "main.vk"
    write(folder / "lib/all.vk", "package lib\n" + LIBRARY)
    write(path, comment(folder, path) + "import lib\n" + MAIN)
    return ["main.vk"]


def in_both(folder, comment):
    path = folder / "main.vk"
    write(folder / "lib/all.vk", comment(folder, folder / "lib/all.vk") + "package lib\n" + LIBRARY)
    write(path, comment(folder, path) + "import lib\n" + MAIN)
    return ["main.vk"]


def in_package_named_as_bundle(folder, comment):
    return in_package(folder, comment, "Own__GM_1.vk")


def in_main_named_as_bundle(folder, comment):
    path = folder / "main__GM_1.vk"
    write(path, comment(folder, path) + LIBRARY + MAIN.replace("import vesk.collections\n", ""))
    return ["main__GM_1.vk"]


PLACES = [in_main, in_second, in_package, in_caller, in_both, in_package_named_as_bundle, in_main_named_as_bundle]
# Each program runs cold and warm, and then one of these in turn.
OTHER_RUNS = [["check"], ["run", "--cache=memory"], ["run", "--cache=off"], ["run", "--cache=readonly"]]


def veskc(command, words, folder, **more):
    return subprocess.run([command, *words, "--cache-dir", "cache"], cwd=folder, capture_output=True, text=True,
                          timeout=60, check=False, **more)


def complaint(title, result, printed):
    if result.returncode == 0 and result.stdout == printed and not result.stderr:
        return []
    return [f"{title}: status {result.returncode}\n{result.stdout[:300]}{result.stderr[:600]}"]


def programs(command, number, name, comment, place):
    found = []
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary).resolve()
        write(folder / "first.vk", caller(folder / "circle.vk"))
        write(folder / "circle.vk", caller(folder / "first.vk"))
        files = place(folder, comment)
        for words in (["run"], ["run"], OTHER_RUNS[number % len(OTHER_RUNS)]):
            printed = "" if words[0] == "check" else PRINTED
            result = veskc(command, [words[0], *files, *words[1:]], folder)
            found += complaint(f"{name} / {place.__name__} / {' '.join(words)}", result, printed)
        # What the program consists of is followed, whatever its files are called.
        for path in folder.rglob("*.vk"):
            if "cache" not in path.parts and "def with" in path.read_text(encoding="utf-8"):
                changed = path
        text = changed.read_text(encoding="utf-8")
        changed.write_text(text.replace("str(self.value) + str(other)", "\"new\""), encoding="utf-8")
        result = veskc(command, ["run", *files], folder)
        found += complaint(f"{name} / {place.__name__} / after an edit", result, "new\nnew\n[3]\n[4!]\n")
    return found


def session(command, name, comment):
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary).resolve()
        lines = comment(folder, folder / "repl_chunk_1") + "import vesk.collections\n" + \
            comment(folder, folder / "repl_chunk_2") + "print([1].map((x: Int) => x + 1))\n"
        result = veskc(command, ["repl"], folder, input=lines)
        return complaint(f"{name} / repl", result, "[2]\n")


def main():
    command = sys.argv[1]
    cells = [(name, comment, place) for name, comment in COMMENTS.items() for place in [*PLACES, None]]

    def work(numbered):
        number, (name, comment, place) = numbered
        return programs(command, number, name, comment, place) if place else session(command, name, comment)

    with ThreadPoolExecutor(2) as pool:
        found = list(itertools.chain.from_iterable(pool.map(work, enumerate(cells))))
    print("\n".join(found))
    print(f"{len(cells)} programs, {len(found)} complaints")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
