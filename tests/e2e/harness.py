"""An installation of the service, the machine around it, and ways to wait for what it does.

Paths are `Path`s or text; a name that is no UTF-8 is carried by Python's own escape for such bytes, so
`os.fsencode` gives the bytes. Nothing here sleeps for a fixed time: `wait_until` polls a condition.
"""

import codecs
import ctypes
import fcntl
import hashlib
import itertools
import json
import os
import re
import resource
import select
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

BASE = Path(os.environ["TVFILEMON_E2E"])
WORK = BASE / "work"
STAGED = WORK / "staged"
SIGNATURES = BASE / "signatures"
PRELOAD = BASE / "tools" / "libunsignedcvd.so"
CLAM_FILES = Path("/usr/share/clamav-testfiles")
DOCS = BASE / "docs"
SUPPORT = BASE / "tests" / "support"
SERVICE = "tvfilemon"
PORT = 8889

sys.path.insert(0, str(SUPPORT))
from make_signatures import CLAM_EXE_NAME, EICAR, EICAR_NAME, KLEZ_NAME, KLEZ_PATTERN  # noqa: E402,F401

# What programs that are built to be looked into need to know, and others overlook.
INSTRUMENTS = {
    # The preload library comes before the sanitizer's run-time library on purpose.
    "ASAN_OPTIONS": "verify_asan_link_order=0:detect_leaks=0",
    # Qt is not built with the sanitizer, which sees none of its locks.
    "TSAN_OPTIONS": f"suppressions={SUPPORT.parent}/tsan.supp ignore_noninstrumented_modules=1",
    # Where the counters of a coverage build are.
    **{name: value for name, value in os.environ.items() if name == "GCOV_PREFIX"},
}

# Long enough for a loaded machine and the sanitizers; nothing that works comes near it.
TIMEOUT = 30

_numbers = itertools.count()


def wait_until(condition, what, timeout=TIMEOUT):
    """Returns the first true result of `condition`."""
    end = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"waited {timeout} s in vain for {what() if callable(what) else what}")
        time.sleep(0.002)


def fresh_directory():
    directory = WORK / str(next(_numbers))
    directory.mkdir(parents=True)
    return directory


# ----------------------------------------------------------------------------------------------- the machine


def prepare_machine():
    WORK.mkdir()
    # On the file system of the tests' roots, which link to these files instead of copying them.
    shutil.copytree(BASE / "installed", STAGED, symlinks=True)
    request = bytearray(struct.pack("16sh14x", b"lo", 0))
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as control:
        fcntl.ioctl(control, 0x8913, request)  # SIOCGIFFLAGS
        flags = struct.unpack_from("16sh", request)[1]
        struct.pack_into("16sh", request, 0, b"lo", flags | 1)  # IFF_UP
        fcntl.ioctl(control, 0x8914, request)  # SIOCSIFFLAGS


def make_locales():
    """Compiled locales that the machine may not have; the result is for LOCPATH."""
    directory = Path("/tmp/locales")
    directory.mkdir()
    for locale in ("de_DE", "ar_EG"):
        subprocess.run(["localedef", "-i", locale, "-f", "UTF-8", directory / f"{locale}.UTF-8"], check=True)
    return directory


_libc = ctypes.CDLL(None, use_errno=True)


def _system(result, what):
    if result != 0:
        error = ctypes.get_errno()
        raise OSError(error, os.strerror(error), what)


class Mounts:
    MS_RDONLY, MS_REMOUNT, MS_BIND, MS_REC, MNT_DETACH = 1, 32, 4096, 16384, 2

    def __init__(self):
        self._mounted = []

    def _mount(self, source, target, kind, flags, options=None):
        _system(_libc.mount(os.fsencode(source), os.fsencode(target), kind, flags, options), str(target))

    def tmpfs(self, target, options=None):
        self._mount("tmpfs", target, b"tmpfs", 0, options)
        self._mounted.append(target)
        os.chmod(target, 0o755)

    def bind(self, source, target, recursive=False):
        self._mount(source, target, None, self.MS_BIND | (self.MS_REC if recursive else 0))
        self._mounted.append(target)

    def read_only(self, directory):
        self.bind(directory, directory)
        self._mount("none", directory, None, self.MS_REMOUNT | self.MS_BIND | self.MS_RDONLY)

    def unmount(self, target):
        _system(_libc.umount2(os.fsencode(target), self.MNT_DETACH), str(target))
        self._mounted.remove(target)

    def close(self):
        for target in list(reversed(self._mounted)):
            self.unmount(target)


class Chroot:
    """A root directory in which every place can be written to, with the libraries of the machine and the
    /home of the test. Without `media` it has no /media."""

    def __init__(self, mounts, media=True):
        self.path = fresh_directory() / "chroot"
        for name in ("usr/lib", "tmp", "run", "var/tmp", "bin"):
            (self.path / name).mkdir(parents=True)
        os.symlink("usr/lib", self.path / "lib")
        os.symlink("usr/lib64", self.path / "lib64")
        # Each library directory by itself, so that others can be made beside them.
        visible = [*Path("/usr/lib").glob("*-linux-gnu*"), "/usr/share", "/usr/lib64", "/etc", "/dev",
                   "/proc", BASE / "tests", BASE / "tools", "/home"] + (["/media"] if media else [])
        for source in map(Path, visible):
            if source.is_dir() and not source.is_symlink():
                target = Path(f"{self.path}{source}")
                target.mkdir(parents=True)
                mounts.bind(source, target, recursive=True)

    def command(self, executable):
        return ["/usr/sbin/chroot", self.path, executable]


class SessionBus:
    """A private session bus at `address`, with a notification server that records what it has to show."""

    def __init__(self, address):
        self.address = address
        self.record = fresh_directory() / "popups"
        self.record.touch()
        self.daemon = subprocess.Popen(
            ["dbus-daemon", "--nofork", "--print-address", "--config-file", SUPPORT / "session-bus.conf",
             "--address", address],
            stdout=subprocess.PIPE, stdin=subprocess.DEVNULL,
        )
        self._expect_line(self.daemon)
        self.recorder = subprocess.Popen(
            ["/usr/bin/python3", SUPPORT / "notification_recorder.py", self.record],
            env={**os.environ, "DBUS_SESSION_BUS_ADDRESS": address},
            stdout=subprocess.PIPE, stdin=subprocess.DEVNULL,
        )
        self._expect_line(self.recorder)

    @staticmethod
    def _expect_line(process):
        assert select.select([process.stdout], [], [], TIMEOUT)[0], f"{process.args[0]} says nothing"
        assert process.stdout.readline(), f"{process.args[0]} ended"

    def popups(self):
        return [json.loads(line) for line in self.record.read_bytes().splitlines()]

    def wait_popups(self, count):
        wait_until(lambda: len(self.popups()) >= count, lambda: f"{count} popups; there are {self.popups()}")
        return self.popups()

    def close(self):
        for process in (self.recorder, self.daemon):
            process.kill()
            process.wait()
            process.stdout.close()


# --------------------------------------------------------------------------------------------------- the log


@dataclass(frozen=True)
class Line:
    """A line of the log; `code`: the number of an error line, `repeats`: what the counter line below says."""

    time: str
    level: str
    location: str
    message: str
    code: int = None
    repeats: int = 0

    def what(self):
        return self.level, self.location, self.message


_LINE = re.compile(
    r"(?P<time>\d{4}-\d\d-\d\d \d\d:\d\d:\d\d:\d{3})  \[(?P<level>[A-Z]+)\]  \[(?P<location>[^\]]*)\] :: "
    r"(?:\[0x(?P<code>[0-9A-F]{8})\]: )?(?P<message>.*)", re.DOTALL)
_COUNTER = re.compile(r"Repeated \[(\d{5,})\] times\.")


def parse_log(data):
    """The lines of a whole log; a last line that is still being written is left out."""
    lines = []
    for text in os.fsdecode(data).split("\r\n")[:-1]:
        counter = _COUNTER.fullmatch(text)
        match = _LINE.fullmatch(text)
        if counter and lines and not lines[-1].repeats:
            last = lines.pop()
            lines.append(Line(last.time, last.level, last.location, last.message, last.code, int(counter[1])))
        elif match:
            code = match["code"]
            lines.append(Line(match["time"], match["level"], match["location"], match["message"],
                              None if code is None else int(code, 16)))
        else:
            # A file name may hold the line end.
            assert lines, f"not a line of the log: {text!r}"
            last = lines.pop()
            lines.append(Line(last.time, last.level, last.location, last.message + "\r\n" + text, last.code))
    return lines


# Every line that the service may write: level, location, pattern of the message. Only errors have a code.
KNOWN_LINES = [
    ("INFO", "LoggerStarted", r"Build Date: \d{4}-\d\d-\d\d \d\d:\d\d:\d\d"),
    ("TRACE", "CScanManager::loadSettings", r"Settings loaded successfully\."),
    ("TRACE", "CScanManager::reloadSettings", r"Reload settings called\."),
    ("TRACE", "IOCScanManager::loadSettings", r"Settings loaded successfully\."),
    ("TRACE", "IOCScanManager::reloadSettings", r"Reload settings called\."),
    ("INFO", "CSocketThread::runSocketListner", r"Socket Listening"),
    ("INFO", "CSocketThread::runSocketListner", r"127\.0\.0\.1 - Connected on socket\. - \d+"),
    ("ERROR", "CSocketThread::runSocketListner", r"bind Failed!"),
    ("ERROR", "CClientThread::connectToSocket", r"Client Disconnected or timeouted"),
    ("TRACE", "CSocketManager::onClientReceivedMessage",
     r"Reload (DB|settings|IOCDB|IOCSettings) command recieved\."),
    ("INFO", "CSocketManager::onClientReceivedMessage", r"(Virus|Bad URL) Found\[.+\]: .+ INFECTED \S+"),
    ("INFO", "CSocketManager::onClientReceivedMessage",
     r"IDC File Detected\[.+\]: .* (MD5|SHA1|SHA256):(I[ADR]:[0-9a-f]*|[0-9a-f]*:ERROR)"),
    ("INFO", "IOCScanManager::scanFile", r"IOC File (Renamed|Removed): .+"),
    ("ERROR", "IOCScanManager::scanFile", r"IOC Failed to (Rename|Remove): .+"),
    ("ERROR", "IOCScanManager::scanFile", r"Failed to add report in IOC Scan Report\."),
    ("ERROR", "IOCScanFile::scanFile", r"Failed to save file hashes!"),
    ("TRACE", "CScanFile::initEngine", r"Successfully Scan Engine Initialize\."),
    ("TRACE", "CScanFile::loadDatabases", r"Successfully Compiled Engine\."),
    ("ERROR", "CScanFile::loadDatabases", r"Failed to load database\. Path: [^/]+ Error: [1-9]\d*"),
    ("INFO", "FileMonitor::startMonitoring", r"Watching: (/home|/media)"),
    ("ERROR", "FileMonitor::addToWatchRecursive", r"Failed to add path for watch: /.+"),
    ("ERROR", "FileMonitor::addNewDirToWatchRecursive", r"Failed to add path for watch: /.+"),
    ("TRACE", "FileMonitor::onActivated", r"New Directory added: .*/.+"),
    ("TRACE", "FileMonitor::onActivated", r"Directory Removed: .*/.+"),
    ("TRACE", "FileMonitor::onActivated", r"Directory changed: \[\d+\] .*/.+"),
    ("ERROR", "FileMonitor::scanFile", r"Error File Scanning \| Error:(?:[2-9]|\d\d+) \| /.+"),
    ("TRACE", "FileMonitor::scanFile", r"Found infected file \| Status:1 \| /.+"),
    ("TRACE", "FileMonitor::scanFile", r"Cleaned infected file \| Status:(0|-1|1) \| /.+"),
    # A client may name anything.
    ("ERROR", "CScanManager::cleanFile", r"Failed to take backup of file: .*"),
    ("ERROR", "CScanManager::cleanFile", r"Failed to clean file: .*\. Error: \d+"),
]

# Those that it writes only under a fault or an attack.
LINES_OF_FAULTS = [
    ("ERROR", "FileMonitor::onActivated", r"Failed to read from file descriptor!"),
    ("INFO", "FileMonitor::keepForLater", r"Too many files under lease, not all are scanned again\."),
]


def is_line(line, level, location, pattern):
    return (line.level == level and line.location == location
            and re.fullmatch(pattern, line.message, re.DOTALL) is not None
            and (line.code is not None) == (level == "ERROR"))


def is_known(line):
    return any(is_line(line, *known) for known in KNOWN_LINES + LINES_OF_FAULTS)


def found(path):
    return "TRACE", "FileMonitor::scanFile", f"Found infected file | Status:1 | {path}"


def cleaned(path, status=0):
    return "TRACE", "FileMonitor::scanFile", f"Cleaned infected file | Status:{status} | {path}"


# libclamav's answer for a file that cannot be opened.
OPEN_ERROR = 8


def scan_error(path, result=OPEN_ERROR):
    return "ERROR", "FileMonitor::scanFile", f"Error File Scanning | Error:{result} | {path}"


def backup_error(path):
    return "ERROR", "CScanManager::cleanFile", f"Failed to take backup of file: {path}"


def directory_added(path):
    return "TRACE", "FileMonitor::onActivated", f"New Directory added: {path}"


def directory_removed(path):
    return "TRACE", "FileMonitor::onActivated", f"Directory Removed: {path}"


# ------------------------------------------------------------------------------------------ the installation


def is_port_open():
    """Whether somebody listens on the port; asking by a connection would keep others waiting for a second."""
    # TCP_LISTEN, as the kernel writes it there.
    listening = "0A"
    sockets = (line.split() for line in Path("/proc/net/tcp").read_text().splitlines()[1:])
    return any(local.endswith(f":{PORT:04X}") and state == listening for _, local, _, state, *_ in sockets)


class Installation:
    """One installation root and at most one running service of it."""

    def __init__(self, root, databases=("test-5.cvd", "test-6.cvd")):
        # A root two levels below / is refused by the service, which then works on another.
        assert str(root).count("/") != 2, root
        self.root = Path(root)
        self.process = None
        self._output = fresh_directory() / "output"
        self._ended_on_purpose = False
        self._install(databases)

    def _install(self, databases):
        device = self.root.parent
        device.mkdir(parents=True, exist_ok=True)
        same = os.stat(device).st_dev == os.stat(STAGED).st_dev
        # The machine's own, in the root /usr of a Chroot.
        is_foreign = (self.root / "share").is_mount()
        shutil.copytree(STAGED, self.root, symlinks=True, copy_function=os.link if same else shutil.copy2,
                        dirs_exist_ok=True, ignore=shutil.ignore_patterns("share") if is_foreign else None)
        self.db.mkdir(exist_ok=True)
        for name in databases:
            shutil.copy(SIGNATURES / name, self.db)

    @property
    def db(self):
        return self.root / "db"

    @property
    def settings(self):
        return self.root / "settings"

    @property
    def quarantine(self):
        return self.root / "quarantine"

    @property
    def log_file(self):
        return self.root / "logs" / f"{SERVICE}.log"

    # Starting and ending

    def start(self, bus=None, arguments=(), environment=None, wait=True, command=None, **options):
        """Starts the service; with `wait`, returns when it watches, and its port is open or cannot be opened.
        `command` starts it in some other way."""
        assert self.process is None
        # As a service manager gives it: no language, no home.
        everything = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", **INSTRUMENTS}
        if PRELOAD.exists():
            everything["LD_PRELOAD"] = str(PRELOAD)
        if bus is not None:
            everything["DBUS_SESSION_BUS_ADDRESS"] = bus.address
        everything.update(environment or {})
        already = len(self.log())
        with open(self._output, "ab") as output:
            streams = {"stdin": subprocess.DEVNULL, "stdout": output, "stderr": output}
            streams.update(options)
            self.process = subprocess.Popen(
                [*(command or [self.root / "bin" / SERVICE]), *arguments], env=everything,
                start_new_session=True, cwd="/", **streams)
        if wait:
            self.wait_log("INFO", "FileMonitor::startMonitoring", "Watching: /media", skip=already)
            wait_until(lambda: self._has_tried_to_listen(already), "the listener")
        return self

    def _has_tried_to_listen(self, skip):
        """The listener has a thread of its own, which may be late, and opens the port just after its line."""
        last = [line for line in self.log()[skip:] if line.location == "CSocketThread::runSocketListner"][-1:]
        return last and (last[0].message != "Socket Listening" or is_port_open())

    def pause(self):
        """Stops the service where it is; the kernel goes on queueing events for it."""
        os.kill(self.process.pid, signal.SIGSTOP)
        wait_until(lambda: self._state() == "T", "the service to stop")

    def resume(self):
        os.kill(self.process.pid, signal.SIGCONT)

    def _state(self):
        return Path(f"/proc/{self.process.pid}/stat").read_text().rpartition(")")[2].split()[0]

    def end(self, number=signal.SIGTERM, timeout=TIMEOUT):
        """Ends the service by a signal and returns its exit status."""
        self._ended_on_purpose = True
        self.process.send_signal(number)
        return self.process.wait(timeout)

    def stop(self):
        """Ends the service in good order, so that it can be started again."""
        assert self.end() == 0, self.output()
        self.process = None
        self._ended_on_purpose = False

    def close(self):
        """Ends whatever is left; fails when the service had ended by itself."""
        if self.process is None:
            return
        status = self.process.poll()
        if status is None and "GCOV_PREFIX" in INSTRUMENTS:
            self._save_counters()
        try:
            os.killpg(self.process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.process.wait()
        assert status is None or self._ended_on_purpose, f"the service ended with {status}: {self.output()}"
        # The sanitizers of undefined behaviour and of threads go on after telling.
        for complaint in ("runtime error: ", "WARNING: ThreadSanitizer"):
            assert complaint not in self.output(), self.output()

    def _save_counters(self):
        """Lets the programs end by themselves, if they still can: one that is killed does not write its counters."""
        try:
            self.end(timeout=2)
            wait_until(lambda: not self._is_group_alive(), "the group to end", timeout=2)
        except (subprocess.TimeoutExpired, AssertionError):
            pass

    def _is_group_alive(self):
        try:
            os.killpg(self.process.pid, 0)
        except ProcessLookupError:
            return False
        return True

    def output(self):
        """What the service wrote to its standard streams."""
        return self._output.read_text(errors="replace")

    # The log

    def log(self):
        try:
            return parse_log(self.log_file.read_bytes())
        except (FileNotFoundError, NotADirectoryError):
            return []

    def lines(self):
        """The lines of the log as (level, location, message)."""
        return [line.what() for line in self.log()]

    def check_log(self):
        unknown = [line for line in self.log() if not is_known(line)]
        assert not unknown, f"lines that the service should not write: {unknown}"

    def wait_log(self, level, location, message, skip=0):
        """Waits until the log has the line below its first `skip` lines; returns the line."""
        wanted = (level, location, message)

        def look():
            return next((line for line in self.log()[skip:] if line.what() == wanted), None)

        return wait_until(look, lambda: f"{wanted}; log: {self.log()}; output: {self.output()}")

    def count(self, level, location, message):
        """How often the line was written; the log keeps one of those in a row, and their number."""
        return sum(1 + line.repeats for line in self.log() if line.what() == (level, location, message))

    def settle(self):
        """Returns when the service has handled every event that happened before the call, and its log.

        Events come in order, and a new directory is logged whatever else is switched off.
        """
        # At the top, where every directory is watched.
        path = f"/home/.settle{next(_numbers)}"
        os.mkdir(path)
        self.wait_log(*directory_added(path))
        return [line for line in self.log() if "/home/.settle" not in line.message]

    # The stores

    def store(self, *arguments, check=True, data=None):
        self.settings.mkdir(exist_ok=True)
        result = subprocess.run(
            [BASE / "tools" / "tvstore", self.settings, *arguments], stdout=subprocess.PIPE, check=check, input=data,
            env={"LD_LIBRARY_PATH": str(BASE / "installed" / "lib"), "PATH": "/usr/bin", **INSTRUMENTS})
        return result.stdout

    def configure(self, **values):
        self.store("set", json.dumps(values))

    def cached(self, path):
        """What the hash cache knows of the file; empty for nothing."""
        return json.loads(self.store("cached", path))

    def reports(self):
        """The detection records, oldest first."""
        return json.loads(self.store("reports"))

    def add_reports(self, records):
        """Stores detection records as another module of the suite would; see tvstore.cpp for their fields."""
        self.store("add", data=json.dumps(list(records)).encode())

    def quarantined(self):
        """Name to content of every file in quarantine, temporary ones included."""
        if not self.quarantine.is_dir():
            return {}
        contents = {}
        for path in self.quarantine.iterdir():
            try:
                contents[path.name] = path.read_bytes()
            except FileNotFoundError:
                pass  # Renamed in the meantime: it was a copy's passing name.
        return contents

    def descriptors(self):
        """Descriptor to target of what the service has open."""
        opened = {}
        for entry in Path(f"/proc/{self.process.pid}/fd").iterdir():
            try:
                opened[int(entry.name)] = os.readlink(entry)
            except FileNotFoundError:
                pass  # Closed in the meantime.
        return opened

    def watches(self):
        """How many directories the service watches, by the kernel's word."""
        for number, target in self.descriptors().items():
            if target == "anon_inode:inotify":
                return Path(f"/proc/{self.process.pid}/fdinfo/{number}").read_text().count("inotify wd:")
        return 0

    def has_sanitizer(self):
        """Whether the service is built with one, which takes memory of its own and keeps what is freed."""
        return is_instrumented(self.root / "bin" / SERVICE)

    def limit_descriptors(self, limit):
        """Sets how many descriptors the service may have, and returns how many it might before."""
        before, hard = resource.prlimit(self.process.pid, resource.RLIMIT_NOFILE)
        resource.prlimit(self.process.pid, resource.RLIMIT_NOFILE, (limit, hard))
        return before


def _escape_bytes(error):
    return "".join(f"\\x{byte:02x}" for byte in error.object[error.start:error.end]), error.end


codecs.register_error("escape_bytes", _escape_bytes)


def is_instrumented(program):
    """Whether a sanitizer of addresses or threads, or counters of what runs, were built into the program."""
    return any(name in Path(program).read_bytes() for name in (b"__asan_init", b"__tsan_init", b".gcda"))


def display(name):
    """How people and other programs are shown a name: bytes that are no UTF-8 as \\xNN."""
    return name.decode("utf-8", "escape_bytes")


def quarantine_name(path):
    """The pattern that the name of a quarantine copy of `path` has."""
    digest = hashlib.md5(os.fsencode(str(path))).hexdigest()
    return re.compile(r"\d{4}-\d\d-\d\d_\d\d-\d\d-\d\d_" + digest + r"\.tvq", re.ASCII)


# -------------------------------------------------------------------------------------------------- writing


def write_once(path, content=EICAR):
    """Creates the file and writes it in one go: a creation, then one modification."""
    descriptor = os.open(path, os.O_WRONLY | os.O_CREAT | os.O_EXCL, 0o644)
    try:
        assert os.write(descriptor, content) == len(content)
    finally:
        os.close(descriptor)
    return path


def write_deep(directory, levels):
    """An infected file "bad", so many directories below that no call takes its path."""
    here = os.open(directory, os.O_PATH)
    for _ in range(levels):
        os.mkdir("d" * 200, dir_fd=here)
        deeper = os.open("d" * 200, os.O_PATH, dir_fd=here)
        os.close(here)
        here = deeper
    write_once(f"/proc/self/fd/{here}/bad")
    os.close(here)


def exists(path):
    return os.path.lexists(path)


def wait_gone(path, timeout=TIMEOUT):
    wait_until(lambda: not exists(path), f"{path!r} to go", timeout)


class Unwatched:
    """A directory that nobody watches, on the file system of /home: hidden ones that exist at the start are
    not walked into. To be made before the service starts."""

    def __init__(self, path="/home/.unwatched"):
        self.path = Path(path)
        self.path.mkdir()
        self._names = itertools.count()

    def file(self, content=EICAR):
        return write_once(self.path / str(next(self._names)), content)

    def move_in(self, target, content=EICAR):
        """The file appears complete, in one event."""
        os.rename(self.file(content), target)
        return target

    def link_in(self, target, content=EICAR):
        """As `move_in`, by the event of a creation."""
        os.link(self.file(content), target)
        return target
