#!/usr/bin/env python3
"""Takes phones on a port, prints each picture's size and mean brightness, and keeps the newest one of each camera.

    phones.py DATA PORT CAMERA:PASSWORD...     until Ctrl-C; 0 takes a free port

Python's standard library and libmorrowstream-c.so.1 are all that it needs. MORROWSTREAM_LIBRARY names another place of the
library.
"""

import ctypes
import os
import signal
import socket
import sys
import threading

from ctypes import POINTER, byref, c_char_p, c_int, c_int32, c_size_t, c_ubyte, c_uint32, c_uint64, c_void_p

OK, EXISTS = 0, -6
UPLOADING = 1
OUTCOMES = {UPLOADING: "sends", 2: "watches", -5: "is no phone", -7: "is turned away", -12: "was silent", -13: "has left"}


class Options(ctypes.Structure):
    _fields_ = [("size", c_size_t), ("data_folder", c_char_p), ("language", c_char_p), ("address", c_char_p), ("module", c_char_p),
                ("wait_ms", c_uint32), ("show_cameras", c_uint32), ("most_pixels", c_uint64), ("log", c_void_p), ("log_payload", c_void_p),
                ("may_watch", c_void_p), ("watch_payload", c_void_p)]


class Picture(ctypes.Structure):
    _fields_ = [("size", c_size_t), ("form", c_int32), ("width", c_int32), ("height", c_int32), ("y_stride", c_int32),
                ("chroma_stride", c_int32), ("y", POINTER(c_ubyte)), ("cb", POINTER(c_ubyte)), ("cr", POINTER(c_ubyte))]


FrameCallback = ctypes.CFUNCTYPE(None, c_char_p, c_uint64, c_void_p)
TakenCallback = ctypes.CFUNCTYPE(None, c_int, c_char_p, c_void_p)

library = ctypes.CDLL(os.environ.get("MORROWSTREAM_LIBRARY", "libmorrowstream-c.so.1"))
library.morrow_last_error.restype = c_char_p
for name, types in {
    "morrow_server_create": [POINTER(c_uint64), POINTER(Options)],
    "morrow_server_destroy": [c_uint64],
    "morrow_camera_add": [c_uint64, c_char_p, c_char_p, c_char_p],
    "morrow_camera_change": [c_uint64, c_char_p, c_char_p, c_char_p],
    "morrow_subscribe": [POINTER(c_uint64), c_uint64, c_char_p, FrameCallback, c_void_p],
    "morrow_take": [c_uint64, c_int, c_char_p, c_size_t, TakenCallback, c_void_p],
    "morrow_frame_picture": [POINTER(Picture), c_uint64],
    "morrow_frame_jpeg": [POINTER(c_void_p), POINTER(c_size_t), c_uint64],
    "morrow_frame_keep": [c_uint64],
    "morrow_frame_release": [c_uint64],
}.items():
    getattr(library, name).argtypes = types


def require(status):
    if status != OK:
        raise RuntimeError(f"{library.morrow_last_error().decode()} ({status})")


class Newest:
    """The newest frame of each camera, on its way from the threads that receive to the one that looks at it."""

    def __init__(self):
        self._frames = {}
        self._changed = threading.Condition()
        self._ended = False

    def put(self, camera, frame):
        with self._changed:
            former = self._frames.get(camera)
            self._frames[camera] = frame
            self._changed.notify()
        if former is not None:
            library.morrow_frame_release(former)

    def take(self):
        """(camera, frame), or None at the end."""
        with self._changed:
            self._changed.wait_for(lambda: self._frames or self._ended)
            return self._frames.popitem() if self._frames else None

    def end(self):
        with self._changed:
            self._ended = True
            self._changed.notify()


newest = Newest()


@FrameCallback
def on_frame(camera, frame, _):
    # The phone is not read until this returns: keep the frame and go.
    library.morrow_frame_keep(frame)
    newest.put(camera, frame)


@TakenCallback
def on_taken(outcome, camera, _):
    print(f"a phone {OUTCOMES.get(outcome, outcome)} {camera.decode()}", flush=True)


def look(folder):
    """Looks at frames until the end, on a thread of its own."""
    while (taken := newest.take()) is not None:
        camera, frame = taken
        picture = Picture(ctypes.sizeof(Picture))
        jpeg, size = c_void_p(), c_size_t()
        if library.morrow_frame_picture(byref(picture), frame) == OK and library.morrow_frame_jpeg(byref(jpeg), byref(size), frame) == OK:
            # Rows follow each other without a gap where the stride is the width, as it is for frames.
            luma = ctypes.string_at(picture.y, picture.y_stride * picture.height)
            print(f"{camera.decode()} {picture.width}x{picture.height} brightness {sum(luma) / len(luma):.1f}", flush=True)
            path = os.path.join(folder, camera.decode() + ".jpg")
            with open(path + ".new", "wb") as file:
                file.write(ctypes.string_at(jpeg, size.value))
            os.replace(path + ".new", path)
        library.morrow_frame_release(frame)


def main():
    if len(sys.argv) < 3:
        sys.exit(__doc__)
    folder, port = sys.argv[1], int(sys.argv[2])
    server, subscription = c_uint64(), c_uint64()
    require(library.morrow_server_create(byref(server), Options(ctypes.sizeof(Options), os.fsencode(folder))))
    for camera in sys.argv[3:]:
        name, _, password = camera.partition(":")
        status = library.morrow_camera_add(server, name.encode(), b"320x240", password.encode())
        require(library.morrow_camera_change(server, name.encode(), None, password.encode()) if status == EXISTS else status)
    require(library.morrow_subscribe(byref(subscription), server, None, on_frame, None))
    looking = threading.Thread(target=look, args=(folder,))
    looking.start()
    signal.signal(signal.SIGTERM, signal.getsignal(signal.SIGINT))
    with socket.create_server(("", port)) as listener:
        print(f"listening on 127.0.0.1:{listener.getsockname()[1]}", flush=True)
        try:
            while True:
                connection, _ = listener.accept()
                descriptor = connection.detach()
                if library.morrow_take(server, descriptor, None, 0, on_taken, None) != OK:
                    os.close(descriptor)
        except KeyboardInterrupt:
            pass
    require(library.morrow_server_destroy(server))
    newest.end()
    looking.join()


if __name__ == "__main__":
    main()
