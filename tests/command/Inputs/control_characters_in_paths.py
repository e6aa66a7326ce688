#!/usr/bin/env python3
"""Runs the command over files whose names hold control characters and looks at what it says of them.

    control_characters_in_paths.py VESKC
"""
import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

# A file's name, and how it is shown.
NAMES = {
    "red\x1b[31m": "red\\u{1B}[31m",
    "two\nlines": "two\\nlines",
    "tab\tand\rreturn": "tab\\tand\\rreturn",
    "delete\x7f": "delete\\u{7F}",
    "next\u0085line": "next\\u{85}line",
    "caf\u00e9 \u00a0x": "caf\u00e9 \u00a0x",
}
MISTAKEN = "def main() -> Void:\n    var x: Int = \"a\"\n"
PANICS = "def f() -> Int:\n    var a = [1]\n    return a[5]\n\ndef main() -> Void:\n    print(f())\n"
GENERIC = "def same<T>(x: T) -> T:\n    return x\n\ndef main() -> Void:\n    print(same(1))\n"


def main():
    veskc = os.path.abspath(sys.argv[1])
    failures = []
    with tempfile.TemporaryDirectory() as temporary:
        folder = Path(temporary)

        def said(*words, typed=None):
            result = subprocess.run([veskc, *words, "--cache-dir", "cache"], cwd=folder, capture_output=True,
                                    input=typed, text=True, timeout=60, check=False)
            return result.stderr + (result.stdout if words[0] == "explain" else "")

        def expect(text, wanted, what):
            if wanted not in text or any(ord(c) < 0x20 and c != "\n" or 0x7F <= ord(c) < 0xA0 for c in text):
                failures.append(f"{what}: wanted {wanted!r} in {text!r}")

        for name, shown in NAMES.items():
            for kind, text in (("m", MISTAKEN), ("p", PANICS), ("g", GENERIC)):
                (folder / f"{kind}{name}.vk").write_text(text, encoding="utf-8")
            expect(said("check", f"m{name}.vk"), f"m{shown}.vk:2:18: error: expected Int, got String\n", "error")
            expect(said("run", f"p{name}.vk"), f"p{shown}.vk:3: panic: index 5 out of range for length 1\n"
                                               f"    at main (p{shown}.vk:6)\n", "panic")
            expect(said("check", f"no{name}.vk"), f"veskc: cannot read 'no{shown}.vk': ", "complaint")
            expect(said("check", f"g{name}.vk", "--print-specializations"), f"requested at g{shown}.vk:5:11", "report")
            expect(said("explain", f"g{name}.vk:5"), f"g{shown}.vk:5:11: call of same(Int)", "explanation")
            if "\n" not in name and "\r" not in name:
                expect(said("repl", typed=f":load no{name}.vk\n"), f"cannot read 'no{shown}.vk'", "session")
            record = json.loads(said("check", f"m{name}.vk", "--diagnostics=json").split("\n")[0])
            if record["file"] != f"m{name}.vk":
                failures.append(f"tools get {record['file']!r}")
        expect(said("repl", typed=":lo\x1bad\n"), "unknown command ':lo\\u{1B}ad'", "command")
        built = subprocess.run([veskc, "build", "pred\x1b[31m.vk", "-o", "program", "--cache-dir", "cache"], cwd=folder,
                               timeout=60, check=False)
        ran = subprocess.run(["./program"], cwd=folder, capture_output=True, text=True, timeout=60, check=False)
        expect(ran.stderr, "pred\\u{1B}[31m.vk:3: panic: ", f"program (built: {built.returncode})")
    print("\n".join(failures))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
