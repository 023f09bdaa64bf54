"""Signing in, the live page and one source in the engines of Firefox and of iPhones.

WebKit sends no sign-in of HTTP Basic with a WebSocket, and each has its own mind of where a form's request comes from.
"""

import trio

import case
from feeder import Feeder
from firefox import Firefox
from pictures import coded_jpeg
from webkit import WebKit

TILE = "document.querySelector('.tile[data-name=yard]')"


class EnginesTest(case.BrowserCase):
    def test_firefox(self):
        async def visit():
            async with Firefox(self.folder) as browser:
                await self.visit(browser)

        trio.run(visit)

    def test_webkit(self):
        browser = WebKit(self.folder, case.options.screenshots)
        self.addCleanup(browser.close)
        trio.run(self.visit, browser)

    async def visit(self, browser):
        host = self.make_host()
        host.write_cameras(["yard", "gate"], "geheim")
        host.start()
        for scheme in ("https", "http"):
            with self.subTest(scheme=scheme), Feeder(host.port, "yard", "geheim", [coded_jpeg(n) for n in range(8)], rate=5):
                place = f"{scheme}://127.0.0.1:{host.port}"
                await browser.open(f"{place}/view/yard")
                await self.sign_in(browser, "wrong")
                await browser.wait("the refusal", "document.querySelector('[role=alert]') !== null")
                await self.sign_in(browser, host.admin_password())
                await browser.wait("the page asked for", f"location.href === '{place}/view/yard'")
                await self.see_move(browser, "document.body.dataset")
                await browser.run("document.getElementById('next').click()")
                await browser.wait("the other camera", "location.pathname === '/view/gate' && document.getElementById('name').textContent === 'gate'")
                await browser.open(f"{place}/")
                await browser.wait("the tiles", f"{TILE} !== null")
                await self.see_move(browser, f"{TILE}.dataset")
                await browser.run("document.querySelector('.account button').click()")
                await browser.wait("the end of the session", "location.pathname === '/sign-in'")
        self.assertEqual(host.stop(), 0, host.log_tail())

    @staticmethod
    async def sign_in(browser, password):
        await browser.wait("the form", "document.querySelector('form[action=\"/sign-in\"]') !== null && document.readyState === 'complete'")
        await browser.run("""(() => {
            const form = document.querySelector('form[action="/sign-in"]');
            form.querySelector("[role=alert]")?.remove();
            document.querySelector("[role=alert]")?.remove();
            form.elements.namedItem("name").value = "admin";
            form.elements.namedItem("password").value = "PASSWORD";
            form.querySelector("button").click();
        })()""".replace("PASSWORD", password))

    @staticmethod
    async def see_move(browser, data):
        first = await browser.wait("a live picture", f"{data}.state === 'live' ? Number({data}.seq ?? 0) : 0")
        await browser.wait("a later one", f"Number({data}.seq) > {first}")


if __name__ == "__main__":
    case.main()
