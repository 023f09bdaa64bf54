"""What a person sees of two hosts that are one server: what happens at the other one, conflicts with somebody there, and its absence."""

import os
import sys
import threading
import urllib.error
from pathlib import Path

from selenium.webdriver.common.action_chains import ActionChains

import case
from hostprogram import Host, wait
from recordings import Day
from test_settings import SettingsPage

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "host"))
from machines import Nats  # noqa: E402

AWAY = "The server “two” cannot be reached now; it may have recordings of then."
ELSEWHERE = "Changed at another server at the same moment, so that your changes to it are lost: yard. All else is saved."


class TogetherTest(case.BrowserCase):
    def setUp(self):
        super().setUp()
        engine = Nats(self.folder)
        self.addCleanup(engine.kill)
        engine.start()
        secret = Path(self.folder, "secret")
        secret.write_text("s" * 32 + "\n", encoding="utf-8")
        self.one, self.two = (self.member(name, engine, secret) for name in ("one", "two"))
        self.one.write_cameras(["yard", "porch"], "demo")
        self.day = Day(self.two.data, "yard", 600)
        self.one.start()
        self.two.admin_password = self.one.admin_password
        self.two.start()
        self.browser = self.make_browser()

    def member(self, name, engine, secret):
        folder = os.path.join(self.folder, name)
        os.mkdir(folder)
        host = Host(case.options.host, folder, ["--cluster", engine.url, "--node", name, "--cluster-secret", str(secret),
                                                "--public", "cams.example.org:80"])
        self.addCleanup(host.close)
        return host

    def look(self, script):
        return self.browser.run(f"return {script}")

    def change(self, host, camera, told):
        try:
            host.fetch(f"/api/v1/cameras/{camera}", "PUT", told)
        except urllib.error.HTTPError as error:
            self.assertEqual(error.code, 412)  # the page came first

    def test_two_hosts(self):
        self.see_events_of_the_other_host()
        self.see_conflicts()
        self.see_its_absence()
        self.assertEqual(self.one.stop(), 0)

    def see_events_of_the_other_host(self):
        told = "[...document.querySelectorAll('.event[data-host=two][data-kind=settings-changed]')].map((row) => row.textContent)"
        self.browser.open(self.one.address("/events"))
        self.browser.wait("its start in the list", lambda: self.look("document.querySelector('.event[data-host=two][data-kind=server-started]')"))
        self.browser.run("window.listed = document.querySelector('.event')")
        self.change(self.two, "porch", {"type": "320x240"})
        rows = self.browser.wait("the change", lambda: self.look(told))
        self.assertEqual(len(rows), 1)
        self.assertIn(" · admin · two", rows[0])
        self.assertTrue(self.look("window.listed.isConnected"), "the list was not asked for once more")

    def see_conflicts(self):
        page = SettingsPage(self.browser, self.one)
        page.open()
        fill = """for (const entry of document.querySelectorAll("#lists .entry")) {
            const field = entry.querySelector('[data-name="Password"] input');
            field.value = arguments[0] + entry.querySelector(".entry-name").textContent;
            field.dispatchEvent(new Event("input"));
        }"""

        # Of a change that has come here already he is told before anything is saved.
        self.change(self.two, "yard", {"type": "320x240"})
        wait("the change", lambda: self.one.fetch("/api/v1/cameras") == self.two.fetch("/api/v1/cameras"))
        self.browser.run(fill, "mine")
        self.browser.run("document.getElementById('save').click()")
        self.browser.wait("his changes on top of theirs", lambda: "with your changes on top" in page.banner())
        page.save()

        # With one of the same moment the save wins or loses, or it has come already.
        def meet():
            meet.tries += 1
            other = threading.Thread(target=self.change, args=(self.two, "yard", {"password": f"theirs{meet.tries}"}))
            self.browser.run(fill, f"mine{meet.tries}")
            other.start()
            self.browser.run("document.getElementById('save').click()")
            other.join()
            self.browser.wait("an answer", lambda: page.state() != "Saving")
            return page.banner() == ELSEWHERE

        meet.tries = 0
        wait("a save that lost one of two cameras", meet)
        self.assertEqual(page.state(), "Saved")

    def see_its_absence(self):
        middle = self.day.begin + 300_000
        time = "Number(document.getElementById('picture').dataset.time ?? 0)"
        self.browser.open(self.one.address(f"/recordings/yard?t={middle}"))
        self.browser.wait("a picture of the other host", lambda: self.look(time) == middle)
        for key in "[", "\ue014", "]":
            ActionChains(self.browser.driver).send_keys(key).perform()
        self.browser.wait("the next one that is sought", lambda: self.look(time) == middle + 5000)
        # The line of time, close enough, is painted where the camera was recorded, and otherwise where it may have been. The lines of
        # the hours and their quarters may cross it: what counts is the colour of most of two minutes.
        ActionChains(self.browser.driver).send_keys("+++").perform()
        painted = """
            const line = document.getElementById("timeline"), strip = document.getElementById("strip");
            const [begin, end] = ["valuemin", "valuemax"].map((name) => Number(line.getAttribute(`aria-${name}`)));
            const scale = strip.width / strip.clientWidth, probe = document.createElement("i");
            const context = Object.assign(document.createElement("canvas"), { width: strip.width, height: strip.height }).getContext("2d");
            context.drawImage(strip, 0, 0);
            const at = (time) => Math.floor((time - begin) / (end - begin) * strip.width);
            return [arguments[0] - 100000, arguments[0] - 600000].map((time) => {
                const [left, right] = [at(time - 60000), at(time + 60000)], times = new Map();
                for (let column = left; column <= right; column += 1) {
                    const colour = [...context.getImageData(column, Math.round(43 * scale), 1, 1).data].map((part) => Math.round(part / 16)).join();
                    times.set(colour, (times.get(colour) ?? 0) + 1);
                }
                return [...times].sort(([, one], [, other]) => other - one)[0][0];
            });
        """
        colours = lambda: self.browser.run(painted, middle)  # noqa: E731
        recorded, nothing = self.browser.wait("what was recorded", lambda: (seen := colours())[0] != seen[1] and seen)

        self.two.kill()
        said = lambda name: self.look(f"document.getElementById('{name}').checkVisibility() && document.getElementById('{name}').textContent")  # noqa: E731
        self.browser.wait("a gap", lambda: colours()[0] not in (recorded, nothing) and colours()[1] == nothing)
        ActionChains(self.browser.driver).send_keys("[", "]").perform()
        self.browser.wait("what a file would lack", lambda: said("missing") == AWAY)
        self.browser.driver.refresh()
        self.browser.wait("the words for it", lambda: said("notice-title") == AWAY)
        self.browser.screenshot("recordings-away")
        ActionChains(self.browser.driver).send_keys("+++").perform()

        self.two.start()
        self.browser.wait("its pictures", lambda: colours() == [recorded, nothing])
        ActionChains(self.browser.driver).send_keys(".").perform()
        self.browser.wait("a picture", lambda: said("notice-title") is False)
        self.assertFalse(said("missing"))
        self.assertEqual(self.two.stop(), 0)


if __name__ == "__main__":
    case.main()
