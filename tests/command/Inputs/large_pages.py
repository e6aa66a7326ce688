"""The first of the command's memory is asked for in large pages: 12 MiB or more are marked so.

    large_pages.py VESKC
"""
import os
import re
import subprocess
import sys

if not os.path.exists("/sys/kernel/mm/transparent_hugepage"):
    sys.exit(0)  # the system has none
session = subprocess.Popen([sys.argv[1], "repl", "--cache=off"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
session.stdin.write('print("ready")\n')
session.stdin.flush()
while "ready" not in (line := session.stdout.readline()):
    assert line, "the session has ended"
with open(f"/proc/{session.pid}/smaps") as maps:
    areas = re.findall(r"^Size: +(\d+) kB$(?:.*\n)*?^VmFlags: (.*)$", maps.read(), re.M)
session.communicate("")
marked = sum(int(size) for size, flags in areas if " hg" in flags)
assert marked >= 12 * 1024, f"{marked} KiB are marked: {areas}"
