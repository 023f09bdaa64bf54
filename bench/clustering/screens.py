"""Watchers of motion JPEG in a thread, each of which knows which picture it is shown.

The phones send numbered pictures (tests/browser/pictures.py) in turn. A host sends on what a phone has sent but for its header, so the
entropy-coded data tells the number.
"""

import os
import select
import threading
import time

import pictures

SILENCE = 5  # a stream that sends nothing for so long is opened anew, in seconds
AGAIN = 0.2
HEAD = b"HTTP/1.1 200 "
NEXT_PART = b"\r\n--morrowstream-picture\r\nContent-Type: image/jpeg\r\n\r\n"
STALE = 3.0  # a picture older than that is not shown as live; with a second for what the machine adds
GRACE = 1.0


def numbered(folder, count):
    """Writes the pictures 0 to `count` - 1, and returns what tells them."""
    os.makedirs(folder)
    known = {}
    for number in range(count):
        jpeg = pictures.coded_jpeg(number)
        known[scan_of(jpeg)] = number
        with open(os.path.join(folder, f"{number:04}.jpg"), "wb") as file:
            file.write(jpeg)
    assert len(known) == count
    return known


def scan_of(jpeg):
    return hash(jpeg[jpeg.rfind(b"\xff\xda"):])


class Screen:
    """One watcher; what it has seen stands in `seen`, (time, number), without pictures that say that there is none."""

    def __init__(self, camera, place, connect, judged=True):
        self.judged = judged  # whether its pictures are those of one phone
        self.camera, self.place, self.connect = camera, place, connect
        self.seen = []
        self.socket, self.buffer, self.streams = None, b"", False
        self.heard, self.due, self.last = 0.0, 0.0, None

    def longest_gap(self, begin, end):
        """The longest time without a new picture, in seconds."""
        at = [moment for moment, _ in self.seen if begin - 3 <= moment <= end]
        edges = [max([moment for moment in at if moment <= begin], default=begin), *[moment for moment in at if moment > begin], end]
        return max(later - earlier for earlier, later in zip(edges, edges[1:]))


class Screens:
    """All of them. `wrong` tells what must not be: pictures that went back, and old ones that were shown as live."""

    def __init__(self, known, token):
        self.known, self.count = known, len(known)
        self.head = f"Host: localhost\r\nAuthorization: Bearer {token}\r\n\r\n"
        self.screens, self.wrong = [], []
        self.first_seen = {}  # (camera, number): when any screen was first shown it
        self.poll, self.by_descriptor = select.epoll(), {}
        self.ended = threading.Event()
        self.thread = threading.Thread(target=self.run, daemon=True)

    def add(self, camera, place, connect, judged=True):
        self.screens.append(Screen(camera, place, connect, judged))
        return self.screens[-1]

    def start(self):
        self.thread.start()

    def close(self):
        self.ended.set()
        self.thread.join()

    def run(self):
        looked = 0.0
        while not self.ended.is_set():
            for descriptor, _ in self.poll.poll(0.05):
                screen = self.by_descriptor.get(descriptor)
                if screen is not None:
                    self.happened(screen)
            now = time.monotonic()
            if now - looked > 0.1:
                looked = now
                for screen in self.screens:
                    if screen.socket is None and now >= screen.due:
                        self.open(screen, now)
                    elif screen.socket is not None and now - screen.heard > SILENCE:
                        self.shut(screen, now)

    def open(self, screen, now):
        try:
            screen.socket = screen.connect()
            screen.socket.sendall(f"GET /live/{screen.camera} HTTP/1.1\r\n{self.head}".encode())
        except OSError:
            self.shut(screen, now)
            return
        screen.socket.setblocking(False)
        screen.buffer, screen.streams, screen.heard = b"", False, now
        screen.last = None  # another stream may be another host's, which had the camera's newest picture a moment ago
        self.by_descriptor[screen.socket.fileno()] = screen
        self.poll.register(screen.socket, select.EPOLLIN)

    def shut(self, screen, now):
        if screen.socket is not None:
            self.by_descriptor.pop(screen.socket.fileno(), None)
            screen.socket.close()
        screen.socket, screen.due = None, now + AGAIN

    def happened(self, screen):
        now = time.monotonic()
        try:
            data = screen.socket.recv(262144)
        except BlockingIOError:
            return
        except OSError:
            data = b""
        if not data:
            self.shut(screen, now)
            return
        screen.heard = now
        screen.buffer += data
        if not screen.streams and not HEAD.startswith(screen.buffer[:len(HEAD)]):
            self.shut(screen, now)  # refused
            return
        *shown, screen.buffer = screen.buffer.split(NEXT_PART)
        for picture in shown:  # the first one with the head of the answer before it
            screen.streams = True
            self.show(screen, self.known.get(scan_of(picture)), now)

    def show(self, screen, number, now):
        if number is None or number == screen.last:
            return
        if not screen.judged:
            screen.seen.append((now, number))
            return
        if screen.last is not None and 0 < (screen.last - number) % self.count < self.count // 2:
            self.wrong.append(f"{screen.camera} went back from picture {screen.last} to {number} at {screen.place}")
        screen.last = number
        key = screen.camera, number
        first = self.first_seen.get(key)
        if first is None or now - first > 30:  # the phone begins anew behind the last of its pictures
            self.first_seen[key] = first = now
        if now - first > STALE + GRACE:
            self.wrong.append(f"picture {number} of {screen.camera} was shown at {screen.place} {now - first:.1f} s after another host had it")
        screen.seen.append((now, number))


def connect_to(network, address, machine=None):
    return lambda: network.connect(address, machine, timeout=2)


def percentile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))] if ordered else float("nan")

