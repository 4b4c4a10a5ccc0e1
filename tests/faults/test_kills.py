"""The service is killed at any moment of a clean: the file or its whole copy is there."""

import os
import random
import re
import signal
import stat
import time

from harness import KLEZ_PATTERN, Unwatched, exists, quarantine_name, wait_gone, wait_until
from tracer import Injector, Tracer

CONTENT = KLEZ_PATTERN + bytes(range(256)) * 1000
KILLS = 20
KILLS_OF_THE_LONG_FORM = 10_000
WARM_UP = 2
# As a call is shown by its text.
CHANGES = re.compile(r"(write|pwrite64|fsync|fdatasync|ftruncate|fsetxattr|renameat2|unlinkat|fcntl|mkdir|rmdir) "
                     r"|openat .*O_CREAT")


def restart(tv):
    tv.process = None
    # A long one is slow to read.
    tv.log_file.unlink(missing_ok=True)
    tv.start()


def check(tv, path, what):
    """True when the file is gone."""
    copies = [copy for copy in tv.quarantine.iterdir() if quarantine_name(path).fullmatch(copy.name)]
    assert [copy.read_bytes() for copy in copies] in ([], [CONTENT]), f"{what}: a copy is not whole"
    for copy in tv.quarantine.iterdir():
        assert stat.S_IMODE(copy.stat().st_mode) == 0o400, f"{what}: {copy}"
    if exists(path):
        assert path.read_bytes() == CONTENT, what
        path.unlink()
        is_gone = False
    else:
        assert copies, f"{what}: neither the file nor its copy is there"
        is_gone = True
    for copy in tv.quarantine.iterdir():
        copy.unlink()
    return is_gone


def clean(tv, path, source):
    os.rename(source, path)
    wait_gone(path)
    tv.settle()


def test_at_each_system_call(tv, home, long_form, report_figure):
    unwatched = Unwatched()
    tv.start()
    for number in range(WARM_UP):
        clean(tv, home / f"warm{number}", unwatched.file(CONTENT))
    tracer = Tracer(tv.process)
    clean(tv, home / "traced", unwatched.file(CONTENT))
    calls = tracer.calls()
    first = next(i for i, call in enumerate(calls) if "/home/u/traced" in call.text)
    last = next(i for i, call in enumerate(calls) if call.name == "fdatasync") + 1
    tv.end(signal.SIGKILL)
    gone = 0
    chosen = calls[first:last]
    if not long_form:
        # Between two changes it makes no difference when it is killed.
        chosen = [call for before, call in zip(calls[first - 1:], chosen) if CHANGES.match(str(before))]
    assert {"fsync", "renameat2", "unlinkat", "fdatasync"} <= {call.name for call in calls[first:last]}
    for number, call in enumerate(chosen):
        restart(tv)
        for warm in range(WARM_UP):
            clean(tv, home / f"again{number}-{warm}", unwatched.file(CONTENT))
        for copy in tv.quarantine.iterdir():
            copy.unlink()
        path = home / f"killed{number}"
        injector = Injector(tv.process, call, signal="KILL")
        os.rename(unwatched.file(CONTENT), path)
        status = wait_until(lambda: tv.process.poll(), f"the kill at {call}")
        injector.stop()
        assert status == -signal.SIGKILL
        gone += check(tv, path, f"killed at {call}")
    assert 0 < gone < len(chosen)
    restart(tv)
    report_figure(f"killed at {len(chosen)} system calls of a clean: the copy was there {gone} times, else the file")


def test_at_any_moment(tv, home, long_form, report_figure):
    unwatched = Unwatched()
    tv.start()
    began = time.monotonic()
    clean(tv, home / "measured", unwatched.file(CONTENT))
    duration = time.monotonic() - began
    check(tv, home / "measured", "not killed")
    chance = random.Random(1)
    gone = 0
    rounds = KILLS_OF_THE_LONG_FORM if long_form else KILLS
    for number in range(rounds):
        path = home / f"killed{number}"
        os.rename(unwatched.file(CONTENT), path)
        time.sleep(chance.uniform(0, duration))
        tv.end(signal.SIGKILL)
        gone += check(tv, path, f"round {number}")
        restart(tv)
    report_figure(f"killed {rounds} times within {duration * 1000:.0f} ms of a file's arrival: the copy was there"
                  f" {gone} times, else the file")
