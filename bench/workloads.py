"""Programs of any size that say the same in several languages.

Each language is a table of text pieces; `$i` in a piece is a running number. A program is its types and functions, then
its lines, fifty to a function, so that no compiler meets one endless body.

    distinct   one generic function called at N types          control: the types and the constructions without the call
    by hand    the same with N functions written out           control: as above
    repeat     one instantiation called on N lines             control: a plain function called on N lines
"""
LINES_PER_FUNCTION = 50

VESK = {
    "suffix": ".vk",
    "type": "class S$i:\n    v: Int = 1\n",
    "generic": "def pick<T>(a: T, b: T, first: Bool) -> T:\n    r: T = b\n    if first:\n        r = a\n    return r\n",
    "plain": "def pickInt(a: Int, b: Int, first: Bool) -> Int:\n    r: Int = b\n    if first:\n        r = a\n    return r\n",
    "hand": "def pick$i(a: S$i, b: S$i, first: Bool) -> S$i:\n    r: S$i = b\n    if first:\n        r = a\n    return r\n",
    "open": "def use$i(start: Int) -> Int:\n    var t = start\n",
    "close": "    return t\n",
    "distinct": "    t = pick(S$i(), S$i(), true).v\n",
    "distinct control": "    t = S$i().v + S$i().v\n",
    "by hand": "    t = pick$i(S$i(), S$i(), true).v\n",
    "repeat": "    t = pick(t, 1, true)\n",
    "repeat control": "    t = pickInt(t, 1, true)\n",
}
CPP = {
    "suffix": ".cpp",
    "type": "struct S$i { int v = 1; };\n",
    "generic": "template <class T> T pick(T a, T b, bool first) {\n  T r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "plain": "int pickInt(int a, int b, bool first) {\n  int r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "hand": "S$i pick$i(S$i a, S$i b, bool first) {\n  S$i r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "open": "int use$i(int t) {\n",
    "close": "  return t;\n}\n",
    "distinct": "  t = pick(S$i(), S$i(), true).v;\n",
    "distinct control": "  t = S$i().v + S$i().v;\n",
    "by hand": "  t = pick$i(S$i(), S$i(), true).v;\n",
    "repeat": "  t = pick(t, 1, true);\n",
    "repeat control": "  t = pickInt(t, 1, true);\n",
}
RUST = {
    "suffix": ".rs",
    "head": "#![allow(unused)]\n",
    "type": "pub struct S$i { pub v: i32 }\n",
    "generic": "pub fn pick<T>(a: T, b: T, first: bool) -> T {\n    let mut r = b;\n    if first { r = a; }\n    return r;\n}\n",
    "plain": "pub fn pick_int(a: i32, b: i32, first: bool) -> i32 {\n    let mut r = b;\n    if first { r = a; }\n    return r;\n}\n",
    "hand": "pub fn pick$i(a: S$i, b: S$i, first: bool) -> S$i {\n    let mut r = b;\n    if first { r = a; }\n    return r;\n}\n",
    "open": "pub fn use$i(mut t: i32) -> i32 {\n",
    "close": "    return t;\n}\n",
    "distinct": "    t = pick(S$i { v: 1 }, S$i { v: 1 }, true).v;\n",
    "distinct control": "    t = S$i { v: 1 }.v ^ S$i { v: 1 }.v;\n",
    "by hand": "    t = pick$i(S$i { v: 1 }, S$i { v: 1 }, true).v;\n",
    "repeat": "    t = pick(t, 1, true);\n",
    "repeat control": "    t = pick_int(t, 1, true);\n",
}
LANGUAGES = {"vesk": VESK, "cpp": CPP, "rust": RUST}

# Workload -> pieces written once per type, and pieces written once.
PARTS = {
    "distinct": (["type"], ["generic"]),
    "distinct control": (["type"], []),
    "by hand": (["type", "hand"], []),
    "repeat": ([], ["generic"]),
    "repeat control": ([], ["plain"]),
}


def program(language, workload, size):
    """The program's text."""
    pieces = LANGUAGES[language]
    per_type, once = PARTS[workload]
    out = [pieces.get("head", "")]
    out += [pieces[name] + "\n" for name in once]
    for name in per_type:
        out += [pieces[name].replace("$i", str(i)) + "\n" for i in range(size)]
    for begin in range(0, size, LINES_PER_FUNCTION):
        out.append(pieces["open"].replace("$i", str(begin // LINES_PER_FUNCTION)))
        out += [pieces[workload].replace("$i", str(i)) for i in range(begin, min(begin + LINES_PER_FUNCTION, size))]
        out.append(pieces["close"] + "\n")
    return "".join(out)
