"""Working folders, outputs and caches with unusual names: odd_places.py VESKC FOLDER

Each command does what it does elsewhere, or says what is in its way.
"""
import os
import shutil
import subprocess
import sys
from pathlib import Path

VESKC, FOLDER = str(Path(sys.argv[1]).resolve()), Path(sys.argv[2]).resolve()
MAIN = "import p\n\ndef main() -> Void:\n    print(Box<Int>(1).put<String>(\"a\"))\n    print([1, 2].map((x: Int) => x + 1))\n"
BOX = ("package p\n\nclass Box<T>:\n    value: T\n\n    def init(value: T):\n        self.value = value\n\n"
       "    def put<U>(other: U) -> String:\n        return \"\" + self.value + other\n")
OUTPUT = "1a\n[2, 3]\n"
NAMES = ["with blank", "100%", "%s%d%n", "%%%%%%%", "-o", "quo'te\"s", "semi;colon $HOME `x`", "back\\slash", "ünï—çødé", "colon:x", "*?[]",
         "tab\tinside", "n" * 240]
# Where sources lie; a bundle of the program's own says so in one line.
SOURCE_FOLDERS = NAMES + ["car\rriage", "blank behind ", " blank before", "\x1b[31mred", "\x7f", "\x01", "\v", "\u2028", "#", " ", "..."]


def program(folder):
    (folder / "p").mkdir(parents=True)
    (folder / "main.vk").write_text(MAIN)
    (folder / "p" / "box.vk").write_text(BOX)
    return folder / "main.vk"


def veskc(*words, cwd=None, text=None, **more):
    environment = {**os.environ, "VESK_CACHE_DIR": str(FOLDER / "cache"), **more}
    return subprocess.run([VESKC, *map(str, words)], cwd=cwd, env=environment, input=text, capture_output=True, text=True,
                          timeout=60, check=False)


def right(result, output=OUTPUT):
    assert (result.returncode, result.stdout, result.stderr) == (0, output, ""), result


def refused(result, words):
    assert result.returncode == 2 and words in result.stderr and result.stderr.count("\n") == 1, result
    assert result.stderr.startswith("veskc: "), result


def outputs():
    """Executables and their folders may have any name."""
    main = program(FOLDER / "plain")
    for name in NAMES:
        for output in (FOLDER / name, FOLDER / "folders" / name / name):
            output.parent.mkdir(parents=True, exist_ok=True)
            right(veskc("build", main, "-o", output), "")
            right(subprocess.run([output], capture_output=True, text=True, check=False))
            assert [path.name for path in output.parent.iterdir() if path.name.startswith(".")] == []
            output.unlink()
        right(veskc("build", main, "-o", f"./{name}", cwd=FOLDER), "")
        right(subprocess.run([FOLDER / name], capture_output=True, text=True, check=False))
        temporary = FOLDER / "temporary" / name
        temporary.mkdir(parents=True)
        right(veskc("build", main, "-o", FOLDER / "out", TMPDIR=str(temporary)), "")
        assert list(temporary.iterdir()) == []
    refused(veskc("build", main, "-o", FOLDER / ("n" * 300)), "File name too long")


def folders():
    """Programs, their packages and the cache may lie in folders of any name but one."""
    for number, name in enumerate(SOURCE_FOLDERS):
        main = program(FOLDER / "programs" / name)
        cache = f"--cache-dir={FOLDER}/caches/{name}"
        for _ in range(2):
            right(veskc("run", main, cache))
            right(veskc("check", main, cache), "")
        right(veskc("run", "./main.vk", f"--cache-dir=../../relative{number}", cwd=main.parent))
        right(veskc("build", "./main.vk", "-o", "out", cwd=main.parent), "")


def unwritable(result, shown):
    """What a bundle cannot hold is said at the call that needs one."""
    shown = str(shown).removeprefix(f"{os.getcwd()}/")
    shown = shown.replace("\n", "\\n").replace("\t", "\\t").replace("\v", "\\u{0B}")
    expected = (f"{shown}:4:23: error: Failed to generate generic method bundle for p.Box<Int>\n"
                "        print(Box<Int>(1).put<String>(\"a\"))\n                          ^\n"
                "veskc: note: a path with a line break, or with a blank at its end, cannot stand in a bundle\n")
    assert (result.returncode, result.stdout, result.stderr) == (1, "", expected), result


def line_breaks():
    """A bundle of the program's own names the program's file: in one line, and without blanks around it."""
    for folder in ("line\nbreak", "\nbefore", "behind\n"):
        main = program(FOLDER / folder)
        for words in (["run"], ["check"], ["build", "-o", FOLDER / "out"], ["emit", "--emit=il"]):
            for mode in ("on", "memory", "off"):
                unwritable(veskc(*words, main, f"--cache={mode}"), main)
        alone = main.parent / "alone.vk"
        alone.write_text("def main() -> Void:\n    print([1, 2].map((x: Int) => x + 1))\n")
        for _ in range(2):
            right(veskc("run", alone, f"--cache-dir={FOLDER}/cache\nhere"), "[2, 3]\n")
        right(veskc("build", alone, "-o", main.parent / "out"), "")
    main = program(FOLDER / "plain")
    for name in ("main.vk ", "main.vk\t", "main.vk\v", "main\n.vk"):
        unwritable(veskc("run", main.rename(main.with_name(name))), main.with_name(name))
        main.with_name(name).rename(main)
    for name in (" main.vk", "main", "ma\rin.vk", "%s.vk", "\x1b.vk"):
        for _ in range(2):
            right(veskc("run", main.rename(main.with_name(name))))
            main.with_name(name).rename(main)
    shutil.rmtree(FOLDER / "plain")


def deleted():
    """The working folder is gone: what is named from the root works, what is named from here is not there."""
    main = program(FOLDER / "plain")

    def gone(*words, text=None):
        here = FOLDER / "gone"
        here.mkdir()
        script = f"import os, sys; os.rmdir({str(here)!r}); os.execv({VESKC!r}, sys.argv[1:])"
        environment = {**os.environ, "VESK_CACHE_DIR": str(FOLDER / "cache")}
        return subprocess.run([sys.executable, "-c", script, VESKC, *map(str, words)], cwd=here, env=environment, input=text,
                              capture_output=True, text=True, timeout=60, check=False)

    right(gone("run", main))
    right(gone("check", main), "")
    right(gone("build", main, "-o", FOLDER / "out"), "")
    assert gone("emit", main, "--emit=il").returncode == 0
    assert (gone("emit", main, "--emit=asm", "-o", FOLDER / "out.s").returncode) == 0
    right(gone("repl", text="print(1 + 1)\nprint([1].size())\n"), "2\n1\n")
    for name in ("main.vk", "../main.vk"):
        refused(gone("run", name), f"cannot read '{name}': No such file or directory")
        refused(gone("check", name), f"cannot read '{name}': No such file or directory")
    refused(gone("run", "."), "there is no .vk file in folder '.'")
    refused(gone("build", main, "-o", "out"), "cannot write 'out': No such file or directory")
    refused(gone("emit", main, "--emit=il", "-o", "out.ll"), "cannot write 'out.ll': No such file or directory")
    refused(gone("emit", main, "--emit=il", "-o", "out/"), "cannot make folder 'out/': No such file or directory")
    refused(gone("run", main, "-MF", "deps"), "cannot write 'deps': No such file or directory")


def class_names():
    """Names of classes become names of files."""
    for length in (200, 230, 231, 255, 300, 3000):
        name, other = "A" * length, "B" * length
        base = FOLDER / f"classes{length}"
        (base / "p").mkdir(parents=True)
        (base / "main.vk").write_text(
            f"import vesk.collections\nimport p\n\ndef main() -> Void:\n    print({name}<Int>(1).pair(\"x\"))\n"
            f"    var xs = [{other}(3)]\n    print(xs.map((b: {other}) => b.x))\n    print({other}(3).same(4))\n")
        (base / "p" / "c.vk").write_text(
            f"package p\n\nclass {name}<T>:\n    value: T\n\n    def init(value: T):\n        self.value = value\n\n"
            f"    def pair<U>(other: U) -> String:\n        return \"\" + self.value + other\n\n"
            f"class {other}:\n    x: Int\n\n    def init(x: Int):\n        self.x = x\n\n"
            f"    def same<U>(u: U) -> U:\n        return u\n")
        for _ in range(2):
            right(veskc("run", base / "main.vk"), "1x\n[3]\n4\n")
            right(veskc("check", base / "main.vk"), "")
        right(veskc("build", base / "main.vk", "-o", FOLDER / "out"), "")
        result = veskc("run", base / "main.vk", "--stats")
        assert "objects: " in result.stderr and " 0 made" in result.stderr, result


def main():
    for part in (outputs, folders, line_breaks, deleted, class_names):
        shutil.rmtree(FOLDER, ignore_errors=True)
        FOLDER.mkdir(parents=True)
        part()


main()
