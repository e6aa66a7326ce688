"""Checks programs with chains of 100,000 links: each compiles, or ends with status 1 and a message with its place."""
import os
import resource
import subprocess
import sys

LINKS = 100000
OPENING = """class N:
    n: N?
    v: Int = 1
    def f() -> N:
        return self
    def operator[](i: Int) -> N:
        return self
def main() -> Void:
    x: Int = 1
    b: Bool = true
    a: N = N()
    a.n = a
"""
CHAINS = {
    "+": "x = " + " + ".join(["x"] * LINKS),
    "&&": "b = " + " && ".join(["b"] * LINKS),
    "||": "b = " + " || ".join(["b"] * LINKS),
    "==": "b = " + " == ".join(["b"] * LINKS),
    "text": 's: String = "a"' + ' + "a"' * LINKS,
    "fields": "a = a" + ".n" * LINKS,
    "calls": "a = a" + ".f()" * LINKS,
    "indexes": "a = a" + "[0]" * LINKS,
    "casts": "x = x" + " as Long as Int" * (LINKS // 2),
    "powers": "x = x" + " ** x" * LINKS,
    "conditionals": "x = " + "1 if b else " * LINKS + "2",
    "elif": "if x == 0:\n        x = 1" + "\n    elif x == 2:\n        x = 3" * LINKS,
}


def limits():
    resource.setrlimit(resource.RLIMIT_CPU, (60, 60))
    if "ASAN_OPTIONS" not in os.environ:  # a sanitizer takes terabytes of addresses
        resource.setrlimit(resource.RLIMIT_AS, (8 << 30, 8 << 30))


failures = []
for name, line in CHAINS.items():
    with open(sys.argv[2], "w", encoding="utf-8") as out:
        out.write(OPENING + "    " + line + "\n")
    result = subprocess.run([sys.argv[1], "check", sys.argv[2]], capture_output=True, text=True, check=False, preexec_fn=limits)
    is_right = result.returncode == 0 or (result.returncode == 1 and ".vk:" in result.stderr and "deep" in result.stderr)
    if not is_right:
        failures.append(f"{name}: status {result.returncode}: {result.stderr[:200]}")
print("\n".join(failures))
sys.exit(bool(failures))
