"""A shell with one job: runs a command in the foreground of the terminal; when it stops, says so and continues it once a
line is typed. Ends with its status."""
import os
import signal
import sys

signal.signal(signal.SIGTTOU, signal.SIG_IGN)
job = os.fork()
if job == 0:
    os.setpgid(0, 0)
    os.tcsetpgrp(0, os.getpid())
    signal.signal(signal.SIGTTOU, signal.SIG_DFL)
    os.execv(sys.argv[1], sys.argv[1:])
while True:
    _, status = os.waitpid(job, os.WUNTRACED)
    os.tcsetpgrp(0, os.getpid())
    if not os.WIFSTOPPED(status):
        sys.exit(os.waitstatus_to_exitcode(status))
    print(f"stopped by {os.WSTOPSIG(status)}", flush=True)
    sys.stdin.readline()
    os.tcsetpgrp(0, job)
    os.killpg(job, signal.SIGCONT)
