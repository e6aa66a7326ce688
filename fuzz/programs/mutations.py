"""Mutations of a valid program's text: the compiler answers each with success, or with status 1, places and at most 20 errors."""

import re

from modes import ERROR, RESIDENT_LIMIT

TOKEN = re.compile(r'"(?:[^"\\\n]|\\.)*"|[A-Za-z_][A-Za-z0-9_]*|\d[\w.]*|=>|->|[-+*/<>=!&|]=?|[^\sA-Za-z_0-9]')
INSERTED = ("(", ")", "[", "]", "{", "}", "<", ">", ",", ".", ":", "=", "->", "=>", "?", "*", "**", "if", "else", "def", "class", "return",
            "self", "super", "null", "is", "as", "T", "Int", "String", "Missing", "\"", "'", "\\", "@", "#", "/*", "\t", "1", "1.5e", "0x", "import",
            "interface", "extends", "implements", "static", "init", "type(", "é", "\u0000", "ArrayList<", "Int?", "Int[]", "() -> Int")


def mutate(text, random):
    """One change of a text."""
    tokens = list(TOKEN.finditer(text))
    lines = text.split("\n")
    kind = random.randrange(12)
    pick = random.choice(tokens)
    if kind == 0:
        return text[:pick.start()] + text[pick.end():]
    if kind == 1:
        return text[:pick.end()] + " " + pick.group() + text[pick.end():]
    if kind == 2:
        return text[:pick.start()] + random.choice(INSERTED) + text[pick.end():]
    if kind == 3:
        return text[:pick.start()] + random.choice(INSERTED) + text[pick.start():]
    if kind in (4, 5):
        # A name in another's place keeps the grammar and breaks the types.
        names = [t for t in tokens if t.group()[0].isalpha()]
        a, b = random.choice(names), random.choice(names)
        return text[:a.start()] + b.group() + text[a.end():]
    if kind == 6:
        a, b = sorted((pick, random.choice(tokens)), key=lambda t: t.start())
        return text[:a.start()] + b.group() + text[a.end():b.start()] + a.group() + text[b.end():] if a is not b else text + "\ndef"
    if kind == 7:
        del lines[random.randrange(len(lines))]
    elif kind == 8:
        at = random.randrange(len(lines))
        lines[at] = random.choice(("  ", "\t", " ")) + lines[at] if random.random() < 0.5 else lines[at].strip()
    elif kind == 9:
        at = random.randrange(len(lines))
        lines.insert(random.randrange(len(lines)), lines[at])
    elif kind == 10:
        return text[:random.randrange(len(text))]
    else:
        a, b = random.randrange(len(lines)), random.randrange(len(lines))
        lines[a], lines[b] = lines[b], lines[a]
    return "\n".join(lines)


def judge(result, verb):
    """What is wrong with the compiler's answer to a mutated program, or None."""
    if result.hung:
        return f"{verb} hangs"
    if result.resident > RESIDENT_LIMIT:
        return f"{verb} takes {result.resident >> 20} MiB"
    if result.status == 0:
        return f"{verb}: status 0 with text on standard error" if "error:" in result.errors else None
    first = (result.errors.splitlines() or [""])[0]
    if result.status != 1:
        return f"{verb}: status {result.status}: {first}"
    placed = ERROR.findall(result.errors)
    # An error without a place begins its line; source lines and notes are indented or placed.
    bare = [x for x in result.errors.splitlines() if x.startswith(("error:", "veskc:"))]
    if bare or not placed:
        return f"{verb}: an error without a place: {bare[0] if bare else first}"
    if len(placed) > 20:
        return f"{verb}: {len(placed)} errors"
    inside = [m for _, _, _, m in placed if "Generic method bundle" in m or "__T_" in m]
    if inside:
        return f"{verb}: an error about the compiler's own affairs: {inside[0]}"
    return None


def try_mutation(shop, files, random, more):
    """Mutates one file; the answers of check, and with `more` of run or build, are judged and compared."""
    path = random.choice(sorted(files))
    changed = dict(files)
    for _ in range(1 if random.random() < 0.8 else 3):
        if changed[path].strip():
            changed[path] = mutate(changed[path], random)
    shop.write(changed)
    checked = shop.veskc_run("check")
    more = more and "def main(" in changed["main.vk"]
    wrong = judge(checked, "check")
    if wrong is None and more:
        target = shop.folder + "/mutant"
        made = shop.veskc_run("build", "-o", target, "--cache=" + random.choice(("on", "memory", "off")))
        wrong = judge(made, "build")
        wrong = wrong or compare_commands(checked, made)
    return wrong, changed


def compare_commands(checked, made):
    """What check and build say differently."""
    if made.status != checked.status:
        return f"check has status {checked.status}, build {made.status}: {((checked.errors or made.errors).splitlines() or [''])[0]}"
    if made.errors != checked.errors:
        return "check and build report differently: " + difference(checked.errors, made.errors)
    return None


def difference(a, b):
    for x, y in zip(a.splitlines() + [""], b.splitlines() + [""]):
        if x != y:
            return f"{x!r} and {y!r}"
    return "line ends"
