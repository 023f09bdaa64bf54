"""The words of the pages: every one in every language, and each page in the language of who reads it."""

import os
import re

import case

PAGES = os.path.join(os.path.dirname(__file__), "..", "..", "host", "page")
SETTINGS = {"en": "Settings", "es": "Ajustes", "fr": "Réglages", "ru": "Настройки", "lv": "Iestatījumi", "az": "Ayarlar",
            "ka": "პარამეტრები"}
CAMERAS = {"en": "Cameras", "es": "Cámaras", "fr": "Caméras", "ru": "Камеры", "lv": "Kameras", "az": "Kameralar",
           "ka": "კამერები"}


class WordsTest(case.BrowserCase):
    def test_pages_speak_the_language_of_their_reader(self):
        host = self.make_host()
        host.write_cameras(["yard"], "geheim")
        host.start()
        browser = self.make_browser()
        browser.open(host.address())
        self.check_the_table(browser)
        browser.driver.execute_cdp_cmd("Network.enable", {})
        for language, settings in SETTINGS.items():
            with self.subTest(language=language):
                self.speak(browser, f"{language}-XX,{language};q=0.9,en;q=0.1")
                browser.open(host.address())
                browser.wait_state("yard", "waiting")
                self.assertEqual(self.seen(browser, "#settings-link"), [language, settings])
                self.assertNotIn("?", browser.run("return document.body.innerText"))
                browser.open(host.address("/view/yard"))
                self.assertEqual(self.seen(browser, "html")[0], language)
                browser.open(host.address("/settings"))
                browser.wait("the form", lambda: browser.run("return !document.getElementById('form').hidden"))
                self.assertEqual(self.seen(browser, "#title"), [language, settings])
                # The component's documents have no texts in some of the languages.
                self.assertEqual(self.seen(browser, "#list-cams"), [language, CAMERAS[language]])
                for path in ("/tiny", "/mobile", "/nothing"):
                    browser.open(host.address(path))
                    self.assertEqual(self.seen(browser, "h1")[0], language)
                    self.assertNotIn("?", browser.run("return document.body.innerText"))
            browser.screenshot(f"words-{language}")
        self.assertEqual(host.stop(), 0)

    @staticmethod
    def speak(browser, languages):
        browser.driver.execute_cdp_cmd("Network.setExtraHTTPHeaders", {"headers": {"Accept-Language": languages}})

    @staticmethod
    def seen(browser, selector):
        return browser.run("return [document.documentElement.lang, document.querySelector(arguments[0]).textContent]", selector)

    def check_the_table(self, browser):
        table = browser.driver.execute_async_script("""
            const done = arguments[0];
            import("/assets/shared/words.js").then(({ LANGUAGES, WORDS }) => done([LANGUAGES, WORDS]));
        """)
        self.assertEqual(table[0], list(SETTINGS))
        places = lambda word: word.count("{}")
        for key, words in table[1].items():
            self.assertEqual(len(words), len(SETTINGS), key)
            self.assertTrue(all(words), key)
            self.assertEqual(len(set(map(places, words))), 1, key)
        used = set()
        for folder, _, names in os.walk(PAGES):
            for name in (name for name in names if name.endswith((".html", ".js"))):
                with open(os.path.join(folder, name), encoding="utf-8") as file:
                    content = file.read()
                used |= set(re.findall(r'\bdata-(?:text|alt|placeholder|aria-label)="(\w+)"', content))
                for call in re.findall(r"\btext\(([^;]*)", content) if name.endswith(".js") else ():
                    used |= set(re.findall(r'^"(\w+)"', call)) | set(re.findall(r'^[^"]*\? "(\w+)" : "(\w+)"', call) and
                                                                     sum(re.findall(r'^[^"]*\? "(\w+)" : "(\w+)"', call), ()))
        self.assertGreater(len(used), 100)
        self.assertEqual(used - set(table[1]), set(), "words that no language has")


if __name__ == "__main__":
    case.main()
