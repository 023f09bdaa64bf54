"""The frame of every browser test: programs by argument, a temporary folder, a host, a browser, a tidy end."""

import argparse
import os
import shutil
import sys
import tempfile
import unittest

from browser import Browser
from hostprogram import Host

options = None  # set by main()


class BrowserCase(unittest.TestCase):
    longMessage = True

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="browser-")
        self.addCleanup(shutil.rmtree, self.folder, ignore_errors=True)

    def make_host(self, *arguments):
        host = Host(options.host, self.folder, arguments)
        self.addCleanup(host.close)
        return host

    def make_browser(self, **more):
        browser = Browser(self.folder, options.screenshots, **more)
        self.addCleanup(browser.close)
        return browser

    def end(self, host, browser):
        """What holds at the end of every test: a silent console and a host that ends cleanly."""
        self.assertEqual(browser.complaints(), [], "the browser's console")
        self.assertEqual(host.stop(), 0, f"exit status of the host:\n{host.log_tail()}")


class DemoCase(BrowserCase):
    """The demo, and a browser that has not opened it yet."""

    def setUp(self):
        super().setUp()
        self.host = self.make_host("--demo", "--pictures", options.pictures)
        self.host.start()
        self.browser = self.make_browser()


def main():
    global options
    parser = argparse.ArgumentParser()
    for name, what in (("host", "path of morrowstream-host"), ("pictures", "folder of the demo phones' pictures"),
                       ("screenshots", "where screenshots are kept")):
        parser.add_argument(f"--{name}", required=True, help=what)
    options, rest = parser.parse_known_args()
    os.makedirs(options.screenshots, exist_ok=True)
    unittest.main(module="__main__", argv=[sys.argv[0], *rest], verbosity=2)
