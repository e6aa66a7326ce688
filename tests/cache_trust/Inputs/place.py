"""A cache that somebody has prepared, and the command at work with it.

The program prints "with"; an object in the planted cache has been changed so that it prints "evil", with a sound hash, as
whoever may write the cache can do. Whether it was executed is seen at once.
"""
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

OTHER, THIRD = 54321, 54322  # users that are neither root nor anybody here
HONEST = "box of 1 with a!\nbox of 1 with 2!\n"
EVIL = HONEST.replace("with", "evil")
INPUTS = pathlib.Path(__file__).parent
PROGRAM = INPUTS.parent.parent / "cache" / "Inputs" / "app"
MASK = (1 << 64) - 1


def content_hash(data):
    """The hash at the end of stored objects, computed as anybody can."""
    first, second = 0x9E3779B97F4A7C15, 0xC2B2AE3D27D4EB4F
    value = first ^ (len(data) * second & MASK)
    padded = data + bytes(8 - len(data) % 8)
    for at in range(0, len(padded), 8):
        word = int.from_bytes(padded[at : at + 8], "little")
        value = (value ^ (word * second & MASK)) * first & MASK
        value ^= value >> 29
    value ^= value >> 32
    value = value * second & MASK
    return value ^ (value >> 29)


def plant(path):
    """Changes the code of a stored object; True when there was something to change."""
    data = path.read_bytes()
    changed = data[:-16].replace(b" with ", b" evil ")
    if changed == data[:-16]:
        return False
    path.write_bytes(changed + content_hash(changed).to_bytes(8, "little") + data[-8:])
    return True


def chown_all(path, user):
    os.lchown(path, user, user)
    for folder, folders, files in os.walk(path):
        for name in folders + files:
            os.lchown(os.path.join(folder, name), user, user)


class Place:
    """<base>/way/cache, and <base>/elsewhere for what links lead to."""

    def __init__(self, veskc):
        self.veskc = veskc
        # In the temporary folder: its own way down is sound wherever the tests were checked out.
        self.base = pathlib.Path(tempfile.mkdtemp(prefix="vesk-trust-", dir="/tmp"))
        self.base.chmod(0o755)
        self.program = self.base / "app"
        shutil.copytree(PROGRAM, self.program)
        self.way, self.elsewhere = self.base / "way", self.base / "elsewhere"
        self.cache = self.way / "cache"
        self.sound, self.planted = self.base / "sound", self.base / "planted"
        self.fill()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.base, ignore_errors=True)

    def fill(self):
        self.way.mkdir()
        result = self.run()
        assert (result.returncode, result.stdout, result.stderr) == (0, HONEST, ""), result
        self.run_command("check", self.program / "main.vk")
        shutil.copytree(self.cache, self.sound, symlinks=True)
        planted = [path for path in self.cache.rglob("*.o") if plant(path)]
        assert planted, "no object holds the text"
        shutil.copytree(self.cache, self.planted, symlinks=True)
        # The plant works: from a folder of one's own it is executed.
        result = self.run()
        assert (result.stdout, result.stderr) == (EVIL, ""), result

    def reset(self, template):
        for folder in (self.way, self.elsewhere):
            if folder.is_symlink():
                folder.unlink()
            shutil.rmtree(folder, ignore_errors=True)
        self.way.mkdir(mode=0o755)
        self.way.chmod(0o755)
        self.elsewhere.mkdir()
        if template:
            shutil.copytree(template, self.cache, symlinks=True)

    def environment(self, **changes):
        environment = {name: value for name, value in os.environ.items() if name not in ("VESK_CACHE_DIR", "XDG_CACHE_HOME")}
        environment.update({name: str(value) for name, value in changes.items() if value is not None})
        for name, value in changes.items():
            if value is None:
                environment.pop(name, None)
        return environment

    def run_command(self, *words, cache=True, user=None, **options):
        words = [self.veskc, *map(str, words)]
        if cache:
            words.append(f"--cache-dir={self.cache}")
        if user is not None:
            words = ["setpriv", f"--reuid={user}", f"--regid={user}", "--clear-groups", *words]
        return subprocess.run(words, capture_output=True, text=True, timeout=60, check=False, stdin=options.pop("stdin", subprocess.DEVNULL), **options)

    def run(self, *options, **keywords):
        return self.run_command("run", self.program / "main.vk", *options, **keywords)

    def files(self, pattern, root=None):
        found = sorted(path for path in (root or self.cache).rglob(pattern))
        assert found, f"nothing is named {pattern}"
        return found

    def planted_objects(self):
        return [path for path in self.files("*.o") if "/apps/" in str(path)]


def state_of(folder):
    """Everything below a folder as the system tells it, without links followed."""
    states = {}
    for place, folders, files in os.walk(folder):
        for name in folders + files:
            path = os.path.join(place, name)
            about = os.lstat(path)
            content = None
            if os.path.isfile(path) and not os.path.islink(path):
                with open(path, "rb") as file:
                    content = file.read()
            states[path] = (about.st_mode, about.st_uid, about.st_ino, content)
    return states


def warnings_of(result):
    """What was said beside the program's output: one line, or none."""
    assert result.stderr.count("\n") <= 1, result.stderr
    return result.stderr.strip()


def check_refused(result, reason, output=HONEST):
    assert result.stdout == output, (result.stdout, result.stderr)
    assert result.returncode == 0, result
    text = warnings_of(result)
    assert re.fullmatch(f"veskc: warning: the cache is not used: .*{reason}.*", text), text
