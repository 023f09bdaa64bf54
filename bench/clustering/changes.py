"""Somebody who changes settings all the time, at every host in turn, and remembers what was confirmed."""

import itertools
import json
import threading
import time

KEPT = 20  # cameras that are there at a time
BODY = b'{"type":"160x120","password":"long enough"}'


class Changes:
    """Adds a camera, and removes one of more than twenty, for as long as it runs. With `names` as many come again and again:
    a bucket keeps what was removed for a week, so new ones all the time make hosts and servers of NATS grow."""

    def __init__(self, hosts, every, names=None):
        self.hosts, self.every = hosts, every
        self.numbers = itertools.cycle(range(names)) if names else itertools.count()
        self.confirmed, self.refused, self.late = 0, 0, 0
        self.there, self.unknown, self.wrong = set(), set(), []
        self.ended, self.lock = threading.Event(), threading.Lock()
        self.thread = threading.Thread(target=self.run, daemon=True)

    def start(self):
        self.thread.start()

    def close(self):
        self.ended.set()
        self.thread.join()

    def run(self):
        host = itertools.cycle(self.hosts)
        for number in self.numbers:
            self.change(next(host), f"set{number:05}", "PUT")
            if len(self.there) > KEPT:
                self.change(next(host), min(self.there), "DELETE")
            if self.ended.wait(self.every):
                return

    def change(self, host, name, method):
        with self.lock:
            try:
                status = host.ask("/api/v1/cameras/" + name, method, BODY if method == "PUT" else None, timeout=10)[0]
            except OSError:
                status = 0  # the host died over it
            if status in (200, 201, 204):
                self.confirmed += 1
                (self.there.add if method == "PUT" else self.there.discard)(name)
                self.unknown.discard(name)
            elif status >= 500 or status == 0:  # not written, or not known to be
                self.refused += status != 0
                self.unknown.add(name)
                self.there.discard(name)
            elif status == 404 and method == "DELETE":  # a host that was cut off, and has not heard of the camera yet
                self.late += 1
            else:
                self.wrong.append(f"{method} of {name} at {host.listen} was answered {status}")

    def compare(self, within):
        """How long it took until all hosts had the same; what is wrong behind that time."""
        begin = time.monotonic()
        with self.lock:
            while True:
                wrong, alike = list(self.wrong), []
                for host in self.hosts:
                    try:
                        cameras = json.loads(host.ask("/api/v1/cameras")[1])["cameras"]
                    except (OSError, ValueError) as error:
                        wrong.append(f"{host.listen} does not tell its cameras: {error}")
                        continue
                    alike.append(sorted((camera["name"], camera["type"]) for camera in cameras))
                    names = {camera["name"] for camera in cameras if camera["name"].startswith("set")} - self.unknown
                    if names != self.there:
                        wrong.append(f"{host.listen} lacks {sorted(self.there - names)} and has {sorted(names - self.there)} too much")
                if any(one != alike[0] for one in alike):
                    wrong.append("the hosts' settings differ")
                took = time.monotonic() - begin
                if not wrong or took > within:
                    return took, wrong
                time.sleep(0.1)
