#!/usr/bin/env python3
"""Puts every kind of mistake into every kind of place of every file of a program, and asks each command for it.

    mistakes_everywhere.py VESKC [--positions] [--all] [--only TEXT]

A program is the text below with one slot changed. Whatever the slot, the file it stands in and the command: the status is
1, each error has a place, one of them stands on the slot's line with the expected message, there are at most 20, and a
second mistake in the main file is reported too where the first leaves the given files well formed. Each mistake at each
place stands in one of the files, in turn, is checked, and then goes through one of the other commands and cache modes, in
turn; `--positions` takes all files, `--all` all commands too.
"""
import itertools
import json
import os
import re
import subprocess
import sys
import tempfile
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

# What is declared. `<<name:default>>` is a slot; a name that begins with T wants a type, with E an expression, with S a
# statement, with D whatever the default shows.
DECLARATIONS = """\
class Needs<T: Number>:
    value: T
    def init(value: T):
        self.value = value

class Base:
    seed: Int = 1

interface Shown:
    def shown(x: <<T interface parameter:Int>>) -> <<T interface result:Int>>:
        return <<E interface default:x>>
    def made<U>(x: U, y: <<T interface generic parameter:Int>>) -> <<T interface generic result:Int>>:
        return <<E interface generic body:y>>

class Box<A, B: <<T class constraint:Object>> = <<T class default:Int>>> extends <<T super class:Base>> implements <<T interface:Shown>>:
    value: A
    count: <<T field:Int>> = <<E field initializer:1>>
    static total: <<T static field:Int>> = <<E static initializer:1>>
    def init(value: A, other: <<T constructor parameter:Int>> = <<E constructor default:1>>):
        self.value = value
        <<S constructor:self.count = other>>
    def plain(x: <<T parameter:Int>>, y: Int = <<E default:1>>) -> <<T result:Int>>:
        <<S method:var a = x + y>>
        return <<E method:x>>
    def twice<U: <<T method constraint:Object>>, V: Object = <<T method default:Int>>>(x: U, y: <<T generic parameter:Int>> = <<E generic default:1>>) -> <<T generic result:Int>>:
        <<S generic method:var a = y + 1>>
        var local: <<T generic local:Int>> = <<E generic method:y>>
        return 1
    def open<U>(x: U):
        <<S open generic method:var a = 1>>
        return <<E open generic method:1>>
    static def of(x: <<T static parameter:Int>>) -> <<T static result:Int>>:
        return <<E static method:x>>
    static def ofAny<U>(x: U) -> <<T static generic result:Int>>:
        <<S static generic method:pass>>
        return <<E static generic method:1>>
    class Inner:
        depth: <<T nested field:Int>> = 1
        def deep(x: <<T nested parameter:Int>>) -> <<T nested result:Int>>:
            return <<E nested method:x>>
        def deepAny<U>(x: U) -> <<T nested generic result:Int>>:
            return <<E nested generic method:1>>
    def operator+(other: <<T operator parameter:Int>>) -> Int:
        return <<E operator:other>>

def pick<U: <<T function constraint:Object>>, V: Object = <<T function default:Int>>>(x: U, y: <<T function parameter:Int>> = <<E function default:1>>) -> <<T function result:Int>>:
    <<S generic function:var a = y + 1>>
    var local: <<T function local:Int>> = <<E generic function:y>>
    return 1

def openPick<U>(x: U):
    <<S open generic function:pass>>
    return <<E open generic function:1>>

def rest<U>(first: U, *items: <<T variadic:Int>>, **named: <<T named variadic:Int>>) -> Int:
    return <<E variadic body:1>>

def bodies(x: Int) -> Int:
    var f = (y: <<T lambda parameter:Int>>) => <<E lambda:y>>
    var a = x as <<T cast:Long>>
    var s: Object = x
    if s is <<T test:String>>:
        <<S block:print(1)>>
    print(type(<<T type text:Int>>))
    var list = ArrayList<<<T construction:Int>>>()
    for i in range(0, <<E range:2>>):
        <<S loop:print(i)>>
    return f(1)
"""

USES = """\
    var box = Box<String>("a")
    print(box.plain(1))
    print(box.twice("a"))
    print(box.open("a"))
    print(box.shown(1))
    print(box.made("a", 1))
    print(Box.of(1))
    print(Box.ofAny("a"))
    print(Box.Inner().deep(1))
    print(Box.Inner().deepAny("a"))
    print(box + 1)
    print(pick("a"))
    print(openPick("a"))
    print(rest("a", 1, b = 2))
    print(bodies(1))
"""

# Nothing that the mistaken file's own unit would have to define.
GENERIC_USES = """\
    print(pick("a"))
    print(openPick("a"))
"""

OTHER = 'def other() -> Void:\n    var x: Int = "text"\n'

# Per letter: the text that goes into the slot, and what a message on its line says.
MISTAKES = {
    "T": {
        "unknown": ("Missing", "Unknown type 'Missing'"),
        "unknown inside": ("Tuple<Int, Missing>", "Unknown type 'Missing'"),
        "unknown array": ("Missing[]", "Unknown type 'Missing'"),
        "unknown qualified": ("lib.nowhere.Missing", "Unknown type 'lib.nowhere.Missing'"),
        "raw": ("ArrayList", "needs 1 type argument|cannot be extended|is not an interface|ArrayList"),
        "empty clause": ("ArrayList<>", "has no default|generic clause|ArrayList|expected a type"),
        "too many arguments": ("ArrayList<Int, Int>", "expects 1 type arguments \\(got 2\\)"),
        "arguments of a plain type": ("Base<Int>", "Type Base has no type parameters|ype Base"),
        "broken constraint": ("Needs<String>", "does not satisfy generic constraint|cannot|is not|not assignable|Needs|got"),
        "open bracket": ("Tuple<Int", "expected|malformed|unexpected|needs|'"),
        "no type": ("1", "expected a type|expected|generic clause|'"),
    },
    "E": {
        "unknown name": ("missing", "Unknown name 'missing'"),
        "unknown function": ("missing(1)", "Unknown function 'missing'"),
        "unknown class": ("Missing<Int>(1)", "Unknown (function|type|class) 'Missing"),
        "unknown member": ("\"a\".missing", "missing"),
        "wrong operands": ("(true - 1)", "Bool"),
        "half": ("1 +", "expected an expression"),
        "open parenthesis": ("(1", "expected"),
        "strange character": ("1 $ 2", "\\$"),
        "open text": ("\"abc", "text|string|ended|closing|\""),
        "call of a type": ("1 as Int(3)", "\\("),
    },
    "S": {
        "unknown name": ("missing = 1", "Unknown name 'missing'"),
        "half": ("var z =", "expected an expression"),
        "no statement": (")", "expected|unexpected"),
        "deeper": ("    pass", "indentation|deeper|found"),
        "body behind colon": ("if true: pass", "body"),
        "broken header": ("while", "expected"),
    },
}
# What cannot be wrong at a place: it means something there.
FINE = {("S block", "deeper"), ("S loop", "deeper"), ("T type text", "broken constraint"), ("T cast", "raw"), ("T test", "raw"), ("T type text", "raw")}

POSITIONS = ("main", "second", "package", "behind another package", "source path", "generics alone")
# Types in bodies: these are looked at where they are used.
IN_BODIES = {"generic local", "function local", "lambda parameter", "cast", "test", "type text", "construction"}
COMMANDS = [("run", []), ("build", ["-o", "{out}"]), ("emit", ["--emit=il"]), ("emit", ["--emit=obj", "-o", "{out}.o"]),
            ("run", ["--cache=memory"]), ("run", ["--cache=off"]), ("run", ["--cache=readonly"]), ("run", ["-O2"]),
            ("check", ["--cache=memory"]), ("check", ["-j", "2"]), ("run", ["-j", "2"]), ("repl", [])]
MOST_ERRORS = 20
SLOT = re.compile(r"<<([TES]) ([a-z ]+):((?:[^<>]|<[^<>]*>)*?)>>")


def slots():
    return [(m[1], m[2]) for m in SLOT.finditer(DECLARATIONS)]


def declarations(slot, text):
    """The text with all defaults but one, and the line of that one."""
    line = 0

    def fill(match):
        nonlocal line
        if (match[1], match[2]) != slot:
            return match[3]
        line = DECLARATIONS.count("\n", 0, match.start()) + 1
        return text

    filled = SLOT.sub(fill, DECLARATIONS)
    return filled, line


# Where the block does not fit the line behind it, the mistake is that line's.
BEHIND = {"deeper"}


def write(path, text):
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text, encoding="utf-8")


def program(folder, position, slot, text, other=OTHER):
    """Writes the files; answers the arguments, the mistaken file and the line in it."""
    body, line = declarations(slot, text)
    imports = "import vesk.collections\n"
    main = f"{other}def main() -> Void:\n{USES}"
    if position == "main":
        write(folder / "main.vk", imports + body + main)
        return ["main.vk"], "main.vk", line + 1
    if position == "second":
        write(folder / "second.vk", imports + body)
        write(folder / "main.vk", imports + main)
        return ["main.vk", "second.vk"], "second.vk", line + 1
    head = "package lib.things\n" + imports
    if position == "generics alone":
        main = main.replace(USES, GENERIC_USES)
    if position in ("package", "generics alone"):
        write(folder / "lib/things/all.vk", head + body)
        write(folder / "main.vk", "import lib.things\n" + main)
        return ["main.vk"], "lib/things/all.vk", line + 2
    if position == "behind another package":
        write(folder / "lib/things/all.vk", head + body)
        write(folder / "front/front.vk", "package front\nimport lib.things\ndef use() -> Void:\n" + USES)
        write(folder / "main.vk", f"import front\n{other}def main() -> Void:\n    use()\n")
        return ["main.vk"], "lib/things/all.vk", line + 2
    write(folder / "elsewhere/lib/things/all.vk", head + body)
    write(folder / "main.vk", "import lib.things\n" + main)
    return ["main.vk", "--source-path", "elsewhere"], "elsewhere/lib/things/all.vk", line + 2


def run(veskc, folder, command, options, arguments):
    words = [veskc, command, *arguments, *(each.format(out="out") for each in options), "--cache-dir", "cache"]
    typed = None
    if command == "repl":
        words = [veskc, "repl", "--cache-dir", "cache"]
        for at, word in enumerate(arguments):
            if word == "--source-path":
                words += arguments[at:]
        typed = "".join(f":load {each}\n" for each in reversed(arguments) if each.endswith(".vk"))
        typed += "main()\n"
    else:
        words.append("--diagnostics=json")
    return subprocess.run(words, cwd=folder, input=typed, capture_output=True, text=True, timeout=60, check=False,
                          env={**os.environ, "HOME": str(folder)})


def errors_of(stderr):
    found = []
    for each in stderr.splitlines():
        if each.startswith("{"):
            record = json.loads(each)
            if record["severity"] == "error":
                found.append((record.get("file") or record.get("path", ""), record.get("line", 0), record["message"]))
        elif each.strip():
            found.append(("?", 0, each))
    return found


def judge(result, command, file, lines, message, wants_other):
    if command == "repl":
        # The session goes on after a mistake; it must say what is wrong, where, and live.
        said = re.findall(r"^(\S+?):(\d+):\d+: error: (.*)$", result.stderr, re.M)
        if result.returncode != 0:
            return f"status {result.returncode}"
        # A file without a package line becomes a chunk, which is named behind it.
        said = [(re.sub(r"/repl_chunk_\d+$", "", f), l, m) for f, l, m in said]
        if not any(Path(f).name == Path(file).name and int(l) in lines and re.search(message, m) for f, l, m in said):
            return "not reported"
        return "" if not re.search(r"^(veskc|error): ", result.stderr, re.M) else "an error without a place"
    if result.returncode != 1:
        return f"status {result.returncode}"
    errors = errors_of(result.stderr)
    if any(not l or f == "?" for f, l, _ in errors):
        return "an error without a place"
    if len(errors) > MOST_ERRORS:
        return f"{len(errors)} errors"
    if not any(f.endswith(file) and l in lines and re.search(message, m) for f, l, m in errors):
        return "not reported"
    if wants_other and not any(f.endswith("main.vk") and "expected Int, got String" in m for f, _, m in errors):
        return "hides the other mistake"
    return ""


def is_syntax(veskc, folder, file):
    result = subprocess.run([veskc, "emit", file, "--emit=ast", "--cache-dir", "cache"], cwd=folder,
                            capture_output=True, text=True, timeout=60, check=False)
    return result.returncode != 0


def cell(veskc, number, position, slot, name, everything):
    text, message = MISTAKES[slot[0]][name]
    complaints = []
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary)
        arguments, file, line = program(folder, position, slot, text)
        lines = {line, line + 1} if name in BEHIND else {line}
        # Mistakes of form in the given files end the command before bodies are looked at.
        wants_other = position not in ("main", "second") or not is_syntax(veskc, folder, file)
        turns = COMMANDS if everything else [COMMANDS[number % len(COMMANDS)]]
        for command, options in [("check", []), *turns]:
            if command == "repl":  # a chunk with a mistake of its own ends there
                program(folder, position, slot, text, "")
            result = run(veskc, folder, command, options, arguments)
            wrong = judge(result, command, file, lines, message, wants_other)
            if wrong:
                complaints.append(f"{slot[0]} {slot[1]} / {name} / {position} / {command} {' '.join(options)}: {wrong}\n"
                                  f"  line {line}, status {result.returncode}\n" +
                                  "".join(f"    {each[:200]}\n" for each in result.stderr.splitlines()[:12]))
    return complaints


def main():
    veskc = os.path.abspath(sys.argv[1])
    everything = "--all" in sys.argv
    only = sys.argv[sys.argv.index("--only") + 1] if "--only" in sys.argv else ""
    everywhere = everything or "--positions" in sys.argv
    cells = []
    for row, slot in enumerate(slots()):
        for column, name in enumerate(MISTAKES[slot[0]]):
            for position in POSITIONS if everywhere else [POSITIONS[(row + column) % len(POSITIONS)]]:
                title = f"{slot[0]} {slot[1]} / {name} / {position}"
                is_used = position != "generics alone" or (slot[0] == "T" and slot[1] not in IN_BODIES)
                if is_used and (f"{slot[0]} {slot[1]}", name) not in FINE and only in title:
                    cells.append((position, slot, name))
    with ThreadPoolExecutor(2) as pool:
        found = pool.map(lambda each: cell(veskc, each[0], *each[1], everything), enumerate(cells))
        complaints = list(itertools.chain.from_iterable(found))
    print("".join(complaints), end="")
    print(f"{len(cells)} cells, {len(complaints)} complaints")
    return 1 if complaints or not cells else 0


if __name__ == "__main__":
    sys.exit(main())
