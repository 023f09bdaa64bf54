"""Who looks, in a browser, on a phone or by a program, and holds what comes."""

import http.client
import io
import json
import random
import re
import subprocess
import time
import urllib.parse
import zipfile

import pictures
from actor import Actor, PASSWORD, connect, sign_in

NUMBERS = 256  # pictures that can be told apart; a reader would have to miss half of them to lose count


def read_number(jpeg):
    """The number that a picture shows; None when it is none of the phones' pictures."""
    shown = subprocess.run(["djpeg", "-pnm"], input=jpeg, check=True, stdout=subprocess.PIPE).stdout
    head = re.match(rb"P6\s(\d+)\s(\d+)\s255\s", shown)
    if head is None:
        return None
    width, height = int(head[1]), int(head[2])

    def sample(x, y):
        at = head.end() + 3 * (int(y * height) * width + int(x * width / pictures.WIDTH))
        return shown[at : at + 3]

    left, right = sample(10, 0.75), sample(pictures.WIDTH - 10, 0.75)
    if left[2] < left[0] + 60 or right[0] < right[2] + 60:
        return None
    levels = [sample((bit + 0.5) * pictures.BAR, 0.25)[1] for bit in range(pictures.BITS)]
    return sum((level > 127) << bit for bit, level in enumerate(levels))


class Reader(Actor):
    """Watches one camera as motion JPEG and holds the order of its pictures: a watcher may skip, never go back.

    A stream that has begun goes on, whatever the host lacks.
    """

    pause = 0.1

    def __init__(self, soak, camera):
        super().__init__(soak)
        self.camera, self.seen, self.last = camera, 0, None

    def connection(self):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=15)

    def turn(self):
        connection = self.connection()
        try:
            connection.request("GET", f"/live/{self.camera}", headers=sign_in("guard", PASSWORD))
            answer = connection.getresponse()
            assert answer.status == 200, f"/live answers {answer.status}"
            boundary = b"--" + answer.headers.get_boundary().encode()
            end = time.monotonic() + random.uniform(5, 30)
            pending = b""
            while time.monotonic() < end and not self.stopped.is_set():
                try:
                    chunk = answer.read1(65536)
                except OSError as failure:
                    self.failures.append(f"the stream of {self.camera} failed: {failure!r}")
                    return
                if not chunk:
                    self.failures.append(f"the stream of {self.camera} ended")
                    return
                pending += chunk
                *parts, pending = pending.split(boundary)
                for part in parts:
                    if jpeg := part.partition(b"\r\n\r\n")[2]:
                        self.look(jpeg)
        finally:
            connection.close()

    def look(self, jpeg):
        number = read_number(jpeg)
        if number is None:
            return
        # A stream begins with the newest picture, which the last one may have shown already.
        step = 0 if self.last is None else (number - self.last) % NUMBERS
        if step > NUMBERS // 2:
            self.failures.append(f"{self.camera} went from {self.last} to {number}")
        self.last = number
        self.seen += 1


class SecureReader(Reader):
    """The same over TLS."""

    def connection(self):
        return http.client.HTTPSConnection("127.0.0.1", self.port, timeout=15, context=self.soak.context)


class LookerBack(Actor):
    """Looks at what was recorded: at a moment, and at a part as pictures."""

    def __init__(self, soak):
        super().__init__(soak)
        self.seen = 0

    def fetch(self, path):
        """None where it is not there: what is old goes while one looks at it."""
        status, body, _ = self.request("GET", path, "guard", PASSWORD)
        assert status in (200, 404), f"{path} answers {status}"
        return body if status == 200 else None

    def turn(self):
        camera = random.choice(self.soak.recorded)
        told = self.fetch(f"/api/v1/recordings/{camera}")
        spans = json.loads(told)["spans"] if told else []
        if not spans:
            return
        begin, end = random.choice(spans)
        moment = random.randint(begin, end)
        jpeg = self.fetch(f"/recordings/{camera}/at.jpg?t={moment}")
        if jpeg is not None:
            assert read_number(jpeg) is not None, f"what was recorded of {camera} is none of its pictures"
            self.seen += 1
        saved = self.fetch(f"/recordings/{camera}/export?form=zip&from={moment}&to={moment + 3000}")
        if saved is not None:
            with zipfile.ZipFile(io.BytesIO(saved)) as archive:
                assert archive.testzip() is None and archive.namelist(), "a part of the recordings is damaged"


class Viewer(Actor):
    """A viewing phone, with a picture a moment later where it asked for one."""

    def turn(self):
        out = subprocess.run(
            [self.soak.phone, "view", "--server", f"127.0.0.1:{self.port}", "--login", "guard", "--password", PASSWORD,
             "--source", random.choice(self.soak.healthy + ["clock"]), "--params", "width=176&height=144&fps=5",
             "--frames", str(random.randint(1, 25)), "--no-reconnect"],
            capture_output=True, text=True, timeout=60, check=False)
        assert out.returncode == 0, out.stderr.strip() or out.stdout.strip()


class Page(Actor):
    """One source in a browser: a WebSocket that acknowledges each picture before it gets the next one."""

    def turn(self):
        with connect(self.port) as socket_:
            head = "".join(f"{name}: {value}\r\n" for name, value in sign_in("guard", PASSWORD).items())
            socket_.sendall((f"GET /view/{random.choice(self.soak.healthy)} HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\n"
                             "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                             f"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n{head}\r\n").encode())
            stream = socket_.makefile("rb")
            status = stream.readline()
            assert b" 101 " in status, f"/view answers {status!r}"
            while stream.readline().strip():
                pass
            self.say(socket_, "set width=176&height=144&fps=10")
            pictures_seen = 0
            while pictures_seen < 20 and not self.stopped.is_set():
                kind, size = stream.read(2)
                if size > 125:
                    size = int.from_bytes(stream.read(2 if size == 126 else 8), "big")
                message = stream.read(size)
                if kind & 15 == 2:
                    pictures_seen += 1
                    self.say(socket_, f"ack {int.from_bytes(message[16:20], 'little')}")

    @staticmethod
    def say(socket_, text):
        socket_.sendall(bytes([0x81, 0x80 | len(text), 0, 0, 0, 0]) + text.encode())


class Browser(Actor):
    """Snapshots, pages, and what a monitor asks for."""

    def turn(self):
        path = random.choice([f"/snapshot/{self.soak.healthy[0]}.jpg", "/", "/metrics", "/health", "/mobile"])
        status, body, _ = self.request("GET", path, "guard", PASSWORD)
        assert status == 200 and body, f"{path} answers {status}"


class SecureBrowser(Actor):
    """Signs in by the form over TLS, goes from page to page with the cookie, and signs out again."""

    pause = 1.0

    def ask(self, connection, method, path, headers, form=None):
        body = urllib.parse.urlencode(form) if form is not None else None
        connection.request(method, path, body, {"Origin": f"https://127.0.0.1:{self.port}", **headers})
        answer = connection.getresponse()
        return answer.status, answer.read(), answer.headers

    def turn(self):
        connection = http.client.HTTPSConnection("127.0.0.1", self.port, timeout=20, context=self.soak.context)
        try:
            status, _, headers = self.ask(connection, "POST", "/sign-in", {}, {"name": "guard", "password": PASSWORD})
            assert status == 303, f"the sign-in answers {status}"
            cookie = {"Cookie": headers["Set-Cookie"].split(";")[0]}
            for path in random.sample(["/", "/health", f"/snapshot/{self.soak.healthy[0]}.jpg", "/tiny", "/assets/live/app.js"], 3):
                status, body, _ = self.ask(connection, "GET", path, cookie)
                assert status == 200 and body, f"{path} answers {status}"
            status, _, _ = self.ask(connection, "POST", "/sign-out", cookie, {})
            assert status == 303, f"the sign-out answers {status}"
            status, _, _ = self.ask(connection, "GET", "/health", cookie)
            assert status == 401, f"a session that has ended gets {status}"
        finally:
            connection.close()


class Downloader(Actor):
    """Midlets for phones: each a whole archive with the phone's own sign-in."""

    pause = 1.0

    def turn(self):
        try:
            self.download(random.choice(self.soak.healthy))
        except AssertionError:
            self.soak.seen["archives without a sign-in"] += 1
            raise

    def download(self, camera):
        status, body, _ = self.request("GET", "/mobile/Sendora.jar?JarName=Soak", camera, PASSWORD)
        assert status == 200, f"the archive answers {status}"
        try:
            archive = zipfile.ZipFile(io.BytesIO(body))
            assert archive.testzip() is None, "the archive is damaged"
            manifests = [name for name in archive.namelist() if name.upper() == "META-INF/MANIFEST.MF"]
            assert len(manifests) == 1, f"the archive has {len(manifests)} manifests"
            assert PASSWORD.encode() in archive.read(manifests[0]), "the manifest has no password"
        except zipfile.BadZipFile:
            raise AssertionError(f"no archive in {len(body)} bytes") from None
