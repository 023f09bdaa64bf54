#!/usr/bin/env python3
"""A browser that is a camera: how it becomes one, what its page and the host tell each other, and what ends it."""

import argparse
import datetime
import json
import os
import re
import stat
import struct
import sys
import time
import unittest
import urllib.parse
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import test_tls  # noqa: E402
from test_sessions import UPGRADE, SignInCase  # noqa: E402
from test_tls import Feeder, coded_jpeg, read_answer, read_message  # noqa: E402

MOST_BYTES = 65535
REPLACED, ENDED, FAULT, RESTART = 4001, 4003, 1008, 1012
RUNNING = {"type": "state", "state": "running", "facing": "environment", "width": 160, "height": 120, "rate": 5, "torch": None}
OTHER_STATES = ({"state": "walking"}, {"facing": "up"}, {"width": -1}, {"height": 1e9}, {"rate": "5"}, {"rate": 0.5}, {"torch": 1}, {"type": "stat"})


class Page:
    """The phone's page: a WebSocket."""

    def __init__(self, case, host, cookie, secure=True):
        self.case = case
        self.connection = case.connect(host, name="localhost") if secure else case.connect_clear(host)
        self.connection.sendall(f"GET /phone/socket HTTP/1.1\r\nHost: localhost:{host.port}\r\n{UPGRADE}{cookie}{case.origin(host, secure)}\r\n".encode())
        self.status = read_answer(self.connection)[0]
        self.heard = []

    def send(self, kind, data):
        size = len(data)
        length = bytes([0x80 | size]) if size < 126 else struct.pack("!BH", 0xFE, size) if size < 65536 else struct.pack("!BQ", 0xFF, size)
        self.connection.sendall(bytes([0x80 | kind]) + length + bytes(4) + data)

    def say(self, message=None, **changes):
        message = {**(message or RUNNING), **changes} if not isinstance(message, str) else message
        self.send(1, (message if isinstance(message, str) else json.dumps(message)).encode())

    def picture(self, number, jpeg):
        self.send(2, struct.pack("!I", number) + jpeg)

    def until(self, kind, seconds=20, **values):
        """The next message of that type, with those values; a close counts as {"type": "closed", "code": ...}."""
        self.connection.settimeout(seconds)
        while True:
            opcode, data = read_message(self.connection)
            if opcode == 9:
                self.send(10, data)
                continue
            message = json.loads(data) if opcode == 1 else {"type": "closed", "code": int.from_bytes(data[:2], "big")}
            self.heard.append(message)
            if message["type"] == kind and values.items() <= message.items():
                return message
            self.case.assertNotEqual(message["type"], "closed", f"waiting for {kind} {values}: {self.heard}")

    def closes(self, code, seconds=20):
        self.case.assertEqual(self.until("closed", seconds)["code"], code, self.heard)

    def start(self, **changes):
        self.say(**changes)
        return self.until("ready")

    def show(self, number, jpeg):
        self.picture(number, jpeg)
        return self.until("ack", number=number)


class PhoneCase(SignInCase):
    def token(self, host, camera="yard"):
        status, _, body = self.ask(host, f"/api/v1/cameras/{camera}/link", self.basic(host), "POST", {})
        self.assertEqual(status, 201, body)
        return json.loads(body)["token"]

    def pair(self, host, token=None, lines="", secure=True):
        form = {"token": token or self.token(host)}
        return self.ask(host, "/phone/pair", self.origin(host, secure) + lines, "POST", form, secure)

    def phone(self, host, **more):
        """The Cookie line of a new one."""
        status, headers, body = self.pair(host, **more)
        self.assertEqual(status, 200, body)
        return "Cookie: " + headers["Set-Cookie"].split(";")[0] + "\r\n"

    def state(self, host, cookie, secure=True):
        return self.ask(host, "/phone/state", cookie, secure=secure)[0]

    def tile(self, host):
        """What the live page hears of the camera."""
        with self.connect(host, name="localhost") as page:
            page.sendall(f"GET /tiles HTTP/1.1\r\nHost: localhost:{host.port}\r\n{UPGRADE}{self.basic(host)}\r\n".encode())
            self.assertEqual(read_answer(page)[0], 101)
            return json.loads(read_message(page)[1])["cameras"][0]

    def snapshot(self, host):
        return self.ask(host, "/snapshot/yard.jpg", self.basic(host))

    def settings_token(self, host):
        return "X-Settings-Token: " + json.loads(self.ask(host, "/settings/state", self.basic(host))[2])["token"] + "\r\n"

    def feeder(self, host, pictures):
        return Feeder(host.port, "yard", "demo", pictures, 10)


class Becoming(PhoneCase):
    def test_a_code_is_good_for_one_phone_and_its_cookie_for_nothing_else(self):
        host = self.start()
        for secure in (True, False):
            token = self.token(host)
            self.assertEqual(self.ask(host, f"/get/{token}", secure=secure)[0], 200, "looking spends nothing")
            self.assertEqual(self.ask(host, "/phone/pair", "", "POST", {"token": token}, secure)[0], 403, "no page of this server")
            status, headers, body = self.pair(host, token, secure=secure)
            self.assertEqual((status, json.loads(body)), (200, {"camera": "yard", "secure": secure}))
            name = f"__Host-morrow-phone-{host.port}" if secure else f"morrow-phone-plain-{host.port}"
            flags = "; Secure" if secure else ""
            self.assertRegex(headers["Set-Cookie"], rf"^{name}=[0-9a-f]{{64}}; Path=/; Max-Age={400 * 86400}{flags}; HttpOnly; SameSite=Lax$")
            cookie = headers["Set-Cookie"].split(";")[0]
            number = cookie.split("=")[1]
            self.assertEqual(self.state(host, f"Cookie: {cookie}\r\n", secure), 200)
            for wrong in ("a=b", cookie[:-1], f"{name}={'0' * 64}", f"{cookie}; {cookie}", cookie.upper(),
                          f"__Host-morrow-{host.port}={number}", f"morrow-plain-{host.port}={number}",
                          f"{'morrow-phone-plain-' if secure else '__Host-morrow-phone-'}{host.port}={number}"):
                status, headers, _ = self.ask(host, "/phone/state", f"Cookie: {wrong}\r\n", secure=secure)
                self.assertEqual((status, "WWW-Authenticate" in headers), (401, False), wrong)
            self.assertEqual(self.state(host, f"Cookie: {cookie}\r\n", not secure), 401, "on the other way")
            other = f"morrow-phone-plain-{host.port}" if secure else f"__Host-morrow-phone-{host.port}"
            self.assertEqual(self.state(host, f"Cookie: {other}={number}\r\n", not secure), 401, "by that way's name")
            self.assertEqual(self.ask(host, "/health", f"Cookie: {cookie}\r\n", secure=secure)[0], 401, "it is no user's session")
            file = Path(self.data("phones"))
            self.assertNotIn(number, file.read_text(encoding="utf-8"))
            self.assertEqual(stat.S_IMODE(os.stat(file).st_mode), 0o600)
            # The midlet behind the same code is gone, and the other way round.
            self.assertEqual(self.pair(host, token, secure=secure)[0], 403)
            self.assertEqual(self.ask(host, f"/get/{token}/Sendora.jar", secure=secure)[0], 410)
            token = self.token(host)
            self.assertEqual(self.ask(host, f"/get/{token}/Sendora.jar", secure=secure)[0], 200)
            self.assertEqual(self.pair(host, token, secure=secure)[0], 403)
            token = self.token(host)
            self.assertEqual(self.ask(host, f"/links/{token}", self.basic(host), "DELETE")[0], 200)
            self.assertEqual(self.pair(host, token, secure=secure)[0], 403)
            # A second code in the same browser takes the place of the first.
            second = self.phone(host, lines=f"Cookie: {cookie}\r\n", secure=secure)
            self.assertEqual((self.state(host, f"Cookie: {cookie}\r\n", secure), self.state(host, second, secure)), (401, 200))
            manifest = json.loads(self.ask(host, "/phone/manifest.webmanifest", second, secure=secure)[2])
            self.assertEqual((manifest["name"], {self.ask(host, icon["src"], secure=secure)[0] for icon in manifest["icons"]}), ("yard", {200}))
            host.kill()
            host.start()
            self.assertEqual(self.state(host, second, secure), 200, "it lives through a restart")
            self.assertEqual(self.ask(host, "/phone/leave", second + self.origin(host, secure), "POST", {}, secure)[0], 200)
            self.assertEqual(self.state(host, second, secure), 401)

    def test_a_cameras_name_and_password_make_a_phone_and_no_users_do(self):
        host = self.start()

        def sign_in(name, password):
            return self.ask(host, "/phone/sign-in", self.origin(host), "POST", {"name": name, "password": password})

        status, headers, _ = sign_in("yard", "demo")
        cookie = "Cookie: " + headers["Set-Cookie"].split(";")[0] + "\r\n"
        self.assertEqual((status, self.state(host, cookie)), (200, 200))
        self.assertEqual(sign_in("admin", host.admin_password())[0], 403)
        statuses = [sign_in("yard", "wrong")[0] for _ in range(6)]
        self.assertEqual(statuses, [403] * 6)
        begun = time.monotonic()
        self.assertIn(sign_in("yard", "wrong")[0], (403, 429))
        self.assertGreater(time.monotonic() - begun, 0.2, "guesses are slowed")
        # It ends with the password, and the page that sends hears so.
        page = Page(self, host, cookie)
        page.start()
        self.change_password(host, "another")
        page.closes(ENDED)
        self.assertEqual(self.state(host, cookie), 401)

    def change_password(self, host, password):
        lines = self.basic(host) + self.settings_token(host)
        _, headers, body = self.ask(host, "/settings/document", self.basic(host))
        document = re.sub(rb'(<Password[^>]*) stored="0">[^<]*', rb"\g<1>>" + password.encode(), body)
        self.assertNotEqual(document, body)
        lines += f"If-Match: {headers['ETag']}\r\n"
        self.assertEqual(self.ask(host, "/settings/document", lines, "PUT", document)[0], 200)

    def test_the_list_and_revoking(self):
        host = self.start()
        cookie = self.phone(host, lines="User-Agent: A\tbrowser" + "x" * 500 + "\r\n")
        page = Page(self, host, cookie)
        page.start()
        (listed,) = json.loads(self.ask(host, "/api/v1/phones", self.basic(host))[2])["phones"]
        self.assertEqual((listed["camera"], listed["live"], listed["address"]), ("yard", True, "127.0.0.1"))
        self.assertLessEqual(abs(datetime.datetime.fromisoformat(listed["lastContact"]).timestamp() - time.time()), 60)
        self.assertNotIn(cookie.split("=")[1].strip(), json.dumps(listed))
        foreign = self.basic(host) + "Origin: http://evil.example\r\n"
        self.assertEqual(self.ask(host, f"/api/v1/phones/{listed['id']}", foreign, "DELETE")[0], 403, "not by another site's page")
        begun = time.monotonic()
        self.assertEqual(self.ask(host, f"/api/v1/phones/{listed['id']}", self.basic(host), "DELETE")[0], 204)
        page.closes(ENDED)
        self.assertLess(time.monotonic() - begun, 5)
        self.wait_until(lambda: not self.tile(host)["connected"], "the upload ends")
        self.assertEqual(Page(self, host, cookie).status, 401)
        self.assertEqual(json.loads(self.ask(host, "/api/v1/phones", self.basic(host))[2])["phones"], [])


class Sending(PhoneCase):
    def test_pictures_are_those_of_any_phone(self):
        host = self.start()
        jpeg = coded_jpeg(7)
        with self.feeder(host, [jpeg]):
            self.wait_until(lambda: self.snapshot(host)[0] == 200, "the old phone's picture")
        old = self.snapshot(host)[2]
        page = Page(self, host, self.phone(host))
        page.picture(1, jpeg)
        page.closes(FAULT)  # before it has told its state
        page = Page(self, host, self.phone(host))
        self.assertEqual(page.start()["camera"], "yard")
        self.assertEqual(page.show(3, coded_jpeg(9)), {"type": "ack", "number": 3})
        self.wait_until(lambda: self.snapshot(host)[2] != old, "another picture")
        page.show(0xFFFFFFFF, jpeg)
        self.wait_until(lambda: self.snapshot(host)[2] == old, "the same picture")
        page.say({"type": "ping", "at": 1234.5})
        page.until("pong", at=1234.5)
        self.wait_until(lambda: self.tile(host)["connected"], "it is seen to be there")
        tile = self.tile(host)
        self.assertEqual((tile["frames"] >= 3, tile["failed"]), (True, 0))
        self.assertEqual(tile["phone"], {key: value for key, value in RUNNING.items() if key != "type"})
        # A longest picture, whose end no decoder looks at.
        page.show(5, jpeg + bytes(MOST_BYTES - len(jpeg)))
        # What is no picture, over and over, ends it, as with any phone.
        with self.assertRaises(AssertionError):
            for number in range(300):
                page.show(number, b"no picture")
        self.assertEqual(page.heard[-1]["code"], FAULT)
        self.assertIn("browser phone", host.log_tail())

    def test_a_pause_is_no_loss_and_a_stop_is_the_end(self):
        host = self.start()
        cookie = self.phone(host)
        page = Page(self, host, cookie)
        page.start(torch=False, facing="user")
        page.say(state="paused", torch=True)
        self.wait_until(lambda: (self.tile(host)["phone"] or {}).get("state") == "paused", "it pauses")
        self.wait_until(lambda: self.tile(host)["connected"], "it is seen to be there")
        self.assertTrue(self.tile(host)["phone"]["torch"])
        self.assertTrue(page.show(1, coded_jpeg(1)).get("dropped"), "on its way when the page paused")
        page.connection.close()  # a locked phone
        self.wait_until(lambda: not self.tile(host)["connected"], "it has gone")
        self.assertEqual(self.tile(host)["phone"]["state"], "paused")
        page = Page(self, host, cookie)
        page.start()
        self.wait_until(lambda: self.tile(host)["phone"]["state"] == "running", "it is back")
        page.say(state="stopped")
        self.wait_until(lambda: not self.tile(host)["connected"], "it has stopped")
        self.assertIsNone(self.tile(host)["phone"])
        page.start()
        page.show(2, coded_jpeg(2))
        page.connection.close()
        self.wait_until(lambda: not self.tile(host)["connected"], "it is lost")
        self.assertIsNone(self.tile(host)["phone"])
        page = Page(self, host, cookie)
        page.start()
        page.say(state="paused")
        self.wait_until(lambda: (self.tile(host)["phone"] or {}).get("state") == "paused", "it pauses")
        page.connection.close()
        self.wait_until(lambda: not self.tile(host)["connected"], "it has gone")
        self.assertEqual(self.ask(host, "/phone/leave", cookie + self.origin(host), "POST", {})[0], 200)
        self.wait_until(lambda: self.tile(host)["phone"] is None, "no phone, no pause")

    def test_the_newest_phone_is_the_camera(self):
        host = self.start()
        first, second = self.phone(host), self.phone(host)
        one = Page(self, host, first)
        one.start()
        two = Page(self, host, second)
        two.start()
        one.closes(REPLACED)
        two.show(1, coded_jpeg(1))
        # An old phone, and back.
        feeder = self.feeder(host, [coded_jpeg(2)])
        feeder.start()
        try:
            two.closes(REPLACED)
            self.wait_until(lambda: feeder.frames > 0, "the old phone sends")
            feeder.pause()
            self.assertIsNone(self.tile(host)["phone"])
            waiting = Page(self, host, second)
            waiting.say(state="paused")
            waiting.say({"type": "ping", "at": 1})
            waiting.until("pong")
            self.assertIsNone(self.tile(host)["phone"], "who pauses replaces nobody")
            feeder.comes_back = False
            waiting.start()
            feeder.join()
            self.assertIn("closed", str(feeder.failure))
        finally:
            feeder.stop()
        # A second connection of the same phone, as after a change of its network.
        again = Page(self, host, second)
        waiting.closes(REPLACED)
        again.start()
        again.show(3, coded_jpeg(3))
        host.process.terminate()
        again.closes(RESTART)

    def test_what_no_page_sends_ends_it(self):
        host = self.start()
        cookie = self.phone(host)
        texts = [json.dumps({**RUNNING, **change}) for change in OTHER_STATES]
        texts += ["", "x", "[]", "null", "{", '{"type":"ping"}', '{"type":"ping","at":1e999}', '{"type":"ping","at":"1"}', "[" * 900,
                  json.dumps(RUNNING) + " " * 1024, '{"type":{}}']
        cases = [(1, text.encode()) for text in texts] + [(1, b'{"type":"ping","at":1,"x":"\xff"}'), (2, b""), (2, bytes(4)), (2, bytes(MOST_BYTES + 5))]
        for kind, data in cases:
            with self.subTest(kind=kind, data=data[:80]):
                page = Page(self, host, cookie)
                page.start()
                page.send(kind, data)
                self.assertIn(page.until("closed")["code"], (FAULT, 1007))
        page = Page(self, host, cookie)
        page.start()
        try:
            page.send(2, bytes(1 << 20))
            self.assertEqual(page.until("closed")["code"], 1009)
        except (OSError, EOFError):
            pass  # nobody reads it to its end
        self.wait_until(lambda: not self.tile(host)["connected"], "that is the end of it")
        self.assertEqual(self.ask(host, "/healthz")[0], 200)


class Posting(PhoneCase):
    """The same without a WebSocket."""

    def post(self, host, cookie, number=0, jpeg=b"", **state):
        state = "&state=" + urllib.parse.quote(json.dumps({**RUNNING, **state})) if state else ""
        status, _, body = self.ask(host, f"/phone/picture?number={number}{state}", cookie + self.origin(host), "POST", jpeg)
        return json.loads(body) if status == 200 else status

    def test_requests_do_what_a_socket_does(self):
        host = self.start()
        cookie = self.phone(host)
        self.assertEqual(self.ask(host, "/phone/picture?number=1", cookie, "POST", coded_jpeg(1))[0], 403, "no page of this server")
        self.assertEqual(self.post(host, "", 1, coded_jpeg(1)), 401)
        closed = [{"type": "closed", "code": FAULT}]
        self.assertEqual(self.post(host, cookie, 1, coded_jpeg(1)), closed, "it has not told its state")
        heard = self.post(host, cookie, 1, coded_jpeg(1), state="running")
        for message in ({"type": "ready", "camera": "yard"}, {"type": "ack", "number": 1}, {"type": "watched", "watched": False}):
            self.assertIn(message, heard)
        self.wait_until(lambda: self.snapshot(host)[0] == 200, "the picture is there")
        self.assertIn({"type": "ack", "number": 2}, self.post(host, cookie, 2, coded_jpeg(2) + bytes(60000)))
        self.assertEqual(self.tile(host)["phone"]["state"], "running")
        self.assertEqual(self.post(host, cookie, 3, bytes(MOST_BYTES + 1)), 413)
        self.assertEqual(self.post(host, cookie, "x", b"x"), 400)
        # Several on one connection.
        with self.connect(host, name="localhost") as connection:
            for number in range(4, 20):
                jpeg = coded_jpeg(number)
                connection.sendall(f"POST /phone/picture?number={number} HTTP/1.1\r\nHost: localhost:{host.port}\r\n{cookie}{self.origin(host)}"
                                   f"Content-Length: {len(jpeg)}\r\n\r\n".encode() + jpeg)
                self.assertIn({"type": "ack", "number": number}, json.loads(read_answer(connection)[2]))
        self.wait_until(lambda: self.tile(host)["frames"] == 18, "all of them")
        self.assertEqual(self.ask(host, "/cameras/yard/control", self.basic(host), "POST", b'{"rate":5}')[0], 202)
        self.assertIn({"type": "control", "rate": 5}, self.post(host, cookie))
        self.assertEqual(self.post(host, cookie, state="dancing"), closed)
        self.wait_until(lambda: not self.tile(host)["connected"], "the upload ends with that")
        # Replaced, and revoked.
        self.post(host, cookie, 21, coded_jpeg(21), state="running")
        with self.feeder(host, [coded_jpeg(2)]) as feeder:
            self.wait_until(lambda: feeder.frames > 0, "the old phone sends")
            self.wait_until(lambda: self.post(host, cookie)[-1:] == [{"type": "closed", "code": REPLACED}], "it is told so")
        self.post(host, cookie, 22, coded_jpeg(22), state="running")
        self.wait_until(lambda: self.tile(host)["connected"], "it is back")
        (listed,) = json.loads(self.ask(host, "/api/v1/phones", self.basic(host))[2])["phones"]
        self.ask(host, f"/api/v1/phones/{listed['id']}", self.basic(host), "DELETE")
        self.wait_until(lambda: not self.tile(host)["connected"], "the upload ends")
        self.assertEqual(self.post(host, cookie), 401)
        # One that goes without a word is gone after a quarter of a minute.
        cookie = self.phone(host)
        self.post(host, cookie, 1, coded_jpeg(1), state="running")
        begun = time.monotonic()
        self.wait_until(lambda: self.tile(host)["connected"], "it is seen to be there")
        self.wait_until(lambda: not self.tile(host)["connected"], "it is lost")
        self.assertGreater(time.monotonic() - begun, 10)


class Controlling(PhoneCase):
    def test_an_administrator_has_the_page_do_something(self):
        host = self.start()
        control = lambda body, lines="": self.ask(host, "/cameras/yard/control", lines or self.basic(host), "POST", body.encode())[0]  # noqa: E731
        self.assertEqual(control('{"torch":true}'), 409)
        page = Page(self, host, self.phone(host))
        page.start()
        for body in ('{"torch":true}', '{"facing":"user"}', '{"width":640,"height":480}', '{"rate":15}', '{"torch":false,"facing":"environment","rate":1}'):
            self.assertEqual(control(body), 202, body)
            self.assertEqual(page.until("control"), {"type": "control", **json.loads(body)})
        for body in ("", "{}", "[]", '{"torch":1}', '{"facing":"up"}', '{"width":640}', '{"width":641,"height":480}', '{"rate":0}', '{"rate":16}',
                     '{"rate":1.5}', '{"torch":true,"x":1}', '{"rate":5}' + " " * 1024):
            self.assertEqual(control(body), 422, body)
        self.assertEqual(control('{"rate":5}', self.basic(host, "yard")), 403)
        self.assertEqual(control('{"rate":5}', self.basic(host) + "Origin: https://evil.example\r\n"), 403)
        self.assertEqual(self.ask(host, "/cameras/shed/control", self.basic(host), "POST", b'{"rate":5}')[0], 404)
        # Whoever looks has the page send at its rate.
        page.until("watched", watched=False) if not any(m["type"] == "watched" for m in page.heard) else None
        page.show(1, coded_jpeg(1))
        self.wait_until(lambda: self.snapshot(host)[0] == 200, "the picture is there")
        page.until("watched", watched=True)
        page.until("watched", seconds=25, watched=False)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True, help="path of morrowstream-host")
    test_tls.options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
