#!/usr/bin/env python3
"""Reads the include lines of src/, platform/, kit/, capi/, phone/, host/ and tools/ and holds them against the table of who may include whom.

    layering.py [ROOT]    prints each violation as FILE:LINE: TEXT; exit status 1 if there is one
"""

import os
import re
import sys

# A room is a folder with what is below it, up to the next room of the table; it may always include itself.
# What stands behind a room is what it may include besides itself.
INTERFACES = {"src/interfaces", "platform"}
TRACE = {"src/runtime/trace", "platform"}
IMAGE = {"src/image"}
FORMAT = {"src/image/format", "src/image/kernels"}
ENGINES = {"src/image/jpegdec", "src/image/jpegenc", "src/image/ijl"}
COMMON = {
    "src/Common/Configuration/XmlConfigSDK",
    "src/Common/Configuration/config",
    "src/Common/ProcessStateTree",
    "src/Common/Utils",
}
CONFIGURATION = {"src/Common/Configuration/XmlConfigSDK", "src/Common/Configuration/config"}
KIT = {"kit", "kit/picture", "kit/statetree", "kit/packer", "kit/content", "kit/component", "kit/connection", "kit/log", "kit/settings"}
HOUSE = KIT | {"host/base", "host/log", "host/events", "host/preferences", "host/tls", "host/http", "host/users", "host/feed", "host/motion", "host/sources", "host/settings", "host/html",
               "host/bridge", "host/recordings", "host/notices", "host/control", "host/peers"}
SUBJECTS = {
    f"host/site/{subject}" for subject in ("account", "api", "events", "links", "live", "mobile", "monitor", "phone", "recordings", "settings", "tiny", "trust", "users", "view")
}
TABLE = {
    "platform": set(),
    "src/interfaces": {"platform"},
    # The log engine is a partner, so its interface stands with the contract; the trace hands lines to it.
    "src/runtime/trace": INTERFACES,
    "src/runtime/archive": {"platform"},
    # The codec: the kernels know nothing of JPEG's format, and the engines nothing of each other.
    "src/image/kernels": set(),
    "src/image/format": {"src/image/kernels"},
    **{room: FORMAT for room in ENGINES},
    "src/image": FORMAT | ENGINES,
    **{room: INTERFACES | TRACE for room in COMMON},
    "src/Common/Configuration/config": INTERFACES | TRACE
    | {"src/Common/Configuration/XmlConfigSDK", "src/Common/Utils"},
    "src/camera": INTERFACES | TRACE | IMAGE | CONFIGURATION,
    "src/viewing": INTERFACES | TRACE | IMAGE | {"src/Common/ProcessStateTree"},
    "src/midlet": TRACE | {"src/runtime/archive", "src/Common/Utils"},
    "src/server": INTERFACES | TRACE | IMAGE | COMMON
    | {"src/runtime/archive", "src/camera", "src/viewing", "src/midlet"},
    "src/runtime/module": INTERFACES | TRACE | {"src/server", "src/Common/Utils"},
    # What any host needs: it talks to the component through the contract, and to the codec through its facade, and
    # knows nothing of one host, of the web, of users or of pages.
    "kit": set(),
    "kit/log": INTERFACES | {"kit"},
    "kit/connection": {"platform", "kit"},
    "kit/settings": INTERFACES | {"kit"},
    "kit/picture": INTERFACES | IMAGE | {"kit"},
    "kit/statetree": INTERFACES | {"kit"},
    "kit/packer": INTERFACES | IMAGE | {"kit", "kit/picture"},
    "kit/content": INTERFACES | IMAGE | {"kit", "kit/picture", "kit/statetree"},
    "kit/component": INTERFACES | {"kit", "kit/picture", "kit/statetree", "kit/packer", "kit/content", "kit/settings"},
    # The same for programs in C.
    "capi": INTERFACES | IMAGE | KIT,
    # The reference host uses the kit like any other one; each of its rooms on those above it.
    "host/base": {"platform"},
    "host/log": {"platform", "host/base", "kit/log"},
    # What has happened; those that notice it tell it, so it stands below them.
    "host/events": {"platform", "host/base", "host/log"},
    # The host's own settings, which rooms above ask for what holds.
    "host/preferences": {"platform", "host/base", "host/log", "kit/settings"},
    "host/tls": {"platform", "host/base", "host/log"},
    "host/http": {"platform", "host/base", "host/log", "host/tls"},
    "host/users": {"platform", "host/base", "host/log", "host/events", "host/tls", "host/http", "kit/component", "kit/settings"},
    "host/feed": INTERFACES | {"host/base", "host/log", "host/events", "kit/picture"},
    "host/motion": {"platform", "host/base", "host/feed", "kit/picture"} | IMAGE,
    "host/sources": {"platform", "host/base", "host/users", "kit/picture", "kit/content", "host/feed"} | IMAGE,
    # The cameras of other hosts.
    "host/peers": INTERFACES | {"host/base", "host/log", "host/events", "host/feed", "host/sources", "host/recordings", "kit/picture"},
    "host/settings": INTERFACES | {"host/base", "host/log", "host/users", "host/feed", "kit/settings"},
    # What cameras sent, on the disk, and out of it again.
    "host/recordings": {"platform", "host/base", "host/log", "host/events", "host/preferences", "host/feed", "kit/picture"},
    # Who else is told of events.
    "host/notices": {"platform", "host/base", "host/log", "host/tls", "host/events", "host/preferences"},
    # Programs of this machine, past the web server.
    "host/control": {"platform", "host/base", "host/log"},
    # Other hosts. What it is made of is loaded with the option for it, apart from the host's program.
    "host/cluster": {"platform", "host/base"},
    # A phone played towards the component.
    "host/bridge": INTERFACES | {"host/base", "host/log", "host/http", "host/users", "host/feed", "kit/component", "kit/connection"},
    # Pages as such: files that the program carries, pages without script, and their texts.
    "host/html": {"platform", "host/base", "host/http"},
    # One subject a room; they do not include each other.
    **{room: INTERFACES | HOUSE for room in SUBJECTS},
    # The table of addresses and the server.
    "host/site": INTERFACES | HOUSE | SUBJECTS,
    "host/main": INTERFACES | HOUSE | SUBJECTS | {"host/site"},
    # A phone shares nothing with the server that it talks to.
    "phone": {"platform"},
    # The house's own tools look behind the codec's facade.
    "tools": {"platform"} | IMAGE | FORMAT | ENGINES,
}

# Headers of other people's libraries, by their first letters, and the rooms that may use them. The component decodes and
# encodes JPEG itself.
LIBRARIES = {
    "zlib.h": {"src/runtime/archive"},
    "pugixml": {"platform"},
    "boost/": {"host/http", "host/site/live", "host/site/view"},
    "nlohmann/": {"host/events", "host/http", "host/feed", "host/recordings", "host/bridge", "host/main", "host/notices", "host/peers", "host/site/api", "host/site/events", "host/site/phone", "host/site/links", "host/site/live", "host/site/monitor", "host/site/recordings", "host/site/settings",
                  "host/site/view"},
    "crypt.h": {"host/users"},
    "openssl/": {"host/tls", "host/cluster"},
    "curl/": {"host/notices"},
    "mosquitto.h": {"host/notices"},
    "nats/": {"host/cluster"},
    "libxml/": {"host/site/mobile"},
    "libxslt/": {"host/site/mobile"},
    "qrencode.h": {"host/site/links"},
    "libavformat/": {"host/recordings"},
    "libavcodec/": {"host/recordings"},
    "libavutil/": {"host/recordings"},
    "sqlite3.h": {"host/recordings"},
    "zip.h": {"host/site/mobile"},
    "archive.h": {"host/site/recordings"},
    "archive_entry.h": {"host/site/recordings"},
    "turbojpeg.h": set(),
    "jpeglib.h": set(),
    "jerror.h": set(),
    "jmorecfg.h": set(),
}

# What the compiler adds to the C++ library for the processor that it compiles for, and the advice on large blocks of memory.
MACHINE_HEADERS = {"cpuid.h", "immintrin.h", "sys/mman.h"}
# Rooms that get along with the C++ library: no header of the system, no library.
PURE_ROOMS = {"src/image/kernels", "src/image/format"}

SOURCE = (".h", ".hpp", ".inl", ".c", ".cpp")
DIRECTIVE = re.compile(r"\s*#\s*include(?:_next)?\b\s*(.*)")
NAME = re.compile(r'"([^"]+)"|<([^>]+)>')


def rooms_by_length():
    return sorted(TABLE, key=len, reverse=True)


def room_of(path):
    for room in rooms_by_length():
        if path.startswith(room + "/"):
            return room
    return None


def sources(root):
    for top in ("src", "platform", "kit", "capi", "phone", "host", "tools"):
        for folder, folders, files in os.walk(os.path.join(root, top)):
            folders.sort()
            for name in sorted(files):
                if name.endswith(SOURCE):
                    yield os.path.relpath(os.path.join(folder, name), root)


def include_lines(root, path):
    """(line number, what follows the directive); lines within block comments do not count."""
    with open(os.path.join(root, path), encoding="utf-8", errors="replace") as file:
        text = file.read()
    text = re.sub(r"/\*.*?\*/", lambda comment: "\n" * comment[0].count("\n"), text, flags=re.S)
    for number, line in enumerate(text.split("\n"), 1):
        match = DIRECTIVE.match(line)
        if match:
            yield number, match[1].strip()


def resolve(root, path, name):
    """The file of the repository that the compiler would take for `name`, or None."""
    for base in (os.path.dirname(path), "", "src"):
        candidate = os.path.normpath(os.path.join(base, name))
        if not candidate.startswith("..") and os.path.isfile(os.path.join(root, candidate)):
            return candidate
    return None


def check_library(room, name):
    for prefix, users in LIBRARIES.items():
        if name.startswith(prefix) and room not in users:
            return f"{room} does not use the library of <{name}>"
    if room in PURE_ROOMS and name not in MACHINE_HEADERS and re.search(r"[./]", name):
        return f"{room} uses the C++ library alone, not <{name}>"
    return None


def check_line(root, path, room, text):
    """The file included (or None) and what is wrong with the line (or None)."""
    match = NAME.match(text)
    if not match:
        return None, f"cannot tell what is included by: {text}"
    quoted, angled = match[1], match[2]
    target = resolve(root, path, quoted or angled)
    if quoted and not target:
        return None, f'"{quoted}" is no file of this repository'
    if angled and not target:
        return None, check_library(room, angled)
    if angled:
        return target, f"<{angled}> is a file of this repository: use quotes"
    other = room_of(target)
    if other != room and other not in TABLE[room]:
        return target, f"{room} may not include {other or os.path.dirname(target)} ({target})"
    return target, None


def find_circle(graph):
    """One circle of the graph as a list that ends where it begins, or None."""
    done = set()
    for start in sorted(graph):
        trail, pending = [], [(start, iter(sorted(graph[start])))]
        while pending:
            node, edges = pending[-1]
            if not trail or trail[-1] != node:
                trail.append(node)
            following = next((edge for edge in edges if edge not in done and edge in graph), None)
            if following is None:
                done.add(node)
                trail.pop()
                pending.pop()
            elif following in trail:
                return trail[trail.index(following):] + [following]
            else:
                pending.append((following, iter(sorted(graph[following]))))
    return None


def check(root):
    """All violations, and the number of include lines read."""
    violations, lines = [], 0
    files, rooms = {}, {room: set() for room in TABLE}
    for path in sources(root):
        files[path] = set()
        room = room_of(path)
        if room is None:
            violations.append(f"{path}: stands in no room of the table")
            continue
        for number, text in include_lines(root, path):
            lines += 1
            target, wrong = check_line(root, path, room, text)
            if wrong:
                violations.append(f"{path}:{number}: {wrong}")
            if target:
                files[path].add(target)
                if room_of(target) not in (room, None):
                    rooms[room].add(room_of(target))
    for what, graph in (("rooms", rooms), ("files", files)):
        circle = find_circle(graph)
        if circle:
            violations.append(f"a circle of {what}: {' -> '.join(circle)}")
    return violations, lines


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..", "..")
    violations, lines = check(root)
    if lines == 0:
        violations.append(f"no include line found below {root}")
    for violation in violations:
        print(violation)
    print(f"{lines} include lines, {len(violations)} violations")
    return 1 if violations else 0


if __name__ == "__main__":
    sys.exit(main())
