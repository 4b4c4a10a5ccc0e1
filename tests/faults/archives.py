"""Files that take the engine long to look into, and signatures that take it long to load."""

import io
import os
import zipfile

from harness import EICAR, SIGNATURES

PAGE = b'<html><script>var a="' + b"abcdefghij" * 100_000 + b'";</script></html>'


def write_archive(path, members):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=1) as archive:
        for name, content in members:
            archive.writestr(name, content)
    return path


def write_slow_infected(path, archives):
    """An archive of so many archives, each good for a tenth of a second or more, with an infected file at its end."""
    pages = io.BytesIO()
    write_archive(pages, [(str(number), PAGE) for number in range(10)])
    return write_archive(path, [*((f"{number}.zip", pages.getvalue()) for number in range(archives)),
                                ("eicar.com", EICAR)])


def many_databases(tv):
    good = SIGNATURES / "test-6.cvd"
    for number in range(1500):
        os.symlink(good, tv.db / f"test-6-{number}.cvd")
