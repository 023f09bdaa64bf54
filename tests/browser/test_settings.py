"""The settings in the browser: cameras come, change and go while another one uploads, and are there after a restart."""

import base64
import http.server
import json
import threading
import time
import urllib.error
import urllib.request

from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.by import By
from selenium.webdriver.common.keys import Keys

import case
from feeder import Feeder
from pictures import coded_jpeg

NEW = "Двор №1"
# Rules for the value "b" of a node whose neighbour holds "7", and whether they hold.
RULES = {
    "!=''": True, "=='b'": True, "=='a' || SelectOne('../n').xml!=''": True, ">'a'": True, "!='b' && =='b'": None,
    "SelectOne('text()').xml=='b'": True, "SelectOne('text()').xml=='a'": False, "SelectOne('nothing').xml==''": True,
    "!(SelectOne('../n').text > 10)": True, "SelectOne('../n').text >= 10": False,
    "(SelectOne('text()').xml=='') || (SelectOne('../n/text()').xml!='')": True,
    "SelectOne('text()').xml=='a' && SelectOne('../n').text==7": False,
    # What is no rule holds nobody up, and runs nothing.
    "": None, "document.title='x'": None, "SelectOne('..').constructor": None, "SelectOne('text()'": None, "'a' 'b'": None,
}
# A document of another server: values in a group, a choice, a type that the page does not know, a list of its own.
OTHER = """<config><local hidden="true" a="Level" b="Guards" c="New guard"/>
    <net><port type="BSTR" check_value="!=''"/><mode type="int">3</mode></net>
    <guards displayname="//local/@b" KeyXPath="id/text()"><guard displayname="id/text()"><id type="BSTR" kept="loginCharacters">Ann</id></guard></guards>
    <addguard add="../guards" displayname="//local/@c"><guard displayname="id/text()" removable="true"><id type="BSTR">?</id>
        <level type="BSTR" lookup="of" displayname="//local/@a"><of>low</of><of>high</of></level></guard></addguard></config>"""


class SettingsPage:
    """What a person sees of /settings and does there."""

    def __init__(self, browser, host):
        self.browser, self.host = browser, host

    def open(self):
        self.browser.open(self.host.address("/settings"))
        self.browser.wait("the form", lambda: self.browser.run("return !document.getElementById('form').hidden"))

    def entry(self, name, place="#lists"):
        """The entry of that caption; #own has those of the host's own document."""
        for entry in self.browser.driver.find_elements(By.CSS_SELECTOR, f"{place} .entry"):
            if entry.find_element(By.CSS_SELECTOR, ".entry-name").text == name:
                return entry
        raise AssertionError(f"no entry of {name!r}")

    def names(self):
        return self.browser.run("return [...document.querySelectorAll('#lists .entry-name')].map((name) => name.textContent)")

    def control(self, name, field):
        entry = self.entry(name) if name else self.browser.driver.find_element(By.CSS_SELECTOR, "#values")
        return entry.find_element(By.CSS_SELECTOR, f'[data-name="{field}"] :is(input, select)')

    def type(self, name, field, text):
        control = self.control(name, field)
        self.click(control)
        control.send_keys(Keys.CONTROL, "a")
        control.send_keys(text)

    def add(self, name, password):
        self.click(self.browser.driver.find_element(By.CSS_SELECTOR, "button.add"))
        # Straight into the field that has the focus, and on to the last one with the keyboard.
        self.browser.driver.switch_to.active_element.send_keys(name, Keys.TAB, Keys.TAB, password)

    def press(self, name, button):
        self.click(self.entry(name).find_element(By.CSS_SELECTOR, button))

    def click(self, element):
        # Clear of the bars at the edges, which the driver does not think of.
        self.browser.run("arguments[0].scrollIntoView({ block: 'center' })", element)
        element.click()

    def state(self):
        return self.browser.run("return document.getElementById('state').textContent")

    def banner(self):
        return self.browser.run("const b = document.getElementById('banner'); return b.hidden ? '' : b.textContent")

    def problems(self):
        return self.browser.run("""
            return [...document.querySelectorAll(".problem")].filter((problem) => problem.checkVisibility())
                .map((problem) => problem.textContent);
        """)

    def save(self, words="Saved"):
        self.browser.driver.find_element(By.ID, "save").click()
        self.browser.wait(f"the page says {words!r}", lambda: words in self.state())


class SettingsTest(case.BrowserCase):
    def setUp(self):
        super().setUp()
        self.host = self.make_host()
        # The phones have no user of their own: the cameras are their sign-ins.
        self.host.write_cameras(["left", "right"], "geheim")
        self.host.start()
        self.browser = self.make_browser()
        self.page = SettingsPage(self.browser, self.host)

    def phone(self, name, password, first):
        return Feeder(self.host.port, name, password, [coded_jpeg(first + n) for n in range(8)], rate=10)

    def camera(self, name):
        return next((camera for camera in self.host.health()["cameras"] if camera["name"] == name), None)

    def ask(self, method, path, body=None, **headers):
        """The answer of the host to a program that signs in as the administrator."""
        request = urllib.request.Request(f"http://127.0.0.1:{self.host.port}{path}", data=body, method=method)
        sign_in = base64.b64encode(f"admin:{self.host.admin_password()}".encode()).decode()
        request.add_header("Authorization", f"Basic {sign_in}")
        for header, value in headers.items():
            request.add_header(header.replace("_", "-"), value)
        with urllib.request.urlopen(request, timeout=5) as answer:
            return answer.read().decode(), answer.headers.get("ETag")

    def test_a_visit_of_the_administrator(self):
        browser = self.browser
        driver = browser.driver
        browser.open(self.host.address())
        browser.wait_state("left", "waiting")
        browser.run("window.sameDocument = true")
        self.live = driver.current_window_handle
        driver.switch_to.new_window("tab")
        self.settings = driver.current_window_handle
        browser.size(1280, 800)
        self.page.open()
        browser.screenshot("settings")
        self.read_another_document()
        with self.phone("left", "geheim", 100) as left:
            self.wait_on_wall("left", "live")
            self.see_what_is_wrong()
            self.add_a_camera()
            self.rename_it()
            self.change_its_password()
            self.let_somebody_else_be_faster()
            self.remove_a_camera()
            self.set_preferences()
        # The phone has stopped, and what it sent has arrived.
        browser.wait("every picture of left", lambda: self.camera("left")["frames"] == left.frames, seconds=5)
        self.assertEqual(self.camera("left")["failed"], 0)
        self.assertIsNone(left.failure, "the upload was interrupted")
        self.refuse_another_site()
        self.see_it_on_a_phone()
        self.choose_a_language_and_restart()
        self.end(self.host, browser)

    def on_wall(self):
        self.browser.driver.switch_to.window(self.live)

    def wait_on_wall(self, name, state):
        self.on_wall()
        tile = self.browser.wait_state(name, state)
        self.assertTrue(self.browser.run("return window.sameDocument === true"), "the page was reloaded")
        self.browser.driver.switch_to.window(self.settings)
        return tile

    def wait_gone_from_wall(self, name):
        self.on_wall()
        self.browser.wait(f"{name} is gone", lambda: name not in self.browser.tiles())
        self.browser.driver.switch_to.window(self.settings)

    def read_another_document(self):
        """What a document says of itself is all that the page knows."""
        seen = self.browser.driver.execute_async_script("""
            const [rules, other, done] = arguments;
            (async () => {
                const { holds } = await import("/assets/settings/rules.js");
                const { SettingsForm } = await import("/assets/settings/form.js");
                console.warn = () => {};
                const tree = new DOMParser().parseFromString("<t><n>7</n><v>b</v></t>", "text/xml");
                const told = rules.map((rule) => holds(rule, tree.querySelector("v")));
                const form = new SettingsForm(other, { edited() {}, readSecret() {} });
                const [list] = form.lists;
                const wrong = form.check().map((field) => field.element.nodeName);
                list.add(list.templates[0]);
                const [, added] = list.entries;
                const words = [...list.root.querySelectorAll("h2, label, button.add")].map((node) => node.textContent);
                const fields = [...form.values].map(([path, field]) => [path, field.control.readOnly]);
                const level = added.fields.get("level");
                const ann = list.entries[0].fields.get("id");
                const kept = [ann.kept.textContent, ann.kept.hidden];
                for (const value of ["Eve", "Ann"]) {
                    ann.value = value;
                    kept.push(ann.kept.hidden);
                }
                done({ told, kept, other: level.kept.hidden, wrong, words, fields, level: level.value, choices: level.control.options.length,
                       ann: list.entries[0].remove.hidden });
            })();
        """, list(RULES), OTHER)
        expected = [True if holds is None else holds for holds in RULES.values()]
        self.assertEqual(dict(zip(RULES, seen["told"])), dict(zip(RULES, expected)))
        self.assertEqual(seen["fields"], [["net/port", False], ["net/mode", True]])
        self.assertEqual(seen["wrong"], ["port"])
        # A value that was there before a rule says so as long as it is that value.
        self.assertIn("Kept as it is. A phone signs in with this name", seen["kept"][0])
        self.assertEqual((seen["kept"][1:], seen["other"]), ([False, True, False], True))
        self.assertEqual(seen["words"], ["Guards", "New guard", "id", "id", "Level"])
        self.assertEqual((seen["level"], seen["choices"], seen["ann"]), ("low", 2, True))

    def see_what_is_wrong(self):
        page = self.page
        page.add("left", "x")
        page.save("To be corrected: 2")
        self.assertEqual(page.problems(), ["Another entry has this already."] * 2)
        self.assertEqual(self.browser.driver.switch_to.active_element.get_attribute("aria-invalid"), "true")
        self.browser.screenshot("settings-wrong")
        new = self.browser.driver.switch_to.active_element
        new.send_keys(Keys.CONTROL, "a")
        new.send_keys(Keys.DELETE)
        self.assertEqual(page.problems(), ["This must not be empty."])
        new.send_keys("a/b")
        self.assertEqual(page.problems(), [])
        page.save("To be corrected: 1")  # the host's own rule
        self.assertIn("A phone signs in with this name", page.problems()[0])
        self.assertTrue(self.browser.run("""
            const leaving = new Event("beforeunload", { cancelable: true });
            dispatchEvent(leaving);
            return leaving.defaultPrevented;
        """), "the page would be left without a word")
        page.press("a/b", "button.quiet")
        self.assertEqual(page.names(), ["left", "right"])
        self.assertEqual(page.state(), "No changes")

    def add_a_camera(self):
        self.page.add(NEW, "пароль + <x>")
        self.page.save()
        self.wait_on_wall(NEW, "waiting")
        with self.phone(NEW, "пароль + <x>", 200):
            self.wait_on_wall(NEW, "live")
            self.on_wall()
            self.assertIn(self.browser.codes()[NEW], range(200, 208))
            self.browser.driver.switch_to.window(self.settings)

    def rename_it(self):
        page = self.page
        self.assertEqual(page.control(NEW, "Password").get_attribute("value"), "", "the page knows the password")
        page.press(NEW, ".reveal")
        self.browser.wait("the password is shown", lambda: page.control(NEW, "Password").get_attribute("value"))
        self.assertEqual(page.control(NEW, "Password").get_attribute("value"), "пароль + <x>")
        self.assertEqual(page.state(), "Saved", "to look at it is no change")
        with self.phone(NEW, "пароль + <x>", 200) as phone:
            self.wait_on_wall(NEW, "live")
            page.type(NEW, "Name", "Hof")
            page.save()
            self.wait_on_wall("Hof", "waiting")
            self.wait_gone_from_wall(NEW)
            self.browser.wait("the phone of the old name is out", lambda: phone.failure is not None)
        self.assertEqual(self.browser.run("return document.activeElement.id"), "save")
        # The password went along.
        with self.phone("Hof", "пароль + <x>", 200):
            self.wait_on_wall("Hof", "live")

    def change_its_password(self):
        self.page.type("Hof", "Password", "новый")
        self.page.save()
        with self.phone("Hof", "пароль + <x>", 200) as phone:
            self.browser.wait("the old password is refused", lambda: phone.failure is not None)
        with self.phone("Hof", "новый", 200):
            self.wait_on_wall("Hof", "live")

    def let_somebody_else_be_faster(self):
        page = self.page
        page.type("right", "Name", "rechts")
        token = json.loads(self.ask("GET", "/settings/state")[0])["token"]
        document, version = self.ask("GET", "/settings/document")
        self.assertNotIn("новый", document)
        theirs = document.replace(f">127.0.0.1:{self.host.port}</host>", ">192.0.2.7:80</host>").encode()
        self.ask("PUT", "/settings/document", theirs, If_Match=version, X_Settings_Token=token)
        page.save("Not saved yet")
        self.browser.wait("the page tells of the conflict", page.banner)
        self.assertIn("changed elsewhere", page.banner())
        self.assertEqual(page.control("", "host").get_attribute("value"), "192.0.2.7:80")
        self.assertEqual(page.control("rechts", "Name").get_attribute("value"), "rechts")
        self.browser.screenshot("settings-conflict")
        page.save()
        self.assertEqual(page.banner(), "")
        self.assertEqual(page.names(), ["Hof", "left", "rechts"])

    def remove_a_camera(self):
        page = self.page
        page.press("rechts", "button.quiet")
        self.assertEqual(page.state(), "Not saved yet")
        page.press("rechts", "button.quiet")
        self.assertEqual(page.state(), "No changes")
        page.press("rechts", "button.quiet")
        page.save()
        self.wait_gone_from_wall("rechts")

    def set_preferences(self):
        """The host's own document, in the same form: a number, a choice, a yes or no, a set and a mask."""
        page, browser = self.page, self.browser
        find = browser.driver.find_element
        days = find(By.CSS_SELECTOR, '#own [data-name="days"] input')
        for text, words in (("4000", "To be corrected: 1"), ("30", None)):
            page.click(days)
            days.send_keys(Keys.CONTROL, "a")
            days.send_keys(text)
            if words is not None:
                page.save(words)
                self.assertEqual(page.problems(), ["This is from 0 to 3650."])
        left = page.entry("left", "#own")
        field = lambda name, control: left.find_element(By.CSS_SELECTOR, f'[data-name="{name}"] {control}')
        page.click(field("record", 'option[value="motion"]'))
        page.click(field("motion", "input"))
        page.click(find(By.CSS_SELECTOR, '#own [data-name="kinds"] input[value="settings-changed"]'))
        page.click(field("mask", "button"))
        canvas = field("mask", "canvas")
        browser.wait("the camera's picture", lambda: browser.run("return arguments[0].naturalWidth > 0", field("mask", "img")))
        browser.run("arguments[0].scrollIntoView({ block: 'center' })", canvas)
        cell, half = canvas.size["width"] / 40, (canvas.size["width"] / 2, canvas.size["height"] / 2)
        at = lambda column, row: (round((column + 0.5) * cell - half[0]), round((row + 0.5) * cell - half[1]))
        ActionChains(browser.driver).move_to_element_with_offset(canvas, *at(0, 0)).click_and_hold() \
            .move_to_element_with_offset(canvas, *at(5, 0)).release().perform()
        canvas.send_keys(Keys.ARROW_DOWN, " ")
        browser.screenshot("settings-mask")
        page.save()
        told = json.loads(self.ask("GET", "/api/v1/preferences")[0])
        own = told["cameras"]["left"]
        self.assertEqual((told["recording"]["days"], own["record"], own["motion"]), (30, "motion", True))
        self.assertEqual((own["mask"][:12], set(own["mask"][12:])), ("fc0000000004", {"0"}))
        self.assertIn("settings-changed", told["notices"]["kinds"])
        self.assertEqual(list(told["cameras"]), ["Hof", "left"], "they follow the cameras")

    def refuse_another_site(self):
        """A page elsewhere has the browser ask, which sends the sign-in along: nothing changes, nothing is told."""
        before = self.ask("GET", "/settings/document")
        target = f"http://127.0.0.1:{self.host.port}/settings"
        evil = f"""<form method="post" enctype="text/plain" action="{target}/document"><input name="<config>" value="x"></form>
            <script>
                const ways = [["PUT", "cors"], ["POST", "no-cors"], ["GET", "cors"]].map(([method, mode]) => fetch(
                    "{target}/document", {{ method, mode, credentials: "include", body: method === "GET" ? undefined : "<config/>" }})
                    .then((answer) => answer.text()).catch(() => ""));
                Promise.all(ways).then((told) => document.title = "told:" + told.join(""));
            </script>"""

        class Evil(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(200)
                self.send_header("Content-Type", "text/html")
                self.end_headers()
                self.wfile.write(evil.encode())

            def log_message(self, *_):
                pass

        server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Evil)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        self.browser.open(f"http://localhost:{server.server_port}/")
        self.browser.wait("the forged requests were answered",
                          lambda: self.browser.driver.title.startswith("told:"))
        self.assertEqual(self.browser.driver.title, "told:")
        self.browser.run("document.forms[0].submit()")
        self.browser.wait("the forged form was answered", lambda: self.browser.driver.current_url.startswith(target))
        self.assertEqual(self.ask("GET", "/settings/document"), before)
        self.browser.complaints()  # of the other page

    def see_it_on_a_phone(self):
        browser = self.browser
        self.page.open()
        browser.size(390, 844, phone=True)
        browser.screenshot("settings-phone")
        self.assertLessEqual(browser.run("return document.documentElement.scrollWidth"), 390, "the page is too wide")
        browser.scheme("dark")
        browser.screenshot("settings-phone-dark")
        browser.scheme("light")
        browser.size(1280, 800)

    def choose_a_language_and_restart(self):
        page = self.page
        language = self.browser.driver.find_element(By.ID, "language")
        language.find_element(By.CSS_SELECTOR, 'option[value="ru"]').click()
        page.save("at the next start")
        self.assertEqual(self.browser.run("return document.documentElement.lang"), "en")
        self.assertEqual(self.host.stop(), 0)
        self.host.start()
        # Where a browser asks for no language that there are texts in, it is the server's.
        self.browser.driver.execute_cdp_cmd("Network.enable", {})
        self.browser.driver.execute_cdp_cmd("Network.setExtraHTTPHeaders", {"headers": {"Accept-Language": "de"}})
        page.open()
        self.assertEqual(page.names(), ["Hof", "left"])
        self.assertEqual(self.browser.run("return document.documentElement.lang"), "ru")
        titles = self.browser.run("return [...document.querySelectorAll('h2')].map((title) => title.textContent)")
        self.assertEqual(titles, ["Общие", "Камеры", "Запись", "Просмотр", "Уведомления", "Запись и движение", "Телефоны, ставшие камерами",
                                  "Токены для программ"])
        self.assertEqual(self.browser.run("return document.querySelector('.add').textContent"), "Добавить камеру")
        self.assertEqual(page.control("", "host").get_attribute("value"), "192.0.2.7:80")
        page.press("Hof", ".reveal")
        self.browser.wait("the password is shown", lambda: page.control("Hof", "Password").get_attribute("value"))
        self.assertEqual(page.control("Hof", "Password").get_attribute("value"), "новый")
        self.browser.screenshot("settings-russian")
        with self.phone("Hof", "новый", 200):
            self.browser.open(self.host.address())
            self.browser.wait_state("Hof", "live")


if __name__ == "__main__":
    case.main()
