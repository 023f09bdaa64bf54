#!/usr/bin/env python3
"""The midlets' archives hold what phones load: class version 47, StackMap, and no class that a phone lacks.

Usage: test_classes.py HANDSET_SOURCES ARCHIVE...
"""
import struct
import sys
import unittest
import zipfile
from pathlib import Path

SOURCES = None
ARCHIVES = []

# Tags of a constant pool's entries and their sizes behind the tag; a text has its own size.
SIZES = {3: 4, 4: 4, 5: 8, 6: 8, 7: 2, 8: 2, 9: 4, 10: 4, 11: 4, 12: 4}
UTF8, LONG, DOUBLE, CLASS, NAME_AND_TYPE = 1, 5, 6, 7, 12


class ClassFile:
    def __init__(self, data):
        magic, self.minor, self.major, count = struct.unpack_from(">IHHH", data)
        assert magic == 0xCAFEBABE
        self.texts, self.classes, self.descriptors = {}, [], []
        at, index = 10, 1
        while index < count:
            tag = data[at]
            if tag == UTF8:
                size, = struct.unpack_from(">H", data, at + 1)
                self.texts[index] = data[at + 3:at + 3 + size].decode()
                at += 3 + size
            else:
                if tag == CLASS:
                    self.classes.append(struct.unpack_from(">H", data, at + 1)[0])
                if tag == NAME_AND_TYPE:
                    self.descriptors.append(struct.unpack_from(">H", data, at + 3)[0])
                at += 1 + SIZES[tag]  # a tag that class version 47 lacks is no key
            index += 2 if tag in (LONG, DOUBLE) else 1

    def used_classes(self):
        names = {self.texts[index] for index in self.classes}
        for index in self.descriptors:
            names.update(piece.split("L", 1)[1] for piece in self.texts[index].split(";") if "L" in piece)
        return {name.lstrip("[").removeprefix("L").removesuffix(";") for name in names
                if not name.lstrip("[") in tuple("BCDFIJSZ")}


def phone_classes():
    roots = [SOURCES / "cldc", SOURCES / "phone"]
    return {str(path.relative_to(root).with_suffix("")) for root in roots for path in root.rglob("*.java")
            if path.relative_to(root).parts[0] in ("java", "javax")}


class Classes(unittest.TestCase):
    def test_archives(self):
        phone = phone_classes()
        self.assertIn("java/lang/StringBuffer", phone)
        self.assertNotIn("java/lang/StringBuilder", phone)
        for path in ARCHIVES:
            with zipfile.ZipFile(path) as archive:
                names = archive.namelist()
                own = {name.removesuffix(".class") for name in names if name.endswith(".class")}
                self.assertIn("Quillstart", own, path)
                self.assertIn("icons/logo_big.png", names)
                self.assertIn("icons/logo_small.png", names)
                self.assertEqual("icons/test.jpg" in names, "Viewlander" in path)
                self.assertEqual([name for name in names if name.lower() == "meta-inf/manifest.mf"],
                                 ["META-INF/MANIFEST.MF"])
                stack_maps = 0
                for name in own:
                    file = ClassFile(archive.read(name + ".class"))
                    self.assertEqual(file.major, 47, f"{path}: {name}")
                    self.assertEqual(file.used_classes() - phone - own, set(), f"{path}: {name}")
                    self.assertNotIn("StackMapTable", file.texts.values(), f"{path}: {name}")
                    stack_maps += "StackMap" in file.texts.values()
                # Classes without a branch have none.
                self.assertGreaterEqual(stack_maps, len(own) // 2, path)


if __name__ == "__main__":
    SOURCES, ARCHIVES = Path(sys.argv[1]), sys.argv[2:]
    sys.exit(not unittest.main(argv=sys.argv[:1], exit=False).result.wasSuccessful())
