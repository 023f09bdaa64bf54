"""Firefox without a window, driven over WebDriver BiDi: there is no other driver for it in Debian."""

import json
import os
import re
import shutil
import subprocess

import trio
import trio_websocket

PREFERENCES = {
    "media.navigator.streams.fake": True,
    "media.navigator.permission.disabled": True,
    "permissions.default.camera": 1,
    "datareporting.policy.dataSubmissionEnabled": False,
    "browser.shell.checkDefaultBrowser": False,
    "app.update.enabled": False,
    "network.captive-portal-service.enabled": False,
    "network.connectivity-service.enabled": False,
    "extensions.getAddons.cache.enabled": False,
}
WAIT_SECONDS = 60


class Firefox:
    """`async with Firefox(folder) as firefox` in a trio program; `folder` is for its profile and its log."""

    def __init__(self, folder):
        self.program = shutil.which("firefox-esr") or shutil.which("firefox")
        if self.program is None:
            raise SystemExit("the browser tests need firefox-esr: scripts/setup test installs it")
        self.profile = os.path.join(folder, "firefox")
        self.log = os.path.join(folder, "firefox.log")
        self.number = 0

    async def __aenter__(self):
        os.makedirs(self.profile)
        with open(os.path.join(self.profile, "user.js"), "w", encoding="utf-8") as file:
            for name, value in PREFERENCES.items():
                file.write(f"user_pref({json.dumps(name)}, {json.dumps(value)});\n")
        with open(self.log, "wb") as log:
            self.process = subprocess.Popen(
                [self.program, "--headless", "--no-remote", "--remote-debugging-port=0", "--profile", self.profile, "about:blank"],
                stdin=subprocess.DEVNULL, stdout=log, stderr=log, env={**os.environ, "HOME": self.profile})
        try:
            with trio.fail_after(WAIT_SECONDS):
                while not (found := re.search(r"BiDi listening on ws://([\d.]+):(\d+)", self.said())):
                    if self.process.poll() is not None:
                        raise RuntimeError(f"Firefox ended:\n{self.said()}")
                    await trio.sleep(0.1)
            self.opened = trio_websocket.open_websocket(found[1], int(found[2]), "/session", use_ssl=False)
            self.socket = await self.opened.__aenter__()
            await self.ask("session.new", {"capabilities": {"alwaysMatch": {"acceptInsecureCerts": True}}})
            self.context = (await self.ask("browsingContext.getTree", {}))["contexts"][0]["context"]
        except BaseException:
            self.end()
            raise
        return self

    async def __aexit__(self, *why):
        try:
            await self.opened.__aexit__(*why)
        finally:
            self.end()

    def end(self):
        self.process.terminate()
        try:
            self.process.wait(timeout=20)
        except subprocess.TimeoutExpired:
            self.process.kill()
            self.process.wait()

    def said(self):
        with open(self.log, encoding="utf-8", errors="replace") as file:
            return file.read()

    async def ask(self, method, parameters):
        self.number += 1
        with trio.fail_after(WAIT_SECONDS):
            await self.socket.send_message(json.dumps({"id": self.number, "method": method, "params": parameters}))
            while True:
                answer = json.loads(await self.socket.get_message())
                if answer.get("id") == self.number:
                    break
        if answer["type"] != "success":
            raise RuntimeError(f"{method}: {answer.get('message')}")
        return answer["result"]

    async def open(self, address):
        await self.ask("browsingContext.navigate", {"context": self.context, "url": address, "wait": "complete"})

    async def run(self, expression):
        """The value of a script's expression, as JSON has it."""
        result = await self.ask("script.evaluate", {
            "expression": f"JSON.stringify({expression})", "target": {"context": self.context}, "awaitPromise": True,
            "userActivation": True,
        })
        if result["type"] != "success":
            raise RuntimeError(result["exceptionDetails"]["text"])
        return json.loads(result["result"].get("value", "null"))

    async def wait(self, what, condition, seconds=WAIT_SECONDS):
        """Until `condition()`, a script's expression or a function, gives something true; returns that."""
        try:
            with trio.fail_after(seconds):
                while not (value := condition() if callable(condition) else await self.run(condition)):
                    await trio.sleep(0.1)
        except trio.TooSlowError:
            raise AssertionError(f"no sign within {seconds} s of: {what}") from None
        return value
