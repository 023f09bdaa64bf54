"""The page heals itself: after a killed host and after a silent one it is live within seconds, without a reload."""

import time

import case
from feeder import Feeder
from pictures import coded_jpeg

BACK_SECONDS = 3
# Names that would break a page that takes them for markup or for part of an address; no phone comes to them.
ODD_NAMES = ['<img src=x onerror="document.title=1">', "50 + 'more' \\n $(x)", "Двор", "help"]


class RestartTest(case.BrowserCase):
    def setUp(self):
        super().setUp()
        self.host = self.make_host()
        self.host.write_cameras(["left", "right", *ODD_NAMES], "secret")
        self.host.add_phones(["left", "right"], "secret")
        self.host.start()
        self.browser = self.make_browser()
        # The numbers in the pictures tell the cameras apart.
        self.phones = {
            name: Feeder(self.host.port, name, "secret", [coded_jpeg(first + n) for n in range(8)], rate=8)
            for name, first in (("left", 100), ("right", 200))
        }

    def assert_right_pictures(self):
        codes = self.browser.codes()
        for name, first in (("left", 100), ("right", 200)):
            self.assertIn(codes[name], range(first, first + 8), f"picture on the tile of {name}")

    def assert_cameras_of_host(self):
        # Those that wait for a phone stand behind the others.
        self.assertEqual(sorted(self.browser.tiles()), sorted(camera["name"] for camera in self.host.health()["cameras"]))

    def wait_lost(self, seconds):
        lost = self.browser.wait_state("left", "lost", seconds)
        self.assertIn("Connection to the host lost", lost["notice"])
        self.assertEqual(lost["rate"], "–")
        return lost

    def assert_back(self, ready):
        """Both cameras show a picture drawn after `ready` (Unix seconds), within the limit and on the same page."""
        for name in self.phones:
            def live_again():
                tile = self.browser.tile(name)
                return tile["state"] == "live" and float(tile["drawn"]) > ready * 1000 and tile

            tile = self.browser.wait(f"{name} is live again", live_again)
            delay = float(tile["drawn"]) / 1000 - ready
            print(f"{name}: back on the screen {delay:.2f} s after the host", flush=True)
            self.assertLess(delay, BACK_SECONDS)
        self.assertTrue(self.browser.run("return window.sameDocument === true"), "the page was reloaded")
        self.assert_right_pictures()

    def test_killed_and_silent_host(self):
        with self.phones["left"], self.phones["right"]:
            self.browser.open(self.host.address())
            for name in self.phones:
                self.browser.wait_state(name, "live")
            self.browser.run("window.sameDocument = true")
            self.assert_cameras_of_host()
            for name in ODD_NAMES:
                tile = self.browser.tile(name)
                self.assertEqual((tile["name"], tile["state"]), (name, "waiting"))

            self.host.kill()
            self.wait_lost(seconds=5)
            self.browser.screenshot("lost")
            time.sleep(3)  # long enough for the retries to have settled into their rhythm
            # A new camera in front and one less give the others new ids.
            self.host.write_cameras(["a new one", "right", *ODD_NAMES[1:], "left"], "secret")
            self.host.start()
            self.assert_back(time.time())
            self.assert_cameras_of_host()
            self.assertIn("a new one", self.browser.tiles())

            self.host.freeze()
            self.wait_lost(seconds=6)
            self.host.thaw()
            self.assert_back(time.time())
        self.end(self.host, self.browser)


if __name__ == "__main__":
    case.main()
