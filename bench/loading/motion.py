"""What a neighbour's server takes for the same watchers: Debian's `motion`, which is to be installed by hand.

It takes the camera from a running host, as one more watcher, decodes each picture, draws and looks for movement (which cannot be
had without), encodes it for its stream, and sends that to all. Prints its processor time without watchers and with them, and what
the watchers got.
"""

import argparse
import json
import os
import signal
import socket
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
BEGIN_SECONDS = 30


def configuration(given, folder, port):
    settings = {
        "daemon": "off", "setup_mode": "off", "log_level": 4, "target_dir": folder, "netcam_url": f"http://127.0.0.1:{given.port}{given.path}",
        "netcam_userpass": given.user, "width": given.width, "height": given.height, "framerate": given.fps, "picture_output": "off",
        "movie_output": "off", "webcontrol_port": 0, "stream_port": port, "stream_localhost": "on", "stream_maxrate": given.fps,
        "stream_quality": given.quality}
    path = os.path.join(folder, "motion.conf")
    with open(path, "w", encoding="utf-8") as file:
        file.writelines(f"{name} {value}\n" for name, value in settings.items())
    return path


def processor(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
        fields = file.read().rpartition(")")[2].split()
    return sum(int(ticks) for ticks in fields[11:13]) / os.sysconf("SC_CLK_TCK")


def share(pid, seconds):
    """Of a core."""
    begin, before = time.monotonic(), processor(pid)
    time.sleep(seconds)
    return (processor(pid) - before) / (time.monotonic() - begin)


def wait_until_open(port, motion):
    end = time.monotonic() + BEGIN_SECONDS
    while time.monotonic() < end and motion.poll() is None:
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return
        except OSError:
            time.sleep(0.2)
    sys.exit("motion: it did not begin")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n", maxsplit=1)[0])
    parser.add_argument("--port", type=int, required=True, help="the host's")
    parser.add_argument("--path", required=True, help="of the camera's motion JPEG")
    parser.add_argument("--user", required=True, help="NAME:PASSWORD")
    parser.add_argument("--width", type=int, default=320)
    parser.add_argument("--height", type=int, default=240)
    parser.add_argument("--quality", type=int, default=75)
    parser.add_argument("--fps", type=int, default=10)
    parser.add_argument("--watchers", type=int, required=True)
    parser.add_argument("--seconds", type=int, default=10)
    given = parser.parse_args()
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        port = probe.getsockname()[1]
    with tempfile.TemporaryDirectory(prefix="morrow-motion-") as folder:
        motion = subprocess.Popen(["motion", "-n", "-c", configuration(given, folder, port)], cwd=folder, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL)
        watchers = None
        try:
            wait_until_open(port, motion)
            time.sleep(5)
            alone = share(motion.pid, given.seconds)
            watchers = subprocess.Popen(
                [sys.executable, "-B", os.path.join(HERE, "watchers.py"), "--port", str(port), "--watchers", str(given.watchers),
                 "--authorization", "none", "/"], stdout=subprocess.PIPE, text=True)
            if watchers.stdout.readline() != "in\n":
                sys.exit("motion: the watchers got no streams")
            begin = time.monotonic()
            time.sleep(2)
            with_them = share(motion.pid, given.seconds)
            taken = time.monotonic() - begin
            watchers.send_signal(signal.SIGTERM)
            got = json.loads(watchers.communicate(timeout=30)[0])
            rates = sorted(pictures / taken for pictures in got["pictures"])
            print("| watchers of motion | pictures | slowest | fastest | bytes each | CPU without them | with them | µs more a picture |")
            print("|---|---|---|---|---|---|---|---|")
            print(f"| {given.watchers} | {sum(got['pictures'])} | {rates[0]:.1f} /s | {rates[-1]:.1f} /s | "
                  f"{got['bytes'] / max(1, sum(got['pictures'])):.0f} | {100 * alone:.0f} % | {100 * with_them:.0f} % | "
                  f"{1e6 * (with_them - alone) / max(1, sum(rates)):.1f} |")
        finally:
            for process in (watchers, motion):
                if process and process.poll() is None:
                    process.send_signal(signal.SIGTERM)
                    try:
                        process.wait(timeout=10)
                    except subprocess.TimeoutExpired:
                        process.kill()
                        process.wait()


if __name__ == "__main__":
    main()
