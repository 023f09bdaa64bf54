"""Phones that are cameras, and have the troubles that phones have."""

import http.client
import json
import random
import signal
import socket
import struct
import subprocess

import feeder
from actor import Actor, PASSWORD, connect, sign_in


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
