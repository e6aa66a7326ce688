"""Writes a program of many files, of a kind and size, into an empty folder: folders.py KIND SIZE FOLDER."""
import shutil
import sys
from pathlib import Path


def import_chain(n):
    files = {f"p{i}/f.vk": f"package p{i}\nimport p{i + 1}\ndef f{i}() -> Int:\n    return f{i + 1}()\n"
             for i in range(n)}
    return files | {f"p{n}/f.vk": f"package p{n}\ndef f{n}() -> Int:\n    return 7\n",
                    "main.vk": "import p0\ndef main() -> Void:\n    print(f0())\n"}


def imports(n):
    files = {f"p{i}/f.vk": f"package p{i}\nclass C{i}:\n    pass\ndef f{i}() -> Int:\n    return {i}\n" for i in range(n)}
    return files | {"main.vk": "".join(f"import p{i}\n" for i in range(n)) + "def main() -> Void:\n" +
                               "".join(f"    c{i}: C{i} = C{i}()\n    print(f{i}() + p{i}.f{i}())\n" for i in range(n))}


def bundle(n):
    methods = "".join(f"    def f{i}<T>(x: T) -> T:\n        return x\n" for i in range(n))
    calls = "".join(f"    a.f{i}({i})\n" for i in range(n))
    return {"p/a.vk": "package p\nclass A:\n" + methods,
            "main.vk": "import p\ndef main() -> Void:\n    var a = A()\n" + calls + f"    print(a.f{n - 1}(7))\n"}


folder = Path(sys.argv[3])
shutil.rmtree(folder, ignore_errors=True)
for name, text in globals()[sys.argv[1]](int(sys.argv[2])).items():
    path = folder / name
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
