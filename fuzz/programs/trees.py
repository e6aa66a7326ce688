"""Walks over the statements and expressions of a program's model."""

import model as m
from model import Class, Func, Group


def functions(program):
    """All functions, methods and constructors, with their unit."""
    for unit in program.units:
        for d in unit.declarations:
            yield from ((f, unit) for f in functions_of(d))


def functions_of(d):
    if isinstance(d, Func):
        yield d
    elif isinstance(d, Group):
        yield from d.members
    elif isinstance(d, Class):
        yield from d.ctors
        yield from d.methods
        for inner in d.nested:
            yield from functions_of(inner)


def classes(program):
    for unit in program.units:
        for d in unit.declarations:
            if isinstance(d, Class):
                yield from with_nested(d)


def with_nested(c):
    yield c
    for inner in c.nested:
        yield from with_nested(inner)


def nodes(value):
    """Every node below a value made of nodes, lists and tuples, the value itself included."""
    if isinstance(value, m.Node):
        yield value
        for name in value.fields:
            if name != "ty":
                yield from nodes(getattr(value, name))
    elif isinstance(value, (list, tuple)) and not isinstance(value, m.Ty):
        for x in value:
            yield from nodes(x)


def all_nodes(program):
    for f, _ in functions(program):
        yield from nodes(f.body or [])
        for p in f.params:
            if p.default is not None:
                yield from nodes(p.default)
    for c in classes(program):
        for field in c.fields:
            if field.init is not None:
                yield from nodes(field.init)


def blocks(statements):
    """All lists of statements, outer ones first."""
    yield statements
    for s in statements:
        if isinstance(s, m.If):
            for _, body in s.arms:
                yield from blocks(body)
            if s.other is not None:
                yield from blocks(s.other)
        elif isinstance(s, (m.While, m.For)):
            yield from blocks(s.body)


def rewrite(value, change):
    """The same with every expression replaced by what `change` makes of it, inner ones first."""
    if isinstance(value, m.Node):
        for name in value.fields:
            if name != "ty":
                setattr(value, name, rewrite(getattr(value, name), change))
        return change(value)
    if isinstance(value, list):
        value[:] = [rewrite(x, change) for x in value]
        return value
    if isinstance(value, tuple) and not isinstance(value, m.Ty):
        return tuple(rewrite(x, change) for x in value)
    return value


def copied(value, variables, ty):
    """A copy with types changed by `ty`, and with the variables that are keys of `variables` replaced by new ones."""
    if isinstance(value, m.Node):
        made = type(value).__new__(type(value))
        made.__dict__.update({k: copied(v, variables, ty) for k, v in value.__dict__.items()})
        if isinstance(getattr(made, "owner", None), m.Ty) and made.owner.kind == "cls":
            made.owner = made.owner.ref
        return made
    if isinstance(value, m.Ty):
        return ty(value)
    if isinstance(value, m.Var):
        if value in variables and variables[value] is None:
            new = m.Var(value.name, ty(value.ty), copied(value.default, variables, ty), value.star, value.element and ty(value.element))
            variables[value] = new
        return variables.get(value, value)
    if isinstance(value, list):
        return [copied(x, variables, ty) for x in value]
    if isinstance(value, tuple):
        return tuple(copied(x, variables, ty) for x in value)
    return value
