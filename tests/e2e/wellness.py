"""An installation with which nothing is wrong, for tests of the tool that looks for what is wrong."""

import time

from commandclient import PORT
from harness import Path, wait_until

HEAD_SIZE = 512
DAY = 24 * 60 * 60
MONTHS = "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split()


def set_age(installation, days):
    """Lets every signature database say that it was made so long ago: nobody signs that part of it."""
    built = time.gmtime(time.time() - days * DAY)
    text = time.strftime(f"%d {MONTHS[built.tm_mon - 1]} %Y %H-%M +0000", built).encode()
    for path in installation.db.glob("*.cvd"):
        content = path.read_bytes()
        fields = content[:HEAD_SIZE].rstrip().split(b":")
        fields[1] = text
        path.write_bytes(b":".join(fields).ljust(HEAD_SIZE) + content[HEAD_SIZE:])


def make_well(installation):
    """To be called before the service starts."""
    set_age(installation, 0)
    for directory in (installation.settings, installation.quarantine):
        directory.mkdir(exist_ok=True)
        directory.chmod(0o700)
    return installation


def start(installation, **options):
    """Starts the service, and waits until its port is there as well: that is made by another thread."""
    installation.start(**options)
    wait_until(lambda: f":{PORT:04X} 00000000:0000 0A " in Path("/proc/net/tcp").read_text(), "the port")
