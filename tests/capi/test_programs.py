#!/usr/bin/env python3
"""The examples of the C interface, run against a simulated phone, and the header and the library as others get them.

    test_programs.py --build DIR    the build folder of the release preset, with morrowstream-c and morrowstream-phone
"""

import argparse
import os
import re
import signal
import socket
import subprocess
import sys
import tempfile
import time
import unittest
import urllib.error
import urllib.request

ROOT = os.path.realpath(os.path.join(os.path.dirname(__file__), "..", ".."))
HEADER = os.path.join(ROOT, "capi", "morrowstream.h")
PICTURES = os.path.join(ROOT, "phone", "pictures", "yard")
WARNINGS = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
BUILD = ""


def lib(name=""):
    return os.path.join(BUILD, "lib", name)


def compile_c(source, program):
    subprocess.run(["cc", *WARNINGS, f"-I{ROOT}/capi", "-o", program, source, f"-L{lib()}", "-lmorrowstream-c",
                    f"-Wl,-rpath,{lib()}", f"-Wl,-rpath-link,{lib()}"], check=True)


class Program:
    """A program that listens, and what it prints."""

    def __init__(self, words, folder, address=None):
        self.log = os.path.join(folder, "log")
        with open(self.log, "w") as log:
            self.process = subprocess.Popen(words, stdout=log, stderr=subprocess.STDOUT,
                                            env=os.environ | {"MORROWSTREAM_LIBRARY": lib("libmorrowstream-c.so.1")})
        self.address = address or self.wait(r"listening on (\S+)")[1]

    def text(self):
        with open(self.log) as log:
            return log.read()

    def wait(self, pattern, seconds=30):
        until = time.monotonic() + seconds
        while not (found := re.search(pattern, self.text())):
            if self.process.poll() is not None or time.monotonic() > until:
                raise AssertionError(f"no {pattern!r} in:\n{self.text()}")
            time.sleep(0.02)
        return found

    def upload(self, camera, password, frames=5):
        return subprocess.run([os.path.join(BUILD, "bin", "morrowstream-phone"), "upload", "--server", self.address, "--login", camera,
                               "--password", password, "--pictures", PICTURES, "--frames", str(frames), "--fps", "50"],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode

    def end(self):
        self.process.send_signal(signal.SIGINT)
        return self.process.wait(30)


class Programs(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.data = os.path.join(folder.name, "data")

    def run_program(self, words, address=None):
        program = Program(words, self.folder, address)
        self.addCleanup(program.process.wait)
        self.addCleanup(program.process.kill)
        return program

    def read_size(self, path):
        """Of a JPEG file, by another program."""
        pnm = subprocess.run(["djpeg", "-pnm", path], stdout=subprocess.PIPE, check=True).stdout
        return pnm.split(b"\n")[1]

    def test_python(self):
        program = self.run_program([sys.executable, "-B", os.path.join(ROOT, "docs/example-python/phones.py"), self.data, "0",
                                    "door:secret", "yard:other"])
        self.assertNotEqual(program.upload("yard", "wrong", 1), 0)
        self.assertEqual(program.upload("yard", "other"), 0, program.text())
        self.assertEqual(program.upload("door", "secret"), 0, program.text())
        brightness = float(program.wait(r"door 320x240 brightness ([\d.]+)")[1])
        self.assertTrue(20 < brightness < 235, brightness)
        program.wait("a phone is turned away yard")
        self.assertEqual(program.end(), 0, program.text())
        for camera in ("door", "yard"):
            self.assertEqual(self.read_size(os.path.join(self.data, camera + ".jpg")), b"320 240")

    def test_c(self):
        path = os.path.join(self.folder, "page")
        compile_c(os.path.join(ROOT, "docs/example-c/page.c"), path)
        program = self.run_program([path, self.data, "0", "door", "secret"])
        page = f"http://{program.address}/"
        with self.assertRaises(urllib.error.HTTPError):
            urllib.request.urlopen(page + "door.jpg", timeout=10)
        self.assertEqual(program.upload("door", "secret"), 0, program.text())
        program.wait("door: a phone sends")
        with urllib.request.urlopen(page, timeout=10) as answer:
            self.assertIn(b"/door.jpg", answer.read())
        picture = os.path.join(self.folder, "door.jpg")
        with urllib.request.urlopen(page + "door.jpg?1", timeout=10) as answer, open(picture, "wb") as file:
            file.write(answer.read())
        self.assertEqual(self.read_size(picture), b"320 240")
        self.assertEqual(program.end(), 0, program.text())

    def test_lines_of_the_page_for_integrators(self):
        with open(os.path.join(ROOT, "docs/integrator.md"), encoding="utf-8") as page:
            code = re.search(r"```c\n(.*?)```", page.read(), re.S)[1]
        self.assertLessEqual(len([line for line in code.splitlines() if line]), 30)
        source = os.path.join(self.folder, "phones.c")
        with open(source, "w", encoding="utf-8") as file:
            file.write(code)
        compile_c(source, os.path.join(self.folder, "phones"))
        with socket.create_server(("127.0.0.1", 0)) as free:
            port = free.getsockname()[1]
        program = self.run_program([os.path.join(self.folder, "phones"), self.data, str(port)], f"127.0.0.1:{port}")
        until = time.monotonic() + 30
        while program.upload("door", "secret") != 0 and program.process.poll() is None and time.monotonic() < until:
            time.sleep(0.1)
        program.wait(r"(door 320x240\n){5}")
        self.assertEqual(program.end(), 0, program.text())

    def test_header_alone(self):
        for compiler, language, standards in (("gcc", "c", ["c11", "c17"]), ("clang", "c", ["c11", "c17"]),
                                              ("g++", "c++", ["c++17", "c++20", "c++23"]), ("clang++", "c++", ["c++17", "c++20", "c++2b"])):
            for standard in standards:
                with self.subTest(compiler=compiler, standard=standard):
                    subprocess.run([compiler, "-x", language, f"-std={standard}", *WARNINGS, "-Wconversion", "-fsyntax-only", "-"],
                                   input=f'#include "{HEADER}"\nmorrow_server_options o = MORROW_SERVER_OPTIONS_INIT;\n'
                                         "morrow_picture p = MORROW_PICTURE_INIT;\n", text=True, check=True)

    def test_library_shows_its_own_names_alone(self):
        names = subprocess.run(["nm", "-D", "--defined-only", lib("libmorrowstream-c.so.1")], stdout=subprocess.PIPE, check=True, text=True)
        shown = {line.split()[-1].split("@")[0] for line in names.stdout.splitlines()}
        with open(HEADER, encoding="utf-8") as header:
            declared = set(re.findall(r"\b(morrow_\w+)\(", re.sub(r"/\*.*?\*/", "", header.read(), flags=re.S)))
        self.assertEqual(shown - {"MORROWSTREAM_C_1"}, declared)
        section = subprocess.run(["readelf", "-d", lib("libmorrowstream-c.so.1")], stdout=subprocess.PIPE, check=True, text=True).stdout
        self.assertIn("[libmorrowstream-c.so.1]", section)


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--build", required=True)
    arguments, rest = parser.parse_known_args()
    BUILD = arguments.build
    unittest.main(argv=[sys.argv[0], *rest])
