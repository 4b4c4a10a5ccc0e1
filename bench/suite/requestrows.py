"""What a request on the command port costs."""

import contextlib
import shutil

import harness
import inputs
from measuring import OURS, Measurement, alternate, microseconds
from rows import measures
from sides import PORT, Clamd, Service, directory, home, program, running

ECHO, SCAN, LIMIT, CLAMD = "bare echo", "bare scan", "bare echo + bare scan", "clamd"
ECHO_PORT = 7007


def ask(protocol, address, sessions, count, expected, items):
    """Microseconds for each request."""
    return microseconds(program("request_client", protocol, address, sessions, count, expected, items)["whole"]) / count


def add_limit(results):
    """The sum of the two, in the place of each of them a further side."""
    results[LIMIT] = [echo + scan for echo, scan in zip(results[ECHO], results[SCAN])]
    return results


class Servers:
    """Ours, the bare echo and clamd, all of which wait while another is asked."""

    def __init__(self, with_peer, **settings):
        self._stack = contextlib.ExitStack()
        self._with_peer = with_peer
        self._settings = settings

    def __enter__(self):
        self._stack.enter_context(home())
        self._stack.enter_context(Service(**self._settings))
        self._stack.enter_context(running("bare_echo", ECHO_PORT, "CLEAN"))
        self._temporary = self._stack.enter_context(directory())
        self.peer = self._stack.enter_context(Clamd()) if self._with_peer else None
        return self

    def __exit__(self, *_):
        self._stack.close()

    def bare_scan(self, count, kind, items):
        result = program("bare_scan", harness.SIGNATURES, self._temporary, count, kind, items)
        return microseconds(result["whole"]) / count


def peer_wanted(scale):
    return not scale.is_quick and shutil.which("clamd") is not None


@measures("requests")
def requests(scale):
    count = scale.of(20000, 5000)
    measurements = []
    with Servers(peer_wanted(scale)) as servers:
        for what, path, ours, theirs in (("clean file of 2.6 KB", inputs.small_file(), "CLEAN", "OK"),
                                         ("EICAR file", inputs.infected_file(), "INFECTED", "FOUND")):
            items = inputs.listing("path", [path])
            for sessions in scale.of((1, 8), (1,)):
                sides = {
                    OURS: lambda: ask("scan", PORT, sessions, count, ours, items),
                    ECHO: lambda: ask("scan", ECHO_PORT, sessions, count, "CLEAN", items),
                    SCAN: lambda: servers.bare_scan(count, "file", items),
                }
                if servers.peer:
                    sides[CLAMD] = lambda: ask("clamd-scan", servers.peer.socket, sessions, count, theirs, items)
                results = add_limit(alternate(scale.runs, sides))
                measurement = Measurement(
                    f"{count} requests of a {what}, {sessions} session{'s' if sessions > 1 else ''}", "µs", results,
                    bare=LIMIT)
                if sessions == 1:
                    over = measurement.median() - measurement.median(LIMIT)
                    measurement.check("at most 15 µs over echo and scan", f"{over:.1f} µs", over <= 15)
                measurement.check_ahead(CLAMD)
                measurements.append(measurement)
    return measurements


@measures("url-text")
def url_text(scale):
    count = scale.of(20000, 5000)
    items = inputs.listing("urls", inputs.urls(count))
    with Servers(peer_wanted(scale)) as servers:
        sides = {
            OURS: lambda: ask("scanurl", PORT, 1, count, "CLEAN", items),
            ECHO: lambda: ask("scanurl", ECHO_PORT, 1, count, "CLEAN", items),
            SCAN: lambda: servers.bare_scan(count, "text", items),
        }
        if servers.peer:
            sides[CLAMD] = lambda: ask("clamd-instream", servers.peer.socket, 1, count, "OK", items)
        measurement = Measurement(f"{count} URLs, one session", "µs", add_limit(alternate(scale.runs, sides)),
                                  bare=LIMIT)
    measurement.check_ahead(CLAMD, 1.8)
    return [measurement]
