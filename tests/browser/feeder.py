"""A phone in a thread: it knows to the microsecond when each of its pictures left."""

import base64
import socket
import struct
import threading
import time
import urllib.parse

RECORD_BYTES = 131
PASSWORD_OFFSET = 67
SUCCESS = 0
FRAME_DESCRIPTOR = 4


class Feeder(threading.Thread):
    """Sends `pictures` in turn, `rate` a second, within the grants; connects again whenever the connection ends.

    `wrap` makes of a connection the one that is talked on, for TLS. `sent` maps an index into `pictures` to the Unix time, in seconds, at which it was last handed to the kernel.
    """

    def __init__(self, port, login, password, pictures, rate, wrap=None):
        super().__init__(daemon=True)
        self.port, self.login, self.password = port, login, password
        self.pictures, self.rate = pictures, rate
        self.wrap = wrap or (lambda connection: connection)
        self.sent = {}
        self.frames = 0
        self.failure = None  # why the last connection ended
        self.comes_back = True  # behind the end of a connection
        self._stop_asked = threading.Event()
        self._sending = threading.Event()
        self._sending.set()

    def pause(self):
        """Stays connected, but sends nothing."""
        self._sending.clear()

    def stop(self):
        self._stop_asked.set()
        self.join()

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.stop()

    def run(self):
        while not self._stop_asked.is_set():
            try:
                with socket.create_connection(("127.0.0.1", self.port), timeout=5) as connection:
                    with self.wrap(connection) as talk:
                        self._converse(talk)
            except OSError as failure:
                self.failure = failure
            if not self.comes_back:
                break
            self._stop_asked.wait(0.2)

    def _converse(self, connection):
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        credentials = base64.b64encode(f"{self.login}:{self.password}".encode()).decode()
        head = f"POST /mobile/video/{urllib.parse.quote(self.login)} HTTP/1.1\r\nAuthorization: Basic {credentials}\r\n\r\n"
        record = bytearray(RECORD_BYTES)
        password = self.password.encode()
        record[PASSWORD_OFFSET : PASSWORD_OFFSET + len(password)] = password
        connection.sendall(head.encode() + record)
        answer = connection.recv(1)
        if answer != bytes([SUCCESS]):
            raise OSError(f"{self.login} was refused: {answer!r}")
        connection.sendall(struct.pack("<H", 0))  # every body is a whole picture

        credit = 0
        due = time.monotonic()
        while not self._stop_asked.is_set():
            # Listening between two pictures takes the grants, and notices the end of the connection.
            if credit == 0:
                connection.settimeout(5)
            elif self._sending.is_set():
                connection.settimeout(min(max(due - time.monotonic(), 0.0001), 0.2))
            else:
                connection.settimeout(0.05)
            try:
                grants = connection.recv(16)
                if not grants:
                    raise OSError("the host closed the connection")
                credit += sum(grants)
                continue
            except TimeoutError:
                if credit == 0:
                    raise
            if time.monotonic() < due or not self._sending.is_set():
                continue
            index = self.frames % len(self.pictures)
            picture = self.pictures[index]
            self.sent[index] = time.time()
            connection.settimeout(5)
            connection.sendall(struct.pack("<BH", FRAME_DESCRIPTOR, len(picture)) + picture)
            self.frames += 1
            credit -= 1
            due = max(due + 1 / self.rate, time.monotonic())
