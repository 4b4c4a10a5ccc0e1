"""A service that runs for months takes no more than in its first hour."""

import os

from harness import Path, Unwatched, wait_until, write_once
from processes import kilobytes

# By which part of what it was after the first tenth of the work the resident memory may have changed at the end.
DRIFT = 0.01


class Use:
    """What the service takes of the machine."""

    def __init__(self, tv):
        self._tv = tv

    def _path(self, name):
        return Path(f"/proc/{self._tv.process.pid}/{name}")

    def memory(self):
        """Resident bytes."""
        return kilobytes(self._tv, "VmRSS") * 1024

    def threads(self):
        return sorted((thread / "comm").read_text() for thread in self._path("task").iterdir())

    def descriptors(self):
        """Those that stay open while there is nothing to do."""
        self._tv.settle()
        looks = [set(self._tv.descriptors().items()) for _ in range(50)]
        return sorted(set.intersection(*looks))

    def look(self):
        return self.memory(), self.descriptors(), self.threads()


def check(tv, work, rounds, report_figure, what):
    """Does the work of a round so many times."""
    use = Use(tv)
    tenth = rounds // 10
    for number in range(tenth):
        work(number)
    memory, descriptors, threads = use.look()
    for number in range(tenth, rounds):
        work(number)
    memory_then, descriptors_then, threads_then = use.look()
    report_figure(f"memory, {rounds} {what}: {memory / 1e6:.2f} MB after a tenth, {memory_then / 1e6:.2f} MB at the end,"
                  f" {len(threads)} threads, {len(descriptors)} descriptors")
    assert descriptors_then == descriptors
    assert threads_then == threads
    assert memory_then <= memory * (1 + DRIFT) or tv.has_sanitizer()


def test_scans(tv, connect, files, long_form, report_figure):
    tv.start()
    client = connect("demo")
    path = write_once(files / "clean", b"nothing in here" * 100)

    def work(_):
        assert client.ask(f"SCAN {path}") == "CLEAN"

    check(tv, work, 1_000_000 if long_form else 10_000, report_figure, "scans")


def test_detections(tv, home, bus, long_form, report_figure):
    unwatched = Unwatched()
    tv.start(bus)
    batch = 100

    def work(number):
        paths = [home / f"{number} {each}" for each in range(batch)]
        for path in paths:
            unwatched.move_in(path)
        wait_until(lambda: not any(map(os.path.lexists, paths)), "the files to go")
        for name in os.listdir(tv.quarantine):
            os.unlink(tv.quarantine / name)

    check(tv, work, 1000 if long_form else 40, report_figure, f"x {batch} detections")


def test_reloads(tv, connect, files, long_form, report_figure):
    tv.configure(ioc=True, iocHashes={"0": [f"{number:032x}" for number in range(2000)]})
    tv.start()
    client = connect("demo")
    path = write_once(files / "eicar")

    def work(_):
        for request in ("RELOADDB", "RELOADSETTINGS", "RELOADIOCDB", "RELOADIOCSETTINGS"):
            assert client.ask(request) == "SUCCESS"
        assert client.ask(f"SCAN {path}").startswith("INFECTED")

    check(tv, work, 500 if long_form else 100, report_figure, "reloads")
