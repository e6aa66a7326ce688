"""Every command and mode with a cache that is not ours; the places where a cache may lie; users beside root.

    commands_and_places.py VESKC SCENARIO
"""
import os
import pathlib
import shutil
import stat
import subprocess
import sys
import threading

from place import EVIL, HONEST, OTHER, THIRD, Place, check_refused, chown_all, state_of, warnings_of


def modes(p):
    """Whoever would read it is warned; whoever reads no cache has nothing to be warned of."""
    for mode, level in (("on", "-O0"), ("readonly", "-O0"), ("memory", "-O0"), ("on", "-O2")):
        p.reset(p.planted)
        chown_all(p.cache, OTHER)
        before = state_of(p.way)
        check_refused(p.run(f"--cache={mode}", level), "belongs to another user")
        assert state_of(p.way) == before, mode
    result = p.run("--cache=off")
    assert (result.returncode, result.stdout, result.stderr) == (0, HONEST, ""), result
    for mode in ("readonly", "memory"):
        p.reset(None)
        result = p.run(f"--cache={mode}")
        assert (result.returncode, result.stdout, result.stderr) == (0, HONEST, ""), result
        assert not p.cache.exists()


def commands(p):
    """The output and the status of each are those without a cache."""
    main, program = p.program / "main.vk", p.base / "program"
    mistaken = p.base / "mistaken.vk"
    mistaken.write_text('def main() -> Int:\n    return "x"\n')
    words = [
        ["run", main], ["check", main], ["emit", main, "--emit=il"], ["build", main, "-o", program], ["run", mistaken],
        ["check", mistaken], ["run", main, "--stats"],
    ]
    for command in words:
        p.reset(None)
        plain = p.run_command(*command, "--cache=off")
        p.reset(p.planted)
        chown_all(p.cache, OTHER)
        before = state_of(p.way)
        refused = p.run_command(*command)
        assert state_of(p.way) == before, command
        assert (refused.returncode, refused.stdout) == (plain.returncode, plain.stdout), (command, refused)
        assert refused.stderr.count("warning: the cache is not used: ") == 1, refused.stderr
        if "--stats" not in command:
            lines = [line for line in refused.stderr.splitlines() if "the cache is not used" not in line]
            assert lines == plain.stderr.splitlines(), (command, refused.stderr, plain.stderr)
        if command[0] == "build":
            assert subprocess.run([program], capture_output=True, text=True).stdout == HONEST


def interactive(p):
    """A session reads caches too: it says so once and answers."""
    p.reset(p.planted)
    chown_all(p.cache, OTHER)
    before = state_of(p.way)
    result = p.run_command("repl", stdin=None, input="import vesk.collections\n[1, 2].map((x: Int) => x + 1)\n1 + 1\n", cwd=p.program)
    assert (result.returncode, result.stdout) == (0, "[2, 3]: vesk.collections.ArrayList<Int>\n2: Int\n"), result
    assert "the cache is not used" in warnings_of(result), result
    assert state_of(p.way) == before


def cache_verbs(p):
    """A folder that is not ours is neither read nor cleared; in one that is ours, others' files stay and links end."""
    p.reset(p.planted)
    chown_all(p.cache, OTHER)
    before = state_of(p.way)
    for verb in ("stats", "verify", "clear"):
        result = p.run_command("cache", verb)
        assert (result.returncode, result.stdout) == (2, ""), result
        assert "the cache is not used" in warnings_of(result), result
    assert state_of(p.way) == before

    p.reset(p.sound)
    p.cache.rename(p.elsewhere / "cache")
    os.chown(p.elsewhere, OTHER, OTHER)
    p.cache.symlink_to(p.elsewhere / "cache")
    before = state_of(p.elsewhere)
    assert p.run_command("cache", "clear").returncode == 2
    assert state_of(p.elsewhere) == before

    p.reset(p.sound)
    (p.elsewhere / "mine").write_text("mine")
    (p.cache / "branches" / "link").symlink_to(p.elsewhere)
    (p.cache / "apps" / "file.o").symlink_to(p.elsewhere / "mine")
    theirs = p.cache / "apps" / "theirs"
    theirs.mkdir()
    (theirs / "file").write_text("theirs")
    chown_all(theirs, OTHER)
    stats = p.run_command("cache", "stats")
    assert stats.returncode == 0 and "warning: the cache is not used" in stats.stderr, stats
    clear = p.run_command("cache", "clear")
    assert clear.returncode == 2 and "belongs to another user" in clear.stderr, clear
    assert (theirs / "file").read_text() == "theirs" and (p.elsewhere / "mine").read_text() == "mine"
    assert [path.name for path in (p.cache / "apps").iterdir()] == ["theirs"]
    assert not (p.cache / "branches").exists()
    shutil.rmtree(theirs)
    clear = p.run_command("cache", "clear")
    assert (clear.returncode, clear.stdout, clear.stderr) == (0, "0 files removed\n", ""), clear


def run_at(p, user=None, cwd=None, **variables):
    return p.run(cache=False, user=user, cwd=cwd, env=p.environment(**variables))


def places(p):
    """Wherever the cache lies, the same holds."""
    home, cache = p.way / "home", pathlib.Path(".cache/vesk")

    def planted_home(user):
        p.reset(None)
        (home / cache).parent.mkdir(parents=True)
        shutil.copytree(p.planted, home / cache)
        chown_all(home, user)

    planted_home(OTHER)  # as with sudo
    before = state_of(p.way)
    check_refused(run_at(p, HOME=home), f"{home}: belongs to another user")
    check_refused(run_at(p, HOME=home, XDG_CACHE_HOME="relative"), f"{home}: belongs to another user")
    check_refused(run_at(p, HOME="/", XDG_CACHE_HOME=home / ".cache"), f"{home}: belongs to another user")
    check_refused(run_at(p, HOME="/", VESK_CACHE_DIR=home / cache), f"{home}: belongs to another user")
    # A relative HOME is none, whoever it belongs to: the working folder may be somebody's project.
    for user in (OTHER, 0):
        chown_all(home, user)
        check_refused(run_at(p, HOME="home", cwd=p.way), "HOME is no absolute path: home")
    check_refused(run_at(p, HOME="new", cwd=p.base), "HOME is no absolute path: new")
    assert not (p.base / "new").exists()
    chown_all(home, OTHER)
    assert state_of(p.way) == before
    # Variables of the compiler itself may be relative.
    check_refused(run_at(p, VESK_CACHE_DIR="home/.cache/vesk", cwd=p.way), f"{home}: belongs to another user")
    p.reset(None)
    result = run_at(p, VESK_CACHE_DIR="own", cwd=p.way)
    assert (result.returncode, result.stdout, result.stderr) == (0, HONEST, ""), result
    assert (p.way / "own" / "apps").is_dir()


def new_folders(p):
    """Made for the user alone, whatever the mask is."""
    for mask in (0o000, 0o002, 0o077):
        p.reset(None)
        before = os.umask(mask)
        try:
            result = run_at(p, HOME=p.way / "home" / "user")
        finally:
            os.umask(before)
        assert (result.returncode, result.stdout, result.stderr) == (0, HONEST, ""), result
        for path in (p.way / "home").rglob("*"):
            assert path.stat().st_mode & 0o077 == 0, path
        result = run_at(p, HOME=p.way / "home" / "user")
        assert (result.stdout, result.stderr) == (HONEST, ""), result


def fallback_folder(p):
    """Without HOME it lies in the temporary folder, where others may have been first."""
    folder = pathlib.Path(f"/tmp/vesk-cache-{OTHER}")
    assert not folder.exists(), f"{folder} is in the way of this test"

    def run(user=OTHER):
        return run_at(p, user=user, HOME=None)

    try:
        result = run()
        assert (result.returncode, result.stdout, result.stderr) == (0, HONEST, ""), result
        assert folder.stat().st_uid == OTHER and folder.stat().st_mode & 0o7777 == 0o700
        assert (run().stdout, run().stderr) == (HONEST, "")
        os.chown(folder, THIRD, THIRD)
        check_refused(run(), f"{folder}: belongs to another user")
        shutil.rmtree(folder)
        folder.symlink_to(p.planted)
        os.lchown(folder, THIRD, THIRD)
        check_refused(run(), f"{folder}: belongs to another user")
        folder.unlink()
        folder.mkdir(mode=0o777)
        folder.chmod(0o777)
        check_refused(run(), f"{folder}: others may write it")
    finally:
        if folder.is_symlink():
            folder.unlink()
        shutil.rmtree(folder, ignore_errors=True)


def other_users(p):
    """A user's own cache, root's cache for everybody, and that of a third."""
    p.reset(p.planted)  # root's
    for path in [p.cache, *p.files("*")]:
        path.chmod(0o755 if path.is_dir() else 0o644)
    result = p.run("--cache=readonly", user=OTHER)
    assert (result.returncode, result.stdout, result.stderr) == (0, EVIL, ""), result
    result = p.run(user=OTHER)
    assert result.stdout == EVIL and "the cache is not written" in result.stderr, result
    chown_all(p.cache, OTHER)
    assert (p.run(user=OTHER).stdout, p.run(user=OTHER).stderr) == (EVIL, "")
    chown_all(p.cache, THIRD)
    check_refused(p.run(user=OTHER), "belongs to another user")
    # Root's files inside a user's folder, and a user's inside root's.
    chown_all(p.cache / "apps", 0)
    check_refused(p.run(user=OTHER), "belongs to another user")
    os.chown(p.cache, OTHER, OTHER)
    chown_all(p.cache / "branches", OTHER)
    assert (p.run("--cache=readonly", user=OTHER).stdout) == EVIL
    # What root fills for others without a word about modes serves them.
    p.reset(None)
    p.cache.mkdir()
    p.cache.chmod(0o755)
    assert p.run().stderr == ""
    result = p.run("--cache=readonly", "--stats", user=OTHER)
    assert result.stdout == HONEST and "warning" not in result.stderr, result
    assert " 0 made" in result.stderr and "objects: 0 found" not in result.stderr, result


def exchanged_meanwhile(p):
    """Somebody who may write a folder above keeps exchanging the cache, or is first again and again in a sticky folder."""
    p.reset(None)
    p.way.chmod(0o1777)
    stop = threading.Event()
    attack = p.base / "attack.py"
    attack.write_text(
        "import os, shutil, sys\n"
        "target, planted = sys.argv[1:]\n"
        "while True:\n"
        "    for make in (lambda: os.symlink(planted, target), lambda: os.mkdir(target, 0o777)):\n"
        "        try:\n            make()\n        except OSError:\n            continue\n"
        "        try:\n            os.unlink(target)\n        except OSError:\n            shutil.rmtree(target, ignore_errors=True)\n"
    )
    for path in [p.planted, *p.files("*", p.planted)]:
        path.chmod(0o755 if path.is_dir() else 0o644)
    stolen = p.base / "stolen"
    shutil.copytree(p.planted, stolen)
    chown_all(stolen, OTHER)
    attacker = subprocess.Popen(["setpriv", f"--reuid={OTHER}", f"--regid={OTHER}", "--clear-groups", sys.executable, attack, p.cache, stolen])
    try:
        for _ in range(25):
            result = p.run()
            assert (result.returncode, result.stdout) == (0, HONEST), result
            assert warnings_of(result).count("warning") <= 1
            try:
                there = p.cache.lstat()  # once: the attacker goes on
            except FileNotFoundError:
                continue
            if stat.S_ISDIR(there.st_mode) and there.st_uid == 0:
                assert there.st_mode & 0o7777 == 0o700
                shutil.rmtree(p.cache, ignore_errors=True)
    finally:
        stop.set()
        attacker.kill()
        attacker.wait()
    # The same with a folder that the attacker owns: nothing in it counts.
    p.reset(None)
    os.chown(p.way, OTHER, OTHER)
    attack.write_text(
        "import os, sys\n"
        "target, planted = sys.argv[1:]\n"
        "for name in ('one', 'two'):\n    os.symlink(planted, f'{target}.{name}')\n"
        "while True:\n    os.replace(f'{target}.one', target)\n    os.symlink(planted, f'{target}.one')\n"
    )
    attacker = subprocess.Popen(["setpriv", f"--reuid={OTHER}", f"--regid={OTHER}", "--clear-groups", sys.executable, attack, p.cache, p.planted])
    try:
        for _ in range(10):
            check_refused(p.run(), "belongs to another user")
    finally:
        attacker.kill()
        attacker.wait()


def odd_files(p):
    """Pipes, sockets, folders and endless files of one's own in the place of cache files: no waiting, and a right answer."""

    def pipe(path):
        path.unlink()
        os.mkfifo(path)

    def endless(path):
        with open(path, "wb") as file:
            file.truncate(20 << 30)

    def folder(path):
        path.unlink()
        path.mkdir()

    def empty(path):
        path.write_bytes(b"")

    for change in (pipe, endless, folder, empty):
        for pattern in ("*.o", "*__GM_*.vk", "*.lock", "checked-methods*"):
            p.reset(p.sound)
            for path in p.files(pattern):
                change(path)
            for mode in ("readonly", "on"):
                for command in ("run", "check"):
                    result = p.run_command(command, p.program / "main.vk", f"--cache={mode}")
                    assert result.returncode == 0 and result.stdout == (HONEST if command == "run" else ""), (change, pattern, result)
                    assert warnings_of(result).count("warning") <= 1, result


SCENARIOS = {name: function for name, function in list(globals().items()) if getattr(function, "__code__", None) and function.__code__.co_varnames[:1] == ("p",)}

if __name__ == "__main__":
    with Place(sys.argv[1]) as here:
        SCENARIOS[sys.argv[2]](here)
