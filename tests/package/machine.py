"""A Debian in a directory: as a chroot, with namespaces around one command, or booted with its own init."""

import ctypes
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(os.environ["TVFILEMON_MACHINE"])
DEB = Path(os.environ["TVFILEMON_DEB"])
SIGNATURES = Path(os.environ["TVFILEMON_TEST_SIGNATURES"])

sys.path.insert(0, str(Path(__file__).parent.parent / "support"))
from make_signatures import EICAR, KLEZ_NAME, KLEZ_PATTERN  # noqa: E402,F401
from mirror import Mirror  # noqa: E402,F401

ENVIRONMENT = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": "/root", "LANG": "C.UTF-8",
               "DEBIAN_FRONTEND": "noninteractive"}
TIMEOUT = 60

LIBC = ctypes.CDLL(None, use_errno=True)


def wait_until(condition, what, timeout=TIMEOUT):
    """Returns the first true result of `condition`."""
    end = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f"waited {timeout} s in vain for {what() if callable(what) else what}")
        time.sleep(0.05)


def outside(path):
    """The path in this file system of a path in the machine."""
    return ROOT / str(path).lstrip("/")


def run(command, check=True, **options):
    result = subprocess.run([str(part) for part in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                            text=True, errors="replace", stdin=subprocess.DEVNULL, env=ENVIRONMENT, **options)
    assert not check or result.returncode == 0, f"{command}: status {result.returncode}\n{result.stdout}"
    return result


def chroot(*command, check=True):
    """A command in the directory, with a /proc and a /dev of its own, on the network of this machine."""
    return run(["unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c",
                'cd "$0" && mount -t proc proc proc && mount --rbind /dev dev && exec chroot . "$@"',
                ROOT, *command], check)


def mirrored(configuration, address):
    """The configuration of updates with that server, and nothing but it."""
    return re.sub("(?m)^(DatabaseMirror|DNSDatabaseInfo) .*\n", "", configuration) + f"PrivateMirror {address}\n"


def installed_version():
    """Empty when the package is not there, or only its configuration."""
    result = run(["dpkg-query", f"--admindir={ROOT}/var/lib/dpkg", "--show",
                  "--showformat=${db:Status-Status} ${Version}", "tvfilemon"], check=False).stdout
    return result.removeprefix("installed ") if result.startswith("installed ") else ""


def other_version(version):
    """The package once more, as another version: what an upgrade runs is its scripts and its files."""
    tree = ROOT.parent / "repacked"
    result = ROOT / f"tvfilemon_{version}.deb"
    if not result.exists():
        shutil.rmtree(tree, ignore_errors=True)
        run(["dpkg-deb", "--raw-extract", DEB, tree])
        control = tree / "DEBIAN" / "control"
        lines = control.read_text().splitlines(keepends=True)
        control.write_text("".join(f"Version: {version}\n" if line.startswith("Version:") else line
                                   for line in lines))
        # Made and read a few times on this machine: to pack it tightly would take half of the test.
        run(["dpkg-deb", "--root-owner-group", "-Zgzip", "-z1", "--build", tree, result])
        shutil.rmtree(tree)
    return f"./{result.name}"


def wait_gone(path):
    wait_until(lambda: not path.exists(), f"{path} to go")


def look_until(condition, look):
    """Calls `look` until the condition is met, for which it is looked less often."""
    end = time.monotonic() + TIMEOUT
    asked = 0
    while True:
        now = time.monotonic()
        assert now < end, "it takes too long"
        if now - asked > 0.5:
            if condition():
                return
            asked = now
        look()


class Network:
    """The network of a process."""

    def __init__(self, process):
        self.leader = process

    def within(self, function):
        """The result of the function, called in that network: the sockets that it makes are there."""
        results = []

        def call():
            # Of this thread alone, which ends with the function.
            try:
                with open(f"/proc/{self.leader}/ns/net", "rb") as network:
                    assert LIBC.setns(network.fileno(), 0) == 0
                results.append(function())
            except BaseException as error:  # pylint: disable=broad-except
                results.append(error)

        thread = threading.Thread(target=call)
        thread.start()
        thread.join()
        if isinstance(results[0], BaseException):
            raise results[0]
        return results[0]

    def ask(self, *requests, address="127.0.0.1", timeout=TIMEOUT):
        """The replies of the command port to the requests of one client; an exception when there are none."""
        def talk():
            answers = []
            with socket.create_connection((address, 8889), timeout) as connection:
                for request in ("MODULE test", *requests):
                    connection.sendall(request.encode())
                    answers.append(connection.recv(4096).decode())
            return answers[1:]

        return self.within(talk)


class Inside(Network):
    """Processes in namespaces of the directory; `leader` is one of them, by its number outside."""

    def __init__(self):
        super().__init__(None)

    def path(self, name):
        """A path in the file systems of the leader."""
        return Path(f"/proc/{self.leader}/root") / str(name).lstrip("/")

    def command(self, *command):
        return ["nsenter", f"--target={self.leader}", "--all", "--root", "--wdns=/", "env", "--ignore-environment",
                *(f"{name}={value}" for name, value in ENVIRONMENT.items()), *map(str, command)]

    def run(self, *command, check=True):
        return run(self.command(*command), check)

    def start(self, output, *command):
        """A process that goes on and writes to the file `output`; the caller ends it."""
        with open(output, "wb") as stream:
            return subprocess.Popen(self.command(*command), stdin=subprocess.DEVNULL, stdout=stream, stderr=stream)

    def log(self):
        try:
            return self.path("/var/log/talvenor/tvfilemon.log").read_text(errors="replace")
        except FileNotFoundError:
            return ""

    def wait_log(self, text, skip=0):
        wait_until(lambda: text in self.log()[skip:], lambda: f"{text!r} in the log: {self.log()}")


class ByHand(Inside):
    """The service alone, with the restrictions of its unit as far as mounts and `setpriv` can put them on it."""

    def __init__(self):
        super().__init__()
        script = (
            'cd "$0"; mount --rbind . .; cd "$0"\n'
            "for directory in usr etc boot; do\n"
            "    mount --bind $directory $directory; mount -o remount,bind,ro $directory\n"
            "done\n"
            "mount -t proc proc proc; mount --rbind /dev dev\n"
            "mount -t tmpfs -o mode=755 tmpfs home; mount -t tmpfs -o mode=755 tmpfs media\n"
            "mkdir -p run/tvfilemon/tmp; mount -t tmpfs -o size=512M,mode=700,noexec tmpfs run/tvfilemon/tmp\n"
            "ip link set lo up\n"
            "exec chroot . env -i TMPDIR=/run/tvfilemon/tmp setpriv --no-new-privs"
            " --bounding-set=-all,+dac_override,+fowner,+setuid,+setgid,+kill"
            " /usr/lib/Talvenor/bin/tvfilemon\n")
        self._output = ROOT.parent / "service.log"
        with open(self._output, "wb") as output:
            self._unshare = subprocess.Popen(
                ["unshare", "--mount", "--net", "--pid", "--ipc", "--uts", "--fork", "--kill-child",
                 "sh", "-e", "-c", script, str(ROOT)],
                stdin=subprocess.DEVNULL, stdout=output, stderr=output)
        self.leader = wait_until(self._service, lambda: f"the service: {self._output.read_text()}")

    def _service(self):
        assert self._unshare.poll() is None, self._output.read_text()
        children = Path(f"/proc/{self._unshare.pid}/task/{self._unshare.pid}/children").read_text().split()
        is_service = children and Path(f"/proc/{children[0]}/comm").read_text() == "tvfilemon\n"
        return is_service and int(children[0])

    def close(self):
        os.kill(self.leader, signal.SIGTERM)
        assert self._unshare.wait(TIMEOUT) == 0, self._output.read_text()


class Container(Inside):
    """The directory, booted: systemd is its first process, and it has a network of its own."""

    def __init__(self):
        super().__init__()
        self.output = ROOT.parent / "boot.log"
        self._boot()
        wait_until(self._is_up, lambda: f"the boot: {self._told()}")

    def _boot(self):
        with open(self.output, "wb") as output:
            # Not registered: the machine that runs the tests may have no systemd itself.
            self._nspawn = subprocess.Popen(
                # Gone with these tests, however they end.
                ["setpriv", "--pdeathsig=KILL", "systemd-nspawn", "--quiet", "--register=no", "--keep-unit", "--private-network",
                 # For the address rules of units.
                 "--capability=CAP_BPF", "--system-call-filter=bpf",
                 "--directory", str(ROOT), "--boot"],
                stdin=subprocess.DEVNULL, stdout=output, stderr=output,
                # With the old hierarchies systemd puts no address rules on a unit.
                env={**os.environ, "SYSTEMD_NSPAWN_UNIFIED_HIERARCHY": "1"})
        self.leader = wait_until(self._first_process, lambda: f"the first process: {self._told()}")

    def reboot(self, look):
        """In order, as somebody would. `look` is called over and over, without a pause, until it is up again, but
        for when there is nothing to look at."""
        asked = self.start(ROOT.parent / "poweroff.log", "systemctl", "poweroff")
        look_until(lambda: self._nspawn.poll() is not None, look)
        asked.wait(TIMEOUT)
        self._boot()
        look_until(self._is_up, look)

    def _told(self):
        return self.output.read_text(errors="replace")

    def _first_process(self):
        assert self._nspawn.poll() is None, self._told()
        return next((process for process, numbers in processes()
                     if numbers == ["1"] and same(f"/proc/{process}/root", ROOT)
                     and Path(f"/proc/{process}/comm").read_text() == "systemd\n"), None)

    def _is_up(self):
        state = self.run("systemctl", "is-system-running", check=False).stdout.strip()
        return state in ("running", "degraded")

    def property(self, unit, name):
        return self.run("systemctl", "show", "--property", name, "--value", unit).stdout.strip()

    def is_active(self, unit):
        return self.property(unit, "ActiveState") == "active"

    def main_process(self, unit="tvfilemon.service", which="MainPID"):
        """The unit's main process, by its number outside; with ControlPID that of the step that it is at."""
        inner = self.property(unit, which)
        assert inner != "0", self.run("systemctl", "status", unit, check=False).stdout
        return next(process for process, numbers in processes()
                    if numbers == [inner] and same(f"/proc/{process}/ns/pid", f"/proc/{self.leader}/ns/pid"))

    def as_restricted(self, *command):
        """A command in the file systems as the service sees them."""
        return run(["nsenter", f"--target={self.main_process()}", "--mount", "--root", "--wdns=/", *command],
                   check=False)

    def restart(self):
        """Returns when the service is ready again."""
        already = len(self.log())
        self.run("systemctl", "restart", "tvfilemon.service")
        self.wait_log("Watching: /media", already)
        self.wait_port()

    def has_port(self):
        return ":22B9 00000000:0000 0A " in Path(f"/proc/{self.leader}/net/tcp").read_text()

    def wait_port(self):
        """The listener is made by another thread."""
        wait_until(self.has_port, "the port")

    def close(self):
        """As if somebody had pulled the plug: nothing of it is needed any more."""
        os.kill(self.leader, signal.SIGKILL)
        self._nspawn.wait(TIMEOUT)


def processes():
    """The number outside of every process that has one inside of namespaces, and the numbers that it has there."""
    for entry in Path("/proc").glob("[0-9]*"):
        try:
            lines = (entry / "status").read_text().splitlines()
        except OSError:
            continue
        numbers = next((line.split()[2:] for line in lines if line.startswith("NSpid:")), [])
        if numbers:
            yield int(entry.name), numbers


def same(one, other):
    try:
        return os.path.samefile(one, other)
    except OSError:
        return False


class Watch:
    """Tells what is made in a directory."""

    IN_CREATE, IN_NONBLOCK, IN_CLOEXEC = 0x100, 0o4000, 0o2000000

    def __init__(self, directory):
        self._descriptor = LIBC.inotify_init1(self.IN_NONBLOCK | self.IN_CLOEXEC)
        assert LIBC.inotify_add_watch(self._descriptor, os.fsencode(directory), self.IN_CREATE) >= 0, directory

    def created(self):
        try:
            events = os.read(self._descriptor, 65536)
        except BlockingIOError:
            return []
        names = []
        while events:
            length = struct.unpack_from("I", events, 12)[0]
            names.append(os.fsdecode(events[16:16 + length].rstrip(b"\0")))
            events = events[16 + length:]
        return names

    def close(self):
        os.close(self._descriptor)
