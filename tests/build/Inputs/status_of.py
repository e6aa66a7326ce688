"""Runs a command and checks the status that it ends with: status_of.py STATUS COMMAND ARGUMENT ..."""
import subprocess
import sys

status = subprocess.run(sys.argv[2:], check=False).returncode
if status != int(sys.argv[1]):
    sys.exit(f"status {status}")
