"""The constructs of the grammar, each as a generator of programs of a given size.

A construct answers for a size n the text of a program, or {path: text} with `main.vk` among the paths. What a bound of
the language keeps small (nesting, mostly) is repeated instead: `copies` times the same thing of depth n, so that its
cost can be measured although n stays below the bound.
"""
from dataclasses import dataclass

NESTING = "expressions, blocks and types nest 256 deep"
REQUESTS = "a chain of specializations has 200 links"
ARGUMENTS = "the type arguments of a request have 64 KiB of text"


@dataclass
class Construct:
    name: str
    make: object
    first: int = 250  # the smallest size
    largest: int = 1 << 20
    limit: str = ""  # why there is no larger size
    modes: tuple = ("check", "run")
    status: int = 0  # what `check` ends with
    known: str = ""  # why it grows faster than n log n, where that is known and not mended
    quick: bool = True  # part of the short form


CONSTRUCTS = []


def construct(name, **options):
    def add(make):
        assert all(each.name != name for each in CONSTRUCTS), name
        CONSTRUCTS.append(Construct(name, make, **options))
        return make
    return add


def nested(name, **options):
    """A construct whose depth is bounded."""
    options.setdefault("limit", NESTING)
    options.setdefault("first", 30)
    options.setdefault("largest", 240)
    return construct(name, **options)


def lines(*parts):
    out = []
    for part in parts:
        out.append(part) if isinstance(part, str) else out.extend(part)
    return "\n".join(out) + "\n"


def main(*parts):
    """`def main` with these lines as its body; each part is a line or a sequence of lines."""
    body = lines(*parts).rstrip("\n").split("\n")
    return "def main() -> Void:\n" + "\n".join("    " + line for line in body) + "\n"


def repeated(n, pattern):
    """The pattern for each number below n; `{i}` is the number, `{p}` the one before."""
    return [pattern.replace("{i}", str(i)).replace("{p}", str(i - 1)) for i in range(n)]


def chain(n, operand, operator):
    return operator.join([operand] * n)


# ------------------------------------------------------------------------------------------------ 1. source text

@construct("line comments", first=4000)
def line_comments(n):
    return lines(["# what this line says is of no matter"] * n, main("print(1)"))


@construct("lines of one block comment", first=4000)
def block_comment(n):
    return lines("/*", ["what this line says # is /* of no matter"] * n, "*/", main("print(1)"))


@construct("block comments", first=4000)
def block_comments(n):
    return lines(["/* short */"] * n, main("print(1)"))


@construct("comments inside an expression", first=4000)
def comments_in_expression(n):
    return main("x: Int = (1", [" /* one more */ # and\n + 1"] * n, ")", "print(x)")


@construct("one long comment line", first=100000, largest=1 << 26)
def long_comment(n):
    return "# " + "x" * n + "\n" + main("print(1)")


@construct("blank lines", first=10000, largest=1 << 24)
def blank_lines(n):
    return main("print(1)") + "\n" * n + "# end\n"


@construct("blank lines inside a body", first=10000, largest=1 << 24)
def blank_lines_in_body(n):
    return main("print(1)") + "\n" * n + "    print(2)\n"


@construct("length of a string literal", first=100000, largest=1 << 25)
def long_string(n):
    return main('x: String = "' + "a" * n + '"', "print(x.length())")


@construct("escapes in a string literal", first=20000, largest=1 << 24)
def escapes(n):
    return main('x: String = "' + "\\n\\u{1F600}\\\\" * n + '"', "print(x.length())")


@construct("string literals", first=2000)
def string_literals(n):
    return main(repeated(n, 'print("text {i}")'))


@construct("length of an identifier", first=100000, largest=1 << 24)
def long_identifier(n):
    name = "a" * n
    return main(f"{name}: Int = 1", f"print({name})")


@construct("identifiers of 200 characters")
def long_identifiers(n):
    return main(repeated(n, "v" * 200 + "{i}: Int = {i}"))


@construct("digits of a literal", first=100000, largest=1 << 23)
def long_number(n):
    return main("x: Int = 0x" + "0_" * n + "1", "print(x)")


@construct("digits of a floating literal", first=100000, largest=1 << 23)
def long_float(n):
    return main("x: Double = 0." + "3" * n, "print(x)")


@construct("comparisons that look like clauses", first=1000)
def clause_like(n):
    return main("a: Int = 1", "b: Bool = false", "b = " + chain(n, "a < 2 && a > 0", " && "))


@construct("arguments that look like clauses", first=1000, status=1, modes=("check",))
def clause_like_arguments(n):
    return lines("def f(x: Bool) -> Void:", "    pass", main("a: Int = 1", "f(" + chain(n, "a<a", ", ") + ")"))


@construct("open clauses that never close", first=1000, status=1, modes=("check",))
def open_clauses(n):
    return main("x: Int = " + "a<" * n)


@construct("open brackets that never close", first=1000, status=1, modes=("check",))
def open_brackets(n):
    return main("x: Int = (" * n)


@construct("unclosed brackets on many lines", first=1000, status=1, modes=("check",))
def open_brackets_on_lines(n):
    return lines(["def f(x: Int[", ""] * n)


@construct("unclosed strings", first=1000, status=1, modes=("check",))
def open_strings(n):
    return main(['x: String = "abc'] * n)


@construct("wide clause", first=200, largest=12800, limit="type arguments have 64 KiB")
def wide_clause(n):
    return lines(f"def f<{', '.join(repeated(n, 'T{i}'))}>() -> Int:", "    return 1",
                 main(f"print(f<{', '.join(['Int'] * n)}>())"))


@construct("continuation lines", first=2000)
def continuation(n):
    return main("print(1", ["    + 1"] * n, ")")


@construct("indentation widths", first=30, largest=240, limit=NESTING)
def widths(n):
    out = []
    for copy in range(40):
        out.append(f"def f{copy}() -> Void:")
        out += [" " * (4 * depth + 4) + "if true:" for depth in range(n)]
        out.append(" " * (4 * n + 4) + "pass")
    return lines(out, main("print(1)"))


# ------------------------------------------------------------------------------------------------------ 2. files

@construct("files of a package", first=50, largest=1 << 14)
def files_of_package(n):
    files = {f"p/f{i}.vk": f"package p\ndef f{i}() -> Int:\n    return {i}\n" for i in range(n)}
    files["main.vk"] = lines("import p", main(repeated(n, "print(f{i}())")))
    return files


@construct("packages and imports", first=50, largest=1 << 14)
def packages(n):
    files = {f"p{i}/f.vk": f"package p{i}\ndef f{i}() -> Int:\n    return {i}\n" for i in range(n)}
    files["main.vk"] = lines(repeated(n, "import p{i}"), main(repeated(n, "print(p{i}.f{i}())")))
    return files


@construct("chain of imports", first=50, largest=1 << 14)
def import_chain(n):
    files = {f"p{i}/f.vk": f"package p{i}\nimport p{i + 1}\ndef f{i}() -> Int:\n    return f{i + 1}()\n"
             for i in range(n)}
    files[f"p{n}/f.vk"] = f"package p{n}\ndef f{n}() -> Int:\n    return 1\n"
    files["main.vk"] = lines("import p0", main("print(f0())"))
    return files


@construct("ring of imports", first=50, largest=1 << 14)
def import_ring(n):
    files = {f"p{i}/f.vk": f"package p{i}\nimport p{(i + 1) % n}\ndef f{i}(n: Int) -> Int:\n"
             f"    return f{(i + 1) % n}(n - 1) if n > 0 else 0\n" for i in range(n)}
    files["main.vk"] = lines("import p0", main("print(f0(10))"))
    return files


@construct("chain of imports, interactively", first=50, largest=1 << 12, modes=("repl",))
def interactive_import_chain(n):
    return import_chain(n) | {"main.vk": lines("import p0", "f0()")}


@construct("names through many imports", first=50, largest=1 << 12)
def names_through_imports(n):
    """One name, used often, from the last of 40 imports."""
    files = {f"p{i}/f.vk": f"package p{i}\nclass C{i}:\n    pass\n" for i in range(40)}
    files["main.vk"] = lines(repeated(40, "import p{i}"), main([f"C39()"] * n))
    return files


@construct("depth of a package", first=20, largest=200, limit="a path has 4096 bytes")
def deep_package(n):
    name = ".".join(["q"] * n)
    return {"/".join(["q"] * n) + "/f.vk": f"package {name}\ndef f() -> Int:\n    return 1\n",
            "main.vk": lines(f"import {name}", main(f"print({name}.f())"))}


@construct("static fields over files", first=50, largest=1 << 14)
def static_files(n):
    files = {f"p/f{i}.vk": f"package p\nclass C{i}:\n    static v: Int = {i}\n" for i in range(n)}
    files["main.vk"] = lines("import p", main(repeated(n, "print(C{i}.v)")))
    return files


# ------------------------------------------------------------------------------------------------------ 3. types

@nested("depth of a type text", first=10, largest=240)
def deep_type(n):
    return lines("class A<T>:", "    pass",
                 repeated(20, "def f{i}(x: " + "A<" * n + f"A<Int>" + ">" * n + ") -> Void:\n    pass"), main("print(1)"))


@nested("depth of a function type", first=10)
def deep_function_type(n):
    return lines(repeated(20, "def f{i}(x: " + "(" * n + "Int" + ") -> Int" * n + ") -> Void:\n    pass"),
                 main("print(1)"))


@construct("parameters of a function type")
def wide_function_type(n):
    return lines(f"def f(g: ({', '.join(['Int'] * n)}) -> Int) -> Void:", "    pass", main("print(1)"))


@nested("dimensions of an array type")
def dimensions(n):
    return lines(repeated(20, "def f{i}(x: Int" + "[]" * n + ") -> Void:\n    pass"), main("print(1)"))


@construct("instantiations of a generic class")
def instantiations(n):
    return lines("class B<T>:", "    v: T", "    def init(v: T):", "        self.v = v", "    def get() -> T:",
                 "        return self.v", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "B<C{i}>(C{i}()).get()")))


@construct("instantiations with super classes")
def instantiations_with_supers(n):
    return lines("interface I<T>:", "    def get() -> T", "class A<T> implements I<T>:", "    v: T",
                 "    def init(v: T):", "        self.v = v", "    def get() -> T:", "        return self.v",
                 "class B<T> extends A<T>:", "    def init(v: T):", "        super.init(v)",
                 repeated(n, "class C{i}:\n    pass"), main(repeated(n, "x{i}: I<C{i}> = B<C{i}>(C{i}())")))


@construct("list types of the library")
def list_types(n):
    return lines("import vesk.collections", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "x{i}: ArrayList<C{i}> = []")))


@nested("nested instantiations", first=10, largest=160, modes=("check", "run"))
def nested_instantiations(n):
    return lines("class B<T>:", "    v: T", "    def init(v: T):", "        self.v = v",
                 main("var x0 = B<Int>(1)", [f"var x{i} = B(x{i - 1})" for i in range(1, n)]))


@construct("chain of classes")
def class_chain(n):
    return lines("class C0:", "    pass", [f"class C{i} extends C{i - 1}:\n    pass" for i in range(1, n)],
                 main(f"x: C0 = C{n - 1}()"))


@construct("chain of classes, one method overridden")
def class_chain_override(n):
    return lines("class C0:", "    def f() -> Int:\n        return 0",
                 [f"class C{i} extends C{i - 1}:\n    def f() -> Int:\n        return {i}" for i in range(1, n)],
                 main(f"print(C{n - 1}().f())"))


@construct("chain of classes, the first one's method called")
def class_chain_call(n):
    return lines("class C0:", "    def f() -> Int:\n        return 0",
                 [f"class C{i} extends C{i - 1}:\n    pass" for i in range(1, n)], main(repeated(n, "C{i}().f()")))


@construct("chain of classes, super called")
def class_chain_super(n):
    return lines("class C0:", "    def f() -> Int:\n        return 0",
                 [f"class C{i} extends C{i - 1}:\n    def f() -> Int:\n        return super.f() + 1"
                  for i in range(1, n)], main("print(C0().f())"))


@construct("chain of classes, a field each")
def class_chain_fields(n):
    return lines("class C0:", "    f0: Int = 0",
                 [f"class C{i} extends C{i - 1}:\n    f{i}: Int = {i}" for i in range(1, n)],
                 main(f"print(C{n - 1}().f0)"))


@construct("chain of classes, a method each")
def class_chain_methods(n):
    return lines("class C0:", "    def f0() -> Int:\n        return 0",
                 [f"class C{i} extends C{i - 1}:\n    def f{i}() -> Int:\n        return {i}" for i in range(1, n)],
                 main(f"print(C{n - 1}().f0())"))


@construct("chain of classes, an interface each")
def class_chain_interfaces(n):
    return lines(repeated(n, "interface I{i}:\n    def f{i}() -> Int"), "class C0 implements I0:",
                 "    def f0() -> Int:\n        return 0",
                 [f"class C{i} extends C{i - 1} implements I{i}:\n    def f{i}() -> Int:\n        return {i}"
                  for i in range(1, n)], main(f"x: I0 = C{n - 1}()", "print(x.f0())"))


@construct("chain of classes beside one of interfaces", largest=1 << 13)
def class_chain_beside_interfaces(n):
    return lines("interface I0:\n    def f0() -> Int",
                 [f"interface I{i} extends I{i - 1}:\n    def f{i}() -> Int" for i in range(1, n)],
                 "class C0 implements I0:", "    def f0() -> Int:\n        return 0",
                 [f"class C{i} extends C{i - 1} implements I{i}:\n    def f{i}() -> Int:\n        return {i}"
                  for i in range(1, n)], main(f"x: I0 = C{n - 1}()", "print(x.f0())"))


@construct("chain of classes between two of interfaces", largest=1 << 13)
def class_chain_between_interfaces(n):
    step = ("interface I{i} extends I{j}:\n    def f{i}() -> Int\n"
            "interface J{i} extends J{j}:\n    def g{i}() -> Int:\n        return {i}\n"
            "class C{i} extends C{j} implements I{i}, J{i}:\n    def f{i}() -> Int:\n        return {i}")
    return lines("interface I0:\n    def f0() -> Int", "interface J0:\n    def g0() -> Int:\n        return 0",
                 "class C0 implements I0, J0:", "    def f0() -> Int:\n        return 0",
                 [step.format(i=i, j=i - 1) for i in range(1, n)], main(f"x: J0 = C{n - 1}()", "print(x.g0())"))


@construct("chain of generic classes", largest=1 << 12)
def generic_class_chain(n):
    return lines("class C0<T>:", "    pass", [f"class C{i}<T> extends C{i - 1}<T>:\n    pass" for i in range(1, n)],
                 main(f"x: C0<Int> = C{n - 1}<Int>()"))


@construct("classes below one class")
def wide_classes(n):
    return lines("class A:", "    def f() -> Int:\n        return 0",
                 repeated(n, "class C{i} extends A:\n    def f() -> Int:\n        return {i}"),
                 main("x: A = A()", repeated(n, "x = C{i}()")))


@construct("chain of interfaces")
def interface_chain(n):
    return lines("interface I0:", "    def f() -> Int",
                 [f"interface I{i} extends I{i - 1}:\n    pass" for i in range(1, n)],
                 f"class C implements I{n - 1}:", "    def f() -> Int:\n        return 1", main("x: I0 = C()", "print(x.f())"))


@construct("chain of interfaces, a method each")
def interface_chain_methods(n):
    return lines("interface I0:", "    def f0() -> Int:\n        return 0",
                 [f"interface I{i} extends I{i - 1}:\n    def f{i}() -> Int:\n        return 0" for i in range(1, n)],
                 f"class C implements I{n - 1}:", "    pass", main("x: I0 = C()", "print(x.f0())"))


@construct("chain of interfaces, one method redeclared")
def interface_chain_redeclared(n):
    return lines("interface I0:", "    def f() -> Int:\n        return 0",
                 [f"interface I{i} extends I{i - 1}:\n    def f() -> Int:\n        return {i}" for i in range(1, n)],
                 f"class C implements I{n - 1}:", "    pass", main("x: I0 = C()", "print(x.f())"))


@construct("chain of generic interfaces", largest=1 << 12)
def generic_interface_chain(n):
    return lines("interface I0<T>:", "    pass",
                 [f"interface I{i}<T> extends I{i - 1}<T>:\n    pass" for i in range(1, n)],
                 f"class C implements I{n - 1}<Int>:", "    pass", main("x: I0<Int> = C()"))


@construct("diamonds of interfaces")
def diamonds(n):
    out = ["interface I0:", "    def f() -> Int:\n        return 0"]
    for i in range(1, n):
        out += [f"interface A{i} extends I{i - 1}:\n    pass", f"interface B{i} extends I{i - 1}:\n    pass",
                f"interface I{i} extends A{i}, B{i}:\n    pass"]
    return lines(out, f"class C implements I{n - 1}:", "    pass", main("x: I0 = C()", "print(x.f())"))


@construct("diamonds of generic interfaces", first=30, largest=1 << 10)
def generic_diamonds(n):
    out = ["interface I0<T>:", "    def f() -> Int:\n        return 0"]
    for i in range(1, n):
        out += [f"interface A{i}<T> extends I{i - 1}<T>:\n    pass", f"interface B{i}<T> extends I{i - 1}<T>:\n    pass",
                f"interface I{i}<T> extends A{i}<T>, B{i}<T>:\n    pass"]
    return lines(out, f"class C implements I{n - 1}<Int>:", "    pass", main("x: I0<Int> = C()", "print(x.f())"))


@construct("interfaces of a class")
def interfaces_of_class(n):
    return lines(repeated(n, "interface I{i}:\n    def f{i}() -> Int:\n        return {i}"),
                 f"class C implements {', '.join(repeated(n, 'I{i}'))}:", "    pass",
                 main("print(C().f0())", repeated(n, "x{i}: I{i} = C()")))


@construct("interfaces of an interface")
def interfaces_of_interface(n):
    return lines(repeated(n, "interface I{i}:\n    def f{i}() -> Int:\n        return {i}"),
                 f"interface J extends {', '.join(repeated(n, 'I{i}'))}:", "    pass", "class C implements J:",
                 "    pass", main("print(C().f0())"))


@construct("classes of an interface")
def classes_of_interface(n):
    return lines("interface I:", "    def f() -> Int",
                 repeated(n, "class C{i} implements I:\n    def f() -> Int:\n        return {i}"),
                 main("x: I = C0()", repeated(n, "x = C{i}()")))


@construct("methods of an interface")
def methods_of_interface(n):
    return lines("interface I:", repeated(n, "    def f{i}() -> Int"), "class C implements I:",
                 repeated(n, "    def f{i}() -> Int:\n        return {i}"),
                 main("x: I = C()", repeated(n, "x.f{i}()")))


@construct("missing methods of an interface", status=1, modes=("check",))
def missing_methods(n):
    return lines("interface I:", repeated(n, "    def f{i}() -> Int"), "class C implements I:", "    pass",
                 main("x: I = C()"))


@construct("circle of classes", status=1, modes=("check",))
def circle(n):
    return lines(f"class C0 extends C{n - 1}:", "    pass",
                 [f"class C{i} extends C{i - 1}:\n    pass" for i in range(1, n)], main("print(1)"))


@construct("returns of sub classes")
def branches(n):
    return lines("class A:", "    pass", repeated(n, "class C{i} extends A:\n    pass"), "def f(x: Int) -> A:",
                 repeated(n, "    if x == {i}:\n        return C{i}()"), "    return A()", main("f(1)"))


# ----------------------------------------------------------------------------------------------- 4. declarations

@construct("functions")
def functions(n):
    return lines(repeated(n, "def f{i}(x: Int) -> Int:\n    return x + {i}"), main("print(f0(1))"))


@construct("functions, each called")
def functions_called(n):
    return lines(repeated(n, "def f{i}(x: Int) -> Int:\n    return x + {i}"), main(repeated(n, "f{i}(1)")))


@construct("functions in a chain of calls")
def function_chain(n):
    return lines("def f0(x: Int) -> Int:\n    return x",
                 [f"def f{i}(x: Int) -> Int:\n    return f{i - 1}(x)" for i in range(1, n)], main(f"print(f0(1))"))


@construct("inferred results in a chain")
def inferred_chain(n):
    return lines([f"def f{i}(x: Int):\n    return f{i + 1}(x)" for i in range(n)], f"def f{n}(x: Int):\n    return x",
                 main(f"print(1)"))


@construct("inferred results in a chain, last first")
def inferred_chain_backwards(n):
    return lines("def f0(x: Int):\n    return x",
                 [f"def f{i}(x: Int):\n    return f{i - 1}(x)" for i in range(1, n)], main("print(f1(1))"))


@construct("inferred results that branch", first=30)
def inferred_branching(n):
    return lines("def f0(x: Int):\n    return x",
                 [f"def f{i}(x: Int):\n    return f{i - 1}(x) + f{i - 1}(x)" for i in range(1, n)],
                 main(f"print(f1(1))"))


@construct("overloads, one call")
def overloads(n):
    return lines(repeated(n, "class C{i}:\n    pass"), repeated(n, "def f(x: C{i}) -> Int:\n    return {i}"),
                 main("print(f(C0()))"))


@construct("overloads of equal first parameters")
def overloads_by_arity(n):
    return lines(repeated(n, "class C{i}:\n    pass"),
                 repeated(n, "def f(x: Int, y: Int, z: C{i}) -> Int:\n    return {i}"), main("print(f(1, 1, C0()))"))


@construct("overloaded methods, one call")
def overloaded_methods(n):
    return lines(repeated(n, "class C{i}:\n    pass"), "class A:",
                 repeated(n, "    def f(x: C{i}) -> Int:\n        return {i}"), main("print(A().f(C0()))"))


@construct("overloads that do not fit", status=1, modes=("check",))
def overloads_unfit(n):
    return lines(repeated(n, "class C{i}:\n    pass"), repeated(n, "def f(x: C{i}) -> Int:\n    return {i}"),
                 main("print(f(1))"))


@construct("generic overloads of a method", first=30, largest=1 << 11)
def generic_overloads(n):
    return lines(repeated(n, "class C{i}:\n    pass"), "class A:",
                 repeated(n, "    def f<T>(x: T, y: C{i}) -> Int:\n        return {i}"), main("print(A().f(1, C0()))"))


@construct("parameters and arguments")
def parameters(n):
    return lines(f"def f({', '.join(repeated(n, 'x{i}: Int'))}) -> Int:", "    return x0",
                 main(f"print(f({', '.join(repeated(n, '{i}'))}))"))


@construct("named arguments")
def named_arguments(n):
    return lines(f"def f({', '.join(repeated(n, 'x{i}: Int'))}) -> Int:", "    return x0",
                 main(f"print(f({', '.join(reversed(repeated(n, 'x{i} = {i}')))}))"))


@construct("defaults")
def defaults(n):
    return lines(f"def f({', '.join(repeated(n, 'x{i}: Int = {i}'))}) -> Int:", "    return x0", main("print(f())"))


@construct("defaults that name earlier parameters")
def dependent_defaults(n):
    return lines("def f(x0: Int, " + ", ".join(f"x{i}: Int = x{i - 1} + 1" for i in range(1, n)) + ") -> Int:",
                 "    return x0", main("print(f(1))"))


@construct("variadic arguments")
def variadic(n):
    return lines("def f(*x: Int) -> Int:", "    return x.size()", main(f"print(f({', '.join(['1'] * n)}))"))


@construct("named variadic arguments")
def named_variadic(n):
    return lines("def f(**x: Int) -> Int:", "    return x.size()",
                 main(f"print(f({', '.join(repeated(n, 'a{i} = {i}'))}))"))


@construct("generic variadic arguments")
def generic_variadic(n):
    return lines("def f<T>(*x: T) -> Int:", "    return x.size()", main(f"print(f({', '.join(['1'] * n)}))"))


@construct("generic named variadic arguments")
def generic_named_variadic(n):
    return lines("def f<T>(**x: T) -> Int:", "    return x.size()",
                 main(f"print(f({', '.join(repeated(n, 'a{i} = {i}'))}))"))


@construct("type parameters, inferred", first=100, largest=21000, limit=ARGUMENTS)
def type_parameters(n):
    return lines(f"def f<{', '.join(repeated(n, 'T{i}'))}>({', '.join(repeated(n, 'x{i}: T{i}'))}) -> Int:",
                 "    return 1", main(f"print(f({', '.join(['1'] * n)}))"))


@construct("constraints in a chain", first=100, largest=65000, limit=ARGUMENTS)
def constraint_chain(n):
    return lines("interface I:\n    pass", "class C implements I:\n    pass",
                 "def f<T0: I, " + ", ".join(f"T{i}: T{i - 1}" for i in range(1, n)) + ">(" +
                 ", ".join(repeated(n, "x{i}: T{i}")) + ") -> Int:", "    return 1",
                 main(f"print(f({', '.join(['C()'] * n)}))"))


@construct("defaults of type parameters", first=100, largest=21000, limit=ARGUMENTS)
def type_defaults(n):
    return lines("def f<T0, " + ", ".join(f"T{i} = T{i - 1}" for i in range(1, n)) + ">(x: T0) -> Int:",
                 "    return 1", main("print(f(1))"))


@construct("type parameters of a method", first=100, largest=21000, limit=ARGUMENTS)
def method_type_parameters(n):
    return lines("class A:", f"    def f<{', '.join(repeated(n, 'T{i}'))}>({', '.join(repeated(n, 'x{i}: T{i}'))}) -> Int:",
                 "        return 1", main(f"print(A().f({', '.join(['1'] * n)}))"))


@construct("type parameters of a method, in its body", first=100, largest=21000, limit=ARGUMENTS)
def method_body_type_parameters(n):
    return lines("class A:", f"    def f<{', '.join(repeated(n, 'T{i}'))}>({', '.join(repeated(n, 'x{i}: T{i}'))}) -> Int:",
                 repeated(n, "        y{i}: T{i} = x{i}"), "        return 1",
                 main(f"print(A().f({', '.join(['1'] * n)}))"))


@construct("type parameters in function types", first=100, largest=21000, limit=ARGUMENTS)
def function_type_parameters(n):
    return lines(f"def f<{', '.join(repeated(n, 'T{i}'))}>(g: ({', '.join(repeated(n, 'T{i}'))}) -> Int) -> Int:",
                 "    return 1", f"def h({', '.join(repeated(n, 'x{i}: Int'))}) -> Int:", "    return 1",
                 main("print(f(h))"))


@construct("type parameters of a class", first=100)
def class_type_parameters(n):
    return lines(f"class C<{', '.join(repeated(n, 'T{i}'))}>:", "    def f(x: T0) -> T0:\n        return x",
                 main(f"print(C<{', '.join(['Int'] * n)}>().f(1))"))


@construct("type parameters of a class, inferred", first=100, largest=1 << 14)
def class_type_parameters_inferred(n):
    return lines(f"class C<{', '.join(repeated(n, 'T{i}'))}>:",
                 f"    def init({', '.join(repeated(n, 'x{i}: T{i}'))}):\n        pass",
                 main(f"var c = C({', '.join(['1'] * n)})", "print(1)"))


@construct("type parameters of a class, a field each", first=100)
def class_type_parameters_fields(n):
    return lines(f"class C<{', '.join(repeated(n, 'T{i}'))}>:", repeated(n, "    f{i}: T{i}?"),
                 main(f"c: C<{', '.join(['Object'] * n)}>? = null", "print(1)"))


@construct("type parameters handed to a super class", first=100, largest=8000, limit=ARGUMENTS)
def handed_type_parameters(n):
    names = ", ".join(repeated(n, "T{i}"))
    return lines(f"class A<{names}>:", "    def f(x: T0) -> T0:\n        return x",
                 f"class B<{names}> extends A<{names}>:", "    pass",
                 main(f"print(B<{', '.join(['Int'] * n)}>().f(1))"))


@construct("an interface for each type parameter", first=100, largest=8000, limit=ARGUMENTS)
def interfaces_of_type_parameters(n):
    return lines(repeated(n, "interface I{i}<T>:\n    pass"),
                 f"class A<{', '.join(repeated(n, 'T{i}'))}> implements {', '.join(repeated(n, 'I{i}<T{i}>'))}:",
                 "    pass", main(f"var a = A<{', '.join(['Int'] * n)}>()", "print(1)"))


@construct("fields of a class")
def fields(n):
    return lines("class C:", repeated(n, "    f{i}: Int = {i}"), main("print(C().f0)"))


@construct("fields of a class, each used")
def fields_used(n):
    return lines("class C:", repeated(n, "    f{i}: Int = {i}"),
                 main("var c = C()", repeated(n, "c.f{i} = c.f{i} + 1")))


@construct("fields of a class, each used inside")
def fields_used_inside(n):
    return lines("class C:", repeated(n, "    f{i}: Int = {i}"), "    def g() -> Void:",
                 repeated(n, "        f{i} = f{i} + self.f{i}"), main("C().g()"))


@construct("static fields")
def static_fields(n):
    return lines("class C:", repeated(n, "    static f{i}: Int = {i}"), main(repeated(n, "C.f{i} = C.f{i} + 1")))


@construct("methods of a class, each called")
def methods(n):
    return lines("class C:", repeated(n, "    def f{i}() -> Int:\n        return {i}"),
                 main("var c = C()", repeated(n, "c.f{i}()")))


@construct("methods of a class, called inside")
def methods_inside(n):
    return lines("class C:", [f"    def f{i}() -> Int:\n        return f{max(0, i - 1)}()" for i in range(n)],
                 main("print(1)"))


@construct("static methods, each called")
def static_methods(n):
    return lines("class C:", repeated(n, "    static def f{i}() -> Int:\n        return {i}"),
                 main(repeated(n, "C.f{i}()")))


@construct("methods of a generic class")
def generic_class_methods(n):
    return lines("class C<T>:", repeated(n, "    def f{i}(x: T) -> T:\n        return x"),
                 main("var c = C<Int>()", repeated(n, "c.f{i}(1)")))


@construct("constructors", first=60, largest=1 << 12)
def constructors(n):
    return lines(repeated(n, "class D{i}:\n    pass"), "class C:",
                 repeated(n, "    def init(x: D{i}):\n        pass"), main("C(D0())"))


@construct("constructor calls")
def constructor_calls(n):
    return lines("class C:", "    x: Int", "    def init(x: Int):", "        self.x = x", main(repeated(n, "C({i})")))


@construct("classes")
def classes(n):
    return lines(repeated(n, "class C{i}:\n    x: Int = 1\n    def f() -> Int:\n        return self.x"),
                 main(repeated(n, "C{i}().f()")))


@construct("classes nested side by side")
def nested_classes(n):
    return lines("class A:", repeated(n, "    class C{i}:\n        x: Int = 1"), main(repeated(n, "A.C{i}()")))


@nested("depth of nested classes", first=30, largest=240)
def deep_classes(n):
    out = []
    for copy in range(10):
        out += ["    " * depth + f"class C{copy}_{depth}:" for depth in range(n)]
        out.append("    " * n + "pass")
    return lines(out, main("print(1)"))


@construct("annotations on one declaration")
def annotations(n):
    return lines(repeated(n, '@Note{i}(text = "a", size = {i})'), "def f() -> Void:\n    pass", main("f()"))


@construct("arguments of an annotation")
def annotation_arguments(n):
    return lines(f"@Note({', '.join(repeated(n, 'a{i} = {i}'))})", "def f() -> Void:\n    pass", main("f()"))


@construct("operators of classes")
def class_operators(n):
    return lines("class C:", "    def operator+(o: C) -> C:\n        return self",
                 main("var c = C()", "c = " + chain(n, "c", " + ")))


@construct("generic functions, each called")
def generic_functions(n):
    return lines(repeated(n, "def f{i}<T>(x: T) -> T:\n    return x"), main(repeated(n, "f{i}(1)")))


@construct("types of a generic function")
def types_of_generic(n):
    return lines("def f<T>(x: T) -> T:\n    return x", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "f(C{i}())")))


@construct("calls of one specialization")
def calls_of_specialization(n):
    return lines("def f<T>(x: T) -> T:\n    return x", main(["f(1)"] * n))


@construct("generic functions that call one another", first=25, largest=190, limit=REQUESTS)
def generic_chain(n):
    return lines("def f0<T>(x: T) -> T:\n    return x",
                 [f"def f{i}<T>(x: T) -> T:\n    return f{i - 1}(x)" for i in range(1, n)],
                 main(repeated(4, f"f{n - 1}({{i}})"), f"f{n - 1}(true)", f'f{n - 1}("a")', f"f{n - 1}(1.5)"))


@construct("generic functions that branch", first=20, largest=190, limit=REQUESTS)
def generic_branching(n):
    return lines("def f0<T>(x: T) -> T:\n    return x",
                 [f"def f{i}<T>(x: T) -> T:\n    f{i - 1}(x)\n    return f{i - 1}(x)" for i in range(1, n)],
                 main("if false:", f"    f{n - 1}(1)"))


@construct("generic functions with inferred results", first=20, largest=190, limit=REQUESTS)
def generic_inferred(n):
    return lines("def f0<T>(x: T):\n    return x",
                 [f"def f{i}<T>(x: T):\n    f{i - 1}(x)\n    return f{i - 1}(x)" for i in range(1, n)],
                 main("if false:", f"    f{n - 1}(1)"))


@construct("generic methods, each called")
def generic_methods(n):
    return lines("class A:", repeated(n, "    def f{i}<T>(x: T) -> T:\n        return x"),
                 main("var a = A()", repeated(n, "a.f{i}(1)")))


@construct("types of a generic method")
def types_of_method(n):
    return lines("class A:", "    def f<T>(x: T) -> T:\n        return x", repeated(n, "class C{i}:\n    pass"),
                 main("var a = A()", repeated(n, "a.f(C{i}())")))


@construct("types of a method with bundles", first=50, largest=1 << 12)
def types_with_bundles(n):
    return {"p/a.vk": "package p\nclass A:\n    def f<T>(x: T) -> T:\n        return x\n",
            "main.vk": lines("import p", repeated(n, "class C{i}:\n    pass"),
                             main("var a = A()", repeated(n, "a.f(C{i}())")))}


@construct("methods with bundles", first=50, largest=1 << 12)
def methods_with_bundles(n):
    return {"p/a.vk": lines("package p", "class A:", repeated(n, "    def f{i}<T>(x: T) -> T:\n        return x")),
            "main.vk": lines("import p", main("var a = A()", repeated(n, "a.f{i}(1)")))}


@construct("generic functions of a package", first=50, largest=1 << 12)
def functions_of_package(n):
    return {"p/a.vk": lines("package p", repeated(n, "def f{i}<T>(x: T) -> T:\n    return x")),
            "main.vk": lines("import p", main(repeated(n, "f{i}(1)")))}


@construct("generic methods of a generic class")
def methods_of_generic_class(n):
    return lines("class A<T>:", "    def f<U>(x: U) -> U:\n        return x", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "A<C{i}>().f(1)")))


@construct("owners of bundles", first=25, largest=1 << 11)
def owners(n):
    return {"p/a.vk": lines("package p", repeated(n, "class A{i}:\n    def f<T>(x: T) -> T:\n        return x")),
            "main.vk": lines("import p", main(repeated(n, "A{i}().f(1)")))}


@construct("long generic body", first=500)
def generic_body(n):
    return lines("def f<T>(x: T) -> T:", repeated(n, "    y{i}: T = x"), "    return x", main("print(f(1))"))


@construct("long generic method of a package", first=500)
def generic_method_body(n):
    return {"p/a.vk": lines("package p", "class A:", "    def f<T>(x: T) -> T:", repeated(n, "        y{i}: T = x"),
                            "        return x"), "main.vk": lines("import p", main("print(A().f(1))"))}


@construct("generic method behind a long file", first=2000)
def generic_behind(n):
    return {"p/a.vk": lines("package p", repeated(n, "def g{i}() -> Int:\n    return {i}"), "class A:",
                            "    def f<T>(x: T) -> T:\n        return x"),
            "main.vk": lines("import p", main("print(A().f(1))"))}


# ------------------------------------------------------------------------------------ 5. statements, expressions

@construct("declarations of locals")
def locals_(n):
    return main(repeated(n, "x{i}: Int = {i}"))


@construct("locals, each from the one before")
def locals_chain(n):
    return main("var x0 = 1", [f"var x{i} = x{i - 1} + 1" for i in range(1, n)], f"print(x{n - 1})")


@construct("locals in a generic call each")
def locals_generic(n):
    return lines("def f<T>(x: T) -> T:\n    return x",
                 main("var x0 = 1", [f"var x{i} = f(x{i - 1})" for i in range(1, n)], f"print(x{n - 1})"))


@construct("assignments")
def assignments(n):
    return main("x: Int = 0", repeated(n, "x = x + {i}"), "print(x)")


@construct("compound assignments")
def compound(n):
    return main("x: Int = 0", repeated(n, "x += {i}"), "print(x)")


@construct("assignments to elements")
def element_assignments(n):
    return main("x: Int[] = Int[](4)", ["x[1] = x[2] + 1"] * n)


@construct("prints")
def prints(n):
    return main(repeated(n, "print({i})"))


@construct("if statements")
def ifs(n):
    return main("x: Int = 0", repeated(n, "if x == {i}:\n        x = 1"))


@construct("elif chain")
def elifs(n):
    return main("x: Int = 5", "if x == -1:", "    print(0)", repeated(n, "elif x == {i}:\n        print({i})"))


@construct("while loops")
def whiles(n):
    return main("x: Int = 0", repeated(n, "while x < {i}:\n        x += 1"))


@construct("for loops")
def fors(n):
    return main("s: Int = 0", repeated(n, "for x in range(0, 1):\n        s += x"))


@construct("for loops over lists")
def for_lists(n):
    return main("s: Int = 0", "l: Int[] = [1]", repeated(n, "for x in l:\n        s += x"))


@construct("returns of an inferred result")
def returns(n):
    return lines("def f(x: Int):", repeated(n, "    if x == {i}:\n        return {i}"), "    return 0",
                 main("print(f(5))"))


@construct("breaks and continues")
def breaks(n):
    return main("for x in range(0, 2):",
                repeated(n, "    if x == {i}:\n        continue\n    if x == -1:\n        break"))


@nested("nested if", modes=("check", "run"))
def nested_ifs(n):
    return lines([line for copy in range(10) for line in [f"def f{copy}(x: Int) -> Void:"] +
                  [" " * (d + 1) + f"if x == {d}:" for d in range(n)] + [" " * (n + 1) + "pass"]], main("print(1)"))


@nested("nested loops")
def nested_loops(n):
    return lines([line for copy in range(10) for line in [f"def f{copy}(x: Int) -> Void:"] +
                  [" " * (d + 1) + f"for x{d} in range(0, 2):" for d in range(n)] + [" " * (n + 1) + "pass"]],
                 main("print(1)"))


OPERATORS = {
    "||": ("b", "Bool"), "&&": ("b", "Bool"), "+": ("x", "Int"), "-": ("x", "Int"), "*": ("x", "Int"),
    "/": ("d", "Double"), "//": ("o", "Int"), "%": ("o", "Int"), "==": ("b", "Bool"),
}
for symbol, (operand, result) in OPERATORS.items():
    def make(n, symbol=symbol, operand=operand, result=result):
        return main("x: Int = 3", "b: Bool = true", "d: Double = 1.5", "o: Int = 1",
                    f"r: {result} = " + chain(n, operand, f" {symbol} "), "print(r)")
    construct(f"chain of {symbol}")(make)


@construct("chain of && with comparisons")
def and_comparisons(n):
    return main("x: Int = 3", "b: Bool = " + " && ".join(repeated(n, "x != -{i}1")), "print(b)")


@construct("&& inside ||")
def and_or(n):
    return main("x: Int = 3", "b: Bool = " + " || ".join(repeated(n, "x == {i} && x != {i}")), "print(b)")


@construct("chain of literals", first=1000)
def literal_chain(n):
    return main("x: Double = " + chain(n, "1", " + "), "print(x)")


@construct("chain of mixed operators")
def mixed_chain(n):
    return main("x: Int = 3", "x = " + chain(n, "x * 2 - x % 7", " + "), "print(x)")


@construct("chain of string +")
def string_chain(n):
    return main("x: Int = 3", "s: String = " + chain(n, '"a" + x', " + "), "print(s.length())")


@construct("chain of comparisons with not")
def not_chain(n):
    return main("x: Int = 3", "b: Bool = " + chain(n, "!(x == 4)", " && "))


@construct("chain of unlike numbers")
def widening_chain(n):
    return main("x: Int = 3", "y: Long = 4", "d: Double = 0.5", "d = " + chain(n, "x + y", " + d + "))


@construct("chain of is")
def is_chain(n):
    return lines("class A:\n    pass", main("x: Object = A()", "b: Bool = " + chain(n, "x is A", " && ")))


@construct("chain of casts")
def cast_chain(n):
    return main("x: Int = 3", "x = x" + " as Long as Int" * n, "print(x)")


@construct("chain of conditionals")
def conditional_chain(n):
    return main("x: Int = 3", "x = " + " else ".join(repeated(n, "{i} if x == {i}")) + " else 0", "print(x)")


@nested("nested conditionals in front")
def nested_conditionals(n):
    return main(["x: Int = 3"], repeated(20, "x = " + "(" * n + "1" + " if x == {i} else 2)" * n))


@nested("powers")
def powers(n):
    return main("x: Int = 1", repeated(20, "x = " + chain(n, "x", " ** ")))


@nested("unary operators")
def unary(n):
    return main("x: Int = 1", repeated(20, "x = " + "- " * n + "x"))


@nested("nested parentheses")
def parentheses(n):
    return main("x: Int = 1", repeated(20, "x = " + "(" * n + "x" + ")" * n))


@nested("operators nested to the right")
def right_nested(n):
    return main("x: Int = 1", repeated(20, "x = " + "(x + " * n + "x" + ")" * n))


@nested("&& nested to the right")
def right_and(n):
    return main("x: Bool = true", repeated(20, "x = " + "(x && " * n + "x" + ")" * n))


NODE = lines("class N:", "    n: N?", "    v: Int = 1", "    def f() -> N:\n        return self",
             "    def g(o: N) -> N:\n        return self", "    def id<T>(x: T) -> N:\n        return self")
LOOP = ["var a = N()", "a.n = a"]


@construct("chain of fields")
def field_chain(n):
    return NODE + main(LOOP, "print(a" + ".n" * n + ".v)")


@construct("chain of fields, first unknown", status=1, modes=("check",))
def field_chain_first(n):
    return NODE + main(LOOP, "print(b" + ".n" * n + ".v)")


@construct("chain of fields, last unknown", status=1, modes=("check",))
def field_chain_last(n):
    return NODE + main(LOOP, "print(a" + ".n" * n + ".w)")


@construct("chain of fields, assigned")
def field_chain_assigned(n):
    return NODE + main(LOOP, "a" + ".n" * n + ".v = 2", "a" + ".n" * n + ".v += 2")


@construct("chain of fields in a generic call")
def field_chain_generic(n):
    return NODE + "def id<T>(x: T) -> T:\n    return x\n" + main(LOOP, "print(id(a" + ".n" * n + ".v))")


@construct("chain of fields, inferred result")
def field_chain_inferred(n):
    return NODE + "def h(a: N):\n    return a" + ".n" * n + ".v\n" + main(LOOP, "print(h(a))")


@construct("chain of method calls")
def method_chain(n):
    return NODE + main(LOOP, "a = a" + ".f()" * n)


@construct("chain of method calls, last unknown", status=1, modes=("check",))
def method_chain_last(n):
    return NODE + main(LOOP, "a = a" + ".f()" * n + ".h()")


@construct("chain of generic method calls")
def generic_method_chain(n):
    return NODE + main(LOOP, "a = a" + ".id(1)" * n)


@construct("chain of fields and calls")
def field_call_chain(n):
    return NODE + main(LOOP, "a = a" + ".n.f()" * n)


@nested("nested method calls")
def nested_method_calls(n):
    return NODE + main(LOOP, repeated(10, "a = " + "a.g(" * n + "a" + ")" * n))


@nested("nested generic method calls")
def nested_generic_method_calls(n):
    return NODE + main(LOOP, repeated(10, "a = " + "a.id(" * n + "a" + ")" * n))


@nested("nested calls")
def nested_calls(n):
    return lines("def f(x: Int) -> Int:\n    return x", main(repeated(10, "print(" + "f(" * n + "{i}" + ")" * n + ")")))


@nested("nested overloaded calls")
def nested_overloaded(n):
    return lines("def f(x: Int) -> Int:\n    return x", "def f(x: String) -> String:\n    return x",
                 main(repeated(10, "print(" + "f(" * n + "{i}" + ")" * n + ")")))


@nested("nested generic calls")
def nested_generic_calls(n):
    return lines("def f<T>(x: T) -> T:\n    return x",
                 main(repeated(10, "print(" + "f(" * n + "{i}" + ")" * n + ")")))


@nested("nested calls with an error inside", status=1, modes=("check",))
def nested_calls_error(n):
    return lines("def f<T>(x: T) -> T:\n    return x",
                 main(repeated(10, "print(" + "f(" * n + "unknown{i}" + ")" * n + ")")))


@construct("chain of calls of results", largest=1 << 15)
def called_results(n):
    return NODE + lines("class F:", "    g: () -> Int", "    def init(g: () -> Int):", "        self.g = g",
                        main("var f = () => 1", "x: Int = 0", ["x += f()"] * n))


@construct("chain of indexes of a class")
def index_chain(n):
    return lines("class A:", "    def operator[](i: Int) -> A:\n        return self",
                 main("var a = A()", "a = a" + "[0]" * n))


@nested("nested indexes")
def nested_indexes(n):
    return main("a: Int[] = [0]", "x: Int = 0", repeated(10, "x = " + "a[" * n + "0" + "]" * n))


@construct("indexes in sequence")
def indexes(n):
    return main("a: Int[] = [0]", "x: Int = 0", "x = " + chain(n, "a[0]", " + "))


@construct("elements of a list literal")
def list_literal(n):
    return main("var x = [" + ", ".join(repeated(n, "{i}")) + "]", "print(x.size())")


@construct("elements of a typed list literal")
def typed_list_literal(n):
    return lines("import vesk.collections", main("x: ArrayList<Double> = [" + ", ".join(repeated(n, "{i}")) + "]",
                                                 "print(x.size())"))


@construct("elements of an array literal")
def array_literal(n):
    return main("x: Int[] = [" + ", ".join(repeated(n, "{i}")) + "]", "print(x.length())")


@construct("objects in a list literal")
def object_list(n):
    return lines("class A:\n    pass", "class B extends A:\n    pass", "def f(x: Int) -> A:\n    return A()",
                 main("var x = [" + ", ".join(repeated(n, "f({i})")) + "]", "print(x.size())"))


@construct("entries of a map literal")
def map_literal(n):
    return main("var x = {" + ", ".join(repeated(n, '"k{i}": {i}')) + "}", "print(x.size())")


@nested("nested list literals", first=8, largest=64, limit="an instantiation for each depth: their names grow")
def nested_lists(n):
    return main("var x = " + "[" * n + "1" + "]" * n)


@nested("nested map literals", first=8, largest=64, limit="an instantiation for each depth: their names grow")
def nested_maps(n):
    return main("var x = " + "{1: " * n + "1" + "}" * n)


@nested("nested array literals", first=8, largest=64, limit="an instantiation for each depth: their names grow")
def nested_arrays(n):
    return main("x: Int" + "[]" * n + " = " + "[" * n + "1" + "]" * n)


@construct("lambdas in sequence")
def lambdas(n):
    return main(repeated(n, "var f{i} = (y: Int) => y + {i}"))


@nested("nested lambdas", first=15)
def nested_lambdas(n):
    return main([f"var f{copy} = " + " ".join(f"(x{d}: Int) =>" for d in range(n)) + " 1" for copy in range(10)])


@nested("nested lambdas that capture", first=15)
def nested_captures(n):
    return main("var a = 1", [f"var f{copy} = " + " ".join(f"(x{d}: Int) =>" for d in range(n)) + " a + x0 + x1"
                              for copy in range(4)])


@construct("captures of a lambda")
def captures(n):
    return main(repeated(n, "x{i}: Int = {i}"), "var f = () => " + " + ".join(repeated(n, "x{i}")), "print(f())")


@construct("lambdas for generic calls")
def lambdas_generic(n):
    return lines("import vesk.collections", main("var l = [1, 2]", ["l.map((x: Int) => x + 1)"] * n))


@construct("chain of map with lambdas", largest=1 << 12)
def map_chain(n):
    return lines("import vesk.collections", main("var l = [1, 2]", "print(l" + ".map((x: Int) => x + 1)" * n + ")"))


@nested("nested lambdas in generic calls", first=10, largest=60)
def nested_generic_lambdas(n):
    inner = "x0"
    for d in reversed(range(n)):
        inner = f"f((x{d}: Int) => {inner}, 1)"
    return lines("def f<A, R>(g: (A) -> R, x: A) -> R:\n    return g(x)", main(f"print({inner})"))


# ------------------------------------------------------------------------------------------ mistakes, diagnostics

@construct("mistakes", status=1, modes=("check",))
def mistakes(n):
    return main(repeated(n, "x{i}: Int = unknown{i}"))


@construct("mistakes in functions", status=1, modes=("check",))
def mistakes_in_functions(n):
    return lines(repeated(n, "def f{i}() -> Int:\n    return unknown{i}"), main("print(1)"))


@construct("mistakes in one line", status=1, modes=("check",))
def mistakes_in_line(n):
    return lines("def f(*x: Int) -> Int:\n    return 1", main(f"print(f({', '.join(repeated(n, 'u{i}'))}))"))


@construct("mistakes of syntax", status=1, modes=("check",))
def syntax_mistakes(n):
    return main(["x: Int = = 1"] * n)


@construct("mistakes behind many names", status=1, modes=("check",), largest=1 << 13)
def near_matches(n):
    """Every unknown name is compared with all known ones, in at most 20 messages."""
    return lines(repeated(n, "def function{i}() -> Int:\n    return 1"), main(["funktion0()"] * 10))


@construct("mistakes in headers", status=1, modes=("check",))
def header_mistakes(n):
    return lines(repeated(n, "def f{i}(x: Missing{i}) -> Missing{i}:\n    return x"), main("print(1)"))


@construct("mistakes in specializations", status=1, modes=("check",))
def specialization_mistakes(n):
    return lines("def f<T>(x: T) -> T:\n    return unknown", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "f(C{i}())")))


@construct("unknown members in specializations", status=1, modes=("check",))
def specialization_member_mistakes(n):
    return lines("def f<T>(x: T) -> Int:\n    return x.missing", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "f(C{i}())")))


@construct("unknown types in specializations", status=1, modes=("check",))
def specialization_type_mistakes(n):
    return lines("def f<T>(x: T) -> T:\n    y: Missing = x\n    return x", repeated(n, "class C{i}:\n    pass"),
                 main(repeated(n, "f(C{i}())")))


@construct("declarations of one name", status=1, modes=("check",))
def duplicates(n):
    return lines(["def f() -> Void:\n    pass"] * n, main("f()"))


@construct("chain of && with a mistake at its end", status=1, modes=("check",))
def and_mistake(n):
    return main("b: Bool = true", "b = " + chain(n, "b", " && ") + " && unknown")


@construct("chain of + with a mistake at its start", status=1, modes=("check",))
def plus_mistake(n):
    return main("x: Int = 1", "x = unknown + " + chain(n, "x", " + "))


@construct("chain of + with a wrong operand", status=1, modes=("check",))
def plus_wrong(n):
    return lines("class A:\n    pass", main("x: Int = 1", "x = A() + " + chain(n, "x", " + ")))


@construct("elif chain with mistakes", status=1, modes=("check",))
def elif_mistakes(n):
    return main("x: Int = 5", "if x == -1:", "    print(0)", repeated(n, "elif x == u{i}:\n        print({i})"))


@construct("unreachable statements")
def unreachable(n):
    return lines("def f() -> Int:", "    return 1", repeated(n, "    print({i})"), main("print(f())"))


# ----------------------------------------------------------------------------------------------------- the command

@construct("chunks of an interactive session", first=50, largest=1 << 12, modes=("repl",))
def chunks(n):
    return lines(repeated(n, "x{i}: Int = {i}"))


@construct("functions of an interactive session", first=50, largest=1 << 12, modes=("repl",))
def function_chunks(n):
    return lines(repeated(n, "def f{i}(x: Int) -> Int:\n    return x + {i}\n"), "f0(1)")


@construct("one variable in many chunks", first=50, largest=1 << 12, modes=("repl",))
def variable_chunks(n):
    return lines("var x = 1", ["x = x + 1"] * n, "x")


@construct("mistaken chunks", first=50, largest=1 << 12, modes=("repl",))
def mistaken_chunks(n):
    return lines(repeated(n, "x{i}: Int = unknown"))


# ------------------------------------------------------------------------------------------------------------- debts
# What is known to grow faster, and why. Each line is to go away.

KNOWN = {}
for each in CONSTRUCTS:
    each.known = KNOWN.pop(each.name, "")
assert not KNOWN, KNOWN
