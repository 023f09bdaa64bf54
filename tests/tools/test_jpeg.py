#!/usr/bin/env python3
"""morrowstream-jpeg on files made by cjpeg, with djpeg as the oracle. JPEG_TOOL names the program."""

import os
import random
import re
import subprocess
import sys
import tempfile
import unittest

TOOL = os.environ["JPEG_TOOL"]
WIDTH, HEIGHT = 160, 96

# How cjpeg makes each file of the picture, and what info says of it.
STREAMS = {
    "s420": ([], {"sampling": "4:2:0", "colour": "YCbCr", "frame": "baseline", "progressive": "no"}),
    "s422": (["-sample", "2x1"], {"sampling": "4:2:2"}),
    "s444": (["-sample", "1x1", "-quality", "98"], {"sampling": "4:4:4"}),
    "grey": (["-grayscale"], {"sampling": "one component", "colour": "grey", "Huffman tables": "DC 0 (12 codes), AC 0"}),
    "restart": (["-restart", "3B", "-optimize"], {"restart interval": "3 MCUs"}),
    "progressive": (["-progressive", "-restart", "5B"], {"progressive": "yes", "frame": "progressive (SOF2)", "scans": "10:"}),
}
# Streams that no engine takes, and a word of the reason.
REFUSED = {
    "s440": (["-sample", "1x2"], "4:4:4, 4:2:2 and 4:2:0"),
    "arithmetic": (["-arithmetic"], "not supported"),
}


def run(*arguments, **options):
    return subprocess.run([TOOL, *arguments], capture_output=True, timeout=120, check=False, **options)


def paint(width, height):
    """A binary PPM of gradients, edges and noise."""
    noise = random.Random(7)
    pixels = bytearray()
    for y in range(height):
        for x in range(width):
            edge = 90 if (x // 23 + y // 17) % 2 else 0
            pixels += bytes(((x * 2 + edge) % 256, (y * 2 + edge) % 256, (x + y + noise.randrange(24)) % 256))
    return b"P6\n%d %d\n255\n" % (width, height) + bytes(pixels)


def read_pnm(data):
    match = re.match(rb"P([56])\s(\d+) (\d+)\s255\s", data)
    return int(match[2]), int(match[3]), data[match.end():]


def worst(ours, theirs):
    assert len(ours) == len(theirs), (len(ours), len(theirs))
    return max(abs(a - b) for a, b in zip(ours, theirs))


def rgb_of(width, planes):
    """JFIF's equations in floating point over the planes Y, Cb, Cr of an even size."""
    pixels = len(planes) * 2 // 3
    cb, cr = planes[pixels:pixels + pixels // 4], planes[pixels + pixels // 4:]
    out = bytearray()
    for i in range(pixels):
        at = i // width // 2 * (width // 2) + i % width // 2
        y, b, r = planes[i], cb[at] - 128, cr[at] - 128
        for value in (y + 1.402 * r, y - 0.344136 * b - 0.714136 * r, y + 1.772 * b):
            out.append(min(max(round(value), 0), 255))
    return bytes(out)


class JpegTool(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.picture = paint(WIDTH, HEIGHT)
        for name, (how, _) in (STREAMS | REFUSED).items():
            cls.make(name, how)

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def path(cls, name):
        return os.path.join(cls.folder.name, name)

    @classmethod
    def make(cls, name, how, picture=None):
        with open(cls.path(name + ".jpg"), "wb") as file:
            subprocess.run(["cjpeg", *how], input=picture or cls.picture, stdout=file, check=True)
        return cls.path(name + ".jpg")

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def decode(self, stream, kind, *options):
        done = run("decode", self.path(stream + ".jpg"), "-o", self.path("out." + kind), *options)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""), (stream, kind))
        return self.read("out." + kind)

    def oracle(self, stream, *options):
        path = self.path(stream + ".jpg")
        return read_pnm(subprocess.run(["djpeg", "-dct", "int", *options, path], capture_output=True, check=True).stdout)

    def test_info_names_what_the_stream_holds(self):
        for name, (_, wanted) in STREAMS.items():
            with self.subTest(name):
                done = run("info", self.path(name + ".jpg"))
                self.assertEqual((done.returncode, done.stderr), (0, b""))
                lines = dict(line.split(": ", 1) for line in done.stdout.decode().splitlines())
                self.assertEqual(lines["size"], f"{WIDTH}x{HEIGHT}")
                self.assertTrue(lines["engine"].startswith("primary: "), lines["engine"])
                for key, value in wanted.items():
                    self.assertTrue(lines[key].startswith(value), lines[key])

    def test_decodes_as_djpeg_does(self):
        for name in STREAMS:
            with self.subTest(name):
                width, height, grey = read_pnm(self.decode(name, "pgm"))
                self.assertEqual((width, height), (WIDTH, HEIGHT))
                self.assertLessEqual(worst(grey, self.oracle(name, "-grayscale")[2]), 1)
                planes = self.decode(name, "yuv")
                self.assertEqual(planes[:width * height], grey)
                self.assertEqual(len(planes), width * height * 3 // 2)
                if name == "grey":
                    self.assertEqual(set(planes[width * height:]), {128})
                _, _, colours = read_pnm(self.decode(name, "ppm"))
                self.assertLessEqual(worst(colours, rgb_of(width, planes)), 1)
                if name in ("s420", "restart", "progressive"):
                    # Samples that differ by 1 before the conversion differ by up to 3 behind it.
                    self.assertLessEqual(worst(colours, self.oracle(name, "-nosmooth", "-pnm")[2]), 3)

    def test_odd_sizes(self):
        for width, height in ((1, 1), (1, 40), (7, 5), (101, 67)):
            with self.subTest((width, height)):
                self.make("odd", [], paint(width, height))
                self.assertEqual(len(self.decode("odd", "yuv")), width * height + 2 * (width // 2) * (height // 2))
                self.assertEqual(len(read_pnm(self.decode("odd", "ppm"))[2]), 3 * width * height)

    def test_levels_and_engines_agree(self):
        shown = run("info", self.path("s420.jpg"), "--show-level").stdout
        running, best = re.match(rb"kernel level (\d \(.*?\)), best level (.*)\n", shown).groups()
        self.assertEqual(running, best)
        best = int(best[:1])
        levels = list(zip("01234", ("C++", "SSE2", "SSSE3", "SSE4.1")))[: best + 1] + [("4-avx", "AVX")] * (best == 4)
        levels += [("4-avx2", "AVX2")] * (b"AVX2" in running or b"AVX-512" in running)
        for level, instructions in levels:
            shown = run("info", self.path("s420.jpg"), "--show-level", "--level", level).stdout.decode()
            self.assertTrue(shown.startswith(f"kernel level {level[:1]} ({instructions}), best level "), shown)
        for name in STREAMS:
            wanted = self.decode(name, "yuv")
            self.assertEqual(self.decode(name, "yuv", "--engine", "primary"), wanted)
            for level in [level for level, _ in levels] + ["4"] * (best == 4):
                with self.subTest((name, level)):
                    self.assertEqual(self.decode(name, "yuv", "--level", level), wanted)
        for level in range(best + 1, 6):
            done = run("decode", self.path("s420.jpg"), "-o", self.path("no.pgm"), "--level", str(level))
            self.assertEqual(done.returncode, 2)
            self.assertFalse(os.path.exists(self.path("no.pgm")))

    def test_encodes_what_djpeg_reads(self):
        for name in ("ppm", "pgm", "yuv"):
            with open(self.path("in." + name), "wb") as file:
                file.write({"ppm": self.picture, "pgm": self.decode("s420", "pgm"), "yuv": self.decode("s420", "yuv")}[name])
        planes, size = self.read("in.yuv"), ["--size", f"{WIDTH}x{HEIGHT}"]
        table = [
            ("ppm", [], {"sampling": "4:2:0", "progressive": "no", "restart interval": "none"}),
            ("ppm", ["--sampling", "4:2:2"], {"sampling": "4:2:2"}),
            ("ppm", ["--sampling", "4:4:4", "--progressive"], {"sampling": "4:4:4", "progressive": "yes"}),
            ("pgm", ["--restart", "5"], {"colour": "grey", "restart interval": "5 MCUs"}),
            ("pgm", ["--progressive"], {"colour": "grey", "progressive": "yes"}),
            ("yuv", size, {"sampling": "4:2:0"}),
            ("yuv", size + ["--progressive", "--restart", "3"], {"progressive": "yes", "restart interval": "3 MCUs"}),
        ]
        for kind, options, wanted in table:
            with self.subTest((kind, options)):
                done = run("encode", self.path("in." + kind), "-o", self.path("e.jpg"), "--quality", "100", *options)
                self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""))
                done = run("info", self.path("e.jpg"))
                lines = dict(line.split(": ", 1) for line in done.stdout.decode().splitlines())
                for key, value in wanted.items():
                    self.assertTrue(lines[key].startswith(value), lines[key])
                # Steps of 1: what is left are the roundings of the two transforms and of colours.
                if kind != "ppm":
                    self.assertLessEqual(worst(self.oracle("e", "-grayscale")[2], planes[:WIDTH * HEIGHT]), 2)
                    wanted = planes if kind == "yuv" else planes[:WIDTH * HEIGHT]
                    self.assertLessEqual(worst(self.decode("e", "yuv")[:len(wanted)], wanted), 2)
                elif "4:4:4" in options:
                    self.assertLessEqual(worst(self.oracle("e", "-pnm")[2], read_pnm(self.picture)[2]), 5)

    def test_quality_steers_the_size(self):
        """As cjpeg's does, which has the same tables."""
        with open(self.path("in.ppm"), "wb") as file:
            file.write(self.picture)
        for quality in ("25", "50", "75", "90"):
            self.make("theirs", ["-quality", quality, "-sample", "2x2"])
            self.assertEqual(run("encode", self.path("in.ppm"), "-o", self.path("e.jpg"), "--quality", quality).returncode, 0)
            self.assertAlmostEqual(len(self.read("e.jpg")) / len(self.read("theirs.jpg")), 1, delta=0.05)

    def test_refusals_are_one_clear_line(self):
        good, output = self.path("s420.jpg"), self.path("out.pgm")
        cut = self.path("cut.jpg")
        with open(cut, "wb") as file:
            file.write(self.read("s420.jpg")[:-2])
        contents = {"text.jpg": b"hello\n", "text.pgm": b"P2 1 1 255 7", "wide.pgm": b"P5 1 1 65535\n12",
                    "short.ppm": b"P6 # a comment\n2 1 255\n12345", "bad.ppm": b"P6 2 -1 255\n123456",
                    "a.ppm": b"P6 1 1 255\n123", "a.yuv": b"123456"}
        for name, content in contents.items():
            with open(self.path(name), "wb") as file:
                file.write(content)
        picture, stream = self.path("a.ppm"), self.path("never.jpg")
        table = [
            ([], 2, "no command"),
            (["paint"], 2, 'unknown command "paint"'),
            (["info"], 2, "info needs a file"),
            (["info", good, "--quality", "3"], 2, 'unknown argument "--quality"'),
            (["info", good, "--level"], 2, "--level needs a value"),
            (["info", good, "--level", "5"], 2, "--level takes a number from 0 to 4"),
            (["info", good, "--level", "1x"], 2, 'not "1x"'),
            (["decode", good], 2, "decode needs -o OUT"),
            (["decode", good, good, "-o", output], 2, "is a second"),
            (["decode", good, "-o", self.path("out.png")], 2, "none of .pgm, .ppm and .yuv"),
            (["decode", good, "-o", output, "--engine", "best"], 2, "primary, fallback or facade"),
            (["bench", good, "--seconds", "nan"], 2, "--seconds takes a number"),
            (["encode", picture, "-o", output], 2, "neither in .jpg nor in .jpeg"),
            (["encode", picture, "-o", stream, "--quality", "0"], 2, "--quality takes a number from 1 to 100"),
            (["encode", picture, "-o", stream, "--size", "3x3"], 2, "--size is for .yuv files"),
            (["encode", self.path("a.yuv"), "-o", stream], 2, "needs --size WxH"),
            (["encode", self.path("a.yuv"), "-o", stream, "--size", "9"], 2, "--size takes WxH"),
            (["encode", self.path("a.yuv"), "-o", stream, "--sampling", "4:2:0"], 2, "--sampling is for .ppm files"),
            (["encode", self.path("a.yuv"), "-o", stream, "--size", "3x3"], 1, "has 6 bytes; the planes of 3x3 have 11"),
            (["encode", self.path("a.yuv"), "-o", stream, "--size", "60000x60000"], 1, "beyond the limits"),
            (["encode", self.path("text.pgm"), "-o", stream], 1, "no picture of the binary form P5"),
            (["encode", self.path("wide.pgm"), "-o", stream], 1, "samples up to 65535"),
            (["encode", self.path("short.ppm"), "-o", stream], 1, "ends before its last sample"),
            (["encode", self.path("bad.ppm"), "-o", stream], 1, "a bad header"),
            (["info", self.path("absent.jpg")], 1, "absent.jpg: No such file or directory"),
            (["info", self.folder.name], 1, "Is a directory"),
            (["info", self.path("text.jpg")], 1, "no JPEG stream"),
            (["decode", good, "-o", self.path("absent/out.pgm")], 1, "out.pgm: No such file or directory"),
            (["decode", cut, "-o", output], 1, "ends too early"),
            (["bench", cut], 1, "ends too early"),
        ]
        table += [(["info", self.path(name + ".jpg")], 1, reason) for name, (_, reason) in REFUSED.items()]
        table += [(["decode", self.path(name + ".jpg"), "-o", output], 1, "supported") for name in REFUSED]
        for arguments, status, text in table:
            with self.subTest(arguments):
                done = run(*arguments)
                self.assertEqual(done.returncode, status, done.stderr)
                lines = done.stderr.decode().splitlines()
                self.assertEqual(len(lines), 1, lines)
                self.assertTrue(lines[0].startswith("morrowstream-jpeg: "), lines[0])
                self.assertIn(text, lines[0])
        self.assertFalse(os.path.exists(stream))

    def test_a_refused_stream_leaves_the_old_picture(self):
        with open(self.path("old.pgm"), "wb") as file:
            file.write(b"old")
        self.assertEqual(run("decode", self.path("s440.jpg"), "-o", self.path("old.pgm")).returncode, 1)
        self.assertEqual(self.read("old.pgm"), b"old")

    def test_outputs_that_cannot_be_written(self):
        with open("/dev/full", "wb") as full:
            done = subprocess.run([TOOL, "--help"], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"standard output", done.stderr)
        os.symlink("/dev/full", self.path("full.pgm"))
        done = run("decode", self.path("s420.jpg"), "-o", self.path("full.pgm"))
        self.assertEqual((done.returncode, b"No space left" in done.stderr), (1, True), done.stderr)

    def test_help_of_each_command(self):
        for arguments in (["--help"], ["info", "--help"], ["decode", "--help"], ["encode", "--help"], ["bench", "x", "--help"]):
            done = run(*arguments)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.assertIn(b"morrowstream-jpeg", done.stdout)

    def test_bench_prints_a_line_a_file(self):
        done = run("bench", self.path("s420.jpg"), self.path("grey.jpg"), "--seconds", "0.02")
        self.assertEqual(done.returncode, 0)
        self.assertEqual(len(re.findall(rb"\.jpg: [\d.]+ us, [\d.]+ megapixels/s", done.stdout)), 2)

    def test_any_bytes_are_survived(self):
        """Damaged, cut and random files, many to a run: neither a signal nor a sanitizer's report."""
        chance = random.Random(3)
        paths = []
        for number in range(240):
            data = bytearray(self.read(chance.choice(list(STREAMS | REFUSED)) + ".jpg"))
            if number % 3 == 0:
                del data[chance.randrange(len(data)):]
            for _ in range(chance.randrange(12)):
                # Headers hold the fields that steer the program.
                where = chance.randrange(min(len(data), chance.choice((700, 20000))) or 1)
                data[where:where + 1] = bytes((chance.choice((0, 255, chance.randrange(256))),))
            paths.append(self.path(f"damaged{number}.jpg"))
            with open(paths[-1], "wb") as file:
                file.write(data if number % 20 else chance.randbytes(2000))
        for command in (["info"], ["bench", "--seconds", "0.01"], ["bench", "--seconds", "0.01", "--engine", "fallback"]):
            done = run(*command, *paths)
            self.assertIn(done.returncode, (0, 1), done.stderr[-2000:])
            for line in done.stderr.decode().splitlines():
                self.assertTrue(line.startswith("morrowstream-jpeg: "), line)


if __name__ == "__main__":
    sys.dont_write_bytecode = True
    unittest.main()
