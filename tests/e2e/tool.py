"""The command line tool as its users run it."""

import fcntl
import json
import os
import pty
import struct
import subprocess
import tempfile
import termios
from dataclasses import dataclass

from harness import BASE, INSTRUMENTS, TIMEOUT


# For `environment`: /home is in memory, and is to pass for a disk.
KEPT_CHANGE_TIMES = {"LD_PRELOAD": str(BASE / "tools" / "libkeptchangetimes.so")}

# Root without what it may do beyond others: for `wrapper`.
WITHOUT_PRIVILEGES = ["/usr/bin/setpriv", "--bounding-set=-all", "--inh-caps=-all"]


@dataclass(frozen=True)
class Result:
    """What came of one run. The texts may hold names that are no UTF-8, in Python's own escape."""

    status: int
    output: str
    errors: str

    def lines(self):
        return self.output.splitlines()

    def document(self):
        return json.loads(self.output)


class Tool:
    """`tvctl` of one installation."""

    def __init__(self, installation, environment=None):
        self.installation = installation
        self._environment = environment or {}

    def command(self, *arguments, wrapper=()):
        return [*wrapper, self.installation.root / "bin" / "tvctl", *arguments]

    def environment(self, **more):
        return {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", **INSTRUMENTS,
                "ASAN_OPTIONS": INSTRUMENTS["ASAN_OPTIONS"] + ":quarantine_size_mb=8", **self._environment, **more}

    def run(self, *arguments, status=0, environment=None, timeout=TIMEOUT, wrapper=(), **options):
        """Runs it to its end, which has to be `status`, or any with None. `wrapper` is a command that starts it."""
        if "input" not in options:
            options.setdefault("stdin", subprocess.DEVNULL)
        result = subprocess.run(self.command(*arguments, wrapper=wrapper), stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, env=self.environment(**(environment or {})),
                                timeout=timeout, check=False, **options)
        result = Result(result.returncode, os.fsdecode(result.stdout), os.fsdecode(result.stderr))
        assert status is None or result.status == status, (arguments, result)
        return result

    def json(self, *arguments, **options):
        """The same with --json; the result is the document."""
        return self.run("--json", *arguments, **options).document()

    def fails(self, *arguments, says, **options):
        """It ends with an error that is one line and contains `says`, in text and in JSON."""
        result = self.run(*arguments, status=2, **options)
        assert result.output == "" and says in result.errors, result
        assert result.errors.startswith("tvctl: ") and result.errors.count("\n") == 1, result
        result = self.run("--json", *arguments, status=2, **options)
        assert list(result.document()) == ["error"] and says in result.document()["error"], result

    def on_terminal(self, *arguments, columns=100):
        """Runs it with a terminal as standard error; the third of the result is what it wrote there, with escapes."""
        master, slave = pty.openpty()
        fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        with tempfile.TemporaryFile() as output:
            process = subprocess.Popen(self.command(*arguments), stdin=subprocess.DEVNULL, stdout=output, stderr=slave,
                                       env=self.environment(TERM="xterm"))
            os.close(slave)
            shown = b""
            try:
                while data := os.read(master, 4096):
                    shown += data
            except OSError:
                pass  # Nobody has the other end any more.
            os.close(master)
            status = process.wait()
            output.seek(0)
            return Result(status, os.fsdecode(output.read()), os.fsdecode(shown))

    def start(self, *arguments, **options):
        """Starts it and returns the process."""
        options.setdefault("stdin", subprocess.DEVNULL)
        return subprocess.Popen(self.command(*arguments), env=self.environment(), stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, **options)
