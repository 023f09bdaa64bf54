#!/usr/bin/env python3
"""A phone from the download to the picture: nothing is on it but what its browser was given."""

import itertools
import os
import subprocess
import sys
import time
import zipfile
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import downloads
from downloads import DownloadCase, main
from expected import manifest
from screen import read_clock

JAVA = ["java", "-XX:TieredStopAtLevel=1", "-XX:+UseSerialGC"]
STREAMED_MANIFEST = Path(__file__).resolve().parent / "StreamedManifest.java"


class Handset(DownloadCase):
    def setUp(self):
        super().setUp()
        host = self.make_host("--demo", "--verbose", "--pictures", downloads.options.pictures)
        self.server = f"127.0.0.1:{host.port}"
        host.start()

    def start_handset(self, archive, *arguments):
        return subprocess.Popen([*JAVA, "-jar", downloads.options.handset, str(archive), *arguments],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)

    def run_handset(self, archive, *arguments):
        """Its exit status and what was on its screen."""
        handset = self.start_handset(archive, *arguments)
        said, _ = handset.communicate(timeout=90)
        return handset.returncode, said

    def get(self, midlet, login):
        archive = self.download(f"/mobile/{midlet}.jar?JarName={midlet}", f"{login}:demo", f"{midlet}.jar")
        subprocess.run(["unzip", "-tq", str(archive)], check=True, stdout=subprocess.DEVNULL)
        expected = manifest(midlet, midlet, login, "demo", self.server, "320x240", "utf-8", "gui.eng.ini")
        self.assertEqual(self.manifest_of(archive), expected)
        # A reader of streams, as on desktops and Android, finds it too.
        streamed = subprocess.run([*JAVA, str(STREAMED_MANIFEST), str(archive)], check=True, stdout=subprocess.PIPE)
        self.assertEqual(set(streamed.stdout.decode().split("\n")), set(expected.decode().split("\r\n")))
        return archive

    def connections(self, name):
        """What phones asked for, by the host's log, which tells equal lines once a second."""
        mark = "  connection of "
        lines = (line.split(mark, 1)[1].split("  [")[0] for line in self.log().splitlines() if mark in line)
        return [said for said in lines if said.split("?")[0] == name]

    def log(self):
        self.host.log.flush()
        return Path(self.host.log.name).read_text(encoding="utf-8", errors="replace")

    def luma(self, picture):
        """An independent decoder's, without the head of the file."""
        grey = subprocess.run(["djpeg", "-grayscale", "-pnm"], input=picture, stdout=subprocess.PIPE, check=True).stdout
        head, size, most, pixels = grey.split(b"\n", 3)
        self.assertEqual((head, size, most), (b"P5", b"320 240", b"255"))
        return pixels

    def test_upload(self):
        archive = self.get("Sendora", "spare")
        folders = [os.path.join(downloads.options.pictures, name) for name in ("gate", "yard")]
        # The other camera has pictures with another beginning, so they come by another connection.
        status, said = self.run_handset(archive, "--pictures", folders[0], "--second", folders[1], "--frames", "12",
                                        "--press", "Secondary camera@4", "--press", "Stop@8",
                                        "--press", "Transmission@8")
        self.assertEqual(status, 0, said)
        self.assertEqual(self.connections("spare"), ["spare"] * 3)
        # What was under way when a connection was closed may be lost: two of them were.
        self.wait_until(lambda: self.camera("spare")["frames"] >= 10)
        camera = self.camera("spare")
        self.assertLessEqual(camera["frames"], 12)
        self.assertEqual((camera["failed"], camera["width"], camera["height"]), (0, 320, 240))
        # The newest picture is one of the secondary camera's.
        seen = self.luma(self.host.fetch("/snapshot/spare.jpg"))
        differences = []
        for file in Path(folders[1]).glob("*.jpg"):
            pixels = self.luma(file.read_bytes())
            differences.append(sum(abs(a - b) for a, b in zip(seen[::7], pixels[::7])) / len(seen[::7]))
        self.assertLess(min(differences), 2)
        self.assert_nothing_is_left()
        self.check_refusal(archive, folders[0])
        self.end()

    def check_refusal(self, archive, pictures):
        """The password was changed behind the download."""
        other = Path(self.folder, "other.jar")
        with zipfile.ZipFile(archive) as old, zipfile.ZipFile(other, "w") as new:
            for name in old.namelist():
                new.writestr(name, old.read(name).replace(b"PSW: demo\r\n", b"PSW: omed\r\n"))
        status, said = self.run_handset(other, "--pictures", pictures)
        self.assertEqual(status, 1)
        self.assertIn("Invalid login/password", said)
        self.assertIn("handset: 0 frames", said)

    def camera(self, name):
        return next(camera for camera in self.host.health()["cameras"] if camera["name"] == name)

    def test_view(self):
        archive = self.get("Viewlander", "yard")
        out = Path(self.folder, "out")
        presses = ["Rotate@2", "Closer@4", "Rotate@6", "Stop@8", "View@8", "Farther@10"]
        status, said = self.run_handset(archive, "--source", "clock", "--frames", "13", "--out", str(out),
                                        *itertools.chain(*(("--press", press) for press in presses)))
        self.assertEqual(status, 0, said)
        whole = "clock?width=240&height=320&fps=5&flimit=0&quality=50&zx=0&zy=0&zw=1000&zh=1000"
        close = whole.replace("zx=0&zy=0&zw=1000&zh=1000", "zx=166&zy=166&zw=667&zh=667")
        self.assertEqual(list(dict.fromkeys(self.connections("clock"))), [whole, whole + "&rotate", close + "&rotate", close])
        self.assertIn(b'\nmorrowstream_sessions_total{kind="view"} 7\n', self.host.fetch("/metrics"))  # and the demo's own
        pictures = sorted(out.iterdir())
        self.assertEqual(len(pictures), 13)
        seen = [read_clock(path) for path in pictures]
        self.assertEqual([name for name, _ in itertools.groupby(view for view, _ in seen)],
                         ["whole", "turned", "turned close", "close", "whole"], seen)
        # A new request may begin with the moment that was seen last; the whole ones show this minute or the last one.
        self.assertGreaterEqual(len({digits[-3:] for _, digits in seen}), len(seen) - len(presses), seen)
        minutes = {time.strftime("%H%M", time.localtime(time.time() - ago)) for ago in (0, 60)}
        self.assertLessEqual({digits[:4] for _, digits in seen if len(digits) > 3}, minutes)
        self.check_stop(archive)
        self.end()

    def check_stop(self, archive):
        """A stop ends the stream at the server as well, also behind changes that came one upon the other."""
        presses = ["Rotate@2", "Closer@2", "Rotate@2", "Stop@2"]
        handset = self.start_handset(archive, "--source", "clock", *itertools.chain(*(("--press", press)
                                                                                     for press in presses)))
        try:
            before = len(self.connections("clock"))
            self.wait_until(lambda: len(self.connections("clock")) > before)
            time.sleep(1)  # two pictures, and what then is on its way
            self.wait_until(lambda: b"\nmorrowstream_packers 1\n" in self.host.fetch("/metrics"))  # the demo's own phone
            self.assertIsNone(handset.poll())
        finally:
            handset.kill()
            handset.communicate()

    def wait_until(self, condition):
        deadline = time.monotonic() + 20
        while not condition():
            self.assertLess(time.monotonic(), deadline, self.log())
            time.sleep(0.05)


if __name__ == "__main__":
    main()
