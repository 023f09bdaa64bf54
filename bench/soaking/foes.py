"""Those who mean the host harm, or know no better."""

import json
import os
import random
import socket
import ssl
import struct
import threading
import time

from actor import Actor, PASSWORD, connect, first_bytes, head, record, sign_in
from handsets import BrowserPhone


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
