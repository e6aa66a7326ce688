"""Programs of any size that say the same in several languages.

Each language is a table of text pieces; `$i` in a piece is the number of a type, `$k` that of a function. A program is
its types and functions, then its lines, fifty to a function, so that no compiler meets one endless body. It is one file,
or a module of declarations and files that use it (`apart`, `units`).

    distinct          one generic function called at N types       control: the types and the constructions, no call
    by hand           the same with N functions written out        control: as above
    methods           one generic method of a generic class,       control: as above, and the class
                      called on one instance at N types
    repeat            one instantiation called on N lines          control: a plain function called on N lines
    repeat methods    one method instantiation on N lines          control: a plain method of the same class
"""
LINES_PER_FUNCTION = 50

VESK = {
    "suffix": ".vk",
    "module": "package shapes\n\n",
    "use": "import shapes\n\n",
    "type": "class S$i:\n    v: Int = 1\n",
    "generic": "def pick<T>(a: T, b: T, first: Bool) -> T:\n    r: T = b\n    if first:\n        r = a\n    return r\n",
    "plain": "def pickInt(a: Int, b: Int, first: Bool) -> Int:\n    r: Int = b\n    if first:\n        r = a\n    return r\n",
    "hand": "def pick$i(a: S$i, b: S$i, first: Bool) -> S$i:\n    r: S$i = b\n    if first:\n        r = a\n    return r\n",
    "class": """class Holder<T>:
    item: T
    weight: Int
    def init(item: T, weight: Int):
        self.item = item
        self.weight = weight
    def swap<U>(value: U) -> Holder<U>:
        r: Holder<U> = Holder<U>(value, self.weight)
        if self.weight > 9:
            r.weight = 9
        return r
$twin""",
    "twin": """    def swapInt(value: Int) -> Holder<Int>:
        r: Holder<Int> = Holder<Int>(value, self.weight)
        if self.weight > 9:
            r.weight = 9
        return r
""",
    "open": "def use$k(start: Int) -> Int:\n    var t = start\n",
    "holder": "    var h = Holder<Int>(1, t)\n",
    "close": "    return t\n",
    "distinct": "    t = pick(S$i(), S$i(), true).v\n",
    "distinct control": "    t = S$i().v + S$i().v\n",
    "by hand": "    t = pick$i(S$i(), S$i(), true).v\n",
    "methods": "    t = h.swap(S$i()).item.v\n",
    "methods control": "    t = S$i().v\n",
    "repeat": "    t = pick(t, 1, true)\n",
    "repeat control": "    t = pickInt(t, 1, true)\n",
    "repeat methods": "    t = h.swap(t).item\n",
    "repeat methods control": "    t = h.swapInt(t).item\n",
}
CPP = {
    "suffix": ".cpp",
    "module": "#pragma once\n",
    "use": '#include "shapes.cpp"\n',
    "type": "struct S$i { int v = 1; };\n",
    "generic": "template <class T> T pick(T a, T b, bool first) {\n  T r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "plain": "inline int pickInt(int a, int b, bool first) {\n  int r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "hand": "S$i pick$i(S$i a, S$i b, bool first) {\n  S$i r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "class": """template <class T> struct Holder {
  T item;
  int weight;
  Holder(T item, int weight) : item(item), weight(weight) {}
  template <class U> Holder<U> swap(U value) {
    Holder<U> r(value, weight);
    if (weight > 9) r.weight = 9;
    return r;
  }
$twin};
""",
    "twin": """  Holder<int> swapInt(int value) {
    Holder<int> r(value, weight);
    if (weight > 9) r.weight = 9;
    return r;
  }
""",
    "open": "int use$k(int t) {\n",
    "holder": "  Holder<int> h(1, t);\n",
    "close": "  return t;\n}\n",
    "distinct": "  t = pick(S$i(), S$i(), true).v;\n",
    "distinct control": "  t = S$i().v + S$i().v;\n",
    "by hand": "  t = pick$i(S$i(), S$i(), true).v;\n",
    "methods": "  t = h.swap(S$i()).item.v;\n",
    "methods control": "  t = S$i().v;\n",
    "repeat": "  t = pick(t, 1, true);\n",
    "repeat control": "  t = pickInt(t, 1, true);\n",
    "repeat methods": "  t = h.swap(t).item;\n",
    "repeat methods control": "  t = h.swapInt(t).item;\n",
}
RUST = {
    "suffix": ".rs",
    "head": "#![allow(unused)]\n",
    "module": "#![allow(unused)]\n",
    "use": "#![allow(unused)]\nextern crate shapes;\nuse shapes::*;\n",
    "type": "pub struct S$i { pub v: i32 }\n",
    "generic": "pub fn pick<T>(a: T, b: T, first: bool) -> T {\n    let mut r = b;\n    if first { r = a; }\n    return r;\n}\n",
    "plain": "pub fn pick_int(a: i32, b: i32, first: bool) -> i32 {\n    let mut r = b;\n    if first { r = a; }\n    return r;\n}\n",
    "hand": "pub fn pick$i(a: S$i, b: S$i, first: bool) -> S$i {\n    let mut r = b;\n    if first { r = a; }\n    return r;\n}\n",
    "class": """pub struct Holder<T> { pub item: T, pub weight: i32 }
impl<T> Holder<T> {
    pub fn new(item: T, weight: i32) -> Holder<T> { Holder { item: item, weight: weight } }
    pub fn swap<U>(&self, value: U) -> Holder<U> {
        let mut r = Holder::new(value, self.weight);
        if self.weight > 9 { r.weight = 9; }
        return r;
    }
$twin}
""",
    "twin": """    pub fn swap_int(&self, value: i32) -> Holder<i32> {
        let mut r = Holder::new(value, self.weight);
        if self.weight > 9 { r.weight = 9; }
        return r;
    }
""",
    "open": "pub fn use$k(mut t: i32) -> i32 {\n",
    "holder": "    let h = Holder::new(1, t);\n",
    "close": "    return t;\n}\n",
    "distinct": "    t = pick(S$i { v: 1 }, S$i { v: 1 }, true).v;\n",
    "distinct control": "    t = S$i { v: 1 }.v ^ S$i { v: 1 }.v;\n",
    "by hand": "    t = pick$i(S$i { v: 1 }, S$i { v: 1 }, true).v;\n",
    "methods": "    t = h.swap(S$i { v: 1 }).item.v;\n",
    "methods control": "    t = S$i { v: 1 }.v;\n",
    "repeat": "    t = pick(t, 1, true);\n",
    "repeat control": "    t = pick_int(t, 1, true);\n",
    "repeat methods": "    t = h.swap(t).item;\n",
    "repeat methods control": "    t = h.swap_int(t).item;\n",
}
D = {
    "suffix": ".d",
    "module": "module shapes;\n",
    "use": "import shapes;\n",
    "type": "struct S$i { int v = 1; }\n",
    "generic": "T pick(T)(T a, T b, bool first) {\n  T r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "plain": "int pickInt(int a, int b, bool first) {\n  int r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "hand": "S$i pick$i(S$i a, S$i b, bool first) {\n  S$i r = b;\n  if (first) r = a;\n  return r;\n}\n",
    "class": """struct Holder(T) {
  T item;
  int weight;
  this(T item, int weight) {
    this.item = item;
    this.weight = weight;
  }
  Holder!U swap(U)(U value) {
    auto r = Holder!U(value, weight);
    if (weight > 9) r.weight = 9;
    return r;
  }
$twin}
""",
    "twin": """  Holder!int swapInt(int value) {
    auto r = Holder!int(value, weight);
    if (weight > 9) r.weight = 9;
    return r;
  }
""",
    "open": "int use$k(int t) {\n",
    "holder": "  auto h = Holder!int(1, t);\n",
    "close": "  return t;\n}\n",
    "distinct": "  t = pick(S$i(), S$i(), true).v;\n",
    "distinct control": "  t = S$i().v + S$i().v;\n",
    "by hand": "  t = pick$i(S$i(), S$i(), true).v;\n",
    "methods": "  t = h.swap(S$i()).item.v;\n",
    "methods control": "  t = S$i().v;\n",
    "repeat": "  t = pick(t, 1, true);\n",
    "repeat control": "  t = pickInt(t, 1, true);\n",
    "repeat methods": "  t = h.swap(t).item;\n",
    "repeat methods control": "  t = h.swapInt(t).item;\n",
}
LANGUAGES = {"vesk": VESK, "cpp": CPP, "rust": RUST, "d": D}

# Workload -> pieces written once per type, pieces written once, and whether the functions have a Holder. The class has
# the plain twin of its method only where that is called: members of a class come with each of its instantiations.
PARTS = {
    "distinct": (["type"], ["generic"], False),
    "distinct control": (["type"], [], False),
    "by hand": (["type", "hand"], [], False),
    "methods": (["type"], ["class"], True),
    "methods control": (["type"], ["class"], True),
    "repeat": ([], ["generic"], False),
    "repeat control": ([], ["plain"], False),
    "repeat methods": ([], ["class with twin"], True),
    "repeat methods control": ([], ["class with twin"], True),
}


def declarations(language, workload, size):
    pieces = LANGUAGES[language]
    per_type, once, _ = PARTS[workload]
    classes = {"class": pieces["class"].replace("$twin", ""),
               "class with twin": pieces["class"].replace("$twin", pieces["twin"])}
    shared = [(classes.get(name) or pieces[name]) + "\n" for name in once]
    typed = [pieces[name].replace("$i", str(i)) + "\n" for name in per_type for i in range(size)]
    # A class stands behind the types: a compiler that walks from the file's start to a method's text shows it.
    return "".join(typed + shared if "class" in once else shared + typed)


def lines(language, workload, size, prefix=""):
    """`size` lines in functions whose names begin with `prefix`."""
    pieces = LANGUAGES[language]
    has_holder = PARTS[workload][2]
    out = []
    for begin in range(0, size, LINES_PER_FUNCTION):
        out.append(pieces["open"].replace("$k", f"{prefix}{begin // LINES_PER_FUNCTION}"))
        out += [pieces["holder"]] if has_holder else []
        out += [pieces[workload].replace("$i", str(i)) for i in range(begin, min(begin + LINES_PER_FUNCTION, size))]
        out.append(pieces["close"] + "\n")
    return "".join(out)


def program(language, workload, size):
    """The text of the program in one file."""
    head = LANGUAGES[language].get("head", "")
    return head + declarations(language, workload, size) + lines(language, workload, size)


def module(language, workload, size, with_lines=False):
    """The text of a module that declares what `user` uses; with its own lines, it has made all instantiations itself."""
    text = LANGUAGES[language]["module"] + declarations(language, workload, size)
    return text + (lines(language, workload, size, "Module") if with_lines else "")


def user(language, workload, size, prefix=""):
    """The text of a file that uses the module."""
    return LANGUAGES[language]["use"] + lines(language, workload, size, prefix)
