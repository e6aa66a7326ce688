"""Writes classes with more methods than a class record has room for: plain, generic, behind an interface."""
import sys

N = int(sys.argv[1])


def methods(name, value, numbers, argument=""):
    return "".join(f"    def {name}{i}({argument}) -> Int:\n        return {value(i)}\n" for i in numbers)


some = range(0, N, 3)
out = "interface I:\n" + "".join(f"    def f{i}() -> Int\n" for i in range(0, N, 50))
out += "class A implements I:\n" + methods("f", lambda i: i, range(N))
out += "class B extends A:\n" + methods("f", lambda i: 1000 + i, some) + methods("g", lambda i: i, range(40))
out += "class C extends B:\n" + methods("g", lambda i: 2000 + i, [39]) + methods("f", lambda i: 2000 + i, [N - 1])
out += "    def above() -> Int:\n" + f"        return super.f{N - 1}()\n"
out += "class G<T>:\n" + methods("m", lambda i: i, range(N), "x: T")
out += "class H extends G<Int>:\n" + methods("m", lambda i: f"4000 + {i} + x", some, "x: Int")
out += "def expect(got: Int, wanted: Int) -> Void:\n    if got != wanted:\n        print(str(got) + \", not \" + str(wanted))\n"
out += "def main() -> Void:\n    a: A = A()\n    b: A = B()\n    c: B = C()\n    i: I = C()\n"
out += "    g: G<Int> = H()\n    p: G<String> = G<String>()\n"
for i in range(N):
    of_b = 1000 + i if i in some else i
    of_c = 2000 + i if i == N - 1 else of_b
    out += f"    expect(a.f{i}(), {i})\n    expect(b.f{i}(), {of_b})\n    expect(c.f{i}(), {of_c})\n"
    out += f"    expect(g.m{i}(5), {4005 + i if i in some else i})\n"
    out += f"    expect(p.m{i}(\"\"), {i})\n"
    if i % 50 == 0:
        out += f"    expect(i.f{i}(), {of_c})\n"
out += f"    expect(c.g39(), 2039)\n    expect(c.g7(), 7)\n    expect(C().above(), {N - 1 if (N - 1) % 3 else 999 + N})\n"
sys.stdout.write(out + "    print(\"all called\")\n")
