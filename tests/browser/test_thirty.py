"""Thirty live cameras on one page and on one connection."""

import json
import re
import time
from contextlib import ExitStack

from selenium.webdriver.common.by import By

import case
from feeder import Feeder
from pictures import coded_jpeg

CAMERAS = 30
PICTURES = 4  # for each camera, shown in turn
RATE = 2


class ThirtyTest(case.BrowserCase):
    def test_all_live_over_one_connection(self):
        names = [f"camera-{n:02}" for n in range(CAMERAS)]
        host = self.make_host()
        waiting = ["aa-waits", "zz-waits"]
        host.write_cameras([*waiting, *names], "secret")
        host.add_phones(names, "secret")
        host.start()
        browser = self.make_browser(width=1600, height=2400, network=True)  # all tiles are on the screen
        with ExitStack() as phones:
            for n, name in enumerate(names):
                pictures = [coded_jpeg(n * PICTURES + k) for k in range(PICTURES)]
                phones.enter_context(Feeder(host.port, name, "secret", pictures, RATE))
            browser.open(host.address())
            for name in names:
                browser.wait_state(name, "live")

            # Over a few seconds every tile goes through all pictures of its own camera and shows no other's.
            seen = {name: set() for name in names}

            def all_seen():
                for name, code in browser.codes().items():
                    if code is not None:
                        seen[name].add(code)
                return all(len(codes) >= PICTURES for codes in seen.values())

            browser.wait("every tile shows every picture", all_seen)
            for n, name in enumerate(names):
                self.assertEqual(seen[name], set(range(n * PICTURES, (n + 1) * PICTURES)), name)

            states = {name: tile["state"] for name, tile in browser.tiles().items()}
            self.assertEqual(states, dict.fromkeys(names, "live") | dict.fromkeys(waiting, "waiting"))
            self.assertEqual(list(states), [*names, *waiting], "those without a phone come last")
            browser.screenshot("thirty")
            browser.size(1280, 800)
            browser.screenshot("thirty-desktop")
            self.choose_among_many(browser, names, waiting)
            self.only_shown_tiles_get_pictures(browser, names)
            self.a_page_in_the_background_gets_none(browser, names[-1])
            self.assert_one_connection(browser)
            browser.run("location.reload()")
            browser.wait_state(names[0], "live")
            self.assertFalse(browser.driver.find_element(By.ID, "dense").is_selected(), "the choice is kept")
        self.end(host, browser)

    def choose_among_many(self, browser, names, waiting):
        shown = lambda: browser.run(
            "return [...document.querySelectorAll('.tile')].filter((tile) => tile.checkVisibility()).map((tile) => tile.dataset.name)")
        by_id = lambda name: browser.driver.find_element(By.ID, name)
        width = "return document.querySelector('.tile').offsetWidth"
        self.assertTrue(by_id("dense").is_selected())
        dense = browser.run(width)
        self.assertLess(browser.run("return document.querySelector('[data-name=aa-waits]').offsetHeight"), 80)
        by_id("search").send_keys("RA-1")
        self.assertEqual(shown(), names[10:20])
        by_id("search").clear()
        by_id("search").send_keys("waits")
        self.assertEqual(shown(), waiting)
        by_id("only-live").click()
        self.assertEqual((shown(), by_id("found").text), ([], "No camera fits"))
        by_id("search").clear()
        browser.wait("the live ones", lambda: shown() == names)
        by_id("only-live").click()
        by_id("dense").click()
        self.assertGreater(browser.run(width), 1.5 * dense)

    def only_shown_tiles_get_pictures(self, browser, names):
        """A tile far below the screen's edge costs nothing, and is live again as soon as it is scrolled in."""
        last = names[-1]
        browser.wait_state(last, "stalled", seconds=10)
        before = browser.tile(last)["seq"]
        self.assertEqual(browser.tile(names[0])["state"], "live")
        time.sleep(1)
        self.assertEqual(browser.tile(last)["seq"], before, "a picture for a tile that nobody sees")
        browser.run("document.querySelector(`[data-name='${arguments[0]}']`).scrollIntoView()", last)
        browser.wait_state(last, "live", seconds=5)

    def a_page_in_the_background_gets_none(self, browser, name):
        # A browser without a window has no background; the page is told that it is there.
        hide = "Object.defineProperty(document, 'hidden', { value: arguments[0], configurable: true });" \
               "document.dispatchEvent(new Event('visibilitychange'))"
        browser.run(hide, True)
        time.sleep(0.5)  # what was on its way arrives
        before = browser.tile(name)["seq"]
        time.sleep(1.5)
        self.assertEqual(browser.tile(name)["seq"], before, "a picture for a page that nobody sees")
        browser.run(hide, False)
        browser.wait("pictures come again", lambda: browser.tile(name)["seq"] > before, seconds=5)

    def assert_one_connection(self, browser):
        events = [json.loads(entry["message"])["message"] for entry in browser.driver.get_log("performance")]
        # The page before it is the one that the sign-in leads to.
        opened = max(index for index, event in enumerate(events) if event["method"] == "Page.frameNavigated")
        events = events[opened:]
        sockets = [event for event in events if event["method"] == "Network.webSocketCreated"]
        self.assertEqual(len(sockets), 1, "connections for pictures")
        requests = [event["params"]["request"]["url"] for event in events
                    if event["method"] == "Network.requestWillBeSent"]
        pictures = [url for url in requests if re.search(r":\d+/(live|snapshot)/", url)]
        self.assertEqual(pictures, [], "pictures asked for one by one")


if __name__ == "__main__":
    case.main()
