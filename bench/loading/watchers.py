"""Many readers of motion JPEG in one process, in clear or over TLS, of this host or of another.

A program of its own, so that what it costs is no part of what is measured: it says "in" when all have their streams, reads
until SIGTERM, and then prints what each of them got, as JSON: {"pictures": [of each], "bytes": in all, "lost": streams}.
"""

import argparse
import json
import resource
import select
import signal
import socket
import ssl
from concurrent.futures import ThreadPoolExecutor

MARK = b"ype: image/jpeg\r\n"  # in the head of a part, "Content-Type" or "-type"; a picture ends where the next one begins
CHUNK = 65536
AT_ONCE = 32


class Watcher:
    def __init__(self, port, path, authorization, context):
        connection = socket.create_connection(("127.0.0.1", port), timeout=60)
        self.connection = context.wrap_socket(connection, server_hostname="localhost") if context else connection
        self.connection.sendall(f"GET {path} HTTP/1.1\r\nHost: localhost:{port}\r\nAuthorization: {authorization}\r\n\r\n".encode())
        self.tail = b""
        while MARK not in self.tail:
            got = self.connection.recv(CHUNK)
            if not got or (len(self.tail) > 12 and not self.tail.startswith(b"HTTP/1.1 200 ")):
                raise SystemExit(f"watchers: no stream of {path}: {self.tail[:200]!r}")
            self.tail += got
        self.tail = self.tail[self.tail.index(MARK) + len(MARK):]
        self.pictures = self.tail.count(MARK)
        self.connection.setblocking(False)

    def read(self):
        """What has come; its bytes, or None at the end of the stream."""
        got = 0
        while True:
            try:
                data = self.connection.recv(CHUNK)
            except (BlockingIOError, ssl.SSLWantReadError):
                return got
            except OSError:
                return None
            if not data:
                return None
            got += len(data)
            seen = self.tail[-len(MARK) + 1:] + data
            self.pictures += seen.count(MARK)
            self.tail = data if len(data) >= len(MARK) else seen


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("--port", type=int, required=True)
    parser.add_argument("--watchers", type=int, required=True)
    parser.add_argument("--authorization", required=True, help="the value of that header field")
    parser.add_argument("--authority", help="a certificate: over TLS, and the server's is to be of this one")
    parser.add_argument("paths", nargs="+", help="of cameras, shared out among the watchers")
    given = parser.parse_args()
    most = resource.getrlimit(resource.RLIMIT_NOFILE)[1]
    resource.setrlimit(resource.RLIMIT_NOFILE, (most, most))
    context = ssl.create_default_context(cafile=given.authority) if given.authority else None

    ended = []
    signal.signal(signal.SIGTERM, lambda *_: ended.append(True))
    watchers, poll = {}, select.epoll()
    total, lost = 0, 0

    def read(seconds):
        nonlocal total, lost
        for descriptor, _ in poll.poll(seconds):
            got = watchers[descriptor].read()
            if got is None:
                lost += 1
                poll.unregister(descriptor)
            else:
                total += got

    # Some servers take a second for the first picture of each.
    with ThreadPoolExecutor(AT_ONCE) as pool:
        for watcher in pool.map(lambda number: Watcher(given.port, given.paths[number % len(given.paths)], given.authorization, context),
                                range(given.watchers)):
            watchers[watcher.connection.fileno()] = watcher
            poll.register(watcher.connection, select.EPOLLIN)
            read(0)  # who came first has pictures while the others come
    for watcher in watchers.values():
        watcher.pictures = 0
    total = 0
    print("in", flush=True)
    while not ended:
        read(0.2)
    print(json.dumps({"pictures": [watcher.pictures for watcher in watchers.values()], "bytes": total, "lost": lost}))


if __name__ == "__main__":
    main()
