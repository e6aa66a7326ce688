"""Runs a command that must end with a certain status: status.py STATUS COMMAND ..."""
import subprocess
import sys

status = subprocess.run(sys.argv[2:], check=False, timeout=120).returncode
if status != int(sys.argv[1]):
    print(f"status {status}, not {sys.argv[1]}")
    sys.exit(1)
