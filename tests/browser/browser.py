"""Chromium without a window, and what the tests ask of the page in it."""

import json
import os
import shutil
import time
import urllib.parse

try:
    from selenium import webdriver
    from selenium.webdriver.chrome.options import Options
    from selenium.webdriver.chrome.service import Service
    from selenium.webdriver.common.by import By
except ImportError as missing:
    raise SystemExit(f"the browser tests need python3-selenium: {missing}") from None

from pictures import NEW_CONTEXT_JS, READ_CODE_JS

ARGUMENTS = (
    "--headless=new", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
    "--disable-component-update", "--disable-sync", "--disable-dev-shm-usage", "--hide-scrollbars",
)
HEADLESS_SHELL = "/usr/lib/chromium/chromium-headless-shell"  # the script of this name ends without it
WAIT_SECONDS = 30
STEP_SECONDS = 0.02  # between two places of a finger
POLL_SECONDS = 0.1  # each look is an errand through driver and browser
# Requests to a host that was killed, and the icon that a browser asks for when it shows a page that names none.
EXPECTED_COMPLAINTS = ("ERR_CONNECTION_", "ERR_EMPTY_RESPONSE", "favicon.ico")


def tool(name):
    path = shutil.which(name)
    if path is None:
        raise SystemExit(f"the browser tests need {name}: install chromium, chromium-headless-shell and chromium-driver")
    return path


class Browser:
    def __init__(self, folder, screenshots, width=1280, height=800, arguments=(), home=None, network=False, whole=False):
        """`home` is a folder of its own, for the authorities that are trusted there. With `network` the browser notes every
        request and every message of a socket, each picture among them, which keeps it busy. A `whole` browser draws its
        windows, if nobody sees them, as one with a home does; else its headless shell does, in half of the time."""
        options = Options()
        options.binary_location = tool("chromium" if whole or home is not None else HEADLESS_SHELL)
        for argument in (*ARGUMENTS, *arguments):
            options.add_argument(argument)
        if os.geteuid() == 0:
            options.add_argument("--no-sandbox")
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", **({"performance": "ALL"} if network else {})})
        environment = {**os.environ, "TMPDIR": folder, **({} if home is None else {"HOME": home})}  # its profile goes with the folder
        self.driver = webdriver.Chrome(service=Service(tool("chromedriver"), env=environment), options=options)
        self.driver.set_script_timeout(WAIT_SECONDS)
        self.screenshots = screenshots
        self.signed_in = None
        self.size(width, height)

    def close(self):
        self.driver.quit()

    def size(self, width, height, phone=False):
        self.driver.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": width, "height": height, "deviceScaleFactor": 2 if phone else 1, "mobile": phone,
        })
        self.driver.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": phone, "maxTouchPoints": 5})

    def touch(self, *fingers, steps=5):
        """Fingers that move at the same time, each from a point of the window to another one: ((x, y), (x, y)).

        As quick as fingers are, however long this machine takes for it: the page goes by the times of the events.
        """
        begun = time.time()
        for step in range(steps + 1):
            points = [{"id": number, "x": x + (to_x - x) * step / steps, "y": y + (to_y - y) * step / steps}
                      for number, ((x, y), (to_x, to_y)) in enumerate(fingers)]
            self.driver.execute_cdp_cmd("Input.dispatchTouchEvent", {
                "type": "touchMove" if step else "touchStart", "touchPoints": points, "timestamp": begun + step * STEP_SECONDS})
        self.driver.execute_cdp_cmd("Input.dispatchTouchEvent", {
            "type": "touchEnd", "touchPoints": [], "timestamp": begun + (steps + 1) * STEP_SECONDS})

    def page_scale(self):
        return self.run("return visualViewport.scale")

    def scheme(self, name):
        self.driver.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": name}],
        })

    def open(self, address):
        """An address with a name and a password in it stands for somebody who has signed in."""
        parts = urllib.parse.urlsplit(address)
        if parts.username:
            self.sign_in(parts)
            address = parts._replace(netloc=f"{parts.hostname}:{parts.port}").geturl()
        self.driver.get(address)

    def sign_in(self, parts):
        """As a person does, on the page for it."""
        who = (parts.hostname, parts.port, parts.username, parts.password)
        if self.signed_in == who:
            return
        self.fill_in(f"{parts.scheme}://{parts.hostname}:{parts.port}", parts.username, urllib.parse.unquote(parts.password))
        self.signed_in = who

    def sign_in_by_form(self, origin, password):
        """The administrator; ends on the live page."""
        self.fill_in(origin, "admin", password)
        self.wait("the live page", lambda: len(self.tiles()) > 0)

    def fill_in(self, origin, name, password):
        self.driver.get(f"{origin}/sign-in")
        for field, value in (("name", name), ("password", password)):
            self.driver.find_element(By.NAME, field).send_keys(value)
        self.driver.find_element(By.CSS_SELECTOR, "form button").click()
        self.wait("the page behind the sign-in", lambda: "/sign-in" not in self.driver.current_url)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def screenshot(self, name, needed=False):
        """For who wants to look at them: one takes as long as some steps of a test."""
        if not needed and "MORROW_SCREENSHOTS" not in os.environ:
            return
        self.driver.save_screenshot(os.path.join(self.screenshots, f"{name}.png"))

    def wait(self, what, condition, seconds=WAIT_SECONDS):
        """Polls until `condition()` is true and returns what it gave; fails with `what` and the state of the page."""
        deadline = time.monotonic() + seconds
        while True:
            value = condition()
            if value:
                return value
            if time.monotonic() > deadline:
                self.screenshot("failure", needed=True)
                raise AssertionError(
                    f"no sign within {seconds} s of: {what}; last answer {value!r}; tiles {self.tiles()}")
            time.sleep(POLL_SECONDS)

    # --- the page -----------------------------------------------------------------------------------------------

    def tiles(self):
        """The facts of every tile, by name, in the order of the page."""
        return dict(self.run("""
            const facts = [];
            for (const tile of document.querySelectorAll(".tile")) {
                const text = (part) => tile.querySelector(`[data-part="${part}"]`).textContent;
                facts.push([tile.dataset.name, {
                    ...tile.dataset, seq: Number(tile.dataset.seq ?? -1), name: text("name"), word: text("state"),
                    size: text("size"), rate: text("rate"), age: text("age"),
                    notice: tile.querySelector('[data-part="notice"]').checkVisibility()
                        ? [text("title"), text("detail")].join(" / ") : "",
                    offers: ["connect", "phone"].filter((part) =>
                        tile.querySelector(`[data-part="${part}"]`).checkVisibility()).join(" "),
                }]);
            }
            return facts;
        """))

    def tile(self, name):
        return self.tiles().get(name)

    def wait_state(self, name, state, seconds=WAIT_SECONDS):
        def reached():
            tile = self.tile(name)
            return tile if tile is not None and tile["state"] == state else None

        return self.wait(f"{name} is {state}", reached, seconds)

    def codes(self):
        """The number in the picture on each tile, by name; None where there is no picture of ours."""
        return self.run(READ_CODE_JS + NEW_CONTEXT_JS + """
            const context = newContext();
            const codes = {};
            for (const tile of document.querySelectorAll(".tile")) {
                const canvas = tile.querySelector("canvas");
                codes[tile.dataset.name] = canvas.checkVisibility() ? readCode(canvas, context) : null;
            }
            return codes;
        """)

    def pixels(self, name):
        """Digest and spread of the pixels on a tile."""
        return self.run("""
            const canvas = document.querySelector(`[data-name="${arguments[0]}"] canvas`);
            const context = new OffscreenCanvas(canvas.width, canvas.height)
                .getContext("2d", { willReadFrequently: true });
            context.drawImage(canvas, 0, 0);
            const { data } = context.getImageData(0, 0, canvas.width, canvas.height);
            let digest = 0, low = 255, high = 0;
            for (let i = 0; i < data.length; i += 4) {
                digest = (digest * 31 + data[i] * 3 + data[i + 1] * 5 + data[i + 2]) | 0;
                low = Math.min(low, data[i + 1]);
                high = Math.max(high, data[i + 1]);
            }
            return { digest, spread: high - low, width: canvas.width, height: canvas.height };
        """, name)

    def complaints(self):
        """What the console reported, without what the tests cause on purpose."""
        return [entry["message"] for entry in self.driver.get_log("browser")
                if not any(cause in entry["message"] for cause in EXPECTED_COMPLAINTS)]
