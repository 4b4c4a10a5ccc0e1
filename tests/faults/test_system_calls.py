"""Each system call on the way of a detection fails, one at a time: nothing crashes, and no infected file is
called clean."""

import collections
import hashlib
import itertools
import re
import time
import zipfile

import pytest

from harness import (EICAR, EICAR_NAME, Unwatched, backup_error, cleaned, exists, found, fresh_directory, wait_gone,
                     wait_until, write_once)
from tracer import Injector, Tracer

ERRORS = ["ENOSPC", "EIO", "EMFILE", "ENOMEM"]
WARM_UP = 3
# Qt's number for it.
REMOVE_ERROR = 9

# Those that cannot fail like this, and what belongs to the threads and the time zone.
LEFT_OUT = re.compile(r"close\b|munmap\b|p?poll\b|.*(eventfd|/etc/localtime|socket:)")


def zipped():
    path = fresh_directory() / "zip"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        archive.writestr("inside", EICAR)
    return path.read_bytes()


@pytest.fixture(params=["plain", "zip"])
def content(request, tv):
    if request.param == "plain":
        return EICAR
    tv.configure(archives=True)
    return zipped()


def faults(calls, long_form):
    """Each call with each of the errors; in the short form one of those that do the same to the same file, with
    one of the errors in turn."""
    chosen = [call for call in calls if not LEFT_OUT.match(f"{call.name}({call.text}")]
    assert len(chosen) > 10, calls
    if long_form:
        return list(itertools.product(chosen, ERRORS))
    distinct = {}
    for call in chosen:
        # Each lock of a database is one of its own.
        target = call.text if call.name == "fcntl" else re.match(r"\d*([^>,]*>?)", call.text)[1]
        distinct.setdefault((call.name, target), call)
    return list(zip(distinct.values(), itertools.cycle(ERRORS)))


def traced(tv, deed):
    tracer = Tracer(tv.process, "-e", "trace=%file,%desc")
    deed()
    # What `settle` brings about comes last.
    return list(itertools.takewhile(lambda call: ".settle" not in call.text, tracer.calls()))


class Events:
    """Infected files that appear, and what the service does about them."""

    def __init__(self, tv, home, content):
        self._tv = tv
        self._home = home
        self._content = content
        self._unwatched = Unwatched()
        self._numbers = itertools.count()
        self._copies = 0
        self.recorded = set()

    def detect(self):
        path = self._next()
        wait_gone(path)
        self._tv.settle()
        self.recorded.add(str(path))
        self._copies = len(self._tv.quarantined())

    def detect_in_spite_of(self, call, error):
        """Whether the call failed, and what is wrong with the answer."""
        injector = Injector(self._tv.process, call, error)
        path = self._next()
        has_failed = injector.finish()
        lines = [line.what() for line in self._tv.settle() if str(path) in line.message]
        assert self._tv.process.poll() is None, f"{error} of {call}"
        is_found = found(path) in lines
        copies = self._tv.quarantined()
        problems = []
        if exists(path):
            if not any(level == "ERROR" for level, _, _ in lines):
                problems.append("left without a word")
        elif not (is_found and cleaned(path) in lines) and "/logs/" not in call.text:
            problems.append(f"removed without a word: {lines}")
        elif len(copies) == self._copies and backup_error(path) not in lines:
            problems.append("no copy, and nothing said")
        if set(copies.values()) != {self._content}:
            problems.append(f"not a whole copy: {copies}")
        if is_found or not exists(path):
            self.recorded.add(str(path))
        self._copies = len(copies)
        return has_failed, [f"{error} of {call}: {what}" for what in problems]

    def _next(self):
        return self._unwatched.move_in(self._home / str(next(self._numbers)), self._content)


def test_of_an_event(tv, home, content, long_form, report_figure):
    events = Events(tv, home, content)
    tv.start()
    for _ in range(WARM_UP):
        events.detect()
    injected = faults(traced(tv, events.detect), long_form)
    failed = 0
    problems = []
    began = time.monotonic()
    for call, error in injected:
        has_failed, wrong = events.detect_in_spite_of(call, error)
        failed += has_failed
        problems += wrong
        # So that the next one finds all as it was.
        events.detect()
    assert not problems, "\n".join(problems)
    # A lock that is not given back must not be waited for at each detection from then on.
    assert time.monotonic() - began < 3 * len(injected), "the service did not get over it"
    wait_until(lambda: sorted(record["filePath"] for record in tv.reports()) == sorted(events.recorded), "all records")
    assert failed > 0.9 * len(injected)
    report_figure(f"system calls of an event that failed: {failed}")


class Request:
    """Asks for one file after the other, all of the same content."""

    SETTINGS = {}

    def __init__(self, tv, client, directory, content):
        self._tv = tv
        self._client = client
        self._directory = directory
        self._content = content
        self._numbers = itertools.count()
        self.path = None
        self.reply = None

    def ask(self):
        self.path = write_once(self._directory / f"infected{next(self._numbers)}", self._content)
        self.ask_again()

    def ask_again(self):
        self.reply = self._client.ask(f"{self.COMMAND} {self.path}")


class Scan(Request):
    COMMAND = "SCAN"

    def is_right(self):
        return self.reply == f"INFECTED {EICAR_NAME}"

    def is_accepted(self, call):
        return self.is_right() or self.reply.startswith("ERROR ")


class Clean(Request):
    COMMAND = "CLEAN"

    def __init__(self, *arguments):
        super().__init__(*arguments)
        self._right = "FAILED 0"
        self._copies = 0

    def is_right(self):
        """The file is gone, and there is a whole copy of it."""
        return self._is_removed() and self._has_new_copy()

    def is_accepted(self, call):
        if self.reply == "CLEANED":
            # From now on each reply tells of this.
            self._right = f"FAILED {REMOVE_ERROR}"
            self._has_new_copy()
            failure = f"Failed to clean file: {self.path}. Error: {REMOVE_ERROR}"
            return exists(self.path) and self._tv.count("ERROR", "CScanManager::cleanFile", failure) == 1
        is_told = backup_error(self.path) in self._tv.lines()
        return self._is_removed() and self._has_new_copy() != is_told

    def _is_removed(self):
        return self.reply == self._right and not exists(self.path)

    def _has_new_copy(self):
        copies = self._tv.quarantined()
        before, self._copies = self._copies, len(copies)
        return self._copies == before + 1 and set(copies.values()) == {self._content}


class Lookup(Request):
    COMMAND = "SCANIOC"
    HASH = hashlib.md5(EICAR).hexdigest()
    SETTINGS = {"ioc": True, "iocAction": 2, "iocHashes": {"0": [HASH]}}

    def is_right(self):
        return self.reply == f"MD5:ID:{self.HASH}" and not exists(self.path)

    def is_accepted(self, call):
        if self.reply == f"MD5:{self.HASH}:ERROR":
            return exists(self.path)
        if self.reply == "CLEAN" and self._is_of_the_file(call):
            # A file that cannot be read has no hash. That is forgotten at once.
            self.ask_again()
        return self.is_right()

    def _is_of_the_file(self, call):
        return str(self._directory) in call.text or "/proc/self/fd/" in call.text


@pytest.mark.parametrize("kind, content", [(Scan, "plain"), (Scan, "zip"), (Clean, "plain"), (Lookup, "plain")],
                         indirect=["content"])
def test_of_a_request(tv, kind, content, files, connect, long_form, report_figure):
    if kind.SETTINGS:
        tv.configure(**kind.SETTINGS)
    tv.start()
    request = kind(tv, connect("demo"), files, content)

    def ask():
        request.ask()
        assert request.is_right(), request.reply

    for _ in range(WARM_UP):
        ask()
    replies = collections.Counter()
    problems = []
    failed = 0
    injected = faults(traced(tv, ask), long_form)
    for call, error in injected:
        injector = Injector(tv.process, call, error)
        request.ask()
        failed += injector.finish()
        replies[request.reply] += 1
        if not request.is_accepted(call):
            problems.append(f"{error} of {call}: {request.reply}")
        ask()
    assert not problems, "\n".join(problems)
    assert failed > 0.9 * len(injected)
    report_figure(f"system calls of {kind.COMMAND} that failed: {failed}, replies: {dict(replies)}")
