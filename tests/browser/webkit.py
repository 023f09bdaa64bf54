"""WebKit without a screen: Debian's MiniBrowser, driven by WebKitWebDriver, on an X server in memory."""

import os
import shutil
import subprocess
import time

import trio

try:
    from selenium import webdriver
    from selenium.webdriver.webkitgtk.service import Service
except ImportError as missing:
    raise SystemExit(f"the browser tests need python3-selenium: {missing}") from None

MINI_BROWSER = "/usr/lib/x86_64-linux-gnu/webkit2gtk-4.1/MiniBrowser"
WAIT_SECONDS = 60


def tool(name):
    path = shutil.which(name) or (name if os.access(name, os.X_OK) else None)
    if path is None:
        raise SystemExit(f"the browser tests need {name}: install webkit2gtk-driver and xvfb")
    return path


class WebKit:
    """Takes every certificate: which ones are good is looked at with other clients."""

    def __init__(self, folder, screenshots):
        self.screenshots = screenshots
        self.log = open(os.path.join(folder, "webkit.log"), "wb")
        reading, writing = os.pipe()
        self.screen = subprocess.Popen([tool("Xvfb"), "-displayfd", str(writing), "-screen", "0", "1280x900x24", "-nolisten", "tcp"],
                                       pass_fds=[writing], stdout=self.log, stderr=self.log)
        os.close(writing)
        with os.fdopen(reading) as said:
            display = said.readline().strip()
        if not display:
            raise RuntimeError("Xvfb has no display")
        options = webdriver.WebKitGTKOptions()
        options.binary_location = tool(MINI_BROWSER)
        options.add_argument("--automation")
        options.set_capability("acceptInsecureCerts", True)
        home = os.path.join(folder, "webkit-home")
        os.makedirs(home, exist_ok=True)
        environment = {**os.environ, "DISPLAY": f":{display}", "HOME": home, "XDG_RUNTIME_DIR": home, "GSETTINGS_BACKEND": "memory",
                       "WEBKIT_DISABLE_COMPOSITING_MODE": "1", "NO_AT_BRIDGE": "1", "no_proxy": "*"}
        self.service = Service(tool("WebKitWebDriver"), log_path=self.log.name + ".driver", env=environment)
        try:
            self.service.start()
            self.driver = webdriver.Remote(command_executor=self.service.service_url, options=options)
        except BaseException:
            self.end()
            raise
        self.driver.set_script_timeout(WAIT_SECONDS)

    def close(self):
        try:
            self.driver.quit()
        finally:
            self.end()

    def end(self):
        self.service.stop()
        self.screen.terminate()
        self.screen.wait()
        self.log.close()

    # What Firefox is asked as well, in the same words.

    async def open(self, address):
        self.driver.get(address)

    async def run(self, expression):
        return self.driver.execute_script(f"return {expression}")

    async def wait(self, what, expression, seconds=WAIT_SECONDS):
        deadline = time.monotonic() + seconds
        while not (value := await self.run(expression)):
            if time.monotonic() > deadline:
                self.driver.save_screenshot(os.path.join(self.screenshots, "webkit-failure.png"))
                raise AssertionError(f"no sign within {seconds} s of: {what}; at {self.driver.current_url}")
            await trio.sleep(0.05)
        return value
