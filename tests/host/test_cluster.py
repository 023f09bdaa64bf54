#!/usr/bin/env python3
"""Several hosts that are one server, over a real server of the message engine: what is changed at one is so at the others."""

import argparse
import base64
import json
import os
import re
import shutil
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.parse
import urllib.request
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from hostprogram import Host  # noqa: E402 - it stands beside the browser tests
from machines import SECRET, Nats  # noqa: E402

options = None  # set at the end


class Member(Host):
    """Whose administrator may be another host's."""

    def health(self):
        with urllib.request.urlopen(f"http://127.0.0.1:{self.port}/healthz", timeout=5) as answer:
            return answer.read()


class Cluster(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="cluster-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.engine = Nats(self.folder)
        self.addCleanup(self.engine.kill)
        self.engine.start()
        Path(self.path("secret")).write_text(SECRET + "\n", encoding="utf-8")

    def path(self, *names):
        return os.path.join(self.folder, *names)

    def words(self, node):
        return ["--quiet", "--no-tls", "--cluster", f"nats://127.0.0.1:{self.engine.port}", "--node", node, "--cluster-secret",
                self.path("secret"), "--public", "cams.example.org:7000"]

    def host(self, node, *words, start=True):
        os.makedirs(self.path(node), exist_ok=True)
        host = Member(options.host, self.path(node), [*self.words(node), *words])
        self.addCleanup(host.close)
        if start:
            host.start()
        return host

    def ask(self, host, target, method="GET", body=None, sign_in=("admin", "geheim 1"), lines="", form=None):
        """Status, headers, and what JSON the body has."""
        content = b"" if body is None else json.dumps(body).encode()
        kind = "application/json"
        if form is not None:
            content, kind = urllib.parse.urlencode(form).encode(), "application/x-www-form-urlencoded"
        if sign_in:
            lines += "Authorization: Basic " + base64.b64encode(":".join(sign_in).encode()).decode() + "\r\n"
        head = (f"{method} {target} HTTP/1.1\r\nHost: 127.0.0.1:{host.port}\r\nConnection: close\r\n{lines}"
                f"Content-Type: {kind}\r\nContent-Length: {len(content)}\r\n\r\n")
        with socket.create_connection(("127.0.0.1", host.port), timeout=60) as connection:
            connection.sendall(head.encode() + content)
            answer = b""
            while part := connection.recv(65536):
                answer += part
        head, _, content = answer.partition(b"\r\n\r\n")
        headers = dict(re.findall(r"\r\n([^:]+): ([^\r]*)", head.decode()))
        return int(head[9:12]), headers, json.loads(content) if "json" in headers.get("Content-Type", "") and content else content

    def figure(self, host, name):
        metrics = self.ask(host, "/metrics")[2].decode()
        return float(metrics.split(f"\nmorrowstream_cluster_{name} ")[1].split("\n")[0])

    def cameras(self, host):
        _, _, answer = self.ask(host, "/api/v1/cameras")
        return sorted(camera["name"] for camera in answer["cameras"])

    def put_camera(self, host, name, password="demo"):
        return self.ask(host, f"/api/v1/cameras/{name}", "PUT", {"password": password})[0]

    def soon(self, condition, what, seconds=30):
        until = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), until, what)
            time.sleep(0.05)

    def founded(self):
        first = self.host("a", start=False)
        subprocess.run([options.host, "--data", first.data, "--add-user", "admin", "--kind", "admin"], input="geheim 1\n", text=True, check=True,
                       stdout=subprocess.DEVNULL, timeout=60)
        first.start()
        return first

    def test_what_is_changed_at_one_host_is_so_at_the_others(self):
        a = self.founded()
        self.assertEqual(self.put_camera(a, "yard"), 201)
        b = self.host("b")
        self.assertEqual(self.cameras(b), ["yard"], "and its users are those of the cluster")
        self.assertEqual(self.put_camera(b, "gate"), 201)
        self.soon(lambda: self.cameras(a) == ["gate", "yard"], "a camera")
        self.assertEqual(self.ask(b, "/api/v1/cameras/yard", "DELETE")[0], 204)
        self.soon(lambda: self.cameras(a) == ["gate"], "a camera that goes")
        self.assertEqual(self.ask(a, "/api/v1/preferences", "PUT", {"recording": {"days": 3}})[0], 200)
        self.soon(lambda: self.ask(b, "/api/v1/preferences")[2]["recording"]["days"] == 3, "preferences")
        settings = Path(self.path("b", "data", "Norvane/Tessaron/Servers/Morrowstream.xml"))
        self.assertIn("cams.example.org:7000</host>", settings.read_text(encoding="utf-8"))

        # Users, sessions, tokens.
        self.assertEqual(self.ask(a, "/api/v1/users/vera", "PUT", {"kind": "viewer", "password": "long enough"})[0], 201)
        vera = ("vera", "long enough")
        self.soon(lambda: self.ask(b, "/health", sign_in=vera)[0] == 200, "a user")
        origin = f"Origin: http://127.0.0.1:{a.port}\r\n"
        status, headers, _ = self.ask(a, "/sign-in", "POST", lines=origin, sign_in=None,
                                      form={"name": "vera", "password": "long enough", "to": "/"})
        self.assertEqual(status, 303)
        number = headers["Set-Cookie"].split(";")[0].split("=")[1]
        # Behind a balancer both have one port, of which the cookie's name is made.
        session = lambda host: self.ask(host, "/health", sign_in=None, lines=f"Cookie: morrow-plain-{host.port}={number}\r\n")[0]  # noqa: E731
        self.assertEqual(session(a), 200)
        self.soon(lambda: session(b) == 200, "a session")
        token = self.ask(b, "/api/v1/tokens", "POST", {"name": "t", "scope": "read"})[2]["token"]
        with_token = lambda host: self.ask(host, "/health", sign_in=None, lines=f"Authorization: Bearer {token}\r\n")[0]  # noqa: E731
        self.soon(lambda: with_token(a) == 200, "a token")
        self.assertEqual(self.ask(b, "/api/v1/users/vera", "DELETE")[0], 204)
        self.soon(lambda: session(a) == 401 and session(b) == 401, "the end of a user")

        self.assertEqual(self.figure(a, "connected"), 1)
        self.assertGreater(self.figure(a, 'messages_total{direction="in"}'), 10)

        # Without the engine all goes on, and nothing can be changed; a host that starts knows what was known last.
        users = Path(self.path("b", "data", "users"))
        self.soon(lambda: users.exists() and "admin" in users.read_text(encoding="utf-8") and "vera" not in users.read_text(encoding="utf-8"),
                  "the file follows")
        self.engine.kill()
        self.soon(lambda: self.put_camera(a, "late") == 503, "a change that nobody can be told of")
        self.assertEqual(self.cameras(a), ["gate"])
        self.assertEqual(self.ask(a, "/readyz", sign_in=None)[0], 200)
        self.assertEqual(self.figure(a, "connected"), 0)
        self.assertEqual(self.ask(a, "/api/v1/users/otto", "PUT", {"kind": "viewer", "password": "long enough"})[0], 503)
        self.assertEqual(self.ask(a, "/api/v1/cameras/gate/link", "POST")[0], 503)
        b.stop()
        b.start()
        self.assertEqual(self.cameras(b), ["gate"])
        self.engine.start()
        self.soon(lambda: self.put_camera(b, "later") in (200, 201), "it heals by itself")
        self.soon(lambda: self.cameras(a) == ["gate", "later"], "and the other one follows")

    def test_a_host_that_dies_over_the_founding_is_in_nobodys_way(self):
        os.makedirs(self.path("x", "data", "cameras"))  # which is to be a file: the host ends, but has begun
        subprocess.run([options.host, "--data", self.path("x", "data"), "--add-user", "eve", "--kind", "admin"], input="geheim 1\n", text=True,
                       check=True, stdout=subprocess.DEVNULL, timeout=60)
        self.refused("x", *self.words("x"))
        a = self.founded()
        self.assertEqual(self.put_camera(a, "yard"), 201)
        self.assertEqual([user["login"] for user in self.ask(a, "/api/v1/users")[2]["users"]], ["admin"])

    def refused(self, node, *words):
        done = subprocess.run([options.host, "--listen", "127.0.0.1:0", "--data", self.path(node, "data"), *words], stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT, text=True, timeout=120)
        self.assertEqual(done.returncode, 1, done.stdout)
        return done.stdout

    def test_a_host_with_settings_of_its_own_is_asked_what_becomes_of_them(self):
        a = self.founded()
        self.put_camera(a, "yard")
        os.makedirs(self.path("c"))
        alone = Host(options.host, self.path("c"), ["--quiet", "--no-tls"])
        self.addCleanup(alone.close)
        alone.write_cameras(["yard", "door"], "other")
        alone.start()
        alone.stop()
        users = Path(self.path("c", "data", "users")).read_text(encoding="utf-8")
        said = self.refused("c", *self.words("c"))
        for line in ('the camera "yard" has another type and another password there', 'the camera "door" is not there', "in 2 places", "--cluster-join=merge"):
            self.assertIn(line, said)
        self.assertEqual(Path(self.path("c", "data", "users")).read_text(encoding="utf-8"), users)
        c = self.host("c", "--cluster-join=merge")
        self.assertEqual(self.cameras(c), ["door", "yard"])
        self.soon(lambda: self.cameras(a) == ["door", "yard"], "what only it had")
        self.assertEqual(Path(self.path("c", "data", "users.before-cluster")).read_text(encoding="utf-8"), users)
        self.assertIn("other</Password>", Path(self.path("c", "data", "Norvane/Tessaron/Servers/Morrowstream.xml.before-cluster")).read_text(
            encoding="utf-8"))
        c.stop()
        # It is one of them from now on.
        self.assertIn("is one of a cluster", self.refused("c"))
        said = subprocess.run([options.host, "--data", self.path("c", "data"), "--add-user", "eve", "--kind", "admin"], input="long enough\n",
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
        self.assertEqual((said.returncode, "is one of a cluster" in said.stdout), (1, True), said.stdout)
        # Who has another secret reads nothing and changes nothing.
        Path(self.path("secret")).write_text("another secret of 32 bytes or more\n", encoding="utf-8")
        self.refused("d", *self.words("d"))
        self.assertEqual(self.cameras(a), ["door", "yard"])


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True)
    options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest])
