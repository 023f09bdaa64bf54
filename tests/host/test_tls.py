#!/usr/bin/env python3
"""https on the port of plain HTTP: whom its certificate stands for, and that everything comes over it as it does in clear."""

import argparse
import base64
import hashlib
import json
import os
import plistlib
import re
import shutil
import signal
import socket
import ssl
import stat
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from feeder import Feeder  # noqa: E402 - it stands beside the browser tests
from hostprogram import Host  # noqa: E402
from pictures import coded_jpeg  # noqa: E402

options = None  # set at the end


def openssl(*words, status=0):
    done = subprocess.run(["openssl", *words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          timeout=60)
    if status is not None and done.returncode != status:
        raise AssertionError(f"openssl {' '.join(words)}: {done.returncode}\n{done.stdout}")
    return done.stdout


class TlsCase(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="tls-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def start(self, *words, **others):
        host = Host(options.host, self.folder, ["--quiet", *words])
        self.addCleanup(host.close)
        host.write_cameras(["yard"], "demo")
        host.start(**others)
        return host

    def path(self, name):
        return os.path.join(self.folder, name)

    def data(self, name):
        return os.path.join(self.folder, "data", name)

    def basic(self, host, login="admin"):
        password = host.admin_password() if login == "admin" else "demo"
        return "Authorization: Basic " + base64.b64encode(f"{login}:{password}".encode()).decode() + "\r\n"

    def context(self, authority=None):
        return ssl.create_default_context(cafile=authority or self.data("tls/ca.pem"))

    def connect(self, host, context=None, name="127.0.0.1"):
        plain = socket.create_connection(("127.0.0.1", host.port), timeout=20)
        self.addCleanup(plain.close)
        secure = (context or self.context()).wrap_socket(plain, server_hostname=name)
        self.addCleanup(secure.close)
        return secure

    def make_pair(self, name):
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "30", "-subj", f"/CN={name}",
                "-addext", f"subjectAltName=DNS:{name}", "-keyout", self.path(name + ".key"), "-out", self.path(name + ".pem"))

    def wait_until(self, condition, what, seconds=30):
        deadline = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.02)


def talk(connection, target, lines="", method="GET"):
    """Status, head and body of one answer that has a length."""
    connection.sendall(f"{method} {target} HTTP/1.1\r\nHost: localhost\r\n{lines}\r\n".encode())
    return read_answer(connection)


def read_answer(connection):
    head = b""
    while not head.endswith(b"\r\n\r\n"):
        byte = connection.recv(1)
        if not byte:
            raise EOFError(head)
        head += byte
    length = re.search(rb"(?i)\r\nContent-Length: (\d+)", head)
    body = b""
    while length and len(body) < int(length[1]):
        body += connection.recv(65536)
    return int(head[9:12]), head.decode(), body


class Certificate(TlsCase):
    def test_the_authority_stands_for_this_machine_and_nothing_else(self):
        host = self.start()
        authority, key = self.data("tls/ca.pem"), self.data("tls/ca-key.pem")
        for name, mode in (("ca-key.pem", 0o600), ("server-key.pem", 0o600), ("ca.pem", 0o644), ("server.pem", 0o644)):
            self.assertEqual(stat.S_IMODE(os.stat(self.data("tls/" + name)).st_mode), mode, name)
        for name in ("127.0.0.1", "localhost"):
            said = openssl("s_client", "-connect", f"127.0.0.1:{host.port}", "-CAfile", authority, "-verify_return_error",
                           "-verify_ip" if name[0] == "1" else "-verify_hostname", name)
            self.assertIn("Verify return code: 0 (ok)", said)
            subprocess.run(["curl", "--silent", "--fail", "--noproxy", "*", "--cacert", authority, f"https://{name}:{host.port}/healthz"],
                           check=True, stdout=subprocess.DEVNULL, timeout=60)
        with self.assertRaises(ssl.SSLCertVerificationError):
            self.connect(host, name="www.example.org")
        with self.assertRaises(ssl.SSLError):
            old = self.context()
            old.maximum_version = ssl.TLSVersion.TLSv1_1
            self.connect(host, old)
        said = openssl("x509", "-in", authority, "-noout", "-text")
        for line in ("X509v3 Name Constraints: critical", "DNS:localhost", "IP:127.0.0.0/255.0.0.0", "CA:TRUE, pathlen:0",
                     "X509v3 Extended Key Usage: \n                TLS Web Server Authentication", "NIST CURVE: P-256"):
            self.assertIn(line, said)
        server = openssl("x509", "-in", self.data("tls/server.pem"), "-noout", "-checkend", str(365 * 86400))
        self.assertIn("will not expire", server)
        openssl("x509", "-in", self.data("tls/server.pem"), "-noout", "-checkend", str(398 * 86400), status=1)

        # Whoever has the authority's key cannot be somebody else with it.
        openssl("req", "-new", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", self.path("k"), "-subj", "/O=x",
                "-out", self.path("csr"))
        for names, good in (("DNS:localhost,IP:127.0.0.9", True), ("DNS:www.example.org", False), ("DNS:localhost,IP:8.8.8.8", False),
                            ("DNS:localhost,IP:2001:db8::1", False), ("DNS:org", False)):
            Path(self.path("extensions")).write_text(f"subjectAltName={names}\nextendedKeyUsage=serverAuth\n", encoding="utf-8")
            openssl("x509", "-req", "-in", self.path("csr"), "-CA", authority, "-CAkey", key, "-days", "9", "-extfile", self.path("extensions"),
                    "-out", self.path("foreign.pem"))
            said = openssl("verify", "-CAfile", authority, self.path("foreign.pem"), status=None)
            self.assertEqual("permitted subtree violation" not in said, good, said)

    def test_a_name_outside_makes_a_new_authority_and_another_one_a_new_certificate_alone(self):
        host = self.start()
        read = lambda name: Path(self.data("tls/" + name)).read_text(encoding="utf-8")  # noqa: E731
        first = read("ca.pem"), read("server.pem")
        settings = Path(self.data("Norvane/Tessaron/Servers/Morrowstream.xml"))
        for told, same_authority in ((f"127.0.0.1:{host.port}", True), ("Cams.Example.org:1", False), (f"127.0.0.1:{host.port}", True)):
            host.stop()
            settings.write_text(re.sub(r">[^<]*</host>", f">{told}</host>", settings.read_text(encoding="utf-8")), encoding="utf-8")
            host.start()
            now = read("ca.pem"), read("server.pem")
            self.assertEqual(now[0] == first[0], same_authority, told)
            self.assertEqual("earlier one" in now[0], "earlier one" in first[0] or not same_authority)
            first = now
            if not same_authority:
                self.assertIn("have to trust again", host.log_tail())
                self.connect(host, name="cams.example.org").close()
        Path(self.data("tls/server.pem")).write_text("spoiled", encoding="utf-8")
        self.wait_until(lambda: "BEGIN CERTIFICATE" in read("server.pem"), "the certificate is still spoiled")
        self.assertEqual(read("ca.pem"), first[0])
        self.connect(host).close()

    def use(self, certificate, key):
        for source, target in ((certificate, "cert"), (key, "key")):
            shutil.copy(self.path(source), self.path(target + ".new"))
            os.replace(self.path(target + ".new"), self.path(target))

    def test_an_operators_pair_is_read_again_and_no_connection_is_lost_by_it(self):
        for name in ("one.example", "two.example"):
            self.make_pair(name)
        self.use("one.example.pem", "one.example.key")
        host = self.start("--tls-cert", self.path("cert"), "--tls-key", self.path("key"))
        self.assertFalse(os.path.exists(self.data("tls")))
        one, two = (self.context(self.path(name + ".pem")) for name in ("one.example", "two.example"))

        def shows(name):
            try:
                self.connect(host, two if name[0] == "t" else one, name).close()
                return True
            except ssl.SSLCertVerificationError:
                return False

        # A pair that does not fit changes nothing.
        self.use("two.example.pem", "one.example.key")
        host.process.send_signal(signal.SIGHUP)
        self.wait_until(lambda: "the former certificate stays in use: the key is not that" in host.log_tail(), "it says so")
        self.assertTrue(shows("one.example"))
        # On its own, without the signal.
        self.use("two.example.pem", "two.example.key")
        self.wait_until(lambda: shows("two.example"), "the new pair is in use")
        either = ssl.create_default_context(cafile=self.path("one.example.pem"))
        either.load_verify_locations(self.path("two.example.pem"))
        either.check_hostname = False
        failed, done = [], []

        def connect_often():
            for _ in range(100):
                try:
                    with self.connect(host, either) as connection:
                        self.assertEqual(talk(connection, "/healthz")[0], 200)
                    done.append(1)
                except Exception as failure:  # noqa: BLE001 - each one counts
                    failed.append(failure)

        lasting = self.connect(host, either)
        threads = [threading.Thread(target=connect_often) for _ in range(10)]
        for thread in threads:
            thread.start()
        for turn in range(10):
            name = ("one.example", "two.example")[turn % 2]
            self.use(name + ".pem", name + ".key")
            host.process.send_signal(signal.SIGHUP)
            self.wait_until(lambda: shows(name), "reloaded")
            self.assertEqual(talk(lasting, "/healthz")[0], 200, "a live connection goes on")
        for thread in threads:
            thread.join()
        self.assertEqual((failed, len(done)), ([], 1000))
        self.assertEqual(host.stop(), 0)

    def test_what_makes_no_sense_is_refused_at_the_start(self):
        self.make_pair("one.example")
        Path(self.path("empty")).write_text("", encoding="utf-8")
        rows = ((["--tls-cert", "x"], 2, "--tls-cert and --tls-key go together"),
                (["--no-tls", "--tls-cert", "x", "--tls-key", "x"], 2, "--no-tls and --tls-cert do not go together"),
                (["--tls-cert", self.path("no"), "--tls-key", self.path("no")], 1, "cannot be used: cannot read"),
                (["--tls-cert", self.path("empty"), "--tls-key", self.path("empty")], 1, "there is no certificate in PEM in it"),
                (["--tls-cert", self.path("one.example.pem"), "--tls-key", self.path("one.example.pem")], 1, "there is no key in PEM"))
        for words, status, line in rows:
            done = subprocess.run([options.host, "--listen", "127.0.0.1:0", "--data", self.path("data"), "--seconds", "1", *words],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=60)
            self.assertEqual(done.returncode, status, done.stdout)
            self.assertIn(line, done.stdout)


class Elsewhere(TlsCase):
    """What another machine gets: this one counts as such where it uses an address that is not the loopback."""

    # Pattern and method of each row, a target, and what it gets in clear: "moved" to https, "refused", or its status there.
    ROWS = {
        ("/", "GET"): ("/", "moved"), ("/tiles", "WS"): ("/tiles", "refused"), ("/live/*", "GET"): ("/live/yard", "refused"),
        ("/snapshot/*", "GET"): ("/snapshot/yard.jpg", "refused"), ("/view/*", "GET"): ("/view/yard?a=b", "moved"),
        ("/view/*", "WS"): ("/view/yard", "refused"), ("/recordings", "GET"): ("/recordings", "moved"),
        ("/recordings/*", "GET"): ("/recordings/yard", "moved"), ("/recordings/*/at.jpg", "GET"): ("/recordings/yard/at.jpg?t=0", "refused"),
        ("/recordings/*/export", "GET"): ("/recordings/yard/export", "refused"), ("/recordings/*/export", "DELETE"): ("/recordings/yard/export", "refused"),
        ("/recordings/*/file", "GET"): ("/recordings/yard/file?number=1", "refused"), ("/recordings/*/export/state", "GET"): ("/recordings/yard/export/state", "refused"), ("/tiny/*", "GET"): ("/tiny", 401), ("/assets/*", "GET"): ("/assets/live/app.js", "moved"),
        ("/health", "GET"): ("/health", "refused"), ("/metrics", "GET"): ("/metrics", "refused"), ("/healthz", "GET"): ("/healthz", 200),
        ("/readyz", "GET"): ("/readyz", 200), ("/settings", "GET"): ("/settings", "moved"), ("/settings/", "GET"): ("/settings/", "moved"),
        ("/settings/*", "GET"): ("/settings/x", "refused"), ("/settings/state", "GET"): ("/settings/state", "refused"),
        ("/settings/document", "GET"): ("/settings/document", "refused"), ("/settings/document", "PUT"): ("/settings/document", "refused"),
        ("/settings/preferences", "GET"): ("/settings/preferences", "refused"), ("/settings/preferences", "PUT"): ("/settings/preferences", "refused"),
        ("/settings/secret", "GET"): ("/settings/secret", "refused"), ("/settings/language", "PUT"): ("/settings/language", "refused"),
        ("/events", "GET"): ("/events", "moved"), ("/events", "WS"): ("/events", "refused"),
        ("/links/*", "DELETE"): ("/links/x", "refused"), ("/get/*", "GET"): ("/get/x", 410),
        ("/xslt/enum/all", "GET"): ("/xslt/enum/all?xslt=cameras.xsl", 401), ("/mobile/*", "GET"): ("/mobile", 401),
        ("/mobile/config/*", "GET"): ("/mobile/config", "refused"), ("/mobile/video/*", "GET"): ("/mobile/video/yard", 401),
        ("/mobile/video/*", "POST"): ("/mobile/video/yard", 401), ("/sign-in", "GET"): ("/sign-in?to=/tiny", "moved"),
        ("/sign-in", "POST"): ("/sign-in", "refused"), ("/sign-out", "POST"): ("/sign-out", "refused"), ("/archive", "POST"): ("/archive", "refused"),
        ("/password", "GET"): ("/password", "moved"),
        ("/phone", "GET"): ("/phone", "moved"), ("/phone/manifest.webmanifest", "GET"): ("/phone/manifest.webmanifest", "refused"),
        ("/phone/state", "GET"): ("/phone/state", "refused"), ("/phone/socket", "WS"): ("/phone/socket", "refused"),
        **{(f"/phone/{word}", "POST"): (f"/phone/{word}", "refused") for word in ("pair", "sign-in", "leave", "picture")},
        ("/api/v1/openapi.json", "GET"): ("/api/v1/openapi.json", 200), ("/api/*", "GET"): ("/api/x", "refused"),
        **{(f"/api/v1/{place}", method): (f"/api/v1/{place.replace('*', 'x')}", "refused") for method, places in (
            ("GET", "health cameras cameras/* cameras/*/state cameras/*/snapshot users users/* events phones tokens preferences notices recordings recordings/*"),
            ("PATCH", "cameras"), ("PUT", "cameras/* users/* password preferences recordings/*/kept"), ("POST", "cameras/*/link tokens notices/*/test"),
            ("DELETE", "cameras/* users/* phones/* tokens/* recordings/*/kept")) for place in places.split()},
        ("/cameras/*", "POST"): ("/cameras/yard/control", "refused"), ("/assets/phone/*", "GET"): ("/assets/phone/app.js", "moved"),
        ("/assets/shared/*", "GET"): ("/assets/shared/style.css", "moved"),
        ("/users", "GET"): ("/users", "moved"), ("/users", "POST"): ("/users", "refused"),
        ("/password", "POST"): ("/password", "refused"), ("/trust", "GET"): ("/trust", 200),
        ("/trust/*", "GET"): ("/trust/authority.crt", "refused"), ("/*", "GET"): ("/nothing", "moved"),
    }
    METHODS = {"kRead": "GET", "kGet": "GET", "kSocket": "WS", "kPost": "POST", "kPut": "PUT", "kDelete": "DELETE",
               "kPatch": "PATCH", "kAny": "GET"}

    def start_for_others(self, *words):
        with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
            try:
                probe.connect(("198.51.100.1", 9))
            except OSError:
                self.skipTest("this machine has no address but the loopback")
            self.own = probe.getsockname()[0]
        host = Host(options.host, self.folder, ["--quiet", *words])
        self.addCleanup(host.close)
        host.write_cameras(["yard"], "demo")
        host.listen = f"0.0.0.0:{host.port}"
        host.start()
        return host

    def ask(self, host, target, lines="", method="GET", name=None, address=None, before=b""):
        """Status, head and body, in clear and by default from another machine."""
        with socket.create_connection((address or self.own, host.port), timeout=20) as plain:
            upgrade = "Connection: Upgrade\r\nUpgrade: websocket\r\n" if method == "WS" else ""
            plain.sendall(before + f"{method.replace('WS', 'GET')} {target} HTTP/1.1\r\nHost: {name or f'{self.own}:{host.port}'}\r\n"
                          f"Connection: close\r\n{upgrade}{lines}\r\n".encode())
            return read_answer(plain)

    def test_the_column_of_the_table_of_addresses(self):
        host = self.start_for_others()
        source = Path(__file__).resolve().parents[2] / "host/site/addresses.cpp"
        rows = re.findall(r'^    \{"(/[^"]*)", +(\w+),', source.read_text(encoding="utf-8"), re.M)
        self.assertEqual({(pattern, self.METHODS[methods]) for pattern, methods in rows}, set(self.ROWS))
        for (pattern, method), (target, wanted) in self.ROWS.items():
            with self.subTest(pattern=pattern, method=method):
                status, head, body = self.ask(host, target, method=method)
                if wanted == "moved":
                    self.assertEqual(status, 307)
                    self.assertIn(f"\r\nLocation: https://{self.own}:{host.port}{target}\r\n", head)
                    self.assertNotIn("Strict-Transport-Security", head)
                    self.assertEqual(self.ask(host, target, name="evil.example")[0], 421)
                    self.assertEqual(self.ask(host, target, method="DELETE")[0], 403, "a change is not sent on")
                elif wanted == "refused":
                    self.assertEqual(status, 403)
                    self.assertIn(b"https", body)
                    self.assertIn(b"--allow-plain", body)
                    self.assertNotIn("WWW-Authenticate", head, "no password is asked for")
                else:
                    self.assertEqual(status, wanted)
                self.assertNotIn(status, (307, 421), "") if isinstance(wanted, int) else None
                # This machine itself is no other one.
                near = self.ask(host, target, method=method, address="127.0.0.1", name="localhost")
                self.assertNotIn(b"--allow-plain", near[2])
                self.assertNotIn(near[0], (307, 421))
        for spelling in ("/mobile/%63onfig", "/mobile//config", "/mobile/config/x", "/mobile/x%2Fconfig"):
            self.assertEqual(self.ask(host, spelling)[0], 403, spelling)
        # A phone of today follows, and the host's own authority is what it needs.
        done = subprocess.run(["curl", "--silent", "--location", "--noproxy", "*", "--cacert", self.data("tls/ca.pem"), "--output", os.devnull,
                               "--write-out", "%{http_code} %{scheme}", f"http://{self.own}:{host.port}/"],
                              stdout=subprocess.PIPE, text=True, timeout=60, check=True)
        self.assertEqual(done.stdout.lower(), "401 https")
        page = self.ask(host, "/trust", "Accept: text/html\r\nAccept-Language: ru\r\n")[2].decode()
        self.assertIn(f'href="https://{self.own}:{host.port}/trust"', page)
        self.assertNotIn("authority.crt", page)
        with self.connect(host) as secure:
            status, head, body = talk(secure, "/trust/authority.crt")
            self.assertEqual((status, ssl.DER_cert_to_PEM_cert(body)),
                             (200, Path(self.data("tls/ca.pem")).read_text(encoding="utf-8")))
            self.assertIn("authority.mobileconfig", talk(secure, "/trust", "Accept: text/html\r\n")[2].decode())
            profile = plistlib.loads(talk(secure, "/trust/authority.mobileconfig")[2])
            self.assertEqual(profile["PayloadContent"][0]["PayloadContent"], body)
            self.assertNotEqual(profile["PayloadUUID"], profile["PayloadContent"][0]["PayloadUUID"])
            fingerprint = ":".join(f"{byte:02X}" for byte in hashlib.sha256(body).digest())
            state = json.loads(talk(secure, "/settings/state", self.basic(host))[2])
            self.assertEqual(state["trust"], {"fingerprint": fingerprint, "own": True, "replaced": False})
            self.assertNotIn(fingerprint, talk(secure, "/trust")[2].decode())

    def test_allow_plain_and_no_tls_serve_everything_in_clear(self):
        for word in ("--allow-plain", "--no-tls"):
            host = self.start_for_others(word)
            self.assertEqual(self.ask(host, "/")[0], 401)
            self.assertEqual(self.ask(host, "/health", self.basic(host))[0], 200)
            host.stop()

    def test_a_trusted_proxy_is_believed_and_nobody_else(self):
        host = self.start_for_others("--trusted-proxy", "127.0.0.2", "--trusted-proxy", "10.0.0.0/8")
        second = b"\r\n\r\n\0\r\nQUIT\n"

        def through(lines="", before=b"", source="127.0.0.2", target="/health"):
            """The status, and the address of the sender as the log has it."""
            with socket.create_connection(("127.0.0.1", host.port), timeout=20, source_address=(source, 0)) as plain:
                plain.sendall(before + f"GET {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n{lines}\r\n".encode())
                try:
                    return read_answer(plain)[0]
                except (EOFError, ConnectionError):
                    return 0

        https = "X-Forwarded-Proto: https\r\n"
        v4 = second + b"\x21\x11\0\x0c" + bytes([192, 0, 2, 9, 127, 0, 0, 1, 0, 1, 0, 2])
        rows = (
            # The proxy by itself, of this machine.
            ("", b"", 401),
            # For a client elsewhere, in clear and under TLS.
            ("X-Forwarded-For: 192.0.2.9\r\n", b"", 403), ("X-Forwarded-For: 192.0.2.9\r\n" + https, b"", 401),
            ("X-Forwarded-For: 127.0.0.1, 192.0.2.9, 10.1.2.3\r\n", b"", 403), ("X-Forwarded-For: 192.0.2.9, 127.0.0.1\r\n", b"", 401),
            ("X-Forwarded-For: 127.0.0.1\r\nX-Forwarded-For: [2001:db8::1]:99\r\n", b"", 403),
            ("X-Forwarded-For: 192.0.2.9\r\nX-Forwarded-Proto: https\r\nX-Forwarded-Proto: http\r\n", b"", 403),
            ("X-Forwarded-For: nobody\r\n", b"", 400), ("X-Forwarded-For: 127.0.0.1,\r\n", b"", 400),
            # The PROXY protocol, in both versions.
            ("", b"PROXY TCP4 192.0.2.9 127.0.0.1 1 2\r\n", 403), ("", b"PROXY TCP6 2001:db8::1 ::1 1 2\r\n", 403),
            ("", b"PROXY UNKNOWN\r\n", 401), ("", b"PROXY TCP4 nobody 127.0.0.1 1 2\r\n", 0), ("", b"PROXY " + b"x" * 200, 0),
            ("", v4, 403), ("", second + b"\x20\0\0\0", 401), ("", second + b"\x31\x11\0\0", 0), ("", second + b"\x21\x11\0\x03abc", 0),
            # Whom the protocol names is no proxy, so its header fields say nothing.
            ("X-Forwarded-For: 127.0.0.1\r\n" + https, v4, 403),
        )
        for lines, before, status in rows:
            with self.subTest(lines=lines, before=before):
                self.assertEqual(through(lines, before), status)
        for lines, before, status in (("X-Forwarded-For: 192.0.2.9\r\n", b"", 401), ("", b"PROXY TCP4 192.0.2.9 127.0.0.1 1 2\r\n", 400),
                                      ("X-Forwarded-For: nobody\r\n", b"", 401)):
            self.assertEqual(through(lines, before, source="127.0.0.3"), status, lines)
        self.assertEqual(self.ask(host, "/health", "X-Forwarded-For: 127.0.0.1\r\n" + https)[0], 403)
        # TLS behind the preamble, in any split; the client's address is what wrong passwords count for.
        for size in (1, 7, 1000):
            with socket.create_connection(("127.0.0.1", host.port), timeout=20, source_address=("127.0.0.2", 0)) as plain:
                plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                for at in range(0, len(v4), size):
                    plain.sendall(v4[at:at + size])
                with self.context().wrap_socket(plain, server_hostname="localhost") as secure:
                    self.assertEqual(talk(secure, "/health", "Authorization: Basic eDp5\r\n")[0], 401)
        self.assertIn("192.0.2.9", host.log_tail())
        self.assertIn("--trusted-proxy takes an address or a network, ADDRESS/BITS, not",
                      subprocess.run([options.host, "--trusted-proxy", "10.0.0.0/33"], stderr=subprocess.PIPE, text=True, timeout=60).stderr)

    def test_connections_through_a_proxy_count_for_its_client(self):
        host = self.start_for_others("--trusted-proxy", "127.0.0.2", "--max-per-address", "2")

        def held(client):
            """A connection of `client` that the server has looked at."""
            plain = socket.create_connection(("127.0.0.1", host.port), timeout=20, source_address=("127.0.0.2", 0))
            self.addCleanup(plain.close)
            plain.sendall(f"PROXY TCP4 {client} 127.0.0.1 1 2\r\nGET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n".encode())
            return plain, read_answer(plain)[0]

        def served(plain):
            """Whether it is asked for more than what has a place kept; in clear this server says no to it."""
            try:
                plain.sendall(b"GET /health HTTP/1.1\r\nHost: localhost\r\n\r\n")
                return read_answer(plain)[0] == 403
            except (EOFError, ConnectionError):
                return False

        first, second = held("192.0.2.9")[0], held("192.0.2.9")[0]
        self.assertTrue(served(first) and served(second))
        beyond, status = held("192.0.2.9")
        self.assertEqual((status, served(beyond)), (200, False), "a supervisor is answered, and that is all")
        self.assertTrue(served(held("192.0.2.10")[0]), "the proxy's own address has no limit")
        first.close()
        self.wait_until(lambda: served(held("192.0.2.9")[0]), "a place that became free")


class Connection(TlsCase):
    def test_the_first_byte_decides_in_any_split_of_what_comes(self):
        host = self.start()
        for size in (1, 2, 5, 17, 100000):
            with socket.create_connection(("127.0.0.1", host.port), timeout=20) as plain:
                plain.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                request = b"GET /healthz HTTP/1.1\r\nHost: localhost\r\n\r\n"
                for at in range(0, len(request), size):
                    plain.sendall(request[at:at + size])
                self.assertEqual(read_answer(plain)[0], 200, size)
                # By hand, for the split: the library sends a flight at a time.
                incoming, outgoing = ssl.MemoryBIO(), ssl.MemoryBIO()
            with socket.create_connection(("127.0.0.1", host.port), timeout=20) as raw:
                raw.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                tls = self.context().wrap_bio(incoming, outgoing, server_hostname="localhost")

                def step(call):
                    while True:
                        try:
                            result = call()
                        except ssl.SSLWantReadError:
                            result = None
                        flight = outgoing.read()
                        for at in range(0, len(flight), size):
                            raw.sendall(flight[at:at + size])
                        if result is not None:
                            return result
                        incoming.write(raw.recv(65536))

                step(lambda: tls.do_handshake() or True)
                step(lambda: tls.write(request + request))
                said = b""
                while said.count(b"HTTP/1.1 200 OK") < 2:
                    said += step(lambda: tls.read(65536))

    def test_who_stalls_is_closed_by_the_deadline_of_heads(self):
        host = self.start()
        begun = time.monotonic()
        with socket.create_connection(("127.0.0.1", host.port), timeout=20) as stalled:
            stalled.sendall(b"\x16\x03\x01\x02\x00\x01")
            quiet = self.connect(host)
            self.assertEqual(stalled.recv(100), b"")
            self.assertEqual(quiet.recv(100), b"")
        self.assertTrue(4 < time.monotonic() - begun < 15)
        with socket.create_connection(("127.0.0.1", host.port), timeout=20) as wrong:
            wrong.sendall(b"\x16" + b"x" * 1000)
            self.assertIn(wrong.recv(1000)[:1], (b"", b"\x15"), "an alert at the most")
        self.assertRegex(host.fetch("/metrics").decode(), r'reason="handshake_failed"\} 2\n')

    def test_without_tls_there_is_plain_http_alone(self):
        host = self.start("--no-tls")
        with self.assertRaises((ssl.SSLError, OSError)):
            self.connect(host, ssl._create_unverified_context())
        self.assertFalse(os.path.exists(self.data("tls")))

    def test_pages_pictures_sockets_and_phones_come_as_they_do_in_clear(self):
        host = self.start()
        admin = self.basic(host)
        pictures = [coded_jpeg(number) for number in range(8)]
        context = self.context()
        wrap = lambda plain: context.wrap_socket(plain, server_hostname="127.0.0.1")  # noqa: E731
        with Feeder(host.port, "yard", "demo", pictures, 20, wrap) as phone:
            self.wait_until(lambda: host.health()["cameras"][0]["frames"] > 20, "pictures arrive over TLS")
            with self.connect(host) as connection:
                self.assertEqual(talk(connection, "/", admin)[0], 200)
                status, _, body = talk(connection, "/snapshot/yard.jpg", admin)
                self.assertEqual((status, body[:2]), (200, b"\xFF\xD8"))
                # A large body, in both directions.
                status, head, body = talk(connection, "/settings/document", admin)
                self.assertEqual(status, 200)
            with self.connect(host) as stream:
                stream.sendall(f"GET /live/yard HTTP/1.1\r\nHost: localhost\r\n{admin}\r\n".encode())
                said = b""
                while said.count(b"\r\n--morrowstream-picture") < 20:
                    part = stream.recv(65536)
                    self.assertTrue(part)
                    said += part
            with self.connect(host) as page:
                page.sendall(("GET /tiles HTTP/1.1\r\nHost: localhost\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                              f"Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n{admin}\r\n").encode())
                self.assertEqual(read_answer(page)[0], 101)
                seen = 0
                while seen < 10:
                    kind, body = read_message(page)
                    if kind == 2:
                        seen += 1
                        self.assertEqual(body[20:22], b"\xFF\xD8")
                        number, sequence = int.from_bytes(body[4:8], "little"), int.from_bytes(body[8:12], "little")
                        text = f"ack {number} {sequence}".encode()
                        page.sendall(bytes([0x81, 0x80 | len(text), 0, 0, 0, 0]) + text)
            with self.connect(host) as viewer:
                viewer.sendall(f"GET /mobile/video/yard?fps=25 HTTP/1.1\r\n{self.basic(host, 'yard')}\r\n".encode())
                said = b""
                while said.count(b"\xFF\xD8\xFF") < 5:
                    part = viewer.recv(65536)
                    self.assertTrue(part, said[:300])
                    said += part
            sent = phone.frames
        self.wait_until(lambda: host.health()["cameras"][0]["frames"] >= sent, "no picture is lost")
        self.assertEqual(host.health()["cameras"][0]["failed"], 0)
        self.wait_until(lambda: b"morrowstream_connections 1\n" in host.fetch("/metrics"), "nothing is held")
        # A wrong record gets the component's answer over TLS as well.
        with self.connect(host) as wrong:
            wrong.sendall(f"POST /mobile/video/yard HTTP/1.1\r\n{self.basic(host, 'yard')}\r\n".encode() + bytes(131))
            self.assertEqual(wrong.recv(10), b"\x01")
        self.assertEqual(host.stop(), 0, host.log_tail())


def read_message(connection):
    def take(count):
        data = b""
        while len(data) < count:
            part = connection.recv(count - len(data))
            if not part:
                raise EOFError
            data += part
        return data

    kind, size = take(2)
    if size >= 126:
        size = int.from_bytes(take(2 if size == 126 else 8), "big")
    return kind & 15, take(size)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True, help="path of morrowstream-host")
    options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
