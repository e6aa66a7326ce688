"""What is in sight at a place of a program, and which types fit there."""

import model as m
from model import (BOOL, FLOATS, INT, INTS, LONG, OBJECT, STRING, VOID, Class, LibraryClass, assignable, cls,
    mentions, par, subst, super_types)
from library import Comparable, Tuple


class NoExpression(Exception):
    """Nothing of the wanted type can be made here."""


class Scope:
    """Variables, receiver and type parameters at one place; copies are made for inner blocks."""

    def __init__(self, unit, variables=(), this=None, tparams=(), ret=VOID):
        self.unit, self.variables, self.this, self.tparams, self.ret = unit, list(variables), this, list(tparams), ret
        self.loops, self.inside_lambda, self.owner = 0, False, this.ref if this else None

    def inner(self, *variables):
        made = Scope(self.unit, self.variables, self.this, self.tparams, self.ret)
        made.loops, made.inside_lambda, made.owner = self.loops, self.inside_lambda, self.owner
        made.variables.extend(variables)
        return made

    def sees(self, declaration):
        """The default package is not visible from other packages."""
        outermost = declaration
        while getattr(outermost, "outer", None):
            outermost = outermost.outer
        return bool(outermost.unit.package) or outermost.unit is self.unit


def unify(pattern, target, free, bindings):
    """Whether the pattern becomes the target by binding free type parameters."""
    if pattern.kind == "par" and pattern.ref in free:
        if pattern.ref in bindings:
            return bindings[pattern.ref] == target
        bindings[pattern.ref] = target
        return True
    if pattern.kind != target.kind or pattern.ref != target.ref or len(pattern.args) != len(target.args):
        return False
    return all(unify(p, t, free, bindings) for p, t in zip(pattern.args, target.args))


def satisfies(ty, constraint):
    """Whether a type argument meets a constraint in which type parameters are replaced already."""
    if constraint is None:
        return True
    if ty.kind == "par":
        own = ty.ref.constraint
        return own is not None and (own == constraint or assignable(constraint, own))
    return ty.kind != "opt" and assignable(constraint, ty)


def comparable_type(ty):
    """Whether values of the type have an order that the reference interpreter knows."""
    if ty.kind == "par":
        return ty.ref.constraint is not None and ty.ref.constraint == cls(Comparable, ty)
    if ty.kind == "prim":
        return ty in INTS + FLOATS + (STRING, BOOL)
    return ty.kind == "cls" and isinstance(ty.ref, Class) and cls(Comparable, ty) in super_types(ty)


def key_type(ty):
    return ty in (INT, STRING, LONG, BOOL) or ty.kind == "cls" and ty.ref is Tuple and all(key_type(a) for a in ty.args)


def printable(ty):
    return not mentions(ty, lambda t: t.kind == "fun" or t == VOID or t.kind == "cls" and isinstance(t.ref, LibraryClass) and t.ref is Comparable)


def optional_pars(ty):
    """Type parameters that stand directly before a `?` in a type."""
    found = m.pars_of(ty.args[0]) if ty.kind == "opt" and ty.args[0].kind == "par" else set()
    return found.union(*(optional_pars(part) for part in ty.args))


def inferable(tparams, params_and_args, bindings):
    """Whether the compiler must find exactly these type arguments from the arguments' static types.

    Cautious: says yes only where every argument whose declared type names a type parameter has precisely that type, or
    is below it.
    """
    seen = set()
    for declared, e in params_and_args:
        named = m.pars_of(declared) & set(tparams)
        if not named:
            continue
        wanted = subst(declared, bindings)
        if e is None or isinstance(e, m.Coerce) or e.ty is None:
            return False
        if isinstance(e, m.ListLit) and e.ty.kind == "arr" or isinstance(e, m.Lit) and e.value is None:
            return False
        # Of a type parameter around the call that is bound to an optional type itself, nobody can tell which `?` is whose.
        if any(m.pars_of(bindings[t]) for t in optional_pars(declared) & set(tparams)):
            return False
        if e.ty != wanted and not (wanted.kind == "cls" and declared.kind == "cls" and wanted in super_types(e.ty)):
            return False
        seen |= named
    return seen == set(tparams) and not any(t.kind == "opt" or t == OBJECT for t in bindings.values())


def class_par(scope_class):
    return [par(t) for t in scope_class.tparams]
