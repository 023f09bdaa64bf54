#!/usr/bin/env python3
"""Draws the midlets' pictures: a phone that sends waves. Writes logo_small.png, logo_big.png and, with cjpeg, test.jpg."""
import math
import os
import struct
import subprocess
import sys
import zlib

SAMPLES = 4  # a side, for each pixel
BACKGROUND = (16, 32, 48)
PHONE = (236, 242, 246)
SCREEN = (38, 120, 178)
WAVES = (255, 176, 32)


def colour_at(x, y):
    """The drawing's colour at a place of the unit square."""
    if 0.16 <= x <= 0.52 and 0.10 <= y <= 0.90:
        if 0.21 <= x <= 0.47 and 0.20 <= y <= 0.72:
            return SCREEN
        if math.hypot(x - 0.34, y - 0.81) < 0.035:
            return SCREEN
        return PHONE
    distance = math.hypot(x - 0.52, y - 0.46)
    angle = abs(math.atan2(y - 0.46, x - 0.52))
    if angle < 0.9 and any(abs(distance - radius) < 0.035 for radius in (0.16, 0.28, 0.40)):
        return WAVES
    return BACKGROUND


def draw(width, height):
    """Rows of RGB bytes, with the drawing in a square in the middle."""
    side = min(width, height)
    rows = []
    for row in range(height):
        line = bytearray()
        for column in range(width):
            total = [0, 0, 0]
            for sample in range(SAMPLES * SAMPLES):
                x = (column + (sample % SAMPLES + 0.5) / SAMPLES - (width - side) / 2) / side
                y = (row + (sample // SAMPLES + 0.5) / SAMPLES - (height - side) / 2) / side
                for i, value in enumerate(colour_at(x, y)):
                    total[i] += value
            line += bytes(round(value / SAMPLES**2) for value in total)
        rows.append(bytes(line))
    return rows


def write_png(path, width, height):
    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data))

    pixels = b"".join(b"\0" + row for row in draw(width, height))
    with open(path, "wb") as file:
        file.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0))
                   + chunk(b"IDAT", zlib.compress(pixels, 9)) + chunk(b"IEND", b""))


def main():
    folder = os.path.dirname(os.path.abspath(sys.argv[0]))
    write_png(os.path.join(folder, "logo_small.png"), 16, 16)
    write_png(os.path.join(folder, "logo_big.png"), 96, 96)
    picture = b"P6 64 48 255\n" + b"".join(draw(64, 48))
    with open(os.path.join(folder, "test.jpg"), "wb") as file:
        subprocess.run(["cjpeg", "-quality", "75"], input=picture, stdout=file, check=True)


if __name__ == "__main__":
    main()
