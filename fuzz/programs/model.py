"""The model of a vesk program: types, declarations, statements and expressions, without any text.

Everything refers to declarations as objects, never by name, so that a variant may rename or move them. Each expression
carries its static type, which may still name type parameters of the declaration around it.
"""

from typing import NamedTuple


class Ty(NamedTuple):
    """A type: kind is prim, cls, arr, opt, fun (result first) or par; ref is a name or a declaration."""

    kind: str
    ref: object = None
    args: tuple = ()


def prim(name):
    return Ty("prim", name)


BOOL, STRING, OBJECT, VOID, NULL = (prim(n) for n in ("Bool", "String", "Object", "Void", "Null"))
INT, LONG, UINT, ULONG, BYTE, SBYTE, SHORT, USHORT = (
    prim(n) for n in ("Int", "Long", "UInt", "ULong", "Byte", "SByte", "Short", "UShort"))
FLOAT, DOUBLE = prim("Float"), prim("Double")
NUMBER, ABSTRACT_INT, ABSTRACT_FLOAT = (prim(n) for n in ("Number", "AbstractInt", "AbstractFloat"))
INTS = (INT, LONG, UINT, ULONG, BYTE, SBYTE, SHORT, USHORT)
FLOATS = (FLOAT, DOUBLE)
NUMERIC = INTS + FLOATS


def cls(declaration, *args):
    return Ty("cls", declaration, tuple(args))


def arr(element):
    return Ty("arr", None, (element,))


def opt(inner):
    return inner if inner.kind == "opt" else Ty("opt", None, (inner,))


def fun(params, result):
    return Ty("fun", None, (result, *params))


def par(type_param):
    return Ty("par", type_param)


def subst(ty, bindings):
    """The type with type parameters replaced."""
    if ty is None or not bindings:
        return ty
    if ty.kind == "par":
        return bindings.get(ty.ref, ty)
    if not ty.args:
        return ty
    args = tuple(subst(a, bindings) for a in ty.args)
    if args == ty.args:
        return ty
    return opt(args[0]) if ty.kind == "opt" else Ty(ty.kind, ty.ref, args)


def mentions(ty, test):
    """Whether some part of the type passes the test."""
    return test(ty) or any(mentions(a, test) for a in ty.args)


def pars_of(ty, found=None):
    found = set() if found is None else found
    if ty.kind == "par":
        found.add(ty.ref)
    for a in ty.args:
        pars_of(a, found)
    return found


def own_bindings(ty):
    """The bindings that an instantiation gives its class's type parameters."""
    return dict(zip(ty.ref.tparams, ty.args))


def direct_supers(ty):
    if ty.kind != "cls":
        return []
    bindings = own_bindings(ty)
    return [subst(s, bindings) for s in ty.ref.direct_supers()]


def super_types(ty):
    """The type and all it extends or implements, nearest first, super classes before interfaces."""
    seen, queue = [], [ty]
    while queue:
        t = queue.pop(0)
        if t not in seen:
            seen.append(t)
            queue.extend(direct_supers(t))
    return seen


def view(ty, declaration):
    """The instantiation of a declaration that a type is below, or None."""
    for t in super_types(ty):
        if t.kind == "cls" and t.ref is declaration:
            return t
    return None


WIDER = {
    "SByte": ("Short", "Int", "Long", "Float", "Double"), "Byte": ("UShort", "UInt", "ULong", "Short", "Int", "Long", "Float", "Double"),
    "Short": ("Int", "Long", "Float", "Double"), "UShort": ("UInt", "ULong", "Int", "Long", "Float", "Double"),
    "Int": ("Long", "Double"), "UInt": ("ULong", "Long", "Double"), "Long": ("Double",), "ULong": ("Double",),
    "Float": ("Double",), "Double": (),
}


def assignable(target, source):
    """Whether a value of the source type may stand where the target type is expected (never from T? to T)."""
    if target == source or target == OBJECT and source.kind != "opt" and source not in (VOID, NULL):
        return True
    if target.kind == "opt":
        return source == NULL or assignable(target.args[0], source.args[0] if source.kind == "opt" else source)
    if source.kind == "opt" or source == NULL:
        return False
    if target.kind == "prim" and source.kind == "prim":
        if target in (NUMBER, ABSTRACT_INT, ABSTRACT_FLOAT):
            return source in {NUMBER: NUMERIC, ABSTRACT_INT: INTS, ABSTRACT_FLOAT: FLOATS}[target]
        return target.ref in WIDER.get(source.ref, ())
    if target.kind == "cls":
        if source.kind == "cls":
            return target in super_types(source)
        if source.kind == "prim" and getattr(target.ref, "qualified", "") == "vesk.Comparable":
            return target.args == (source,) and source not in (OBJECT, VOID)
    return False


# ---------------------------------------------------------------------------------------------- declarations


class TypeParam:
    def __init__(self, name, constraint=None, default=None):
        self.name, self.constraint, self.default = name, constraint, default


class Var:
    """A local variable or parameter; star is "", "*" or "**", and ty the type that the body sees."""

    def __init__(self, name, ty, default=None, star="", element=None):
        self.name, self.ty, self.default, self.star, self.element = name, ty, default, star, element
        self.assigned = True


class Func:
    """A function, method or constructor; body is None for an abstract method."""

    def __init__(self, name, tparams, params, ret, body=None, owner=None, static=False):
        self.name, self.tparams, self.params, self.ret, self.body = name, tparams, params, ret, body
        self.owner, self.static, self.overridden, self.private = owner, static, [], False
        self.infer_ret, self.unit, self.group = False, None, None

    def all_overridden(self):
        found = [self]
        for base in self.overridden:
            found.extend(m for m in base.all_overridden() if m not in found)
        return found


class Group:
    """Overloads of one name: a call names the group, the argument types choose."""

    def __init__(self, name, members):
        self.name, self.members = name, members
        for m in members:
            m.group = self


class Field:
    def __init__(self, name, ty, init=None, static=False, private=False):
        self.name, self.ty, self.init, self.static, self.private = name, ty, init, static, private


class Class:
    def __init__(self, name, tparams=(), interface=False):
        self.name, self.tparams, self.interface = name, list(tparams), interface
        self.superclass, self.interfaces, self.fields, self.ctors, self.methods, self.nested = None, [], [], [], [], []
        self.outer, self.unit = None, None

    def direct_supers(self):
        return ([self.superclass] if self.superclass else []) + self.interfaces

    def this(self):
        return cls(self, *(par(t) for t in self.tparams))


class LibraryClass:
    """A class of the standard library, as far as programs use it; one object per class in the whole process."""

    def __init__(self, qualified, tparams, interface=False):
        self.qualified, self.name = qualified, qualified.rsplit(".", 1)[1]
        self.tparams, self.interface, self.supers, self.methods, self.nested = tparams, interface, [], {}, []

    def direct_supers(self):
        return self.supers

    def __deepcopy__(self, memo):
        return self

    def __reduce__(self):
        return "lookup", (self.qualified,)


class Unit:
    def __init__(self, package, file):
        self.package, self.file, self.declarations = package, file, []

    def path(self):
        return (self.package.replace(".", "/") + "/" if self.package else "") + self.file


class Program:
    def __init__(self, seed):
        self.seed, self.units, self.main, self.tags = seed, [], None, {}


# ------------------------------------------------------------------------------------------------ statements


class Node:
    fields = ()

    def __init__(self, *values, **more):
        for name, value in zip(self.fields, values):
            setattr(self, name, value)
        for name, value in more.items():
            setattr(self, name, value)


def node(name, *fields):
    return type(name, (Node,), {"fields": fields, "__module__": __name__})


Let = node("Let", "var", "typed", "init")                 # typed: the type is written; init None: the zero value
Assign = node("Assign", "target", "value")
OpAssign = node("OpAssign", "op", "target", "value")
If = node("If", "arms", "other")                          # arms: [(condition, [statement])]
While = node("While", "condition", "body")
For = node("For", "var", "source", "body")
Return = node("Return", "value")
Break = node("Break")
Continue = node("Continue")
Pass = node("Pass")
Do = node("Do", "value")
Print = node("Print", "value")
Fail = node("Fail", "value")                              # panic(text)

# ----------------------------------------------------------------------------------------------- expressions
# Each has `ty` as its last field.

Lit = node("Lit", "value", "ty")
Get = node("Get", "var", "ty")
Self = node("Self", "ty")
GetField = node("GetField", "obj", "field", "ty")
GetStatic = node("GetStatic", "owner", "field", "ty")
Call = node("Call", "target", "targs", "args", "ty")      # target: Func or Group; args: [(Var or None, expression)]
Invoke = node("Invoke", "obj", "target", "targs", "args", "ty")
Super = node("Super", "target", "args", "ty")
CallStatic = node("CallStatic", "owner", "target", "targs", "args", "ty")
New = node("New", "ctor", "args", "ty")
Lib = node("Lib", "obj", "method", "targs", "args", "ty")
LibStatic = node("LibStatic", "owner", "method", "targs", "args", "ty")
Bin = node("Bin", "op", "a", "b", "ty")
Un = node("Un", "op", "a", "ty")
Cond = node("Cond", "c", "a", "b", "ty")
Cast = node("Cast", "a", "ty")
Is = node("Is", "a", "test", "negated", "ty")
IsNull = node("IsNull", "a", "negated", "ty")
Lambda = node("Lambda", "params", "body", "ty")
FuncRef = node("FuncRef", "func", "ty")
CallValue = node("CallValue", "f", "args", "ty")
ListLit = node("ListLit", "items", "ty")
MapLit = node("MapLit", "entries", "ty")
NewArray = node("NewArray", "size", "ty")
Index = node("Index", "obj", "index", "ty")
TypeText = node("TypeText", "of", "ty")
ToText = node("ToText", "a", "ty")
Coerce = node("Coerce", "a", "ty")                        # what an assignment does silently; nothing is printed
Identity = node("Identity", "a", "ty")                    # a generic identity function around a value
