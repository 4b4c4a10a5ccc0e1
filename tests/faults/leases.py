"""Leases, by which a program makes everybody wait who opens one of its files."""

import fcntl
import os

from harness import Unwatched


class Leases:
    """Files that are under lease as soon as they can be seen."""

    def __init__(self):
        self._unwatched = Unwatched()
        self.outside = self._unwatched.path
        self._held = {}

    def move_in(self, path):
        source = self._unwatched.file()
        self._held[path] = os.open(source, os.O_RDWR)
        fcntl.fcntl(self._held[path], fcntl.F_SETLEASE, fcntl.F_WRLCK)
        os.rename(source, path)
        return path

    def empty(self, path):
        os.ftruncate(self._held[path], 0)

    def end(self, path):
        os.close(self._held.pop(path))

    def end_all(self):
        for path in list(self._held):
            self.end(path)
