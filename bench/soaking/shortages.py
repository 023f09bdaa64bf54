"""What the host lacks for a while."""

import os
import shutil

from actor import connect


class FullDisk:
    """The file systems of settings and recordings have no room left for a while."""

    seconds = 4

    def __init__(self, soak):
        self.fillers = [os.path.join(folder, "filler") for folder in (soak.host.data, soak.recordings)]

    def begin(self):
        for filler in self.fillers:
            with open(filler, "wb", buffering=0) as file:
                try:
                    while file.write(b"\0" * 4096):
                        pass
                except OSError:
                    pass

    def end(self):
        for filler in self.fillers:
            os.remove(filler)


class NoZip:
    """The archive tool's program is not installed for a while."""

    seconds = 4

    def __init__(self, soak):
        self.link = os.path.join(soak.tools, "zip")

    def begin(self):
        os.remove(self.link)

    def end(self):
        os.symlink(shutil.which("zip"), self.link)


class NoDescriptors:
    """Idle connections take all descriptors that the host may have."""

    seconds = 4

    def __init__(self, soak):
        self.soak, self.peers = soak, []

    def begin(self):
        try:
            for number in range(self.soak.descriptors + 100):
                self.peers.append(connect(self.soak.host.port, f"127.0.1.{1 + number // 200}", timeout=0.5))
        except OSError:
            pass

    def end(self):
        self.soak.seen["descriptors in use"] = max(self.soak.seen["descriptors in use"], self.soak.looks()["descriptors"])
        for peer in self.peers:
            peer.close()
        self.peers.clear()
