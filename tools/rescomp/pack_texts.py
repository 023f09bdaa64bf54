#!/usr/bin/env python3
"""Packs the midlets' language files into one archive, in the encodings that the server reads.

    pack_texts.py FOLDER ARCHIVE

FOLDER holds gui.NAME.ini files in UTF-8; gui.eng.ini says what sections, keys and order all of them have. In the archive
a file has lines with carriage returns and is UTF-16 with a byte order mark; that of Russian is Windows code page 1251.
The same sources give the same archive. A fault of a file is told in one line, with exit status 1.
"""

import os
import re
import sys
import zipfile

REFERENCE = "gui.eng.ini"
CODE_PAGES = {"gui.rus.ini": "cp1251"}
# A display of a phone has no room for more.
LONGEST_TEXT = 100
# What ends a text for the server.
FORBIDDEN = "[];\t\r"
NAME = re.compile(r"gui\.[a-z]+\.ini")


class Fault(Exception):
    pass


def read(folder, name):
    """The text of a file, and its (section, key, text) rows."""
    path = os.path.join(folder, name)
    try:
        with open(path, encoding="utf-8", newline="") as file:
            content = file.read()
    except UnicodeDecodeError:
        raise Fault(f"{path}: this is no UTF-8")
    rows, section = [], None
    for number, line in enumerate(content.split("\n"), 1):
        place = f"{path}, line {number}"
        if not line.strip() or line.startswith(";"):
            continue
        if re.fullmatch(r"\[\w+\]", line):
            section = line[1:-1]
            continue
        key, equals, text = line.partition("=")
        if not equals or section is None:
            raise Fault(f"{place}: expected [section] or key=text")
        if not text.strip():
            raise Fault(f"{place}: {section}, {key}: the text is missing")
        if len(text) > LONGEST_TEXT:
            raise Fault(f"{place}: {section}, {key}: the text is longer than {LONGEST_TEXT} characters")
        if any(c in FORBIDDEN for c in text):
            raise Fault(f"{place}: {section}, {key}: a text cannot hold any of [ ] ; or a tab")
        rows.append((section, key, text))
    return path, content, rows


def check(path, rows, reference):
    """The keys are those of the reference, in its order, and a blank that something follows is kept."""
    for row, other in zip(rows + [("end of file", "", "")] * len(reference), reference):
        if row[:2] != other[:2]:
            raise Fault(f"{path}: {other[0]}, {other[1]}: the text is missing here ({row[0]} {row[1]} stands in its place)")
        if other[2].endswith(" ") and not row[2].endswith(" ") and row[2] != "?":
            raise Fault(f"{path}: {other[0]}, {other[1]}: the text must end with a blank, as a number follows it")
    if len(rows) > len(reference):
        raise Fault(f"{path}: {rows[len(reference)][1]}: no such text is asked for")


def encode(path, name, content):
    text = content.replace("\n", "\r\n")
    if name not in CODE_PAGES:
        return b"\xff\xfe" + text.encode("utf-16-le")
    try:
        return text.encode(CODE_PAGES[name])
    except UnicodeEncodeError as error:
        raise Fault(f"{path}: {error.object[error.start]} is no character of {CODE_PAGES[name]}")


def pack(folder, archive):
    names = sorted(name for name in os.listdir(folder) if NAME.fullmatch(name))
    if REFERENCE not in names:
        raise Fault(f"{os.path.join(folder, REFERENCE)}: is missing")
    reference = read(folder, REFERENCE)[2]
    entries = []
    for name in names:
        path, content, rows = read(folder, name)
        check(path, rows, reference)
        entries.append((name, encode(path, name, content)))
    with zipfile.ZipFile(archive, "w") as out:
        for name, data in entries:
            info = zipfile.ZipInfo(name)  # dated 1980, whenever it is built
            info.compress_type = zipfile.ZIP_DEFLATED
            info.create_system = 0
            out.writestr(info, data, compresslevel=9)


def main():
    if len(sys.argv) != 3:
        print("usage: pack_texts.py FOLDER ARCHIVE", file=sys.stderr)
        return 2
    try:
        pack(sys.argv[1], sys.argv[2])
    except (Fault, OSError) as fault:
        print(f"pack_texts: {fault}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
