"""Who changes the settings and the users, and who looks after the file."""

import copy
import http.client
import re
from xml.etree import ElementTree

import random_requests
from actor import Actor, sign_in


class Administrator(Actor):
    """Adds and removes a camera that nobody uses."""

    pause = 1.0

    def turn(self):
        token = re.search(rb'"token":"([^"]+)"', self.admin("GET", "/settings/state")[1])[1].decode()
        status, text, headers = self.admin("GET", "/settings/document")
        assert status == 200, f"the settings answer {status}"
        root = ElementTree.fromstring(text)
        cameras = root.find("cams")
        aside = [item for item in cameras if item.findtext("Name") == "aside"]
        for item in aside:
            cameras.remove(item)
        if not aside:
            cameras.append(copy.deepcopy(root.find("addcam/item")))
            cameras[-1].find("Name").text = "aside"
        status, body, headers = self.admin("PUT", "/settings/document", body=ElementTree.tostring(root),
                                           headers={"X-Settings-Token": token, "If-Match": headers["ETag"]})
        if status == 412:  # the programmer was faster
            return
        assert status == 200, f"a change answers {status} {body[:200]}"
        if headers.get("X-Settings-Written") == "no":
            self.soak.seen["changes that were not written"] += 1
            assert self.soak.in_fault(), "a change was not written though there is room"


class Auditor(Actor):
    """Reads the settings file all the time, as a backup would: it is whole at each look, in a fault as well."""

    pause = 0.1
    excused = False

    def turn(self):
        try:
            with open(self.soak.settings_file, "rb") as file:
                text = file.read()
        except FileNotFoundError as missing:
            raise AssertionError("there is no settings file") from missing
        try:
            cameras = [item.findtext("Name") for item in ElementTree.fromstring(text).find("cams")]
        except ElementTree.ParseError as damage:
            raise AssertionError(f"the settings file is damaged: {damage}") from damage
        assert set(self.soak.cameras) <= set(cameras), f"cameras are missing in the settings file: {cameras}"


class Programmer(Actor):
    """Uses the interface for programs at random, for cameras and users of its own."""

    pause = 0.1

    def __init__(self, soak):
        super().__init__(soak)
        self.asking = None

    def turn(self):
        if self.asking is None:
            self.asking = random_requests.Requests(self.port, sign_in("admin", self.soak.host.admin_password()), address="127.0.0.77")
        try:
            self.asking.turn()
        except (OSError, http.client.HTTPException):
            self.asking.close()
            raise
