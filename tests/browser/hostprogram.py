"""The real host as a child process, on a free port and in a data folder of its own."""

import base64
import json
import os
import signal
import socket
import subprocess
import time
import urllib.error
import urllib.request

READY_SECONDS = 30  # an instrumented host on a loaded machine takes its time


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def wait(what, look, seconds=60):
    """Returns what `look()` gives once it gives something; the time is that of a sanitized host on a loaded machine."""
    deadline = time.monotonic() + seconds
    while True:
        seen = look()
        if seen:
            return seen
        if time.monotonic() > deadline:
            raise AssertionError(f"{what} did not come")
        time.sleep(0.02)


class Host:
    """Starts and ends `program`; the folder and the port stay the same over restarts."""

    def __init__(self, program, folder, arguments=()):
        self.program, self.folder, self.arguments = program, folder, list(arguments)
        self.port = free_port()
        self.listen = f"127.0.0.1:{self.port}"
        self.process = None
        self.log = open(os.path.join(folder, "host.log"), "ab")
        self.data = os.path.join(folder, "data")
        os.makedirs(self.data, exist_ok=True)

    @property
    def demo(self):
        return "--demo" in self.arguments

    def write_cameras(self, names, password, size="160x120"):
        with open(os.path.join(self.data, "cameras"), "w", encoding="utf-8") as file:
            for name in names:
                file.write(f"{name}\t{size}\t{password}\n")

    def add_phones(self, logins, password):
        users = os.path.join(self.folder, "new-users")
        with open(users, "w", encoding="utf-8") as file:
            for login in logins:
                file.write(f"{login}\tphone\t{password}\n")
        subprocess.run(
            [self.program, "--data", self.data, "--add-users", users],
            check=True, stdout=self.log, stderr=self.log, timeout=READY_SECONDS,
        )

    def start(self, **options):
        """`options` are those of Popen."""
        command = [self.program, "--listen", self.listen, "--data", self.data, *self.arguments]
        self.process = subprocess.Popen(command, stdout=self.log, stderr=self.log, stdin=subprocess.DEVNULL, **options)
        self.wait_ready()

    def wait_ready(self):
        """Returns when the host answers; raises when it ends or stays silent instead."""
        deadline = time.monotonic() + READY_SECONDS
        while True:
            if self.process.poll() is not None:
                raise RuntimeError(f"the host ended with status {self.process.returncode}:\n{self.log_tail()}")
            try:
                self.health()
                return
            except (OSError, urllib.error.URLError):
                if time.monotonic() > deadline:
                    raise RuntimeError(f"the host does not answer:\n{self.log_tail()}") from None
                time.sleep(0.02)

    def health(self):
        return json.loads(self.fetch("/health"))

    def fetch(self, path, method="GET", told=None):
        """`told` goes along as JSON."""
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}", method=method)
        if told is not None:
            request.data = json.dumps(told).encode()
            request.add_header("Content-Type", "application/json")
        if not self.demo:
            credentials = base64.b64encode(f"admin:{self.admin_password()}".encode()).decode()
            request.add_header("Authorization", f"Basic {credentials}")
        with urllib.request.urlopen(request, timeout=5) as answer:
            return answer.read()

    def admin_password(self):
        with open(os.path.join(self.data, "admin-password"), encoding="utf-8") as file:
            return file.read().strip()

    def address(self, path="/"):
        """For the browser, with the sign-in in it where one is needed."""
        sign_in = "" if self.demo else f"admin:{self.admin_password()}@"
        return f"http://{sign_in}127.0.0.1:{self.port}{path}"

    def kill(self):
        self.process.kill()
        self.process.wait()

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)

    def stop(self):
        """Asks the host to end; returns its exit status."""
        self.process.terminate()
        try:
            return self.process.wait(timeout=READY_SECONDS)
        except subprocess.TimeoutExpired:
            self.kill()
            raise RuntimeError(f"the host did not end when it was asked to:\n{self.log_tail()}") from None

    def close(self):
        if self.process is not None and self.process.poll() is None:
            self.thaw()
            self.kill()
        self.log.close()

    def log_tail(self):
        self.log.flush()
        with open(self.log.name, encoding="utf-8", errors="replace") as file:
            return file.read()[-4000:]
