"""Clients that only connect, until the service has no descriptor to spare for one more."""

import os
import re
import resource
import zipfile

import pytest

from commandclient import REGISTERED
from harness import (EICAR, EICAR_NAME, SERVICE, Path, Unwatched, cleaned, found, wait_gone, write_once)
from processes import kilobytes

INFECTED = f"INFECTED {EICAR_NAME}"
# What the service is started with, and what it may allow itself: more than it needs for a scan, and for a dozen
# of clients. One is let in each second.
SOFT, HARD = 64, 100
MANY, MORE = 300, 1000
# Kilobytes of addresses that an idle client may cost: the stack of its thread, and what it allocates.
ADDRESSES = 2000


def make_nested(path, levels=10):
    """EICAR in an archive in an archive ..., so that a scan has many files open."""
    inner = path.with_suffix(".0")
    inner.write_bytes(EICAR)
    for level in range(1, levels + 1):
        outer = path.with_suffix(f".{level}")
        with zipfile.ZipFile(outer, "w", zipfile.ZIP_DEFLATED) as archive:
            archive.write(inner, f"level{level}")
        inner = outer
    os.rename(inner, path)
    return path


def is_served(client, name):
    try:
        return client.ask(f"MODULE {name}") == REGISTERED
    except OSError:
        return False


def memory_of(tv):
    """Kilobytes of addresses, and of memory. Those that nobody may use are left out: the allocator sets tens of
    megabytes aside for each of the first threads."""
    addresses = 0
    for line in Path(f"/proc/{tv.process.pid}/maps").read_text().splitlines():
        begin, end, rights = re.split("[- ]", line, maxsplit=2)
        if not rights.startswith("---"):
            addresses += int(end, 16) - int(begin, 16)
    return addresses // 1024, kilobytes(tv, "VmRSS")


@pytest.mark.parametrize("is_limited", [
    pytest.param(True, id="until_the_limit"), pytest.param(False, id="many", marks=pytest.mark.paced)])
def test_idle_clients_keep_nothing_from_being_scanned(is_limited, tv, connect, bus, home, files, report_figure,
                                                      long_form):
    many = MORE if long_form else MANY
    unwatched = Unwatched()
    nested = make_nested(files / "nested.zip")
    write_once(files / "eicar")
    limit = ["/usr/bin/prlimit", f"--nofile={SOFT}:{HARD}"] if is_limited else []
    tv.start(bus, command=[*limit, tv.root / "bin" / SERVICE])
    allowed = resource.prlimit(tv.process.pid, resource.RLIMIT_NOFILE)
    assert allowed[0] == allowed[1]

    served = [connect("first")]
    assert served[0].ask(f"SCAN {nested}") == INFECTED
    wait_gone(unwatched.move_in(home / "before"))
    bus.wait_popups(1)
    before = memory_of(tv)
    opened = len(tv.descriptors())
    while len(served) < many:
        client = connect()
        if not is_served(client, f"client{len(served)}"):
            break
        served.append(client)
    each = len(served) - 1
    grown = [(now - then) / each for then, now in zip(before, memory_of(tv))]
    assert (len(served) < many) == is_limited
    report_figure(f"{len(served)} idle clients: {(len(tv.descriptors()) - opened) / each:.1f} descriptors,"
                  f" {grown[1]:.0f} kB of memory and {grown[0]:.0f} kB of addresses each")
    # The threads of a sanitizer are larger.
    assert grown[0] < ADDRESSES or tv.has_sanitizer()

    paths = [home / f"file{number}" for number in range(20)]
    for path in paths:
        wait_gone(unwatched.move_in(path))
    wait_gone(unwatched.move_in(home / "archive", nested.read_bytes()))
    assert served[-1].ask(f"SCAN {nested}") == INFECTED
    assert served[-1].ask(f"CLEAN {files / 'eicar'}") == "FAILED 0"
    assert served[0].ask("RELOADDB") == "SUCCESS"
    assert served[0].ask(f"SCAN {nested}") == INFECTED
    tv.settle()
    lines = tv.lines()
    assert all(line in lines for path in paths for line in (found(path), cleaned(path)))
    assert [record["filePath"] for record in tv.reports()] == [
        str(path) for path in (home / "before", *paths, home / "archive")]
    assert len(tv.quarantined()) == len(paths) + 3
    assert len(bus.wait_popups(2)) >= 2

    if is_limited:
        # One goes and another comes, if need be as soon as the listener has started anew.
        served.pop().close()
        assert is_served(connect(), "late")
    assert all(is_served(client, "still") for client in served)
