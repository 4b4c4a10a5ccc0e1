"""Fixtures of attacks and faults, beside those of servicefixtures.py."""

import signal

import pytest

from leases import Leases


@pytest.fixture
def leases(home):
    # The kernel asks for a lease by this signal, which would end a program.
    before = signal.signal(signal.SIGIO, signal.SIG_IGN)
    made = Leases()
    yield made
    made.end_all()
    signal.signal(signal.SIGIO, before)
