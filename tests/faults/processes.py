"""Running programs: what they take, and how they are held up."""

import contextlib
import signal

from harness import Path


def kilobytes(tv, field):
    """Of the memory that /proc tells under this name."""
    for line in Path(f"/proc/{tv.process.pid}/status").read_text(encoding="ascii").splitlines():
        name, _, value = line.partition(":")
        if name == field:
            return int(value.split()[0])
    raise KeyError(field)


@contextlib.contextmanager
def stopped(process):
    process.send_signal(signal.SIGSTOP)
    try:
        yield
    finally:
        process.send_signal(signal.SIGCONT)
