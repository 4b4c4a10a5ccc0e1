"""Fixtures of the tests that run the installed service; see harness.py for what they hand out."""

import fcntl
import os
import sys
import threading

import pytest

if "TVFILEMON_E2E" not in os.environ:
    sys.exit("these tests are started by tests/e2e/run")

import commandclient
import harness
import tool
from impostor import Impostor

FIGURES = []


@pytest.fixture(scope="session", autouse=True)
def machine():
    """What all tests share: the staged root on a file system that roots can be linked from, and a network."""
    harness.prepare_machine()


@pytest.fixture
def mounts():
    """Mounts that end with the test."""
    table = harness.Mounts()
    yield table
    table.close()


@pytest.fixture
def home(mounts):
    """A fresh /home and /media; the result is the directory of a user in it."""
    mounts.tmpfs("/home")
    mounts.tmpfs("/media")
    user = harness.Path("/home/u")
    user.mkdir()
    return user


@pytest.fixture
def tv(home):
    """A fresh installation whose service is not yet started. Afterwards its log must make sense."""
    installation = harness.Installation(harness.fresh_directory() / "root")
    yield installation
    installation.close()
    installation.check_log()


@pytest.fixture
def tvctl(tv):
    """The command line tool of the installation."""
    return tool.Tool(tv)


@pytest.fixture
def files():
    """A directory that the service does not watch."""
    return harness.fresh_directory()


@pytest.fixture
def connect(tv):
    """Makes clients of the command port, which go before the service does."""
    clients = []

    def make(*arguments, **options):
        clients.append(commandclient.Client(*arguments, **options))
        return clients[-1]

    yield make
    for client in clients:
        client.reset()


@pytest.fixture
def small_send_buffers():
    """What a connection keeps for its client is little, so that it is soon full."""
    setting = harness.Path("/proc/sys/net/ipv4/tcp_wmem")
    before = setting.read_text()
    setting.write_text("4096 4096 4096")
    yield
    setting.write_text(before)


@pytest.fixture
def impostor():
    """Puts another program on the port; its arguments are the replies that it gives."""
    impostors = []

    def make(*replies, **options):
        impostors.append(Impostor(*replies, **options))
        return impostors[-1]

    yield make
    for each in impostors:
        each.close()


@pytest.fixture
def fake_service(tv, impostor):
    """Answers on the port in the place of the service, for which there are settings, whoever registers."""
    tv.configure()
    return lambda *replies, **options: impostor("REGISTERED!", *replies, **options)


@pytest.fixture
def never():
    """A reply that does not come before the end of the test."""
    end = threading.Event()
    yield lambda request: end.wait(harness.TIMEOUT) and None
    end.set()


@pytest.fixture(scope="session")
def slow_file():
    """A file that takes the service a while to scan, and is clean."""
    return commandclient.make_slow_file(harness.fresh_directory() / "slow.zip")


@pytest.fixture
def bus():
    """A session bus with a notification server that records."""
    session_bus = harness.SessionBus(f"unix:path={harness.fresh_directory()}/bus")
    yield session_bus
    session_bus.close()


@pytest.fixture
def watch_limit():
    """Sets how many directories all programs of the test may watch."""
    setting = harness.Path("/proc/sys/user/max_inotify_watches")
    before = setting.read_text()
    yield lambda number: setting.write_text(str(number))
    setting.write_text(before)


@pytest.fixture(scope="session")
def locale_path():
    return harness.make_locales()


@pytest.fixture
def report_figure():
    """Takes a line for the end of the run: what was measured, which no test may demand of a busy machine."""
    return FIGURES.append


@pytest.fixture
def long_form(pytestconfig):
    """Whether there is time for rounds by the hundred thousand."""
    return pytestconfig.getoption("long")


def pytest_addoption(parser):
    parser.addoption("--share", metavar="FILE", help="run only what no other process takes that is given this file, "
                                                     "which is empty at first")
    parser.addoption("--long", action="store_true", help="the long form of tests that have one; takes hours")


def pytest_configure(config):
    config.addinivalue_line("markers", "paced: waits for minutes, since clients are let in one a second")


def pytest_runtestloop(session):
    """Runs the tests that this process is the first to take, so that none is left with the slow ones at the end."""
    taken = session.config.getoption("share")
    if not taken:
        return None
    with open(taken, "r+b", buffering=0) as file:
        for number, item in enumerate(session.items):
            if _take(file, number):
                # What the next test needs is not known yet, but for what all need.
                item.config.hook.pytest_runtest_protocol(item=item, nextitem=session)
            if session.shouldstop:
                raise session.Interrupted(session.shouldstop)
    return True


def _take(file, number):
    """Whether the test of that number is still nobody's. The file has a byte for each that is somebody's."""
    fcntl.lockf(file, fcntl.LOCK_EX)
    try:
        file.seek(0, os.SEEK_END)
        if file.tell() > number:
            return False
        file.write(b"+")
        return True
    finally:
        fcntl.lockf(file, fcntl.LOCK_UN)


def pytest_terminal_summary(terminalreporter):
    for figure in FIGURES:
        terminalreporter.write_line(figure)
