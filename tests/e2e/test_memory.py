"""What the signatures take of the machine's memory."""

import hashlib
import random
import re
import shutil

import pytest

from harness import BASE, TIMEOUT, Installation, Path, fresh_directory
from commandclient import Client
from make_signatures import made_of

UNIT = (BASE / "packaging" / "systemd" / "tvfilemon.service").read_text()
UNSIGNED = BASE / "tools" / "unsigned" / "libunsignedcvd.so"
# About as many as the mirrors' main and daily have together. Nearly all are hashes of files, many of which are as large as
# another; the others are patterns.
FULL_SET, PATTERNS, SIZES = 8_700_000, 0.03, 50_000
# What so many of these took, as the unit and the documentation say. Nothing here has the mirrors' own.
FULL_SET_BYTES = 1600 * 10**6


def size_of(name, text):
    number, unit = re.search(rf"(?m)^[^#]*\b{name}=(\d+)([MG])\b", text).groups()
    return int(number) << {"M": 20, "G": 30}[unit]


def signatures(count):
    """The file of so many signatures, each of its own."""
    numbers = random.Random(count)
    patterns = int(count * PATTERNS)
    hashes = [f"{hashlib.md5(b'%d' % number).hexdigest()}:{number % SIZES + 1000}:Some.Malware-{number}-0"
              for number in range(count - patterns)]
    others = [f"Some.Family-{number}-0:0:*:{numbers.randbytes(60).hex()}" for number in range(patterns)]
    return made_of(7, ["[hdb]", *hashes, "[ndb]", *others])


class Memory:
    """Of the service's process, in bytes."""

    def __init__(self, process):
        self._process = Path(f"/proc/{process.pid}")

    def _value(self, name):
        return int(re.search(rf"(?m)^{name}:\s*(\d+) kB$", (self._process / "status").read_text())[1]) * 1024

    def now(self):
        return self._value("VmRSS")

    def forget_peak(self):
        (self._process / "clear_refs").write_text("5")

    def peak(self):
        return self._value("VmHWM")


@pytest.fixture
def service(home):
    made = Installation(fresh_directory() / "root", databases=())
    made.start(environment={"LD_PRELOAD": str(UNSIGNED)})
    yield made
    made.close()
    shutil.rmtree(made.root)


def test_a_reload_fits_below_the_ceiling(service, long_form, report_figure):
    """Old and new signatures are there at the same time."""
    count = FULL_SET if long_form else 40_000
    client = Client("memory", timeout=100 * TIMEOUT)
    memory = Memory(service.process)
    without = memory.now()
    (service.db / "daily.cvd").write_text(signatures(count))
    assert client.ask("RELOADDB") == "SUCCESS"
    loaded = memory.now() - without
    memory.forget_peak()
    assert client.ask("RELOADDB") == "SUCCESS"
    reload = memory.peak() - without
    kept = memory.now() - without
    client.close()
    report_figure(f"memory: {count} generated signatures take {loaded / 1e6:.0f} MB ({loaded / count:.0f} bytes each), at a "
                  f"reload {reload / 1e6:.0f} MB, {reload / loaded:.2f} times as much, and {kept / 1e6:.0f} MB after it")
    assert loaded > 30 * count
    if service.has_sanitizer():
        return
    assert kept < 1.3 * loaded, (loaded, kept)
    most = without + reload / loaded * FULL_SET_BYTES + size_of("size", UNIT)
    assert 1.2 * most < size_of("MemoryMax", UNIT), (most, without, loaded, reload)
