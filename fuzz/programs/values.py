"""Values of a running program. Numbers, Bool and String are Python's own where their static type is known; what stands
in a place for any object carries its type (Boxed)."""


class Discard(Exception):
    """The program does what the reference interpreter does not model: it is thrown away and another one is made."""


class Boxed:
    def __init__(self, type, value):
        self.type, self.value = type, value


class Obj:
    """An object of a class of the program."""

    def __init__(self, type):
        self.type, self.fields = type, {}


class Items:
    """A list of the library."""

    def __init__(self, kind, args, items):
        self.kind, self.args, self.items, self.version = kind, args, items, 0

    def values(self):
        return self.items


class Keyed:
    """A map or set of the library: entries by hash key, each with its key and value."""

    def __init__(self, kind, args):
        self.kind, self.args, self.entries, self.version = kind, args, {}, 0

    def order(self):
        if self.kind.name == "SortedMap":
            from library import by_order
            return sorted(self.entries, key=lambda k: by_order(self.entries[k][0]))
        return list(self.entries)

    def row(self, key):
        return self.entries[key]

    def values(self):
        """What a loop walks over: keys of a map, elements of a set."""
        return [self.entries[k][0] for k in self.order()]


class Pair:
    def __init__(self, args, first, second):
        self.args, self.first, self.second = args, first, second


class Row:
    """An array."""

    def __init__(self, element, items):
        self.element, self.items = element, items

    def values(self):
        return self.items


class Numbers:
    """range(from, to)."""

    def __init__(self, first, end):
        self.first, self.end = first, end

    def values(self):
        return range(self.first, self.end)


class Closure:
    def __init__(self, type, run):
        self.type, self.run = type, run


def key_of(value):
    """A hashable stand-in that is equal exactly when the values are."""
    if isinstance(value, Pair):
        return (key_of(value.first), key_of(value.second))
    if isinstance(value, bool) or isinstance(value, (int, str)):
        return (type(value).__name__, value)
    raise Discard("key of another kind")
