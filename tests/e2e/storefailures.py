"""A store that cannot be used, in each of the ways that happen."""

import contextlib
import os
import sqlite3

# Root without its power over files: the same user as seen from outside, without capabilities.
AS_ORDINARY_USER = ["/usr/bin/unshare", "--user", "--map-user=1000", "--map-group=1000"]


@contextlib.contextmanager
def locked(store):
    """Another program keeps everybody from the store, even from reading. Nobody may have it open."""
    connection = sqlite3.connect(store, isolation_level=None, timeout=0)
    connection.execute("PRAGMA locking_mode=EXCLUSIVE")
    connection.execute("BEGIN EXCLUSIVE")
    try:
        yield
    finally:
        connection.close()


@contextlib.contextmanager
def locked_for_writing(store):
    """Another program is writing, which keeps others from that."""
    connection = sqlite3.connect(store, isolation_level=None, timeout=0)
    connection.execute("BEGIN IMMEDIATE")
    try:
        yield
    finally:
        connection.close()


def damage(store):
    """Nobody may have it open."""
    store.write_bytes(b"no database" * 1000)


@contextlib.contextmanager
def inaccessible(directory):
    os.chmod(directory, 0)
    try:
        yield
    finally:
        os.chmod(directory, 0o700)
