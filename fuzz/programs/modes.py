"""Runs veskc on printed programs, in all the ways that must agree, and says where it differs from the reference."""

import os
import re
import resource
import select
import shutil
import signal
import subprocess
import tempfile

ADDRESS_SPACE = 6 << 30
RESIDENT_LIMIT = 2 << 30
TIME_LIMIT = 30.0
LARGEST_FILE = 256 << 20
ERROR = re.compile(r"^(.+?):(\d+):(\d+): error: (.*)$", re.M)


class Result:
    def __init__(self, status, output, errors, hung, resident):
        self.status, self.output, self.errors, self.hung, self.resident = status, output, errors, hung, resident


def execute(command, folder, environment, seconds=TIME_LIMIT):
    """Runs a command with limits; a hang ends with its death."""
    with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
        process = subprocess.Popen(command, cwd=folder, env=environment, stdin=subprocess.DEVNULL, stdout=out, stderr=err,
                                   start_new_session=True)
        resource.prlimit(process.pid, resource.RLIMIT_FSIZE, (LARGEST_FILE, LARGEST_FILE))
        # Sanitizers reserve more addresses than there is memory.
        if "ASAN_OPTIONS" not in environment:
            resource.prlimit(process.pid, resource.RLIMIT_AS, (ADDRESS_SPACE, ADDRESS_SPACE))
        descriptor = os.pidfd_open(process.pid)
        ready = select.select([descriptor], [], [], seconds)[0]
        os.close(descriptor)
        if not ready:
            os.killpg(process.pid, signal.SIGKILL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        out.seek(0)
        err.seek(0)
        return Result(process.returncode, out.read().decode("utf-8", "replace"), err.read().decode("utf-8", "replace"),
                      not ready, usage.ru_maxrss * 1024)


class Workshop:
    """A folder with a program's sources and a cache of its own."""

    def __init__(self, veskc, folder):
        self.veskc, self.folder = veskc, folder
        self.source, self.cache = os.path.join(folder, "source"), os.path.join(folder, "cache")
        self.environment = {k: v for k, v in os.environ.items() if not k.startswith("VESK_") or k in ("VESK_STDLIB", "VESK_LINK_OPTIONS")}
        self.environment["HOME"] = folder

    def write(self, files, folder=None):
        folder = folder or self.source
        shutil.rmtree(folder, ignore_errors=True)
        for path, text in files.items():
            whole = os.path.join(folder, path)
            os.makedirs(os.path.dirname(whole), exist_ok=True)
            with open(whole, "w", encoding="utf-8") as f:
                f.write(text)

    def veskc_run(self, verb, *options, main="main.vk", folder=None, cache=None):
        command = [self.veskc, verb, "--cache-dir", cache or self.cache, *options, main]
        return execute(command, folder or self.source, self.environment)


class Expected:
    """What the reference interpreter says, in terms of printed sources."""

    def __init__(self, outcome, sources):
        self.output, self.status, self.panic = outcome.output, outcome.status, None
        if outcome.panic is not None:
            path, lines = sources.lines.get(id(outcome.panic.statement), ("", []))
            self.panic = [f"{path}:{n}: panic: {outcome.panic.text}" for n in lines]


def differences(expected, result, prefix=""):
    """What is wrong with a run, as one line, or None."""
    if result.hung:
        return "hangs"
    if result.resident > RESIDENT_LIMIT:
        return f"takes {result.resident >> 20} MiB"
    if result.status != expected.status:
        first = ERROR.search(result.errors)
        text = first.group(4) if first else (result.errors.strip().splitlines() or [""])[0]
        return f"status {result.status} instead of {expected.status}: {text}"
    if result.output != expected.output:
        return "another output: " + first_difference(expected.output, result.output)
    if expected.panic is None:
        return "something on standard error: " + result.errors.splitlines()[0] if result.errors else None
    first = (result.errors.splitlines() or [""])[0]
    if prefix and first.startswith(prefix):
        first = first[len(prefix):]
    if first not in expected.panic:
        return f"another panic: {first!r} instead of {expected.panic[0] if expected.panic else '?'!r}"
    return None


def first_difference(expected, actual):
    for a, b in zip(expected.splitlines() + ["(end)"], actual.splitlines() + ["(end)"]):
        if a != b:
            return f"{b!r} instead of {a!r}"
    return "line ends"


def plain(verb_options):
    def mode(shop, expected):
        return differences(expected, shop.veskc_run("run", *verb_options))
    return mode


def checked(shop, expected):
    result = shop.veskc_run("check")
    if result.status != 0 or result.errors or result.output:
        return f"check: status {result.status}: " + (result.errors.splitlines() or [""])[0]
    return None


def built(*options):
    def mode(shop, expected):
        target = os.path.join(shop.folder, "program")
        made = shop.veskc_run("build", "-o", target, *options)
        if made.status != 0 or made.errors:
            return f"build: status {made.status}: " + (made.errors.splitlines() or [""])[0]
        return differences(expected, execute([target], shop.source, shop.environment))
    return mode


def elsewhere(shop, expected):
    """A copy of the program in another folder, with the first one's cache, called from a third."""
    other = os.path.join(shop.folder, "other", "place")
    shutil.rmtree(other, ignore_errors=True)
    shutil.copytree(shop.source, other)
    result = shop.veskc_run("run", main=os.path.join("other", "place", "main.vk"), folder=shop.folder)
    return differences(expected, result, prefix="other/place/")


def fresh_optimized(shop, expected):
    return differences(expected, shop.veskc_run("run", "-O2", "-j", "1", cache=os.path.join(shop.folder, "cache2")))


# In this order: the first run fills the cache that later ones read.
MODES = {
    "cold": plain(()), "warm": plain(()), "optimized": plain(("-O2",)), "memory": plain(("--cache=memory",)),
    "readonly": plain(("--cache=readonly",)), "off": plain(("--cache=off", "-j", "1")), "check": checked, "built": built(),
    "built optimized": built("-O2"), "elsewhere": elsewhere, "cold optimized": fresh_optimized, "one thread": plain(("-j", "1")),
}
# Optimizing takes ten times as long as everything else.
SLOW = ("optimized", "built optimized", "cold optimized")
