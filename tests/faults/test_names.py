"""Three thousand names that somebody chose to be overlooked by."""

import itertools
import os
import random

import pytest

from harness import EICAR, EICAR_NAME, Unwatched, display, exists, quarantine_name, wait_until, write_once

NUMBER = 3000
LONGEST = 255

# Formats, placeholders, escapes, what begins and ends lines, markup, and sequences that are nearly UTF-8.
PIECES = [b"%1", b"%2", b"%99", b"%L1", b"%s", b"%n", b"%5$s", b"%", b"%%", b"\n", b"\r", b"\r\n", b"\t", b"\x1b[2J", b"\x7f",
          b"'", b'"', b"`", b"$(id)", b"\\", b"\\n", b"\\xff", b"<b>", b"</b>", b"<br", b"&amp;", b"*", b"?", b"[", b"~",
          b" ", b".", b"..", b"-", b"--", b"file:", b"\xc0\xaf", b"\xed\xa0\x80", b"\xed\xb2\x80", b"\xf4\x90\x80\x80", b"\xe2\x82",
          b"\xef\xbb\xbf", b"\xef\xbf\xbd", b"\xef\xbf\xbf", b"\xe2\x80\xae", b"\xf0\x9f\xa6\xa0", b"u\xcc\x88", b"\xc2\x85",
          b"Status:0", b"CLEAN", b"/proc"[1:], b".tvq.", b".part.", b"[ERROR]"]


def is_legal(name):
    """As a file's name; and not one of those that the service leaves alone."""
    return (0 < len(name) <= LONGEST and name not in (b".", b"..") and not name.endswith((b".part", b".tvq"))
            and b"/" not in name and b"\0" not in name)


def nasty_names(number):
    """The first so many of: every byte, at each end and between others; every pair of pieces; any bytes at all."""
    chance = random.Random(1)
    octets = [bytes([octet]) for octet in range(1, 256)]
    every_byte = [form % octet for form in (b"%b", b"a%b", b"%ba", b"a%ba") for octet in octets]
    pairs = list(map(b"".join, itertools.product(PIECES, repeat=2)))
    chance.shuffle(pairs)
    anything = (chance.randbytes(chance.randint(1, LONGEST)) for _ in itertools.count())
    longest = [piece * (LONGEST // len(piece)) for piece in PIECES]
    candidates = itertools.chain(every_byte, longest, pairs[: number // 3], anything)
    return list(itertools.islice(filter(is_legal, dict.fromkeys(itertools.islice(candidates, 3 * number))), number))


NAMES = nasty_names(NUMBER)


def test_they_are_what_they_are_to_be():
    assert len(set(NAMES)) == NUMBER and all(map(is_legal, NAMES))
    assert {octet for name in NAMES for octet in name} == set(range(1, 256)) - {ord("/")}
    assert sum(len(name) > 250 for name in NAMES) > 20


def check_all_gone(tv, paths):
    wait_until(lambda: not any(map(exists, paths)), lambda: f"{sum(map(exists, paths))} files to go", timeout=120)
    tv.settle()
    assert sorted(record["filePath"] for record in tv.reports()) == sorted(map(display, paths))
    assert {record["virusName"] for record in tv.reports()} == {EICAR_NAME}
    copies = tv.quarantined()
    assert len(copies) == len(paths) and set(copies.values()) == {EICAR}
    digests = {name.split("_")[-1] for name in copies}
    assert digests == {quarantine_name(os.fsdecode(path)).pattern.split("_")[-1].replace("\\", "") for path in paths}


def test_files(tv, home):
    unwatched = Unwatched()
    tv.start()
    paths = [unwatched.move_in(os.fsencode(home) + b"/" + name) for name in NAMES]
    check_all_gone(tv, paths)


@pytest.mark.parametrize("when", ["before the start", "after it"])
def test_directories(tv, when):
    """In both walks. Hidden ones are left out at the start; and the path of a new one is put together in two steps, of
    which the second takes a placeholder in the name for its own."""
    left_out = {"before the start": lambda name: name.startswith(b"."), "after it": lambda name: b"%" in name}[when]
    if when == "after it":
        tv.start()
    names = list(itertools.filterfalse(left_out, NAMES))
    directories = [b"/home/u/" + name for name in names]
    for directory in directories:
        os.mkdir(directory)
    if when == "before the start":
        tv.start()
    tv.settle()
    paths = [directory + b"/x" for directory in directories]
    for path in paths:
        write_once(path)
    check_all_gone(tv, paths)
