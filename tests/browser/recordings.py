"""Recordings that no phone made: pictures that tell their number, in files as the server names them."""

import datetime
import json
import os
import shutil
import subprocess
import tempfile
import time
import urllib.error

from pictures import coded_jpeg

NUMBERS = 200  # pictures that can be told apart, which come again in each file
PER_FILE = 600


def name_of(milliseconds, number):
    moment = datetime.datetime.fromtimestamp(milliseconds / 1000, datetime.timezone.utc)
    return f"{moment:%Y-%m-%d}/{moment:%Y-%m-%d_%H-%M-%S}.{milliseconds % 1000:03}_{number}.mkv"


class Day:
    """A picture a second, the newest of them some minutes ago; picture N of a file shows the number N % NUMBERS."""

    def __init__(self, data, camera, pictures):
        self.camera = camera
        self.begin = (int(time.time()) - 300 - pictures) * 1000
        self.end = self.begin + (pictures - 1) * 1000
        self.files = self.bytes = 0
        folder = os.path.join(data, "recordings", "1")
        made = {}
        with tempfile.TemporaryDirectory() as work:
            for number in range(min(pictures, NUMBERS)):
                with open(os.path.join(work, f"{number:03}.jpg"), "wb") as file:
                    file.write(coded_jpeg(number))
            while pictures > 0:
                count = min(pictures, PER_FILE)
                if count not in made:
                    made[count] = os.path.join(work, f"{count}.mkv")
                    subprocess.run(["ffmpeg", "-v", "error", "-f", "image2", "-loop", "1", "-framerate", "1", "-i", os.path.join(work, "%03d.jpg"),
                                    "-frames:v", str(count), "-c", "copy", "-metadata", f"title={camera}", made[count]], check=True)
                self.files += 1
                path = os.path.join(folder, name_of(self.begin + (self.files - 1) * PER_FILE * 1000, self.files))
                os.makedirs(os.path.dirname(path), mode=0o700, exist_ok=True)
                shutil.copyfile(made[count], path)
                self.bytes += os.path.getsize(path)
                pictures -= count

    def number_at(self, milliseconds):
        return (milliseconds - self.begin) // 1000 % PER_FILE % NUMBERS

    def is_known(self, host):
        """Whether the host has read all of it."""
        try:
            told = json.loads(host.fetch(f"/api/v1/recordings/{self.camera}?from={self.begin}&to={self.end + 1000}"))
        except urllib.error.HTTPError:
            return False
        return len(told["spans"]) == 1 and told["spans"][0][0] == self.begin and told["spans"][0][1] >= self.end - 1000
