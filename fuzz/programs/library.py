"""The part of the standard library that programs use: its classes with their methods' types, and what the methods do."""

import functools

from model import BOOL, INT, STRING, VOID, LibraryClass, TypeParam, arr, cls, fun, opt, par, super_types
from arithmetic import Failure, compare
from values import Discard, Items, Keyed, Pair, Row, key_of

CLASSES = {}


def lookup(qualified):
    return CLASSES[qualified]


class LibraryMethod:
    """A method: run(machine, receiver, arguments, bindings); risky ones may panic."""

    def __init__(self, name, tparams, params, ret, run, static=False, risky=False, changes=False):
        self.name, self.tparams, self.params, self.ret, self.run = name, tparams, params, ret, run
        self.static, self.risky, self.changes = static, risky, changes

    def __deepcopy__(self, memo):
        return self


def declare(qualified, names, interface=False, constraints=()):
    tparams = [TypeParam(n) for n in names]
    made = LibraryClass(qualified, tparams, interface)
    for p in tparams:
        p.__class__ = LibraryTypeParam
    for index, constraint in constraints:
        tparams[index].constraint = constraint(par(tparams[index]))
    CLASSES[qualified] = made
    return made


class LibraryTypeParam(TypeParam):
    def __deepcopy__(self, memo):
        return self


def method(owner, name, params, ret, run, tparams=(), **more):
    for p in tparams:
        p.__class__ = LibraryTypeParam
    owner.methods[name] = LibraryMethod(name, list(tparams), [(n, t) for n, t in params], ret, run, **more)


def element(c, index=0):
    return par(c.tparams[index])


Comparable = declare("vesk.Comparable", "T", True)
Iterable = declare("vesk.Iterable", "T", True)
Iterator = declare("vesk.Iterator", "T", True)
Range = declare("vesk.IntRange", "", False)
Range.supers = [cls(Iterable, INT)]
comparable = lambda t: cls(Comparable, t)  # noqa: E731
COLLECTIONS = "vesk.collections."
Collection = declare(COLLECTIONS + "Collection", "T", True)
IList = declare(COLLECTIONS + "IList", "T", True)
List = declare(COLLECTIONS + "List", "T", True)
ArrayList = declare(COLLECTIONS + "ArrayList", "T")
LinkedList = declare(COLLECTIONS + "LinkedList", "T")
ImmutableList = declare(COLLECTIONS + "ImmutableList", "T")
Set = declare(COLLECTIONS + "Set", "T", True)
HashSet = declare(COLLECTIONS + "HashSet", "T")
Map = declare(COLLECTIONS + "Map", "KV", True)
HashMap = declare(COLLECTIONS + "HashMap", "KV")
SortedMap = declare(COLLECTIONS + "SortedMap", "KV", constraints=[(0, comparable)])
Tuple = declare(COLLECTIONS + "Tuple", "AB")
Collections = declare(COLLECTIONS + "Collections", "")
for below, above in ((Collection, Iterable), (IList, Collection), (List, IList), (ArrayList, List), (LinkedList, ArrayList),
                     (ImmutableList, IList), (Set, Collection), (HashSet, Set)):
    below.supers = [cls(above, element(below))]
for below in (HashMap, SortedMap):
    below.supers = [cls(Map, element(below), element(below, 1))]
Map.supers = [cls(Iterable, element(Map))]
Tuple.supers = [cls(Comparable, cls(Tuple, element(Tuple), element(Tuple, 1)))]

LISTS = (ArrayList, LinkedList, ImmutableList)
CONCRETE = LISTS + (HashSet, HashMap, SortedMap, Tuple)


def order(a, b):
    if isinstance(a, Pair):
        return order(a.first, b.first) or order(a.second, b.second)
    if hasattr(a, "type") or a is None:
        raise Discard("order of objects")
    if isinstance(a, float) and (a != a or b != b):
        raise Discard("order of nan")
    return compare(a, b)


by_order = functools.cmp_to_key(order)


def at(items, index):
    if not 0 <= index < len(items):
        raise Failure(f"index {index} out of range for length {len(items)}")
    return items[index]


def changed(collection):
    collection.version += 1
    return collection


def same_in(machine, collection, x):
    t = collection.args[0]
    for i, item in enumerate(collection.values()):
        if machine.equal(item, t, x, t):
            return i
    return -1


def add(machine, c, args, bind):
    if isinstance(c, Keyed):
        k = key_of(args[0])
        if k in c.entries:
            return False
        changed(c).entries[k] = (args[0], None)
    else:
        changed(c).items.append(args[0])
    return True


def add_all(machine, c, args, bind):
    results = [add(machine, c, [x], bind) for x in list(args[0].values())]
    return any(results)


def new_list(machine, bind_type, items):
    return Items(ArrayList, (bind_type,), list(items))


def walk(machine, c):
    """The elements one by one; a collection that changes meanwhile is not a case that programs contain."""
    version = getattr(c, "version", 0)
    for x in list(c.values()):
        if getattr(c, "version", 0) != version:
            raise Discard("changed while walking")
        yield x
    if getattr(c, "version", 0) != version:
        raise Discard("changed while walking")


def call(machine, f, *args):
    return machine.apply(f, list(args))


T = element(Collection)
R, A, U, K2 = TypeParam("R"), TypeParam("A"), TypeParam("U"), TypeParam("K")
K2.constraint = comparable(par(K2))
KG, W = TypeParam("K"), TypeParam("W")
method(Collection, "size", [], INT, lambda m, c, a, b: len(c.values()))
method(Collection, "isEmpty", [], BOOL, lambda m, c, a, b: len(c.values()) == 0)
method(Collection, "contains", [("x", T)], BOOL, lambda m, c, a, b: same_in(m, c, a[0]) >= 0)
method(Collection, "filter", [("f", fun([T], BOOL))], cls(ArrayList, T),
       lambda m, c, a, b: new_list(m, c.args[0], [x for x in walk(m, c) if call(m, a[0], x)]))
method(Collection, "any", [("f", fun([T], BOOL))], BOOL, lambda m, c, a, b: any(call(m, a[0], x) for x in walk(m, c)))
method(Collection, "all", [("f", fun([T], BOOL))], BOOL, lambda m, c, a, b: all(call(m, a[0], x) for x in walk(m, c)))
method(Collection, "find", [("f", fun([T], BOOL))], opt(T),
       lambda m, c, a, b: next((x for x in walk(m, c) if call(m, a[0], x)), None))
method(Collection, "joinToString", [("separator", STRING)], STRING,
       lambda m, c, a, b: m.joined(a[0], (m.text(x, c.args[0]) for x in walk(m, c))))
method(Collection, "map", [("f", fun([T], par(R)))], cls(ArrayList, par(R)),
       lambda m, c, a, b: new_list(m, b[R], [call(m, a[0], x) for x in walk(m, c)]), tparams=[R])
method(Collection, "flatMap", [("f", fun([T], cls(Collection, par(R))))], cls(ArrayList, par(R)),
       lambda m, c, a, b: new_list(m, b[R], [y for x in walk(m, c) for y in call(m, a[0], x).values()]), tparams=[R])
method(Collection, "fold", [("start", par(A)), ("f", fun([par(A), T], par(A)))], par(A),
       lambda m, c, a, b: functools.reduce(lambda r, x: call(m, a[1], r, x), walk(m, c), a[0]), tparams=[A])
method(Collection, "zip", [("other", cls(Collection, par(U)))], cls(ArrayList, cls(Tuple, T, par(U))),
       lambda m, c, a, b: new_list(m, cls(Tuple, c.args[0], b[U]),
                                   [Pair((c.args[0], b[U]), x, y) for x, y in zip(list(c.values()), list(a[0].values()))]),
       tparams=[U])


def group_by(machine, c, args, bind):
    groups = Keyed(HashMap, (bind[KG], cls(ArrayList, c.args[0])))
    for x in walk(machine, c):
        k = call(machine, args[0], x)
        groups.entries.setdefault(key_of(k), (k, new_list(machine, c.args[0], [])))[1].items.append(x)
    return groups


method(Collection, "groupBy", [("f", fun([T], par(KG)))], cls(HashMap, par(KG), cls(ArrayList, T)), group_by, tparams=[KG])


def sorted_by(machine, c, args, bind):
    items = [(call(machine, args[0], x), x) for x in walk(machine, c)]
    return new_list(machine, c.args[0], [x for _, x in sorted(items, key=lambda p: by_order(p[0]))])


method(Collection, "sortedBy", [("f", fun([T], par(K2)))], cls(ArrayList, T), sorted_by, tparams=[K2])

L = element(IList)
method(IList, "get", [("index", INT)], L, lambda m, c, a, b: m.present(at(c.items, a[0]), c.args[0]), risky=True)
method(IList, "indexOf", [("x", L)], INT, lambda m, c, a, b: same_in(m, c, a[0]))
method(IList, "lastIndexOf", [("x", L)], INT,
       lambda m, c, a, b: max((i for i, x in enumerate(c.items) if m.equal(x, c.args[0], a[0], c.args[0])), default=-1))
method(IList, "toArray", [], arr(L), lambda m, c, a, b: Row(c.args[0], list(c.items)))


def reverse(machine, c, args, bind):
    changed(c).items.reverse()


def sort(machine, c, args, bind):
    if c.args[0].kind == "cls" and c.args[0].ref is not Tuple:
        raise Discard("order of objects")
    changed(c).items.sort(key=by_order)


def remove(machine, c, args, bind):
    if isinstance(c, Keyed):
        return changed(c).entries.pop(key_of(args[0]), None) is not None
    found = same_in(machine, c, args[0])
    if found >= 0:
        del changed(c).items[found]
    return found >= 0


def insert(machine, c, args, bind):
    if not 0 <= args[0] <= len(c.items):
        raise Discard("insert out of range")
    changed(c).items.insert(args[0], args[1])


def clear(machine, c, args, bind):
    (changed(c).entries if isinstance(c, Keyed) else changed(c).items).clear()


M = element(List)
for owner, t in ((List, M), (HashSet, element(HashSet))):
    method(owner, "add", [("x", t)], BOOL, add, changes=True)
    method(owner, "remove", [("x", t)], BOOL, remove, changes=True)
    method(owner, "clear", [], VOID, clear, changes=True)
    method(owner, "addAll", [("items", cls(Collection, t))], BOOL, add_all, changes=True)
method(List, "insert", [("index", INT), ("x", M)], VOID, insert, changes=True, risky=True)
method(List, "sort", [], VOID, sort, changes=True, risky=True)
method(List, "reverse", [], VOID, reverse, changes=True)
S = element(HashSet)


def set_of(machine, c, chosen):
    made = Keyed(HashSet, c.args)
    made.entries = {key_of(x): (x, None) for x in chosen}
    return made


method(HashSet, "unionWith", [("items", cls(Collection, S))], cls(HashSet, S),
       lambda m, c, a, b: set_of(m, c, list(c.values()) + [x for x in a[0].values() if key_of(x) not in c.entries]))
method(HashSet, "difference", [("items", cls(Collection, S))], cls(HashSet, S),
       lambda m, c, a, b: set_of(m, c, [x for x in c.values() if key_of(x) not in {key_of(y) for y in a[0].values()}]))
K, V = element(Map), element(Map, 1)


def put(machine, c, args, bind):
    if args[0] is None:
        raise Discard("null as key")
    k = key_of(args[0])
    if k in c.entries:
        args = [c.entries[k][0], args[1]]
    else:
        changed(c)
    c.entries[k] = (args[0], args[1])


def get(machine, c, args, bind):
    k = key_of(args[0])
    if k not in c.entries:
        raise Failure("key not found: " + machine.text(args[0], c.args[0]))
    return c.entries[k][1]


def map_values(machine, c, args, bind):
    made = Keyed(HashMap, (c.args[0], bind[W]))
    for k, v in [c.row(k) for k in c.order()]:
        made.entries[key_of(k)] = (k, call(machine, args[0], v))
    return made


method(Map, "size", [], INT, lambda m, c, a, b: len(c.entries))
method(Map, "isEmpty", [], BOOL, lambda m, c, a, b: not c.entries)
method(Map, "put", [("key", K), ("value", V)], VOID, put, changes=True)
method(Map, "get", [("key", K)], V, get, risky=True)
method(Map, "getOrDefault", [("key", K), ("other", V)], V,
       lambda m, c, a, b: c.entries[key_of(a[0])][1] if key_of(a[0]) in c.entries else a[1])
method(Map, "getOrNull", [("key", K)], opt(V), lambda m, c, a, b: c.entries.get(key_of(a[0]), (None, None))[1])
method(Map, "containsKey", [("key", K)], BOOL, lambda m, c, a, b: key_of(a[0]) in c.entries)
method(Map, "remove", [("key", K)], BOOL, remove, changes=True)
method(Map, "clear", [], VOID, clear, changes=True)
method(Map, "keys", [], cls(ArrayList, K), lambda m, c, a, b: new_list(m, c.args[0], [c.row(k)[0] for k in c.order()]))
method(Map, "values", [], cls(ArrayList, V), lambda m, c, a, b: new_list(m, c.args[1], [c.row(k)[1] for k in c.order()]))
method(Map, "entries", [], cls(ArrayList, cls(Tuple, K, V)),
       lambda m, c, a, b: new_list(m, cls(Tuple, *c.args), [Pair(c.args, *c.row(k)) for k in c.order()]))
method(Map, "mapValues", [("f", fun([V], par(W)))], cls(HashMap, K, par(W)), map_values, tparams=[W])
method(Tuple, "first", [], element(Tuple), lambda m, c, a, b: c.first)
method(Tuple, "second", [], element(Tuple, 1), lambda m, c, a, b: c.second)
X, N, O = TypeParam("T"), TypeParam("T"), TypeParam("T")
for p in (X, N):
    p.constraint = comparable(par(p))


def best(sign):
    def run(machine, c, args, bind):
        items = list(args[0].values())
        if not items:
            raise Discard("greatest of nothing")
        found = items[0]
        for x in items[1:]:
            if machine.compare(x, found) * sign > 0:
                found = x
        return found
    return run


method(Collections, "max", [("c", cls(Collection, par(X)))], par(X), best(1), tparams=[X], static=True, risky=True)
method(Collections, "min", [("c", cls(Collection, par(N)))], par(N), best(-1), tparams=[N], static=True, risky=True)
method(Collections, "of", [("*items", par(O))], cls(ArrayList, par(O)),
       lambda m, c, a, b: new_list(m, b[O], a), tparams=[O], static=True)


def find_method(ty, name):
    """The method with the instantiation that declares it."""
    for t in super_types(ty):
        if t.kind == "cls" and isinstance(t.ref, LibraryClass) and name in t.ref.methods:
            return t, t.ref.methods[name]
    return None


STRING_METHODS = {
    "length": ([], INT, lambda s: len(s)), "upper": ([], STRING, lambda s: s.upper()), "lower": ([], STRING, lambda s: s.lower()),
    "trim": ([], STRING, lambda s: s.strip(" \t\n\r")), "contains": ([STRING], BOOL, lambda s, x: x in s),
    "startsWith": ([STRING], BOOL, lambda s, x: s.startswith(x)), "endsWith": ([STRING], BOOL, lambda s, x: s.endswith(x)),
    "indexOf": ([STRING], INT, lambda s, x: s.find(x)),
    "replace": ([STRING, STRING], STRING, lambda s, a, b: s.replace(a, b) if a else s),
}
