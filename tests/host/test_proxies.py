#!/usr/bin/env python3
"""nginx and HAProxy in front of the server, with the files of docs/recipes: what comes through, and as whose."""

import argparse
import os
import re
import shutil
import subprocess
import sys
import unittest
import urllib.parse
from pathlib import Path

sys.path[:0] = [str(Path(__file__).resolve().parent), str(Path(__file__).resolve().parent.parent / "browser")]
import test_tls  # noqa: E402 - a host under TLS and what talks to it
from feeder import Feeder  # noqa: E402
from hostprogram import free_port  # noqa: E402
from pictures import coded_jpeg  # noqa: E402

RECIPES = Path(__file__).resolve().parents[2] / "docs/recipes"
CLIENT, PHONE = "127.0.0.5", "127.0.0.6"  # other addresses of this machine than the proxy's


def program(name):
    return shutil.which(name) or shutil.which(name, path="/usr/sbin:/sbin")


class Proxies(test_tls.TlsCase):
    def setUp(self):
        super().setUp()
        self.host = self.start("--trusted-proxy", "127.0.0.1", "--no-tls")
        self.make_pair("cams.example.org")
        self.port = free_port()

    def recipe(self, name, changes):
        """The file, with what its first lines ask to be put in."""
        text = (RECIPES / name).read_text(encoding="utf-8")
        for was, becomes in changes:
            self.assertEqual(text.count(was), 1, was)
            text = text.replace(was, becomes)
        path = self.path(name)
        Path(path).write_text(text, encoding="utf-8")
        return path

    def run_proxy(self, command, *ports):
        with open(self.path("proxy.log"), "ab") as log:
            proxy = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)
        self.addCleanup(proxy.wait)
        self.addCleanup(proxy.terminate)
        for port in ports:
            self.wait_until(lambda: proxy.poll() is not None or self.answers(port), Path(self.path("proxy.log")).read_text())  # noqa: B023
        self.assertIsNone(proxy.poll(), Path(self.path("proxy.log")).read_text(encoding="utf-8"))

    def answers(self, port):
        try:
            test_tls.socket.create_connection(("127.0.0.1", port), timeout=20).close()
            return True
        except ConnectionRefusedError:
            return False

    def open(self):
        plain = test_tls.socket.create_connection(("127.0.0.1", self.port), timeout=20, source_address=(CLIENT, 0))
        self.addCleanup(plain.close)
        context = self.context(self.path("cams.example.org.pem"))
        return context.wrap_socket(plain, server_hostname="cams.example.org")

    def talk(self, connection, target, lines=""):
        connection.sendall(f"GET {target} HTTP/1.1\r\nHost: cams.example.org:{self.port}\r\n{lines}\r\n".encode())

    def sign_in(self, origin):
        """As a browser does it: the line with the cookie, which goes over https alone."""
        form = urllib.parse.urlencode({"name": "admin", "password": self.host.admin_password()})
        with self.open() as connection:
            connection.sendall((f"POST /sign-in HTTP/1.1\r\nHost: cams.example.org:{self.port}\r\nOrigin: {origin}\r\n"
                                f"Content-Type: application/x-www-form-urlencoded\r\nContent-Length: {len(form)}\r\n\r\n{form}").encode())
            status, head, _ = test_tls.read_answer(connection)
        self.assertEqual(status, 303)
        return "Cookie: " + re.search(r"(?i)\r\nset-cookie: (__Host-[^;]*)", head)[1] + "\r\n"

    def refused(self):
        return set(re.findall(r" refused +([^,]*)", self.host.log_tail()))

    def look_through(self):
        """Pages, the page's socket and motion JPEG, and whom the log names."""
        basic = self.basic(self.host)
        with self.open() as connection:
            for target, lines, status in (("/", basic, 200), ("/health", "Authorization: Basic eDp5\r\n", 401),
                                          ("/health", "X-Forwarded-For: 192.0.2.7\r\nAuthorization: Basic eDp6\r\n", 401),
                                          ("/live/none", basic, 404)):
                self.talk(connection, target, lines)
                self.assertEqual(test_tls.read_answer(connection)[0], status, target)
        self.assertEqual(self.refused(), {CLIENT}, "whatever the client says of whom it speaks for")
        with Feeder(self.host.port, "yard", "demo", [coded_jpeg(number) for number in range(4)], 20):
            with self.open() as stream:
                self.talk(stream, "/live/yard", basic)
                seen = b""
                while seen.count(b"\r\n--morrowstream-picture") < 5:
                    part = stream.recv(65536)
                    self.assertTrue(part, seen[:1000])
                    seen += part
            secure = f"https://cams.example.org:{self.port}"
            upgrade = ("Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                       f"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n{self.sign_in(secure)}")
            for origin, status in ((secure, 101), (secure.replace("https", "http"), 403)):
                with self.open() as page:
                    self.talk(page, "/tiles", f"Origin: {origin}\r\n{upgrade}")
                    self.assertEqual(test_tls.read_answer(page)[0], status)
                    kind = 1 if status == 101 else 2
                    while kind != 2:
                        kind, body = test_tls.read_message(page)
                    self.assertTrue(status != 101 or body[20:22] == b"\xFF\xD8")

    def test_nginx(self):
        recipe = self.recipe("nginx.conf", (
            ("127.0.0.1:8080;", f"127.0.0.1:{self.host.port};"), ("    listen 443 ssl;\n", f"    listen 127.0.0.1:{self.port} ssl;\n"),
            ("    listen [::]:443 ssl;\n", ""), ("/etc/ssl/cams.example.org.pem", self.path("cams.example.org.pem")),
            ("/etc/ssl/cams.example.org.key", self.path("cams.example.org.key"))))
        whole = self.path("whole.conf")
        kept = "\n".join(f"{kind}_temp_path {self.folder}/{kind};" for kind in ("client_body", "proxy", "fastcgi", "uwsgi", "scgi"))
        user = "user root root;\n" if os.geteuid() == 0 else ""
        Path(whole).write_text(f"{user}daemon off;\npid {self.path('pid')};\nerror_log stderr;\nevents {{}}\n"
                               f"http {{\naccess_log off;\n{kept}\ninclude {recipe};\n}}\n", encoding="utf-8")
        self.run_proxy([program("nginx"), "-p", self.folder, "-e", "stderr", "-c", whole], self.port)
        self.look_through()

    def test_haproxy(self):
        both = self.path("both.pem")
        Path(both).write_bytes(b"".join(Path(self.path("cams.example.org." + kind)).read_bytes() for kind in ("pem", "key")))
        phones = free_port()
        text = self.recipe("haproxy.cfg", (
            ("bind :443 ", f"bind 127.0.0.1:{self.port} "), ("bind :8081\n", f"bind 127.0.0.1:{phones}\n"),
            ("/etc/ssl/cams.example.org.pem", both), ("127.0.0.1:8080\n", f"127.0.0.1:{self.host.port}\n"),
            ("127.0.0.1:8080 send-proxy-v2", f"127.0.0.1:{self.host.port} send-proxy-v2")))
        self.run_proxy([program("haproxy"), "-db", "-f", text], self.port, phones)
        self.look_through()
        # Through the other front: a phone, and a wrong password of this client.
        with Feeder(phones, "yard", "demo", [coded_jpeg(1)], 20):
            before = self.host.health()["cameras"][0]["frames"]
            self.wait_until(lambda: self.host.health()["cameras"][0]["frames"] > before + 10, "pictures arrive")
        with test_tls.socket.create_connection(("127.0.0.1", phones), timeout=20, source_address=(PHONE, 0)) as connection:
            self.talk(connection, "/mobile", "Authorization: Basic eDp3\r\n")
            self.assertEqual(test_tls.read_answer(connection)[0], 401)
        self.assertEqual(self.refused(), {CLIENT, PHONE})


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True, help="path of morrowstream-host")
    test_tls.options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
