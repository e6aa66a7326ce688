"""Other ways to write a program. Most must behave as the reference interpreter says of the changed model; one kind must
be an error at a known line. Each variant changes the model in place and says whether it changed anything."""

import model as m
from model import BOOL, INT, LONG, STRING, VOID, Class, Func, Group, TypeParam, Unit, Var, assignable, par, pars_of, subst
from generator import returned, untyped_alone
from scope import Scope
from trees import all_nodes, blocks, classes, copied, functions, nodes, rewrite

WORDS = ("value item index self_ list map add get put size first x y other range_ result key count Box name length it step acc data "
         "tmp node left right init_ print_ f g h T_ U_ vesk lib app core collections main_ args").split()
MEMBERS = ("T U V value get set add put size map fold first Make list key name length toArray contains hash apply call at "
           "filter index type_ operator_ next of").split()
CLASSES = "Node Box Pair List_ Item Value Entry Point Shape Tree Leaf T0 Holder Maker Outer Inner Map_ Int_ Result_ Thing".split()


def renamed(program, random):
    """Every local, member, function and class gets another name; members may share names with locals and type parameters."""
    used = set()

    def fresh(words):
        for _ in range(20):
            name = random.choice(words) + random.choice(("", "", "1", "_2", "X"))
            if name not in used:
                break
        else:
            name = random.choice(words) + str(len(used))
        used.add(name)
        return name
    groups = {}
    for c in classes(program):
        c.name = fresh(CLASSES)
    for f, _ in functions(program):
        if f.owner is None and f.name != "main":
            groups.setdefault(f.group or f, []).append(f)
    for key, members in groups.items():
        name = fresh(WORDS)
        for f in members:
            f.name = name
        if isinstance(key, Group):
            key.name = name
    # A function's name hides nothing, so members and locals use other names than functions.
    names = {}
    for c in classes(program):
        for field in c.fields:
            field.name = fresh(MEMBERS)
        for f in c.methods:
            root = f.all_overridden()[-1]
            if f.name in ("init", "toString", "compareTo", "equals", "hashCode") or f.name.startswith("operator"):
                continue
            key = f.group or root
            if key not in names:
                names[key] = fresh(MEMBERS)
    for c in classes(program):
        for f in c.methods:
            bases = f.all_overridden()
            known = [names[b.group or b] for b in bases[::-1] if (b.group or b) in names]
            if known:
                f.name = known[0]
            if f.group is not None:
                f.group.name = f.name
    # Type parameters may be named as members: those stand behind a dot.
    outer = {c.name for c in classes(program)} | {f.name for f, _ in functions(program) if f.owner is None}
    members = sorted({f.name for f, _ in functions(program) if f.owner is not None} | {x.name for c in classes(program) for x in c.fields})
    members = [n for n in members if n not in outer and n.isidentifier() and n not in ("init", "toString")]
    for c in classes(program):
        seen = set()
        for t in c.tparams:
            rename_type_param(t, members, seen, outer, random)
        for f in c.methods:
            own = set(seen)
            for t in f.tparams:
                rename_type_param(t, members, own, outer, random)
    for f, _ in functions(program):
        if f.owner is None:
            own = set()
            for t in f.tparams:
                rename_type_param(t, members, own, outer, random)
    for f, _ in functions(program):
        taken = {t.name for t in f.tparams + (f.owner.tparams if f.owner else [])} | used
        for v in variables_of(f):
            for _ in range(30):
                name = random.choice(WORDS) + random.choice(("", "", "0", "_"))
                if name not in taken:
                    break
            else:
                name = f"local{len(taken)}"
            taken.add(name)
            v.name = name
    # Overriding methods keep the names of parameters: named arguments go by the nearest declaration.
    for f, _ in functions(program):
        if len(f.all_overridden()) > 1:
            root = f.all_overridden()[-1]
            clash = {p.name for p in root.params}
            for v in variables_of(f):
                if v not in f.params and v.name in clash:
                    v.name += "_own"
            for p, q in zip(f.params, root.params):
                p.name = q.name
    return True


def rename_type_param(t, members, taken, outer, random):
    for _ in range(20):
        t.name = random.choice(members) if members and random.random() < 0.5 else random.choice(("T", "U", "Key", "Make", "Elem")) + random.choice(("", "2"))
        if t.name not in taken and t.name not in outer:
            break
    else:
        t.name = f"Param{len(taken)}"
    taken.add(t.name)


def variables_of(f):
    seen = list(f.params)
    for value in [f.body or []] + [p.default for p in f.params if p.default is not None]:
        for n in nodes(value):
            if isinstance(n, (m.Let, m.For)):
                seen.append(n.var)
            elif isinstance(n, m.Lambda):
                seen.extend(n.params)
    return dict.fromkeys(seen)


def reordered(program, random):
    """Declarations, members and overloads in another order."""
    random.shuffle(program.units)
    for unit in program.units:
        random.shuffle(unit.declarations)
        for d in unit.declarations:
            if isinstance(d, Group):
                random.shuffle(d.members)
    for c in classes(program):
        for part in (c.methods, c.ctors, c.fields, c.nested):
            random.shuffle(part)
    return True


def split(program, random):
    """Declarations of a package move to another file of it, also to a new one."""
    moved = False
    for unit in list(program.units):
        if not unit.package or not unit.declarations:
            continue
        targets = [u for u in program.units if u.package == unit.package and u is not unit] + [Unit(unit.package, f"more{len(program.units)}.vk")]
        for d in list(unit.declarations):
            if random.random() < 0.5:
                target = random.choice(targets)
                if target not in program.units:
                    program.units.append(target)
                unit.declarations.remove(d)
                target.declarations.append(d)
                place(d, target)
                moved = True
    return moved


def place(d, unit):
    if isinstance(d, Group):
        for f in d.members:
            f.unit = unit
        return
    d.unit = unit
    if isinstance(d, Class):
        for f in d.ctors + d.methods:
            f.unit = unit
        for inner in d.nested:
            place(inner, unit)


def through_identity(program, random):
    """A generic identity function, of another package, around values of calls."""
    t, unit = TypeParam("T"), Unit("identity", "same.vk")
    x = Var("x", par(t))
    same = Func("same", [t], [x], par(t), [m.Return(m.Get(x, par(t)))])
    same.unit = unit
    unit.declarations.append(same)
    program.units.append(unit)

    def wrap(e):
        if isinstance(e, (m.Call, m.Invoke, m.New, m.CallStatic, m.Get, m.Lib)) and e.ty != VOID and e.ty.kind != "opt" and random.random() < 0.4:
            return m.Identity(e, e.ty, func=same, explicit=random.random() < 0.3)
        return e

    def whole(value):
        # Targets of assignments stay as they are.
        if isinstance(value, (m.Assign, m.OpAssign)):
            value.value = whole(value.value)
            return value
        if isinstance(value, m.If):
            value.arms = [(whole(c), [whole(s) for s in body]) for c, body in value.arms]
            value.other = value.other and [whole(s) for s in value.other]
            return value
        if isinstance(value, (m.While, m.For)):
            if isinstance(value, m.While):
                value.condition = whole(value.condition)
            value.body = [whole(s) for s in value.body]
            return value
        if isinstance(value, m.Do):
            return value
        return rewrite(value, wrap)
    for f, _ in functions(program):
        if f.body and f is not same:
            f.body = [whole(s) for s in f.body]
    return True


def erased(program, random):
    """Type arguments and declared types are left out wherever they can be inferred."""
    changed = False
    for n in all_nodes(program):
        if getattr(n, "inferable", False) and n.explicit:
            n.explicit, changed = False, True
        if isinstance(n, m.Let) and n.typed and getattr(n, "erasable", False):
            n.typed, changed = False, True
    for f, _ in functions(program):
        if may_infer_result(f) and not f.infer_ret:
            f.infer_ret, changed = True, True
    return changed


def may_infer_result(f):
    if f.ret == VOID or not f.body or f.overridden or f.owner and (f.owner.interface or not f.tparams) or f.name in ("main", "init", "toString"):
        return False
    if any(isinstance(n, m.Call) and n.target is f for n in nodes(f.body)):
        return False
    return all(r.value is not None and r.value.ty == f.ret and not isinstance(r.value, m.Coerce) and not untyped_alone(r.value)
               for r in returned(f.body))


def written_out(program, random):
    """Every type argument and declared type is written."""
    for n in all_nodes(program):
        if getattr(n, "inferable", False):
            n.explicit = True
        if isinstance(n, m.Let) and n.init is not None:
            n.typed = True
    for f, _ in functions(program):
        f.infer_ret = False
    return True


def by_hand(program, random):
    """A specialization of a generic function is written as a function of its own, and called."""
    made = {}
    for n in list(all_nodes(program)):
        if not isinstance(n, m.Call) or not isinstance(n.target, Func) or not n.target.tparams or random.random() < 0.3:
            continue
        f = n.target
        if any(pars_of(t) for t in n.targs) or not all(visible(t, f.unit) for t in n.targs):
            continue
        if (f, n.targs) not in made:
            made[(f, n.targs)] = specialized(f, n.targs, len(made))
        n.args = [(q if isinstance(q, str) else made[(f, n.targs)].params[f.params.index(q)], a) for q, a in n.args]
        n.target, n.targs = made[(f, n.targs)], ()
        n.explicit = n.inferable = False
    return bool(made)


def visible(ty, unit):
    if ty.kind == "cls" and isinstance(ty.ref, Class) and not Scope(unit).sees(ty.ref):
        return False
    return all(visible(a, unit) for a in ty.args)


def specialized(f, targs, number):
    bindings, variables = dict(zip(f.tparams, targs)), dict.fromkeys(variables_of(f))
    change = lambda t: subst(t, bindings)  # noqa: E731
    params = [copied(p, variables, change) for p in f.params]
    g = Func(f"{f.name}_by_hand{number}", [], params, change(f.ret), [], None)
    g.body = copied(f.body, variables, change)
    for n in nodes(g.body):
        if isinstance(n, m.Call) and n.target is f:
            n.target, n.targs, n.explicit, n.inferable = g, (), False, False
    g.unit, g.ready = f.unit, True
    f.unit.declarations.insert(f.unit.declarations.index(f), g)
    return g


def wrong_type(program, random):
    """A declared type or an argument that does not fit: the line that must be reported, as its statement, or None."""
    found = []
    for f, unit in functions(program):
        # Packages that nothing imports are not looked at.
        if f.tparams or f.owner is not None and f.owner.tparams or not f.body or unit is not program.main:
            continue
        for block in blocks(f.body):
            found += [s for s in block if isinstance(s, m.Let) and s.init is not None and s.init.ty is not None and not pars_of(s.init.ty)]
            found += [s for s in block if isinstance(s, m.Return) and s.value is not None and not f.infer_ret and f.name != "main"]
    random.shuffle(found)
    for s in found:
        if isinstance(s, m.Return):
            s.value = m.Lit(None, m.opt(m.cls(_list(), INT)))
            # Only what can never be assigned: a list that may be null is no number, text or class of the program.
            owner = next(f for f, _ in functions(program) if any(s in b for b in blocks(f.body or [])))
            if owner.ret.kind == "prim" and owner.ret not in (m.OBJECT,):
                return s
            continue
        inner = s.init.a.ty if isinstance(s.init, m.Coerce) else s.init.ty
        source = inner.args[0] if inner.kind == "opt" else inner
        for wrong in random.sample((INT, STRING, BOOL, LONG), 4):
            if source in (m.NULL,) or source.kind == "prim" and source in m.NUMERIC and wrong in m.NUMERIC or assignable(wrong, source):
                continue
            s.typed, s.var.ty = True, wrong
            s.init = m.Coerce(s.init, wrong) if not isinstance(s.init, m.Coerce) else s.init
            return s
    return None


def _list():
    from library import ArrayList
    return ArrayList


VARIANTS = {"renamed": renamed, "reordered": reordered, "split": split, "identity": through_identity, "erased": erased,
            "written out": written_out, "by hand": by_hand}
