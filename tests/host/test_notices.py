#!/usr/bin/env python3
"""Events reach a webhook and an MQTT broker: a real receiver, a real broker, and what becomes of them when these fail."""

import argparse
import base64
import hashlib
import hmac
import json
import os
import signal
import socket
import ssl
import subprocess
import sys
import tempfile
import threading
import time
import unittest
import urllib.error
import urllib.request
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from hostprogram import Host, free_port, wait  # noqa: E402

options = None
SECRET = "the secret of both"
SECONDS = 60  # wide: a sanitized host on a loaded machine


class Certificates:
    """Files of an authority that the host is told of, and what it and a stranger have certified."""

    def __init__(self, folder):
        self.folder = folder
        for authority, names in (("known", ("good", "elsewhere")), ("stranger", ("forged",))):
            self.openssl("req", "-x509", "-keyout", authority + ".key", "-out", authority, "-subj", f"/CN={authority}", "-addext",
                         "basicConstraints=critical,CA:TRUE")
            for name in names:
                whom = "DNS:elsewhere.example" if name == "elsewhere" else "IP:127.0.0.1"
                self.openssl("req", "-x509", "-keyout", name + ".key", "-out", name, "-subj", f"/CN={name}", "-addext", f"subjectAltName={whom}",
                             "-addext", "basicConstraints=critical,CA:FALSE", "-CA", authority, "-CAkey", authority + ".key")

    def openssl(self, *arguments):
        subprocess.run(["openssl", *arguments, "-nodes", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-days", "2"],
                       cwd=self.folder, check=True, stderr=subprocess.DEVNULL)

    def context(self, name):
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(self.folder / name, self.folder / (name + ".key"))
        return context


class Receiver:
    """Of a webhook: keeps what it takes, and answers as it is told."""

    # What it may do with the words of its answer, beside saying them.
    LIES = {"nothing": [], "no HTTP": [b"\0\xff rubbish\r\n"] * 9, "half a head": [b"HTTP/1.1 200 OK\r\nContent-Le"],
            "rubbish": [b"HTTP/1.1 200 \xff\r\nContent-Type: \0\r\n\r\n", b"\0" * 999], "no end": [b"HTTP/1.1 200 OK\r\n\r\n"] + [b"x" * 65536] * 9,
            "less than it says": [b"HTTP/1.1 200 OK\r\nContent-Length: 99\r\n\r\n", b"x"]}

    def __init__(self, context=None):
        self.status = 200
        self.lie = None
        self.hangs = threading.Event()  # answers once this is set
        self.hangs.set()
        self.taken, self.lied, self.tries = [], [], 0
        outer = self

        class Handler(BaseHTTPRequestHandler):
            def do_POST(self):
                body = self.rfile.read(int(self.headers["Content-Length"]))
                outer.tries += 1
                outer.hangs.wait(SECONDS)
                if outer.lie is not None:
                    outer.lied.append(body)
                    self.close_connection = True
                    for part in outer.LIES[outer.lie]:
                        self.connection.sendall(part)
                    return
                if outer.status == 200:
                    outer.taken.append((self.path, dict(self.headers), body))
                self.send_response(outer.status)
                self.send_header("Location", "/elsewhere")
                self.send_header("Content-Length", "0")
                self.end_headers()

            do_GET = do_POST

            def log_message(self, *_):
                pass

        self.server = ThreadingHTTPServer(("127.0.0.1", 0), Handler)
        self.server.daemon_threads = True
        self.server.handle_error = lambda *_: None  # who turns the certificate down, or has heard enough
        if context:
            self.server.socket = context.wrap_socket(self.server.socket, server_side=True, do_handshake_on_connect=False)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()
        self.address = f"{'https' if context else 'http'}://127.0.0.1:{self.server.server_port}/take"

    def events(self):
        return [json.loads(body) for _, _, body in self.taken]


class Broker:
    """mosquitto with a user, and somebody who hears everything."""

    def __init__(self, folder):
        self.folder, self.port = folder, free_port()
        self.tls = {name: free_port() for name in ("good", "elsewhere", "forged")}
        passwords = folder / "passwords"
        subprocess.run(["mosquitto_passwd", "-b", "-c", passwords, "house", SECRET], check=True, stderr=subprocess.DEVNULL)
        # As root the broker becomes somebody else before it reads its files.
        (folder / "broker.conf").write_text(
            f"listener {self.port} 127.0.0.1\nallow_anonymous false\npassword_file {passwords}\nuser root\n" + "".join(
                f"listener {port} 127.0.0.1\ncertfile {folder / name}\nkeyfile {folder / name}.key\n" for name, port in self.tls.items()),
            encoding="utf-8")
        self.heard, self.processes = [], []
        self.start()

    def start(self):
        self.broker = subprocess.Popen(["mosquitto", "-c", self.folder / "broker.conf"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.processes.append(self.broker)
        wait("the broker", self.publish)
        listener = subprocess.Popen(["mosquitto_sub", *self.sign_in(), "-q", "1", "-F", "%t %x", "-t", "#"], stdout=subprocess.PIPE, text=True)
        self.processes.append(listener)
        threading.Thread(target=self.hear, args=(listener,), daemon=True).start()
        wait("a listener", lambda: self.publish() and self.last("ready"))

    def sign_in(self):
        return ["-p", str(self.port), "-u", "house", "-P", SECRET]

    def publish(self):
        """Something that a listener hears; false while there is no broker."""
        command = ["mosquitto_pub", *self.sign_in(), "-t", "ready", "-m", "x"]
        return subprocess.run(command, check=False, stderr=subprocess.DEVNULL).returncode == 0

    def hear(self, listener):
        with listener.stdout as lines:
            for line in lines:
                topic, payload = line.rstrip("\n").split(" ")
                self.heard.append((topic, bytes.fromhex(payload)))

    def last(self, topic):
        return next((payload for at, payload in reversed(self.heard) if at == topic), None)

    def events(self, topic="cams/house/event"):
        return [json.loads(payload) for at, payload in self.heard if at == topic]

    def stop(self):
        for process in self.processes:
            process.kill()
            process.wait()
        self.processes.clear()


class Notices(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.certificates = Certificates(self.folder)
        self.receiver = Receiver()
        self.addCleanup(self.receiver.server.shutdown)
        self.broker = Broker(self.folder)
        self.addCleanup(self.broker.stop)
        self.host = Host(options.host, folder.name)
        self.addCleanup(self.host.close)
        self.host.write_cameras(["yard", "a+b"], "demo")
        self.start()

    def start(self):
        self.host.start(env=os.environ | {"SSL_CERT_FILE": str(self.folder / "known")})

    def ask(self, method, path, body=None, headers=None):
        request = urllib.request.Request(f"http://127.0.0.1:{self.host.port}{path}", method=method,
                                         data=None if body is None else json.dumps(body).encode())
        sign_in = base64.b64encode(f"admin:{self.host.admin_password()}".encode()).decode()
        for name, value in ({"Authorization": f"Basic {sign_in}", "Content-Type": "application/json"} | (headers or {})).items():
            request.add_header(name, value)
        try:
            with urllib.request.urlopen(request, timeout=SECONDS) as answer:
                return json.loads(answer.read() or b"null")
        except urllib.error.HTTPError as refusal:
            raise AssertionError(f"{method} {path}: {refusal.read().decode()}") from None

    def change(self, number):
        """One event, of which both are told."""
        self.ask("PUT", f"/api/v1/cameras/gate{number}", {"type": "320x240"})

    def notices(self, name):
        return self.ask("GET", "/api/v1/notices")[name]

    def figure(self, name, channel):
        for line in self.host.fetch("/metrics").decode().splitlines():
            if line.startswith(f'morrowstream_notices_{name}{{channel="{channel}"}} '):
                return int(line.split()[-1])
        raise AssertionError(f"no figure {name}")

    def cameras_told(self, events):
        return [event["text"] for event in events if event["kind"] == "settings-changed"]

    def test_both_are_told(self):
        self.set_up()
        self.send_tests()
        self.see_a_phone()
        self.fail_and_restart()
        self.lie()
        self.hang()
        self.go_over_tls()
        self.find_no_name()
        self.die()

    def set_up(self):
        kinds = ["settings-changed", "camera-connected"]
        told = self.ask("PUT", "/api/v1/preferences", {"notices": {
            "kinds": kinds, "webhook": {"address": self.receiver.address, "secret": SECRET},
            "mqtt": {"server": "127.0.0.1", "port": self.broker.port, "user": "house", "password": SECRET, "topic": "cams/house",
                     "snapshots": True}}})
        self.assertEqual((told["notices"]["mqtt"]["hasPassword"], told["notices"]["webhook"]["hasSecret"]), (True, True))
        self.assertEqual(told["notices"]["kinds"], sorted(kinds))
        self.assertNotIn(SECRET, json.dumps(told))
        self.ask("PUT", "/api/v1/preferences", told)  # what was told may come back
        wait("the broker's state", lambda: self.broker.last("cams/house/status") == b"online")

    def send_tests(self):
        for name in ("webhook", "mqtt"):
            result = self.ask("POST", f"/api/v1/notices/{name}/test")
            self.assertEqual((result["good"], result["test"]), (True, True), result)
        # The settings that set this up are an event as well, which may be there before or behind.
        test = next(taken for taken in self.receiver.taken if json.loads(taken[2])["kind"] == "test")
        path, headers, body = test
        sent = headers["X-Morrowstream-Time"]
        signature = hmac.new(SECRET.encode(), sent.encode() + b"." + body, hashlib.sha256).hexdigest()
        self.assertEqual((path, headers["X-Morrowstream-Signature"], headers["X-Morrowstream-Event"]), ("/take", f"sha256={signature}", "0"))
        self.assertLess(abs(time.time() - int(sent)), SECONDS)
        wait("the broker's test", lambda: "test" in [event["kind"] for event in self.broker.events()])

    def see_a_phone(self):
        camera = "cams/house/cameras/yard"
        self.assertEqual(wait("the camera's state", lambda: self.broker.last(f"{camera}/connected")), b"OFF")
        wait("an escaped camera", lambda: self.broker.last("cams/house/cameras/a%2Bb/connected"))
        found = wait("what Home Assistant is told", lambda: [
            json.loads(payload) for topic, payload in self.broker.heard if topic.startswith("homeassistant/binary_sensor/")])
        self.assertIn(f"{camera}/connected", [entity["state_topic"] for entity in found])
        self.assertEqual({entity["availability_topic"] for entity in found}, {"cams/house/status"})
        phone = subprocess.Popen([options.phone, "upload", "--server", f"127.0.0.1:{self.host.port}", "--login", "yard", "--password", "demo",
                                  "--pictures", os.path.join(options.pictures, "yard"), "--fps", "5"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(phone.communicate)
        self.addCleanup(phone.kill)
        wait("a connected camera", lambda: self.broker.last(f"{camera}/connected") == b"ON")
        wait("its event", lambda: [event["camera"] for event in self.broker.events(f"{camera}/event")] == ["yard"])
        self.assertEqual(wait("its picture", lambda: self.broker.last(f"{camera}/picture"))[:2], b"\xff\xd8")
        wait("the webhook's", lambda: "camera-connected" in [event["kind"] for event in self.receiver.events()])
        # Whatever is preferred, the upload goes on.
        self.ask("PUT", "/api/v1/preferences", {"recording": {"days": 9}, "cameras": {"yard": {"record": "always", "motion": True}}})
        frames = lambda: next(camera["frames"] for camera in self.host.health()["cameras"] if camera["name"] == "yard")  # noqa: E731
        before = frames()
        wait("more pictures", lambda: frames() > before + 3)
        self.assertIn(b'morrowstream_sessions_total{kind="upload"} 1\n', self.host.fetch("/metrics"))

    def fail_and_restart(self):
        """What a receiver does not take waits for it, over a restart too, and comes in order, once."""
        self.receiver.taken.clear()
        self.broker.stop()
        self.broker.heard.clear()
        for status in (503, 302):
            tries, self.receiver.status = self.receiver.tries, status
            self.change(status)
            wait("a try", lambda tries=tries: self.receiver.tries > tries)
        self.assertFalse(self.receiver.taken, "a redirection is not followed")
        self.assertGreater(self.notices("webhook")["waiting"], 0)
        self.assertGreater(self.figure("waiting", "webhook"), 0)
        self.assertGreaterEqual(self.figure("failed_total", "webhook"), 2)
        self.assertIn("status", self.notices("webhook")["last"]["text"])
        self.assertEqual(self.host.stop(), 0)
        self.wait_too_long()
        self.receiver.status = 200
        self.broker.start()
        self.start()
        self.change(1)
        names = ["gate503", "gate302", "gate1"]
        for heard in (self.receiver.events, self.broker.events):
            told = wait("all events", lambda heard=heard: (lambda texts: texts if len(texts) >= 3 else None)(self.cameras_told(heard())))
            self.assertEqual([next(name for name in names if name in text) for text in told], names)
        wait("an empty queue", lambda: self.notices("webhook")["waiting"] == 0 and self.notices("mqtt")["waiting"] == 0)
        for channel in ("webhook", "mqtt"):
            self.assertEqual([self.figure(name, channel) for name in ("refused_total", "passed_over_total", "waiting")], [0, 1, 0])
            self.assertGreaterEqual(self.figure("sent_total", channel), 3)
        self.receiver.status = 410
        self.change(410)
        wait("a refusal", lambda: self.figure("refused_total", "webhook") >= 1 and self.figure("waiting", "webhook") == 0)
        self.receiver.status = 200

    def wait_too_long(self):
        """An event that nobody has taken for a day and more, of the host's last words."""
        journal = max((self.folder / "data/recordings/events").iterdir())
        event = json.loads(journal.read_text(encoding="utf-8").splitlines()[-1])
        event |= {"number": event["number"] + 1, "ms": event["ms"] - 25 * 3600 * 1000, "kind": "settings-changed", "text": "gate of yesterday"}
        with journal.open("a", encoding="utf-8") as lines:
            lines.write(json.dumps(event) + "\n")

    def lie(self):
        """Whatever a receiver says, the broker is told meanwhile, and the receiver once it says that it takes it."""
        number = 100
        for self.receiver.lie in Receiver.LIES:
            with self.subTest(lie=self.receiver.lie):
                self.receiver.taken.clear()
                self.receiver.lied.clear()
                self.broker.heard.clear()
                number += 1
                self.change(number)
                name = f"gate{number}"
                count = lambda bodies, name=name: sum(name.encode() in body for body in bodies)  # noqa: E731
                takes = any(part.startswith(b"HTTP/1.1 200 ") for part in Receiver.LIES[self.receiver.lie])
                # Another event may be before it, and stays there.
                wait("a lie", lambda takes=takes: count(self.receiver.lied) if takes else self.receiver.lied)
                wait("the broker's", lambda name=name: name in "".join(self.cameras_told(self.broker.events())))
                self.assertEqual(self.ask("GET", "/api/v1/health")["status"], "ok")
                self.receiver.lie = None
                wait("an empty queue", lambda: self.notices("webhook")["waiting"] == 0)
                self.assertEqual(count(body for _, _, body in self.receiver.taken), 0 if takes else 1)
                if takes:
                    self.assertEqual(count(self.receiver.lied), 1)

    def hang(self):
        """A receiver that takes its time holds up nobody, not even the end."""
        self.receiver.hangs.clear()
        tries = self.receiver.tries
        self.change(2)
        wait("a try", lambda: self.receiver.tries > tries)
        os.kill(self.broker.broker.pid, signal.SIGSTOP)
        self.change(3)
        self.assertEqual(self.ask("GET", "/api/v1/health")["status"], "ok")
        begin = time.monotonic()
        self.assertEqual(self.host.stop(), 0)
        self.assertLess(time.monotonic() - begin, 20)
        self.receiver.hangs.set()
        os.kill(self.broker.broker.pid, signal.SIGCONT)

    def go_over_tls(self):
        """Certificates of authorities that are trusted, and for the name that was asked for, alone."""
        self.start()
        receivers = {name: Receiver(self.certificates.context(name)) for name in self.broker.tls}
        for receiver in receivers.values():
            self.addCleanup(receiver.server.shutdown)
        rows = [("elsewhere", "name"), ("forged", "certificate"), ("good", None)]
        for name, reason in rows:
            mqtt = {"port": self.broker.tls[name], "tls": True, "password": SECRET}
            self.ask("PUT", "/api/v1/preferences", {"notices": {"webhook": {"address": receivers[name].address}, "mqtt": mqtt}})
            for channel in ("webhook", "mqtt"):
                with self.subTest(channel=channel, certificate=name):
                    result = self.ask("POST", f"/api/v1/notices/{channel}/test")
                    self.assertEqual(result["good"], reason is None, result)
                    self.assertIn(reason or "", result["text"])
            self.assertEqual([event["kind"] for event in receivers[name].events() if event["kind"] == "test"], [] if reason else ["test"])
        # One port for the other kind of words.
        for channel, change in (("webhook", {"address": self.receiver.address.replace("http:", "https:")}), ("mqtt", {"port": self.broker.port, "password": SECRET})):
            self.ask("PUT", "/api/v1/preferences", {"notices": {channel: change}})
            self.assertFalse(self.ask("POST", f"/api/v1/notices/{channel}/test")["good"], channel)
        self.ask("PUT", "/api/v1/preferences", {"notices": {"mqtt": {"port": self.broker.tls["good"], "password": SECRET}}})
        self.assertEqual(self.host.stop(), 0)

    def find_no_name(self):
        """A resolver that never answers holds up neither the other receiver nor the end. Root alone can give the host another one."""
        if os.geteuid() != 0:
            return
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as silent:
            silent.bind(("127.0.0.153", 53))
            silent.settimeout(SECONDS)
            resolver, script = self.folder / "resolv.conf", self.folder / "host"
            resolver.write_text("nameserver 127.0.0.153\noptions timeout:30 attempts:5\n", encoding="utf-8")
            script.write_text(f"""#!/bin/sh\nexec unshare --mount sh -c 'mount --bind {resolver} /etc/resolv.conf && exec "$0" "$@"' {options.host} "$@"\n""",
                              encoding="utf-8")
            script.chmod(0o700)
            self.host.program = script
            self.start()
            for channel, change, name in (("mqtt", {"server": "broker.example", "password": ""}, b"broker"),
                                          ("webhook", {"address": "http://receiver.example/"}, b"receiver")):
                self.ask("PUT", "/api/v1/preferences", {"notices": {"webhook": {"address": self.receiver.address}} | {channel: change}})
                self.change(channel)
                while name not in silent.recv(512):
                    pass
                if channel == "mqtt":
                    wait("the webhook's", lambda: "gatemqtt" in "".join(self.cameras_told(self.receiver.events())))
            begin = time.monotonic()
            self.assertEqual(self.host.stop(), 0)
            self.assertLess(time.monotonic() - begin, 20)
        self.host.program = options.host
        self.start()
        self.ask("PUT", "/api/v1/preferences", {"notices": {"mqtt": {"server": "127.0.0.1", "password": SECRET}}})
        self.assertEqual(self.host.stop(), 0)

    def die(self):
        self.broker.heard.clear()
        self.start()
        wait("the broker's state", lambda: self.broker.last("cams/house/status") == b"online")
        self.host.kill()
        wait("the last will", lambda: self.broker.last("cams/house/status") == b"offline")


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True)
    parser.add_argument("--phone", required=True)
    parser.add_argument("--pictures", required=True)
    options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
