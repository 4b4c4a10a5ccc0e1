"""Another program on the port of the service."""

import contextlib
import socket
import struct
import threading

from commandclient import PORT


class Impostor:
    """Accepts everybody, and gives one reply after the other; the last one again and again.

    A reply may be a function of the request, which may take its time; None ends the connection.
    It belongs to the user who runs the tests, whom the tool believes as it does root.
    """

    def __init__(self, *replies):
        self.requests = []
        self._replies = list(replies)
        self._listener = socket.create_server(("127.0.0.1", PORT), reuse_port=False)
        self._connections = []
        threading.Thread(target=self._accept, daemon=True).start()

    def _accept(self):
        while True:
            try:
                connection, _ = self._listener.accept()
            except OSError:
                return
            self._connections.append(connection)
            threading.Thread(target=self._serve, args=[connection], daemon=True).start()

    def _serve(self, connection):
        replies = list(self._replies)
        while request := connection.recv(4096):
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
        self._listener.close()
        for connection in self._connections:
            connection.close()
