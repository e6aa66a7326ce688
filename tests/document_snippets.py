#!/usr/bin/env python3
"""Compiles every vesk snippet of a document, and runs those that show what they print.

    document_snippets.py VESKC DOCUMENT [--update]

A snippet is a block fenced as ```vesk. Its declarations stay as they are; its other lines become the body of a `main`
when it has none of its own. Where it imports nothing, it gets the collections. A line that ends in `# error: TEXT` must
give an error with exactly that text, and there may be no other errors. A block fenced as ```output right after a
snippet is what the program prints, panics included; --update writes it anew. Snippets under one heading do not see
each other.
"""
import json
import re
import subprocess
import sys
import tempfile
from pathlib import Path

DECLARATION = re.compile(r"(package|import|def|class|interface|@|#)")


class Snippet:
    def __init__(self, line, text):
        self.line, self.text = line, text
        self.output = None  # the promised output, where a block with it follows
        self.output_lines = None  # where that block's text begins and ends in the document


def snippets(lines):
    found, number = [], 0
    while number < len(lines):
        match = re.fullmatch(r"```(\w+)", lines[number])
        if not match:
            number += 1
            continue
        end = number + 1
        while lines[end] != "```":
            end += 1
        if match[1] == "vesk":
            found.append(Snippet(number + 1, lines[number + 1:end]))
        elif match[1] == "output":
            found[-1].output = "".join(line + "\n" for line in lines[number + 1:end])
            found[-1].output_lines = (number + 1, end)
        number = end + 1
    return found


def program(snippet):
    """The lines of a whole program, each with its line in the document (0 for those that are added)."""
    head, body, target = [], [], None
    for offset, text in enumerate(snippet.text, snippet.line + 1):
        if text and not text[0].isspace() and text[0] not in ")]}":
            target = head if DECLARATION.match(text) else body
        (head if target is None else target).append((text, offset))
    if not any(text.startswith(("import ", "package ")) for text, _ in head):
        head.insert(0, ("import vesk.collections", 0))
    if body or not any(text.startswith("def main(") for text, _ in head):
        head.append(("def main() -> Void:", 0))
        head += [("    " + text if text else text, offset) for text, offset in body]
        if not any(text.strip() and not text.strip().startswith("#") for text, _ in body):
            head.append(("    pass", 0))
    return head


def run(veskc, arguments, folder):
    return subprocess.run([veskc, *arguments, "main.vk"], cwd=folder, capture_output=True, text=True, timeout=120, check=False)


def check(veskc, snippet, folder):
    """The complaints about one snippet, and what it printed when it was run."""
    lines = program(snippet)
    (folder / "main.vk").write_text("".join(text + "\n" for text, _ in lines), encoding="utf-8")
    wanted = [(offset, match[1]) for text, offset in lines if (match := re.search(r"# error: (.*)$", text))]
    result = run(veskc, ["check", "--diagnostics=json"], folder)
    found = []
    for text in result.stderr.splitlines():
        try:
            entry = json.loads(text)
        except ValueError:
            found.append((snippet.line, text))
            continue
        if entry["severity"] == "error":
            at = entry.get("line", 0)
            place = lines[at - 1][1] if entry.get("file", "main.vk").endswith("main.vk") and 0 < at <= len(lines) else 0
            found.append((place or snippet.line, entry["message"]))
    complaints = [f"{place}: not expected: {message}" for place, message in found if (place, message) not in wanted]
    complaints += [f"{place}: expected but not reported: {message}" for place, message in wanted if (place, message) not in found]
    if complaints or wanted or snippet.output is None:
        return complaints, None
    result = run(veskc, ["run", "--color=never"], folder)
    return [], result.stdout + result.stderr


def main():
    veskc, document = Path(sys.argv[1]).resolve(), Path(sys.argv[2])
    is_update = "--update" in sys.argv[3:]
    lines = document.read_text(encoding="utf-8").split("\n")
    found = snippets(lines)
    failures, updates = 0, []
    for snippet in found:
        with tempfile.TemporaryDirectory() as folder:
            complaints, output = check(veskc, snippet, Path(folder))
        if output is not None and output != snippet.output:
            if is_update:
                updates.append((snippet.output_lines, output.split("\n")[:-1]))
            else:
                complaints.append(f"{snippet.output_lines[0]}: the snippet prints\n{output}")
        for complaint in complaints:
            print(f"{document}:{complaint}")
        failures += bool(complaints)
    for (begin, end), output in reversed(updates):
        lines[begin:end] = output
    if updates:
        document.write_text("\n".join(lines), encoding="utf-8")
    print(f"{document}: {len(found)} snippets, {failures} at fault")
    return 1 if failures or not found else 0


if __name__ == "__main__":
    sys.exit(main())
