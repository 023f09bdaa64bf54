#!/usr/bin/env python3
"""The module's resources as other programs read them, and what their makers refuse.

RESCOMP and RESOURCE_IMAGE name the program and what the build made with it, SOURCES the repository, MIDLETS the folder with
the midlets' archives. python3-pefile is the
independent reader of images, xsltproc that of style sheets."""

import filecmp
import io
import os
import shutil
import subprocess
import sys
import tempfile
import unittest
import zipfile

import pefile

RESCOMP, IMAGE, SOURCES = (os.environ[name] for name in ("RESCOMP", "RESOURCE_IMAGE", "SOURCES"))
MIDLETS = os.environ["MIDLETS"]
PACK_TEXTS = [sys.executable, os.path.join(SOURCES, "tools", "rescomp", "pack_texts.py")]
LANGUAGES = [1033, 1034, 1036, 1049, 1062, 1068, 1079]
STRINGS, VERSION, MANIFEST = 6, 16, 24

# Bytes of each language file, and how many of its 50 texts nobody has translated.
LANGUAGE_FILES = {
    "gui.eng.ini": (2846, 0, "utf-16"), "gui.fra.ini": (3182, 0, "utf-16"), "gui.spa.ini": (2984, 6, "utf-16"),
    "gui.aze.ini": (1952, 39, "utf-16"), "gui.ge.ini": (1786, 49, "utf-16"), "gui.rus.ini": (1440, 0, "cp1251"),
}


def run(*arguments):
    return subprocess.run(arguments, capture_output=True, text=True, timeout=60, check=False)


def read_image(path):
    """{(type, name): {language: (code page, bytes)}} as pefile finds them, in the order of the directory."""
    image = pefile.PE(path)
    found = {}
    for kind in image.DIRECTORY_ENTRY_RESOURCE.entries:
        for name in kind.directory.entries:
            variants = found.setdefault((str(kind.name) if kind.name else kind.id, name.id), {})
            for language in name.directory.entries:
                data = language.data.struct
                variants[language.id] = (data.CodePage, image.get_data(data.OffsetToData, data.Size))
    return image, found


class ResourceImage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.image, cls.resources = read_image(IMAGE)

    def test_other_programs_find_every_resource(self):
        everywhere = [key for key, variants in self.resources.items() if list(variants) == LANGUAGES]
        self.assertEqual(everywhere, [("ZIP", 211), (STRINGS, 7), (STRINGS, 8), (VERSION, 1)])
        self.assertEqual(list(self.resources[(MANIFEST, 2)]), [1033])
        for key in (("JAR", 201), ("JAR", 206), ("REGISTRY", 101), ("REGISTRY", 102), ("XML", 203), ("XML", 207)):
            self.assertEqual(list(self.resources[key]), [0])
        # There is no code, so nothing to enter.
        self.assertFalse([warning for warning in self.image.get_warnings() if "AddressOfEntryPoint" not in warning])
        info = {entry.Key: entry for entry in self.image.FileInfo[0]}
        self.assertEqual(info[b"StringFileInfo"].StringTable[0].entries[b"FileDescription"], b"Morrowstream")

    def test_other_programs_read_the_strings(self):
        types = self.image.DIRECTORY_ENTRY_RESOURCE.entries
        blocks = next(entry for entry in types if entry.id == STRINGS).directory.entries
        texts = {}
        for block in blocks:
            texts.update(block.directory.strings)  # pefile's own reading, of the last language
        self.assertEqual(texts[100], "Mobile")
        self.assertEqual({texts[number] for number in [*range(101, 111), *range(123, 128)]}, {"?"})
        self.assertIn("Камеры".encode("utf-16-le"), self.resources[(STRINGS, 7)][1049][1])

    def test_language_archive(self):
        variants = self.resources[("ZIP", 211)]
        self.assertEqual(len({data for _, data in variants.values()}), 1)
        archive = zipfile.ZipFile(io.BytesIO(variants[1033][1]))
        self.assertIsNone(archive.testzip())
        self.assertEqual(sorted(archive.namelist()), sorted(LANGUAGE_FILES))
        keys = set()
        for name, (size, untranslated, encoding) in LANGUAGE_FILES.items():
            with self.subTest(name):
                self.assertEqual(archive.getinfo(name).compress_type, zipfile.ZIP_DEFLATED)
                data = archive.read(name)
                self.assertEqual(len(data), size)
                self.assertEqual(data.startswith(b"\xff\xfe"), encoding == "utf-16")
                lines = data.decode(encoding).split("\r\n")
                rows = [line.split("=") for line in lines if "=" in line]
                self.assertEqual(sum(text == "?" for _, text in rows), untranslated)
                sections = [line for line in lines if line.startswith("[")]
                keys.add((*sections, *(key for key, _ in rows)))
        self.assertEqual(len(keys), 1, "the same keys in the same order")
        self.assertEqual(len(keys.pop()), 2 + 33 + 17)

    def test_style_sheet_makes_the_page(self):
        local = '<local devices="Sensor control" VideoOnMobile="View" TranslationToServer="Send &amp; go" ' \
                'MidletName="Midlet name" download="Download"/>'
        for entries, forms in (("<view>x</view><upload>y</upload>", ["Viewlander", "Sendora"]),
                               ("<upload>y</upload>", ["Sendora"]), ("", [])):
            with tempfile.TemporaryDirectory() as folder:
                sheet, page = os.path.join(folder, "mobile.xsl"), os.path.join(folder, "page.xml")
                with open(sheet, "wb") as file:
                    file.write(self.resources[("XML", 207)][0][1])
                with open(page, "w", encoding="utf-8") as file:
                    file.write(f"<?xml version='1.0' encoding='UTF-8'?><mobile>{entries}{local}</mobile>")
                done = run("xsltproc", sheet, page)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            html = done.stdout
            self.assertIn('<!DOCTYPE html PUBLIC "-//WAPFORUM//DTD XHTML Mobile 1.0//EN" '
                          '"http://www.wapforum.org/DTD/xhtml-mobile10.dtd">', html)
            self.assertIn('<a href="/xslt/enum/all?xslt=SensorsPage.xslt">Sensor control</a>', html)
            for name, text in (("Viewlander", "View<br>"), ("Sendora", "Send &amp; go<br>")):
                for part in (f'<form action="/mobile/{name}.jar" method="GET" style="border:1px solid black">{text}',
                             f'<input type="text" name="JarName" value="{name}">'):
                    self.assertEqual(part in html, name in forms, part)
            self.assertEqual(html.count('<input type="submit" value="Download">'), len(forms))

    def test_texts_of_the_module_have_whole_lines(self):
        for key in (("XML", 203), ("XML", 207), ("REGISTRY", 101), ("REGISTRY", 102)):
            data = self.resources[key][0][1]
            self.assertEqual(data.count(b"\r\n"), data.count(b"\n"), key)
            self.assertGreater(data.count(b"\n"), 5)


class Refusals(unittest.TestCase):
    """Each case changes the sources and expects a line about it."""

    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.resources = os.path.join(self.folder.name, "resources")

    def change(self, path, old, new):
        shutil.rmtree(self.resources, ignore_errors=True)
        shutil.copytree(os.path.join(SOURCES, "resources"), self.resources, ignore=shutil.ignore_patterns("midlets"))
        path = os.path.join(self.resources, path)
        with open(path, encoding="utf-8", errors="surrogateescape") as file:
            text = file.read()
        self.assertIn(old, text)
        with open(path, "w", encoding="utf-8", errors="surrogateescape") as file:
            file.write(text.replace(old, new, 1))
        return path

    def build(self, image="image"):
        return run(RESCOMP, os.path.join(self.resources, "resources.list"), "--search", self.resources, "--search",
                   os.path.dirname(IMAGE), "--search", MIDLETS, "--version", "1.2.3", "-o", os.path.join(self.folder.name, image))

    def test_rescomp_names_the_fault(self):
        french, listed = "texts/french.strings", "resources.list"
        for path, old, new, line in (
                (french, "105 Utilisateur\n", "", ": text 105 is missing"),
                (french, "105 Utilisateur\n", "105\n", ", line 10: text 105 is missing"),
                (french, "105 Utilisateur\n", f"105 {'é' * 256}\n", ", line 10: text 105 is longer than 255 characters"),
                (french, "105 Utilisateur\n", "105 a\n105 b\n", ", line 11: text 105 stands there twice"),
                (french, "105 Utilisateur\n", "99 a\n", ", line 10: no text 99 is asked for"),
                (french, "Utilisateur", "\udcff", ", line 10: this is no UTF-8"),
                (french, "105 Ut", "Ut", ', line 10: expected "language N", or a number and a text'),
                (french, "language 1036", "", ': the line "language N" is missing'),
                (french, "language 1036", "language 1033", ": the language 1033 has another file"),
                (listed, "strings texts ", "strings text ", ": text is in none of the folders"),
                (listed, "XML       203", "XML       207", "the resource XML 207 stands in the list twice for the language 0"),
                (listed, "XML       203", "XML       70000", ": the name of a resource is a number"),
                (listed, "neutral  camera.xml", "neutral  camera.yml", ": camera.yml is in none of the folders"),
                (listed, "neutral  camera.xml", "somewhere camera.xml", ': languages are "neutral", "all" or a number'),
                (listed, "100-110", "110-100", ': "110-100" is no number and no range of numbers'),
                ("camera.xml", "\n", "\r\n", ': has carriage returns, which are added by "crlf"')):
            with self.subTest(line):
                changed = self.change(path, old, new)
                done = self.build()
                self.assertEqual((done.returncode, done.stderr.count("\n")), (1, 1), done.stderr)
                self.assertTrue(done.stderr.endswith(line + "\n"), done.stderr)
                if path == french:
                    self.assertTrue(done.stderr.startswith(f"rescomp: {changed}"), done.stderr)
                self.assertFalse(os.path.exists(os.path.join(self.folder.name, "image")))
        self.assertEqual(run(RESCOMP, "list").returncode, 2)
        self.assertEqual(run(RESCOMP, "--what").stderr, 'rescomp: unknown argument "--what"; see rescomp --help\n')

    def test_a_language_is_a_file(self):
        self.change("texts/english.strings", "Cameras", "Cameras")
        shutil.copy(os.path.join(self.resources, "texts", "english.strings"), os.path.join(self.resources, "texts", "a.strings"))
        german = os.path.join(self.resources, "texts", "a.strings")
        with open(german, encoding="utf-8") as file:
            text = file.read()
        with open(german, "w", encoding="utf-8") as file:
            file.write(text.replace("language 1033", "language 1031").replace("101 Cameras", f"101 {'ß' * 255}"))
        self.assertEqual(self.build().stderr, "")
        self.assertEqual(self.build("again").stderr, "")
        self.assertTrue(filecmp.cmp(*(os.path.join(self.folder.name, name) for name in ("image", "again")), shallow=False))
        _, resources = read_image(os.path.join(self.folder.name, "image"))
        for key in (("ZIP", 211), (STRINGS, 7), (STRINGS, 8), (VERSION, 1)):
            self.assertEqual(list(resources[key]), [1031, *LANGUAGES])
        self.assertIn(("ß" * 255).encode("utf-16-le"), resources[(STRINGS, 7)][1031][1])

    def test_pack_texts_names_the_fault(self):
        french = "midlet_texts/gui.fra.ini"
        for path, old, new, line in (
                (french, "alert_ok=OK\n", "", "Viewlander, alert_ok: the text is missing here (Viewlander alert_nocams stands in its place)"),
                (french, "alert_ok=OK\n", "alert_ok= \n", "line 14: Viewlander, alert_ok: the text is missing"),
                (french, "alert_ok=OK\n", f"alert_ok={'é' * 101}\n", "line 14: Viewlander, alert_ok: the text is longer than 100 characters"),
                (french, "alert_ok=OK\n", "alert_ok=[OK]\n", "line 14: Viewlander, alert_ok: a text cannot hold any of [ ] ; or a tab"),
                (french, "(ips) \n", "(ips)\n", "Viewlander, set_desirespeed: the text must end with a blank, as a number follows it"),
                (french, "[Sendora]", "Sendora", "line 39: expected [section] or key=text"),
                (french, "OK", "\udcff", "this is no UTF-8"),
                ("midlet_texts/gui.rus.ini", "=OK", "=é", "é is no character of cp1251")):
            with self.subTest(line):
                changed = self.change(path, old, new)
                done = run(*PACK_TEXTS, os.path.dirname(changed), os.path.join(self.folder.name, "texts.zip"))
                self.assertEqual((done.returncode, done.stderr.count("\n")), (1, 1), done.stderr)
                self.assertTrue(done.stderr.startswith(f"pack_texts: {changed}"), done.stderr)
                self.assertTrue(done.stderr.endswith(f" {line}\n"), done.stderr)


if __name__ == "__main__":
    unittest.main()
