"""The layer rules of compiler/: which folder may include what. Data first, the check below.

A folder may always include itself and the standard library. `*_test.cpp` and `*_test.h` files are free, but for LLVM.
"""
import re
from pathlib import Path

HOST, TYPETEXT, SOURCE, INFERENCE = "host", "generics/typetext", "generics/source", "generics/inference"
GENERICS, BUNDLES, SPECIALIZER = "generics", "generics/bundles", "generics/generic_specializer.h"
ERRORS = "generics/errors.h"

# Folder -> folders and single headers it may include.
MAY_INCLUDE = {
    HOST: [],
    TYPETEXT: [HOST],
    SOURCE: [HOST, "generics/session_state.h", "generics/typetext/trimming.h"],
    INFERENCE: [TYPETEXT, HOST, ERRORS],
    GENERICS: [BUNDLES, TYPETEXT, INFERENCE, SOURCE, HOST],
    BUNDLES: [GENERICS, TYPETEXT, INFERENCE, SOURCE, HOST],
    "syntax": [HOST],
    "cache": [HOST, TYPETEXT],
    "semantics": [HOST, "syntax", "cache", TYPETEXT, INFERENCE, SPECIALIZER, ERRORS],
    "il": [HOST, "semantics", "syntax", SPECIALIZER],
    "driver": [HOST, TYPETEXT, SOURCE, INFERENCE, GENERICS, BUNDLES, "syntax", "cache", "semantics", "il"],
}
# Headers of others, and of the run-time library, that only one folder sees.
ONLY_IN = {"llvm/": "il", "llvm-c/": "il", "CLI/": "driver", "nlohmann/": "driver", "runtime/": "il"}

INCLUDE = re.compile(r'^\s*#\s*include\s*(["<])([^">]+)[">]', re.M)


def includes(path):
    """(line, is quoted, target) of each include of a file."""
    text = path.read_text(encoding="utf-8")
    return [(text.count("\n", 0, match.start()) + 1 + match.group(0).count("\n"), match[1] == '"', match[2])
            for match in INCLUDE.finditer(text)]


def folder_of(name):
    """The rule folder that a path below compiler/ belongs to."""
    parent = str(Path(name).parent)
    return parent if parent in MAY_INCLUDE else None


def sources(root, *suffixes):
    return sorted(path for path in root.rglob("*") if path.suffix in suffixes)


def layer_errors(compiler):
    errors = []
    for path in sources(compiler, ".h", ".cpp"):
        name = str(path.relative_to(compiler))
        folder = folder_of(name)
        if folder is None:
            errors.append(f"compiler/{name}:1: the folder has no layer rule (scripts/layers.py)")
            continue
        is_test = name.endswith(("_test.cpp", "_test.h"))
        for line, quoted, target in includes(path):
            for prefix, owner in ONLY_IN.items():
                if target.startswith(prefix) and folder != owner:
                    errors.append(f"compiler/{name}:{line}: only {owner} may include {prefix}")
            if not quoted or is_test or target.startswith("runtime/"):
                continue
            if not (compiler / target).exists():
                errors.append(f'compiler/{name}:{line}: "{target}" is not a path below compiler/')
                continue
            other = folder_of(target)
            if other != folder and other not in MAY_INCLUDE[folder] and target not in MAY_INCLUDE[folder]:
                errors.append(f"compiler/{name}:{line}: {folder} may not include {target}")
    return errors


def circle_errors(compiler):
    graph = {}
    for path in sources(compiler, ".h"):
        graph[str(path.relative_to(compiler))] = [target for _, quoted, target in includes(path) if quoted]
    errors, state = [], {}
    for start in graph:
        stack = [(start, iter(graph[start]))] if start not in state else []
        if stack:
            state[start] = "open"
        while stack:
            name, rest = stack[-1]
            for target in rest:
                if target not in graph or state.get(target) == "done":
                    continue
                if state.get(target) == "open":
                    names = [entry[0] for entry in stack]
                    errors.append("includes form a circle: " + " -> ".join(names[names.index(target):] + [target]))
                    continue
                state[target] = "open"
                stack.append((target, iter(graph[target])))
                break
            else:
                state[name] = "done"
                stack.pop()
    return errors


def check(root):
    compiler = root / "compiler"
    return layer_errors(compiler) + circle_errors(compiler)
