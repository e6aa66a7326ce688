"""Writes a program's model as vesk sources, and remembers the line of each statement."""

import model as m
from arithmetic import RANGES
from model import BOOL, DOUBLE, FLOAT, INT, LONG, NULL, STRING, UINT, ULONG, Class, Func, Group

CONDITIONAL, OR, AND, NOT, COMPARE, ADD, MULTIPLY, AS, UNARY, POWER, POSTFIX = range(11)
LEVELS = {"||": OR, "&&": AND, "+": ADD, "-": ADD, "*": MULTIPLY, "/": MULTIPLY, "//": MULTIPLY, "%": MULTIPLY, "**": POWER}
for comparison in ("==", "!=", "<", "<=", ">", ">="):
    LEVELS[comparison] = COMPARE


class Sources:
    """The text of each file by its path, the main file's path, and the lines of statements."""

    def __init__(self):
        self.files, self.main, self.lines = {}, None, {}


class UnitPrinter:
    def __init__(self, unit, qualify=False):
        self.unit, self.qualify = unit, qualify
        self.lines, self.packages, self.places, self.depth = [], set(), {}, 0

    # ------------------------------------------------------------------------------------------------- names

    def name_of(self, declaration):
        """How a class or function is named from this unit."""
        if isinstance(declaration, m.LibraryClass):
            package = declaration.qualified.rsplit(".", 1)[0]
            name = declaration.name
        elif isinstance(declaration, Class) and declaration.outer:
            return self.name_of(declaration.outer) + "." + declaration.name
        else:
            unit = declaration.members[0].unit if isinstance(declaration, Group) else declaration.unit
            package, name = unit.package, declaration.name
        if not package or package == self.unit.package or package == "vesk":
            return name
        if self.qualify:
            return package + "." + name
        self.packages.add(package)
        return name

    def type(self, ty):
        if ty.kind == "prim":
            return ty.ref
        if ty.kind == "par":
            return ty.ref.name
        if ty.kind in ("arr", "opt"):
            inner = self.type(ty.args[0])
            return (f"({inner})" if ty.args[0].kind == "fun" else inner) + ("[]" if ty.kind == "arr" else "?")
        if ty.kind == "fun":
            return "(" + ", ".join(map(self.type, ty.args[1:])) + ") -> " + self.type(ty.args[0])
        return self.name_of(ty.ref) + self.clause(ty.args)

    def clause(self, types):
        return "<" + ", ".join(map(self.type, types)) + ">" if types else ""

    # ------------------------------------------------------------------------------------------- expressions

    def at(self, e, level):
        """The text of an expression, in parentheses where it binds less than the place asks for."""
        while isinstance(e, m.Coerce):
            if isinstance(e.a, m.Lit) and not isinstance(e.a.value, (bool, str)):
                return self.bare_literal(e.a, level)
            e = e.a
        text, own = self.expression(e)
        return text if own >= level else f"({text})"

    def bare_literal(self, literal, level):
        if literal.value is None:
            return "null"
        if literal.ty == INT or literal.ty == DOUBLE:
            return self.at(literal, level)
        text, own = self.expression(literal)
        return text if own >= level else f"({text})"

    def expression(self, e):
        return getattr(self, "on_" + type(e).__name__)(e)

    def on_Lit(self, e):
        value, ty = e.value, e.ty
        if value is None:
            return ("null", POSTFIX) if ty == NULL else (f"null as {self.type(ty)}", AS)
        if ty == BOOL:
            return ("true" if value else "false"), POSTFIX
        if ty == STRING:
            return '"' + escaped(value) + '"', POSTFIX
        if ty in (DOUBLE, FLOAT):
            text = repr(float(value)) if abs(value) < 1e15 else f"{value:.1f}"
            return text + ("f" if ty == FLOAT else ""), UNARY if text.startswith("-") else POSTFIX
        if ty in (INT, LONG, UINT, ULONG):
            suffix = {INT: "", LONG: "L", UINT: "u", ULONG: "uL"}[ty]
            low = RANGES[ty.ref][0]
            if value == low and low < 0:
                return f"-{-low - 1}{suffix} - 1{suffix}", ADD
            return f"{value}{suffix}", UNARY if value < 0 else POSTFIX
        return f"{value} as {ty.ref}", AS

    def on_Get(self, e):
        return e.var.name, POSTFIX

    def on_Self(self, e):
        return "self", POSTFIX

    def on_GetField(self, e):
        return self.at(e.obj, POSTFIX) + "." + e.field.name, POSTFIX

    def on_GetStatic(self, e):
        return self.owner(e.owner) + "." + e.field.name, POSTFIX

    def owner(self, owner):
        """A class, or a type parameter that stands for one."""
        return owner.ref.name if isinstance(owner, m.Ty) else self.name_of(owner)

    def arguments(self, e):
        positional = getattr(e, "positional", len(e.args))
        parts = []
        for index, (p, a) in enumerate(e.args):
            text = self.at(a, CONDITIONAL)
            if isinstance(p, str):
                text = f"{p} = {text}"
            elif index >= positional:
                text = f"{p.name} = {text}"
            parts.append(text)
        return "(" + ", ".join(parts) + ")"

    def written(self, e):
        return self.clause(e.targs) if e.targs and getattr(e, "explicit", True) else ""

    def on_Call(self, e):
        return self.name_of(e.target) + self.written(e) + self.arguments(e), POSTFIX

    def on_Invoke(self, e):
        return self.at(e.obj, POSTFIX) + "." + e.target.name + self.written(e) + self.arguments(e), POSTFIX

    def on_Super(self, e):
        return "super." + e.target.name + self.arguments(e), POSTFIX

    def on_CallStatic(self, e):
        return self.owner(e.owner) + "." + e.target.name + self.written(e) + self.arguments(e), POSTFIX

    def on_New(self, e):
        clause = self.clause(e.ty.args) if getattr(e, "explicit", True) else ""
        return self.name_of(e.ty.ref) + clause + self.arguments(e), POSTFIX

    def on_Lib(self, e):
        return self.at(e.obj, POSTFIX) + "." + e.method + self.written(e) + self.arguments(e), POSTFIX

    def on_LibStatic(self, e):
        if e.method == "range":
            return "range" + self.arguments(e), POSTFIX
        return self.name_of(e.owner) + "." + e.method + self.written(e) + self.arguments(e), POSTFIX

    def on_Bin(self, e):
        level = LEVELS[e.op]
        left, right = level, level + 1
        if e.op == "**":
            left, right = POSTFIX, UNARY
        elif level == COMPARE:
            left = right = ADD
        return f"{self.at(e.a, left)} {e.op} {self.at(e.b, right)}", level

    def on_Un(self, e):
        level = NOT if e.op == "!" else UNARY
        inner = self.at(e.a, level)
        return (e.op + ("(" + inner + ")" if inner[0] in "-+" else inner)), level

    def on_Cond(self, e):
        return f"{self.at(e.a, OR)} if {self.at(e.c, OR)} else {self.at(e.b, CONDITIONAL if isinstance(e.b, m.Cond) else OR)}", CONDITIONAL

    def on_Cast(self, e):
        return f"{self.at(e.a, AS)} as {self.type(e.ty)}", AS

    def on_Is(self, e):
        return f"{self.at(e.a, ADD)} {'isnot' if e.negated else 'is'} {self.type(e.test)}", COMPARE

    def on_IsNull(self, e):
        return f"{self.at(e.a, ADD)} {'isnot' if e.negated else 'is'} null", COMPARE

    def on_Lambda(self, e):
        params = ", ".join(f"{p.name}: {self.type(p.ty)}" for p in e.params)
        return f"({params}) => {self.at(e.body, OR)}", CONDITIONAL

    def on_FuncRef(self, e):
        return self.name_of(e.func), POSTFIX

    def on_CallValue(self, e):
        return self.at(e.f, POSTFIX) + "(" + ", ".join(self.at(a, CONDITIONAL) for a in e.args) + ")", POSTFIX

    def on_ListLit(self, e):
        if e.ty.kind == "cls":
            self.packages.add("vesk.collections")
        return "[" + ", ".join(self.at(x, CONDITIONAL) for x in e.items) + "]", POSTFIX

    def on_MapLit(self, e):
        self.packages.add("vesk.collections")
        return "{" + ", ".join(f"{self.at(k, OR)}: {self.at(v, OR)}" for k, v in e.entries) + "}", POSTFIX

    def on_NewArray(self, e):
        return f"{self.type(e.ty)}({self.at(e.size, CONDITIONAL)})", POSTFIX

    def on_Index(self, e):
        return f"{self.at(e.obj, POSTFIX)}[{self.at(e.index, CONDITIONAL)}]", POSTFIX

    def on_TypeText(self, e):
        return f"type({self.type(e.of)})", POSTFIX

    def on_ToText(self, e):
        return f"str({self.at(e.a, CONDITIONAL)})", POSTFIX

    def on_Identity(self, e):
        clause = self.clause((e.ty,)) if getattr(e, "explicit", False) else ""
        return f"{self.name_of(e.func)}{clause}({self.at(e.a, CONDITIONAL)})", POSTFIX

    # -------------------------------------------------------------------------------------------- statements

    def line(self, text, place=None):
        self.lines.append("    " * self.depth + text if text else "")
        if place is not None:
            self.places.setdefault(id(place), []).append(len(self.lines))

    def block(self, statements):
        self.depth += 1
        for s in statements or [m.Pass()]:
            getattr(self, "do_" + type(s).__name__)(s)
        self.depth -= 1

    def do_Let(self, s):
        value = "" if s.init is None else " = " + self.at(s.init, CONDITIONAL)
        if s.typed or s.init is None:
            self.line(f"{'var ' if getattr(s, 'word', False) else ''}{s.var.name}: {self.type(s.var.ty)}{value}", s)
        else:
            self.line(f"var {s.var.name}{value}", s)

    def do_Assign(self, s):
        self.line(f"{self.at(s.target, POSTFIX)} = {self.at(s.value, CONDITIONAL)}", s)

    def do_OpAssign(self, s):
        self.line(f"{self.at(s.target, POSTFIX)} {s.op}= {self.at(s.value, CONDITIONAL)}", s)

    def do_If(self, s):
        for index, (condition, body) in enumerate(s.arms):
            self.line(f"{'elif' if index else 'if'} {self.at(condition, CONDITIONAL)}:", s)
            self.block(body)
        if s.other is not None:
            self.line("else:")
            self.block(s.other)

    def do_While(self, s):
        self.line(f"while {self.at(s.condition, CONDITIONAL)}:", s)
        self.block(s.body)

    def do_For(self, s):
        self.line(f"for {s.var.name} in {self.at(s.source, CONDITIONAL)}:", s)
        self.block(s.body)

    def do_Return(self, s):
        self.line("return" + ("" if s.value is None else " " + self.at(s.value, CONDITIONAL)), s)

    def do_Break(self, s):
        self.line("break", s)

    def do_Continue(self, s):
        self.line("continue", s)

    def do_Pass(self, s):
        self.line("pass", s)

    def do_Do(self, s):
        self.line(self.at(s.value, CONDITIONAL), s)

    def do_Print(self, s):
        self.line(f"print({self.at(s.value, CONDITIONAL)})", s)

    def do_Fail(self, s):
        self.line(f"panic({self.at(s.value, CONDITIONAL)})", s)

    # ------------------------------------------------------------------------------------------ declarations

    def type_params(self, tparams):
        if not tparams:
            return ""
        parts = []
        for t in tparams:
            text = t.name
            if t.constraint is not None:
                text += ": " + self.type(t.constraint)
            if t.default is not None:
                text += " = " + self.type(t.default)
            parts.append(text)
        return "<" + ", ".join(parts) + ">"

    def function(self, f):
        params = []
        for p in f.params:
            text = f"{p.star}{p.name}: {self.type(p.element if p.star else p.ty)}"
            if p.default is not None:
                text += " = " + self.at(p.default, CONDITIONAL)
            params.append(text)
        result = "" if f.name == "init" or f.infer_ret else f" -> {self.type(f.ret)}"
        words = ("private " if f.private else "") + ("static " if f.static else "")
        end = "" if f.body is None else ":"
        self.line(f"{words}def {f.name}{self.type_params(f.tparams)}({', '.join(params)}){result}{end}")
        if f.body is not None:
            self.block(f.body)

    def class_(self, c):
        head = f"{'interface' if c.interface else 'class'} {c.name}{self.type_params(c.tparams)}"
        if c.superclass:
            head += " extends " + self.type(c.superclass)
        if c.interfaces:
            head += (" extends " if c.interface else " implements ") + ", ".join(map(self.type, c.interfaces))
        self.line(head + ":")
        self.depth += 1
        start = len(self.lines)
        for f in c.fields:
            words = ("private " if f.private else "") + ("static " if f.static else "")
            init = "" if f.init is None else " = " + self.at(f.init, CONDITIONAL)
            self.line(f"{words}{f.name}: {self.type(f.ty)}{init}")
        for inner in c.nested:
            self.class_(inner)
        for f in c.ctors + c.methods:
            self.function(f)
        if len(self.lines) == start:
            self.line("static nothing: Int = 0")
        self.depth -= 1

    def whole(self):
        for d in self.unit.declarations:
            self.line("")
            if isinstance(d, Func):
                self.function(d)
            elif isinstance(d, Group):
                for f in d.members:
                    self.function(f)
            else:
                self.class_(d)
        head = [f"package {self.unit.package}"] if self.unit.package else []
        head += [f"import {p}" for p in sorted(self.packages | getattr(self.unit, "more_imports", set()))]
        return head, self.lines


def escaped(text):
    for a, b in (("\\", "\\\\"), ('"', '\\"'), ("\n", "\\n"), ("\t", "\\t")):
        text = text.replace(a, b)
    return text


def print_program(program, qualify=False):
    sources = Sources()
    for unit in program.units:
        printer = UnitPrinter(unit, qualify)
        head, lines = printer.whole()
        sources.files[unit.path()] = "\n".join(head + lines) + "\n"
        for key, found in printer.places.items():
            sources.lines[key] = (unit.path(), [n + len(head) for n in found])
    sources.main = program.main.path()
    return sources
