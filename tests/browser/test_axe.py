"""Every page against axe-core's rules for accessibility, on both kinds of screens and in both colour schemes."""

import json
import os

import case
from feeder import Feeder
from pictures import coded_jpeg
from recordings import Day

AXE = os.path.join(os.path.dirname(__file__), "node_modules", "axe-core", "axe.min.js")
RUN_JS = """
const [rules, only, done] = arguments;
axe.run(document, { resultTypes: ["violations"], rules, ...(only ? { runOnly: only } : {}) }).then(({ violations }) => done(violations.map(
    ({ id, nodes }) => `${id}: ${nodes.map((node) => node.html.slice(0, 160)).join(" | ")}`)), (error) => done([String(error)]));
"""
# What the colours and the layout of a phone change.
LOOK = ["color-contrast", "scrollable-region-focusable", "meta-viewport", "link-in-text-block", "nested-interactive", "button-name",
        "link-name", "label", "select-name", "aria-hidden-focus", "empty-heading"]
# A page without script shows new pictures by coming anew: that is what it is for, at an interval that its reader chooses.
EXCEPT = {"/tiny/gate": {"meta-refresh": {"enabled": False}}}
CAMERAS = ["gate", "yard", *(f"waits-{n:02}" for n in range(8))]


class AxeTest(case.BrowserCase):
    def test_no_page_has_a_finding(self):
        if not os.path.exists(AXE):
            self.fail("axe-core is missing: scripts/setup test installs it")
        with open(AXE, encoding="utf-8") as file:
            axe = file.read()
        host = self.make_host()
        host.write_cameras(CAMERAS, "geheim")
        Day(host.data, "gate", 100)
        host.start()
        browser = self.make_browser(arguments=("--use-fake-ui-for-media-stream", "--use-fake-device-for-media-stream"))
        link, code = (json.loads(host.fetch("/api/v1/cameras/yard/link", method="POST")) for _ in range(2))
        # A page, and what is done on it first.
        pages = [
            ("/", "document.querySelector('#help details').open = true"),
            ("/#gate", ""),
            ("/", "document.getElementById('help-code').click()"),
            ("/view/gate", ""), ("/tiny", ""), ("/tiny/gate", ""), ("/mobile", ""),
            (f"/get/{link['token']}", ""), ("/nothing-here", ""), ("/archive", ""), ("/trust", ""), ("/sign-in", ""), ("/password", ""),
            ("/phone", "document.getElementById('by-name').open = true"), (f"/phone#{code['token']}", ""),
            (f"/phone#{code['token']}", "document.getElementById('pair-button').click()"), ("/phone", ""), ("/settings", ""), ("/recordings", ""), ("/recordings/gate", ""),
        ]
        with Feeder(host.port, "gate", "geheim", [coded_jpeg(n) for n in range(8)], rate=5):
            for number, (path, first) in enumerate(pages):
                browser.open("about:blank")
                browser.open(host.address(path))
                if path in ("/", "/#gate"):
                    browser.wait_state("gate", "live")
                if path == "/settings":
                    browser.wait("the form", lambda: browser.run("return !document.getElementById('form').hidden"))
                if path == "/recordings/gate":
                    browser.wait("a picture", lambda: browser.run("return document.getElementById('picture').dataset.time"))
                browser.run(first)
                browser.run(axe)
                # A layout looks the same in both schemes but for its colours, which both layouts share.
                for width, height, phone, scheme, only in ((1280, 800, False, "light", None), (390, 844, True, "dark", LOOK)):
                    browser.size(width, height, phone)
                    browser.scheme(scheme)
                    findings = browser.driver.execute_async_script(RUN_JS, {} if only else EXCEPT.get(path, {}), only)
                    with self.subTest(page=path, first=first, width=width, scheme=scheme):
                        self.assertEqual(findings, [])
                    browser.screenshot(f"axe-{number}-{width}")
                    if width == 390:
                        self.assertLessEqual(browser.run("return document.documentElement.scrollWidth"), 390, path)
        self.assertEqual(host.stop(), 0)


if __name__ == "__main__":
    case.main()
