"""Another program on the port of the service."""

import socket
import threading

from commandclient import PORT


class Impostor:
    """Accepts everybody, and gives one reply after the other; the last one again and again.

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
            connection.sendall((replies.pop(0) if len(replies) > 1 else replies[0]).encode())

    def close(self):
        # Ends a blocked accept, which closing alone would not.
        self._listener.shutdown(socket.SHUT_RDWR)
        self._listener.close()
        for connection in self._connections:
            connection.close()
