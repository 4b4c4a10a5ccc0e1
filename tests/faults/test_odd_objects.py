"""Things with a name that nobody may open: it would hang for good, or set something off."""

import os
import socket
import threading
import time

import pytest

from harness import (Unwatched, exists, fresh_directory, scan_error, wait_gone, write_once)

# So far from what anything here takes that a busy machine does not come near it.
BOUND = 2


class Objects:
    """Makes one of each kind. Each function returns what else there is that must not change."""

    def __init__(self, mounts):
        self._mounts = mounts
        self._targets = fresh_directory()
        self.waiting = {}

    def _target(self, name):
        return self._targets / name

    def fifo(self, path):
        os.mkfifo(path)

    def _wait_at(self, path, mode):
        os.mkfifo(path)

        def wait():
            with open(path, mode):
                pass

        thread = threading.Thread(target=wait, daemon=True)
        thread.start()
        self.waiting[path] = thread

    def fifo_with_a_writer(self, path):
        self._wait_at(path, "wb")

    def fifo_with_a_reader(self, path):
        self._wait_at(path, "rb")

    def second_name_of_a_fifo(self, path):
        first = path.with_name("first_name_of_a_fifo")
        os.mkfifo(first)
        os.link(first, path)

    def link_to_a_fifo(self, path):
        os.mkfifo(self._target("fifo"))
        os.symlink(self._target("fifo"), path)

    def link_to_a_link_to_a_fifo(self, path):
        os.symlink(self._target("fifo"), self._target("link"))
        os.symlink(self._target("link"), path)

    def link_to_a_device(self, path):
        os.symlink("/dev/zero", path)

    def link_to_a_terminal(self, path):
        # Opening it makes another terminal.
        os.symlink("/dev/ptmx", path)

    def link_to_what_the_reader_has_open(self, path):
        os.symlink("/proc/self/fd/0", path)

    def mounted_device(self, path):
        write_once(path)
        self._mounts.bind("/dev/zero", path)

    def mounted_fifo(self, path):
        write_once(path)
        os.mkfifo(self._target("mounted"))
        self._mounts.bind(self._target("mounted"), path)

    def socket(self, path):
        with socket.socket(socket.AF_UNIX) as listener:
            listener.bind(str(path))

    def link_to_a_socket(self, path):
        self.socket(self._target("socket"))
        os.symlink(self._target("socket"), path)

    def dangling_link(self, path):
        os.symlink("/home/nothing", path)

    def link_to_itself(self, path):
        os.symlink(path, path)

    def too_many_links(self, path):
        write_once(self._target("0"))
        for number in range(50):
            os.symlink(self._target(str(number)), self._target(str(number + 1)))
        os.symlink(self._target("50"), path)

    def link_to_a_directory(self, path):
        os.symlink(self._targets, path)


KINDS = [name for name in vars(Objects) if not name.startswith("_")]
# What cannot be opened, and says so. The others are clean.
REFUSED = {"socket", "link_to_a_socket", "dangling_link", "link_to_itself", "too_many_links"}
# In use by the kernel.
IRREMOVABLE = {"mounted_device", "mounted_fifo"}


@pytest.fixture
def objects(mounts):
    made = Objects(mounts)
    yield made
    for path, thread in made.waiting.items():
        # Both ends, so that whoever waits goes on, at whichever of them.
        if exists(path):
            os.close(os.open(path, os.O_RDWR))
            thread.join(10)


def make_all(objects, directory):
    paths = {kind: directory / kind for kind in KINDS}
    for kind, path in paths.items():
        getattr(objects, kind)(path)
    return paths


def check_who_waits(objects):
    for path, thread in objects.waiting.items():
        # The end of the other side would have let it go on.
        assert thread.is_alive(), f"somebody was at {path}"


def terminals():
    return len(os.listdir("/dev/pts"))


def test_objects_that_appear(tv, home, objects, report_figure):
    assert len(KINDS) == 17
    unwatched = Unwatched()
    tv.start()
    before = terminals()
    tv.pause()
    paths = make_all(objects, home)
    tv.resume()
    began = time.monotonic()
    wait_gone(unwatched.move_in(home / "after"))
    took = time.monotonic() - began
    assert took < BOUND
    report_figure(f"{len(KINDS)} objects that nobody may open, and an infected file behind them: {took * 1000:.0f} ms")
    lines = [line.what() for line in tv.settle()]
    for kind, path in paths.items():
        about = [line for line in lines if line[2].endswith(f" {path}")]
        assert about == ([scan_error(path)] if kind in REFUSED else []), kind
        assert exists(path), kind
    check_who_waits(objects)
    assert terminals() == before
    assert [record["filePath"] for record in tv.reports()] == [str(home / "after")]


def failed(message):
    return "ERROR", "CScanManager::cleanFile", message


def test_requests_for_objects(tv, connect, home, files, objects, report_figure):
    tv.configure(ioc=True)
    tv.start()
    client = connect("demo")
    paths = make_all(objects, files)
    before = terminals()
    longest = 0

    def ask(word, path):
        nonlocal longest
        began = time.monotonic()
        reply = client.ask(f"{word} {path}")
        longest = max(longest, time.monotonic() - began)
        return reply

    for kind, path in paths.items():
        assert ask("SCAN", path) == ("ERROR 8" if kind in REFUSED else "CLEAN"), kind
        assert ask("SCANIOC", path) == "CLEAN", kind
    check_who_waits(objects)
    for kind, path in paths.items():
        # The number is that of the last removal that failed.
        assert ask("CLEAN", path).split()[0] == ("CLEANED" if kind in IRREMOVABLE else "FAILED"), kind
        assert exists(path) == (kind in IRREMOVABLE), kind
    # The names are gone, and who waits still waits.
    check_who_waits(objects)
    assert longest < BOUND
    assert terminals() == before
    assert all(map(exists, (files.parent, "/dev/zero", "/dev/ptmx", files / "first_name_of_a_fifo")))
    assert tv.quarantined() == {}
    report_figure(f"SCAN, SCANIOC and CLEAN of {len(KINDS)} objects that nobody may open: {longest * 1000:.1f} ms"
                  " the longest")
    lines = [line.what() for line in tv.log() if line.location == "CScanManager::cleanFile"]
    expected = []
    for kind, path in paths.items():
        expected.append(failed(f"Failed to take backup of file: {path}"))
        if kind in IRREMOVABLE:
            expected.append(failed(f"Failed to clean file: {path}. Error: 9"))
    assert lines == expected
