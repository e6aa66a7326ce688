#!/usr/bin/env python3
"""Calls functions and methods of many overloads wrongly and counts what is said.

    many_overloads.py VESKC
"""
import subprocess
import sys
import tempfile
from pathlib import Path

COUNT = 300
SHOWN = 10


def parameters(number):
    """A list of parameter types of its own for each number."""
    types = ["Int", "Bool", "String", "Double"]
    return ", ".join(f"p{i}: {types[number // 4 ** i % 4]}" for i in range(5))


# Name -> declarations, the call, how its error begins.
PROGRAMS = {
    "functions": ("".join(f"def f({parameters(i)}) -> Int:\n    return 1\n" for i in range(COUNT)), "f(null)",
                  "No overload of 'f' accepts (Null)"),
    "methods": ("class C:\n" + "".join(f"    def f({parameters(i)}) -> Int:\n        return 1\n" for i in range(COUNT)),
                "C().f()", "No overload of 'f' accepts ()"),
    "constructors": ("class C:\n" + "".join(f"    def init({parameters(i)}):\n        pass\n" for i in range(COUNT)),
                     "C(1)", "No overload of 'C' accepts (Int)"),
    "two equally good": ("".join(f"interface I{i}:\n    pass\n" for i in range(COUNT)) + "class C implements "
                         + ", ".join(f"I{i}" for i in range(COUNT)) + ":\n    pass\n"
                         + "".join(f"def f(x: I{i}) -> Int:\n    return 1\n" for i in range(COUNT)), "f(C())",
                         "Ambiguous call of 'f' with (C)"),
    "generic methods": ("class C:\n" + "".join(f"    def f<T>({parameters(i)}, x: T) -> Int:\n        return 1\n"
                                               for i in range(COUNT)), "C().f(1)", "Unknown generic method C.f"),
    "private generic methods": ("class C:\n" + "".join(f"    private def f<T>({parameters(i)}, x: T) -> Int:\n"
                                                       "        return 1\n" for i in range(COUNT)), "C().f(1)",
                                "Cannot access generic method f in C"),
    "ambiguous generic methods": ("".join(f"interface I{i}:\n    pass\n" for i in range(COUNT)) + "class C implements "
                                  + ", ".join(f"I{i}" for i in range(COUNT)) + ":\n    pass\nclass M:\n"
                                  + "".join(f"    def f<T>(x: I{i}, y: T) -> Int:\n        return 1\n"
                                            for i in range(COUNT)), "M().f(C(), 1)", "Ambiguous generic method call M.f"),
}


def main():
    failures = []
    with tempfile.TemporaryDirectory() as temporary:
        file = Path(temporary, "main.vk")
        for name, (declarations, call, message) in PROGRAMS.items():
            file.write_text(f"{declarations}\ndef main() -> Void:\n    {call}\n", encoding="utf-8")
            result = subprocess.run([sys.argv[1], "check", "main.vk", "--cache=memory"], cwd=temporary, timeout=60,
                                    capture_output=True, text=True, check=False)
            said = result.stderr
            more = f"note: and {COUNT - SHOWN} more\n"
            if result.returncode != 1 or f"error: {message}" not in said:
                failures.append(f"{name}: status {result.returncode}\n{said[:2000]}")
            elif said.count(": note: ") != SHOWN + 1 or more not in said:
                failures.append(f"{name}: {said.count(': note: ')} notes\n{said[-500:]}")
        methods = "".join(f"    def m{i}() -> Int\n" for i in range(COUNT))
        file.write_text(f"interface I:\n{methods}\nclass C implements I:\n    pass\n\ndef main() -> Void:\n    C()\n",
                        encoding="utf-8")
        said = subprocess.run([sys.argv[1], "check", "main.vk", "--cache=memory"], cwd=temporary, timeout=60,
                              capture_output=True, text=True, check=False).stderr
        if "it does not implement 'm0', 'm1', " not in said or f"'m19' and {COUNT - 20} more\n" not in said:
            failures.append(f"missing methods: {said[:2000]}")
    print("\n".join(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
