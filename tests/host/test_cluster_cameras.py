#!/usr/bin/env python3
"""Two hosts that are one server, over a real nats-server: a phone at one of them is seen at the other."""

import argparse
import base64
import os
import signal
import subprocess
import sys
import tempfile
import unittest
import urllib.error
import urllib.request
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from hostprogram import Host, wait  # noqa: E402
from machines import Nats  # noqa: E402

options = None
SECONDS = 60  # wide: sanitized hosts on a loaded machine


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
        request.add_header("Authorization", "Basic " + base64.b64encode(f"admin:{host.admin_password()}".encode()).decode())
        boundary, got = b"--morrowstream-picture\r\n", b""
        with urllib.request.urlopen(request, timeout=SECONDS) as stream:
            while got.count(boundary) <= pictures:
                part = stream.read1(65536)
                self.assertTrue(part, "the stream ended")
                got += part
        return [part.split(b"\r\n\r\n", 1)[1] for part in got.split(boundary)[1:pictures + 1]]

    def test_a_phone_is_seen_at_every_host(self):
        one, two = self.hosts
        wait("the camera at the other host", lambda: self.camera(two))
        first = self.phone(one)
        wait("a connected camera", lambda: self.camera(two).get("connected"))
        self.assertEqual(self.camera(two)["host"], "one")
        self.assertNotIn("host", self.camera(one))
        self.see_alike(one, two)
        self.assertTrue(all(picture[:2] == b"\xff\xd8" for picture in self.watch(two, 5)))

        # The phone comes to the other host while the first one has not noticed that it is gone from there.
        first.send_signal(signal.SIGSTOP)
        second = self.phone(two)
        wait("the camera's move", lambda: "host" not in self.camera(two) and self.camera(one).get("host") == "two")
        self.see_alike(two, one)
        first.kill()

        # That host dies, and the phone finds the first one again.
        two.kill()
        second.kill()
        wait("a camera that is not connected", lambda: not self.camera(one)["connected"])
        self.phone(one)
        wait("a connected camera", lambda: self.camera(one)["connected"] and "host" not in self.camera(one))
        two.start()
        self.see_alike(one, two)

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
