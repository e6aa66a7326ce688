"""Writes a program of a kind and size to standard output."""
import sys

NODE = "class N:\n    n: N?\n    v: Int = 7\n\ndef main() -> Void:\n    var a = N()\n    a.n = a\n"


def fields(n):
    return NODE + "    print(a" + ".n" * n + ".v)\n"


def unknown_field(n):
    return NODE + "    print(a" + ".n" * n + ".w)\n"


def diamonds(n, clause="", argument=""):
    out = f"interface I0{clause}:\n    def f() -> Int:\n        return 7\n"
    for i in range(1, n):
        out += f"interface A{i}{clause} extends I{i - 1}{clause}:\n    pass\n"
        out += f"interface B{i}{clause} extends I{i - 1}{clause}:\n    pass\n"
        out += f"interface I{i}{clause} extends A{i}{clause}, B{i}{clause}:\n    pass\n"
    return out + (f"class C implements I{n - 1}{argument}:\n    pass\n"
                  f"def main() -> Void:\n    x: I0{argument} = C()\n    print(x.f())\n    print(x is B1{argument})\n")


def generic_diamonds(n):
    return diamonds(n, "<T>", "<Int>")


def interfaces(n):
    out = "interface I0:\n    def f0() -> Int:\n        return 7\n"
    for i in range(1, n):
        out += f"interface I{i} extends I{i - 1}:\n    def f{i}() -> Int:\n        return {i}\n"
    return out + (f"class C implements I{n - 1}:\n    pass\n"
                  f"def main() -> Void:\n    x: I{n - 1} = C()\n    print(x.f0())\n    print(x.f{n - 1}())\n")


def locals_(n):
    return "def main() -> Void:\n    x0: Int = 1\n" + "".join(f"    x{i}: Int = x{i - 1}\n" for i in range(1, n))


def members(n):
    out = "class C:\n" + "".join(f"    f{i}: Int = {i}\n    def g{i}() -> Int:\n        return f{i}\n" for i in range(n))
    return out + "def main() -> Void:\n    c: C = C()\n" + "".join(f"    c.f{i} = c.g{i}()\n" for i in range(n))


def overloads(n):
    out = "".join(f"class C{i}:\n    pass\ndef f(x: C{i}) -> Int:\n    return {i}\n" for i in range(n))
    return out + "def main() -> Void:\n    print(f(C0()))\n"


def class_chain(n, clause="", body="    pass", first=None):
    """Classes that each extend the one before; `{i}` in a body is the number of the class."""
    out = f"class C0{clause}:\n" + (first or body).replace("{i}", "0") + "\n"
    return out + "".join(f"class C{i}{clause} extends C{i - 1}{clause}:\n" + body.replace("{i}", str(i)) + "\n"
                         for i in range(1, n))


def main(*lines):
    return "def main() -> Void:\n" + "".join(f"    {line}\n" for line in lines)


def class_calls(n):
    return class_chain(n, first="    def f() -> Int:\n        return 7") + main(*(f"C{i}().f()" for i in range(n)))


def class_overrides(n):
    method = "    def f() -> Int:\n        return {i}"
    return class_chain(n, body=method) + main(*(f"C{i}().f()" for i in range(n)))


def class_fields(n):
    return class_chain(n, body="    f{i}: Int = {i}") + main(*(f"C{n - 1}().f{i}" for i in range(0, n, 10)))


def class_methods(n):
    method = "    def f{i}() -> Int:\n        return {i}"
    return class_chain(n, body=method) + main(*(f"C{n - 1}().f{i}()" for i in range(0, n, 10)))


def generic_classes(n):
    return class_chain(n, "<T>") + main(*(f"x{i}: C0<Int> = C{i}<Int>()" for i in range(0, n, 10)))


def class_circle(n):
    return f"class C{n} extends C{n - 1}:\n    pass\n" + class_chain(n).replace("class C0:", f"class C0 extends C{n}:")


def redeclared(n, clause="", argument=""):
    out = f"interface I0{clause}:\n    def f() -> Int:\n        return 7\n"
    for i in range(1, n):
        out += f"interface I{i}{clause} extends I{i - 1}{clause}:\n    def f() -> Int:\n        return {i}\n"
    return out + f"class C implements I{n - 1}{argument}:\n    pass\n" + main(f"x: I0{argument} = C()", "print(x.f())")


def generic_redeclared(n):
    return redeclared(n, "<T>", "<Int>")


def interfaces_of_class(n):
    out = "".join(f"interface I{i}:\n    def f{i}() -> Int:\n        return {i}\n" for i in range(n))
    names = ", ".join(f"I{i}" for i in range(n))
    return (out + f"interface J extends {names}:\n    pass\nclass C implements {names}:\n    pass\n"
            "class D implements J:\n    pass\n" +
            main(*(f"x{i}: I{i} = C()" for i in range(n)), f"print(D().f{n - 1}())"))


def defaults(n):
    return ("def f(x0: Int, " + ", ".join(f"x{i}: Int = x{i - 1} + 1" for i in range(1, n)) +
            f") -> Int:\n    return x{n - 1}\ndef main() -> Void:\n    print(f(1))\n")


def class_interfaces(n):
    out = "".join(f"interface I{i}:\n    def f{i}() -> Int\n" for i in range(n))
    for i in range(n):
        out += f"class C{i}{f' extends C{i - 1}' if i else ''} implements I{i}:\n    def f{i}() -> Int:\n        return {i}\n"
        if i == 200:
            out += "    def f100() -> Int:\n        return 1100\n"
    return out + main(f"x: Object = C{n - 1}()", "print((x as I0).f0())", "print((x as I100).f100())",
                      f"print((x as I{n - 1}).f{n - 1}())", "print(x is I250)", "y: Object = C249()",
                      "print(y is I250)")


def names(n, pattern):
    return ", ".join(pattern.replace("{i}", str(i)).replace("{p}", str(i - 1)) for i in range(n))


def type_parameters(n):
    return (f"def f<{names(n, 'T{i}')}>({names(n, 'x{i}: T{i}')}) -> T{n - 1}:\n    return x{n - 1}\n"
            f"class A:\n    def g<{names(n, 'T{i}')}>({names(n, 'x{i}: T{i}')}) -> T{n - 1}:\n        return x{n - 1}\n" +
            main(f"print(f({names(n, '1')}))", f"print(A().g({names(n, '2')}))"))


def functions_of_type_parameters(n):
    return (f"def f<{names(n, 'T{i}')}>(g: ({names(n, 'T{i}')}) -> Int) -> Int:\n    return 7\n"
            f"def h({names(n, 'x{i}: Int')}) -> Int:\n    return 1\n" + main("print(f(h))"))


def constraints(n):
    return ("interface I:\n    pass\nclass C implements I:\n    pass\n"
            f"def f<T0: I, {names(n, 'T{i}: T{p}').split(', ', 1)[1]}>({names(n, 'x{i}: T{i}')}) -> Int:\n    return 7\n" +
            main(f"print(f({names(n, 'C()')}))"))


def type_defaults(n):
    return (f"def f<T0, {names(n, 'T{i} = T{p}').split(', ', 1)[1]}>(x: T0) -> Int:\n    return 7\n" +
            main("print(f(1))"))


def handed_type_parameters(n):
    interfaces = "".join(f"interface I{i}<T>:\n    pass\n" for i in range(n))
    return (f"{interfaces}class A<{names(n, 'T{i}')}>:\n    def f(x: T{n - 1}) -> T{n - 1}:\n        return x\n"
            f"class B<{names(n, 'T{i}')}> extends A<{names(n, 'T{i}')}> implements {names(n, 'I{i}<T{i}>')}:\n    pass\n" +
            main(f"print(B<{names(n, 'Int')}>().f(7))"))


def specialization_mistakes(n):
    return ("def f<T>(x: T) -> T:\n    return unknown\n" + "".join(f"class C{i}:\n    pass\n" for i in range(n)) +
            main(*(f"f(C{i}())" for i in range(n))))


make = {"locals": locals_}.get(sys.argv[1]) or globals()[sys.argv[1]]
sys.stdout.write(make(int(sys.argv[2])))
