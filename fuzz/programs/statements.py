"""Makes statements and bodies."""

import model as m
from model import BOOL, DOUBLE, INT, INTS, NUMERIC, STRING, VOID, LibraryClass, Var, arr, cls, subst
import library
from library import ArrayList, Collection, HashMap, HashSet, LinkedList, List, Map, SortedMap, find_method
from scope import NoExpression, printable


class Statements:
    """Mixed into the generator."""

    def body(self, scope, size, ret):
        """Statements that end with a return where a value is promised."""
        statements = self.block(scope, size)
        if ret != VOID:
            statements.append(m.Return(self.fitting(ret, scope, 3)))
        elif not statements:
            statements.append(m.Pass())
        return statements

    def block(self, scope, size):
        made = []
        for _ in range(size):
            try:
                made.extend(self.statement(scope))
            except NoExpression:
                continue
        return made

    def statement(self, scope):
        """One statement; a declared variable is in sight of what follows."""
        r = self.random
        makers = [self.let] * 5 + [self.print_value] * 3 + [self.assign] * 3 + [self.branch, self.branch, self.loop, self.loop, self.change, self.change, self.effect]
        for _ in range(8):
            made = r.choice(makers)(scope)
            if made:
                return made
        return self.let(scope)

    def let(self, scope, ty=None):
        r = self.random
        ty = ty or self.value_type(scope)
        var = Var(self.fresh("v"), ty)
        typed = r.random() < 0.6
        if typed and ty.kind == "arr" and r.random() < 0.6:
            init = m.ListLit(self.elements(ty.args[0], scope, 3), ty)
            var.least = len(init.items)
        elif typed and ty.kind == "cls" and ty.ref is ArrayList and r.random() < 0.3:
            # The elements of a typed list literal may be of types below.
            init = m.ListLit([self.fitting(ty.args[0], scope, 2) for _ in range(r.randint(1, 3))], ty)
            var.least = len(init.items)
        elif typed and ty in NUMERIC + (BOOL,) and r.random() < 0.05:
            init = None
        else:
            init = self.fitting(ty, scope, 3) if typed else self.expr(ty, scope, 3)
        if isinstance(init, m.ListLit):
            var.least = len(init.items)
        if not typed and (isinstance(init, m.Lit) and init.value is None or isinstance(init, m.Coerce)):
            typed = True
        made = m.Let(var, typed, init)
        made.word = r.random() < 0.2
        made.erasable = typed and init is not None and init.ty == ty and not isinstance(init, (m.Coerce, m.Lambda)) and not (
            isinstance(init, m.Lit) and init.value is None or isinstance(init, m.ListLit) and (ty.kind == "arr" or any(
                isinstance(x, m.Coerce) for x in init.items)))
        scope.variables.append(var)
        return [made]

    def print_value(self, scope):
        r = self.random
        found = [v for v in scope.variables if printable(v.ty)]
        if found and r.random() < 0.5:
            v = r.choice(found)
            value = m.Get(v, v.ty)
        else:
            value = self.expr(self.printable_type(scope), scope, 3)
        if not printable(value.ty):
            return None
        if r.random() < 0.7:
            value = m.Bin("+", m.Lit(self.label(), STRING), value, STRING)
        return [m.Print(value)]

    def label(self):
        self.labels += 1
        return f"{self.labels}: "

    def assign(self, scope):
        r = self.random
        if scope.inside_lambda:
            return None
        targets = [m.Get(v, v.ty) for v in scope.variables if getattr(v, "may_change", True) and not hasattr(v, "loop")]
        for obj, ty in self.receivers(scope)[:4]:
            known = self.member_type(ty)
            if known is not None and isinstance(known.ref, m.Class):
                targets += [m.GetField(obj, f, subst(f.ty, b)) for f, b, owner in self.members(known)
                            if isinstance(f, m.Field) and (not f.private or scope.owner is owner)]
        targets += [m.GetStatic(c, f, f.ty) for c in self.classes if scope.sees(c) and c.complete for f in c.fields if f.static and not f.private]
        targets += [m.Index(m.Get(v, v.ty), m.Lit(r.randrange(v.least), INT), v.ty.args[0]) for v in scope.variables
                    if getattr(v, "least", 0) and not (v.ty.kind == "cls" and v.ty.ref in (Collection, library.ImmutableList))]
        if not targets:
            return None
        target = r.choice(targets)
        if isinstance(target, m.Get):
            target.var.least = 0
        if (target.ty in INTS[:4] + (DOUBLE, STRING)) and r.random() < 0.4:
            if target.ty == STRING:
                return [m.OpAssign("+", target, self.expr(self.printable_type(scope), scope, 2))]
            return [m.OpAssign(r.choice("+-*"), target, self.expr(target.ty, scope, 2))]
        return [m.Assign(target, self.fitting(target.ty, scope, 3))]

    def branch(self, scope):
        r = self.random
        if self.budget < 0:
            return None
        arms = [(self.expr(BOOL, scope, 2), self.inner_block(scope)) for _ in range(1 if r.random() < 0.7 else 2)]
        return [m.If(arms, self.inner_block(scope) if r.random() < 0.5 else None)]

    def inner_block(self, scope, *variables):
        inner = scope.inner(*variables)
        made = self.block(inner, self.random.randint(1, 2))
        r = self.random
        if inner.loops and r.random() < 0.15:
            made.append(r.choice((m.Break, m.Continue))())
        elif not inner.loops and scope.ret is not None and r.random() < 0.08 and not scope.inside_lambda:
            if scope.ret == VOID:
                made.append(m.Return(None))
            else:
                made.append(m.Return(self.fitting(scope.ret, inner, 2)))
        return made or [m.Pass()]

    def loop(self, scope):
        r = self.random
        if self.budget < 0 or scope.loops >= 2:
            return None
        if r.random() < 0.25:
            counter = Var(self.fresh("n"), INT)
            counter.may_change = False
            start = m.Let(counter, r.random() < 0.5, m.Lit(0, INT))
            inner = scope.inner(counter)
            inner.loops += 1
            body = [m.OpAssign("+", m.Get(counter, INT), m.Lit(1, INT))] + self.inner_block(inner)
            scope.variables.append(counter)
            return [start, m.While(m.Bin("<", m.Get(counter, INT), m.Lit(r.randint(1, 3), INT), BOOL), body)]
        choice = r.random()
        if choice < 0.4:
            first = r.randint(0, 2)
            source, element = m.LibStatic(None, "range", (), [(None, m.Lit(first, INT)), (None, m.Lit(first + r.randint(0, 3), INT))], cls(library.Range)), INT
        else:
            found = [v for v in scope.variables if v.ty.kind == "arr" or v.ty.kind == "cls" and isinstance(v.ty.ref, LibraryClass)
                     and v.ty.ref not in (library.Tuple, library.Comparable)]
            if found and r.random() < 0.7:
                v = r.choice(found)
                source = m.Get(v, v.ty)
            else:
                ty = cls(r.choice((ArrayList, LinkedList)), self.value_type(scope, 1)) if r.random() < 0.7 else arr(self.value_type(scope, 1))
                source = self.expr(ty, scope, 2)
            element = source.ty.args[0]
        var = Var(self.fresh("e"), element)
        var.loop = True
        inner = scope.inner(var)
        inner.loops += 1
        return [m.For(var, source, self.inner_block(inner))]

    def change(self, scope):
        """A method that changes a collection, or an entry that is set."""
        r = self.random
        found = [v for v in scope.variables if v.ty.kind == "cls" and v.ty.ref in (ArrayList, LinkedList, List, HashSet, HashMap, Map, SortedMap)]
        if not found or scope.inside_lambda:
            return None
        v = r.choice(found)
        if v.ty.ref in (HashMap, Map, SortedMap) and r.random() < 0.5:
            return [m.Assign(m.Index(m.Get(v, v.ty), self.expr(v.ty.args[0], scope, 1), v.ty.args[1]), self.fitting(v.ty.args[1], scope, 2))]
        names = {"List": ("add", "add", "add", "addAll", "remove", "reverse", "insert"), "Set": ("add", "add", "remove", "addAll"),
                 "Map": ("put", "put", "remove", "clear")}["Map" if v.ty.ref in (HashMap, Map, SortedMap) else "Set" if v.ty.ref is HashSet else "List"]
        name = r.choice(names)
        owner, method = find_method(v.ty, name)
        bindings = m.own_bindings(owner)
        if name == "remove" and v.ty.args[0].kind != "prim":
            return None
        if name in ("remove", "clear"):
            v.least = 0
        if name == "insert":
            args = [(None, m.Lit(0, INT)), (None, self.fitting(v.ty.args[0], scope, 2))]
        else:
            args = [(None, self.fitting(subst(t, bindings), scope, 2)) for _, t in method.params]
        return [m.Do(m.Lib(m.Get(v, v.ty), name, (), args, method.ret))]

    def effect(self, scope):
        """A call of something that answers nothing."""
        made = self.from_call(VOID, scope, 2) if self.random.random() < 0.5 else self.from_member(VOID, scope, 2)
        return [m.Do(made)] if made is not None else None
