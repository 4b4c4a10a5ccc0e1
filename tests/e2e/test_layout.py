"""Where the service finds and makes its directories, by the place of its executable."""

import os
import subprocess

import pytest

from harness import EICAR, Installation, Path, cleaned, found, fresh_directory, wait_gone, write_once

FIXED_ROOT = "/usr/lib/Talvenor"


class Chroot:
    """A root directory in which every place can be written to, with the libraries of the machine."""

    def __init__(self, mounts):
        self.path = fresh_directory() / "chroot"
        for name in ("usr/lib", "home/u", "media", "tmp", "run", "var/tmp", "etc", "opt", "bin", "mnt"):
            (self.path / name).mkdir(parents=True)
        # Each library directory by itself, so that others can be made beside them.
        for source in [*Path("/usr/lib").glob("*-linux-gnu*"), Path("/usr/share"), Path("/usr/lib64"), Path("/etc"),
                       Path("/dev"), Path("/proc"), Path("/mnt/tools")]:
            if source.is_dir() and not source.is_symlink():
                target = Path(f"{self.path}{source}")
                target.mkdir(parents=True, exist_ok=True)
                mounts.bind(source, target, recursive=True)
        os.symlink("usr/lib", self.path / "lib")
        os.symlink("usr/lib64", self.path / "lib64")
        # Events tell of a directory, wherever it is mounted.
        mounts.bind("/home", self.path / "home")
        mounts.bind("/media", self.path / "media")


@pytest.fixture
def chroot(mounts, home):
    return Chroot(mounts)


@pytest.mark.parametrize("place, root", [
    ("/opt/x/bin", FIXED_ROOT),
    ("/opt/bin", "/opt"),
    ("/usr/bin", "/usr"),
    ("/bin", "/"),
    ("/opt/a/b/bin", "/opt/a/b"),
    ("/opt/a/b/c/anything", "/opt/a/b/c"),
])
def test_the_root(chroot, home, place, root):
    tv = Installation(f"{chroot.path}{root}")
    executable = Path(f"{chroot.path}{place}/tvfilemon")
    libraries = executable.parent.parent / "lib"
    if not executable.exists():
        executable.parent.mkdir(parents=True, exist_ok=True)
        os.link(tv.root / "bin" / "tvfilemon", executable)
    # They lie beside the executable, wherever it looks for everything else.
    if not (libraries / "libtvcore.so.1").exists():
        libraries.mkdir(exist_ok=True)
        subprocess.run(["cp", "-a", "--", *(tv.root / "lib").glob("*tv*"), libraries], check=True)
    try:
        tv.start(command=["/usr/sbin/chroot", chroot.path, f"{place}/tvfilemon"])
        path = write_once(home / "eicar")
        wait_gone(path)
        lines = [line.what() for line in tv.settle()]
        assert found(path) in lines and cleaned(path) in lines
        assert list(tv.quarantined().values()) == [EICAR]
        assert len(tv.reports()) == 1
    finally:
        tv.close()
    tv.check_log()
