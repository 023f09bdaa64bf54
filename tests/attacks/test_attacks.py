"""What somebody who means harm gets from the real host, and that honest phones notice nothing of it.

Each case here was an attack that worked once.
"""

import argparse
import base64
import concurrent.futures
import ctypes
import json
import os
import re
import socket
import struct
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse

sys.dont_write_bytecode = True
ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))
sys.path.insert(0, os.path.join(ROOT, "tests/browser"))
import feeder  # noqa: E402
import hostprogram  # noqa: E402
import pictures  # noqa: E402

PASSWORD = "secret"
ATTACKER = "127.0.0.66"
CLONE_NEWNS = 0x00020000
arguments = None


def basic(login, password):
    return "Authorization: Basic " + base64.b64encode(f"{login}:{password}".encode()).decode() + "\r\n"


def record(password):
    block = bytearray(feeder.RECORD_BYTES)
    block[feeder.PASSWORD_OFFSET : feeder.PASSWORD_OFFSET + len(password)] = password.encode()
    return bytes(block)


def eventually(condition, seconds=20):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.05)
    return True


class Attacked(unittest.TestCase):
    options = ()
    cameras = ("victim", "other")

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.host = hostprogram.Host(arguments.host, folder.name, ["--quiet", *self.options])
        self.addCleanup(self.host.close)
        self.prepare()
        self.host.write_cameras(self.cameras, PASSWORD)
        users = os.path.join(folder.name, "users")
        with open(users, "w", encoding="utf-8") as file:
            file.write(f"guard\tviewer\t{PASSWORD}\nhall\tphone\t{PASSWORD}\n")
        subprocess.run([arguments.host, "--data", self.host.data, "--add-users", users], check=True, stdout=self.host.log)
        self.host.start()
        self.admin = basic("admin", self.host.admin_password())

    def prepare(self):
        pass

    def connect(self, address="127.0.0.1", timeout=30):
        return socket.create_connection(("127.0.0.1", self.host.port), timeout, (address, 0))

    def send(self, head, body=b"", address="127.0.0.1"):
        """All that comes back for one request, which is the connection's last."""
        with self.connect(address) as peer:
            answer = b""
            try:
                peer.sendall(head.encode() + b"\r\n" + body)
                while part := peer.recv(65536):
                    answer += part
            except ConnectionError:
                pass
            return answer

    def ask(self, target, lines="", address="127.0.0.1", method="GET"):
        """The status, and the whole answer."""
        answer = self.send(f"{method} {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n{lines}", address=address)
        return int(answer.split(b" ", 2)[1]) if answer.startswith(b"HTTP/1.1 ") else 0, answer.decode("utf-8", "replace")

    def upload(self, camera, login, login_password, camera_password, address="127.0.0.1"):
        """A phone's connection and the first bytes that the host says."""
        peer = self.connect(address)
        self.addCleanup(peer.close)
        head = f"POST /mobile/video/{urllib.parse.quote(camera)} HTTP/1.1\r\n{basic(login, login_password)}\r\n"
        try:
            peer.sendall(head.encode() + record(camera_password))
            return peer, peer.recv(12)
        except ConnectionError:
            return peer, b""

    def camera(self, name):
        return next(camera for camera in self.host.health()["cameras"] if camera["name"] == name)

    def refusals(self):
        text = self.ask("/metrics", self.admin)[1]
        return {reason: int(count) for reason, count in re.findall(r'refusals_total\{reason="(\w+)"\} (\d+)', text)}

    def log(self):
        with open(self.host.log.name, encoding="utf-8", errors="replace") as file:
            return file.read()


class Cameras(Attacked):
    def test_nobody_cuts_a_running_upload_without_its_password(self):
        with feeder.Feeder(self.host.port, "victim", PASSWORD, [pictures.coded_jpeg(n) for n in range(8)], 10) as phone:
            self.assertTrue(eventually(lambda: phone.frames > 5))
            for _ in range(5):
                _, answer = self.upload("victim", "other", PASSWORD, "guess", ATTACKER)
                self.assertTrue(answer.startswith(b"HTTP/1.1 403"), answer)
                _, answer = self.upload("victim", "hall", PASSWORD, "guess", ATTACKER)
                self.assertEqual(answer, b"\1")
            time.sleep(0.5)
            self.assertIsNone(phone.failure)
            # Not only its length or its beginning is compared, and what is not receiving is the component's affair.
            for guess in ("secre", "secrets", ""):
                self.assertEqual(self.upload("victim", "hall", PASSWORD, guess, "127.0.0.67")[1], b"\1")
            self.assertEqual(self.upload("other", "hall", PASSWORD, "guess", "127.0.0.67")[1], b"\1")
            self.assertIsNone(phone.failure)
            sent = phone.frames
            self.assertTrue(eventually(lambda: self.camera("victim")["frames"] >= sent > 10))
            # Who has the password takes the camera over, whoever signs in.
            peer, answer = self.upload("victim", "hall", PASSWORD, PASSWORD)
            self.assertEqual(answer[:1], b"\0")
            self.assertTrue(eventually(lambda: phone.failure is not None))
            peer.close()
        refused = re.findall(r"  refused +127\.0\.0\.66, login \"(\w+)\", camera \"victim\": (.*)", self.log())
        self.assertIn(("other", "another camera's sign-in"), refused)

    def test_passwords_of_cameras_are_not_guessed_by_their_records(self):
        def guess(number):
            return self.upload("other", "hall", PASSWORD, f"guess{number}", ATTACKER)[1]

        begin = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(50) as pool:
            answers = list(pool.map(guess, range(200)))
        seconds = time.monotonic() - begin
        looked_at = answers.count(b"\1")
        # Five are free, then each waits twice as long, up to four seconds.
        self.assertLessEqual(looked_at, 5 + 5 + seconds / 4, f"in {seconds:.1f} s")
        self.assertEqual(looked_at + sum(answer.startswith(b"HTTP/1.1 429") for answer in answers), 200)


class Passwords(Attacked):
    def test_a_burst_is_not_checked_and_locks_nobody_else_out(self):
        def guess(number):
            # Ann's password is among them.
            password = PASSWORD if number == 100 else f"guess{number}"
            return self.ask("/health", basic("guard", password), ATTACKER)[0]

        begin = time.monotonic()
        with concurrent.futures.ThreadPoolExecutor(200) as pool:
            turns = [pool.submit(guess, number) for number in range(200)]
            while sum(turn.done() for turn in turns) < 150:
                time.sleep(0.01)
            asked = time.monotonic()
            self.assertEqual(self.ask("/health", self.admin, ATTACKER)[0], 200)
            waited = time.monotonic() - asked
            answers = [turn.result() for turn in turns]
        seconds = time.monotonic() - begin
        self.assertLess(waited, 5, "the administrator behind the same address")
        self.assertLessEqual(answers.count(401) + answers.count(200), 5 + 5 + seconds / 4, f"in {seconds:.1f} s")
        self.assertEqual(answers.count(401) + answers.count(200) + answers.count(429), 200)

    def test_an_address_that_guesses_a_lot_is_heard_only_for_those_it_is_known_for(self):
        self.assertEqual(self.ask("/health", self.admin, ATTACKER)[0], 200)
        with concurrent.futures.ThreadPoolExecutor(20) as pool:
            answers = list(pool.map(lambda number: self.ask("/health", basic(f"a{number}", "x"), ATTACKER)[0], range(150)))
        self.assertLessEqual(answers.count(401), 62)
        self.assertEqual(self.ask("/health", basic("guard", PASSWORD), ATTACKER)[0], 429)
        self.assertEqual(self.ask("/health", self.admin, ATTACKER)[0], 200)
        self.assertEqual(self.ask("/health", basic("guard", PASSWORD))[0], 200)
        # It is known after a start as well.
        self.assertEqual(self.host.stop(), 0)
        with open(os.path.join(self.host.data, "sign-ins"), encoding="utf-8") as file:
            self.assertRegex(file.read(), rf"(?m)^admin\t{re.escape(ATTACKER)}\t\d+$")

    def test_refusals_are_in_the_log_as_fail2ban_reads_them(self):
        for _ in range(3):
            self.ask("/health", basic('x" 10.0.0.1, \u202ey\n', "guess"), ATTACKER)
            self.ask("/settings", basic("guard", PASSWORD), "127.0.0.67")
            self.ask("/health")
        self.assertEqual(self.host.stop(), 0)
        lines = [line for line in self.log().splitlines() if "  refused " in line]
        with open(os.path.join(ROOT, "packaging/fail2ban/morrowstream.conf"), encoding="utf-8") as file:
            pattern = re.search(r"^failregex = (.*)$", file.read(), re.M)[1]
        # What fail2ban puts in the place of these.
        pattern = pattern.replace("%(__prefix_line)s", r"(?:\S+\s+)?").replace("<ADDR>", r"(?P<address>[0-9a-f.:]+)")
        found = [match["address"] for match in map(re.compile(pattern).match, lines) if match]
        self.assertEqual(set(found), {ATTACKER}, lines)
        self.assertTrue(1 <= len(found) <= 3, "a line a second")
        self.assertIn(r'127.0.0.66, login "x" 10.0.0.1, \u202ey\x0a": wrong password', lines[0])
        self.assertTrue(any('127.0.0.67, login "guard": this kind of user may not do that' in line for line in lines))


class Crowd(Attacked):
    cameras = tuple(f"cam{number}" for number in range(300))

    def test_three_hundred_honest_phones_behind_one_address_meet_no_limit(self):
        gate = time.monotonic() + 1

        def phone(name):
            time.sleep(max(gate - time.monotonic(), 0))
            peer, answer = self.upload(name, name, PASSWORD, PASSWORD)
            viewer = self.connect()
            viewer.sendall(f"GET /mobile/video/clock?width=16&height=16&fps=0.1 HTTP/1.1\r\n{basic(name, PASSWORD)}\r\n".encode())
            return peer, answer[:1], viewer, viewer.recv(15)

        with concurrent.futures.ThreadPoolExecutor(300) as pool:
            phones = list(pool.map(phone, self.cameras))
        self.assertEqual({answer for _, answer, _, _ in phones}, {b"\0"})
        self.assertEqual({answer for *_, answer in phones}, {b"HTTP/1.0 200 OK"})
        self.assertEqual(sum(self.refusals().values()), 0)
        for peer, _, viewer, _ in phones:
            peer.close()
            viewer.close()
        self.assertNotIn("  refused ", self.log())


class Places(Attacked):
    options = ("--max-connections", "40")

    def test_one_login_takes_its_share_and_no_more(self):
        head = "GET {} HTTP/1.1\r\nHost: localhost\r\n" + basic("guard", PASSWORD) + "{}\r\n"
        upgrade = ("Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                   "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n")
        held = []
        for number in range(33):
            peer = self.connect()
            held.append(peer)
            peer.sendall(head.format("/mobile/video/clock?fps=0.1", "").encode())
            self.assertEqual(peer.recv(12), b"HTTP/1.0 200" if number < 32 else b"HTTP/1.1 429", number)
        # A page that shows one source is one as well; others are not touched.
        self.assertEqual(self.ask("/view/clock", basic("guard", PASSWORD) + upgrade)[0], 429)
        other = self.connect()
        other.sendall(head.format("/mobile/video/clock", "").replace(basic("guard", PASSWORD), basic("hall", PASSWORD)).encode())
        self.assertEqual(other.recv(12), b"HTTP/1.0 200")
        other.close()
        for peer in held:
            peer.close()

        def again():
            with self.connect() as peer:
                peer.sendall(head.format("/mobile/video/clock?fps=25", "").encode())
                return peer.recv(12) == b"HTTP/1.0 200"

        self.assertTrue(eventually(again, 30), "places come back, at the latest with the next picture")
        self.assertEqual(self.refusals()["too_many_streams"] >= 2, True)

    def test_probes_are_answered_while_all_places_are_taken(self):
        held = [self.connect(f"127.0.1.{number}") for number in range(1, 60)]
        try:
            for peer in held:
                peer.sendall(b"GET / HTTP/1.1\r\n")
            # Who comes beyond the limit and says nothing has such a place for a second.
            for path in ("/healthz", "/readyz"):
                self.assertTrue(eventually(lambda: self.ask(path)[0] == 200), path)
            self.assertEqual(self.ask("/health", self.admin)[0], 503)
        finally:
            for peer in held:
                peer.close()


class Flood(Attacked):
    def test_rubbish_neither_fills_the_log_nor_goes_on_for_ever(self):
        peer, answer = self.upload("victim", "victim", PASSWORD, PASSWORD)
        self.assertEqual(answer[:1], b"\0")
        nothing = struct.pack("<H", 0) + struct.pack("<BH", 4, 0) * 199
        jpeg = pictures.coded_jpeg(1)
        picture = struct.pack("<BH", 4, len(jpeg)) + jpeg
        peer.sendall(nothing)
        for _ in range(20):
            peer.sendall(picture + struct.pack("<BH", 4, 5) * 0 + struct.pack("<BH", 4, 0) * 199)
        self.assertTrue(eventually(lambda: self.camera("victim")["failed"] >= 199 * 21, 60))
        self.assertEqual(self.camera("victim")["frames"], 20, "a picture among them, and it goes on")
        peer.sendall(struct.pack("<BH", 4, 0))
        peer.settimeout(20)
        try:
            while peer.recv(4096):
                pass
        except ConnectionError:
            pass
        self.assertEqual(self.host.stop(), 0)
        log = self.log()
        self.assertEqual(len(re.findall(r"  error +200 pictures in a row .*\(victim, 127\.0\.0\.1\)", log)), 1, log)
        self.assertLess(len(log), 20_000)
        told = sum(int((more or "1").replace(",", "")) for more in re.findall(r" m_pBuff  \(victim, 127\.0\.0\.1\)(?: \.\.\. ([\d,]+) more)?", log))
        self.assertEqual(told, 199 * 21 + 1, "none is lost")
        self.assertNotIn("  mobile ", log, "it is quiet")


class FullDisk(Attacked):
    def prepare(self):
        if os.geteuid() != 0 or ctypes.CDLL(None).unshare(CLONE_NEWNS) != 0:
            self.skipTest("mounting a small disk takes root")
        subprocess.run(["mount", "--make-rprivate", "/"], check=True)
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=1m,mode=700", "tmpfs", self.host.data], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", self.host.data], check=False)

    def states(self):
        """What readiness, health and metrics say: True where all is well."""
        ready = self.ask("/readyz")[0] == 200
        health = json.loads(self.ask("/health", self.admin)[1].split("\r\n\r\n", 1)[1])["status"] == "ok"
        metrics = "\nmorrowstream_settings_written 1\n" in self.ask("/metrics", self.admin)[1]
        return ready, health, metrics

    def test_what_could_not_be_written_is_written_once_there_is_room(self):
        file = os.path.join(self.host.data, "Norvane/Tessaron/Servers/Morrowstream.xml")
        filler = os.path.join(self.host.data, "filler")
        self.assertEqual(self.states(), (True, True, True))
        for at_the_end in (False, True):
            name = f"camera{at_the_end}"
            with open(filler, "wb", buffering=0) as full:
                with self.assertRaises(OSError):
                    while True:
                        full.write(b"\0" * 4096)
            answer = self.change(lambda text: text.replace(">other<", f">{name}<") if not at_the_end
                                 else text.replace(">cameraFalse<", f">{name}<"))
            self.assertIn("X-Settings-Written: no", answer)
            self.assertEqual(self.states(), (False, False, False))
            os.remove(filler)
            if at_the_end:
                self.assertEqual(self.host.stop(), 0)
            else:
                self.assertTrue(eventually(lambda: self.states() == (True, True, True), 30))
            with open(file, encoding="utf-8") as settings:
                self.assertIn(name, settings.read())

    def change(self, edit):
        token = json.loads(self.ask("/settings/state", self.admin)[1].split("\r\n\r\n", 1)[1])["token"]
        head, text = self.ask("/settings/document", self.admin)[1].split("\r\n\r\n", 1)
        version = re.search(r"ETag: (.*)\r\n", head + "\r\n")[1]
        body = edit(text).encode()
        self.assertNotEqual(body, text.encode())
        lines = f"If-Match: {version}\r\nX-Settings-Token: {token}\r\nContent-Length: {len(body)}\r\n"
        return self.send(f"PUT /settings/document HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n{self.admin}{lines}",
                         body).decode()


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True)
    arguments, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
