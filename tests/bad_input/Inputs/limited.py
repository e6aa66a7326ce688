"""Runs a command with little memory: limited.py MEGABYTES COMMAND ..."""
import os
import resource
import sys

size = int(sys.argv[1]) << 20
resource.setrlimit(resource.RLIMIT_AS, (size, size))
os.execvp(sys.argv[2], sys.argv[2:])
