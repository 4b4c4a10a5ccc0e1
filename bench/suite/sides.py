"""The service, the bare programs and the peers: each is started, measured and ended the same way."""

import contextlib
import json
import mmap
import os
import pwd
import select
import shutil
import socket
import struct
import subprocess
import time
from pathlib import Path

import harness

PROGRAMS = harness.BASE / "programs"
DISK = harness.BASE / "disk"
DATABASES = ("test-5.cvd", "test-6.cvd")
PORT = "8889"
CLAMD_USER = "clamav"


def is_real_root():
    """Whether the kernel takes this process for the machine's root, which it asks of who watches whole mounts."""
    return Path("/proc/self/uid_map").read_text().split() == ["0", "0", "4294967295"]


def environment(**more):
    """Of every program that loads signatures."""
    variables = {"PATH": os.environ["PATH"], "LD_LIBRARY_PATH": str(harness.BASE / "installed" / "lib"), **more}
    preloaded = [str(path) for path in (harness.PRELOAD, *filter(None, [variables.get("LD_PRELOAD")]))
                 if Path(path).exists()]
    variables["LD_PRELOAD"] = " ".join(preloaded)
    return variables


def program(name, *arguments):
    """Runs a program of the benchmarks and returns what it reports."""
    result = subprocess.run([PROGRAMS / name, *map(str, arguments)], env=environment(), stdin=subprocess.DEVNULL,
                            stdout=subprocess.PIPE, check=True)
    return json.loads(result.stdout)


def whole(result):
    """How long all of it took in nanoseconds; what was not done took for ever."""
    return result["whole"] if result["whole"] >= 0 else float("inf")


@contextlib.contextmanager
def directory(on_disk=False):
    """An empty one, on a disk or in memory, that goes afterwards."""
    if on_disk:
        path = DISK / str(time.monotonic_ns())
        path.mkdir()
    else:
        path = harness.fresh_directory()
    try:
        yield path
    finally:
        shutil.rmtree(path)


@contextlib.contextmanager
def home():
    """A fresh /home and the directory of a user in it."""
    mounts = harness.Mounts()
    try:
        mounts.tmpfs("/home")
        user = Path("/home/u")
        user.mkdir()
        yield user
    finally:
        mounts.close()


@contextlib.contextmanager
def running(name, *arguments):
    """A program of the benchmarks that says when it is ready, and goes on."""
    process = subprocess.Popen([PROGRAMS / name, *map(str, arguments)], env=environment(),
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE)
    try:
        assert process.stdout.readline() == b"ready\n", name
        yield process
    finally:
        process.kill()
        process.wait()
        process.stdout.close()


class Observer:
    """What the library of the same name counts within a process."""

    NAMES = ("scans", "scan_nanoseconds", "listening_since", "watching_began", "watching_ended", "watches",
             "event_reads", "events", "overflows")

    def __init__(self):
        self._path = harness.fresh_directory() / "counts"
        self._path.write_bytes(bytes(8 * len(self.NAMES)))
        self.environment = {"TVFILEMON_BENCH_OBSERVER": str(self._path),
                            "LD_PRELOAD": str(PROGRAMS / "libobserver.so")}

    def counts(self):
        with open(self._path, "rb") as file, mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as memory:
            return dict(zip(self.NAMES, struct.unpack(f"{len(self.NAMES)}q", memory)))


class Service:
    """The installed service. With `observed`, `observer` counts."""

    def __init__(self, on_disk=False, databases=DATABASES, observed=False, **settings):
        self._stack = contextlib.ExitStack()
        self.installation = harness.Installation(self._stack.enter_context(directory(on_disk)) / "root", databases)
        self.installation.configure(**settings)
        self.observer = Observer() if observed else None
        self.started = None

    def start(self):
        given = environment(**(self.observer.environment if self.observer else {}))
        self.started = time.monotonic_ns()
        self.installation.start(environment={"LD_PRELOAD": given["LD_PRELOAD"],
                                             **{name: value for name, value in given.items() if "BENCH" in name}})
        return self

    def __enter__(self):
        return self.start()

    def __exit__(self, *_):
        self.installation.close()
        self._stack.close()

    def processes(self):
        """The service's and those that it started."""
        found = []
        for stat in Path("/proc").glob("[0-9]*/stat"):
            with contextlib.suppress(OSError):
                if int(stat.read_text().rpartition(")")[2].split()[3]) == self.installation.process.pid:
                    found.append(int(stat.parent.name))
        return found

    def resident_kibibytes(self):
        return int(self._status()["VmRSS"].split()[0])

    def _status(self):
        lines = Path(f"/proc/{self.installation.process.pid}/status").read_text().splitlines()
        return dict(line.split(":\t", 1) for line in lines)

    def processor_nanoseconds(self):
        """What all threads of all processes took of the processors."""
        return sum(each[0] for each in self._threads())

    def wakeups(self):
        return sum(each[1] for each in self._threads())

    def _threads(self):
        for process in self.processes():
            for thread in Path(f"/proc/{process}/task").iterdir():
                switches = sum(int(line.split()[1]) for line in (thread / "status").read_text().splitlines()
                               if "ctxt_switches" in line)
                yield int((thread / "schedstat").read_text().split()[0]), switches


class Clamd:
    """Debian's clamd as it comes, with the same signatures and its temporary files in memory."""

    # The daemon's own default configuration otherwise.
    SETTINGS = """\
LocalSocket {run}/socket
DatabaseDirectory {run}/databases
TemporaryDirectory {run}/temporary
LogFile {run}/log
Foreground yes
OnAccessMountPath /home
OnAccessExcludeUname {user}
OnAccessPrevention no
"""

    def __init__(self):
        self._stack = contextlib.ExitStack()
        run = Path("/run/clamd")
        self.socket = run / "socket"
        self.settings = run / "settings"
        self._run = run

    def __enter__(self):
        user = CLAMD_USER if is_real_root() else "root"
        for name in ("databases", "temporary"):
            (self._run / name).mkdir(parents=True)
        for name in DATABASES:
            shutil.copy(harness.SIGNATURES / name, self._run / "databases")
        self.settings.write_text(self.SETTINGS.format(run=self._run, user=user)
                                 + (f"User {user}\n" if is_real_root() else ""))
        if is_real_root():
            account = pwd.getpwnam(user)
            for path in (self._run, *self._run.rglob("*")):
                os.chown(path, account.pw_uid, account.pw_gid)
        self._stack.callback(shutil.rmtree, self._run)
        self._start("clamd")
        harness.wait_until(self._answers, "clamd to answer")
        return self

    def __exit__(self, *_):
        self._stack.close()

    def _start(self, name, *arguments):
        log = self._stack.enter_context(open(f"/tmp/{name}.log", "ab"))
        process = subprocess.Popen([f"/usr/sbin/{name}", "-c", self.settings, *arguments], env=environment(),
                                   stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self._stack.callback(process.wait)
        self._stack.callback(process.kill)
        return process

    def _answers(self):
        with socket.socket(socket.AF_UNIX) as connection, contextlib.suppress(OSError):
            connection.connect(str(self.socket))
            connection.send(b"zPING\0")
            return connection.recv(16) == b"PONG\0"


class ClamOnAcc(Clamd):
    """clamonacc on /home, and the clamd that scans for it. `actions` say what it does to an infected file."""

    def __init__(self, *actions):
        super().__init__()
        self._actions = actions

    def __enter__(self):
        super().__enter__()
        self._start("clamonacc", "--foreground", "--fdpass", *self._actions)
        # It says nothing when it is ready.
        harness.wait_until(self._removes, "clamonacc to watch")
        return self

    @staticmethod
    def _removes():
        probe = f"/home/probe-{time.monotonic_ns()}"
        harness.write_once(probe)
        time.sleep(0.2)
        return not harness.exists(probe)


def wait_for_line(stream, text, timeout=60):
    """Returns when the line came, blocking in the kernel meanwhile."""
    data = b""
    while text not in data:
        assert select.select([stream], [], [], timeout)[0], f"no {text!r} in {data!r}"
        piece = os.read(stream.fileno(), 65536)
        assert piece, data
        data += piece
