#!/usr/bin/env python3
"""Two hosts that are one server, over a real nats-server: a phone at one of them is seen at the other."""

import argparse
import base64
import io
import json
import os
import shutil
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
import zipfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from hostprogram import Host, wait  # noqa: E402
from machines import Nats  # noqa: E402
from test_sessions import UPGRADE  # noqa: E402
from test_tls import read_answer, read_message  # noqa: E402

options = None
SECONDS = 60  # wide: sanitized hosts on a loaded machine


def basic(host):
    return "Authorization: Basic " + base64.b64encode(f"admin:{host.admin_password()}".encode()).decode()


class EventNews(threading.Thread):
    """What the page of events is told by its socket."""

    def __init__(self, host):
        super().__init__(daemon=True)
        self.told = []
        self.connection = socket.create_connection(("127.0.0.1", host.port), timeout=SECONDS)
        self.connection.sendall(f"GET /events HTTP/1.1\r\nHost: localhost:{host.port}\r\n{UPGRADE}{basic(host)}\r\n\r\n".encode())
        status = read_answer(self.connection)[0]
        assert status == 101, status
        self.take()
        self.start()

    def close(self):
        self.connection.shutdown(socket.SHUT_RDWR)
        self.join()
        self.connection.close()

    def take(self):
        kind, message = read_message(self.connection)
        if kind == 9:
            self.connection.sendall(b"\x8a\x80\0\0\0\0")  # here still
        self.told += json.loads(message) if kind == 1 else []
        return kind in (1, 9)

    def run(self):
        try:
            while self.take():
                pass
        except (EOFError, OSError):
            pass

    def keys(self, told=None):
        return [(event.get("host"), event["number"], event["kind"]) for event in (told or self.told)]


class Cluster(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.engine = Nats(folder.name)
        self.addCleanup(self.engine.kill)
        self.engine.start()
        (self.folder / "secret").write_text("s" * 32 + "\n", encoding="utf-8")
        self.hosts = []
        for name in ("one", "two"):
            (self.folder / name).mkdir()
            host = Host(options.host, str(self.folder / name), [
                "--cluster", self.engine.url, "--node", name, "--cluster-secret", str(self.folder / "secret"),
                "--public", "cams.example.org:80"])
            self.addCleanup(host.close)
            self.hosts.append(host)
        one, two = self.hosts
        one.write_cameras(["yard"], "demo")
        one.start()
        two.admin_password = one.admin_password
        two.start()

    def phone(self, host):
        phone = subprocess.Popen([options.phone, "upload", "--server", f"127.0.0.1:{host.port}", "--login", "yard", "--password", "demo",
                                  "--pictures", os.path.join(options.pictures, "yard"), "--fps", "5"],
                                 stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.addCleanup(phone.wait)
        self.addCleanup(phone.kill)
        return phone

    def camera(self, host):
        return next((camera for camera in host.health()["cameras"] if camera["name"] == "yard"), {})

    def snapshot(self, host):
        try:
            return host.fetch("/snapshot/yard.jpg")
        except urllib.error.HTTPError as error:
            self.assertEqual(error.code, 503)
            return b""

    def see_alike(self, here, there):
        """A picture of the phone `here` is seen `there`, byte for byte: three different ones, as they come."""
        sent, seen = [], set()

        def look():
            sent.append(self.snapshot(here))
            picture = self.snapshot(there)
            if picture and picture in sent:
                seen.add(picture)
            return len(seen) >= 3

        wait("pictures at the other host", look)

    def watch(self, host, pictures):
        """The next ones, as a watcher of motion JPEG gets them."""
        request = urllib.request.Request(f"http://127.0.0.1:{host.port}/live/yard")
        request.add_header(*basic(host).split(": "))
        boundary, got = b"--morrowstream-picture\r\n", b""
        with urllib.request.urlopen(request, timeout=SECONDS) as stream:
            while got.count(boundary) <= pictures:
                part = stream.read1(65536)
                self.assertTrue(part, "the stream ended")
                got += part
        return [part.split(b"\r\n\r\n", 1)[1] for part in got.split(boundary)[1:pictures + 1]]

    def ask(self, host, path):
        try:
            return host.fetch(path)
        except urllib.error.HTTPError as error:
            self.assertIn(error.code, (404, 503), path)
            return b""

    def times(self, host):
        return json.loads(self.ask(host, "/api/v1/recordings/yard?from=0&files=1") or b"{}")

    def looks_back_alike(self, least):
        """Both hosts have the same to tell of what both have recorded, to the byte: pictures, files, exports."""
        one, two = self.hosts
        told = wait("files at both hosts", lambda: self.files_alike(least))
        begin, end = told["files"][0]["from"], told["files"][-1]["to"]
        self.assertEqual(told["away"], [])
        for host in self.hosts:
            listed = json.loads(self.ask(host, "/api/v1/recordings"))["cameras"]
            self.assertEqual([(camera["name"], camera["from"], camera["to"]) for camera in listed], [("yard", told["first"], told["last"])])
        for moment in (begin, (begin + end) // 2, end):
            for step in (-1, 0, 1):
                path = f"/recordings/yard/at.jpg?t={moment}&step={step}"
                self.assertEqual(self.ask(one, path), self.ask(two, path), path)
        for path in (f"export?form=zip&from={begin}&to={end}", *(f"file?number={file['number']}" for file in told["files"])):
            self.assertEqual(one.fetch(f"/recordings/yard/{path}"), two.fetch(f"/recordings/yard/{path}"), path)
        for form in ("mkv", "lapse&speed=3"):  # films have a number of their own in them, which writers make up
            films = [host.fetch(f"/recordings/yard/export?form={form}&from={begin}&to={end}") for host in self.hosts]
            self.assertLess(abs(len(films[0]) - len(films[1])), 100, form)
            self.assertEqual(films[0][-1000:], films[1][-1000:], form)
        for method, kept in (("PUT", 1), ("DELETE", 0)):  # each of them asks the other for its files
            host = self.hosts[kept]
            host.fetch(f"/api/v1/recordings/yard/kept?from={begin}&to={end}", method)
            files = wait("what is kept", lambda: self.files_alike(least))["files"]
            self.assertEqual([bool(file["kept"]) for file in files], [bool(kept)] * len(files), method)
        with zipfile.ZipFile(io.BytesIO(two.fetch(f"/recordings/yard/export?form=zip&from={begin}&to={end}"))) as pictures:
            self.assertEqual(pictures.namelist(), sorted(pictures.namelist()))
            return {name.split("_")[-1] for name in pictures.namelist()}

    def listen(self, host):
        news = EventNews(host)
        self.addCleanup(news.close)
        return news

    def events(self, host):
        return json.loads(host.fetch("/api/v1/events?limit=1000"))["events"]

    def exported(self, host, form, begin, end):
        """Status, head and body."""
        request = urllib.request.Request(f"http://127.0.0.1:{host.port}/recordings/yard/export?form={form}&from={begin}&to={end}")
        request.add_header(*basic(host).split(": "))
        try:
            with urllib.request.urlopen(request, timeout=SECONDS) as answer:
                return answer.status, answer.headers, answer.read()
        except urllib.error.HTTPError as error:
            with error:
                return error.code, error.headers, error.read()

    def exports_say_what_is_away(self, gap):
        one, _ = self.hosts
        told = f"two;from={gap['from']};to={gap['to']}"
        for form, end in (("zip", ".zip"), ("mkv", ".mkv"), ("lapse&speed=3", ".mkv")):
            status, head, body = self.exported(one, form, 0, gap["to"])
            self.assertEqual((status, head["X-Recordings-Away"], head["Content-Disposition"][-15:]), (200, told, f"%20incomplete{end}"[-15:]), form)
            if form == "zip":
                with zipfile.ZipFile(io.BytesIO(body)) as pictures:
                    self.assertIn('The host "two" does not answer', pictures.read("incomplete.txt").decode())
            else:
                self.assertTrue(b"yard without what may be at two" in body, form)
        # Before that one had the phone, nothing is missing; and of its time there is nothing.
        status, head, body = self.exported(one, "zip", 0, gap["from"] - 1)
        self.assertEqual((status, head["X-Recordings-Away"], b"incomplete" in body), (200, None, False))
        status, head, body = self.exported(one, "zip", gap["to"], gap["to"])
        self.assertEqual((status, head["X-Recordings-Away"]), (503, f"two;from={gap['to']};to={gap['to']}"), body)

    def files_alike(self, least):
        """What both tell, once the files of hosts whose phone has gone are finished: for a second nothing is added."""
        known = lambda told: [(file["number"], file["from"], file["bytes"]) for file in told.get("files", [])]  # noqa: E731
        before = known(self.times(self.hosts[0]))
        time.sleep(1)
        one, two = (self.times(host) for host in self.hosts)
        if known(one) != before:
            return None
        return one if len(known(one)) >= least and known(one) == known(two) and one["last"] == two["last"] else None

    def trusts_one_authority(self):
        """Who trusts that of the first host is shown a certificate for the public address by each."""
        authority = self.folder / "one/data/tls/ca.pem"
        for host in self.hosts:
            with socket.create_connection(("127.0.0.1", host.port), timeout=SECONDS) as plain, \
                    ssl.create_default_context(cafile=authority).wrap_socket(plain, server_hostname="cams.example.org"):
                pass

    def test_a_phone_is_seen_at_every_host(self):
        one, two = self.hosts
        news = [self.listen(one)]
        before = news[0].keys(self.events(one))
        self.trusts_one_authority()
        wait("the camera at the other host", lambda: self.camera(two))
        first = self.phone(one)
        wait("a connected camera", lambda: self.camera(two).get("connected"))
        self.assertEqual(self.camera(two)["host"], "one")
        self.assertNotIn("host", self.camera(one))
        wait("figures with the host's name", lambda: b'morrowstream_camera_connected{camera="yard",node="one"} 1\n' in one.fetch("/metrics"))
        self.assertNotIn(b'camera="yard"', two.fetch("/metrics"))
        self.see_alike(one, two)
        self.assertTrue(all(picture[:2] == b"\xff\xd8" for picture in self.watch(two, 5)))

        one.fetch("/api/v1/preferences", "PUT", {"cameras": {"yard": {"record": "always"}}})
        wait("a recording at the other host", lambda: self.times(two).get("spans"))

        # The phone comes to the other host while the first one has not noticed that it is gone from there.
        first.send_signal(signal.SIGSTOP)
        second = self.phone(two)
        wait("the camera's move", lambda: "host" not in self.camera(two) and self.camera(one).get("host") == "two")
        self.see_alike(two, one)
        first.kill()

        wait("recordings of both hosts", lambda: len(self.times(one).get("files", [])) >= 2)
        second.kill()
        wait("the end of the upload", lambda: not self.camera(two)["connected"])
        self.assertEqual(len(self.looks_back_alike(2)), 2)

        # That host dies, and the phone finds the first one again.
        second = self.phone(two)
        wait("a connected camera", lambda: self.camera(one).get("host") == "two")
        two.kill()
        second.kill()
        wait("a camera that is not connected", lambda: not self.camera(one)["connected"])
        gap = wait("a gap that may come back", lambda: self.times(one).get("away"))
        self.assertEqual(gap[0]["host"], "two")
        self.exports_say_what_is_away(gap[0])
        wait("an event of the host", lambda: b'"host-lost"' in self.ask(one, "/api/v1/events?kind=host-lost"))
        self.phone(one)
        wait("a connected camera", lambda: self.camera(one)["connected"] and "host" not in self.camera(one))
        shutil.rmtree(self.folder / "two/data/tls")
        two.start()
        self.trusts_one_authority()
        self.see_alike(one, two)
        wait("an event of the host", lambda: b'"host-back"' in self.ask(one, "/api/v1/events?kind=host-back"))
        wait("what was away", lambda: self.times(one).get("away") == [])
        self.assertIsNone(self.exported(one, "zip", 0, gap[0]["to"])[1]["X-Recordings-Away"])

        # Whoever has the page of events open has been told of everything, at whichever host it was, and once.
        news.append(self.listen(two))
        one.fetch("/api/v1/preferences", "PUT", {"cameras": {"yard": {"record": "off"}}})
        wait("an event of the other host", lambda: ("one", "settings-changed") in [(host, kind) for host, _, kind in news[1].keys()])
        wait("all events", lambda: set(news[0].keys(self.events(one))) <= {*before, *news[0].keys()})
        self.assertEqual(len(set(news[0].keys())), len(news[0].keys()))
        self.assertLessEqual({(None, "host-lost"), ("two", "server-started"), ("two", "camera-connected")}, {(host, kind) for host, _, kind in news[0].keys()})

        # Without the engine phones are let in all the same, and with it again both hosts see them.
        self.engine.kill()
        wait("a host that is alone", lambda: not self.camera(two)["connected"])
        self.assertTrue(self.snapshot(one))
        self.assertEqual(one.stop() + two.stop(), 0)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True)
    parser.add_argument("--phone", required=True)
    parser.add_argument("--pictures", required=True)
    options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
