#!/usr/bin/env python3
"""The programs themselves: exit statuses, the lines that they print, the data folder, and phones that view through them."""

import argparse
import base64
import hashlib
import json
import os
import re
import shutil
import signal
import socket
import stat
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest
import urllib.error
import urllib.request
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from feeder import Feeder  # noqa: E402 - these stand beside the browser tests
from hostprogram import Host, free_port  # noqa: E402
from pictures import coded_jpeg  # noqa: E402

options = None  # set at the end
CAMERA = '<item><Name type="BSTR">{}</Name><Type type="BSTR">320x240</Type><Password type="BSTR"/></item>'


class ProgramCase(unittest.TestCase):
    longMessage = True

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="program-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.data = os.path.join(self.folder, "data")
        self.settings = Path(self.data, "Norvane", "Tessaron", "Servers", "Morrowstream.xml")

    def run_host(self, *words, status=0, said=""):
        """What it prints; it has to end with that status."""
        done = subprocess.run([options.host, *words], input=said, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, timeout=60)
        self.assertEqual(done.returncode, status, done.stdout)
        return done.stdout

    def serve(self, seconds=1, *words):
        return self.run_host("--data", self.data, "--listen", f"127.0.0.1:{free_port()}", "--seconds", str(seconds), *words)

    def read(self, name):
        return Path(self.data, name).read_text(encoding="utf-8")

    def wait_until(self, condition, what, seconds=15):
        deadline = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), deadline, what)
            time.sleep(0.02)


class Programs(ProgramCase):
    def test_what_makes_no_sense_is_refused(self):
        file = os.path.join(self.folder, "file")
        Path(file).write_text("ann\tviewer\tx\nbad line\n", encoding="utf-8")
        add = ["--data", self.data, "--add-user"]
        rows = [
            (["--what"], 2, 'morrowstream-host: unknown argument "--what"; see morrowstream-host --help\n'),
            (["--x\x1B[2J"], 2, 'morrowstream-host: unknown argument "--x'),
            (["--data", file], 1, "morrowstream-host: cannot make the data folder"),
            (["--data", self.data, "--listen", "192.0.2.1:0"], 1, "morrowstream-host: cannot listen on 192.0.2.1:0: "),
            ([*add, "a%b", "--kind", "viewer"], 1, 'user "a%b": a login has no control characters and none of / ? # : % &'),
            ([*add, "ann", "--kind", "viewer"], 1, 'user "ann": a password has no control characters and none of & /'),
            (["--data", self.data, "--add-users", file], 1, ", line 2: a user has three fields"),
            (["--data", self.data, "--add-users", file + "x"], 1, "morrowstream-host: cannot read "),
            (["--data", self.data, "--demo", "--listen", "127.0.0.1:0", "--pictures", self.data], 1,
             f"the demo needs the pictures in {self.data}/yard (--pictures DIR)\n"),
            (["--help"], 0, "morrowstream-host: a video server whose cameras are mobile phones.\n"),
            (["--version"], 0, "morrowstream-host 0."),
        ]
        for words, status, line in rows:
            with self.subTest(words=words):
                output = self.run_host(*words, status=status, said="p/\n")
                self.assertIn(line, output)
                self.assertNotIn("\x1B", output)
        self.assertNotIn("ann", self.read("users"), "a file with a fault adds nobody")

    def test_it_records_the_cameras_that_its_preferences_name(self):
        self.settings.parent.mkdir(parents=True)
        Path(self.settings.parent, "Preferences.xml").write_text(
            '<preferences><recording><freePercent type="number">0</freePercent><freeMegabytes type="number">0</freeMegabytes></recording>'
            '<cameras KeyXPath="name/text()"><item><name type="BSTR">yard</name><record type="BSTR">always</record></item></cameras>'
            "</preferences>",
            encoding="utf-8")
        folder = os.path.join(self.folder, "kept")
        self.serve(5, "--demo", "--pictures", options.pictures, "--recordings", folder)
        files = list(Path(folder).rglob("*.mkv"))
        self.assertEqual([file.parts[-3] for file in files], ["1"], "one camera, one connection")
        self.assertIn('"name":"yard"', Path(folder, "1", "camera.json").read_text(encoding="utf-8"))
        found = subprocess.run(["ffmpeg", "-v", "error", "-i", files[0], "-c", "copy", "-f", "image2", "-frames:v", "3",
                                os.path.join(self.folder, "%d.jpg")], check=True, capture_output=True, text=True)
        self.assertEqual(found.stderr, "")
        sent = {file.read_bytes() for file in Path(options.pictures, "yard").glob("*.jpg")}
        for number in (1, 2, 3):
            self.assertIn(Path(self.folder, f"{number}.jpg").read_bytes(), sent)
        self.assertFalse(os.path.exists(os.path.join(self.data, "recordings")))

    def test_it_serves_until_it_is_told_to_end_and_holds_its_folder(self):
        said = self.run_host("--data", self.data, "--add-user", "vera", "--kind", "viewer", said="geheim\r\n")
        self.assertEqual(said, 'User "vera" is a viewer now.\n'
                               "The password is short: with 8 characters or more it is harder to guess.\n")
        # One from before a rule gets another password, and is told of.
        with open(os.path.join(self.data, "users"), "a", encoding="utf-8") as users:
            users.write("50%\tphone\t-\tx\n")
        self.run_host("--data", self.data, "--add-user", "50%", "--kind", "phone", said="geheim\n")
        self.assertRegex(self.read("users"), r"50%\tphone\t-\t\$y\$[^\n]*\nadmin\tadmin\t-\t\$y\$[^\n]*\nvera\tviewer\t-\t\$y\$")
        self.assertEqual(stat.S_IMODE(os.stat(os.path.join(self.data, "users")).st_mode), 0o600)
        Path(self.data, "cameras").write_text("yard\t320x240\tdemo\n", encoding="utf-8")
        for number in (signal.SIGINT, signal.SIGTERM):
            host = Host(options.host, self.folder, ["--quiet"])
            self.addCleanup(host.close)
            host.start()
            self.assertIn(f"another host runs on the data folder {self.data}",
                          self.run_host("--data", self.data, "--listen", "127.0.0.1:0", status=1))
            self.assertIn(f"port {host.port} is in use",
                          self.run_host("--data", self.data + "2", "--listen", f"127.0.0.1:{host.port}", status=1))
            other = Path(self.data + "2", self.settings.relative_to(self.data))
            self.assertFalse(other.exists(), "phones are told of an address that is another server's")
            begun = time.monotonic()
            host.process.send_signal(number)
            self.assertEqual(host.process.wait(timeout=30), 0)
            self.assertLess(time.monotonic() - begun, 3)
            self.assertIn("yard: 0 frames received, 0 failed\n", host.log_tail())
            self.assertIn('The user "50%" is kept, but no phone can sign in with this name', host.log_tail())

    def test_a_password_is_asked_for_at_a_terminal_and_replaces_the_first_one(self):
        self.serve()
        first = os.path.join(self.data, "admin-password")
        self.assertTrue(os.path.exists(first))
        for again, status, line in (("other word\n", 1, "these are two passwords: nothing is changed"),
                                    ("långt\x03", 1, "no password on standard input"),
                                    ("långt ord\n", 0, 'User "admin" is an administrator now.')):
            here, there = os.openpty()
            host = subprocess.Popen([options.host, "--data", self.data, "--add-user", "admin", "--kind", "admin"],
                                    stdin=there, stdout=there, stderr=there)
            os.close(there)
            said = b""
            for prompt, answer in ((b"Password for admin: ", "långt ord\n"), (b"The same again: ", again)):
                while not said.endswith(prompt):
                    said += os.read(here, 100)
                self.wait_until(lambda: not termios.tcgetattr(here)[3] & termios.ECHO, "the terminal shows what is typed")
                os.write(here, answer.encode())
            try:
                while block := os.read(here, 100):
                    said += block
            except OSError:  # how the end of a terminal shows
                pass
            os.close(here)
            self.assertEqual(host.wait(timeout=30), status)
            self.assertIn(line, said.decode())
            self.assertNotIn("ord", said.decode().replace("word", ""))
            self.assertNotIn("harder to guess", said.decode())
            self.assertEqual(os.path.exists(first), status != 0)

    def test_the_folder_and_its_files_are_nobody_elses(self):
        mode = lambda name: stat.S_IMODE(os.stat(os.path.join(self.data, name)).st_mode)  # noqa: E731
        os.mkdir(self.data)
        os.chmod(self.data, 0o2775)
        Path(self.data, "cameras").write_text("yard\t320x240\tdemo\nhof\t640x480\tdemo\nyard\t320x240\tx\n", encoding="utf-8")
        said = self.serve()
        self.assertIn(f"Others could write into the data folder {self.data}: they cannot any more.\n", said)
        self.assertEqual((mode(""), mode("cameras.stored")), (0o2755, 0o600))
        self.assertIn(f"{self.data}/cameras, line 2: the type of a camera is 320x240 or 160x120. The line is left out.\n", said)
        self.assertIn("/cameras, line 3: this camera stands there twice. ", said)
        self.assertIn("\nyard: 0 frames received", said)
        os.chmod(os.path.join(self.data, "cameras.stored"), 0o644)
        self.assertIn("could be read by others, and cannot any more: change those that matter.\n", self.serve())
        self.assertEqual(mode("cameras.stored"), 0o600)
        self.assertIn(f"the folder {tempfile.gettempdir()} is shared by the users of this machine",
                      self.run_host("--data", tempfile.gettempdir(), status=1))
        self.settings.unlink()
        self.settings.mkdir()
        self.assertIn(f"the settings file {self.settings} cannot be read: ",
                      self.run_host("--data", self.data, "--listen", "127.0.0.1:0", status=1))
        # What is not ours is not mended by us, and stays its owner's.
        if os.geteuid() == 0:
            os.chmod(self.data, 0o777)
            os.chown(self.data, 12345, 12345)
            self.assertIn(f"mend it with: sudo chmod go-w '{self.data}'\n",
                          self.run_host("--data", self.data, "--add-user", "ann", "--kind", "viewer", status=1, said="a password"))
            os.chmod(self.data, 0o700)
            os.remove(os.path.join(self.data, "users"))
            self.run_host("--data", self.data, "--add-user", "ann", "--kind", "viewer", said="a password")
            for name in ("users", "admin-password"):
                self.assertEqual(os.stat(os.path.join(self.data, name)).st_uid, 12345)

    def test_modules_come_from_where_nobody_else_can_put_them(self):
        own = Path(options.host).parent / "../lib/libmorrowstream.so"
        open_to_all = os.path.join(self.folder, "open")
        for folder in (self.data, open_to_all):
            os.mkdir(folder)
            shutil.copy(own, folder)
        os.chmod(open_to_all, 0o777)
        for folder, why in ((self.data, "since the data folder is no place for programs"),
                            (open_to_all, f"since others may write to {open_to_all}: sudo chmod go-w '{open_to_all}'")):
            module = os.path.join(folder, "libmorrowstream.so")
            self.assertIn(f"the component {module} does not count, {why}\n",
                          self.run_host("--data", self.data, "--register", module, status=1))
        # One that is in the registry already.
        os.chmod(open_to_all, 0o755)
        self.run_host("--data", self.data, "--register", module)
        os.chmod(open_to_all, 0o777)
        said = self.run_host("--data", self.data, "--language", "en")
        self.assertRegex(said, f"component registered .*/libmorrowstream.so.1 in place of {module}, which does not count, since others ")
        self.assertNotIn(module, self.read("registry"))

    def test_what_is_to_be_opened_can_be_opened(self):
        said = self.run_host("--data", self.data, "--listen", ":0", "--seconds", "1")
        self.assertRegex(said, r"Open http://127\.0\.0\.1:\d+/\n(  or https://[\d.]+:\d+/ from other computers and phones\n)*"
                               r"  Browsers warn until they trust this server's authority, which https?://[\d.]+:\d+/trust tells about\. "
                               r"Its fingerprint:\n  ([0-9A-F]{2}:){31}[0-9A-F]{2}\nData folder: ")

    def test_a_demo_that_others_reach_has_secrets_of_its_own(self):
        def start(place):
            """Which cameras take the password of the other demo, whether pages are open, and what is printed and runs."""
            port = free_port()
            words = ["--data", self.data, "--demo", "--pictures", options.pictures, "--listen", f"{place}:{port}"]
            with subprocess.Popen([options.host, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as host:
                try:
                    address = f"http://127.0.0.1:{port}"
                    self.wait_until(lambda: self.status(address + "/healthz") == 200, "it answers", 30)
                    known = [name for name in ("yard", "gate", "spare") if self.status(f"{address}/mobile", f"{name}:demo") == 200]
                    open_to_all = self.status(address + "/") == 200
                    self.wait_until(lambda: self.frames(address, open_to_all) > 0, "pictures", 30)
                    children = subprocess.run(["ps", "-o", "args=", "--ppid", str(host.pid)], stdout=subprocess.PIPE, text=True, check=True).stdout
                finally:
                    host.send_signal(signal.SIGINT)
                    said = host.communicate(timeout=60)[0]
            self.assertEqual(host.returncode, 0, said)
            self.assertIn("sent by its demo phone: all arrived", said)
            return known, open_to_all, said, children

        folder = Path(self.data, "demo-passwords")
        known, open_to_all, said, children = start("0.0.0.0")
        passwords = {file.name: file.read_text(encoding="utf-8").strip() for file in folder.iterdir()}
        self.assertEqual((known, open_to_all, sorted(passwords)), ([], False, ["gate", "spare", "yard"]))
        self.assertEqual(len(set(passwords.values())), 3)
        self.assertTrue(all(stat.S_IMODE(file.stat().st_mode) == 0o600 for file in folder.iterdir()))
        self.assertFalse([word for word in passwords.values() if word in said + children or len(word) < 16])
        self.assertIn(f'\nSign in as "admin"; the password stands in {self.data}/admin-password\n', said)
        own = re.findall(r"(?m)^  or https://([\d.]+:\d+)/ from other computers", said)
        self.assertEqual(re.findall(r"becomes the camera spare with https://([^/]+)/phone#[0-9a-f]{32}\n", said), own[:1])
        users = self.read("users")
        # Kept, so that a phone that is the camera stays it.
        start("0.0.0.0")
        self.assertEqual((users, passwords["yard"]), (self.read("users"), (folder / "yard").read_text(encoding="utf-8").strip()))
        known, open_to_all, said, _ = start("127.0.0.1")
        self.assertEqual((known, open_to_all), (["yard", "gate", "spare"], True))
        self.assertIn("Only this computer can open it. For phones, listen for others: --listen 0.0.0.0:8080\n", said)
        self.assertEqual(start("0.0.0.0")[:2], ([], False))
        self.serve()
        self.assertFalse(folder.exists())
        self.assertNotIn(">yard<", self.settings.read_text(encoding="utf-8"))

    def status(self, address, login=None):
        request = urllib.request.Request(address, headers={"Accept": "*/*"})
        if login:
            request.add_header("Authorization", "Basic " + base64.b64encode(login.encode()).decode())
        try:
            with urllib.request.urlopen(request, timeout=20) as answer:
                return answer.status
        except urllib.error.HTTPError as error:
            error.close()
            return error.code
        except OSError:
            return 0

    def frames(self, address, open_to_all):
        request = urllib.request.Request(address + "/health")
        if not open_to_all:
            request.add_header("Authorization", "Basic " + base64.b64encode(f"admin:{self.read('admin-password').strip()}".encode()).decode())
        with urllib.request.urlopen(request, timeout=20) as answer:
            return min(camera["frames"] for camera in json.load(answer)["cameras"] if camera["name"] != "spare")

    def test_cameras_and_tokens_from_the_command_line(self):
        def run(*words, **more):
            return self.run_host("--data", self.data, *words, **more)

        for words in (["camera"], ["camera", "add"], ["camera", "list", "x"], ["token", "make", "x"], ["what"], ["token", "list", "--scope", "all"],
                      ["camera", "add", "x", "--user", "x"], ["camera", "add", "x", "--type", "1x1"]):
            run(*words, status=2)
        self.serve()
        host = Host(options.host, self.folder, ["--quiet"])
        self.addCleanup(host.close)
        for running in (False, True, False):
            with self.subTest(running=running):
                if running:
                    host.start()
                    self.assertEqual(run("camera", "list"), "kept\t320x240\tpassword\n", "what was added before the start")
                files = "" if running else f"No host runs on {self.data}: its files are changed"
                said = run("camera", "add", "yard", said="demo word\n")
                self.assertTrue(said.startswith(files) and said.endswith('The camera "yard" is in place.\n'), said)
                run("camera", "add", "yard", "--type", "160x120", said="other word\n")
                self.assertIn("yard\t160x120\tpassword\n", run("camera", "list"))
                self.assertIn("a login has no control characters and none of", run("camera", "add", "a%b", said="x\n", status=1))
                self.assertIn("a password has no control characters", run("camera", "add", "new", said="a/b\n", status=1))
                run("camera", "add", "kept", said="word\n")
                self.assertTrue(run("camera", "remove", "yard").startswith(files))
                self.assertIn("there is no camera", run("camera", "remove", "yard", status=1).lower())
                self.assertEqual(run("camera", "list"), "kept\t320x240\tpassword\n")

                self.assertIn("no user", run("token", "add", "reader", "--user", "nobody", status=1))
                token = run("token", "add", "reader").strip()
                self.assertRegex(token, "^[0-9a-f]{64}$")
                listed = run("token", "list").strip().split("\t")
                self.assertEqual(listed, [hashlib.sha256(token.encode()).hexdigest(), "admin", "read", "reader"])
                self.assertNotIn(token, self.read("tokens"))
                if running:
                    self.assertEqual(self.status_of(host, "/api/v1/cameras", token), 200)
                run("token", "remove", listed[0][:12])
                self.assertEqual(run("token", "list"), "")
                if running:
                    self.assertEqual(self.status_of(host, "/api/v1/cameras", token), 401)
                    self.look_at_the_control_socket()
                    self.assertEqual(host.stop(), 0)
                    self.assertFalse(os.path.exists(os.path.join(self.data, "control.sock")))
        run("camera", "remove", "kept")
        self.assertEqual(run("camera", "list"), "")
        self.assertNotIn("kept", self.settings.read_text(encoding="utf-8"))

    @staticmethod
    def status_of(host, path, token):
        request = urllib.request.Request(f"http://127.0.0.1:{host.port}{path}", headers={"Authorization": f"Bearer {token}"})
        try:
            return urllib.request.urlopen(request, timeout=30).status
        except urllib.error.HTTPError as refused:
            return refused.code

    def look_at_the_control_socket(self):
        path = os.path.join(self.data, "control.sock")
        self.assertEqual(stat.S_IMODE(os.stat(path).st_mode), 0o600)

        def ask(target):
            with socket.socket(socket.AF_UNIX) as peer:
                peer.settimeout(30)
                peer.connect(path)
                peer.sendall(f"GET {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode())
                return peer.recv(12)
        self.assertEqual(ask("/api/v1/users"), b"HTTP/1.1 200")
        self.assertEqual(ask("/settings/state"), b"HTTP/1.1 403")
        if os.geteuid() == 0:
            # Somebody else, whom the file's mode would let in.
            for place, mode in ((self.folder, 0o755), (self.data, 0o755), (path, 0o666)):
                os.chmod(place, mode)
            child = os.fork()
            if child == 0:
                try:
                    os.setuid(65534)
                    os._exit(0 if ask("/api/v1/users") == b"" else 1)
                except ConnectionError:
                    os._exit(0)
                finally:
                    os._exit(2)
            self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)

    def test_recipes_ask_for_figures_that_exist(self):
        host = Host(options.host, self.folder, ["--quiet"])
        self.addCleanup(host.close)
        host.write_cameras(["yard"], "demo")
        host.start()
        with Feeder(host.port, "yard", "demo", [coded_jpeg(1)], 20) as feeder:
            self.wait_until(lambda: feeder.frames > 2, "the phone sends")
            figures = set(re.findall(r"^(morrowstream_\w+)", host.fetch("/metrics").decode(), re.M))
        recipes = Path(__file__).resolve().parents[2] / "docs/recipes"
        for name in ("morrowstream-alerts.yml", "grafana-dashboard.json"):
            asked = set(re.findall(r"\bmorrowstream_\w+", (recipes / name).read_text(encoding="utf-8")))
            self.assertGreater(len(asked), 5)
            self.assertEqual(asked - figures, set(), name)
        panels = json.loads((recipes / "grafana-dashboard.json").read_text(encoding="utf-8"))["panels"]
        self.assertTrue(all(target["expr"] for panel in panels for target in panel["targets"]))
        self.assertEqual(host.stop(), 0)

    def test_levels_are_written_where_the_journal_reads(self):
        # The service manager names the stream by device and inode; the name of another stream means nothing.
        for inode, marked in (("$(stat -Lc %i /proc/self/fd/2)", True), ("1", False)):
            script = f'JOURNAL_STREAM=$(stat -Lc %d /proc/self/fd/2):{inode} exec "$0" --seconds 1 --listen 127.0.0.1:0 --data "$1"'
            output = subprocess.run(["/bin/sh", "-c", script, options.host, self.data + inode[0]], check=True, timeout=60,
                                    stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True).stdout
            self.assertEqual("<6>component: registered " in output, marked, output)
            self.assertEqual("  component registered " in output, not marked, output)

    def test_the_language_and_the_component_stand_in_the_registry(self):
        os.mkdir(self.data)
        registry = os.path.join(self.data, "registry")
        Path(registry).write_text('[HKEY_LOCAL_MACHINE\\SOFTWARE]\n"lang"=twenty-five\n', encoding="utf-8")
        said = self.run_host("--data", self.data, "--language", "ru")
        self.assertTrue(said.startswith(f"The registry counts as empty: {registry}, line 2: a value is a number "
                                        "or a text in double quotes\n"), said)
        self.assertIn("component registered ", said)
        self.assertTrue(said.endswith('The language "ru" takes effect at the next start of the host.\n'), said)
        self.assertIn('--language takes one of en, es, fr, ru, lv, az, ka, not "RU"',
                      self.run_host("--data", self.data, "--language", "RU", status=2))
        self.assertIn('[HKEY_LOCAL_MACHINE\\SOFTWARE\\Norvane\\Tessaron]\n"lang"=25\n"sublang"=1\n', self.read("registry"))
        self.assertIn("twenty-five", self.read("registry.damaged"))
        # A component that went away is replaced by the one that came with the program, and can be taken out.
        moved = os.path.join(self.folder, "it's moved.so")
        shutil.copy(Path(options.host).parent / "../lib/libmorrowstream.so", moved)
        for option, there in (("--register", True), ("--unregister", False), ("--register", True)):
            self.run_host("--data", self.data, option, moved)
            self.assertEqual(moved in self.read("registry"), there)
        os.remove(moved)
        self.assertIn(" in place of " + moved, self.run_host("--data", self.data, "--language", "en"))
        self.assertIn(f"registering {moved} failed: The specified module could not be found (0x8007007E)",
                      self.run_host("--data", self.data, "--register", moved, status=1))

    def test_the_demo_leaves_nothing_behind_and_settings_are_looked_after(self):
        demo = self.serve(3, "--demo", "--pictures", options.pictures)
        self.assertIn("spare: 0 frames received, 0 failed\n", demo)
        self.assertRegex(demo, "gate: [0-9]+ frames received, 0 failed, [0-9]+ sent by its demo phone: all arrived")
        self.assertIn("yard\tphone\tdemo\t", self.read("users"))
        self.assertIn(">spare<", self.settings.read_text(encoding="utf-8"))
        # A camera of one's own stays, and comes from a file that is read once.
        Path(self.data, "cameras").write_text("Двор №1\t160x120\tp\n", encoding="utf-8")
        plain = self.serve()
        self.assertIn("The demo's users and cameras are removed from the data folder.\n", plain)
        self.assertIn(f"the file is kept as {self.data}/cameras.stored\n", plain)
        self.assertNotIn("\tdemo\t", self.read("users"))
        kept = self.settings.read_text(encoding="utf-8")
        self.assertIn(">Двор №1<", kept)
        self.assertNotIn(">yard<", kept)
        # The address that the host entered follows it.
        told = re.search(r"^Phones are told to connect to (127\.0\.0\.1:\d+); ", self.serve())
        self.assertIn(f">{told[1]}</host>", self.settings.read_text(encoding="utf-8"))
        # Somebody's editor left a camera without a name, and an address of somebody's choice.
        damaged = ('<config><host type="BSTR">cams.example</host><cams KeyXPath="Name/text()">' + CAMERA.format("tor") +
                   CAMERA.format("") + CAMERA.format("hof") + "</cams></config>")
        self.settings.write_text(damaged, encoding="utf-8")
        said = self.serve()
        for line in ("\nPhones are told to connect to cams.example, as the settings have it, and this server listens on 127.0.0.1:",
                     f"The settings file is damaged: starting with what can be read. It is kept as {self.settings}.damaged\n",
                     " settings: /config/cams/item[2]/Name: a camera has a name\n",
                     ' settings: the camera "hof" is not served', "\ntor: 0 frames received"):
            self.assertIn(line, said)
        self.assertNotIn("\nhof: ", said)
        self.assertEqual(Path(f"{self.settings}.damaged").read_text(encoding="utf-8"), damaged)
        self.settings.write_text("<config><cams>", encoding="utf-8")
        said = self.serve()
        self.assertIn("settings: nothing of it can be read", said)
        self.assertIn("There is no camera yet: add one at http://127.0.0.1:", said)


class Viewing(ProgramCase):
    def setUp(self):
        super().setUp()
        self.host = Host(options.host, self.folder, ["--demo", "--quiet", "--pictures", options.pictures])
        self.addCleanup(self.host.close)
        self.host.start()

    def start_viewer(self, *words):
        command = [options.phone, "view", "--no-reconnect", "--server", f"127.0.0.1:{self.host.port}", "--login", "spare",
                   "--password", "demo"]
        viewer = subprocess.Popen([*command, *words], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.addCleanup(viewer.stdout.close)
        self.addCleanup(viewer.kill)
        return viewer

    def view(self, *words, status=0):
        viewer = self.start_viewer(*words)
        said, _ = viewer.communicate(timeout=60)
        self.assertEqual(viewer.returncode, status, said)
        return said

    def packers(self):
        return int(re.search(rb"\nmorrowstream_packers (\d+)\n", self.host.fetch("/metrics"))[1])

    def test_phones_get_what_they_ask_for_at_their_rate(self):
        """What the pictures show is looked at by the handset that runs the midlets."""
        for parameters, asked in (("width=240&height=320&fps=10&rotate", 10), ("width=160&height=120&fps=20&quality=95&zw=500", 20)):
            said = self.view("--source", "clock", "--frames", "20", "--params", parameters)
            # The pause does not count what the work on a picture takes, so the rate is never above what was asked for; how far it is below
            # is the machine's affair.
            rate = float(re.search(r"received 20 pictures, ([0-9.]+)", said)[1])
            self.assertTrue(0.2 * asked < rate < 1.05 * asked, said)
        for words, line in ((["--source", "nothing"], "morrowstream-phone: denied: the server closed the connection without an answer; it "
                             'may have no source "nothing", or not take these parameters\n'),
                            (["--source", "clock", "--params", "width=x"], "or not take these parameters\n"),
                            (["--source", "clock", "--password", "wrong"],
                             "morrowstream-phone: denied: wrong login or password (HTTP/1.1 401 Unauthorized)\n")):
            self.assertIn(line, self.view(*words, status=1))
        sent = [picture.read_bytes() for picture in Path(options.pictures, "yard").iterdir()]
        self.assertIn(self.host.fetch("/snapshot/yard.jpg"), sent, "a phone's own picture goes on")
        said = self.view("--source", "clock", "--source", "yard", "--viewers", "9", "--params", "flimit=3&fps=25")
        self.assertIn("received 27 pictures, slowest ", said)
        self.assertIn("9 of 9 viewers to the end", said)
        self.assertEqual(self.host.stop(), 0, self.host.log_tail())

    def test_a_viewer_that_takes_nothing_is_dropped_and_the_host_stops_with_viewers_at_work(self):
        self.wait_until(lambda: self.packers() == 1, "the demo's own viewer")
        ask = b"GET /mobile/video/clock?%s HTTP/1.1\r\nAuthorization: Basic c3BhcmU6ZGVtbw==\r\n\r\n"
        with socket.socket() as stuck, socket.socket() as vanished:
            stuck.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
            stuck.connect(("127.0.0.1", self.host.port))
            stuck.sendall(ask % b"width=1920&height=1920&quality=100&fps=25")
            other = self.start_viewer("--source", "clock", "--params", "fps=10")
            self.wait_until(lambda: self.packers() == 3, "both view")
            # Ten seconds, and some for a machine that is busy; the others go on meanwhile.
            self.wait_until(lambda: self.packers() == 2, "the one that reads nothing is gone", 25)
            self.assertTrue(any(line.startswith("watching: ") for line in other.stdout))
            vanished.connect(("127.0.0.1", self.host.port))
            vanished.sendall(ask % b"fps=25")
            self.assertTrue(vanished.recv(1000))
            vanished.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.wait_until(lambda: self.packers() == 2, "the one that vanished is gone")
        more = self.start_viewer("--source", "yard", "--viewers", "5", "--params", "fps=25")
        self.wait_until(lambda: self.packers() == 7, "five more view")
        self.assertEqual(self.host.stop(), 0, self.host.log_tail())
        said, _ = other.communicate(timeout=30)
        self.assertIn("morrowstream-phone: the server closed the connection", said)
        self.assertEqual((other.returncode, more.wait(timeout=30)), (1, 1))


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True, help="path of morrowstream-host")
    parser.add_argument("--phone", required=True, help="path of morrowstream-phone")
    parser.add_argument("--pictures", required=True, help="folder of the demo phones' pictures")
    options, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
