"""What a person would see on the handset's screen, read without any of the programs under test."""

import struct
import zlib


def read_png(path):
    """Width, height and the rows of one picture of eight bits a colour, three colours a pixel."""
    data, at, packed, size = path.read_bytes(), 8, b"", None
    while at < len(data):
        length, kind = struct.unpack_from(">I4s", data, at)
        body = data[at + 8:at + 8 + length]
        at += 12 + length
        if kind == b"IHDR":
            size = struct.unpack_from(">II", body)
            assert body[8:] == b"\x08\x02\x00\x00\x00", path
        elif kind == b"IDAT":
            packed += body
    width, height = size
    raw, stride, rows = zlib.decompress(packed), 3 * width, []
    above = bytearray(stride)
    for y in range(height):
        kind = raw[y * (stride + 1)]
        row = bytearray(raw[y * (stride + 1) + 1:(y + 1) * (stride + 1)])
        unfilter(kind, row, above)
        rows.append(row)
        above = row
    return width, height, rows


def unfilter(kind, row, above):
    if kind == 2:
        row[:] = bytes((value + up) & 255 for value, up in zip(row, above))
        return
    for i in range(len(row) if kind else 0):
        left, up, corner = (row[i - 3] if i > 2 else 0), above[i], (above[i - 3] if i > 2 else 0)
        if kind == 1:
            guess = left
        elif kind == 3:
            guess = (left + up) // 2
        else:
            distances = [abs(up - corner), abs(left - corner), abs(left + up - 2 * corner)]
            guess = (left, up, corner)[distances.index(min(distances))]
        row[i] = (row[i] + guess) & 255


# Where the middles of a digit's seven strokes are, which of them are lit in 0 to 9, and where the clock has its digits:
# those of the time, and those of the thousandths of the second.
STROKES = [(15, 3), (3, 18), (27, 18), (15, 33), (3, 48), (27, 48), (15, 63)]
DIGITS = [0x77, 0x24, 0x5D, 0x6D, 0x2E, 0x6B, 0x7B, 0x25, 0x7F, 0x6F]
TIME = [(36, 36), (74, 36), (126, 36), (164, 36), (216, 36), (254, 36)]
THOUSANDTHS = [(107, 122), (145, 122), (183, 122)]

# The clock is 320x240, the screen 240x320. How a place of the clock comes to the screen: as it is, and turned to the
# right; the whole of it, and the middle two thirds.
CLOSE = 1000 / 667
VIEWS = {
    "whole": lambda x, y: (x * 3 / 4, 70 + y * 3 / 4),
    "turned": lambda x, y: (239 - y, x),
    "close": lambda x, y: ((x - 320 * 0.166) * CLOSE * 3 / 4, 70 + (y - 240 * 0.166) * CLOSE * 3 / 4),
    "turned close": lambda x, y: (239 - (y - 240 * 0.166) * CLOSE, (x - 320 * 0.166) * CLOSE),
}


def read_digits(picture, places, view):
    """The digits as text, or None where one is none."""
    width, height, rows = picture
    text = ""
    for left, top in places:
        lit = 0
        for stroke, (x, y) in enumerate(STROKES):
            column, row = (int(round(value)) for value in view(left + x, top + y))
            if 0 <= column < width and 0 <= row < height and max(rows[row][3 * column:3 * column + 3]) > 110:
                lit |= 1 << stroke
        if lit not in DIGITS:
            return None
        text += str(DIGITS.index(lit))
    return text


def read_clock(path):
    """How the clock stands on the screen, a name of VIEWS, and its digits: nine of them, but three of a close one."""
    picture = read_png(path)
    for name, view in VIEWS.items():
        places = THOUSANDTHS if "close" in name else TIME + THOUSANDTHS
        digits = read_digits(picture, places, view)
        if digits is not None:
            return name, digits
    return None, ""
