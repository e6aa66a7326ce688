#!/usr/bin/env python3
"""What happens when the system fails: the N-th call of one kind, a process that is killed, files that are damaged.

    faults.py VESKC SHIM FOLDER [--whole] [--only PART] [--kind CALL] [--seed N] [--limit SECONDS]

Parts: calls killed files shared memory. Each case works in FOLDER: a command runs under a fault and must end with the right
output (and at most one warning) or with a clear message and the status that belongs to it; then the same command runs on
what is left, without a fault, and must be right, silent, and leave nothing temporary. The short form takes a sample of
the cases, `--whole` all. Prints every case that went wrong and how to repeat it.
"""
import argparse
import errno
import os
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time
from pathlib import Path

INPUTS = Path(__file__).resolve().parent / "Inputs"
OUTPUT = "12\nbox of 1 with a!\nbox of 1 with 2!\nabababab\n{z: 1}\n"
TIMEOUT = 60
OTHER_OUTPUT = "[6, 5]\n[5, 5, 4, 4]\n[4, 5]\n54\n"
SESSION = "var xs = [1, 2]\nprint(xs.map((x: Int) => x + 1))\n"
SAID = {"run": OUTPUT, "other": OTHER_OUTPUT, "executable": OUTPUT, "repl": "[2, 3]\n"}  # emit: what it said at first
COMMANDS = ["run", "build", "check", "emit", "repl", "executable"]
MEMORY_KINDS = ["map", "protect", "unmap", "advise", "remap", "thread"]
KINDS = ["open", "read", "write", "close", "rename", "flock", "mkdir", "stat", "list", "unlink", "chmod", "pipe", "spawn", "wait",
         *MEMORY_KINDS]
# What each kind of call may fail with; "short" moves one byte, "kill" ends the process there, and "delete" takes the cache
# away before.
FAILURES = {
    "open": ["EACCES", "EMFILE", "EIO", "EINTR", "ENOSPC", "delete"],
    "read": ["EIO", "EINTR", "short", "delete"],
    "write": ["ENOSPC", "EIO", "EINTR", "short", "kill", "delete"],
    "close": ["EIO", "EINTR"],
    "rename": ["EACCES", "EIO", "ENOSPC", "kill", "delete"],
    "flock": ["ENOLCK", "EINTR", "kill", "delete"],
    "mkdir": ["EACCES", "ENOSPC", "EROFS", "delete"],
    "stat": ["EACCES", "EIO", "delete"],
    "list": ["EACCES", "EIO", "EMFILE", "delete"],
    "unlink": ["EACCES", "EIO", "kill", "delete"],
    "chmod": ["EACCES", "kill"],
    "pipe": ["EMFILE"],
    "spawn": ["EAGAIN", "ENOMEM", "EACCES"],
    "wait": ["EINTR"],
    "map": ["ENOMEM"],
    "protect": ["ENOMEM", "EACCES"],
    "unmap": ["ENOMEM"],
    "advise": ["ENOMEM", "EAGAIN"],
    "remap": ["ENOMEM"],
    "thread": ["EAGAIN"],
}
# Calls that are refused from some moment on: a full disk, no more descriptors, no more memory.
LASTING = {"open": ["EMFILE", "EACCES", "EIO"], "read": ["EIO"], "write": ["ENOSPC"], "rename": ["EROFS"], "flock": ["ENOLCK"],
           "mkdir": ["EROFS"], "stat": ["EACCES"], "list": ["EMFILE"], "map": ["ENOMEM"], "protect": ["ENOMEM"],
           "unmap": ["ENOMEM"], "advise": ["ENOMEM"]}
WARNING = re.compile(r"veskc: warning: the cache is [^\n]+\n")


class Wrong(Exception):
    pass


class Outcome:
    def __init__(self, status, output, errors):
        self.status, self.output, self.errors = status, output, errors

    def __str__(self):
        return f"status {self.status}, output {self.output[:200]!r}, errors {self.errors[:600]!r}"


class Place:
    """A folder with a program, a cache, a folder for what is built, and one for temporary files."""

    def __init__(self, arguments):
        self.veskc, self.shim = Path(arguments.veskc).resolve(), Path(arguments.shim).resolve()
        self.folder = Path(arguments.folder).resolve()
        shutil.rmtree(self.folder, ignore_errors=True)
        self.cache, self.built, self.temporary = (self.folder / name for name in ("cache", "built", "temporary"))
        for folder in (self.built, self.temporary):
            folder.mkdir(parents=True)
        for name in ("app", "other"):
            shutil.copytree(INPUTS / name, self.folder / name)
        self.program, self.other = (self.folder / name / "main.vk" for name in ("app", "other"))
        self.counts, self.log = self.folder / "counts", self.folder / "log"

    def words(self, command):
        """A command of the program's; `other` runs the other one."""
        if command == "executable":
            return [str(self.built / "program")]
        if command == "other":
            return [str(self.veskc), "run", str(self.other), f"--cache-dir={self.cache}", "--color=never"]
        named = [] if command == "repl" else [str(self.program)]
        words = [str(self.veskc), command, *named, f"--cache-dir={self.cache}", "--color=never"]
        more = {"build": ["-o", str(self.built / "program")], "emit": ["--emit=asm"]}
        return words + more.get(command, [])

    def environment(self, **more):
        clean = {name: value for name, value in os.environ.items() if not name.startswith("VESK_FAULT")}
        return {**clean, "TMPDIR": str(self.temporary), "LC_ALL": "C.UTF-8", **more}

    def start(self, words, environment, **options):
        process = subprocess.Popen(words, env=environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                                   stdin=subprocess.PIPE, text=True, errors="replace", start_new_session=True, **options)
        process.given = SESSION if "repl" in words else None
        return process

    def finish(self, process):
        try:
            output, errors = process.communicate(process.given, timeout=TIMEOUT)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.communicate()
            raise Wrong(f"still at work after {TIMEOUT} seconds") from None
        return Outcome(process.returncode, output, errors)

    def run(self, words, environment=None, **options):
        return self.finish(self.start(words, environment or self.environment(), **options))

    def fault_environment(self, kind=None, number=0, failure=None, lasting=False):
        self.log.unlink(missing_ok=True)
        more = {"LD_PRELOAD": str(self.shim), "VESK_FAULT_FOLDERS": f"{self.folder}:{self.library()}",
                "VESK_FAULT_COUNTS": str(self.counts), "VESK_FAULT_LOG": str(self.log)}
        if kind:
            more |= {"VESK_FAULT_CALL": kind, "VESK_FAULT_AT": str(number), "VESK_FAULT_HOW": failure,
                     "VESK_FAULT_ON": "1" if lasting else "0", "VESK_FAULT_DELETED": str(self.cache)}
        return self.environment(**more)

    def library(self):
        named = os.environ.get("VESK_STDLIB")
        return named or str(Path(__file__).resolve().parents[2] / "stdlib")

    def logged(self):
        """The calls that were counted: (kind, number, path)."""
        text = self.log.read_text(errors="replace") if self.log.exists() else ""
        return [(kind, int(number), path) for kind, number, path in (line.split(" ", 2) for line in text.splitlines())]

    def counted(self, command):
        """How many calls of each kind a command makes."""
        outcome = self.run(self.words(command), self.fault_environment())
        if command == "emit" and outcome.status == 0 and "main" in outcome.output:
            SAID["emit"] = outcome.output
        self.check_right(command, outcome)
        totals = dict.fromkeys(KINDS, 0)
        for kind, number, _ in self.logged():
            totals[kind] = max(totals[kind], number)
        return totals

    def clear_cache(self):
        shutil.rmtree(self.cache, ignore_errors=True)

    # ------------------------------------------------------------------------------------------------ judgements

    def built_output(self):
        return subprocess.run([self.built / "program"], capture_output=True, text=True, timeout=TIMEOUT, check=False).stdout

    def check_right(self, command, outcome, mayWarn=False):
        if outcome.status != 0:
            raise Wrong(f"it fails: {outcome}")
        if outcome.output != SAID.get(command, ""):
            raise Wrong(f"wrong output: {outcome}")
        if not (outcome.errors == "" or (mayWarn and WARNING.fullmatch(outcome.errors))):
            raise Wrong(f"it says too much: {outcome}")
        if command == "build" and self.built_output() != OUTPUT:
            raise Wrong("the executable does something else")

    def check_failure(self, command, outcome, kind, failure):
        """A failure that is told: a message with the reason, and the status that belongs to it."""
        if outcome.status < 0:
            raise Wrong(f"ended by a signal: {outcome}")
        if kind in MEMORY_KINDS or (kind == "spawn" and failure in ("EAGAIN", "ENOMEM")):
            self.check_lack_of_memory(command, outcome)
            return
        reason = os.strerror(getattr(errno, failure)) if failure.startswith("E") else None
        if outcome.status not in (1, 2) or outcome.output or not reason or reason not in outcome.errors:
            raise Wrong(f"no clear message: {outcome}")
        lines = outcome.errors.splitlines()
        if outcome.status == 2 and (len(lines) != 1 or not lines[0].startswith("veskc: ")):
            raise Wrong(f"no clear message: {outcome}")

    def check_lack_of_memory(self, command, outcome):
        """One message and status 70, or the panic of a program under way."""
        if outcome.status not in (70, 101) or not re.search(r"out of memory|thread", outcome.errors):
            raise Wrong(f"no clear message about memory: {outcome}")
        if outcome.status == 101 and command not in ("run", "repl", "executable"):
            raise Wrong(f"no program runs here: {outcome}")
        if not SAID.get(command, "").startswith(outcome.output):
            raise Wrong(f"wrong output: {outcome}")
        if outcome.status == 70 and outcome.errors.count("\n") != 1:
            raise Wrong(f"more than one message: {outcome}")

    def bundles(self):
        """Names of bundles and objects in the cache."""
        return sorted(str(path.relative_to(self.cache)) for path in self.cache.rglob("*") if path.suffix in (".vk", ".o"))

    def check_clean(self, command, bundles=None):
        """The same without a fault is right and silent, and leaves nothing temporary and no bundle twice."""
        self.check_right(command, self.run(self.words(command)))
        if bundles is not None and self.bundles() != bundles:
            raise Wrong(f"other bundles or objects than without the fault: {set(self.bundles()) ^ set(bundles)}")
        left = [path for path in self.cache.rglob("*") if ".tmp" in path.name]
        left += list(self.temporary.iterdir())
        left += [path for path in self.built.iterdir() if path.name != "program"]
        if left:
            raise Wrong(f"temporary files stay: {[str(path) for path in left]}")


class Report:
    def __init__(self):
        self.cases, self.wrong, self.start, self.end = 0, [], time.monotonic(), None

    def give(self, seconds):
        """The time for what comes next; None: as long as it takes."""
        self.end = None if seconds is None else time.monotonic() + seconds

    def is_over(self):
        return self.end is not None and time.monotonic() > self.end

    def case(self, name, work):
        self.cases += 1
        try:
            work()
        except Wrong as wrong:
            self.wrong.append(name)
            print(f"{name}: {wrong}", flush=True)
            return False
        return True


# ------------------------------------------------------------------------------------------------------ failing calls

def calls(place, report, arguments):
    """The N-th call of each kind fails, for each command, in a cold and in a warm cache."""
    cases, bundles = [], {}
    for command in COMMANDS:
        place.clear_cache()
        if command == "executable":
            place.check_right("build", place.run(place.words("build")))
        for temperature in ("cold", "warm"):
            totals = place.counted(command)
            bundles[command] = place.bundles()
            for kind in kinds_of(command, temperature):
                if arguments.kind and kind != arguments.kind:
                    continue
                for number in range(1, totals[kind] + 1):
                    cases += [(command, temperature, kind, number, failure, False) for failure in FAILURES[kind]]
                    cases += [(command, temperature, kind, number, failure, True) for failure in LASTING.get(kind, [])]
    order = [(command, temperature) for command in bundles for temperature in ("cold", "warm")]
    if not arguments.whole:
        cases = sample(cases, arguments.seed)
        if arguments.limit:
            random.Random(arguments.seed).shuffle(order)
    cases.sort(key=lambda case: order.index(case[:2]))
    prepared = None
    for command, temperature, kind, number, failure, lasting in cases:
        if report.is_over():
            break
        if command == "executable":
            if prepared != command:
                place.run(place.words("build"))
        elif temperature == "cold":
            place.clear_cache()
        elif prepared != command:
            place.clear_cache()
            place.run(place.words(command))
        prepared = command if temperature == "warm" else None

        def work():
            outcome = place.run(place.words(command), place.fault_environment(kind, number, failure, lasting))
            check_faulted(place, command, outcome, kind, number, failure, lasting)
            place.check_clean(command, bundles[command])

        name = f"{command} {temperature}: {kind} {number}{' and on' if lasting else ''} {failure}"
        if not report.case(name, work):
            prepared = None
            place.clear_cache()
            tidy(place)


def kinds_of(command, temperature):
    """What fails for a command: of those that go through the same files as another, memory only."""
    if command == "executable":
        return MEMORY_KINDS if temperature == "warm" else []
    return KINDS if command in ("run", "build", "check") else MEMORY_KINDS


def check_faulted(place, command, outcome, kind, number, failure, lasting):
    if failure == "kill":
        if outcome.status not in (0, -signal.SIGKILL):
            raise Wrong(f"killed, it says: {outcome}")
        return
    if failure == "delete":
        place.check_right(command, outcome)
        return
    subject = next((path for logged, count, path in place.logged() if (logged, count) == (kind, number)), "")
    concernsCache = subject == str(place.cache) or subject.startswith(f"{place.cache}/")
    isOnTheWay = f"{place.cache}/".startswith(f"{subject}/")
    if outcome.status == 0 or (concernsCache and not lasting) or failure in ("EINTR", "short"):
        try:
            place.check_right(command, outcome, mayWarn=concernsCache or isOnTheWay or lasting)
        except Wrong as wrong:
            raise Wrong(f"{subject}: {wrong}") from None
        return
    try:
        place.check_failure(command, outcome, kind, failure)
    except Wrong as wrong:
        raise Wrong(f"{subject}: {wrong}") from None


def tidy(place):
    for folder in (place.temporary, place.built):
        for path in folder.iterdir():
            shutil.rmtree(path) if path.is_dir() else path.unlink()


def sample(cases, seed):
    """Of every command, temperature, kind and failure one case, and all of what was wrong once."""
    whole = [case for case in cases if is_tried_whole(case)]
    return whole + one_of_each([case for case in cases if not is_tried_whole(case)], lambda case: (*case[:3], *case[4:]), seed)


def one_of_each(cases, key, seed):
    groups = {}
    for case in cases:
        groups.setdefault(key(case), []).append(case)
    chosen = random.Random(seed)
    return [chosen.choice(group) for group in groups.values()]


def is_tried_whole(case):
    """Memory of generated code that cannot be protected, at each place."""
    command, temperature, kind, _, failure, _ = case
    return (command, temperature, kind, failure) == ("run", "warm", "protect", "ENOMEM")


# --------------------------------------------------------------------------------------------------- killed processes

PROCESSES = 8


def killed(place, report, arguments):
    """Of eight compilers at work on one cache every other is killed, at each of its writes; the others do not notice."""
    cases = []
    for command in ("run", "check", "build"):
        place.clear_cache()
        totals = place.counted(command)
        cases += [(command, kind, number) for kind in ("write", "rename", "unlink") for number in range(1, totals[kind] + 1)]
    if not arguments.whole:
        cases = random.Random(arguments.seed).sample(cases, min(6, len(cases)))
    for command, kind, number in cases:
        if report.is_over():
            return
        place.clear_cache()

        def work():
            processes = []
            for i in range(PROCESSES):
                own = place.environment()
                if i % 2 == 0:
                    own = place.fault_environment(kind, number, "kill")
                    own |= {"VESK_FAULT_COUNTS": f"{place.counts}.{i}", "VESK_FAULT_LOG": f"{place.log}.{i}"}
                processes.append(place.start(place.words(command), own))
            for i, outcome in enumerate([place.finish(process) for process in processes]):
                if i % 2 == 1 or outcome.status == 0:
                    place.check_right(command, outcome)
                elif outcome.status != -signal.SIGKILL:
                    raise Wrong(f"a killed one says: {outcome}")
            place.check_clean(command)

        if not report.case(f"killed: {command}, {kind} {number}", work):
            tidy(place)


# ------------------------------------------------------------------------------------------------------ damaged files

HUGE = 20 << 30


def flipped(text, at):
    return text[:at] + bytes([text[at] ^ 0x41]) + text[at + 1 :] if text else text


def damages(path, text, other):
    """What may have become of a file: a name, and what makes it so."""
    def replaced(by):
        path.unlink()
        by()
    named = {"empty": b"", "half": text[: len(text) // 2], "less one byte": text[:-1], "one byte more": text + b"x",
             "another's": other, "zeros": bytes(len(text))}
    named |= {f"flipped at {at}": flipped(text, at) for at in sorted({0, len(text) // 3, len(text) // 2, max(len(text) - 1, 0)})}
    found = [(name, lambda changed=changed: path.write_bytes(changed)) for name, changed in named.items()]
    found.append(("a pipe", lambda: replaced(lambda: os.mkfifo(path))))
    found.append(("a sparse file", lambda: os.truncate(path, HUGE)))
    found.append(("a folder", lambda: replaced(path.mkdir)))
    found.append(("a link to nothing", lambda: replaced(lambda: path.symlink_to(path.parent / "nothing"))))
    found.append(("a link to an endless file", lambda: replaced(lambda: path.symlink_to("/dev/zero"))))
    found.append(("planted beside", lambda: planted(path, text)))
    return found


def planted(path, text):
    """A file of the same kind under a name that nobody has given."""
    name = re.sub(r"[0-9a-f]{8}(?=[^0-9a-f]*$)", "deadbeef", path.name)
    (path.parent / (name if name != path.name else f"planted-{name}")).write_bytes(text)


def fill(place, commands):
    place.clear_cache()
    for command in commands:
        place.check_right(command, place.run(place.words(command)))


def files(place, report, arguments):
    """Files of the cache are cut off, changed, exchanged, replaced or planted."""
    fill(place, ("run", "check", "other"))
    sound = {path: path.read_bytes() for path in sorted(place.cache.rglob("*")) if path.is_file()}
    cases = []
    for path, text in sound.items():
        other = next((bytes_ for each, bytes_ in sound.items() if each != path and each.suffix == path.suffix and bytes_ != text), b"")
        cases += [(path, index, name, other) for index, (name, _) in enumerate(damages(path, text, other))]
    if not arguments.whole:
        cases = one_of_each(cases, lambda case: (case[0].suffix, case[2].rstrip("0123456789")), arguments.seed)
    for path, index, name, other in cases:
        if report.is_over():
            return
        fill(place, ("run", "check", "other"))
        text = path.read_bytes()

        def work():
            damages(path, text, other)[index][1]()
            for command in ("run", "check", "other"):
                place.check_right(command, place.run(place.words(command)), mayWarn=True)
            # What is no file stays in the way, with a warning, until somebody takes it away.
            if path.is_dir() and not path.is_symlink():
                path.rmdir()
            elif path.is_symlink() or path.is_fifo():
                path.unlink()
            for command in ("run", "check", "other"):
                place.check_clean(command)

        report.case(f"files: {path.relative_to(place.cache)} {name}", work)


# ---------------------------------------------------------------------------------------------------- shared bundles

BLOCK = re.compile(r"# @vesk-generic-method-spec-begin\n.*?# @vesk-generic-method-spec-end\n", re.S)


def shared_bundles(place):
    """Bundles that list something for each of the two programs: path -> blocks."""
    fill(place, ("run",))
    alone = {path: BLOCK.findall(path.read_text()) for path in place.cache.rglob("*.vk")}
    fill(place, ("run", "other"))
    both = {path: BLOCK.findall(path.read_text()) for path in place.cache.rglob("*.vk")}
    return {path: blocks for path, blocks in both.items() if path in alone and len(blocks) > len(alone[path]) > 0}


def block_damages(text, blocks, number):
    """What may have become of one block: a name, and the bundle's text then."""
    block, next_ = blocks[number], blocks[(number + 1) % len(blocks)]
    lines = block.splitlines(keepends=True)
    begin = text.index(block)
    found = {"lost": text.replace(block, ""), "doubled": text.replace(block, block + block),
             "the last": text[: begin + len(block)], "cut off": text[: begin + len(block) // 2],
             "without its end": text.replace(lines[-1], "", 1) if number == 0 else text.replace(block, "".join(lines[:-1])),
             "another's in its place": text.replace(block, next_), "alone": text[: text.index(blocks[0])] + block + "\n",
             "backwards": text.replace("".join(blocks), "".join(reversed(blocks)))}
    for line in lines[1:-1]:
        key = line.split(" ")[1].removeprefix("@vesk-generic-method-").strip()
        at = begin + block.index(line)
        value = at + line.rindex(" ") + 1
        found[f"{key} lost"] = text[:at] + text[at + len(line) :]
        for name, place in (("start", at + 4), ("value", value), ("end", at + len(line) - 2)):
            found[f"{key} flipped at its {name}"] = text[:place] + chr(ord(text[place]) ^ 1) + text[place + 1 :]
        theirs = [each for each in next_.splitlines(keepends=True) if each.split(" ")[1] == line.split(" ")[1]]
        if theirs and theirs[0] != line:
            found[f"{key} of another"] = text[:at] + theirs[0] + text[at + len(line) :]
    return {name: changed for name, changed in found.items() if changed != text}


def shared(place, report, arguments):
    """Blocks of one program's in a bundle that another uses, too: whatever becomes of them, both programs are right."""
    cases = []
    for path, blocks in shared_bundles(place).items():
        text = path.read_text()
        for number in range(len(blocks)):
            cases += [(path, number, name, changed) for name, changed in block_damages(text, blocks, number).items()]
    if not cases:
        raise SystemExit("the two programs share no bundle")
    cases = [(*case, order) for case in cases for order in (("run", "other"), ("other", "run"))]
    if not arguments.whole:
        cases = random.Random(arguments.seed).sample(cases, min(20, len(cases)))
    for path, number, name, changed, order in cases:
        if report.is_over():
            return
        fill(place, ("run", "other"))

        def work():
            path.write_text(changed)
            for command in order:
                place.check_right(command, place.run(place.words(command)))
            for command in (*order, "check", "build"):
                place.check_clean(command)

        report.case(f"shared: {path.relative_to(place.cache)}, block {number} {name}, {order[0]} first", work)


# ------------------------------------------------------------------------------------------------------------- limits

MEBIBYTE = 1 << 20


def limited(place, words, limit, size, text=None):
    process = subprocess.Popen(words, env=place.environment(), stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True, errors="replace", start_new_session=True,
                               preexec_fn=lambda: resource.setrlimit(limit, (size, size)))
    try:
        output, errors = process.communicate(text, timeout=TIMEOUT)
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        process.communicate()
        raise Wrong(f"still at work after {TIMEOUT} seconds") from None
    return Outcome(process.returncode, output, errors)


def memory(place, report, arguments):
    """Address space, descriptors and stack that do not suffice."""
    place.clear_cache()
    place.check_right("build", place.run(place.words("build")))
    least = place.veskc.stat().st_size + 16 * MEBIBYTE
    sizes = range(least, 700 * MEBIBYTE, (1 if arguments.whole else 16) * MEBIBYTE)
    commands = {name: place.words(name) for name in COMMANDS}
    cases = [(name, resource.RLIMIT_AS, size) for name in commands for size in sizes]
    cases += [(name, resource.RLIMIT_NOFILE, size) for name in commands for size in range(3, 24)]
    if not arguments.whole:
        cases = random.Random(arguments.seed).sample(cases, 50)
    # With 16 KiB the system's loader may end any program before its first instruction.
    cases += [(name, resource.RLIMIT_STACK, size * 1024) for name in commands for size in (24, 32, 64, 128, 256, 512, 1024)]
    for name, limit, size in cases:
        if report.is_over():
            return

        def work():
            outcome = limited(place, commands[name], limit, size, SESSION if name == "repl" else None)
            if outcome.status == 127 and "error while loading shared libraries" in outcome.errors:
                return  # before its first instruction
            if outcome.status == 0:
                expected = SAID.get(name) if name != "emit" else None
                if expected and outcome.output != expected and not (name == "repl" and outcome.errors):
                    raise Wrong(f"wrong output: {outcome}")
                return
            words = {resource.RLIMIT_NOFILE: r"Too many open files|link"}.get(limit, r"memory|Resource temporarily unavailable|link")
            if outcome.status not in (2, 70, 101) or not re.search(words, outcome.errors):
                raise Wrong(f"no clear message: {outcome}")
            if outcome.status == 70 and outcome.errors.count("\n") != 1:
                raise Wrong(f"more than one message: {outcome}")

        kind = {resource.RLIMIT_AS: "address space", resource.RLIMIT_NOFILE: "descriptors", resource.RLIMIT_STACK: "stack"}[limit]
        report.case(f"memory: {name}, {kind} of {size}", work)
    report.case("memory: afterwards", lambda: place.check_clean("build"))


PARTS = {"calls": calls, "killed": killed, "files": files, "shared": shared, "memory": memory}
SHARES = {"calls": 0.5, "killed": 0.1, "files": 0.15, "shared": 0.1, "memory": 0.15}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("veskc")
    parser.add_argument("shim")
    parser.add_argument("folder")
    parser.add_argument("--whole", action="store_true")
    parser.add_argument("--only", choices=PARTS)
    parser.add_argument("--kind", choices=KINDS)
    parser.add_argument("--seed", type=int, default=None)
    parser.add_argument("--limit", type=float, default=None)
    arguments = parser.parse_args()
    if arguments.seed is None:
        arguments.seed = random.randrange(1_000_000)
    print(f"seed {arguments.seed}", flush=True)
    report = Report()
    place = Place(arguments)
    for name, part in PARTS.items():
        if arguments.only in (None, name):
            report.give(arguments.limit and arguments.limit * (1 if arguments.only else SHARES[name]))
            part(place, report, arguments)
    print(f"{report.cases} cases, {len(report.wrong)} wrong, {time.monotonic() - report.start:.0f} seconds")
    if not report.wrong:
        shutil.rmtree(place.folder, ignore_errors=True)
    return 1 if report.wrong else 0


if __name__ == "__main__":
    sys.exit(main())
