#!/usr/bin/env python3
"""The check of include lines must find what it is for: small trees with one fault each."""

import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
import layering  # noqa: E402  (found beside this file)

SOUND = {
    "platform/com.h": "#pragma once\n#include <cstdint>\n#include <unistd.h>\n",
    "src/interfaces/ICam.h": '#include "platform/com.h"\n',
    "src/image/kernels/idct.h": "#include <cstddef>\n#include <immintrin.h>\n",
    "src/image/jpegdec/decoder.h": '#include "image/kernels/idct.h"\n',
    "src/image/ImageCodec.h": '#include <span>\n',
    "src/image/ImageCodec.cpp": '#include "image/ImageCodec.h"\n#include "image/jpegdec/decoder.h"\n',
    "src/camera/Cam.h": '#include "interfaces/ICam.h"\n#include "image/ImageCodec.h"\n',
    "src/server/Server.h": '#include "camera/Cam.h"\n',
    "host/http/request.h": "#include <boost/beast.hpp>\n",
    "host/site/live/pages.h": '#include "host/http/request.h"\n',
    "host/site/server.h": '#include "interfaces/ICam.h"\n#include "host/site/live/pages.h"\n',
    "phone/main.cpp": "#include <sys/socket.h>\n",
    "tools/jpeg/main.cpp": '#include "image/ImageCodec.h"\n#include "image/jpegdec/decoder.h"\n',
}

# The file that changes, its new text, and a part of the violation that must come of it.
FAULTS = {
    "upward": ("platform/com.h", '#include "interfaces/ICam.h"', "platform may not include src/interfaces"),
    "relative_upward": ("platform/com.h", '#include "../src/interfaces/ICam.h"', "platform may not include"),
    "host_into_server": ("host/site/server.h", '#include "server/Server.h"', "host/site may not include src/server"),
    "host_into_camera": ("host/main/a.cpp", '#  include   "camera/Cam.h"  // why not', "host/main may not include src/camera"),
    "host_upward": ("host/http/request.h", '#include "host/site/server.h"', "host/http may not include host/site"),
    "host_sideways": ("host/site/tiny/a.h", '#include "host/site/live/pages.h"', "may not include host/site/live"),
    "kit_into_host": ("kit/component/a.h", '#include "host/http/request.h"', "may not include host/http"),
    "host_library": ("host/site/tiny/a.h", "#include <boost/asio.hpp>", "does not use the library"),
    "host_past_facade": ("host/main/a.cpp", '#include "image/jpegdec/decoder.h"', "may not include src/image/jpegdec"),
    "phone_into_host": ("phone/main.cpp", '#include "host/site/server.h"', "phone may not include host"),
    "camera_into_server": ("src/camera/Cam.h", '#include "server/Server.h"', "src/camera may not include src/server"),
    "engine_into_engine": ("src/image/jpegenc/encoder.h", '#include "image/jpegdec/decoder.h"', "may not include src/image/jpegdec"),
    "engine_into_facade": ("src/image/jpegdec/decoder.h", '#include "image/ImageCodec.h"', "may not include src/image"),
    "kernel_into_platform": ("src/image/kernels/idct.h", '#include "platform/com.h"', "may not include platform"),
    "kernel_into_system": ("src/image/kernels/idct.h", "#include <unistd.h>", "the C++ library alone"),
    "codec_library": ("src/image/ImageCodec.cpp", "#include <jpeglib.h>", "does not use the library of <jpeglib.h>"),
    "codec_library_camera": ("src/camera/Cam.h", "#include <turbojpeg.h>", "does not use the library"),
    "web_library": ("src/server/Server.h", "#include <boost/asio.hpp>", "does not use the library"),
    "tool_into_camera": ("tools/jpeg/main.cpp", '#include "camera/Cam.h"', "tools may not include src/camera"),
    "codec_library_tool": ("tools/jpeg/main.cpp", "#include <jpeglib.h>", "does not use the library of <jpeglib.h>"),
    "outside": ("src/camera/Cam.h", '#include "vendor/imaging.h"', "is no file of this repository"),
    "angles": ("src/camera/Cam.h", "#include <server/Server.h>", "use quotes"),
    "macro": ("src/camera/Cam.h", "#include CAMERA_HEADER", "cannot tell what is included"),
    "new_room": ("src/cellar/wine.h", "", "stands in no room"),
    "test_code": ("src/camera/Cam.h", '#include "tests/support/Fake.h"', "may not include tests/support"),
    "file_circle": ("src/camera/Cam.h", '#include "camera/Cam.h"', "a circle of files"),
}


def check(tree):
    with tempfile.TemporaryDirectory() as root:
        for path, text in tree.items():
            os.makedirs(os.path.join(root, os.path.dirname(path)), exist_ok=True)
            with open(os.path.join(root, path), "w", encoding="utf-8") as file:
                file.write(text)
        return layering.check(root)[0]


class LayeringTest(unittest.TestCase):
    def test_sound_tree_passes(self):
        self.assertEqual(check(SOUND), [])

    def test_comments_do_not_count(self):
        self.assertEqual(check(SOUND | {"platform/a.h": '/*\n#include "server/Server.h"\n*/ // #include "x"\n'}), [])

    def test_every_fault_is_found(self):
        for name, (path, text, expected) in FAULTS.items():
            with self.subTest(name):
                violations = check(SOUND | {"tests/support/Fake.h": "", path: "\n" + text + "\n"})
                # Some of the faults close a circle as well; each is one line at fault.
                lines = [line for line in violations if not line.startswith("a circle")] or violations
                self.assertEqual(len(lines), 1, violations)
                self.assertIn(expected, lines[0])
                if name not in ("new_room", "file_circle"):
                    self.assertTrue(lines[0].startswith(path + ":2: "), lines[0])

    def test_table_has_no_circle(self):
        self.assertIsNone(layering.find_circle(layering.TABLE))
        self.assertEqual(layering.find_circle({"a": {"b"}, "b": {"c"}, "c": {"b"}}), ["b", "c", "b"])


if __name__ == "__main__":
    unittest.main()
