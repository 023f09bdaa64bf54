"""The page as a visitor of the demo meets it: what it shows, and what it says when there is nothing to show."""

import os
import re
import subprocess
import time
import urllib.error
import urllib.request

from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import case
from feeder import Feeder
from pictures import coded_jpeg


class PageTest(case.DemoCase):
    def test_a_visit(self):
        self.browser.open(self.host.address())
        self.see_the_demo_cameras()
        self.see_it_on_other_screens()
        self.open_and_close_the_large_view()
        self.scan_the_code_of_a_camera()
        self.follow_a_phone_through_its_life()
        self.end(self.host, self.browser)

    def see_the_demo_cameras(self):
        browser = self.browser
        for name, size, rate in (("yard", (320, 240), 10), ("gate", (160, 120), 5)):
            with self.subTest(camera=name):
                browser.wait_state(name, "live")
                seen = []

                def changed_twice():
                    pixels = browser.pixels(name)
                    if not seen or seen[-1] != pixels:
                        seen.append(pixels)
                    return len(seen) >= 3

                browser.wait(f"{name} changes twice", changed_twice)
                for pixels in seen:
                    self.assertEqual((pixels["width"], pixels["height"]), size)
                    self.assertGreater(pixels["spread"], 30, "a blank picture")
                self.assertEqual(browser.tile(name)["size"], f"{size[0]} × {size[1]}")

                def rate_settled():
                    shown = re.fullmatch(r"(\d+\.\d) fps", browser.tile(name)["rate"])
                    return shown and abs(float(shown[1]) - rate) <= 0.1 * rate

                browser.wait(f"{name} shows {rate} fps", rate_settled)
                tile = browser.tile(name)
                self.assertEqual((tile["name"], tile["word"], tile["age"]), (name, "Live", "just now"))
                self.assertEqual(tile["notice"], "")
                jpeg = self.host.fetch(f"/snapshot/{name}.jpg")
                self.assertEqual(jpeg[:2], b"\xff\xd8")

        spare = browser.wait_state("spare", "waiting")
        self.assertIn("No phone yet", spare["notice"])
        self.assertEqual({name: tile["offers"] for name, tile in browser.tiles().items()},
                         {"yard": "phone", "gate": "phone", "spare": "connect"})
        # A page that hangs on a wall asks for no link, however long.
        self.assertEqual(browser.run("return performance.getEntriesByType('resource').filter(({ name }) => name.endsWith('/link'))"), [])
        self.assertEqual(browser.run("return document.querySelector('#help details').open"), False)
        self.assertEqual(
            browser.run("return document.getElementById('help-command').textContent"),
            f"morrowstream-phone upload --server 127.0.0.1:{self.host.port}"
            " --login spare --password demo --pictures DIR",
        )

    def see_it_on_other_screens(self):
        browser = self.browser
        browser.screenshot("desktop")
        browser.scheme("dark")
        browser.screenshot("desktop-dark")
        browser.size(390, 844, phone=True)
        browser.screenshot("phone-dark")
        browser.scheme("light")
        browser.screenshot("phone")
        browser.size(360, 740, phone=True)
        self.assertLessEqual(browser.run("return document.documentElement.scrollWidth"), 360, "the page is too wide")
        tops = browser.run("return [...document.querySelectorAll('.tile')].map((tile) => tile.offsetLeft)")
        self.assertEqual(len(set(tops)), 1, "one column on a phone")
        self.turn_with_a_finger()
        browser.size(1280, 800)

    def turn_with_a_finger(self):
        browser = self.browser
        names = [camera["name"] for camera in self.host.health()["cameras"]]
        browser.driver.find_element(By.CSS_SELECTOR, f'[data-name="{names[0]}"] [data-part="open"]').click()
        for width, height in ((390, 844), (844, 390)):
            browser.size(width, height, phone=True)
            browser.screenshot(f"large-phone-{width}")
            room = browser.run("const box = document.querySelector('#large .stage').getBoundingClientRect(); return [box.width, box.height]")
            self.assertTrue(room[0] > 0.65 * width and room[1] > 0.65 * height, room)
            for start, end, name in ((200, 80, names[1]), (80, 200, names[0]), (100, 120, names[0])):
                browser.touch(((start, 200), (end, 205)))
                browser.wait(name, lambda: browser.run("return document.querySelector('#large [data-part=name]').textContent") == name)
        browser.touch(((150, 150), (100, 150)), ((250, 150), (300, 150)))
        self.assertEqual(browser.page_scale(), 1)
        browser.driver.find_element(By.CSS_SELECTOR, '#large [data-part="full"]').click()
        browser.wait("the whole screen", lambda: browser.run("return document.fullscreenElement?.matches('#large .stage')"))
        browser.screenshot("large-full")
        browser.run("document.exitFullscreen()")
        browser.wait("the dialog", lambda: browser.run("return document.querySelector('#large [data-part=close]').checkVisibility()"))
        browser.driver.find_element(By.CSS_SELECTOR, '#large [data-part="close"]').click()

    def open_and_close_the_large_view(self):
        browser = self.browser
        driver = browser.driver
        is_open = "return document.getElementById('large').open"
        driver.find_element(By.CSS_SELECTOR, '[data-name="gate"] [data-part="open"]').click()
        self.assertTrue(browser.run(is_open))
        self.assertTrue(driver.current_url.endswith("#gate"), driver.current_url)
        browser.wait("the large view is live", lambda: browser.run(
            "return document.querySelector('#large[data-state=live] canvas').width === 160"))
        browser.screenshot("large")
        driver.switch_to.active_element.send_keys(Keys.ARROW_LEFT)
        self.assertTrue(driver.current_url.endswith("#yard"), driver.current_url)
        driver.switch_to.active_element.send_keys(Keys.ESCAPE)
        browser.wait("the large view is closed", lambda: not browser.run(is_open))
        browser.wait("the address is plain again", lambda: "#" not in driver.current_url)
        browser.open(self.host.address("/#spare"))
        browser.run("location.reload()")
        browser.wait("a bookmark opens the large view", lambda: browser.run(is_open))
        browser.open("about:blank")
        browser.open(self.host.address())
        browser.wait_state("yard", "live")

    def scan_the_code_of_a_camera(self):
        browser = self.browser
        browser.driver.find_element(By.CSS_SELECTOR, '.tile[data-name="spare"] [data-part="connect"]').click()
        part = lambda name: browser.driver.find_element(By.CSS_SELECTOR, f'#phone [data-part="{name}"]')
        browser.wait("a link behind it", lambda: part("address").text)
        today = self.scan("code")
        self.assertEqual(today, [part("address").text], "one code, and no other on the page")
        self.assertRegex(today[0], rf"^http://127\.0\.0\.1:{self.host.port}/phone#[0-9a-f]{{32}}$")
        width = part("code").size["width"]
        part("enlarge").click()
        self.assertEqual(self.scan("code-large"), today)
        self.assertGreater(part("code").size["width"], 2 * width)
        browser.driver.switch_to.active_element.send_keys(Keys.ESCAPE)
        browser.wait("its dialog", lambda: part("close").is_displayed())
        part("old").click()
        self.assertEqual(self.scan("code-old"), [part("address").text])
        address = part("address").text
        self.assertEqual(address, today[0].replace("/phone#", "/get/"), "the same link")
        # A phone reads the page, which uses nothing up, and then gets the archive, once.
        for path, status in (("", 200), ("/Sendora.jad", 200), ("/Sendora.jar", 200), ("/Sendora.jar", 410)):
            self.assertEqual(self.status(address + path), status, path)
        # The server knows that the phone has all of it a moment after the phone does.
        browser.wait("its end", lambda: self.status(address) == 410)
        part("renew").click()
        browser.wait("another link", lambda: part("address").text not in ("", address))
        fresh = part("address").text
        self.assertEqual(self.status(fresh), 200)
        part("revoke").click()
        browser.wait("its end", lambda: self.status(fresh) == 410)
        self.assertFalse(part("code").is_displayed())
        part("close").click()
        browser.wait("the dialog is closed", lambda: not browser.run("return document.getElementById('phone').open"))
        # From the help as well.
        browser.driver.find_element(By.ID, "help-link").click()
        browser.driver.find_element(By.ID, "help-code").click()
        browser.wait("a link for the camera of the picker", lambda: part("address").text)
        self.assertIn("spare", part("name").text)
        part("close").click()
        browser.wait("the code is gone", lambda: not browser.run("return document.querySelector('#phone img').hasAttribute('src')"))

    def scan(self, name):
        self.browser.screenshot(name, needed=True)
        return subprocess.run(["zbarimg", "-q", "--raw", os.path.join(case.options.screenshots, f"{name}.png")],
                              capture_output=True, text=True, check=False).stdout.split()

    @staticmethod
    def status(address):
        try:
            with urllib.request.urlopen(address, timeout=10) as answer:
                answer.read()
                return answer.status
        except urllib.error.HTTPError as error:
            with error:
                return error.code

    def follow_a_phone_through_its_life(self):
        browser = self.browser
        with Feeder(self.host.port, "spare", "demo", [coded_jpeg(n) for n in range(1, 9)], rate=10) as phone:
            browser.wait_state("spare", "live")
            self.assertEqual(browser.tile("spare")["offers"], "phone")
            phone.pause()
            paused = time.monotonic()
            stalled = browser.wait_state("spare", "stalled", seconds=6)
            self.assertGreater(time.monotonic() - paused, 2, "given up too soon")
            self.assertRegex(stalled["notice"], r"No new picture for \d+ s / Last picture at \d")
            browser.screenshot("stalled")
        offline = browser.wait_state("spare", "offline", seconds=10)
        self.assertRegex(offline["notice"], r"Phone not connected / Last picture at \d")
        self.assertEqual(offline["rate"], "–")
        browser.screenshot("offline")


if __name__ == "__main__":
    case.main()
