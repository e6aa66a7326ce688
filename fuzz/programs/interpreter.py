"""The reference interpreter: runs a program's model and says what it prints and how it ends.

It shares nothing with the compiler. A program that does something outside of what is modelled is discarded.
"""

import model as m
from arithmetic import Failure, arithmetic, common_type, compare, convert
from arithmetic import float_text
from model import BOOL, FLOAT, FLOATS, INTS, NUMERIC, OBJECT, STRING, Class, assignable, subst, super_types, view
from library import ArrayList, HashMap, HashSet, LISTS, STRING_METHODS, Tuple, find_method, order, put, walk
from values import Boxed, Closure, Discard, Items, Keyed, Numbers, Obj, Pair, Row, key_of


class Panic(Exception):
    """A failure with the statement at which it happened."""

    def __init__(self, text, statement):
        super().__init__(text)
        self.text, self.statement = text, statement


class Returned(Exception):
    def __init__(self, value):
        self.value = value


class Broken(Exception):
    pass


class Continued(Exception):
    pass


class Frame:
    __slots__ = ("cells", "bindings", "self", "statement")

    def __init__(self, bindings, receiver=None):
        self.cells, self.bindings, self.self, self.statement = {}, bindings, receiver, None


class Outcome:
    """What a run shows: standard output, the exit status, and for a panic its text and statement."""

    def __init__(self, output, status, panic=None):
        self.output, self.status, self.panic = output, status, panic


def type_text(ty):
    """The structured text of a type, as type(T) gives it."""
    if ty.kind == "prim":
        return ty.ref
    if ty.kind == "arr":
        inner = type_text(ty.args[0])
        return (f"({inner})" if ty.args[0].kind == "fun" else inner) + "[]"
    if ty.kind == "opt":
        inner = type_text(ty.args[0])
        return (f"({inner})" if ty.args[0].kind == "fun" else inner) + "?"
    if ty.kind == "fun":
        return "(" + ", ".join(type_text(a) for a in ty.args[1:]) + ") -> " + type_text(ty.args[0])
    if ty.kind == "par":
        raise Discard("open type")
    clause = "<" + ", ".join(type_text(a) for a in ty.args) + ">" if ty.args else ""
    return qualified_name(ty.ref) + clause


def qualified_name(declaration):
    if hasattr(declaration, "qualified"):
        return declaration.qualified
    if declaration.outer:
        return qualified_name(declaration.outer) + "." + declaration.name
    package = declaration.unit.package
    return (package + "." if package else "") + declaration.name


MOST_CHARACTERS = 2_000_000


class Machine:
    def __init__(self, program, fuel=12000):
        self.program, self.fuel, self.output, self.statics = program, fuel, [], {}
        self.size = self.characters = 0
        self.depth = 0
        self.statement = None
        self.run_expression = {getattr(m, n): getattr(self, "on_" + n) for n in (
            "Lit Get Self GetField GetStatic Call Invoke Super CallStatic New Lib LibStatic Bin Un Cond Cast Is IsNull Lambda "
            "FuncRef CallValue ListLit MapLit NewArray Index TypeText ToText Coerce Identity").split()}
        self.run_statement = {getattr(m, n): getattr(self, "do_" + n) for n in (
            "Let Assign OpAssign If While For Return Break Continue Pass Do Print Fail").split()}

    # ------------------------------------------------------------------------------------------ the program

    def run(self):
        """Static fields in order of path, then main."""
        try:
            frame = Frame({})
            others = sorted((u for u in self.program.units if u is not self.program.main), key=lambda u: u.path())
            for unit in others + [self.program.main]:
                for declaration in unit.declarations:
                    self.make_statics(declaration, frame)
            main = next(d for d in self.program.main.declarations if isinstance(d, m.Func) and d.name == "main")
            result = self.call_func(main, {}, {}, None)
            return Outcome("".join(self.output), (result or 0) & 0xFF)
        except Panic as panic:
            return Outcome("".join(self.output), 101, panic)
        except RecursionError as error:
            raise Discard("too deep") from error

    def make_statics(self, declaration, frame):
        if isinstance(declaration, Class):
            for field in declaration.fields:
                if field.static:
                    self.statics[field] = self.zero(field.ty) if field.init is None else self.eval(field.init, frame)
            for inner in declaration.nested:
                self.make_statics(inner, frame)

    def write(self, text):
        self.size += len(text)
        if self.size > 20000:
            raise Discard("too much output")
        self.output.append(text)

    def joined(self, separator, parts):
        """A text of parts. All texts of a run together have a limit: they can double with each turn of a loop."""
        found = []
        for part in parts:
            self.characters += len(part) + len(separator)
            if self.characters > MOST_CHARACTERS:
                raise Discard("too much text")
            found.append(part)
        return separator.join(found)

    def tick(self):
        self.fuel -= 1
        if self.fuel < 0:
            raise Discard("runs too long")

    def zero(self, ty):
        if ty in INTS:
            return 0
        if ty in FLOATS:
            return 0.0
        return False if ty == BOOL else None

    def present(self, value, ty):
        """A null in a place of a type without `?` panics when it is read."""
        if value is None and ty.kind != "opt":
            raise Discard("null element")
        return value

    # ------------------------------------------------------------------------------------------- statements

    def block(self, statements, frame):
        for s in statements:
            self.exec(s, frame)

    def exec(self, s, frame):
        self.tick()
        self.statement = frame.statement = s
        try:
            self.run_statement[type(s)](s, frame)
        except Failure as failure:
            raise Panic(str(failure), self.statement) from None

    def do_Let(self, s, frame):
        ty = subst(s.var.ty, frame.bindings)
        frame.cells[s.var] = [self.zero(ty) if s.init is None else self.eval(s.init, frame)]

    def do_Assign(self, s, frame):
        self.store(s.target, frame, lambda old: self.eval(s.value, frame), read=False)

    def do_OpAssign(self, s, frame):
        ty = subst(s.target.ty, frame.bindings)

        def combined(old):
            value_ty = subst(s.value.ty, frame.bindings)
            return self.binary(s.op, old, ty, self.eval(s.value, frame), value_ty)
        self.store(s.target, frame, combined, read=True)

    def store(self, target, frame, make, read):
        if isinstance(target, m.Get):
            cell = frame.cells[target.var]
            cell[0] = make(cell[0])
        elif isinstance(target, m.GetField):
            obj = self.eval(target.obj, frame)
            if obj is None:
                raise Discard("null receiver")
            obj.fields[target.field] = make(obj.fields.get(target.field))
        elif isinstance(target, m.GetStatic):
            self.statics[target.field] = make(self.statics[target.field])
        else:
            obj, index = self.eval(target.obj, frame), self.eval(target.index, frame)
            if isinstance(obj, Keyed):
                if read:
                    raise Discard("compound assignment to an entry")
                put(self, obj, [index, make(None)], {})
                return
            old = None
            if read:
                old = self.element(obj, index)
            value = make(old)
            self.element(obj, index)
            obj.items[index] = value

    def element(self, obj, index):
        items = obj.items
        if not 0 <= index < len(items):
            raise Failure(f"index {index} out of range for length {len(items)}")
        return items[index]

    def do_If(self, s, frame):
        for condition, body in s.arms:
            if self.eval(condition, frame):
                return self.block(body, frame)
        if s.other is not None:
            self.block(s.other, frame)

    def do_While(self, s, frame):
        while self.eval(s.condition, frame):
            self.tick()
            try:
                self.block(s.body, frame)
            except Broken:
                break
            except Continued:
                pass
            self.statement = frame.statement = s

    def do_For(self, s, frame):
        source = self.eval(s.source, frame)
        for value in walk(self, source):
            self.tick()
            frame.cells[s.var] = [value]
            try:
                self.block(s.body, frame)
            except Broken:
                break
            except Continued:
                pass

    def do_Return(self, s, frame):
        raise Returned(None if s.value is None else self.eval(s.value, frame))

    def do_Break(self, s, frame):
        raise Broken()

    def do_Continue(self, s, frame):
        raise Continued()

    def do_Pass(self, s, frame):
        pass

    def do_Do(self, s, frame):
        self.eval(s.value, frame)

    def do_Print(self, s, frame):
        value = self.eval(s.value, frame)
        self.write(self.text(value, subst(s.value.ty, frame.bindings)) + "\n")

    def do_Fail(self, s, frame):
        raise Failure(self.eval(s.value, frame))

    # ------------------------------------------------------------------------------------------- expressions

    def eval(self, e, frame):
        self.tick()
        return self.run_expression[type(e)](e, frame)

    def type_of(self, e, frame):
        """The static type under the bindings of the specialization that runs."""
        if isinstance(e, m.Bin) and e.ty is None:
            return common_type(self.type_of(e.a, frame), self.type_of(e.b, frame))
        return subst(e.ty, frame.bindings)

    def on_Lit(self, e, frame):
        return e.value

    def on_Get(self, e, frame):
        return frame.cells[e.var][0]

    def on_Self(self, e, frame):
        return frame.self

    def on_GetField(self, e, frame):
        obj = self.eval(e.obj, frame)
        if obj is None:
            raise Failure("null receiver")
        value = obj.fields[e.field]
        return value

    def on_GetStatic(self, e, frame):
        if e.field not in self.statics:
            raise Discard("static field read before it is made")
        return self.statics[e.field]

    def on_TypeText(self, e, frame):
        return type_text(subst(e.of, frame.bindings))

    def on_ToText(self, e, frame):
        return self.text(self.eval(e.a, frame), self.type_of(e.a, frame))

    def on_Identity(self, e, frame):
        return self.eval(e.a, frame)

    def on_Coerce(self, e, frame):
        return self.coerce(self.eval(e.a, frame), self.type_of(e.a, frame), subst(e.ty, frame.bindings))

    def coerce(self, value, source, target):
        if source == target or value is None:
            return value
        if target.kind == "opt":
            return self.coerce(value, source.args[0] if source.kind == "opt" else source, target.args[0])
        if source.kind == "opt":
            raise Discard("T? as T")
        if target in NUMERIC:
            return convert(value, source, target)
        if source in NUMERIC and target not in NUMERIC:
            return Boxed(source, value)
        return value

    def on_Cast(self, e, frame):
        value, source, target = self.eval(e.a, frame), self.type_of(e.a, frame), subst(e.ty, frame.bindings)
        return self.cast(value, source, target)

    def cast(self, value, source, target):
        if source == target:
            return value
        if target.kind == "opt":
            return None if value is None else self.cast(value, source.args[0] if source.kind == "opt" else source, target.args[0])
        if source.kind == "opt":
            if value is None:
                raise Discard("cast of null")
            return self.cast(value, source.args[0], target)
        if source in NUMERIC and target in NUMERIC:
            return convert(value, source, target)
        if source in NUMERIC:
            return Boxed(source, value)
        if value is None:
            raise Discard("cast of null")
        if target == OBJECT:
            return value
        actual = self.runtime_type(value)
        if target in NUMERIC:
            if actual != target:
                raise Failure(f"cannot cast {type_text(actual)} to {type_text(target)}")
            return value.value
        if not self.conforms(actual, target):
            raise Failure(f"cannot cast {type_text(actual)} to {type_text(target)}")
        return value

    def conforms(self, actual, target):
        return assignable(target, actual) if target.kind == "cls" else actual == target or target == OBJECT

    def runtime_type(self, value):
        if isinstance(value, (Boxed, Obj, Closure)):
            return value.type
        if isinstance(value, bool):
            return BOOL
        if isinstance(value, str):
            return STRING
        if isinstance(value, (Items, Keyed)):
            return m.cls(value.kind, *value.args)
        if isinstance(value, Pair):
            return m.cls(Tuple, *value.args)
        if isinstance(value, Row):
            return m.arr(value.element)
        raise Discard("type of a value")

    def on_Is(self, e, frame):
        value, source, target = self.eval(e.a, frame), self.type_of(e.a, frame), subst(e.test, frame.bindings)
        if source.kind == "opt":
            if value is None:
                return e.negated
            source = source.args[0]
        if source in NUMERIC:
            value = Boxed(source, value)
        actual = self.runtime_type(value)
        if target.kind in ("opt", "fun") or actual.kind == "fun":
            raise Discard("is on a function or optional type")
        return self.conforms(actual, target) != e.negated

    def on_IsNull(self, e, frame):
        return (self.eval(e.a, frame) is None) != e.negated

    def on_Cond(self, e, frame):
        return self.eval(e.a if self.eval(e.c, frame) else e.b, frame)

    def on_Un(self, e, frame):
        value = self.eval(e.a, frame)
        if e.op == "!":
            return not value
        ty = self.type_of(e.a, frame)
        value = -value if e.op == "-" else value
        return arithmetic("+", value, 0, ty) if ty in INTS else value

    def on_Bin(self, e, frame):
        if e.op == "&&":
            return self.eval(e.a, frame) and self.eval(e.b, frame)
        if e.op == "||":
            return self.eval(e.a, frame) or self.eval(e.b, frame)
        a = self.eval(e.a, frame)
        a_ty = self.type_of(e.a, frame)
        b = self.eval(e.b, frame)
        return self.binary(e.op, a, a_ty, b, self.type_of(e.b, frame))

    def binary(self, op, a, a_ty, b, b_ty):
        if op in ("==", "!="):
            return self.equal(a, a_ty, b, b_ty) == (op == "==")
        if op in ("<", "<=", ">", ">="):
            c = self.compare(a, b)
            return {"<": c < 0, "<=": c <= 0, ">": c > 0, ">=": c >= 0}[op]
        if op == "+" and STRING in (a_ty, b_ty):
            return self.joined("", (self.text(a, a_ty), self.text(b, b_ty)))
        if a_ty.kind == "cls":
            method = self.operator(a_ty, op, b_ty)
            return self.invoke(a, method, [b])
        ty = common_type(a_ty, b_ty)
        if ty is None:
            raise Discard("no common type")
        return arithmetic(op, convert(a, a_ty, ty), convert(b, b_ty, ty), ty)

    def operator(self, ty, op, b_ty):
        for t in super_types(ty):
            for method in t.ref.methods if isinstance(t.ref, Class) else ():
                if method.name == "operator" + op and assignable(subst(method.params[0].ty, m.own_bindings(t)), b_ty):
                    return method
        raise Discard("no operator")

    def compare(self, a, b):
        if isinstance(a, Obj):
            method = self.named_method(a.type, "compareTo")
            if method is None:
                raise Discard("no order")
            return self.invoke(a, method, [b])
        if isinstance(a, Boxed):
            a = a.value
        if isinstance(b, Boxed):
            b = b.value
        if isinstance(a, float) and isinstance(b, (int, float)) or isinstance(b, float):
            if a != a or b != b:
                raise Discard("order of nan")
        return order(a, b) if isinstance(a, Pair) else compare(a, b)

    def equal(self, a, a_ty, b, b_ty):
        if a is None or b is None:
            return a is None and b is None
        if isinstance(a, Boxed) or isinstance(b, Boxed):
            a = a if isinstance(a, Boxed) else Boxed(a_ty, a)
            b = b if isinstance(b, Boxed) else Boxed(b_ty, b)
            return a.type == b.type and a.value == b.value
        if isinstance(a, Obj):
            for name in ("operator==", "equals"):
                method = self.named_method(a.type, name)
                if method is not None:
                    return self.invoke(a, method, [b])
            return a is b
        if isinstance(a, Row) or isinstance(b, Row):
            # Arrays are equal to themselves only.
            return a is b
        if isinstance(a, (Items, Row)):
            if not isinstance(b, (Items, Row)):
                return False
            left, right = a.args[0] if isinstance(a, Items) else a.element, b.args[0] if isinstance(b, Items) else b.element
            if left != right or isinstance(a, Row) != isinstance(b, Row):
                raise Discard("equality of lists of several types")
            return len(a.items) == len(b.items) and all(self.equal(x, left, y, right) for x, y in zip(a.items, b.items))
        if isinstance(a, Keyed):
            if not isinstance(b, Keyed) or a.args != b.args or a.kind is not b.kind:
                raise Discard("equality of maps of several types")
            if a.kind is HashSet:
                return a.entries.keys() == b.entries.keys()
            return a.entries.keys() == b.entries.keys() and all(
                self.equal(a.entries[k][1], a.args[1], b.entries[k][1], a.args[1]) for k in a.entries)
        if isinstance(a, Pair):
            return isinstance(b, Pair) and self.equal(a.first, a.args[0], b.first, b.args[0]) and self.equal(a.second, a.args[1], b.second, b.args[1])
        if isinstance(a, Closure) or isinstance(b, Closure):
            raise Discard("equality of functions")
        if type(a) is not type(b) and not (isinstance(a, (int, float)) and isinstance(b, (int, float))):
            return False
        return a == b

    # ------------------------------------------------------------------------------------------------- texts

    def text(self, value, ty):
        if value is None:
            return "null"
        if ty is not None and ty.kind == "opt":
            return self.text(value, ty.args[0])
        if isinstance(value, Boxed):
            return self.text(value.value, value.type)
        if isinstance(value, bool):
            return "true" if value else "false"
        if isinstance(value, str):
            return value
        if isinstance(value, (int, float)):
            return float_text(value, ty == FLOAT) if ty in FLOATS else str(value)
        if isinstance(value, Items):
            return "[" + self.joined(", ", (self.text(x, value.args[0]) for x in value.items)) + "]"
        if isinstance(value, Row):
            return "[" + self.joined(", ", (self.text(x, value.element) for x in value.items)) + "]"
        if isinstance(value, Pair):
            return f"({self.text(value.first, value.args[0])}, {self.text(value.second, value.args[1])})"
        if isinstance(value, Keyed):
            if value.kind is HashSet:
                return "{" + self.joined(", ", (self.text(x, value.args[0]) for x in value.values())) + "}"
            rows = [value.row(k) for k in value.order()]
            entries = (self.text(k, value.args[0]) + ": " + self.text(v, value.args[1]) for k, v in rows)
            return "{" + self.joined(", ", entries) + "}"
        if isinstance(value, Obj):
            method = self.named_method(value.type, "toString")
            if method is None:
                raise Discard("default text of an object")
            return self.invoke(value, method, [])
        raise Discard("text of a value")

    # ------------------------------------------------------------------------------------------------- calls

    def named_method(self, ty, name):
        """The method of that name that an object of the class has; for names that are declared without overloads."""
        for t in super_types(ty):
            if isinstance(t.ref, Class):
                for method in t.ref.methods:
                    if method.name == name and method.body is not None:
                        return method
        return None

    def dispatch(self, target, ty):
        """The method that runs for a virtual call on an object of the given class."""
        if target.tparams or target.static or target.private:
            return target
        owners = super_types(ty)
        current = ty
        while current is not None:
            for method in current.ref.methods:
                if method.body is not None and target in method.all_overridden():
                    return method
            bindings = m.own_bindings(current)
            current = subst(current.ref.superclass, bindings) if current.ref.superclass else None
        found = [x for t in owners if isinstance(t.ref, Class) and t.ref.interface for x in t.ref.methods
                 if x.body is not None and target in x.all_overridden()]
        nearest = [x for x in found if not any(y is not x and x in y.all_overridden() for y in found)]
        if len(set(nearest)) != 1:
            raise Discard("several defaults")
        return nearest[0]

    def nearest(self, func, ty):
        """The generic method that hides others in a static type's lineage."""
        found = [f for t in super_types(ty) if isinstance(t.ref, Class) for f in t.ref.methods if func in f.all_overridden()]
        hiding = [f for f in found if not any(g is not f and f in g.all_overridden() for g in found)]
        if len(set(hiding)) != 1:
            raise Discard("several generic methods")
        return hiding[0]

    def invoke(self, receiver, target, args, targs=()):
        if receiver is None:
            raise Failure("null receiver")
        method = self.dispatch(target, receiver.type)
        bindings = m.own_bindings(view(receiver.type, method.owner))
        bindings.update(zip(method.tparams, targs))
        if method is not target:
            base = dict(m.own_bindings(view(receiver.type, target.owner)))
            args = [self.coerce(a, subst(p.ty, base), subst(q.ty, bindings))
                    for a, p, q in zip(args, target.params, method.params)]
        cells = {p: [a] for p, a in zip(method.params, args)}
        result = self.call_func(method, bindings, cells, receiver)
        return result

    def resolve(self, group, arg_types):
        """The overload that a call means: of those that accept it, the one whose parameters are all nearest."""
        def accepts(f):
            return len(f.params) == len(arg_types) and all(assignable(p.ty, a) for p, a in zip(f.params, arg_types))
        plain = [f for f in group.members if not f.tparams and accepts(f)]
        best = [f for f in plain if all(g is f or all(assignable(q.ty, p.ty) for p, q in zip(f.params, g.params)) for g in plain)]
        if len(best) == 1:
            return best[0]
        if plain:
            raise Discard("ambiguous overloads")
        raise Discard("no overload")

    def call_args(self, func, args, frame, bindings):
        """Cells of the parameters: arguments in the written order, then defaults in the order of parameters."""
        cells, rest, named = {}, {p: [] for p in func.params if p.star}, []
        for p, e in args:
            value = self.eval(e, frame)
            if p is not None and not isinstance(p, str) and p.star == "*":
                rest[p].append(value)
            elif isinstance(p, str):
                named.append((p, value))
            else:
                cells[p] = [value]
        inner = Frame(bindings)
        inner.cells = cells
        for p in func.params:
            if p.star == "*":
                cells[p] = [Items(ArrayList, (subst(p.element, bindings),), rest[p])]
            elif p.star == "**":
                found = Keyed(HashMap, (STRING, subst(p.element, bindings)))
                for name, value in named:
                    put(self, found, [name, value], {})
                cells[p] = [found]
            elif p not in cells:
                cells[p] = [self.eval(p.default, inner)]
        return cells

    def targets(self, e, frame):
        """The callee, with the argument list turned to its own parameters when it was chosen among overloads."""
        if not isinstance(e.target, m.Group):
            return e.target, e.args
        func = self.resolve(e.target, [self.type_of(a, frame) for _, a in e.args])
        return func, [(p, m.Coerce(a, p.ty)) for p, (_, a) in zip(func.params, e.args)]

    def on_Call(self, e, frame):
        func, args = self.targets(e, frame)
        bindings = dict(zip(func.tparams, (subst(t, frame.bindings) for t in e.targs)))
        return self.call_func(func, bindings, self.call_args(func, args, frame, bindings), None)

    on_CallStatic = on_Call

    def on_Invoke(self, e, frame):
        receiver = self.eval(e.obj, frame)
        if receiver is None:
            # Arguments come before the test for null.
            for _, a in e.args:
                self.eval(a, frame)
            raise Failure("null receiver")
        func, args = self.targets(e, frame)
        if isinstance(receiver, Boxed):
            raise Discard("method of a boxed value")
        if not isinstance(receiver, Obj):
            raise Discard("method of a built-in value")
        bindings = m.own_bindings(view(receiver.type, func.owner))
        targs = [subst(t, frame.bindings) for t in e.targs]
        if func.tparams:
            # Generic methods are chosen by the receiver's type in the source.
            nearer = self.nearest(func, self.type_of(e.obj, frame))
            if nearer is not func:
                args = [(p if isinstance(p, str) else nearer.params[func.params.index(p)], a) for p, a in args]
                func, bindings = nearer, m.own_bindings(view(receiver.type, nearer.owner))
        bindings.update(zip(func.tparams, targs))
        cells = self.call_args(func, args, frame, bindings)
        values = [cells[p][0] for p in func.params]
        return self.invoke(receiver, func, values, [bindings[t] for t in func.tparams])

    def on_Super(self, e, frame):
        bindings = m.own_bindings(view(frame.self.type, e.target.owner))
        return self.call_func(e.target, bindings, self.call_args(e.target, e.args, frame, bindings), frame.self)

    def on_New(self, e, frame):
        ty = subst(e.ty, frame.bindings)
        if not isinstance(ty.ref, Class):
            return self.new_library(ty, [self.eval(a, frame) for _, a in e.args])
        obj = Obj(ty)
        bindings = m.own_bindings(ty)
        cells = self.call_args(e.ctor, e.args, frame, bindings) if e.ctor else {}
        self.set_fields(obj, ty)
        if e.ctor:
            self.call_func(e.ctor, bindings, cells, obj)
        return obj

    def set_fields(self, obj, ty):
        """Fields get their initial values, those of the super class first, before a constructor's body runs."""
        if ty.ref.superclass:
            self.set_fields(obj, subst(ty.ref.superclass, m.own_bindings(ty)))
        frame = Frame(m.own_bindings(ty), obj)
        for field in ty.ref.fields:
            if not field.static:
                obj.fields[field] = self.zero(subst(field.ty, frame.bindings)) if field.init is None else self.eval(field.init, frame)

    def new_library(self, ty, args):
        if ty.ref in LISTS:
            return Items(ty.ref, ty.args, list(args[0].values()) if args else [])
        if ty.ref is Tuple:
            return Pair(ty.args, *args)
        made = Keyed(ty.ref, ty.args)
        if args:
            for x in args[0].values():
                if ty.ref is HashSet:
                    made.entries.setdefault(key_of(x), (x, None))
                else:
                    put(self, made, [x, args[0].entries[key_of(x)][1]], {})
        return made

    def on_Lib(self, e, frame):
        receiver = self.eval(e.obj, frame)
        args = [self.eval(a, frame) for _, a in e.args]
        if receiver is None:
            raise Failure("null receiver")
        if isinstance(receiver, str):
            if e.method == "replace" and args[0]:
                return self.joined(args[1], receiver.split(args[0]))
            return STRING_METHODS[e.method][2](receiver, *args)
        if e.method == "compareTo":
            return self.compare(receiver, args[0])
        _, method = find_method(self.type_of(e.obj, frame), e.method)
        bindings = dict(zip(method.tparams, (subst(t, frame.bindings) for t in e.targs)))
        return method.run(self, receiver, args, bindings)

    def on_LibStatic(self, e, frame):
        args = [self.eval(a, frame) for _, a in e.args]
        if e.method == "range":
            return Numbers(*args)
        method = e.owner.methods[e.method]
        return method.run(self, None, args, dict(zip(method.tparams, (subst(t, frame.bindings) for t in e.targs))))

    def call_func(self, func, bindings, cells, receiver):
        self.depth += 1
        if self.depth > 60:
            raise Discard("too deep")
        frame = Frame(bindings, receiver)
        frame.cells = cells
        outer = self.statement
        try:
            self.block(func.body, frame)
            return None
        except Returned as returned:
            return returned.value
        finally:
            self.depth -= 1
            self.statement = outer

    def on_Lambda(self, e, frame):
        captured = dict(frame.cells)

        def run(args):
            called = Frame(frame.bindings, frame.self)
            called.cells = dict(captured)
            called.cells.update({p: [a] for p, a in zip(e.params, args)})
            return self.eval(e.body, called)
        statement = self.statement

        def placed(args):
            outer, self.statement = self.statement, statement
            result = run(args)
            self.statement = outer
            return result
        return Closure(subst(e.ty, frame.bindings), placed)

    def on_FuncRef(self, e, frame):
        return Closure(subst(e.ty, frame.bindings), lambda args: self.call_func(e.func, {}, {p: [a] for p, a in zip(e.func.params, args)}, None))

    def apply(self, f, args):
        if f is None:
            raise Discard("null function")
        self.tick()
        return f.run(args)

    def on_CallValue(self, e, frame):
        f = self.eval(e.f, frame)
        return self.apply(f, [self.eval(a, frame) for a in e.args])

    # ------------------------------------------------------------------------------------------- collections

    def on_ListLit(self, e, frame):
        ty = subst(e.ty, frame.bindings)
        items = [self.eval(x, frame) for x in e.items]
        return Row(ty.args[0], items) if ty.kind == "arr" else Items(ArrayList, ty.args, items)

    def on_MapLit(self, e, frame):
        made = Keyed(HashMap, subst(e.ty, frame.bindings).args)
        for k, v in e.entries:
            key = self.eval(k, frame)
            put(self, made, [key, self.eval(v, frame)], {})
        return made

    def on_NewArray(self, e, frame):
        ty = subst(e.ty, frame.bindings)
        size = self.eval(e.size, frame)
        if size < 0 or size > 100:
            raise Discard("size of an array")
        return Row(ty.args[0], [self.zero(ty.args[0])] * size)

    def on_Index(self, e, frame):
        obj, index = self.eval(e.obj, frame), self.eval(e.index, frame)
        if obj is None:
            raise Failure("null receiver")
        if isinstance(obj, Obj):
            return self.invoke(obj, self.operator(self.type_of(e.obj, frame), "[]", self.type_of(e.index, frame)), [index])
        if isinstance(obj, Keyed):
            _, method = find_method(self.type_of(e.obj, frame), "get")
            return method.run(self, obj, [index], {})
        return self.present(self.element(obj, index), self.type_of(e, frame))


def run(program):
    return Machine(program).run()
