"""Changes the end of an executable that panics, byte by byte, and checks that it still panics: damaged_table.py FILE"""
import os
import subprocess
import sys

executable = sys.argv[1]
damaged = executable + ".damaged"
with open(executable, "rb") as file:
    whole = file.read()


def check(content, what):
    with open(damaged, "wb") as out:
        out.write(content)
    os.chmod(damaged, 0o755)
    result = subprocess.run([damaged], stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60, check=False)
    assert result.returncode == 101, (what, result)
    assert result.stdout == b"[first]\n", (what, result)
    assert result.stderr == b"panic: division by zero\n", (what, result)


trailer = len(whole) - 32
places = list(range(trailer, trailer + 12)) + list(range(trailer + 16, len(whole))) + list(range(trailer - 400, trailer, 37))
for place in places:
    check(whole[:place] + bytes([whole[place] ^ 0x41]) + whole[place + 1:], f"byte {place}")
for kept in (len(whole) - 1, len(whole) - 8, trailer, trailer - 100):
    check(whole[:kept], f"first {kept} bytes")
check(whole + b"\n", "a byte more")
