"""Makes a failing program smaller: declarations and statements are left out, expressions replaced by their parts, as long
as the same complaint remains."""

import random
import re
import shutil
import tempfile
import time

import interpreter
import model as m
from generator import generate
from modes import MODES, Expected, Workshop, differences
from printer import print_program
from trees import blocks, classes, functions
from values import Discard

TIME = 40.0


def normal(text):
    return re.sub(r"[\w.]*\d[\w.]*|'[^']*'|\"[^\"]*\"|<.*>", "_", text or "")[:70]


class Reducer:
    def __init__(self, shop, program, run, wanted):
        self.shop, self.program, self.run, self.wanted = shop, program, run, wanted
        self.end = time.monotonic() + TIME
        self.best = None

    def fails(self):
        """Whether the program as it stands shows the complaint."""
        if time.monotonic() > self.end:
            return False
        try:
            outcome = interpreter.run(self.program)
        except (Discard, KeyError, AttributeError, TypeError, StopIteration, ValueError):
            return False
        sources = print_program(self.program)
        expected = Expected(outcome, sources)
        self.shop.write(sources.files)
        shutil.rmtree(self.shop.cache, ignore_errors=True)
        if normal(self.run(self.shop, expected)) != self.wanted:
            return False
        self.best = (sources.files, expected)
        return True

    def without(self, items, kept=0):
        """Leaves out pieces of a list, large ones first; the last `kept` items stay."""
        size = max(1, len(items) // 2)
        while size >= 1:
            start = 0
            while start < len(items) - kept:
                gone = items[start:min(start + size, len(items) - kept)]
                del items[start:start + len(gone)]
                if not self.fails():
                    items[start:start] = gone
                    start += size
                if time.monotonic() > self.end:
                    return
            size //= 2

    def reduce(self):
        if not self.fails():
            return None
        before = -1
        while before != self.size() and time.monotonic() < self.end:
            before = self.size()
            for unit in self.program.units:
                self.without(unit.declarations)
            for c in list(classes(self.program)):
                for part in (c.methods, c.nested, c.interfaces):
                    self.without(part)
            for f, _ in list(functions(self.program)):
                for block in list(blocks(f.body or [])):
                    # What promises a value goes on to return one.
                    self.without(block, 1 if block and isinstance(block[-1], m.Return) else 0)
            self.unfold()
            self.simplify()
        return self.best

    def size(self):
        return sum(len(t) for t in (self.best or [{}])[0].values())

    def unfold(self):
        """The body of a branch or loop in its place."""
        for f, _ in list(functions(self.program)):
            for block in list(blocks(f.body or [])):
                for i, s in enumerate(list(block)):
                    if isinstance(s, m.If) and s in block:
                        at = block.index(s)
                        for body in [b for _, b in s.arms] + ([s.other] if s.other else []):
                            block[at:at + 1] = body
                            if self.fails():
                                break
                            block[at:at + len(body)] = [s]

    def simplify(self):
        """Expressions give way to a part of the same type, or to a literal."""
        for f, _ in list(functions(self.program)):
            for block in list(blocks(f.body or [])):
                for s in block:
                    self.simplify_in(s)

    def simplify_in(self, holder):
        for name in holder.fields:
            value = getattr(holder, name)
            if name == "ty" or isinstance(holder, (m.Assign, m.OpAssign)) and name == "target":
                continue
            if isinstance(value, m.Node):
                self.replace(value, lambda new, h=holder, n=name: setattr(h, n, new))
                self.simplify_in(getattr(holder, name))
            elif isinstance(value, list):
                for i, x in enumerate(value):
                    if isinstance(x, m.Node) and not isinstance(holder, (m.If, m.While, m.For)):
                        self.replace(x, lambda new, v=value, i=i: v.__setitem__(i, new))
                        self.simplify_in(value[i])
                    elif isinstance(x, tuple) and len(x) == 2 and isinstance(x[1], m.Node):
                        self.replace(x[1], lambda new, v=value, i=i, p=x[0]: v.__setitem__(i, (p, new)))
                        self.simplify_in(value[i][1])

    def replace(self, old, put):
        if time.monotonic() > self.end:
            return
        candidates = [x for x in parts(old) if x.ty == old.ty] if hasattr(old, "ty") else []
        if getattr(old, "ty", None) in LITERALS and not isinstance(old, m.Lit):
            candidates.append(m.Lit(LITERALS[old.ty], old.ty))
        for new in candidates:
            put(new)
            if self.fails():
                return self.replace(new, put)
            put(old)


LITERALS = {m.INT: 1, m.STRING: "", m.BOOL: False, m.DOUBLE: 1.0, m.LONG: 1}


def parts(e):
    for name in e.fields:
        value = getattr(e, name)
        if isinstance(value, m.Node) and hasattr(value, "ty"):
            yield value
        elif isinstance(value, list):
            for x in value:
                x = x[1] if isinstance(x, tuple) and len(x) == 2 else x
                if isinstance(x, m.Node) and hasattr(x, "ty"):
                    yield x


def reduce_lines(shop, complaint, judged):
    """Leaves out lines of a mutated program as long as `judged` says the same of it."""
    wanted, end = normal(complaint.text), time.monotonic() + TIME
    files = {p: t.split("\n") for p, t in complaint.files.items()}

    def fails():
        shop.write({p: "\n".join(lines) for p, lines in files.items()})
        return normal(judged(shop)) == wanted
    if not fails():
        return
    for lines in files.values():
        size = max(1, len(lines) // 2)
        while size >= 1 and time.monotonic() < end:
            start = 0
            while start < len(lines) and time.monotonic() < end:
                gone = lines[start:start + size]
                del lines[start:start + size]
                if not fails():
                    lines[start:start] = gone
                    start += size
            size //= 2
    complaint.files = {p: "\n".join(lines) for p, lines in files.items()}


def mutation_judge(text):
    """Repeats the command that the complaint is about."""
    from mutations import compare_commands, judge
    verb = text.split(":")[0].split(" ")[0]

    def judged(shop):
        checked = shop.veskc_run("check")
        if verb == "check" and not text.startswith("check has") and not text.startswith("check and"):
            return judge(checked, "check")
        made = shop.veskc_run("build", "-o", shop.folder + "/mutant", "--cache=memory")
        return judge(made, "build") or compare_commands(checked, made)
    return judged


def reduce_complaint(seed, veskc, complaint):
    """Replaces the complaint's sources by smaller ones where that works."""
    from trial import make
    from variants import VARIANTS
    folder = tempfile.mkdtemp(prefix="vesk-reduce-")
    try:
        shop = Workshop(veskc, folder)
        if complaint.kind == "mutation":
            return reduce_lines(shop, complaint, mutation_judge(complaint.text))
        name, program, _ = make(seed)
        if complaint.kind in MODES:
            def run(shop, expected):
                if complaint.kind != "cold" and complaint.kind != "cold optimized":
                    first = MODES["cold"](shop, expected)
                    if first:
                        return first
                return MODES[complaint.kind](shop, expected)
        elif complaint.kind.startswith("variant "):
            variant = complaint.kind[len("variant "):]
            program = generate(name)
            VARIANTS[variant](program, random.Random(f"{name} {variant}"))

            def run(shop, expected):
                return differences(expected, shop.veskc_run("run"))
        else:
            return
        best = Reducer(shop, program, run, normal(complaint.text)).reduce()
        if best:
            complaint.files, complaint.expected = best
    finally:
        shutil.rmtree(folder, ignore_errors=True)
