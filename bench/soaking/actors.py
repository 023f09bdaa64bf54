"""Who works on the host during a soak: phones, people, and those who mean it harm. Each is a thread."""

import base64
import copy
import http.client
import io
import json
import os
import random
import re
import shutil
import signal
import socket
import ssl
import struct
import subprocess
import threading
import time
import urllib.parse
import zipfile
from xml.etree import ElementTree

import feeder
import pictures
import random_requests

NUMBERS = 256  # pictures that can be told apart; a reader would have to miss half of them to lose count
PASSWORD = "soak"


def connect(port, address="127.0.0.1", timeout=5):
    """To the host, from one of this machine's many loopback addresses."""
    return socket.create_connection(("127.0.0.1", port), timeout=timeout, source_address=(address, 0))


def sign_in(user, password):
    return {"Authorization": "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()}


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


class Administrator(Actor):
    """Adds and removes a camera that nobody uses."""

    pause = 1.0

    def turn(self):
        token = re.search(rb'"token":"([^"]+)"', self.admin("GET", "/settings/state")[1])[1].decode()
        status, text, headers = self.admin("GET", "/settings/document")
        assert status == 200, f"the settings answer {status}"
        root = ElementTree.fromstring(text)
        cameras = root.find("cams")
        aside = [item for item in cameras if item.findtext("Name") == "aside"]
        for item in aside:
            cameras.remove(item)
        if not aside:
            cameras.append(copy.deepcopy(root.find("addcam/item")))
            cameras[-1].find("Name").text = "aside"
        status, body, headers = self.admin("PUT", "/settings/document", body=ElementTree.tostring(root),
                                           headers={"X-Settings-Token": token, "If-Match": headers["ETag"]})
        if status == 412:  # the programmer was faster
            return
        assert status == 200, f"a change answers {status} {body[:200]}"
        if headers.get("X-Settings-Written") == "no":
            self.soak.seen["changes that were not written"] += 1
            assert self.soak.in_fault(), "a change was not written though there is room"


class Reconnector(Actor):
    """A phone with bad coverage: signs in, sends a few pictures, and is gone, in order or not."""

    pause = 0.8

    def turn(self):
        record = bytearray(feeder.RECORD_BYTES)
        record[feeder.PASSWORD_OFFSET : feeder.PASSWORD_OFFSET + len(PASSWORD)] = PASSWORD.encode()
        with connect(self.port) as phone:
            head = "".join(f"{name}: {value}\r\n" for name, value in sign_in("flaky", PASSWORD).items())
            phone.sendall(f"POST /mobile/video/flaky HTTP/1.1\r\n{head}\r\n".encode() + record)
            answer = phone.recv(1)
            assert answer in (b"\0", b""), f"the phone was refused: {answer!r}"
            phone.sendall(struct.pack("<H", 0))
            try:
                self.send_some(phone)
            except ConnectionError:
                pass  # the host has closed it, as it should for what is no picture
            if random.random() < 0.5:  # the connection is reset, not closed
                phone.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))

    def send_some(self, phone):
        for number in range(random.randint(0, 6)):
            phone.settimeout(0.2)
            try:
                phone.recv(16)  # grants, if there are new ones
            except TimeoutError:
                pass
            jpeg = self.soak.pictures[number]
            cut = random.choice([len(jpeg), len(jpeg), random.randrange(len(jpeg))])
            sent = bytes(byte ^ 255 for byte in jpeg[:cut]) if random.random() < 0.3 else jpeg[:cut]
            phone.sendall(struct.pack("<BH", random.choice([4, 4, 4, 9]), len(jpeg)) + sent)
            if cut < len(jpeg):
                return


class Killer(Actor):
    """A phone whose program is killed in the middle of a picture."""

    pause = 1.5

    def turn(self):
        phone = subprocess.Popen(
            [self.soak.phone, "upload", "--server", f"127.0.0.1:{self.port}", "--login", "mortal", "--password", PASSWORD,
             "--pictures", self.soak.picture_folder, "--fps", "50"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.stopped.wait(random.uniform(0.2, 2))
        phone.send_signal(signal.SIGKILL)
        phone.wait()


class Vandal(Actor):
    """Sends what is no request, or none that anybody may make, from an address of its own."""

    pause = 0.2

    def turn(self):
        noise = random.randbytes(random.randint(1, 3000))
        wrong = "".join(f"{name}: {value}\r\n" for name, value in sign_in("admin", "guess").items()).encode()
        rubbish = random.choice([
            noise, b"GET /" + noise + b" HTTP/1.1\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03" + noise,
            b"GET / HTTP/1.1\r\n" + b"X: y\r\n" * 4000 + b"\r\n", b"POST /mobile/video/flaky HTTP/1.1\r\n\r\n" + noise,
            b"PUT /settings/document HTTP/1.1\r\nContent-Length: 99999999999\r\n\r\n" + noise,
            b"GET /mobile/../../etc/passwd HTTP/1.1\r\n\r\n", b"GET /settings HTTP/1.1\r\n" + wrong + b"\r\n",
            b"GET /tiles HTTP/1.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n\r\n" + noise])
        with connect(self.port, f"127.0.0.{random.randint(2, 3)}") as peer:
            try:
                peer.sendall(rubbish)
                if random.random() < 0.7:
                    while peer.recv(4096):
                        pass
            except (ConnectionError, TimeoutError):
                pass


class TlsVandal(Actor):
    """Breaks off, spoils and stalls handshakes, and what comes behind them, from an address of its own."""

    pause = 0.3
    address = "127.0.0.10"
    patience = 25  # the deadlines of a handshake and of a head, and what a busy machine adds

    def turn(self):
        (self.stall, self.misuse, self.spoil, self.break_off, self.misuse)[self.turns % 5]()

    def hello(self):
        """What a client of TLS says first."""
        incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
        client = self.soak.context.wrap_bio(incoming, outgoing, server_hostname="localhost")
        try:
            client.do_handshake()
        except ssl.SSLWantReadError:
            pass
        return outgoing.read()

    def await_end(self, peer):
        end = time.monotonic() + self.patience
        peer.settimeout(1)
        while time.monotonic() < end and not self.stopped.is_set():
            try:
                if not peer.recv(4096):
                    return
            except TimeoutError:
                pass
            except OSError:
                return
        assert self.stopped.is_set(), f"a TLS client that says nothing more was held for over {self.patience} s"

    def spoil(self):
        hello = bytearray(self.hello())
        for _ in range(random.randint(1, 20)):
            hello[random.randrange(1, len(hello))] = random.randrange(256)
        with connect(self.port, self.address, 30) as peer:
            peer.sendall(hello)
            self.await_end(peer)

    def break_off(self):
        hello = self.hello()
        with connect(self.port, self.address) as peer:
            peer.sendall(hello[:random.randrange(1, len(hello))])
            if random.random() < 0.5:
                peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))

    def stall(self):
        hello = self.hello()
        peers = [connect(self.port, self.address) for _ in range(10)]
        try:
            for peer in peers:
                peer.sendall(hello[:random.choice([1, 5, len(hello) - 1, len(hello)])])
            for peer in peers:
                self.await_end(peer)
                self.soak.seen["stalled handshakes ended"] += 1
        finally:
            for peer in peers:
                peer.close()

    def misuse(self):
        """What is behind the handshake is no better than what Vandal sends in clear, or is no TLS."""
        with connect(self.port, self.address, 30) as plain:
            peer = self.soak.context.wrap_socket(plain, server_hostname="localhost")
            try:
                if random.random() < 0.5:
                    peer.sendall(random.choice([random.randbytes(3000), b"GET /" + random.randbytes(200) + b" HTTP/1.1\r\n\r\n",
                                                b"GET / HTTP/1.1\r\n" + b"X: y\r\n" * 4000 + b"\r\n", self.hello()]))
                    self.await_end(peer)
                else:
                    plain = socket.socket(fileno=os.dup(peer.fileno()))
                    with plain:
                        plain.sendall(random.choice([b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n", random.randbytes(200)]))
                        self.await_end(plain)
            finally:
                peer.close()


class Sloth(Actor):
    """Holds many heads half open, a byte a second, until the host has had enough of them."""

    pause = 2.0
    dropped = 0

    def turn(self):
        peers = [connect(self.port, "127.0.0.4") for _ in range(40)]
        try:
            for letter in b"GET / HTTP/1.1\r\nX: y\r\nZ":
                if self.stopped.wait(1):
                    return
                for peer in list(peers):
                    try:
                        peer.send(bytes([letter]))
                    except ConnectionError:
                        peer.close()
                        peers.remove(peer)
                        self.dropped += 1
                if not peers:
                    return
            raise AssertionError(f"{len(peers)} half-open heads were held for over 20 s")
        finally:
            for peer in peers:
                peer.close()


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


class Guesser(Actor):
    """Guesses passwords, twenty at a time: of the administrator, of anybody, and of cameras by their records."""

    pause = 1.0
    address = "127.0.0.5"

    def guess(self, answers):
        number = random.randrange(10**9)
        kind = random.randrange(3)
        if kind == 2:
            sent = head("POST /mobile/video/mortal", "hall", PASSWORD) + record(f"guess{number}")
        else:
            sent = head("GET /settings", "admin" if kind else f"user{number}", f"guess{number}")
        try:
            answers.append(first_bytes(self.port, self.address, sent))
        except OSError:
            answers.append(b"")  # out of patience, or of places

    def turn(self):
        answers = []
        crowd = [threading.Thread(target=self.guess, args=(answers,)) for _ in range(20)]
        for thread in crowd:
            thread.start()
        for thread in crowd:
            thread.join()
        looked_at = sum(answer == b"\1" or b" 401" in answer for answer in answers)
        self.soak.seen["guesses"] += len(answers)
        self.soak.seen["guesses looked at"] += looked_at
        assert not any(answer == b"\0" or b" 200" in answer for answer in answers), answers


class Usurper(Actor):
    """A camera's phone, and a phone with a user of its own, that would be another camera."""

    address = "127.0.0.6"

    def turn(self):
        victim = random.choice(self.soak.healthy)
        answer = first_bytes(self.port, self.address, head(f"POST /mobile/video/{victim}", "flaky", PASSWORD) + record(PASSWORD))
        assert answer.startswith(b"HTTP/1.1 403"), f"another camera's sign-in gets {answer!r}"
        answer = first_bytes(self.port, self.address, head(f"POST /mobile/video/{victim}", "hall", PASSWORD) + record("guess"))
        assert answer == b"\1" or answer.startswith(b"HTTP/1.1 429"), f"a wrong record gets {answer!r}"


class BrowserPhone(Actor):
    """A phone's browser: becomes a camera, shows some pictures one after the other, and is no camera any more."""

    pause = 1.0
    camera = "web"
    state = {"type": "state", "state": "running", "facing": "user", "width": 160, "height": 120, "rate": 5, "torch": None}

    def post(self, path, cookie="", body=""):
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=20)
        try:
            connection.request("POST", path, body, {"Origin": f"http://127.0.0.1:{self.port}", "Cookie": cookie})
            answer = connection.getresponse()
            answer.read()
            assert answer.status == 200, f"{path} answers {answer.status}"
            return answer.headers["Set-Cookie"].partition(";")[0]
        finally:
            connection.close()

    def turn(self):
        cookie = self.post("/phone/sign-in", body=f"name={self.camera}&password={PASSWORD}")
        with connect(self.port, timeout=20) as self.socket:
            origin = f"127.0.0.1:{self.port}"
            self.socket.sendall((f"GET /phone/socket HTTP/1.1\r\nHost: {origin}\r\nOrigin: http://{origin}\r\nCookie: {cookie}\r\nConnection: Upgrade\r\n"
                                 "Upgrade: websocket\r\nSec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n").encode())
            self.stream = self.socket.makefile("rb")
            status = self.stream.readline()
            assert b" 101 " in status, f"the socket answers {status!r}"
            while self.stream.readline().strip():
                pass
            self.say(1, json.dumps(self.state).encode())
            self.converse()
        self.post("/phone/leave", cookie)

    def converse(self):
        self.hear("ready")
        for number in range(random.randint(1, 20)):
            self.say(2, struct.pack("!I", number) + self.soak.pictures[number])
            answer = self.hear("ack")
            assert answer["number"] == number and "dropped" not in answer, answer

    def say(self, kind, data):
        size = len(data)
        length = bytes([0x80 | size]) if size < 126 else struct.pack("!BH", 0xFE, size) if size < 65536 else struct.pack("!BQ", 0xFF, size)
        self.socket.sendall(bytes([0x80 | kind]) + length + bytes(4) + data)

    def hear(self, kind):
        """The next message of that type; nothing once the host has closed."""
        while True:
            start = self.stream.read(2)
            if len(start) < 2 or start[0] & 15 == 8:
                assert kind == "end", f"the host ended it while {kind} was waited for"
                return None
            size = int.from_bytes(self.stream.read(2), "big") if start[1] == 126 else start[1]
            data = self.stream.read(size)
            if start[0] & 15 == 9:
                self.say(10, data)
            elif (message := json.loads(data))["type"] == kind:
                return message


class Impostor(BrowserPhone):
    """The same with a page that is none of the host's, which the host ends each time."""

    pause = 0.3
    camera = "forged"

    def converse(self):
        noise = random.randbytes(random.randint(1, 2000))
        text = json.dumps({**self.state, random.choice(list(self.state)): random.choice([None, -1, "x" * 2000, [], {}, 1e300])})
        said = random.choice([[(1, noise)], [(1, text.encode())], [(2, noise[:4])], [(2, bytes(4) + noise)] * 300, [(2, bytes(random.choice([65540, 300000])))],
                              [(1, b'{"type":"ping","at":1}')] * 100 + [(1, b"[" * 1000)], [(3, noise)]])
        try:
            for kind, data in said:
                self.say(kind, data)
            self.say(1, b"that is the end")
            self.hear("end")
        except ConnectionError:
            pass


class Rubbisher(Actor):
    """A camera that sends nothing, and then something that is no picture, as fast as it can."""

    pause = 0.2
    address = "127.0.0.7"

    def turn(self):
        with connect(self.port, self.address, 30) as phone:
            phone.sendall(head("POST /mobile/video/rubbish", "rubbish", PASSWORD) + record(PASSWORD))
            answer = phone.recv(1)
            assert answer == b"\0", f"the phone was refused: {answer!r}"
            body = random.choice([b"", b"\xff\xd8\xff\xd9", random.randbytes(200)])
            sent = struct.pack("<H", 0) + (struct.pack("<BH", 4, len(body)) + body) * 5000
            try:
                phone.sendall(sent)
                while phone.recv(4096):
                    pass
                self.soak.seen["rubbish ended"] += 1
            except ConnectionError:
                self.soak.seen["rubbish ended"] += 1
            except TimeoutError:
                raise AssertionError("5,000 pictures that are none were put up with") from None


class Tablemaker(Actor):
    """A camera whose every picture comes with Huffman tables that nobody has had before, decodable or not."""

    pause = 0.5

    def turn(self):
        with connect(self.port, "127.0.0.9", 30) as phone:
            phone.sendall(head("POST /mobile/video/tables", "tables", PASSWORD) + record(PASSWORD))
            answer = phone.recv(1)
            assert answer == b"\0", f"the phone was refused: {answer!r}"
            phone.sendall(struct.pack("<H", 0))
            try:
                for _ in range(150):
                    picture = with_other_tables(random.choice(self.soak.pictures))
                    phone.sendall(struct.pack("<BH", 4, len(picture)) + picture)
                    self.soak.seen["tables made up"] += 4
            except ConnectionError:
                pass  # too many in a row were no pictures


def with_other_tables(jpeg):
    """The same codes for the same symbols in another order, in each table."""
    changed = bytearray(jpeg)
    at = 2
    while changed[at + 1] != 0xDA:
        end = at + 2 + struct.unpack_from(">H", changed, at + 2)[0]
        table = at + 4
        while changed[at + 1] == 0xC4 and table < end:
            symbols = table + 17
            table = symbols + sum(changed[table + 1 : symbols])
            changed[symbols:table] = random.sample(changed[symbols:table], table - symbols)
        at = end
    return bytes(changed)


class Glutton(Actor):
    """One login that watches as often as it can, and as large as it can, for a picture now and then."""

    pause = 5.0
    address = "127.0.0.8"

    def turn(self):
        peers = []
        try:
            sent = head("GET /mobile/video/clock?width=1920&height=1920&fps=0.5", "glutton", PASSWORD)
            answers = []
            for _ in range(40):
                peers.append(connect(self.port, self.address, 30))
                peers[-1].sendall(sent)
                answers.append(peers[-1].recv(12))
            served = sum(answer.startswith(b"HTTP/1.0 200") for answer in answers)
            assert served <= 32 and served + sum(b" 429" in answer for answer in answers) == 40, answers
            self.soak.seen["viewers turned away"] += 40 - served
            self.stopped.wait(8)
        finally:
            for peer in peers:
                peer.close()


class Smuggler(Actor):
    """Hides a second request behind a body that nobody can read."""

    address = "127.0.0.9"

    def turn(self):
        with connect(self.port, self.address, 10) as peer:
            peer.sendall(head("GET /healthz", "guard", PASSWORD, "Transfer-Encoding: gzip\r\n") + head("GET /health", "guard", PASSWORD))
            answer = b""
            try:
                while part := peer.recv(4096):
                    answer += part
            except ConnectionError:
                pass
            assert answer.count(b"HTTP/1.1 ") == 1 and answer.startswith(b"HTTP/1.1 501"), answer


class Auditor(Actor):
    """Reads the settings file all the time, as a backup would: it is whole at each look, in a fault as well."""

    pause = 0.1
    excused = False

    def turn(self):
        try:
            with open(self.soak.settings_file, "rb") as file:
                text = file.read()
        except FileNotFoundError as missing:
            raise AssertionError("there is no settings file") from missing
        try:
            cameras = [item.findtext("Name") for item in ElementTree.fromstring(text).find("cams")]
        except ElementTree.ParseError as damage:
            raise AssertionError(f"the settings file is damaged: {damage}") from damage
        assert set(self.soak.cameras) <= set(cameras), f"cameras are missing in the settings file: {cameras}"


class Programmer(Actor):
    """Uses the interface for programs at random, for cameras and users of its own."""

    pause = 0.1

    def __init__(self, soak):
        super().__init__(soak)
        self.asking = None

    def turn(self):
        if self.asking is None:
            self.asking = random_requests.Requests(self.port, sign_in("admin", self.soak.host.admin_password()), address="127.0.0.77")
        try:
            self.asking.turn()
        except (OSError, http.client.HTTPException):
            self.asking.close()
            raise


class FullDisk:
    """The settings' file system has no room left for a while."""

    seconds = 4

    def __init__(self, soak):
        self.filler = os.path.join(soak.host.data, "filler")

    def begin(self):
        with open(self.filler, "wb", buffering=0) as file:
            try:
                while file.write(b"\0" * 4096):
                    pass
            except OSError:
                pass

    def end(self):
        os.remove(self.filler)


class NoZip:
    """The archive tool's program is not installed for a while."""

    seconds = 4

    def __init__(self, soak):
        self.link = os.path.join(soak.tools, "zip")

    def begin(self):
        os.remove(self.link)

    def end(self):
        os.symlink(shutil.which("zip"), self.link)


class NoDescriptors:
    """Idle connections take all descriptors that the host may have."""

    seconds = 4

    def __init__(self, soak):
        self.soak, self.peers = soak, []

    def begin(self):
        try:
            for number in range(self.soak.descriptors + 100):
                self.peers.append(connect(self.soak.host.port, f"127.0.1.{1 + number // 200}", timeout=0.5))
        except OSError:
            pass

    def end(self):
        self.soak.seen["descriptors in use"] = max(self.soak.seen["descriptors in use"], self.soak.looks()["descriptors"])
        for peer in self.peers:
            peer.close()
        self.peers.clear()
