"""The real host, what a phone's browser gets from it, and a watch on the archive tool that it starts."""

import argparse
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path
from xml.sax.saxutils import escape

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE.parent / "browser"))
from hostprogram import Host  # noqa: E402 - it stands beside the browser tests

options = None  # set by main()

# Stands before the installed zip in the host's path, and writes down who ran it where.
WATCHED_ZIP = """#!/bin/sh
echo "begin $$ $PWD" >> "{log}"
PATH="{path}"
zip "$@"
status=$?
echo "end $$ $PWD" >> "{log}"
exit $status
"""


class DownloadCase(unittest.TestCase):
    longMessage = True

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="midlets-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)
        self.zip_log = Path(self.folder, "zip.log")
        tools = Path(self.folder, "tools")
        tools.mkdir()
        tool = tools / "zip"
        tool.write_text(WATCHED_ZIP.format(log=self.zip_log, path=os.environ["PATH"]))
        tool.chmod(0o755)
        path = os.environ["PATH"]
        os.environ["PATH"] = f"{tools}:{path}"
        self.addCleanup(os.environ.__setitem__, "PATH", path)

    def make_host(self, *arguments):
        self.host = Host(options.host, self.folder, arguments)
        self.addCleanup(self.host.close)
        return self.host

    def write_server_address(self, address):
        """What phones are told to connect to, as it stands in the settings at the start."""
        folder = Path(self.host.data, "Norvane", "Tessaron", "Servers")
        folder.mkdir(parents=True, exist_ok=True)
        Path(folder, "Morrowstream.xml").write_text(
            f'<?xml version="1.0" encoding="UTF-8"?>\n<config><host type="BSTR">{escape(address)}</host></config>\n',
            encoding="utf-8")

    def end(self):
        self.assertEqual(self.host.stop(), 0, self.host.log_tail())

    def start_curl(self, path, sign_in=None, file="answer"):
        """`sign_in` is "LOGIN:PASSWORD"."""
        command = ["curl", "--silent", "--show-error", "--max-time", "30", "--output", str(Path(self.folder, file)),
                   "--write-out", "%{http_code} %{content_type}", f"http://127.0.0.1:{self.host.port}{path}"]
        return subprocess.Popen(command + (["--user", sign_in] if sign_in else []), stdout=subprocess.PIPE, text=True)

    def finish_curl(self, process):
        """Status and type of the answer."""
        said, _ = process.communicate(timeout=40)
        self.assertEqual(process.returncode, 0, "curl")
        return said

    def fetch(self, path, sign_in=None, file="answer"):
        return self.finish_curl(self.start_curl(path, sign_in, file))

    def download(self, path, sign_in, file):
        """An archive; gives its path."""
        self.assertEqual(self.fetch(path, sign_in, file), "200 application/java-archive", path)
        return Path(self.folder, file)

    def manifest_of(self, archive):
        """The one manifest; a phone takes whichever it finds first."""
        with zipfile.ZipFile(archive) as entries:
            names = [name for name in entries.namelist() if name.lower() == "meta-inf/manifest.mf"]
            self.assertEqual(len(names), 1, names)
            return entries.read(names[0])

    def tool_runs(self):
        """The lines that the watch has written: "begin" or "end", process, folder."""
        return [line.split(" ", 2) for line in self.zip_log.read_text().splitlines()] if self.zip_log.exists() else []

    def assert_nothing_is_left(self):
        folders = {run[2] for run in self.tool_runs()}
        self.assertEqual(len(folders), 1, "the host's private folder")
        self.assertEqual(os.listdir(folders.pop()), [])


def main():
    global options
    parser = argparse.ArgumentParser()
    parser.add_argument("--host", required=True, help="path of morrowstream-host")
    parser.add_argument("--handset", required=True, help="path of handset.jar")
    parser.add_argument("--pictures", required=True, help="folder of the demo phones' pictures")
    parser.add_argument("--texts", required=True, help="folder of the midlets' texts")
    options, rest = parser.parse_known_args()
    unittest.main(module="__main__", argv=[sys.argv[0], *rest], verbosity=2)
