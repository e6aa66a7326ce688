"""Checks beginnings of a source file: the command must end with 0 or 1, and explain itself with a place."""
import re
import subprocess
import sys
from pathlib import Path

veskc, source, scratch = sys.argv[1], Path(sys.argv[2]).read_bytes(), Path(sys.argv[3])
step = max(1, len(source) // 150)
for end in range(0, len(source), step):
    scratch.write_bytes(source[:end])
    result = subprocess.run([veskc, "check", str(scratch)], capture_output=True, text=True, timeout=60, check=False)
    explained = re.search(r"\.vk:\d+:\d+: error: ", result.stderr)
    if result.returncode not in (0, 1) or (result.returncode == 1) != bool(explained):
        sys.exit(f"after {end} bytes: status {result.returncode}\n{result.stderr[:2000]}")
