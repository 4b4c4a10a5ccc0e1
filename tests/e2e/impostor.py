"""Another program on the port of the service."""

import contextlib
import os
import re
import socket
import struct
import threading

from commandclient import PORT


_HANDED_OVER = re.compile(rb"([A-Z]+ )(/proc/\d+/fd/\d+)((?:/.*)?)", re.DOTALL)
# What the tool lets the service read to find out whether it can.
_PROBE = b"/memfd:tvctl"


def resolved(request):
    """The request with the path that something has which is handed over open, as it is now."""
    match = _HANDED_OVER.fullmatch(request)
    try:
        return match[1] + os.readlink(match[2]) + match[3] if match else request
    except OSError:
        # Longer than any call takes.
        return request


class Impostor:
    """Accepts everybody, and gives one reply after the other; the last one again and again.

    A reply may be a function of the request, which may take its time; None ends the connection. `requests` and
    what such a function is given name real paths, also of what is handed over open; the tool's question whether
    that can be done is answered aside, with `reaches` as the service does that can.
    It belongs to the user who runs the tests, whom the tool believes as it does root, or to `user`.
    """

    def __init__(self, *replies, reaches=True, user=None):
        self.requests = []
        self._reaches = reaches
        self._replies = list(replies)
        self._listener = socket.create_server(("127.0.0.1", PORT), reuse_port=False)
        if user is not None:
            os.fchown(self._listener.fileno(), user, user)
        self._connections = []
        self._accepting = threading.Thread(target=self._accept, daemon=True)
        self._accepting.start()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            threading.Thread(target=self._serve, args=[connection], daemon=True).start()

    def _serve(self, connection):
        # Closed by the test meanwhile.
        with contextlib.suppress(OSError):
            self._answer(connection)

    def _answer(self, connection):
        replies = list(self._replies)
        while request := connection.recv(4096):
            told, request = request, resolved(request)
            if request.startswith(b"SCAN " + _PROBE):
                if self._reaches:
                    with open(told.partition(b" ")[2], "rb") as probe:
                        probe.read()
                connection.sendall(b"CLEAN" if self._reaches else b"ERROR 8")
                continue
            self.requests.append(request)
            reply = replies.pop(0) if len(replies) > 1 else replies[0]
            if callable(reply):
                reply = reply(request)
            if reply is None:
                # At once, so that nothing of the connection is in the way of the service.
                with contextlib.suppress(OSError):
                    connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                connection.close()
                return
            connection.sendall(reply.encode())

    def close(self):
        """Also more than once."""
        if self._listener.fileno() < 0:
            return
        # Ends a blocked accept, which closing alone would not.
        self._listener.shutdown(socket.SHUT_RDWR)
        # The port is taken for as long as the accept is on its way out.
        self._accepting.join()
        self._listener.close()
        for connection in self._connections:
            connection.close()
