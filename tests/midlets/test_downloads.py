#!/usr/bin/env python3
"""The archives that the real host gives out: whose they are, and every byte of their manifests."""

import os
import shutil
import subprocess
import sys
import time
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent))
import downloads
from downloads import DownloadCase, main
from expected import manifest
from feeder import Feeder
from pictures import coded_jpeg

# Language, its code page, its file of texts, a camera's name and password, and where phones connect to.
LANGUAGES = [
    (None, "utf-8", "gui.eng.ini", "Двор №1", "пароль-日本", "10.20.30.40:8080"),
    ("en", "cp1252", "gui.eng.ini", "Café \"B\" 'C'", "sesión", "cameras.example"),
    ("es", "cp1252", "gui.spa.ini", "-Niño $s", "$(id) `x` %s \\", "[fd00::1]:8080"),
    ("fr", "cp1252", "gui.fra.ini", "Entrée=2", "a=b;c", ""),  # the host's own
    ("ru", "cp1251", "gui.rus.ini", "Двор №1", "пароль", "камеры.example:80"),
    ("lv", "cp1257", None, "Pagalms ņ", "ķ", "10.20.30.40:80"),
    ("az", "cp1254", "gui.aze.ini", "Bağ", "şifr", "h:1"),
    ("ka", "utf-8", "gui.ge.ini", "ეზო", "პაროლი", "h:65535"),
]

# A JarName as it stands in the request, where nothing decodes it.
NAMES = ["Sendora", "", "My+phone%20%22x%22", "ab'c;d,e=f(g)!*~"]


class Downloads(DownloadCase):
    def write_cameras(self, *cameras):
        """Each a name, a picture size and a password."""
        with open(os.path.join(self.host.data, "cameras"), "w", encoding="utf-8") as file:
            file.writelines("\t".join(camera) + "\n" for camera in cameras)

    def own_address(self):
        """What phones are told where nobody has said where to connect to."""
        return f"127.0.0.1:{self.host.port}"

    def test_manifests_in_each_language(self):
        for number, (language, code_page, texts, name, password, server) in enumerate(LANGUAGES):
            host = self.make_host()
            self.write_server_address(server)
            self.write_cameras((name, "160x120", password))
            if language:
                subprocess.run([host.program, "--data", host.data, "--language", language], check=True,
                               stdout=host.log, stderr=host.log, timeout=30)
            host.start()
            file = texts and (texts if texts == "gui.eng.ini" else Path(downloads.options.texts, texts))
            rows = [("Sendora", NAMES[number % len(NAMES)]), ("Viewlander", NAMES[(number + 1) % len(NAMES)]),
                    ("Viewlander", name[-1])]
            for midlet, jar_name in rows:
                with self.subTest(language=language, midlet=midlet, jar_name=jar_name):
                    archive = self.download(f"/mobile/{midlet}.jar?JarName={jar_name}", f"{name}:{password}", "one.jar")
                    self.assertEqual(self.manifest_of(archive),
                                     manifest(midlet, jar_name, name, password, server or self.own_address(),
                                              "160x120", code_page, file))
            self.assert_nothing_is_left()
            self.end()
            shutil.rmtree(host.data)
            self.zip_log.unlink()

    def test_who_may_not_have_one_starts_no_tool(self):
        host = self.make_host()
        self.write_cameras(("yard", "320x240", "secret"))
        host.add_phones(["phone"], "secret")
        host.start()
        rows = [
            ("/mobile/Sendora.jar?JarName=S", None, 401),
            ("/mobile/Sendora.jar?JarName=S&login=yard&password=secret", None, 401),  # those of the query count nothing
            ("/mobile/Sendora.jar?JarName=S", "yard:Secret", 401),
            ("/mobile/Sendora.jar?JarName=S", "nobody:secret", 401),
            ("/mobile/Viewlander.jar?JarName=V", None, 401),
            ("/mobile/Viewlander.jar?JarName=V", "yard:", 401),
            ("/mobile/Sendora.jar?JarName=S", "phone:secret", 403),  # a user, and no camera
            ("/mobile/Viewlander.jar?JarName=-x", "yard:secret", 500),
            ("/mobile/Sendora.jar?JarName=..%2Fx", "yard:secret", 500),
        ]
        for path, sign_in, status in rows:
            with self.subTest(path=path, sign_in=sign_in):
                said = self.fetch(path, sign_in)
                self.assertTrue(said.startswith(f"{status} "), said)
                self.assertEqual(self.tool_runs(), [])
        self.download("/mobile/Sendora.jar", "yard:secret", "one.jar")
        self.assert_nothing_is_left()
        self.end()

    def test_ten_at_once_under_uploads(self):
        logins = [f"cam{n}" for n in range(10)]
        host = self.make_host()
        self.write_cameras(*((login, "160x120", f"pw-{login}") for login in logins))
        host.start()
        pictures = [coded_jpeg(n) for n in range(4)]
        phones = [Feeder(host.port, login, f"pw-{login}", pictures, rate=10) for login in logins[:4]]
        with phones[0], phones[1], phones[2], phones[3]:
            for phone in phones:
                self.wait_for_frames(phone.login, 3)
            running = [self.start_curl(f"/mobile/Sendora.jar?JarName={login}", f"{login}:pw-{login}", login)
                       for login in logins]
            for login, process in zip(logins, running):
                self.assertEqual(self.finish_curl(process), "200 application/java-archive")
                self.assertEqual(self.manifest_of(Path(self.folder, login)),
                                 manifest("Sendora", login, login, f"pw-{login}", self.own_address(), "160x120", "utf-8",
                                          "gui.eng.ini"))
            for phone in phones:
                self.assertIsNone(phone.failure)
                before = self.camera(phone.login)["frames"]
                self.wait_for_frames(phone.login, before + 3)
        # One build after the other: no tool begins before the last one has ended.
        runs = self.tool_runs()
        self.assertEqual([run[0] for run in runs], ["begin", "end"] * (len(runs) // 2))
        self.assertTrue(all(begun[1] == ended[1] for begun, ended in zip(runs[::2], runs[1::2])))
        self.assertGreaterEqual(len(runs), 2 * len(logins))
        self.assert_nothing_is_left()
        self.end()

    def camera(self, name):
        return next(camera for camera in self.host.health()["cameras"] if camera["name"] == name)

    def wait_for_frames(self, name, count):
        deadline = time.monotonic() + 30
        while self.camera(name)["frames"] < count:
            self.assertLess(time.monotonic(), deadline, f"{name} stands still")
            time.sleep(0.05)


if __name__ == "__main__":
    main()
