"""What all who work on the host during a soak have in common. Each is a thread."""

import base64
import http.client
import random
import socket
import threading

import feeder

PASSWORD = "soak"


def connect(port, address="127.0.0.1", timeout=5):
    """To the host, from one of this machine's many loopback addresses."""
    return socket.create_connection(("127.0.0.1", port), timeout=timeout, source_address=(address, 0))


def sign_in(user, password):
    return {"Authorization": "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()}


def record(password):
    block = bytearray(feeder.RECORD_BYTES)
    block[feeder.PASSWORD_OFFSET : feeder.PASSWORD_OFFSET + len(password)] = password.encode()
    return bytes(block)


def head(start, login, password, more=""):
    lines = "".join(f"{name}: {value}\r\n" for name, value in sign_in(login, password).items())
    return f"{start} HTTP/1.1\r\nHost: localhost\r\n{lines}{more}\r\n".encode()


def first_bytes(port, address, sent, count=12):
    """What the host says first, empty when it just closes."""
    with connect(port, address, 30) as peer:
        try:
            peer.sendall(sent)
            return peer.recv(count)
        except ConnectionError:
            return b""


class Actor(threading.Thread):
    """Takes turns until it is stopped. What surprises it is kept in `failures`."""

    pause = 0.5
    excused = True  # while the host lacks something: its answers may be refusals then

    def __init__(self, soak):
        super().__init__(daemon=True, name=type(self).__name__)
        self.soak, self.port = soak, soak.host.port
        self.turns = 0
        self.failures = []
        self.stopped = threading.Event()

    def run(self):
        while not self.stopped.wait(self.pause * random.uniform(0.5, 1.5)):
            faults = self.soak.faults_so_far()
            try:
                self.turn()
                self.turns += 1
            except Exception as failure:  # whatever it is, the run goes on and tells of it
                lacking = faults != self.soak.faults_so_far() or self.soak.in_fault()
                if not self.stopped.is_set() and not (self.excused and lacking):
                    self.failures.append(f"{self.name}: {failure!r}")

    def stop(self):
        self.stopped.set()

    def request(self, method, path, user, password, body=None, headers=None, timeout=20):
        """Status, body and header lines of one request on a connection of its own."""
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)
        try:
            connection.request(method, path, body, {**sign_in(user, password), **(headers or {})})
            answer = connection.getresponse()
            return answer.status, answer.read(), answer.headers
        finally:
            connection.close()

    def admin(self, method, path, **more):
        return self.request(method, path, "admin", self.soak.host.admin_password(), **more)
