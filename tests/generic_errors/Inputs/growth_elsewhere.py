#!/usr/bin/env python3
"""Growth without end through another package's declarations: every command and every cache stops it at the same call.

    growth_elsewhere.py VESKC FOLDER

Nothing of it is left in a cache, so that the second compilation ends like the first one. Half a gigabyte is enough.
"""
import json
import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

VESKC, FOLDER = sys.argv[1], Path(sys.argv[2])
MESSAGE = "Generic specialization grows without end"
LARGEST_KB = 500 * 1024
LIBRARY = """package lib

class L<T>:
    item: T
    def init(item: T):
        self.item = item

class R<T>:
    item: T
    def init(item: T):
        self.item = item

def f<T>(x: T) -> Int:
    f(L<T>(x))
    f(R<T>(x))
    return 1

class G:
    def f<T>(x: T) -> Int:
        self.f(L<T>(x))
        self.f(R<T>(x))
        return 1
"""
KINDS = {
    "function": ("import lib\n\ndef main() -> Void:\n    print(f(1))\n", r"f<[LR]<Int>> asked for by f<Int>"),
    "method": ("import lib\n\ndef main() -> Void:\n    print(G().f(1))\n", r"G.f<[LR]<.*>> asked for by G.f<.*Int"),
}
COMMANDS = (["check"], ["run"], ["run", "-O2"], ["build", "-o", "program", "-j2"])
CACHES = (["--cache=memory"], ["--cache-dir=kept"], ["--cache-dir=kept"], ["--cache=readonly", "--cache-dir=kept"])


def right(words, cwd, note):
    process = subprocess.Popen([VESKC, *words, "--diagnostics=json"], cwd=cwd, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True)
    out, err = process.stdout.read(), process.stderr.read()
    _, status, usage = os.wait4(process.pid, 0)
    errors = [json.loads(line) for line in err.splitlines() if line.startswith("{")]
    what = (words, status, out, err[:1000])
    assert os.waitstatus_to_exitcode(status) == 1 and out == "", what
    assert [error["message"] for error in errors] == [MESSAGE], what
    assert Path(errors[0]["file"]).name == "main.vk" and errors[0]["line"] == 4, what
    assert re.search(note, errors[0]["notes"][0]["message"].replace("lib.", "")), what
    if "ASAN_OPTIONS" not in os.environ:
        assert usage.ru_maxrss < LARGEST_KB, (usage.ru_maxrss, *what)


for kind, (main, note) in KINDS.items():
    base = FOLDER / kind
    shutil.rmtree(base, ignore_errors=True)
    (base / "lib").mkdir(parents=True)
    (base / "lib" / "g.vk").write_text(LIBRARY)
    (base / "main.vk").write_text(main)
    for number, command in enumerate(COMMANDS):
        for cache in CACHES if number < 2 else CACHES[:1]:
            right([command[0], "main.vk", *command[1:], *cache], base, note)
    assert not (base / "program").exists()
