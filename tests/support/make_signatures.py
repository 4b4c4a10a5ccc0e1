#!/usr/bin/python3
"""Makes signature databases for tests on a machine that has no signed ones.

    make_signatures.py OUTDIR

writes OUTDIR/test-5.cvd and OUTDIR/test-6.cvd. libclamav refuses them as they are, because they carry no
signature of the ClamAV project; the preload library of tests/preload lets it take them. The line behind the
head is what that library looks for, then each "[ndb]" or "[hdb]" line opens the lines of a file of that kind.

Both find the EICAR file and clam.exe of clamav-testfiles; only test-6 finds KLEZ_PATTERN.
"""

import hashlib
import os
import sys

# In pieces, so that no scanner takes this file for the test file itself.
EICAR = b"".join(
    [b"X5O!P%@AP[4\\PZX54(P^)7CC)7}", b"$EICAR", b"-STANDARD", b"-ANTIVIRUS", b"-TEST-FILE!", b"$H+H*"]
)
EICAR_NAME = "Eicar-Test-Signature"

CLAM_EXE_MD5 = "aa15bcf478d165efd2065190eb473bcb"
CLAM_EXE_SIZE = 544
CLAM_EXE_NAME = "Clamav.Test.File-6"

KLEZ_PATTERN = bytes.fromhex(
    "2d4000bd08104000e89eeaffff80bd08104000be7d2d4000e849eaffff6a00e83500000064756d6d792e65786500653a5c77"
    "696e646f77735c53795374656d33325c644c6c63616368655c6464642e65786500ff254c404000ff25544040"
)
KLEZ_NAME = "Win.Worm.Klez-1"

HEAD_SIZE = 512
MARKER = "# unsigned signatures for tests"


def _head(version):
    """What a signed file begins with, as far as somebody reads it who does not load it."""
    text = f"ClamAV-VDB:22 Jun 2021 21-31 -0400:{version}:{version - 3}:81:none:none:tests:1624411902"
    return text.ljust(HEAD_SIZE)


def made_of(version, lines):
    """The text of a database of these lines, the first of which is the kind of those that follow it."""
    content = _head(version) + "\n".join([MARKER, *lines]) + "\n"
    return f"{content}# {_sum(content.encode()):016x}\n"


def _database(with_klez):
    lines = [
        "[hdb]",
        f"{hashlib.md5(EICAR).hexdigest()}:{len(EICAR)}:{EICAR_NAME}",
        f"{CLAM_EXE_MD5}:{CLAM_EXE_SIZE}:{CLAM_EXE_NAME}",
    ]
    if with_klez:
        lines += ["[ndb]", f"{KLEZ_NAME}:0:*:{KLEZ_PATTERN.hex()}"]
    return made_of(6 if with_klez else 5, lines)


def _sum(data):
    """FNV-1a, for the last line: a damaged file must be refused as if it were signed."""
    result = 0xCBF29CE484222325
    for byte in data:
        result = (result ^ byte) * 0x100000001B3 & 0xFFFFFFFFFFFFFFFF
    return result


def make(directory):
    os.makedirs(directory, exist_ok=True)
    for name, with_klez in (("test-5.cvd", False), ("test-6.cvd", True)):
        with open(os.path.join(directory, name), "w", encoding="ascii") as file:
            file.write(_database(with_klez))


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    make(sys.argv[1])
