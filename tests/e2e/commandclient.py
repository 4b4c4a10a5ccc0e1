"""A client of the command port, as another module of the suite is one, and the lines that it causes."""

import os
import select
import socket
import struct
import zipfile

from harness import PORT, TIMEOUT, wait_until

REGISTERED = "REGISTERED!"
INVALID = "INVALID COMMAND!"

LISTENING = "INFO", "CSocketThread::runSocketListner", "Socket Listening"
BIND_FAILED = "ERROR", "CSocketThread::runSocketListner", "bind Failed!"
DISCONNECTED = "ERROR", "CClientThread::connectToSocket", "Client Disconnected or timeouted"


def connections(tv):
    """The lines of the clients that were accepted."""
    return [line for line in tv.log() if " - Connected on socket. - " in line.message]


def descriptor_of(line):
    return int(line.message.rpartition(" ")[2])


def told(message, level="INFO"):
    """A line that the service wrote while it served a request."""
    return level, "CSocketManager::onClientReceivedMessage", message


class Client:
    """A connection; with `module`, a registered one."""

    def __init__(self, module=None, receive_buffer=None, timeout=TIMEOUT):
        self._timeout = timeout
        self.socket = wait_until(lambda: self._try_to_connect(receive_buffer), "the port to be open")
        if module is not None:
            assert self.ask(f"MODULE {module}") == REGISTERED

    def _try_to_connect(self, receive_buffer):
        connection = socket.socket()
        connection.settimeout(self._timeout)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        if receive_buffer is not None:
            connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        try:
            connection.connect(("127.0.0.1", PORT))
        except ConnectionRefusedError:
            connection.close()
            return None
        return connection

    def send(self, request):
        self.socket.sendall(request if isinstance(request, bytes) else os.fsencode(str(request)))

    def receive(self):
        """What comes next: a reply, or several when they wait already; empty at the end of the connection."""
        return os.fsdecode(self.socket.recv(65536))

    def receive_all_of(self, replies):
        """Reads as much as the replies take, which nothing separates, and returns it."""
        text = ""
        while len(text) < len(replies):
            piece = self.receive()
            assert piece, f"the connection ended after {text!r}"
            text += piece
        return text

    def ask(self, request):
        self.send(request)
        return self.receive()

    def has_input(self):
        return bool(select.select([self.socket], [], [], 0)[0])

    def close(self):
        self.socket.close()

    def reset(self):
        """Ends the connection at once, without the farewell that TCP has for it."""
        if self.socket.fileno() >= 0:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.socket.close()


def make_slow_file(path):
    # An archive is slow to look into and quick to make when its members are all the same.
    member = bytes(1 << 20)
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED, compresslevel=1) as archive:
        for number in range(90):
            archive.writestr(str(number), member)
    return path


def is_open(tv, path):
    """Whether the service has the file open: it is being scanned."""
    return str(path) in tv.descriptors().values()


def start_slow_scan(tv, client, path):
    """Returns while the service is busy with the scan that the client asked for."""
    client.send(f"SCAN {path}")
    wait_until(lambda: is_open(tv, path), "the scan to begin")


def seconds_of(line):
    """The time of day of a line of the log."""
    hours, minutes, seconds, milliseconds = line.time.split(" ")[1].split(":")
    return int(hours) * 3600 + int(minutes) * 60 + int(seconds) + int(milliseconds) / 1000
