"""Trees that are deeper than any path, and what the service keeps of them."""

import os
from pathlib import Path

from harness import EICAR_NAME, Unwatched, directory_added, wait_until, write_once

NAME = "n" * 250
# What a path may have, in characters, to be watched.
LONGEST = 16384


class Descent:
    """Goes down a tree that it makes, by descriptors: soon no path leads there."""

    def __init__(self, tv, top):
        self._tv = tv
        self.path = str(top)
        self.descriptor = os.open(top, os.O_PATH)

    def go_down(self, name=NAME):
        """Returns when the new directory is known, or was found to be too deep."""
        os.mkdir(name, dir_fd=self.descriptor)
        below = os.open(name, os.O_PATH, dir_fd=self.descriptor)
        os.close(self.descriptor)
        self.descriptor = below
        self.path += f"/{name}"
        self._tv.wait_log(*directory_added(self.path))

    def write(self, name):
        write_once(f"/proc/self/fd/{self.descriptor}/{name}")

    def names(self):
        return os.listdir(f"/proc/self/fd/{self.descriptor}")

    def close(self):
        os.close(self.descriptor)


def resident(tv):
    """In kB."""
    status = Path(f"/proc/{tv.process.pid}/status").read_text()
    return next(int(line.split()[1]) for line in status.splitlines() if line.startswith("VmRSS:"))


def test_a_file_deeper_than_a_path_can_say(tv, home):
    tv.start()
    descent = Descent(tv, home)
    while len(descent.path) < 2 * 4096:
        descent.go_down()
    descent.write("bad")
    wait_until(lambda: descent.names() == [], "the file to go")
    tv.settle()
    record, = tv.reports()
    assert record["filePath"] == f"{descent.path}/bad" and record["virusName"] == EICAR_NAME
    assert len(tv.quarantined()) == 1
    descent.close()


def test_how_deep_is_watched(tv, tvctl, home, long_form, report_figure):
    """What is deeper is told, and found by a sweep; and a tree of long paths takes no more than its share."""
    tv.start()
    descent = Descent(tv, home)
    while len(descent.path) + 1 + len(NAME) <= LONGEST - 8:
        descent.go_down()
    before = resident(tv)
    wide = 12000 if long_form else 500
    for number in range(wide):
        os.mkdir(str(number), dir_fd=descent.descriptor)
    tv.settle()
    grown = resident(tv) - before
    report_figure(f"{wide} directories with paths of {len(descent.path)} characters: {grown} kB")
    assert grown < 400_000
    told = {line.message.rpartition("/")[2] for line in tv.log() if "Failed to add path" in line.message}
    assert (len(told) > 0) == long_form
    descent.go_down()
    assert any(line.message.endswith(NAME) and "Failed to add path" in line.message for line in tv.log())
    descent.write("bad")
    tv.settle()
    assert descent.names() == ["bad"]
    assert tvctl.json("sweep", status=1)["removed"] == 1
    assert descent.names() == []
    descent.close()


def test_directories_that_are_moved_out_and_removed(tv, home, report_figure):
    unwatched = Unwatched()
    deep = home
    tv.start()
    for _ in range(3):
        deep = deep / NAME
        deep.mkdir()
        tv.settle()

    def come_and_go(count):
        for number in range(count):
            (deep / str(number)).mkdir()
        tv.settle()
        for number in range(count):
            os.rename(deep / str(number), unwatched.path / "out")
            (unwatched.path / "out").rmdir()
        tv.settle()

    rounds, count = 20, 100
    for _ in range(3):
        come_and_go(count)
    before = resident(tv)
    for _ in range(rounds):
        come_and_go(count)
    grown = resident(tv) - before
    report_figure(f"{rounds * count} directories moved out and removed: {grown} kB")
    # Each path alone would take 1.5 kB.
    assert grown < rounds * count
