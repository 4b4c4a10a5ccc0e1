"""The system calls of one thread of the service: which they are, and what it does when one of them fails."""

import re
import subprocess
import time
from dataclasses import dataclass

from harness import fresh_directory

_CALL = re.compile(r"(?P<name>\w+)\((?P<rest>.*)")
INJECTED = "(INJECTED)"


@dataclass(frozen=True)
class Call:
    """A system call; `number`: the how manyth of that name it is, from 1."""

    name: str
    number: int
    text: str

    def __str__(self):
        return f"{self.name} {self.number}: {self.text}"


class Tracer:
    """Follows the main thread of a process from the construction until `stop`."""

    def __init__(self, process, *arguments):
        self._file = fresh_directory() / "calls"
        self._strace = subprocess.Popen(
            ["/usr/bin/strace", "-y", "-s", "16", "-o", self._file, *arguments, "-p", str(process.pid)],
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        said = self._strace.stderr.readline()
        assert "attached" in said, said + self._strace.stderr.read()

    def stop(self):
        """Lets the process go; returns the lines about its calls."""
        self._strace.terminate()
        self._strace.communicate()
        return self.lines()

    def lines(self):
        return self._file.read_text(errors="replace").splitlines()

    def calls(self):
        """Stops, and returns every call."""
        numbers = {}
        calls = []
        for line in self.stop():
            match = _CALL.match(line)
            if match:
                name = match["name"]
                numbers[name] = numbers.get(name, 0) + 1
                calls.append(Call(name, numbers[name], match["rest"]))
        return calls


class Injector(Tracer):
    """Has one call of a process fail with `error`, or with `signal` sends it one at that call."""

    def __init__(self, process, call, error=None, signal=None):
        what = f"error={error}" if error else f"signal={signal}"
        super().__init__(process, "-e", f"trace={call.name}", "-e", f"inject={call.name}:{what}:when={call.number}")

    def finish(self):
        """Waits until the call has failed, and lets the process go. False when the call did not come again:
        what a store does depends on how full its log is."""
        end = time.monotonic() + 3
        while not self._has_failed() and time.monotonic() < end:
            time.sleep(0.002)
        self.stop()
        return self._has_failed()

    def _has_failed(self):
        return any(INJECTED in line for line in self.lines())
