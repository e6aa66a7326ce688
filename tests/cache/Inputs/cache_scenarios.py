"""What compilations leave in the cache and find there: one function per scenario.

    cache_scenarios.py VESKC SCENARIO FOLDER

Each works in FOLDER, which is emptied first, and ends with an assertion when something is not as it should be.
"""
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys

INPUTS = pathlib.Path(__file__).parent
EXPECTED = {
    "first.vk": "12\na\nb\n[1, 2, 3]\n3\n{z: 1}\n0\n1\n",
    "second.vk": "42\n{x: 3}\n[21, 11, 13]\n",
    "app/main.vk": "box of 1 with a!\nbox of 1 with 2!\n",
}


class Place:
    """A cache of its own, and the command at work with it."""

    def __init__(self, veskc, folder):
        self.veskc = veskc
        self.folder = pathlib.Path(folder)
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        self.cache = self.folder / "cache"

    def command(self, *words):
        return [self.veskc, *map(str, words), f"--cache-dir={self.cache}"]

    def veskc_run(self, *words, **options):
        return subprocess.run(self.command(*words), capture_output=True, text=True, timeout=120, check=False, **options)

    def run(self, program="first.vk", *options, root=INPUTS, expected=None):
        """Runs a program that must do as it should; the objects that it found and made."""
        result = self.veskc_run("run", root / program, "--stats", *options)
        assert result.returncode == 0, result.stderr
        assert result.stdout == (expected or EXPECTED[program]), result.stdout + result.stderr
        assert "warning" not in result.stderr, result.stderr
        counts = re.search(r"^objects: (\d+) found, (\d+) made$", result.stderr, re.M)
        return tuple(map(int, counts.groups())) if counts else None

    def files(self, pattern="*"):
        return sorted(path for path in self.cache.rglob(pattern) if path.is_file())

    def objects(self):
        return self.files("*.o")

    def contents(self):
        return {path: path.read_bytes() for path in self.files()}


def second_run(place):
    """What the first run compiles the second finds, and a new program as well."""
    found, made = place.run()
    assert made > 0
    assert len(place.objects()) == made
    before = place.contents()
    assert place.run() == (made, 0), "the second run compiles something"
    assert place.contents() == before, "the second run writes something"
    place.run("second.vk")
    assert place.run("second.vk")[1] == 0
    place.run("app/main.vk")
    assert place.run("app/main.vk")[1] == 0
    assert place.run()[1] == 0


def new_program(place):
    """A program that nobody has compiled finds the library's classes compiled."""
    place.run()
    program = place.folder / "new.vk"
    program.write_text(
        "import vesk.collections\n\ndef main() -> Void:\n    var numbers = [1, 2]\n    numbers.add(3)\n"
        "    var seen = HashSet<Int>()\n    seen.add(numbers.size())\n    print(numbers)\n    print(seen)\n"
    )
    found, made = place.run("new.vk", root=place.folder, expected="[1, 2, 3]\n{3}\n")
    assert found > 0 and made == 0, (found, made)


def parsed_when_used(place):
    """Of the library's files only those are read in which a name may stand that the program uses."""

    def files_of(lines):
        program = place.folder / "some.vk"
        program.write_text("import vesk.collections\n\ndef main() -> Void:\n" + "".join(f"    {line}\n" for line in lines))
        result = place.veskc_run("check", program, "--stats")
        assert result.returncode == 0, result.stderr
        return int(re.search(r"^files: (\d+)$", result.stderr, re.M).group(1))

    none = files_of(["print(1)"])
    lists = files_of(["print(ArrayList<Int>())"])
    both = files_of(["print(ArrayList<Int>())", "print(SortedMap<Int, Int>())"])
    assert none < lists < both, (none, lists, both)
    # Names that nothing declares are looked for everywhere, and the nearest is found.
    program = place.folder / "wrong.vk"
    program.write_text("import vesk.collections\n\ndef main() -> Void:\n    print(SortedMop<Int, Int>())\n")
    assert "did you mean 'SortedMap'" in place.veskc_run("check", program).stderr


def damaged(place):
    """Damaged objects are made anew, without a word."""
    place.run()
    place.run("app/main.vk")
    sound = place.contents()
    assert any("/apps/" in str(path) for path in place.objects())
    for path in place.objects():
        program = "app/main.vk" if "/apps/" in str(path) else "first.vk"
        whole = sound[path]
        middle = len(whole) // 2
        texts = [
            b"",
            whole[:1],
            whole[:middle],
            whole[:-1],
            whole + b"x",
            whole[:middle] + bytes([whole[middle] ^ 1]) + whole[middle + 1 :],
            whole[:100] + bytes([whole[100] ^ 0x40]) + whole[101:],
            whole[:-9] + bytes([whole[-9] ^ 0x80]) + whole[-8:],
            b"veskobj1" * 40,
        ]
        for text in texts:
            path.write_bytes(text)
            assert place.veskc_run("cache", "verify").returncode == 1
            assert place.run(program)[1] == 1, path
            assert path.read_bytes() == whole, f"{path} is not what it was"
        # One unit's object in the place of another's.
        other = next(other for other in place.objects() if other != path)
        path.write_bytes(sound[other])
        assert place.run(program)[1] == 1, path
        assert path.read_bytes() == whole
    assert place.veskc_run("cache", "verify").returncode == 0


def folders_in_place(place):
    """A folder where an object should be: a warning, and the program runs."""
    place.run()
    path = place.objects()[0]
    path.unlink()
    path.mkdir()
    (path / "file").write_text("x")
    result = place.veskc_run("run", INPUTS / "first.vk")
    assert result.returncode == 0 and result.stdout == EXPECTED["first.vk"], result.stderr
    assert result.stderr.count("warning") == 1 and "directory" in result.stderr.lower(), result.stderr


def deleted(place):
    """Deleting any part costs time and nothing else."""
    for program in ("first.vk", "app/main.vk"):
        place.run(program)
    for path in place.files():
        for program in ("first.vk", "app/main.vk"):
            place.run(program)
        path.unlink()
        for program in ("first.vk", "app/main.vk"):
            place.run(program)
    for folder in sorted(path for path in place.cache.rglob("*") if path.is_dir()):
        for program in ("first.vk", "app/main.vk"):
            place.run(program)
        shutil.rmtree(folder, ignore_errors=True)
        for program in ("first.vk", "app/main.vk"):
            place.run(program)


def modes(place):
    """Who may read and who may write."""
    for mode in ("readonly", "memory", "off"):
        for program in EXPECTED:
            place.run(program, f"--cache={mode}")
        assert not place.cache.exists(), f"{mode} writes"
    for program in EXPECTED:
        place.run(program)
    before = place.contents()
    for mode in ("readonly", "memory"):
        for program in EXPECTED:
            found, made = place.run(program, f"--cache={mode}")
            assert found > 0 and made == 0, (mode, program, found, made)
    for program in EXPECTED:
        assert place.run(program, "--cache=off") is None
    assert place.contents() == before
    # A foreign object that looks sound is linked by those who read; whoever does not read does not see it.
    for path in place.files("*.vk"):
        path.write_text("damaged")
    for mode in ("readonly", "memory", "off"):
        place.run("first.vk", f"--cache={mode}")
    assert all(path.read_text() == "damaged" for path in place.files("*.vk"))


def same_as_without(place):
    """Type tests and traces do not depend on where code comes from."""
    for program, status in (("identities.vk", 101), ("trace.vk", 101), ("first.vk", 0)):
        results = []
        for option in ("--cache=off", "--cache=on", "--cache=on", "--cache=readonly", "-O2", "-O2"):
            result = place.veskc_run("run", INPUTS / program, option)
            results.append((result.returncode, result.stdout, result.stderr))
            assert results[-1] == results[0], (program, option, results[-1], results[0])
        assert results[0][0] == status, results[0]


def levels(place):
    """Objects of one level of optimization are not used for another."""
    place.run("first.vk", "-O0")
    for level in ("-O1", "-O2"):
        assert place.run("first.vk", level)[1] > 0
        assert place.run("first.vk", level)[1] == 0
    assert place.run("first.vk", "-O0")[1] == 0


def check_trouble(result):
    assert result.returncode == 0, result.stderr
    assert result.stdout == EXPECTED["first.vk"], result.stdout + result.stderr
    assert result.stderr.count("\n") == 1 and "warning: the cache is not written: " in result.stderr, result.stderr


def trouble(place):
    """A cache that cannot be written is one warning, and the program runs."""
    place.cache.write_text("a file")
    check_trouble(place.veskc_run("run", INPUTS / "first.vk"))
    place.cache.unlink()
    for part in ("branches", "apps", "branches/.artifact-locks"):
        shutil.rmtree(place.cache, ignore_errors=True)
        file = place.cache / part
        file.parent.mkdir(parents=True)
        file.write_text("a file")
        result = place.veskc_run("run", INPUTS / ("app/main.vk" if part == "apps" else "first.vk"))
        if part == "apps":
            assert result.stdout == EXPECTED["app/main.vk"] and result.stderr.count("\n") == 1, result.stderr
        else:
            check_trouble(result)


def full_disk(place):
    """No file can grow: one warning; nothing half-written stays."""

    def nothing_fits():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (0, 0))

    check_trouble(place.veskc_run("run", INPUTS / "first.vk", preexec_fn=nothing_fits))
    assert all(path.stat().st_size == 0 for path in place.files()), place.files()

    def little_fits():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000))

    check_trouble(place.veskc_run("run", INPUTS / "first.vk", preexec_fn=little_fits))
    assert not [path for path in place.files() if ".tmp-" in path.name], place.files()
    place.run()


def changed_sources(place):
    """An application's bundles follow its sources, whichever of them changes."""
    root = place.folder / "app"
    shutil.copytree(INPUTS / "app", root)
    expected = EXPECTED["app/main.vk"]
    place.run("main.vk", root=root, expected=expected)
    assert place.run("main.vk", root=root, expected=expected)[1] == 0
    box = root / "shapes" / "box.vk"
    box.write_text(box.read_text().replace('"!"', '"?"'))
    expected = expected.replace("!", "?")
    place.run("main.vk", root=root, expected=expected)
    box.write_text(box.read_text().replace(" with ", " beside "))
    expected = expected.replace(" with ", " beside ")
    assert place.run("main.vk", root=root, expected=expected)[1] > 0
    assert place.run("main.vk", root=root, expected=expected)[1] == 0
    # Another file than the bundle's owner and caller, and an old time: the text counts.
    other = root / "shapes" / "other.vk"
    other.write_text('package shapes\n\ndef label() -> String:\n    return "one"\n')
    box.write_text(box.read_text().replace("factor()\n\n", "factor() + label()\n\n"))
    expected = expected.replace("?", "?one")
    place.run("main.vk", root=root, expected=expected)
    times = other.stat()
    other.write_text('package shapes\n\ndef label() -> Int:\n    return 7\n')
    os.utime(other, ns=(times.st_atime_ns, times.st_mtime_ns))
    expected = expected.replace("?one", "?7")
    place.run("main.vk", root=root, expected=expected)


def checked_methods(place):
    """Methods of bundles are looked through for mistakes once, and again when a source of theirs has changed."""
    root = place.folder / "app"
    shutil.copytree(INPUTS / "app", root)

    def kind(command):
        return ["--emit=il"] if command == "emit" else []

    def units(command, *options):
        result = place.veskc_run(command, root / "main.vk", "--stats", *kind(command), *options)
        assert result.returncode == 0, result.stderr
        return int(re.search(r"^units: (\d+)$", result.stderr, re.M)[1]), result.stdout

    def mistakes(command):
        result = place.veskc_run(command, root / "main.vk", *kind(command))
        assert result.returncode == 1, result.stdout + result.stderr
        return result.stderr

    plain, il = units("emit")
    fewer, same = units("emit")
    assert fewer < plain and same == il, (plain, fewer)
    assert units("check")[0] == units("check", "--cache=readonly")[0] < plain
    assert units("emit", "--cache=off") == (plain, il)
    lists = place.files("checked-methods*")
    assert lists
    for path in lists:
        path.write_bytes(path.read_bytes()[:-1])  # damaged: all is compiled again
    assert units("emit")[0] == plain
    assert units("emit")[0] == fewer

    # Neither the bundle's owner nor its caller changes, only a function that its method calls.
    box, other = root / "shapes" / "box.vk", root / "shapes" / "other.vk"
    other.write_text('package shapes\n\ndef label() -> String:\n    return "one"\n')
    box.write_text(box.read_text().replace("+ factor()", "+ label() + factor()"))
    assert units("emit")[0] > fewer
    assert units("check")[0] < plain + 1
    other.write_text('package shapes\n\ndef label() -> Void:\n    pass\n')
    text = mistakes("emit")
    assert "box.vk" in text, text
    for command in ("emit", "check", "emit", "run"):
        assert mistakes(command) == text
    other.write_text('package shapes\n\ndef label() -> String:\n    return "two"\n')
    assert units("check")[0] > units("check")[0]


def growing_bundle(place):
    """Programs that ask one bundle for different methods share its object."""
    one = "import vesk.collections\n\ndef main() -> Void:\n    print([1, 2].map((x: Int) => x + 1))\n"
    two = "import vesk.collections\n\ndef main() -> Void:\n    print([1, 2].fold(0, (a: Int, b: Int) => a + b))\n"
    (place.folder / "one.vk").write_text(one)
    (place.folder / "two.vk").write_text(two)

    def both():
        return [
            place.run("one.vk", root=place.folder, expected="[2, 3]\n")[1],
            place.run("two.vk", root=place.folder, expected="3\n")[1],
        ]

    both()
    place.run("one.vk", root=place.folder, expected="[2, 3]\n")
    assert both() == [0, 0], "the programs drive each other's code out"
    bundles = place.files("*__GM_*.vk")
    text = bundles[0].read_text()
    bundles[0].write_text(text + "# a remark\n")
    assert both()[0] == 1, "the bundle's own text counts"
    assert both() == [0, 0]


def together(place):
    """Processes that start at once on an empty cache."""
    commands = [place.command("run", INPUTS / program) for program in EXPECTED for _ in range(4)]
    expected = [EXPECTED[program] for program in EXPECTED for _ in range(4)]
    running = [subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True) for command in commands]
    for process, output in zip(running, expected):
        stdout, stderr = process.communicate(timeout=300)
        assert (process.returncode, stdout, stderr) == (0, output, ""), stdout + stderr
    assert place.veskc_run("cache", "verify").returncode == 0
    for program in EXPECTED:
        place.run(program)
        assert place.run(program)[1] == 0


def killed(place):
    """A compiler that is killed at any moment leaves nothing that is in the way of the next."""
    for step in range(40):
        process = subprocess.Popen(place.command("run", INPUTS / "first.vk"), stdout=subprocess.DEVNULL)
        try:
            process.wait(timeout=0.004 * (step + 1))
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
        if step % 8 == 7:
            place.run()
            shutil.rmtree(place.cache)
    place.run()
    assert place.run()[1] == 0


def cache_command(place):
    """stats, verify and clear."""
    assert "total: 0 files" in place.veskc_run("cache", "stats").stdout
    place.run()
    place.run("app/main.vk")
    stats = place.veskc_run("cache", "stats")
    assert stats.returncode == 0, stats.stderr
    shared, own = len([p for p in place.objects() if "/apps/" not in str(p)]), len(place.objects())
    assert re.search(rf"^branch \w+ \(active\): \d+ bundles? \(\d+ bytes\), {shared} objects? \(\d+ bytes\)$", stats.stdout, re.M), stats.stdout
    assert re.search(rf"^application \w+: 2 bundles \(\d+ bytes\), {own - shared} objects \(\d+ bytes\)$", stats.stdout, re.M), stats.stdout
    size = sum(path.stat().st_size for path in place.files())
    assert f"total: {len(place.files())} files ({size} bytes)" in stats.stdout, stats.stdout
    assert place.veskc_run("cache", "verify").returncode == 0
    damaged_object, damaged_bundle = place.objects()[0], place.files("*.vk")[0]
    damaged_object.write_bytes(b"junk")
    damaged_bundle.write_text("junk")
    verify = place.veskc_run("cache", "verify")
    assert verify.returncode == 1, verify.stdout
    assert f"{damaged_object}: not a sound object" in verify.stdout, verify.stdout
    assert f"{damaged_bundle}: not a sound bundle" in verify.stdout, verify.stdout
    assert verify.stdout.endswith("2 damaged\n"), verify.stdout
    (place.cache / "mine.txt").write_text("not the compiler's")
    assert place.veskc_run("cache", "clear", "--cache=readonly").returncode == 2
    count = len(place.files()) - 1
    clear = place.veskc_run("cache", "clear")
    assert (clear.returncode, clear.stdout) == (0, f"{count} files removed\n"), clear.stdout + clear.stderr
    assert [path.name for path in place.cache.iterdir()] == ["mine.txt"]
    assert place.veskc_run("cache", "clear").returncode == 0
    place.run()


SCENARIOS = {
    name: function
    for name, function in list(globals().items())
    if callable(function) and getattr(function, "__code__", None) and function.__code__.co_varnames[:1] == ("place",)
}

if __name__ == "__main__":
    SCENARIOS[sys.argv[2]](Place(sys.argv[1], sys.argv[3]))
