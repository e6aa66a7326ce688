"""Makes expressions of a wanted type."""

import model as m
from model import (ABSTRACT_FLOAT, ABSTRACT_INT, BOOL, BYTE, DOUBLE, FLOAT, FLOATS, INT, INTS, LONG, NULL, NUMBER, NUMERIC, OBJECT, SBYTE,
                   SHORT, STRING, UINT, ULONG, USHORT, VOID, Class, LibraryClass, Var, arr, assignable, cls, fun, mentions, opt,
                   own_bindings, par, pars_of, subst, super_types)
from arithmetic import RANGES, common_type
import library
from library import (ArrayList, Collection, Comparable, HashMap, HashSet, IList, ImmutableList, LinkedList, List, Map,
    SortedMap, Tuple, STRING_METHODS)
from scope import NoExpression, comparable_type, inferable, key_type, printable, satisfies, unify

WORDS = ("", "a", "b", "ab", "x y", "zeta", "né", "Q", "über", "0", "long text", "\u65e5\u672c", "e\"f", "back\\slash")
SPECIAL_INTS = (0, 1, 2, 3, 7, 10, 100, 255, -1, -2, -7)


def computes_literals(e):
    """Whether an expression applies an operator to two integer literals, itself or in an operand."""
    if isinstance(e, m.Lit):
        return False
    if isinstance(e, m.Bin):
        of_literals = isinstance(e.a, m.Lit) and isinstance(e.b, m.Lit)
        return of_literals or computes_literals(e.a) or computes_literals(e.b)
    if isinstance(e, m.Un):
        return computes_literals(e.a)
    if isinstance(e, m.Cond):
        return any(isinstance(x, m.Lit) or computes_literals(x) for x in (e.a, e.b))
    return False


class Expressions:
    """Mixed into the generator, which has the random source, the classes and the functions made so far."""

    # ------------------------------------------------------------------------------------------------- types

    def value_type(self, scope, depth=2):
        """Some type that values can be made of at this place."""
        r = self.random
        choice = r.random()
        if depth <= 0 or choice < 0.45:
            if scope.tparams and r.random() < 0.4:
                usable = [par(t) for t in scope.tparams if self.has_source(par(t), scope)]
                if usable:
                    return r.choice(usable)
            return r.choice((INT, INT, INT, STRING, STRING, DOUBLE, BOOL, LONG, INT, SHORT, BYTE, UINT, FLOAT, ULONG, SBYTE, USHORT, OBJECT))
        if choice < 0.62:
            made = self.class_type(scope, depth)
            if made:
                return made
        if choice < 0.74:
            return cls(r.choice((ArrayList, ArrayList, LinkedList, List, Collection, ImmutableList)), self.value_type(scope, depth - 1))
        if choice < 0.80:
            return cls(r.choice((HashMap, HashMap, Map, SortedMap)), self.key(), self.value_type(scope, depth - 1))
        if choice < 0.83:
            return cls(HashSet, self.key())
        if choice < 0.88:
            return cls(Tuple, self.value_type(scope, depth - 1), self.value_type(scope, depth - 1))
        if choice < 0.92:
            return arr(self.value_type(scope, depth - 1))
        if choice < 0.96:
            return opt(self.value_type(scope, depth - 1))
        return fun([self.value_type(scope, 0) for _ in range(r.randint(0, 2))], self.value_type(scope, depth - 1))

    def key(self):
        return self.random.choice((INT, STRING, STRING, LONG, INT, BOOL) if self.random.random() < 0.9 else (cls(Tuple, INT, STRING),))

    def has_source(self, ty, scope):
        """Whether a value of a type parameter can be had at this place."""
        return any(v.ty == ty for v in scope.variables) or bool(
            scope.this and any(f.ty == ty for f in scope.this.ref.fields if not f.static))

    def class_type(self, scope, depth, among=None):
        usable = [c for c in (self.classes if among is None else among) if scope.sees(c) and c.complete]
        if not usable:
            return None
        c = self.random.choice(usable)
        return self.instance(c, scope, depth - 1)

    def instance(self, c, scope, depth):
        bindings = {}
        for t in c.tparams:
            bindings[t] = self.argument_type(subst(t.constraint, bindings) if t.constraint else None, t, scope, depth)
        return cls(c, *(bindings[t] for t in c.tparams))

    def argument_type(self, constraint, tparam, scope, depth):
        """A type that meets the constraint, which may name the parameter itself."""
        r = self.random
        if constraint is None:
            for _ in range(5):
                made = self.value_type(scope, depth)
                if r.random() < 0.03 or not has_function(made):
                    return made
            return INT
        candidates = [par(t) for t in scope.tparams if satisfies(par(t), subst(constraint, {tparam: par(t)})) and self.has_source(par(t), scope)]
        if constraint.kind == "prim":
            candidates += {NUMBER: list(NUMERIC), ABSTRACT_INT: list(INTS), ABSTRACT_FLOAT: list(FLOATS)}[constraint]
        else:
            pool = [INT, STRING, DOUBLE, LONG, SHORT, BYTE, BOOL]
            pool += [cls(c) for c in self.classes if not c.tparams and scope.sees(c) and c.complete]
            if constraint.args and not pars_of(constraint):
                pool += [subst(c.this(), dict(zip(c.tparams, constraint.args))) for c in self.classes
                         if c.complete and len(c.tparams) == len(constraint.args) and scope.sees(c)]
            candidates += [t for t in pool if satisfies(t, subst(constraint, {tparam: t}))]
            if not pars_of(constraint) and constraint.ref is not Comparable:
                candidates.append(constraint)
        candidates = [t for t in candidates if t.kind != "cls" or self.within_constraints(t)]
        if not candidates:
            raise NoExpression("no type for a constraint")
        return r.choice(candidates)

    def within_constraints(self, ty):
        """Whether the type arguments of an instantiation meet its class's constraints."""
        if ty.kind == "cls":
            bindings = own_bindings(ty)
            if not all(satisfies(a, subst(t.constraint, bindings)) for t, a in bindings.items()):
                return False
        return all(self.within_constraints(a) for a in ty.args)

    # ------------------------------------------------------------------------------------------- expressions

    def expr(self, ty, scope, depth=3):
        """An expression whose static type is exactly `ty`."""
        r = self.random
        self.budget -= 1
        if depth <= 0 or self.budget < 0:
            return self.leaf(ty, scope)
        for _ in range(6):
            maker = r.choice(self.makers(ty))
            made = maker(ty, scope, depth - 1)
            if made is not None:
                return made
        return self.leaf(ty, scope)

    def makers(self, ty):
        makers = [self.from_variable] * 4 + [self.from_member] * 4 + [self.from_call] * 4 + [self.from_library] * 3 + [
            self.from_condition, self.from_cast, self.from_index, self.from_function_value, self.from_static]
        if ty.kind == "prim":
            makers += [self.from_operator] * 6 + [self.from_literal] * 3
        elif ty.kind == "par":
            makers += [self.from_variable] * 4 + [self.from_operator]
        else:
            makers += [self.from_construction] * 6
        return makers

    def leaf(self, ty, scope):
        if self.random.random() < 0.6 or ty.kind == "par":
            made = self.from_variable(ty, scope, 0)
            if made is not None:
                return made
        if ty.kind == "prim":
            return self.from_literal(ty, scope, 0) or self.leaf_object(ty, scope)
        if ty.kind == "par":
            for maker in (self.from_member, self.from_function_value, self.from_index):
                made = maker(ty, scope, 0)
                if made is not None:
                    return made
            raise NoExpression("no value of a type parameter")
        made = self.from_construction(ty, scope, 0)
        if made is None:
            raise NoExpression("no value")
        return made

    def leaf_object(self, ty, scope):
        if ty == OBJECT:
            return m.Cast(self.from_literal(self.random.choice((INT, STRING, DOUBLE, BOOL, LONG)), scope, 0), OBJECT)
        raise NoExpression("no literal")

    def fitting(self, ty, scope, depth=3):
        """An expression that may be assigned to `ty`, with the silent conversion made visible."""
        r = self.random
        if r.random() < 0.55:
            return self.expr(ty, scope, depth)
        source = None
        if ty in NUMERIC:
            if r.random() < 0.5:
                value = r.choice([x for x in SPECIAL_INTS if ty in FLOATS or RANGES[ty.ref][0] <= x <= RANGES[ty.ref][1]])
                return m.Coerce(m.Lit(value, INT), ty) if ty != INT else m.Lit(value, INT)
            smaller = [t for t in NUMERIC if t != ty and assignable(ty, t)]
            source = r.choice(smaller) if smaller else None
        elif ty == OBJECT:
            source = self.value_type(scope, 1)
            if source.kind == "opt" or has_function(source) or source == OBJECT:
                source = STRING
        elif ty.kind == "opt":
            if r.random() < 0.3:
                return m.Coerce(m.Lit(None, NULL), ty)
            source = ty.args[0]
        elif ty.kind == "cls":
            source = self.type_below(ty, scope)
        if source is None:
            return self.expr(ty, scope, depth)
        made = self.expr(source, scope, depth)
        if source == ty:
            return made
        # Two literals that are computed with become what their place wants: here they are to stay what they are.
        if source == INT and computes_literals(made):
            made = m.Cast(made, INT)
        return m.Coerce(made, ty)

    def type_below(self, ty, scope):
        """A class type that is assignable to a class or interface type."""
        below = []
        if isinstance(ty.ref, LibraryClass):
            if ty.ref in (Collection, library.Iterable, IList, List):
                below = [cls(ArrayList, *ty.args), cls(LinkedList, *ty.args)]
            if ty.ref in (Collection, IList, library.Iterable):
                below.append(cls(ImmutableList, *ty.args))
            if ty.ref is Collection and key_type(ty.args[0]):
                below.append(cls(HashSet, *ty.args))
            if ty.ref is Map:
                below = [cls(HashMap, *ty.args)]
            if ty.ref is Comparable and ty.args[0].kind in ("prim", "cls"):
                below = [ty.args[0]]
            if ty.ref is Comparable and ty.args[0].kind == "par" and ty.args[0].ref.constraint == ty:
                below = [ty.args[0]]
        for c in self.classes:
            if c.complete and scope.sees(c) and (c is not ty.ref):
                for t in super_types(c.this()):
                    bindings = {}
                    if t.ref is ty.ref and unify(t, ty, set(c.tparams), bindings) and len(bindings) == len(c.tparams):
                        candidate = subst(c.this(), bindings)
                        if self.within_constraints(candidate):
                            below.append(candidate)
        return self.random.choice(below) if below else None

    def from_variable(self, ty, scope, depth):
        found = [v for v in scope.variables if v.ty == ty]
        if scope.this and scope.this == ty and self.random.random() < 0.3:
            return m.Self(ty)
        return m.Get(self.random.choice(found), ty) if found else None

    def from_literal(self, ty, scope, depth):
        r = self.random
        if ty == BOOL:
            return m.Lit(r.random() < 0.5, BOOL)
        if ty == STRING:
            return m.Lit(r.choice(WORDS), STRING)
        if ty in INTS:
            low, high = RANGES[ty.ref]
            value = r.choice(SPECIAL_INTS) if r.random() < 0.9 else r.choice((low, high, high - 1, 1000003))
            return m.Lit(value if low <= value <= high else r.choice((0, 1, 5, high)), ty)
        if ty in FLOATS:
            return m.Lit(r.choice((0.0, 0.5, 1.0, 1.5, -2.25, 3.0, 10.0, 0.125, 100.0, 0.1 if ty == DOUBLE else 0.25, 1e6, -0.75)), ty)
        if ty == OBJECT:
            return m.Cast(self.expr(r.choice((INT, STRING, DOUBLE, BOOL, LONG, FLOAT, BYTE)), scope, depth), OBJECT)
        return None

    def receivers(self, scope):
        """Expressions that a member may be asked of, with their types."""
        found = [(m.Get(v, v.ty), v.ty) for v in scope.variables]
        if scope.this:
            found.append((m.Self(scope.this), scope.this))
        self.random.shuffle(found)
        return found

    def member_type(self, ty):
        """The class type by which members of a value are found."""
        if ty.kind == "par" and ty.ref.constraint is not None and ty.ref.constraint.kind == "cls" and isinstance(ty.ref.constraint.ref, Class):
            return ty.ref.constraint
        return ty if ty.kind == "cls" else None

    def members(self, ty):
        """Fields and methods that a class type has, each with the bindings of the class that declares it."""
        seen = set()
        for t in super_types(ty):
            if not isinstance(t.ref, Class):
                continue
            bindings = own_bindings(t)
            for f in t.ref.fields:
                if not f.static:
                    yield f, bindings, t.ref
            for method in t.ref.methods:
                if method.static or method.name.startswith("operator") or any(method in s.all_overridden() for s in seen):
                    continue
                seen.add(method)
                yield method, bindings, t.ref

    def from_member(self, ty, scope, depth):
        r = self.random
        found = []
        for obj, obj_ty in self.receivers(scope)[:8]:
            known = self.member_type(obj_ty)
            if known is None or not isinstance(known.ref, Class):
                continue
            for member, bindings, owner in self.members(known):
                if member.private and scope.owner is not owner:
                    continue
                if isinstance(member, m.Field):
                    if subst(member.ty, bindings) == ty:
                        found.append((obj, member, None, bindings))
                elif member.ready and (depth > 0 or not member.params):
                    own = {}
                    if unify(subst(member.ret, bindings), ty, set(member.tparams), own):
                        found.append((obj, member, own, bindings))
        if not found:
            return None
        obj, member, own, bindings = r.choice(found)
        if isinstance(member, m.Field):
            return m.GetField(obj, member, ty)
        return self.method_call(obj, member, own, bindings, ty, scope, depth)

    def method_call(self, obj, member, own, bindings, ty, scope, depth):
        if member.group is not None:
            args = [(None, self.expr(subst(p.ty, bindings), scope, depth)) for p in member.params]
            return m.Invoke(obj, member.group, (), args, ty)
        call = m.Invoke(obj, member, (), [], ty)
        return self.complete_call(call, member, own, bindings, scope, depth)

    def complete_call(self, call, func, own, outer, scope, depth):
        """Fills in type arguments and arguments."""
        bindings = dict(outer)
        bindings.update(own)
        if VOID in own.values():
            return None
        for t in func.tparams:
            if t not in bindings and t.default is not None and self.random.random() < 0.6:
                bindings[t] = subst(t.default, bindings)
            elif t not in bindings:
                bindings[t] = self.argument_type(subst(t.constraint, bindings), t, scope, 1)
            elif not satisfies(bindings[t], subst(t.constraint, bindings)) or not self.within_constraints(bindings[t]):
                return None
        exact = self.random.random() < 0.6 if func.tparams else False
        self.arguments(call, func, bindings, scope, depth, exact)
        call.targs = tuple(bindings[t] for t in func.tparams)
        call.ty = subst(func.ret, bindings)
        call.inferable = False
        if func.tparams:
            # What is bound to its default need not be written.
            own_pars = {t: bindings[t] for t in func.tparams if t.default is None or bindings[t] != subst(t.default, bindings)}
            pairs = [(subst(p.element if getattr(p, "star", "") else p.ty, outer), a) for p, a in call.args if not isinstance(p, str)]
            starred = [p for p in func.params if p.star and pars_of(p.element) & set(func.tparams)]
            empty = any(p.star == "*" and not any(q is p for q, _ in call.args) for p in starred)
            named = any(p.star == "**" for p in starred)
            call.inferable = not empty and not named and inferable(list(own_pars), pairs, own_pars)
            if starred and not self.homogeneous(call, func):
                return None
        call.explicit = not call.inferable or self.random.random() < 0.4
        return call

    def homogeneous(self, call, func):
        """What a variadic parameter of a generic function collects has one type."""
        return all(not isinstance(a, m.Coerce) for p, a in call.args if isinstance(p, str) or p.star)

    def arguments(self, call, func, bindings, scope, depth, exact):
        r = self.random
        make = (lambda t: self.expr(t, scope, depth)) if exact else (lambda t: self.fitting(t, scope, depth))
        plain = [p for p in func.params if not p.star]
        star = next((p for p in func.params if p.star == "*"), None)
        named = next((p for p in func.params if p.star == "**"), None)
        given = [p for p in plain if p.default is None or r.random() < 0.5]
        items = r.randint(0, 3) if star else 0
        if items:
            given = plain
        args, positional = [], 0
        limit = r.randint(0, len(plain)) if not items and r.random() < 0.35 else len(plain)
        while positional < limit and positional < len(given) and given[positional] is plain[positional]:
            positional += 1
        rest = given[positional:]
        r.shuffle(rest)
        for p in given[:positional]:
            args.append((p, make(subst(p.ty, bindings))))
        for _ in range(items):
            args.append((star, self.expr(subst(star.element, bindings), scope, depth)))
        call.positional = positional + items
        for p in rest:
            args.append((p, make(subst(p.ty, bindings))))
        if named:
            for name in r.sample(("k1", "k2", "k3"), r.randint(0, 2)):
                args.append((name, self.expr(subst(named.element, bindings), scope, depth)))
        call.args = args

    def from_call(self, ty, scope, depth):
        """A call of a function made earlier whose result has the type."""
        r = self.random
        found = []
        for f in self.functions:
            own = {}
            if scope.sees(f) and f.ret.kind != "never" and (depth > 0 or not f.params) and unify(f.ret, ty, set(f.tparams), own):
                found.append((f, own))
        if not found:
            return None
        f, own = r.choice(found)
        if f.group is not None and not f.tparams:
            return m.Call(f.group, (), [(None, self.expr(p.ty, scope, depth)) for p in f.params], ty)
        return self.complete_call(m.Call(f, (), [], ty), f, own, {}, scope, depth)

    def from_static(self, ty, scope, depth):
        found = []
        owners = [(c, c) for c in self.classes if scope.sees(c) and not c.interface]
        # A type parameter stands for the class that is bound to it, with what that inherits.
        for t in scope.tparams:
            if t.constraint is not None and t.constraint.kind == "cls" and isinstance(t.constraint.ref, Class):
                owners += [(par(t), x.ref) for x in super_types(t.constraint) if isinstance(x.ref, Class) and not x.ref.interface] * 3
        for named, c in owners:
            for f in c.fields:
                if f.static and not f.private and f.ty == ty and c.complete:
                    found.append((named, f, None))
            for method in c.methods:
                own = {}
                if method.static and method.ready and (depth > 0 or not method.params) and unify(method.ret, ty, set(method.tparams), own):
                    found.append((named, method, own))
        if not found:
            return None
        c, member, own = self.random.choice(found)
        if own is None:
            return m.GetStatic(c, member, ty)
        return self.complete_call(m.CallStatic(c, member, (), [], ty), member, own, {}, scope, depth)

    def from_library(self, ty, scope, depth):
        """A method of the library asked of something in sight."""
        r = self.random
        found = []
        for obj, obj_ty in self.receivers(scope)[:8]:
            if obj_ty == STRING:
                found += [(obj, None, n, None, None) for n, (_, ret, _) in STRING_METHODS.items() if ret == ty]
            if obj_ty.kind != "cls" or not isinstance(obj_ty.ref, LibraryClass):
                continue
            for t in super_types(obj_ty):
                for name, method in t.ref.methods.items():
                    own, bindings = {}, own_bindings(t)
                    if method.risky and r.random() < 0.9 or method.static:
                        continue
                    if unify(subst(method.ret, bindings), ty, set(method.tparams), own):
                        found.append((obj, obj_ty, name, own, bindings))
        if not found or depth <= 0:
            return None
        obj, obj_ty, name, own, bindings = r.choice(found)
        if obj_ty is None:
            return m.Lib(obj, name, (), [(None, self.expr(t, scope, depth - 1)) for t in STRING_METHODS[name][0]], ty)
        return self.library_call(obj, obj_ty, name, own, bindings, scope, depth)

    def library_call(self, obj, obj_ty, name, own, outer, scope, depth):
        owner, method = library.find_method(obj_ty, name)
        bindings = dict(own_bindings(owner))
        bindings.update(own)
        for t in method.tparams:
            if t not in bindings:
                bindings[t] = self.argument_type(subst(t.constraint, bindings), t, scope, 1)
            elif not satisfies(bindings[t], subst(t.constraint, bindings)):
                return None
            if name == "groupBy" and not key_type(bindings[t]) or bindings[t].kind == "opt":
                return None
        if name == "sortedBy" and bindings[method.tparams[0]].kind not in ("prim", "par"):
            return None
        if name in ("sort", "max", "min") and not comparable_type(obj_ty.args[0]):
            return None
        args = []
        for _, declared in method.params:
            wanted = subst(declared, bindings)
            args.append((None, self.expr(wanted, scope, depth - 1)))
        call = m.Lib(obj, name, tuple(bindings[t] for t in method.tparams), args, subst(method.ret, bindings))
        call.inferable = bool(method.tparams) and inferable(
            method.tparams, [(subst(d, own_bindings(owner)), a) for (_, d), (_, a) in zip(method.params, args)],
            {t: bindings[t] for t in method.tparams})
        call.explicit = not call.inferable or self.random.random() < 0.2
        return call

    def from_condition(self, ty, scope, depth):
        if depth <= 0:
            return None
        return m.Cond(self.expr(BOOL, scope, depth - 1), self.expr(ty, scope, depth), self.expr(ty, scope, depth), ty)

    def from_cast(self, ty, scope, depth):
        r = self.random
        if ty in NUMERIC:
            source = r.choice(NUMERIC)
            return m.Cast(self.expr(source, scope, depth), ty) if source != ty else None
        if ty.kind == "opt":
            return m.Cast(self.expr(ty.args[0], scope, depth), ty)
        if ty.kind == "cls":
            below = self.type_below(ty, scope)
            if below:
                return m.Cast(self.expr(below, scope, depth), ty)
        if ty == OBJECT:
            source = self.value_type(scope, 1)
            if source.kind != "opt" and not has_function(source) and source != OBJECT:
                return m.Cast(self.expr(source, scope, depth), ty)
        return None

    def from_index(self, ty, scope, depth):
        found = []
        for v in scope.variables:
            if v.ty.kind == "arr" and v.ty.args[0] == ty or v.ty.kind == "cls" and v.ty.ref in (ArrayList, LinkedList, IList, List, ImmutableList) and v.ty.args[0] == ty:
                if getattr(v, "least", 0) > 0 or self.random.random() < 0.03:
                    found.append(v)
        if not found:
            return None
        v = self.random.choice(found)
        return m.Index(m.Get(v, v.ty), m.Lit(self.random.randrange(max(1, getattr(v, "least", 0))), INT), ty)

    def from_function_value(self, ty, scope, depth):
        found = [v for v in scope.variables if v.ty.kind == "fun" and v.ty.args[0] == ty and (depth > 0 or len(v.ty.args) == 1)]
        if not found:
            return None
        v = self.random.choice(found)
        return m.CallValue(m.Get(v, v.ty), [self.expr(t, scope, depth - 1) for t in v.ty.args[1:]], ty)

    def from_operator(self, ty, scope, depth):
        r = self.random
        sub = lambda t: self.expr(t, scope, depth)  # noqa: E731
        if ty.kind == "par":
            if ty.ref.constraint in (NUMBER, ABSTRACT_INT, ABSTRACT_FLOAT):
                return m.Cast(m.Bin(r.choice("+-*"), sub(ty), sub(ty), None), ty)
            return None
        if ty == BOOL:
            choice = r.random()
            if choice < 0.25:
                return m.Bin(r.choice(("&&", "||")), sub(BOOL), sub(BOOL), BOOL)
            if choice < 0.35:
                return m.Un("!", sub(BOOL), BOOL)
            if choice < 0.5:
                return self.type_test(scope, depth)
            if choice < 0.8:
                kinds = [INT, INT, STRING, DOUBLE, LONG, UINT, SHORT] + [par(t) for t in scope.tparams if comparable_type(par(t)) and self.has_source(par(t), scope)]
                t = r.choice(kinds)
                return m.Bin(r.choice(("<", "<=", ">", ">=")), sub(t), sub(t), BOOL)
            t = self.value_type(scope, 1)
            if mentions(t, lambda x: x.kind in ("fun",)):
                t = INT
            return m.Bin(r.choice(("==", "!=")), sub(t), sub(t), BOOL)
        if ty == STRING:
            choice = r.random()
            if choice < 0.2:
                return m.ToText(sub(self.printable_type(scope)), STRING)
            if choice < 0.3:
                t = self.value_type(scope, 2)
                if not mentions(t, lambda x: x == NULL):
                    return m.TypeText(t, STRING)
            other = sub(self.printable_type(scope))
            return m.Bin("+", sub(STRING), other, STRING) if r.random() < 0.7 else m.Bin("+", other, sub(STRING), STRING)
        if ty in (INT, LONG, UINT, ULONG, DOUBLE, FLOAT):
            if r.random() < 0.1 and ty not in (UINT, ULONG):
                return m.Un("-", sub(ty), ty)
            pairs = [(a, b) for a in NUMERIC for b in NUMERIC if common_type(a, b) == ty]
            a, b = (ty, ty) if r.random() < 0.5 else r.choice(pairs)
            op = r.choice("+++---**") if ty in FLOATS or r.random() < 0.75 else r.choice(("/", "//", "%", "**"))
            if op in ("/", "//", "%"):
                divisor = r.choice([x for x in (1, 2, 3, 7, 10) if x <= RANGES[b.ref][1]]) if b in INTS else 2.0
                return m.Bin(op, sub(a), m.Lit(divisor, b), ty)
            if op == "**":
                return m.Bin(op, sub(a), m.Lit(r.randint(0, 4) if b in INTS else 2.0, b), ty)
            return m.Bin(op, sub(a), sub(b), ty)
        return None

    def printable_type(self, scope):
        for _ in range(8):
            t = self.value_type(scope, 1)
            if printable(t):
                return t
        return INT

    def type_test(self, scope, depth):
        r = self.random
        found = [v for v in scope.variables if v.ty.kind == "opt"]
        if found and r.random() < 0.5:
            v = r.choice(found)
            return m.IsNull(m.Get(v, v.ty), r.random() < 0.5, BOOL)
        source = r.choice([OBJECT] + [cls(c) for c in self.classes if not c.tparams and c.complete and scope.sees(c)])
        test = r.choice([INT, STRING, cls(ArrayList, INT), LONG]) if source == OBJECT else self.type_below(source, scope) or source
        if r.random() < 0.3:
            test = self.value_type(scope, 2)
            if mentions(test, lambda x: x.kind in ("opt", "fun")) or source != OBJECT:
                return None
        return m.Is(self.expr(source, scope, depth), test, r.random() < 0.3, BOOL)

    # ------------------------------------------------------------------------------------------ construction

    def from_construction(self, ty, scope, depth):
        r = self.random
        if ty.kind == "opt":
            return m.Lit(None, ty) if r.random() < 0.4 else m.Cast(self.expr(ty.args[0], scope, depth - 1), ty)
        if ty.kind == "arr":
            if r.random() < 0.15 and ty.args[0] in NUMERIC + (BOOL,):
                return m.NewArray(m.Lit(r.randint(1, 3), INT), ty)
            return self.array_source(ty, scope, depth)
        if ty.kind == "fun":
            return self.function_value(ty, scope, depth)
        if ty.kind != "cls":
            return None
        if isinstance(ty.ref, LibraryClass):
            return self.library_construction(ty, scope, depth)
        if ty.ref.interface or not ty.ref.ctors:
            below = self.type_below(ty, scope)
            return m.Cast(self.expr(below, scope, depth - 1), ty) if below else None
        if self.nesting > 6:
            raise NoExpression("construction is nested too deeply")
        self.nesting += 1
        try:
            return self.construct(ty, scope, depth)
        finally:
            self.nesting -= 1

    def construct(self, ty, scope, depth):
        ctor = self.random.choice(ty.ref.ctors)
        call = m.New(ctor, [], ty)
        bindings = own_bindings(ty)
        if len(ty.ref.ctors) > 1:
            # Constructors are overloads: exact arguments in order leave no doubt.
            call.args = [(p, self.expr(subst(p.ty, bindings), scope, depth - 1)) for p in ctor.params]
        else:
            self.arguments(call, ctor, bindings, scope, depth - 1, self.random.random() < 0.5)
        call.inferable = bool(ty.args) and inferable(ty.ref.tparams, [(p.ty, a) for p, a in call.args], bindings)
        call.explicit = not call.inferable or self.random.random() < 0.4
        return call

    def array_source(self, ty, scope, depth):
        # An array literal needs a place that expects an array; lists turn into arrays everywhere.
        items = self.elements(ty.args[0], scope, depth, 1)
        return m.Lib(m.ListLit(items, cls(ArrayList, ty.args[0])), "toArray", (), [], ty)

    def elements(self, ty, scope, depth, least=0):
        return [self.expr(ty, scope, depth - 1) for _ in range(self.random.randint(max(1, least), 3))]

    def library_construction(self, ty, scope, depth):
        r = self.random
        if ty.ref is ArrayList:
            if r.random() < 0.75:
                made = m.ListLit(self.elements(ty.args[0], scope, depth), ty)
                return made if made.items else None
            return m.New(None, [], ty)
        if ty.ref in (LinkedList, ImmutableList, HashSet):
            if r.random() < 0.2:
                return m.New(None, [], ty)
            source = cls(ArrayList, ty.args[0])
            return m.New(None, [(None, m.Coerce(self.expr(source, scope, depth - 1), cls(Collection, ty.args[0])))], ty, explicit=True)
        if ty.ref is Tuple:
            call = m.New(None, [(None, self.expr(a, scope, depth - 1)) for a in ty.args], ty)
            call.inferable = inferable(Tuple.tparams, [(par(t), a) for t, (_, a) in zip(Tuple.tparams, call.args)], own_bindings(ty))
            call.explicit = not call.inferable or r.random() < 0.5
            return call
        if ty.ref is HashMap:
            if r.random() < 0.7 and depth > 0:
                return m.MapLit([(self.expr(ty.args[0], scope, 0), self.expr(ty.args[1], scope, depth - 1)) for _ in range(r.randint(1, 3))], ty)
            return m.New(None, [], ty)
        if ty.ref is SortedMap:
            return m.New(None, [], ty)
        below = self.type_below(ty, scope)
        return m.Cast(self.expr(below, scope, depth - 1), ty) if below else None

    def function_value(self, ty, scope, depth):
        r = self.random
        result, params = ty.args[0], ty.args[1:]
        if r.random() < 0.25:
            found = [f for f in self.functions if not f.tparams and f.group is None and scope.sees(f) and not any(p.star or p.default for p in f.params)
                     and f.ret == result and tuple(p.ty for p in f.params) == params]
            if found:
                return m.FuncRef(r.choice(found), ty)
        made = [Var(self.fresh("p"), t) for t in params]
        inner = scope.inner(*made)
        inner.inside_lambda = True
        return m.Lambda(made, self.expr(result, inner, max(depth - 1, 1 if r.random() < 0.5 else 0)), ty)


def has_function(ty):
    return mentions(ty, lambda t: t.kind == "fun")


