"""Makes one program from its seed and tries it: modes, variants, mutations. Whatever goes wrong is a Complaint."""

import random
import shutil
import sys
import tempfile

import interpreter
from generator import generate
from modes import ERROR, MODES, SLOW, Expected, Workshop, differences
from mutations import try_mutation
from printer import print_program
from scope import NoExpression
from values import Discard
from variants import VARIANTS, wrong_type

ATTEMPTS = 60


class Complaint:
    """What went wrong with which sources; `model` when the reducer can repeat it."""

    def __init__(self, kind, text, files, expected=None):
        self.kind, self.text, self.files, self.expected = kind, text, files, expected


class Plan:
    """How much is tried with each program."""

    def __init__(self, modes=3, variants=1, mutations=2, everything=False, slow=0.1):
        self.modes, self.variants, self.mutations, self.everything, self.slow = modes, variants, mutations, everything, slow


def make(seed):
    """The first program of the seed's sequence that the reference interpreter can run, with its outcome."""
    for attempt in range(ATTEMPTS):
        name = f"{seed}/{attempt}"
        try:
            program = generate(name)
            return name, program, interpreter.run(program)
        except (Discard, NoExpression):
            continue
    raise RuntimeError(f"no program for seed {seed}")


def changed_program(name, variant):
    """A variant of the program of that name, with its outcome and sources; None where it does not apply."""
    program = generate(name)
    if not VARIANTS[variant](program, random.Random(f"{name} {variant}")):
        return None
    try:
        outcome = interpreter.run(program)
    except Discard:
        return None
    return program, outcome


def try_program(seed, veskc, plan):
    """All complaints about one program."""
    sys.setrecursionlimit(6000)
    name, program, outcome = make(seed)
    chance = random.Random(f"{seed} plan")
    folder = tempfile.mkdtemp(prefix="vesk-programs-")
    complaints = []
    try:
        shop = Workshop(veskc, folder)
        sources = print_program(program, qualify=chance.random() < 0.15)
        expected = Expected(outcome, sources)
        shop.write(sources.files)
        names = chosen_modes(chance, plan)
        for mode in names:
            wrong = MODES[mode](shop, expected)
            if wrong:
                complaints.append(Complaint(mode, wrong, sources.files, expected))
                if mode == "cold":
                    break
        if not complaints:
            try_variants(shop, name, chance, plan, complaints)
            files = sources.files
            for _ in range(plan.mutations):
                wrong, changed = try_mutation(shop, files, chance, chance.random() < 0.3 or plan.everything)
                if wrong:
                    complaints.append(Complaint("mutation", wrong, changed))
    finally:
        shutil.rmtree(folder, ignore_errors=True)
    return complaints


def chosen_modes(chance, plan):
    """Cold, warm, some quick ones, and now and then one that optimizes, which takes ten times as long."""
    if plan.everything:
        return list(MODES)
    quick = [n for n in MODES if n not in ("cold", "warm") + SLOW]
    names = ["cold", "warm"] + chance.sample(quick, min(len(quick), max(0, plan.modes - 2)))
    if chance.random() < plan.slow:
        names.append(chance.choice(SLOW))
    return names


def try_variants(shop, name, chance, plan, complaints):
    """Variants replace the program's files in place, with its cache: an edited program."""
    chosen = list(VARIANTS) if plan.everything else chance.sample(list(VARIANTS), plan.variants)
    for variant in chosen:
        made = changed_program(name, variant)
        if made is None:
            continue
        program, outcome = made
        sources = print_program(program)
        shop.write(sources.files)
        wrong = differences(Expected(outcome, sources), shop.veskc_run("run", *chance.choice(((), (), (), ("--cache=memory",)))))
        if wrong:
            complaints.append(Complaint("variant " + variant, wrong, sources.files, Expected(outcome, sources)))
    if plan.everything or chance.random() < 0.3:
        try_wrong_type(shop, name, complaints)


def try_wrong_type(shop, name, complaints):
    program = generate(name)
    statement = wrong_type(program, random.Random(f"{name} wrong"))
    if statement is None:
        return
    sources = print_program(program)
    shop.write(sources.files)
    result = shop.veskc_run("check")
    path, lines = sources.lines[id(statement)]
    placed = {(p, int(line)) for p, line, _, _ in ERROR.findall(result.errors)}
    if result.status != 1 or not any((path, n) in placed for n in lines):
        first = (result.errors.splitlines() or [""])[0]
        complaints.append(Complaint("wrong type", f"no error at {path}:{lines[0]}, status {result.status}: {first}", sources.files))
