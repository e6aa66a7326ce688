"""Makes whole programs: packages, interfaces, classes, functions, and a main that uses all of them.

A program calls only what was made before it, loops a few times and recurses with a counter, so it ends; the reference
interpreter discards the rare one that runs too long. The same seed makes the same program.
"""

import random

import model as m
from model import (ABSTRACT_FLOAT, ABSTRACT_INT, BOOL, DOUBLE, INT, LONG, NUMBER, OBJECT, STRING, VOID, Class, Field, Func, Group, Program,
                   TypeParam, Unit, Var, cls, fun, mentions, own_bindings, par, pars_of, subst, super_types)
from expressions import Expressions
from library import ArrayList, Comparable, HashMap
from scope import NoExpression, Scope, optional_pars, printable, satisfies
from statements import Statements


class Generator(Expressions, Statements):
    def __init__(self, seed):
        self.random = random.Random(seed)
        self.seed, self.classes, self.functions, self.counter, self.labels = seed, [], [], {}, 0
        self.budget, self.nesting = 0, 0

    def fresh(self, prefix):
        self.counter[prefix] = self.counter.get(prefix, 0) + 1
        return f"{prefix}{self.counter[prefix]}"

    def program(self):
        r = self.random
        program = Program(self.seed)
        main = Unit("", "main.vk")
        program.units = [main]
        program.main = main
        for package in r.sample(("lib", "app.core", "zed"), r.choice((0, 1, 1, 2))):
            for file in r.sample(("a.vk", "b.vk", "z.vk"), r.choice((1, 1, 2))):
                program.units.append(Unit(package, file))
        for _ in range(r.choice((2, 3, 4, 4, 5, 5, 6, 8))):
            unit = r.choice(program.units)
            maker = r.choice((self.interface, self.class_, self.class_, self.class_, self.function, self.function, self.overloads,
                              self.function, self.recursion))
            self.budget = 60
            try:
                maker(unit)
            except NoExpression:
                continue
        self.main_function(main)
        return program

    # ------------------------------------------------------------------------------------- type parameters

    def type_params(self, unit, most=2, least=0):
        """Type parameters with constraints and defaults."""
        r = self.random
        made = []
        for index in range(r.randint(least, most)):
            t = TypeParam("TUVW"[index] + (str(r.randint(1, 9)) if r.random() < 0.1 else ""))
            choice = r.random()
            if choice < 0.15:
                t.constraint = cls(Comparable, par(t))
            elif choice < 0.25:
                t.constraint = r.choice((NUMBER, ABSTRACT_INT, ABSTRACT_FLOAT, NUMBER))
            elif choice < 0.35:
                usable = [c for c in self.classes if c.complete and not c.tparams and Scope(unit).sees(c)]
                if usable:
                    t.constraint = cls(r.choice(usable))
            elif choice < 0.42:
                above = self.super_type([x for x in self.classes if x.tparams], Scope(unit))
                if above is not None:
                    t.constraint = above
            elif choice < 0.52 and made:
                t.default = r.choice((INT, par(made[0]), cls(ArrayList, par(made[0])), STRING))
            made.append(t)
        return made

    def param_type(self, tparams, scope):
        """A parameter's type, often with type parameters in it."""
        r = self.random
        if not tparams or r.random() < 0.3:
            return self.value_type(scope, 1)
        t = par(r.choice(tparams))
        choice = r.random()
        if choice < 0.55:
            return t
        if choice < 0.7:
            return cls(r.choice((ArrayList, ArrayList, m_collection())), t)
        if choice < 0.8:
            usable = [c for c in self.classes if c.complete and len(c.tparams) == 1 and scope.sees(c)]
            if usable:
                c = r.choice(usable)
                constraint = c.tparams[0].constraint
                if satisfies(t, subst(constraint, {c.tparams[0]: t}) if constraint else None):
                    return cls(c, t)
        if choice < 0.9:
            return fun([t], r.choice((INT, STRING, BOOL, par(r.choice(tparams)))))
        return m.arr(t) if choice < 0.95 else m.opt(t)

    def parameters(self, tparams, scope, most=3, simple=False):
        """Parameters, so that each type parameter has a value; defaults, variadics."""
        r = self.random
        # What has a default is left to it, or written: no parameter names it.
        tparams = [t for t in tparams if t.default is None]
        params = [Var(self.fresh("a"), self.param_type(tparams, scope)) for _ in range(r.randint(0, most))]
        for t in tparams:
            if not any(p.ty == par(t) for p in params) and r.random() < 0.9:
                params.insert(r.randint(0, len(params)), Var(self.fresh("a"), par(t)))
        if simple:
            return params
        if r.random() < 0.3:
            for _ in range(r.randint(1, 2)):
                ty = self.param_type(tparams, scope) if r.random() < 0.5 else r.choice((INT, STRING, DOUBLE, BOOL))
                earlier = Scope(scope.unit, params, None, tparams)
                try:
                    init = self.fitting(ty, earlier, 1)
                except NoExpression:
                    continue
                params.append(Var(self.fresh("d"), ty, init))
        if r.random() < 0.15:
            element = par(r.choice(tparams)) if tparams and r.random() < 0.6 else r.choice((INT, STRING))
            params.append(Var(self.fresh("s"), cls(ArrayList, element), star="*", element=element))
        if r.random() < 0.08:
            element = r.choice((INT, STRING))
            params.append(Var(self.fresh("w"), cls(m_map(), STRING, element), star="**", element=element))
        return params

    # ------------------------------------------------------------------------------------------- functions

    def function(self, unit, tparams=None):
        r = self.random
        tparams = self.type_params(unit) if tparams is None else tparams
        if r.random() < 0.25:
            tparams = []
        scope = Scope(unit, (), None, tparams)
        params = self.parameters(tparams, scope)
        f = Func(self.fresh("f"), tparams, params, VOID)
        f.unit = unit
        self.fill(f, Scope(unit, params, None, tparams))
        f.ready = True
        unit.declarations.append(f)
        self.functions.append(f)

    def fill(self, f, scope, ret=None):
        """Chooses a result and makes the body."""
        r = self.random
        if ret is None:
            ret = VOID if r.random() < 0.1 else self.value_type(scope, 2)
        f.ret = scope.ret = ret
        self.budget = 45
        f.body = self.body(scope, r.randint(0, 3), ret)
        if f.tparams and r.random() < 0.3 and f.body:
            f.body.insert(0, m.Print(m.Bin("+", m.Lit(f.name + " ", STRING), m.TypeText(par(r.choice(f.tparams)), STRING), STRING)))
        returns = returned(f.body)
        f.infer_ret = ret != VOID and r.random() < 0.15 and all(
            x.value is not None and x.value.ty == ret and not isinstance(x.value, m.Coerce) and not untyped_alone(x.value) for x in returns)

    def recursion(self, unit):
        """A function that calls itself with a counter that goes down."""
        r = self.random
        tparams = self.type_params(unit, 1)
        scope = Scope(unit, (), None, tparams)
        counter = Var(self.fresh("a"), INT)
        counter.may_change = False
        others = self.parameters(tparams, scope, 1, simple=True)
        f = Func(self.fresh("f"), tparams, [counter] + others, VOID)
        f.unit = unit
        inner = Scope(unit, f.params, None, tparams)
        ret = self.value_type(inner, 1)
        f.ret = inner.ret = ret
        self.budget = 30
        stop = m.If([(m.Bin("<=", m.Get(counter, INT), m.Lit(0, INT), BOOL), [m.Return(self.fitting(ret, inner, 2))])], None)
        extra = self.block(inner, r.randint(0, 2))
        args = [(counter, m.Bin("-", m.Get(counter, INT), m.Lit(1, INT), INT))]
        call = m.Call(f, tuple(map(par, tparams)), args, ret)
        call.args += [(p, self.expr(p.ty, inner, 1)) for p in others]
        call.positional = len(call.args)
        call.inferable = bool(tparams) and all(any(p.ty == par(t) for p in others) for t in tparams) and not any(
            optional_pars(p.ty) for p in others) and all(
            not isinstance(a, m.Coerce) for _, a in call.args)
        call.explicit = not call.inferable or r.random() < 0.5
        guarded = m.Cond(m.Bin(">", m.Get(counter, INT), m.Lit(4, INT), BOOL), self.expr(ret, inner, 1), call, ret)
        f.body = [stop] + extra + [m.Return(guarded)]
        f.ready = True
        unit.declarations.append(f)
        self.functions.append(f)

    def overload_members(self, name, unit, make_scope, owner=None, static=False):
        r = self.random
        kinds = r.sample([INT, STRING, DOUBLE, BOOL, LONG, OBJECT, cls(ArrayList, INT)], r.randint(2, 4))
        width = r.choice((1, 1, 2))
        ret = r.choice((STRING, INT, STRING))
        members = []
        for k in kinds:
            params = [Var(self.fresh("a"), k)] + [Var(self.fresh("a"), INT) for _ in range(width - 1)]
            f = Func(name, [], params, ret, owner=owner, static=static)
            f.unit = unit
            f.ready = False
            scope = make_scope(params)
            scope.ret = ret
            self.budget = 10
            f.body = [m.Return(m.Bin("+", m.Lit(f"{k.ref if k.kind == 'prim' else 'list'} ", STRING), self.expr(STRING, scope, 1), STRING)
                               if ret == STRING else self.expr(INT, scope, 2))]
            members.append(f)
        return members

    def overloads(self, unit):
        members = self.overload_members(self.fresh("o"), unit, lambda params: Scope(unit, params))
        group = Group(members[0].name, members)
        for f in members:
            f.ready = True
        unit.declarations.append(group)
        self.functions.extend(members)

    # --------------------------------------------------------------------------------- interfaces and classes

    def interface(self, unit):
        r = self.random
        tparams = self.type_params(unit, 1)
        c = Class(self.fresh("I"), tparams, interface=True)
        c.unit, c.complete = unit, False
        scope = Scope(unit, (), None, tparams)
        if r.random() < 0.35:
            above = self.class_type(scope, 1, [x for x in self.classes if x.interface])
            if above and not mentions(above, lambda t: t.kind in ("opt", "fun", "arr")):
                c.interfaces.append(above)
        for _ in range(r.randint(1, 2)):
            params = self.parameters(tparams if r.random() < 0.5 else [], scope, 1, simple=True)
            inner = Scope(unit, params, None, tparams)
            ret = par(tparams[0]) if tparams and r.random() < 0.4 else r.choice((INT, STRING, BOOL, self.value_type(inner, 1)))
            f = Func(self.fresh("m"), [], params, ret, None, owner=c)
            f.unit, f.ready = unit, True
            c.methods.append(f)
        for _ in range(r.randint(0, 2)):
            self.method(c, self.type_params(unit, 1) if r.random() < 0.4 else [], private=False)
        if r.random() < 0.3:
            self.override(c)
        if r.random() < 0.5:
            self.hide(c)
        c.complete = True
        unit.declarations.append(c)
        self.classes.append(c)

    def class_(self, unit, outer=None):
        r = self.random
        tparams = self.type_params(unit, 2) if r.random() < 0.6 else []
        c = Class(self.fresh("C"), tparams)
        c.unit, c.complete, c.outer = unit, False, outer
        scope = Scope(unit, (), None, tparams)
        if r.random() < 0.4:
            c.superclass = self.super_type([x for x in self.classes if not x.interface and x.ctors], scope)
        taken = {t.ref for t in super_types(c.this())}
        for _ in range(r.choice((0, 1, 1, 2))):
            above = self.super_type([x for x in self.classes if x.interface], scope)
            if above and not any(t.ref in taken for t in super_types(above)):
                c.interfaces.append(above)
                taken |= {t.ref for t in super_types(above)}
        for _ in range(r.randint(0, 2)):
            c.fields.append(Field(self.fresh("g"), par(r.choice(tparams)) if tparams and r.random() < 0.6 else self.value_type_free(scope)))
        if tparams and not any(par(tparams[0]) == f.ty for f in c.fields):
            c.fields.append(Field(self.fresh("g"), par(tparams[0])))
        for f in c.fields:
            f.private = r.random() < 0.2
        self.constructors(c, scope)
        if r.random() < 0.4:
            c.fields.append(Field(self.fresh("h"), INT, m.Lit(r.randint(0, 9), INT)))
        if r.random() < 0.3:
            ty = r.choice((INT, STRING, LONG))
            init = self.fitting(ty, Scope(unit), 1) if r.random() < 0.3 else m.Lit("st", STRING) if ty == STRING else m.Coerce(
                m.Lit(r.randint(0, 9), INT), ty)
            c.fields.append(Field(self.fresh("static"), ty, init, static=True))
        self.implement(c)
        if r.random() < 0.4:
            self.override(c)
        if r.random() < 0.4:
            self.hide(c)
        for _ in range(r.randint(0, 2)):
            self.method(c, [], private=r.random() < 0.1)
        for _ in range(r.randint(0, 2)):
            self.method(c, self.type_params(unit, 2, 1), private=False)
            if r.random() < 0.2:
                self.overload_by_count(c, c.methods[-1])
        if r.random() < 0.3:
            self.method(c, self.type_params(unit, 1), static=True)
        if r.random() < 0.2:
            name = self.fresh("q")
            members = self.overload_members(name, unit, lambda params: Scope(unit, params, c.this(), tparams), owner=c)
            Group(name, members)
            for f in members:
                f.ready = True
            c.methods.extend(members)
        if r.random() < 0.2 and not tparams:
            self.order_and_operators(c)
        self.text_method(c)
        if r.random() < 0.15 and outer is None:
            c.complete = True
            before = len(self.classes)
            self.class_(unit, c)
            if len(self.classes) > before:
                c.nested.append(self.classes[-1])
        c.complete = True
        if outer is None:
            unit.declarations.append(c)
        self.classes.append(c)

    def value_type_free(self, scope):
        """A type for a field: without type parameters that nothing gives a value."""
        for _ in range(6):
            t = self.value_type(scope, 1)
            if t.kind != "fun":
                return t
        return INT

    def super_type(self, among, scope):
        """An instantiation of one of the classes whose arguments are simple or the class's own parameters."""
        r = self.random
        among = [c for c in among if scope.sees(c) and c.complete and not c.outer]
        if not among:
            return None
        c = r.choice(among)
        args = {}
        for t in c.tparams:
            constraint = subst(t.constraint, args) if t.constraint else None
            choices = [x for x in [INT, STRING, DOUBLE, LONG] + [par(x) for x in scope.tparams] * 2 + [cls(x) for x in self.classes if not x.tparams and x.complete and scope.sees(x)]
                       if satisfies(x, subst(constraint, {t: x}) if constraint else None)]
            if not choices:
                return None
            args[t] = r.choice(choices)
        return cls(c, *(args[t] for t in c.tparams))

    def constructors(self, c, scope):
        r = self.random
        params = [Var(self.fresh("a"), f.ty) for f in c.fields]
        body = []
        extra = []
        if c.superclass:
            base = r.choice(c.superclass.ref.ctors)
            bindings = own_bindings(c.superclass)
            extra = [Var(self.fresh("a"), subst(p.ty, bindings)) for p in base.params]
            body.append(m.Do(m.Super(base, [(q, m.Get(p, p.ty)) for q, p in zip(base.params, extra)], VOID)))
        body += [m.Assign(m.GetField(m.Self(c.this()), f, f.ty), m.Get(p, p.ty)) for f, p in zip(c.fields, params)]
        ctor = Func("init", [], params + extra, VOID, body or [m.Pass()], owner=c)
        ctor.unit, ctor.ready = c.unit, True
        c.ctors.append(ctor)
        if not any(pars_of(p.ty) for p in ctor.params) and ctor.params and r.random() < 0.3:
            tail = ctor.params[-1]
            if tail.ty in (INT, STRING, BOOL, DOUBLE):
                tail.default = self.expr(tail.ty, Scope(c.unit), 1)
        elif r.random() < 0.2 and ctor.params:
            # A second constructor with one parameter less.
            gone = ctor.params[-1]
            if not pars_of(gone.ty):
                kept = [Var(self.fresh("a"), p.ty) for p in ctor.params[:-1]]
                replaced = dict(zip(ctor.params, kept))
                value = self.expr(gone.ty, Scope(c.unit), 1)
                second = Func("init", [], kept, VOID, [copy_simple(s, replaced, gone, value) for s in ctor.body], owner=c)
                second.unit, second.ready = c.unit, True
                c.ctors.append(second)

    def method(self, c, tparams, static=False, private=False):
        r = self.random
        own = [] if static else c.tparams
        names = {t.name for t in own}
        for t in tparams:
            while t.name in names:
                t.name += "x"
        scope = Scope(c.unit, (), None if static else c.this(), list(tparams) + own)
        scope.owner = c
        params = self.parameters(list(tparams), scope, 2)
        f = Func(self.fresh("m"), list(tparams), params, VOID, owner=c, static=static)
        f.unit, f.ready, f.private = c.unit, False, private
        inner = Scope(c.unit, params, None if static else c.this(), list(tparams) + own)
        inner.owner = c
        self.fill(f, inner)
        f.ready = True
        c.methods.append(f)

    def inherited(self, c):
        """Methods of super types with the bindings that c gives them, nearest first, overridden ones left out."""
        found, hidden = [], set()
        for t in super_types(c.this())[1:]:
            if not isinstance(t.ref, Class):
                continue
            for f in t.ref.methods:
                if f not in hidden and not f.static and not f.private and not f.name.startswith("operator"):
                    found.append((f, own_bindings(t)))
                    hidden.update(f.all_overridden())
        return found

    def define(self, c, base, bindings):
        """An overriding method with the same parameters."""
        # Named arguments go by the nearest declaration's names, so these stay.
        params = [Var(p.name, subst(p.ty, bindings), star=p.star, element=subst(p.element, bindings)) for p in base.params]
        f = Func(base.name, [], params, VOID, owner=c)
        f.unit, f.ready, f.overridden = c.unit, False, [base]
        scope = Scope(c.unit, params, c.this(), c.tparams)
        ret = subst(base.ret, bindings)
        self.fill(f, scope, ret)
        f.infer_ret = False
        r = self.random
        if base.body is not None and not base.owner.interface and r.random() < 0.4 and c.superclass and any(t.ref is base.owner for t in super_types(c.superclass)):
            call = m.Super(base, [(q, m.Get(p, p.ty)) for q, p in zip(base.params, params) if not p.star], ret)
            if ret == VOID:
                f.body.insert(0, m.Do(call))
            elif printable(ret):
                f.body.insert(0, m.Print(m.Bin("+", m.Lit("super ", STRING), call, STRING)))
        f.ready = True
        c.methods.append(f)
        return f

    def implement(self, c):
        """Bodies for all abstract methods."""
        methods = self.inherited(c)
        bodies = [f for f, _ in methods if f.body is not None]
        for base, bindings in methods:
            if base.body is None and not any(base in f.all_overridden() for f in bodies):
                f = self.define(c, base, bindings)
                bodies.append(f)

    def override(self, c):
        """Overrides something inherited that has a body and no type parameters or defaults."""
        candidates = [(f, b) for f, b in self.inherited(c) if f.body is not None and not f.tparams and f.group is None and f.name not in ("toString", "compareTo", "equals")
                      and not any(f in g.all_overridden() for g in c.methods) and not any(p.default for p in f.params)]
        if candidates:
            self.define(c, *self.random.choice(candidates))

    def hide(self, c):
        """A generic method like an inherited one, which it hides from receivers of this type."""
        r = self.random
        candidates = [(f, b) for f, b in self.inherited(c) if f.tparams and f.body is not None and not any(p.default or p.star for p in f.params)
                      and not any(f in g.all_overridden() for g in c.methods) and not any(f.name == g.name for g in c.methods)]
        if not candidates:
            return
        base, bindings = r.choice(candidates)
        if sum(g.name == base.name for g, _ in self.inherited(c)) > 1:
            return
        names = {t.name for t in c.tparams}
        tparams = []
        for t in base.tparams:
            new = TypeParam(t.name if t.name not in names else t.name + "y")
            bindings = {**bindings, t: par(new)}
            tparams.append(new)
        for t, new in zip(base.tparams, tparams):
            new.constraint = t.constraint and subst(t.constraint, bindings)
            new.default = t.default and subst(t.default, bindings)
        params = [Var(p.name, subst(p.ty, bindings)) for p in base.params]
        f = Func(base.name, tparams, params, VOID, owner=c)
        f.unit, f.ready, f.overridden = c.unit, False, [base]
        scope = Scope(c.unit, params, c.this(), tparams + c.tparams)
        self.fill(f, scope, subst(base.ret, bindings))
        f.infer_ret = False
        f.body.insert(0, m.Print(m.Lit(f"{f.name} of {c.name}", STRING)))
        f.ready = True
        c.methods.append(f)

    def overload_by_count(self, c, first):
        """A generic method of the same name with another number of parameters."""
        if any(p.default or p.star for p in first.params) or first.overridden:
            return
        before = len(c.methods)
        self.method(c, self.type_params(c.unit, 2, 1), private=False)
        second = c.methods[-1]
        if len(c.methods) > before and not any(p.default or p.star for p in second.params) and len(second.params) != len(first.params):
            second.name = first.name

    def order_and_operators(self, c):
        r = self.random
        other = lambda t: Var(self.fresh("a"), t)  # noqa: E731
        numbers = [f for f in c.fields if f.ty == INT and not f.static]
        this = m.Self(c.this())
        if numbers and not any(t.ref is Comparable for t in super_types(c.this())) and c.superclass is None:
            field, o = numbers[0], other(c.this())
            c.interfaces.append(cls(Comparable, c.this()))
            get = lambda obj: m.GetField(obj, field, INT)  # noqa: E731
            body = [m.Return(m.Lib(get(this), "compareTo", (), [(None, get(m.Get(o, c.this())))], INT))]
            self.add_method(c, "compareTo", [o], INT, body)
        if numbers and c.superclass is None and r.random() < 0.5:
            o, field = other(OBJECT), numbers[0]
            same = m.Bin("==", m.GetField(m.Cast(m.Get(o, OBJECT), c.this()), field, INT), m.GetField(this, field, INT), BOOL)
            self.add_method(c, "equals", [o], BOOL, [m.Return(m.Bin("&&", m.Is(m.Get(o, OBJECT), c.this(), False, BOOL), same, BOOL))])
            self.add_method(c, "hashCode", [], INT, [m.Return(m.Bin("+", m.GetField(this, field, INT), m.Lit(1, INT), INT))])
        if len(c.ctors) == 1 and r.random() < 0.6 and not c.superclass:
            o = other(INT)
            scope = Scope(c.unit, [o], c.this())
            try:
                self.add_method(c, "operator+", [o], c.this(), [m.Return(self.construct_simple(c, scope))])
            except NoExpression:
                pass
        if r.random() < 0.5 and not any(f.name == "operator[]" for t in super_types(c.this()) if isinstance(t.ref, Class) for f in t.ref.methods):
            o = other(INT)
            self.add_method(c, "operator[]", [o], STRING, [m.Return(self.expr(STRING, Scope(c.unit, [o], c.this()), 2))])

    def construct_simple(self, c, scope):
        return m.New(c.ctors[0], [(p, self.expr(p.ty, scope, 1)) for p in c.ctors[0].params], c.this())

    def add_method(self, c, name, params, ret, body):
        f = Func(name, [], params, ret, body, owner=c)
        f.unit, f.ready = c.unit, True
        c.methods.append(f)
        return f

    def text_method(self, c):
        """toString from the fields that have a text."""
        this = m.Self(c.this())
        value = m.Lit(c.name.lower() + "(", STRING)
        for f in c.fields:
            if not f.static and printable(f.ty):
                value = m.Bin("+", m.Bin("+", value, m.GetField(this, f, f.ty), STRING), m.Lit(";", STRING), STRING)
        f = self.add_method(c, "toString", [], STRING, [m.Return(m.Bin("+", value, m.Lit(")", STRING), STRING))])
        f.overridden = [x for x, _ in self.inherited(c) if x.name == "toString"]

    # ------------------------------------------------------------------------------------------------- main

    def main_function(self, unit):
        """Calls everything that was made, and statements that combine it."""
        r = self.random
        ret = INT if r.random() < 0.2 else VOID
        scope = Scope(unit, (), None, (), ret)
        body = []
        for d in list(self.functions):
            for _ in range(r.choice((1, 1, 1, 2))):
                self.budget = 30
                body += self.attempt(self.use_function, d, scope)
        for c in list(self.classes):
            if not c.interface:
                self.budget = 40
                body += self.attempt(self.use_class, c, scope)
        self.budget = 80
        extra = self.block(scope, r.randint(1, 5))
        if r.random() < 0.08:
            extra += self.attempt(lambda d, s: self.failure(s), None, scope)
        statements = body + extra
        if ret == INT:
            statements.append(m.Return(m.Lit(r.choice((0, 3, 7, 42, 69, 100, 255, -1, 256 + 9)), INT)))
        f = Func("main", [], [], ret, statements or [m.Pass()])
        f.unit = unit
        unit.declarations.append(f)

    def failure(self, scope):
        """A statement that stops the program."""
        r = self.random
        choice = r.randrange(7)
        zero, other = Var(self.fresh("v"), INT), Var(self.fresh("v"), OBJECT)
        if choice == 0:
            return [m.Fail(self.expr(STRING, scope, 1))]
        if choice == 1:
            op = r.choice(("/", "//", "%"))
            return [m.Let(zero, True, m.Lit(0, INT)), m.Print(m.Bin(op, self.expr(INT, scope, 1), m.Get(zero, INT), INT))]
        if choice == 2:
            kind = r.choice((INT, STRING, DOUBLE, cls(ArrayList, INT)))
            wrong = r.choice([t for t in (BOOL, LONG, cls(ArrayList, STRING)) if t != kind])
            return [m.Let(other, True, m.Coerce(self.expr(kind, scope, 1), OBJECT)), m.Print(m.Cast(m.Get(other, OBJECT), wrong))]
        if choice == 3:
            items = Var(self.fresh("v"), cls(ArrayList, INT))
            return [m.Let(items, True, m.ListLit([m.Lit(1, INT)], items.ty)), m.Print(m.Index(m.Get(items, items.ty), m.Lit(r.choice((1, -1, 7)), INT), INT))]
        if choice == 4:
            known = Var(self.fresh("v"), cls(HashMap, STRING, INT))
            return [m.Let(known, True, m.New(None, [], known.ty)), m.Print(m.Index(m.Get(known, known.ty), m.Lit("none", STRING), INT))]
        usable = [c for c in self.classes if not c.tparams and scope.sees(c)]
        if choice == 5 and usable:
            ty = m.opt(cls(r.choice(usable)))
            null = Var(self.fresh("v"), ty)
            called = next((f for f, b, _ in self.members(ty.args[0]) if isinstance(f, Func) and f.name == "toString"), None)
            if called is not None:
                return [m.Let(null, True, m.Coerce(m.Lit(None, m.NULL), ty)), m.Print(m.Invoke(m.Get(null, ty), called, (), [], STRING))]
        # Inside a function that is called through a lambda.
        text = Var(self.fresh("v"), fun([INT], INT))
        x = Var(self.fresh("p"), INT)
        return [m.Let(zero, True, m.Lit(0, INT)), m.Let(text, False, m.Lambda([x], m.Bin("/", m.Get(x, INT), m.Get(zero, INT), INT), text.ty)),
                m.Print(m.CallValue(m.Get(text, text.ty), [m.Lit(3, INT)], INT))]

    def attempt(self, use, declaration, scope):
        try:
            return use(declaration, scope)
        except NoExpression:
            return []

    def use_function(self, f, scope):
        if not scope.sees(f):
            return []
        if f.group is not None:
            call = m.Call(f.group, (), [(None, self.expr(p.ty, scope, 2)) for p in f.params], f.ret)
        else:
            call = self.complete_call(m.Call(f, (), [], f.ret), f, {}, {}, scope, 3)
        return self.shown(call, scope)

    def shown(self, call, scope):
        """A statement that prints the result, or keeps it in a variable."""
        if call is None:
            return []
        if call.ty == VOID:
            return [m.Do(call)]
        if printable(call.ty) and self.random.random() < 0.6:
            return [m.Print(m.Bin("+", m.Lit(self.label(), STRING), call, STRING))]
        var = Var(self.fresh("v"), call.ty)
        scope.variables.append(var)
        made = [m.Let(var, self.random.random() < 0.5, call)]
        made[0].erasable = made[0].typed
        if printable(call.ty):
            made.append(m.Print(m.Get(var, var.ty)))
        return made

    def use_class(self, c, scope):
        if not scope.sees(c):
            return []
        ty = self.instance(c, scope, 1)
        if not self.within_constraints(ty):
            return []
        made = self.let(scope, ty)
        var = made[0].var
        made.append(m.Print(m.Get(var, ty)))
        for member, bindings, owner in list(self.members(ty)):
            if isinstance(member, m.Field) or member.private or not member.ready or self.random.random() < 0.2:
                continue
            obj = m.Get(var, ty)
            made += self.attempt(lambda d, s: self.shown(self.method_call(obj, d, {}, bindings, subst(d.ret, bindings), s, 2), s), member, scope)
        for member in c.methods:
            if member.static:
                made += self.attempt(lambda d, s: self.shown(self.complete_call(m.CallStatic(c, d, (), [], d.ret), d, {}, {}, s, 2), s), member, scope)
            if member.name == "operator+":
                made.append(m.Print(m.Bin("+", m.Get(var, ty), self.expr(INT, scope, 1), ty)))
            if member.name == "operator[]":
                made.append(m.Print(m.Index(m.Get(var, ty), self.expr(INT, scope, 1), STRING)))
        return made


def m_collection():
    from library import Collection
    return Collection


def m_map():
    from library import Map
    return Map


def returned(statements):
    """The return statements of a body, those of lambdas left out."""
    for s in statements:
        if isinstance(s, m.Return):
            yield s
        elif isinstance(s, m.If):
            for _, body in s.arms:
                yield from returned(body)
            yield from returned(s.other or [])
        elif isinstance(s, (m.While, m.For)):
            yield from returned(s.body)


def untyped_alone(e):
    """Expressions whose type needs the place they stand in."""
    return isinstance(e, m.Lit) and e.value is None or isinstance(e, m.ListLit) and e.ty.kind == "arr"


def copy_simple(s, replaced, gone, value):
    """A constructor's statement with other parameters."""
    get = lambda e: value if e.var is gone else m.Get(replaced[e.var], e.ty)  # noqa: E731
    if isinstance(s, m.Assign):
        return m.Assign(s.target, get(s.value))
    if isinstance(s, m.Do):
        return m.Do(m.Super(s.value.target, [(q, get(a)) for q, a in s.value.args], VOID))
    return s


def generate(seed):
    return Generator(seed).program()
