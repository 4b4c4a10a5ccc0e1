"""What lies in the directory of the machine."""

import os
import re
import shutil
import stat

import machine
from machine import ROOT, chroot, outside

# A version of before the package under test, made of the same files.
OLDER = "0.9.0"
MARK = "/var/lib/talvenor/quarantine/2026-01-01_00-00-00_d41d8cd98f00b204e9800998ecf8427e.tvq"
# What a removed package may leave: the memory of package management and logs of other programs.
FOREIGN = re.compile(r"/var/lib/(dpkg|apt|systemd/deb-systemd-helper-masked)/|/var/log/(apt|journal|dpkg)|"
                     r"/var/cache/(apt|man|debconf|ldconfig)|/run/|/tmp/|/dev/|/proc/|/tvfilemon_[^/]*[.]deb$")


def traces():
    """Every path that has to do with the package and is not somebody else's memory of it."""
    found = set()
    for directory, directories, files in os.walk(ROOT):
        place = "/" + os.path.relpath(directory, ROOT)
        place = "/" if place == "/." else place + "/"
        if place in ("/proc/", "/dev/", "/sys/", "/run/", "/tmp/"):
            directories.clear()
            continue
        found.update(place + name for name in directories + files)
    return {path for path in found if not FOREIGN.search(path)
            and re.search("talvenor|tvfilemon|tvctl", path, re.IGNORECASE)}


def description(path):
    """Mode, owner and name, and where a link leads."""
    status = os.lstat(outside(path))
    link = f" -> {os.readlink(outside(path))}" if stat.S_ISLNK(status.st_mode) else ""
    return f"{stat.filemode(status.st_mode)} {status.st_uid}:{status.st_gid} {path}{link}\n"


def contents(*places):
    return {path: path.read_bytes() for place in places for path in outside(place).rglob("*") if path.is_file()}


def install(package, version=None):
    """Without booting it."""
    chroot("apt-get", "install", "--yes", "--no-install-recommends", package)
    assert machine.installed_version() == version or version is None


def provide_signatures():
    for database in machine.SIGNATURES.glob("*.cvd"):
        shutil.copy(database, outside("/var/lib/talvenor/db"))
