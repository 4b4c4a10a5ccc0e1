"""Names that are legal and unusual."""

import html
import os
import re
import sqlite3

import pytest

from harness import EICAR, EICAR_NAME, Unwatched, cleaned, display, found, quarantine_name, wait_gone, write_once

NAMES = {
    "spaces": b" two  words ",
    "newline": b"line\nbreak",
    "log line end": b"a\r\nb",
    "tab and bell": b"\t\a",
    "percent formats": b"%s%d%n%p%5$s",
    "placeholders": b"%1%2%3%4%5%L1",
    "second placeholder": b"100%2",
    "percent and path": b"%4 of %4",
    "quotes": b"'\"`$(id);&|<>*?[]",
    "backslashes": b"\\n\\\\x41",
    "markup": b"<img src=x> & <b>bold<br><!--",
    "line of the log": b"2024-01-01 00-00-00 [ERROR]  [x] :: y",
    "umlaut": "\u00fcml\u00e4ut".encode(),
    "decomposed": "u\u0308".encode(),
    "outside the first plane": "\U0001f9a0".encode(),
    "right to left": "\u202egpj.exe".encode(),
    "byte order mark": "\ufeffbom".encode(),
    "only a byte order mark": "\ufeff".encode(),
    "replacement character": "\ufffd".encode(),
    "private and last": "\ue000\uffff\U0010ffff".encode(),
    "longest": b"n" * 255,
    "longest in code points": "\u20ac".encode() * 85,
    "one": b"x",
    "latin-1": b"caf\xe9",
    "no UTF-8 at all": b"\xff\xfe\x80",
    "cut off": b"cut\xe2\x82",
    "overlong": b"\xc0\xafx",
    "a surrogate": b"\xed\xb2\x80",
    "half and half": b"\xffgood \xc3\xbc bad\xc3",
    "U+0085 and U+2028": "\u0085\u2028".encode(),
    "option": b"--help",
    "colon of a message": b"Repeated [00003] times.",
}


def substitute(text, value):
    """`value` for every placeholder of the lowest number, which is what Qt does with %1 to %99."""
    numbers = [int(number) for number in re.findall(r"%L?([0-9]{1,2})", text)]
    if not numbers:
        return text
    lowest = min(numbers)
    return re.sub(r"%L?([0-9]{1,2})", lambda match: value if int(match[1]) == lowest else match[0], text)


def popup_text(name, path):
    message = ("<b>File Name:</b> %1<br/><b>Virus Name:</b> %2<br/><b>Clean Status:</b> %3<br/>"
               "<b>File Path:</b> %4")
    for value in (display(name), EICAR_NAME, "Cleaned", display(path)):
        message = substitute(message, value)
    return message


def showable(character):
    """No control characters, nothing that turns the reading direction, nothing that a bus refuses."""
    code = ord(character)
    if code < 0x20:
        return chr(0x2400 + code)
    if 0x80 <= code <= 0x9F or code in (0x2028, 0x2029, 0x202E) or code & 0xFFFE == 0xFFFE:
        return "\ufffd"
    return html.escape(character, quote=False).replace('"', "&quot;")


def popup_markup(message):
    """For a notification server: the message's own markup stays up to a path, a name's does not."""
    start = re.search(r"/(?!>|b>)", message).start()
    text = "".join(map(showable, message[:start])).replace("&lt;br/&gt;", "\n")
    for label in ("File Name", "Virus Name", "Clean Status", "File Path"):
        text = text.replace(f"&lt;b&gt;{label}:&lt;/b&gt;", f"<b>{label}:</b>")
    return text + "".join(map(showable, message[start:]))


@pytest.mark.parametrize("name", NAMES.values(), ids=NAMES.keys())
def test_a_file_of_this_name(tv, bus, home, name):
    unwatched = Unwatched()
    tv.start(bus)
    path = os.fsencode(home) + b"/" + name
    unwatched.move_in(path)
    wait_gone(path)
    text = os.fsdecode(path)
    assert [line.what() for line in tv.settle() if "infected file" in line.message] == [
        found(text), cleaned(text)]

    [(copy, content)] = tv.quarantined().items()
    assert quarantine_name(text).fullmatch(copy)
    assert content == EICAR
    [record] = tv.reports()
    assert record["fileName"] == display(name)
    assert record["filePath"] == display(path)
    # What another program sees that reads the file as the database it is.
    with sqlite3.connect(tv.settings / "reports.db") as database:
        assert database.execute("SELECT file_path FROM virus_report").fetchall() == [(display(path),)]
    [popup] = bus.wait_popups(1)
    assert popup["body"] == popup_markup(popup_text(name, path))


@pytest.mark.parametrize("name", ["b> None", "b> %4", "b> %1"])
def test_a_path_that_would_be_a_line_of_the_popup(tv, bus, home, name):
    """The slashes between the names make a line break and bold text of them."""
    unwatched = Unwatched()
    directory = home / "<br" / "><b>Virus Name:<"
    directory.mkdir(parents=True)
    tv.start(bus)
    path = unwatched.move_in(directory / name)
    assert "<br/><b>Virus Name:</b>" in str(path)
    [popup] = bus.wait_popups(1)
    shown = popup["body"]
    assert shown == popup_markup(popup_text(os.fsencode(name), os.fsencode(path)))
    assert [line for line in shown.split("\n") if line.startswith("<b>Virus Name:</b>")] in ([], [
        f"<b>Virus Name:</b> {'Cleaned' if '%1' in name else EICAR_NAME}"])


@pytest.mark.parametrize("name", NAMES.values(), ids=NAMES.keys())
def test_a_directory_of_this_name(tv, home, name):
    at_start = os.fsencode(home) + b"/" + name
    os.mkdir(at_start)
    tv.start()
    later = b"/media/" + name
    os.mkdir(later)
    tv.settle()
    for directory in (at_start, later):
        path = directory + b"/eicar"
        write_once(path)
        wait_gone(path)
        text = os.fsdecode(path)
        assert {found(text), cleaned(text)} <= {line.what() for line in tv.settle()}


def test_the_longest_path(tv, home):
    """As deep as the service looks, with the longest names."""
    directory = os.fsencode(home)
    for letter in (b"a", b"b", b"c"):
        directory += b"/" + letter * 255
        os.mkdir(directory)
    unwatched = Unwatched()
    tv.start()
    path = directory + b"/" + b"d" * 255
    unwatched.move_in(path)
    wait_gone(path)
    text = os.fsdecode(path)
    assert {found(text), cleaned(text)} <= {line.what() for line in tv.settle()}
    assert tv.reports()[0]["filePath"] == text


def test_names_that_differ_in_case(tv, home):
    unwatched = Unwatched()
    tv.configure(exclude={"0": ["/home/u/a"]})
    tv.start()
    unwatched.move_in(home / "a")
    wait_gone(unwatched.move_in(home / "A"))
    assert (home / "a").exists()
