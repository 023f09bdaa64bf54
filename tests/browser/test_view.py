"""One source for one person: the picture, its zoom and its turns, and a source that comes and goes; and what it showed before."""

import glob
import os
import re
import subprocess

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By

import case
from feeder import Feeder
from pictures import NEW_CONTEXT_JS, READ_CODE_JS, coded_jpeg
from recordings import Day

# How much bluer than red the picture is in each cell of a grid of eight by eight, and its size.
LOOK_JS = """
const canvas = document.getElementById("picture");
const context = new OffscreenCanvas(8, 8).getContext("2d", { willReadFrequently: true });
context.drawImage(canvas, 0, 0, 8, 8);
const { data } = context.getImageData(0, 0, 8, 8);
const blue = Array.from({ length: 64 }, (_, cell) => data[4 * cell + 2] - data[4 * cell]);
return { blue, width: canvas.width, height: canvas.height, seq: Number(document.body.dataset.seq ?? 0),
         state: document.body.dataset.state };
"""


class ViewTest(case.DemoCase):
    def look(self):
        return self.browser.run(LOOK_JS)

    def text(self, name):
        return self.browser.run("return document.getElementById(arguments[0]).textContent", name)

    def click(self, name):
        self.browser.driver.find_element(By.ID, name).click()

    def set_range(self, name, value):
        self.browser.run("""
            const slider = document.getElementById(arguments[0]);
            slider.value = arguments[1];
            slider.dispatchEvent(new Event("input"));
        """, name, value)

    def wait_live(self, what, condition=lambda look: True):
        def reached():
            look = self.look()
            return look if look["state"] == "live" and look["seq"] > 0 and condition(look) else None

        try:
            return self.browser.wait(what, reached)
        except AssertionError:
            raise AssertionError(f"not seen: {what}; last: {self.look()}") from None

    def drag(self, left, top, width, height):
        """Marks a part of the stage, in parts of 1."""
        stage = self.browser.driver.find_element(By.ID, "picture")
        size = stage.size
        ActionChains(self.browser.driver, duration=20).move_to_element_with_offset(
            stage, int((left - 0.5) * size["width"]), int((top - 0.5) * size["height"])
        ).click_and_hold().move_by_offset(int(width * size["width"]), int(height * size["height"])).release().perform()

    def test_a_visit(self):
        browser = self.browser
        browser.open(self.host.address("/"))
        links = browser.wait("the page lists the clock", lambda: browser.run(
            "return [...document.querySelectorAll('#sources a')].map((link) => link.getAttribute('href'))"))
        self.assertEqual(links, ["/view/clock"])
        browser.wait_state("yard", "live")
        browser.driver.find_element(By.CSS_SELECTOR, '[data-name="yard"] [data-part="view"]').click()
        self.assertTrue(browser.driver.current_url.endswith("/view/yard"), browser.driver.current_url)
        self.see_rate_and_quality()
        self.turn_and_zoom()
        self.see_it_on_a_phone()
        self.lose_and_find_the_host()
        self.lose_and_find_a_picture()
        self.end(self.host, browser)

    def see_rate_and_quality(self):
        first = self.wait_live("a picture")
        self.assertEqual((first["width"], first["height"]), (320, 240))
        self.wait_live("the next picture", lambda look: look["seq"] >= first["seq"] + 2)
        self.set_range("fps", 10)
        self.browser.wait("ten pictures a second", lambda: abs(
            float(re.sub(r"[^0-9.]", "", self.text("rate")) or 0) - 10) <= 1)
        data = lambda: float(re.sub(r"[^0-9.]", "", self.text("data")) or 0)  # noqa: E731
        before = data()
        self.set_range("quality", 10)
        self.browser.wait("fewer bytes for less quality", lambda: 0 < data() < before * 0.7)
        self.set_range("quality", 80)

    def turn_and_zoom(self):
        browser = self.browser
        whole = self.wait_live("the whole picture")
        browser.screenshot("view")
        self.click("rotate")
        turned = self.wait_live("a turned picture", lambda look: look["height"] > look["width"])
        browser.screenshot("view-turned")
        # The sky, which is blue, is above at first, and to the right then; the street is grey.
        street = max(whole["blue"][56:64]) + 10
        self.assertGreater(min(whole["blue"][5:8]), street)
        # A van may pass meanwhile, so the one side is held against the other.
        sky = min(turned["blue"][8 * row + 7] for row in (5, 6, 7))
        self.assertGreater(sky, street)
        self.assertLess(max(turned["blue"][8 * row] for row in range(8)), sky)
        for _ in range(3):
            self.click("rotate")
        # Not on its head, as it is on the way.
        self.wait_live("the picture upright again", lambda look: look["width"] > look["height"]
                       and min(look["blue"][5:8]) > street)

        self.drag(0.55, 0.02, 0.15, 0.12)
        browser.wait("a part is shown", lambda: self.text("part") != "Whole")
        sky_only = self.wait_live("the sky alone", lambda look: look["width"] > 1.6 * look["height"])
        browser.screenshot("view-zoomed")
        self.assertGreater(min(sky_only["blue"]), street, "nothing of the street")
        self.assertIn("zw=", browser.driver.current_url, "a bookmark keeps the view")
        browser.run("location.reload()")
        self.wait_live("the same part after a reload", lambda look: look["width"] > 1.6 * look["height"])
        self.click("zoom-out")
        self.wait_live("the whole picture again", lambda look: (look["width"], look["height"]) == (320, 240))

    def see_it_on_a_phone(self):
        browser = self.browser
        browser.size(390, 844, phone=True)
        browser.open(self.host.address("/view/clock"))
        self.wait_live("the clock")
        browser.screenshot("view-phone")
        browser.scheme("dark")
        browser.screenshot("view-phone-dark")
        browser.scheme("light")
        browser.size(360, 640, phone=True)
        self.assertLessEqual(browser.run("return document.documentElement.scrollWidth"), 360, "the page is too wide")
        self.use_fingers()
        # Held sideways, each control can be brought to light, with nothing of another one over it.
        for width, height in ((844, 390), (640, 360)):
            browser.size(width, height, phone=True)
            browser.screenshot(f"view-sideways-{width}")
            covered = browser.run("""
                return [...document.querySelectorAll("#controls :is(select, input, button), .top a")].filter((control) => {
                    control.scrollIntoView({ block: "nearest" });
                    const { left, top, width, height } = control.getBoundingClientRect();
                    return !control.contains(document.elementFromPoint(left + width / 2, top + height / 2));
                }).map((control) => control.id);
            """)
            self.assertEqual(covered, [], (width, height))
            stage = browser.run("const box = document.getElementById('stage').getBoundingClientRect(); return box.height")
            self.assertGreater(stage, height * 0.6, "room for the picture")
        browser.size(1280, 800)

    def use_fingers(self):
        browser = self.browser
        browser.size(390, 844, phone=True)
        browser.open(self.host.address("/view/yard?fps=10"))
        self.wait_live("a camera")
        browser.wait("others beside it", lambda: browser.driver.find_element(By.ID, "next").is_displayed())
        middle = browser.run("const { left, top, width, height } = document.getElementById('stage').getBoundingClientRect();"
                             "return [left + width / 2, top + height / 2]")
        point = lambda x, y: (middle[0] + x, middle[1] + y)  # noqa: E731
        # Two fingers that spread enlarge the picture and not the page, one moves what is enlarged, and no part is another camera.
        browser.touch((point(-30, -20), point(-90, -60)), (point(30, 20), point(90, 60)))
        self.wait_live("a part", lambda look: self.text("part") == "33 % × 33 %")
        place = lambda: [int(re.search(rf"{name}=(\d+)", browser.driver.current_url)[1]) for name in ("zx", "zy")]  # noqa: E731
        browser.wait("the address has it", lambda: "zw=333" in browser.driver.current_url and place())
        before = place()
        browser.touch((point(60, 0), point(-60, 0)))
        browser.wait("the part further to the right", lambda: place()[0] > before[0] + 50 and abs(place()[1] - before[1]) < 20)
        self.assertEqual((self.text("name"), browser.page_scale()), ("yard", 1))
        browser.touch((point(-90, -60), point(-15, -10)), (point(90, 60), point(15, 10)))
        browser.wait("the whole again", lambda: self.text("part") == "Whole")
        # One that swipes turns to the next one, sooner than a page would be loaded, and Back turns back.
        browser.run("document.body.dataset.mine = 1")
        names = [camera["name"] for camera in self.host.health()["cameras"]]
        at = names.index("yard")
        for swipe, name in ((-120, names[(at + 1) % 3]), (120, "yard"), (120, names[at - 1])):
            browser.touch((point(-swipe / 2, 0), point(swipe / 2, 10)))
            browser.wait(name, lambda: self.text("name") == name)
        browser.touch((point(0, -60), point(10, 60)))
        browser.driver.back()
        browser.wait("back", lambda: self.text("name") == "yard" and self.look()["state"] == "live")
        self.assertEqual(browser.run("return document.body.dataset.mine"), "1")
        self.assertIn("fps=10", browser.driver.current_url)
        # Taps in quick succession are for buttons.
        for _ in range(2):
            browser.touch((point(0, 250), point(0, 250)), steps=1)
        self.assertEqual(browser.page_scale(), 1)
        self.click("full")
        browser.wait("the whole screen", lambda: browser.run(
            "const box = document.getElementById('stage').getBoundingClientRect();"
            "return document.fullscreenElement?.id === 'stage' && box.width === innerWidth && box.height === innerHeight"))
        browser.screenshot("view-full")
        self.click("full")
        browser.wait("the page", lambda: browser.run("return document.fullscreenElement === null && document.getElementById('size').checkVisibility()"))

    def lose_and_find_the_host(self):
        self.browser.open(self.host.address("/view/clock"))
        self.wait_live("the clock")
        self.host.kill()
        self.browser.wait("the loss is told", lambda: self.look()["state"] == "lost")
        self.host.start()
        self.wait_live("the clock again, without a reload")

    def lose_and_find_a_picture(self):
        browser = self.browser
        browser.open(self.host.address("/view/spare"))
        browser.wait("no picture is said to be none", lambda: "No picture from this source" in self.text("notice-title"))
        with Feeder(self.host.port, "spare", "demo", [coded_jpeg(n) for n in range(1, 9)], rate=10):
            self.wait_live("the phone's picture")
        browser.wait("the picture of the past is covered", lambda: self.look()["state"] == "waiting")
        browser.screenshot("view-waiting")


class LookBackTest(case.BrowserCase):
    def now(self):
        """The moment of the picture on the screen, having held the picture against it."""
        time, code = self.browser.run(READ_CODE_JS + NEW_CONTEXT_JS + """
            const picture = document.getElementById("picture");
            return [Number(picture.dataset.time ?? 0), picture.checkVisibility() ? readCode(picture, newContext()) : null];
        """)
        if time > 0:
            self.assertEqual(code, self.day.number_at(time))
        return time

    def wait_for(self, time, within=0):
        self.browser.wait(f"the picture of {time}", lambda: abs(self.now() - time) <= within)

    def keys(self, keys):
        ActionChains(self.browser.driver).send_keys(keys).perform()

    def place(self, share):
        """A point on the line of time."""
        box = self.browser.run("return document.getElementById('timeline').getBoundingClientRect().toJSON()")
        return box["left"] + share * box["width"], box["top"] + 40

    def test_a_day(self):
        host = self.make_host()
        host.write_cameras(["yard"], "demo")
        day = self.day = Day(host.data, "yard", 1500)
        host.start()
        browser = self.browser = self.make_browser()
        browser.wait("the host has read the recordings", lambda: day.is_known(host))
        browser.open(host.address())
        browser.wait("the way back on the tile", lambda: browser.run("return document.querySelector('.tile [data-part=back]').checkVisibility()"))
        browser.open(host.address("/recordings"))
        browser.wait("the list", lambda: browser.run("return document.querySelector('#list a')?.textContent.startsWith('yard')"))
        browser.driver.find_element(By.CSS_SELECTOR, "#list a").click()
        self.wait_for(day.end)

        # A part of it, picture by picture and by playing.
        middle = day.begin + 600_000
        browser.open(host.address(f"/recordings/yard?t={middle}"))
        self.wait_for(middle)
        for key, time in ((",", middle - 1000), (".", middle), (".", middle + 1000), ("\ue012", middle - 4000), ("\ue014", middle + 1000)):
            self.keys(key)
            self.wait_for(time)
        self.keys("[")
        browser.run("""
            const speed = document.getElementById("speed");
            speed.value = "60";
            speed.dispatchEvent(new Event("change"));
        """)
        self.keys(" ")
        browser.wait("a minute is played", lambda: self.now() > middle + 60_000)
        self.keys("k")
        self.keys("]")
        marked = browser.wait("it stands", lambda: (one := self.now()) == self.now() and one)

        # What is saved is what was marked, to the picture.
        downloads = os.path.join(self.folder, "downloads")
        browser.driver.execute_cdp_cmd("Browser.setDownloadBehavior", {"behavior": "allow", "downloadPath": downloads})
        browser.run("document.getElementById('save').click()")
        browser.wait("it is saved", lambda: browser.run("return document.getElementById('saved').textContent") == "Saved")
        browser.wait("the browser has it", lambda: [name for name in os.listdir(downloads) if name.endswith(".mkv")])
        saved = os.path.join(downloads, os.listdir(downloads)[0])
        packets = subprocess.run(["ffprobe", "-v", "error", "-count_packets", "-show_entries", "stream=nb_read_packets", "-of", "csv=p=0", saved],
                                 check=True, stdout=subprocess.PIPE, text=True).stdout
        self.assertEqual(int(packets), (marked - middle - 1000) // 1000 + 1)

        # What is marked is kept, and let go again.
        for pressed, kept in ("true", 1), ("false", 0):
            browser.run("document.getElementById('keep').click()")
            browser.wait(f"kept: {kept}", lambda: browser.run("return document.getElementById('keep').ariaPressed") == pressed)  # noqa: B023
            self.assertEqual(len(glob.glob(os.path.join(host.data, "recordings/1/*/*.keep"))), kept)

        # By a finger, on a phone: the line shows the part that is left of the day, or all of it.
        browser.size(390, 844, phone=True)
        browser.run("for (let i = 0; i < 20; ++i) document.getElementById('wider').click()")
        begin, end = browser.wait("the line", lambda: browser.run("""
            const line = document.getElementById("timeline");
            const [begin, end] = ["valuemin", "valuemax"].map((name) => Number(line.getAttribute(`aria-${name}`)));
            return end - begin > 86400000 * 6 && [begin, end];
        """))
        there = [(time - begin) / (end - begin) for time in (day.begin + 200_000, day.begin + 1_200_000)]
        browser.touch((self.place(there[0]), self.place(there[1])))
        self.wait_for(day.begin + 1_200_000, within=(end - begin) / 300)
        browser.screenshot("recordings-phone")
        browser.size(1280, 800)
        browser.screenshot("recordings")

        # Where there is nothing it says so, and what there was goes on from there.
        browser.open(host.address(f"/recordings/yard?t={day.begin - 3_600_000}"))
        browser.wait("the notice", lambda: browser.run("return document.getElementById('notice').checkVisibility()"))
        self.keys(" ")
        browser.wait("it plays", lambda: self.now() > day.begin + 1000)
        self.end(host, browser)


if __name__ == "__main__":
    case.main()
