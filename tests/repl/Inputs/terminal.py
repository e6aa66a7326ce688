"""An interactive session at a terminal of its own, for tests: `Terminal(veskc)` starts one, `type()` presses keys,
`answer()` waits for the next prompt and gives what was shown in between. Waiting ends with what is waited for; the limits
of time only keep a session that hangs from holding a test for ever.
"""
import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import tempfile
import termios
import time

PATIENCE = 60.0
CTRL_C, CTRL_D, CTRL_Z = "\x03", "\x04", "\x1a"
LEFT, RIGHT, UP, DOWN, BACKSPACE = "\x1b[D", "\x1b[C", "\x1b[A", "\x1b[B", "\x7f"
# What moves the cursor and so on, as opposed to text.
CONTROLS = re.compile(r"\x1b\[[0-9;?]*[A-Za-z]|\x1b[()][A-Z0-9]|\x1b[=>]|\x07")


def start_anew():
    """In the new process: the terminal is its own, and signals do what they do by themselves."""
    os.setsid()
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)
    for number in (signal.SIGINT, signal.SIGQUIT, signal.SIGHUP, signal.SIGTERM, signal.SIGTSTP, signal.SIGPIPE):
        signal.signal(number, signal.SIG_DFL)


class Terminal:
    def __init__(self, veskc, home=None, *options, columns=80, rows=24, command=None, change=None, **variables):
        """`change` alters the list of the terminal's settings before the session starts."""
        self.home = home or tempfile.mkdtemp()
        self.master, slave = pty.openpty()
        self.slave_name = os.ttyname(slave)
        self.resize(columns, rows)
        settings = termios.tcgetattr(self.master)
        if change:
            change(settings)
            termios.tcsetattr(self.master, termios.TCSANOW, settings)
        self.settings_before = termios.tcgetattr(self.master)
        environment = {**os.environ, "HOME": self.home, "TERM": "xterm", **variables}
        environment = {name: value for name, value in environment.items() if value is not None}
        self.process = subprocess.Popen(command or [veskc, "repl", "--color=never", *options], stdin=slave, stdout=slave, stderr=slave,
                                        env=environment, preexec_fn=start_anew)
        os.close(slave)
        self.seen = b""

    def history_path(self):
        return os.path.join(self.home, ".veskc-history")

    def history(self):
        with open(self.history_path(), encoding="utf-8", errors="replace") as file:
            return file.read().splitlines()

    def resize(self, columns, rows):
        fcntl.ioctl(self.master, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))

    def type(self, keys):
        """Presses keys, a piece at a time as the terminal takes them."""
        data = keys if isinstance(keys, bytes) else keys.encode()
        while data:
            readable, writable, _ = select.select([self.master], [self.master], [], PATIENCE)
            assert readable or writable, "the session takes no input"
            if readable:
                self.take()
            if writable:
                data = data[os.write(self.master, data[:512]):]

    def paste(self, text):
        """As terminals send what is pasted: between marks, with the line ends of the key."""
        self.type("\x1b[200~" + text.replace("\n", "\r") + "\x1b[201~")

    def take(self):
        """False at the end."""
        try:
            piece = os.read(self.master, 65536)
        except OSError:
            return False
        self.seen += piece
        return bool(piece)

    def text(self):
        return CONTROLS.sub("", self.seen.decode(errors="replace")).replace("\r", "")

    def wait_for(self, text):
        """Everything up to a text, which is taken away; escape sequences are left out."""
        end = time.monotonic() + PATIENCE
        while text not in self.text():
            readable, _, _ = select.select([self.master], [], [], max(end - time.monotonic(), 0))
            assert readable, f"no {text!r} within {PATIENCE} seconds, but {self.text()!r}"
            assert self.take() or text in self.text(), f"the session has ended: {self.text()!r}"
        before, _, after = self.text().partition(text)
        self.seen = after.encode()
        return before

    def answer(self, keys=None):
        """What is shown up to the next prompt."""
        if keys is not None:
            self.type(keys)
        return self.wait_for("\n> ")

    def enter(self, line):
        """Types a line and gives the lines that answer it."""
        self.type(line + "\r")
        return self.wait_for("\n> ").split("\n")[1:]

    def expect(self, line, *answers):
        given = self.enter(line)
        assert given == list(answers), f"{line!r}: {given} instead of {list(answers)}"

    def start(self):
        self.wait_for("lists the commands\n> ")
        return self

    def settings(self):
        return termios.tcgetattr(self.master)

    def is_reading(self):
        """Whether the session has the terminal's settings changed for the editor."""
        return not self.settings()[3] & termios.ICANON

    def signal(self, number):
        os.kill(self.process.pid, number)

    def wait_until(self, condition, what):
        end = time.monotonic() + PATIENCE
        while not condition():
            assert time.monotonic() < end, f"not within {PATIENCE} seconds: {what}; {self.text()!r}"
            if select.select([self.master], [], [], 0.01)[0]:
                self.take()

    def figures(self):
        """What the system tells of the process, from its state on."""
        with open(f"/proc/{self.process.pid}/stat", encoding="utf-8") as file:
            return file.read().rpartition(")")[2].split()

    def state(self):
        """As the system calls it: T is stopped."""
        return self.figures()[0]

    def wait_for_work(self, ticks=5):
        """Until the process has computed for so many ticks of the system's clock (10 ms), while it reads nothing."""
        self.wait_until(lambda: not self.is_reading(), "the chunk is taken")
        begin = sum(map(int, self.figures()[11:13]))
        self.wait_until(lambda: sum(map(int, self.figures()[11:13])) >= begin + ticks, "the chunk takes time")

    def wait_asleep(self):
        """Until the program sleeps, with the terminal not read."""
        asleep, end = 0, time.monotonic() + PATIENCE
        while asleep < 20:
            assert time.monotonic() < end, "the program does not come to wait"
            time.sleep(0.01)
            asleep = asleep + 1 if not self.is_reading() and self.state() == "S" else 0

    def status(self):
        """Of the process, which ends by itself."""
        end = time.monotonic() + PATIENCE
        while self.process.poll() is None:
            assert time.monotonic() < end, f"the session does not end: {self.text()!r}"
            if select.select([self.master], [], [], 0.01)[0] and not self.take():
                self.process.wait(PATIENCE)
        while select.select([self.master], [], [], 0)[0] and self.take():
            pass
        return self.process.returncode

    def end(self):
        """By Ctrl-D; the settings of the terminal are as they were."""
        self.type(CTRL_D)
        status = self.status()
        assert status == 0, f"status {status}: {self.text()!r}"
        assert self.settings() == self.settings_before, "the terminal's settings have changed"

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        if self.process.poll() is None:
            self.process.kill()
            self.process.wait()
        os.close(self.master)
