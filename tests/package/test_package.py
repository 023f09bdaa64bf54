"""The Debian packages: installed into a clean root, started there, upgraded over themselves, removed and purged; and
servers of others built against them."""

import argparse
import base64
import concurrent.futures
import ctypes
import glob
import gzip
import json
import os
import re
import shlex
import shutil
import signal
import socket
import subprocess
import tempfile
import time
import unittest
import urllib.error
import urllib.request

import cleanroot

SKIPPED = 77
USER = "morrowstream"
DATA = "/var/lib/morrowstream"
LIBRARIES = "/usr/lib/x86_64-linux-gnu"
MODULE = LIBRARIES + "/libmorrowstream.so.1"
FORMER_MODULE = "/usr/lib/morrowstream/libmorrowstream.so"
ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))
PR_SET_MDWE, PR_MDWE_REFUSE_EXEC_GAIN = 65, 1
SERVER = ("libmorrowstream1", "morrowstream")
DEVELOPMENT = ("libmorrowstream1", "morrowstream-dev")
BUILD = ""  # where the packages are
OPTIONS = None


def run(*command, **options):
    result = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, timeout=100, **options)
    if result.returncode != 0:
        raise AssertionError(f"{shlex.join(command)}: status {result.returncode}\n{result.stdout}")
    return result.stdout


def content(path):
    with open(path, "rb") as file:
        return file.read()


def package(name):
    found = glob.glob(f"{BUILD}/{name}_*_amd64.deb")
    assert len(found) == 1, f"{name}: {found}"
    return found[0]


def control(name, field):
    return run("dpkg-deb", "--field", package(name), field).strip()


def depends(names):
    """What packages ask for besides each other."""
    groups = [group for name in names for group in cleanroot.parse_depends(control(name, "Depends"))]
    return [group for group in groups if group[0] not in names]


def extract(folder, *names):
    for name in names:
        run("dpkg-deb", "--extract", package(name), folder)
    return folder


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Machine:
    """The clean root, and the service in it as the unit's lines start it."""

    def __init__(self, folder):
        self.root = os.path.join(folder, "root")
        cleanroot.make(self.root, depends(SERVER))
        self.service = None
        self.port = free_port()

    def path(self, name):
        return self.root + name

    def dpkg(self, *arguments):
        environment = {**os.environ, "DEBIAN_FRONTEND": "noninteractive"}
        log = "--log=" + self.path("/var/log/dpkg.log")
        return run("dpkg", "--root=" + self.root, log, *arguments, env=environment)

    def as_user(self, *command, **options):
        return run(*self._entered(command), **options)

    def _entered(self, command):
        user = ["setpriv", "--reuid", USER, "--regid", USER, "--clear-groups", "--no-new-privs"]
        return ["chroot", self.root, *user, *command]

    def unit(self, key):
        text = content(self.path("/usr/lib/systemd/system/morrowstream.service")).decode()
        return re.search(rf"^{key}=-?(.*)$", text, re.MULTILINE)[1]

    def start(self):
        text = content(self.path(self.unit("EnvironmentFile")))
        options = re.search(rb'^MORROWSTREAM_OPTIONS="(.*)"$', text, re.MULTILINE)[1]
        command = self.unit("ExecStart").replace("$MORROWSTREAM_OPTIONS", options.decode())
        assert (self.unit("User"), self.unit("NoExecPaths"), self.unit("LimitCORE")) == (USER, DATA, "0")
        protect = self.unit("MemoryDenyWriteExecute") == "yes"
        libc = ctypes.CDLL(None)

        def confine():
            os.umask(0o077)
            if protect:  # kernels before 6.3 do not know it
                libc.prctl(PR_SET_MDWE, PR_MDWE_REFUSE_EXEC_GAIN, 0, 0, 0)

        environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin"}
        with open(self.root + ".log", "ab") as log:
            self.service = subprocess.Popen(self._entered(shlex.split(command)), preexec_fn=confine, env=environment,
                                            stdout=log, stderr=subprocess.STDOUT)
        deadline = time.monotonic() + 30
        while True:
            try:
                return self.get("/", "nobody:wrong")
            except OSError:
                if self.service.poll() is not None or time.monotonic() > deadline:
                    raise AssertionError("the service did not come up:\n" + content(log.name).decode()) from None
                time.sleep(0.05)

    def stop(self):
        """The service's exit status."""
        service, self.service = self.service, None
        if service is None:
            return None
        service.send_signal(signal.SIGTERM)
        return service.wait(20)

    def get(self, path, user):
        """Status and body."""
        request = urllib.request.Request(f"http://127.0.0.1:{self.port}{path}")
        request.add_header("Authorization", "Basic " + base64.b64encode(user.encode()).decode())
        try:
            with urllib.request.urlopen(request, timeout=20) as answer:
                return answer.status, answer.read()
        except urllib.error.HTTPError as error:
            return error.code, error.read()

    def files(self):
        """All that stands in the root, with the contents of the user tables; not what the system's own tools keep."""
        found = set()
        for folder, folders, names in os.walk(self.root):
            found.update(os.path.join(folder, name)[len(self.root):] for name in folders + names)
        theirs = re.compile(r"/var/(lib/dpkg|log|cache)\b|/etc/(passwd|group|g?shadow|sub[ug]id)-$|/etc/\.pwd\.lock$|/run/adduser$")
        kept = {name for name in found if not theirs.match(name)}
        return kept, {name: content(self.path("/etc/" + name)) for name in ("passwd", "group")}


def next_version(folder):
    """The server's packages under a higher version."""
    version = control("morrowstream", "Version")
    made = []
    for name in SERVER:
        tree = os.path.join(folder, name + "_NEWER")
        run("dpkg-deb", "--raw-extract", package(name), tree)
        file = tree + "/DEBIAN/control"
        text = content(file).decode()
        with open(file, "w", encoding="utf-8") as new:
            new.write(re.sub(rf"(^Version: |\(= ){re.escape(version)}", r"\g<0>+next", text, flags=re.MULTILINE))
        run("dpkg-deb", "--build", "--root-owner-group", "-Znone", tree, tree + ".deb")
        made.append(tree + ".deb")
    return made


class TestInAFolder(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name


class Packages(TestInAFolder):
    def setUp(self):
        super().setUp()
        self.machine = Machine(self.folder)
        self.addCleanup(self.machine.stop)

    def upload_and_look(self):
        machine = self.machine
        machine.as_user("/usr/bin/morrowstream-phone", "upload", "--server", f"127.0.0.1:{machine.port}", "--login", "yard",
                        "--password", "secret", "--pictures", "/usr/share/morrowstream/pictures/yard", "--frames", "5")
        status, jpeg = machine.get("/snapshot/yard.jpg", "guard:watchful")
        self.assertEqual(status, 200)
        pixels = subprocess.run(["djpeg", "-pnm"], input=jpeg, check=True, stdout=subprocess.PIPE).stdout
        self.assertEqual(pixels.split(b"\n")[1], b"320 240")

    def registered(self):
        return MODULE.encode() in content(self.machine.path(DATA + "/registry"))

    def test_lives_from_installation_to_purge(self):
        machine = self.machine
        before = machine.files()
        machine.dpkg("--install", *map(package, SERVER))
        state = os.stat(machine.path(DATA))
        self.assertEqual(state.st_mode & 0o777, 0o700)
        self.assertNotEqual(state.st_uid, 0)
        self.assertTrue(self.registered())
        self.assertEqual(sorted(os.listdir(machine.path(DATA))), ["registry"], "no password that anybody knows")
        self.assertTrue(os.path.islink(machine.path("/etc/systemd/system/multi-user.target.wants/morrowstream.service")))

        settings = machine.path("/etc/default/morrowstream")
        with open(settings, "w", encoding="utf-8") as file:
            file.write(f'MORROWSTREAM_OPTIONS="--listen 127.0.0.1:{machine.port} --quiet"\n')
        run("chroot", machine.root, "/usr/bin/morrowstream-host", "--data", DATA, "--add-user", "guard", "--kind", "viewer",
            input="watchful\n")
        self.assertEqual(os.stat(machine.path(DATA + "/users")).st_uid, state.st_uid, "what root writes the service can read")
        machine.as_user("sh", "-c", f"printf 'yard\\t320x240\\tsecret\\n' > {DATA}/cameras")
        self.assertEqual(machine.start()[0], 401)
        password = content(machine.path(DATA + "/admin-password")).decode().strip()
        self.assertEqual(machine.get("/settings", "admin:" + password)[0], 200)
        self.assertEqual(os.stat(machine.path(DATA + "/cameras.stored")).st_mode & 0o777, 0o600)
        # A running server looks at its users once a second.
        run("chroot", machine.root, "/usr/bin/morrowstream-host", "--data", DATA, "--add-user", "boss", "--kind", "admin",
            input="watch them\n")
        time.sleep(1.1)
        self.assertEqual(machine.get("/settings", "boss:watch them")[0], 200)
        self.upload_and_look()
        self.assertIn("yard", json.dumps(json.loads(machine.get("/health", "guard:watchful")[1])))
        self.assertEqual(machine.stop(), 0)
        # A former version had the component elsewhere, and a registry that still says so is no matter.
        registry = machine.path(DATA + "/registry")
        now = content(registry).decode()
        with open(registry, "w", encoding="utf-8") as file:
            file.write(now.replace(MODULE, FORMER_MODULE))
        machine.start()
        self.upload_and_look()
        self.assertEqual(machine.stop(), 0)
        self.assertNotIn(" in place of ", content(machine.root + ".log").decode())
        kept = {name: content(name) for name in glob.glob(machine.path(DATA) + "/**", recursive=True) if os.path.isfile(name)}
        machine.dpkg("--install", *next_version(self.folder))
        kept[registry] = now.encode()
        self.assertIn("+next", machine.dpkg("--status", USER))
        self.assertEqual({name: content(name) for name in kept}, kept)
        self.assertIn(str(machine.port).encode(), content(settings), "the administrator's own lines stay")
        machine.start()
        self.upload_and_look()
        self.assertEqual(machine.stop(), 0)

        machine.dpkg("--remove", USER)
        self.assertFalse(self.registered())
        self.assertFalse(os.path.exists(machine.path("/usr/bin/morrowstream-host")))
        self.assertTrue(os.path.exists(machine.path(DATA + "/users")), "kept for the next installation")
        machine.dpkg("--purge", *SERVER)
        after = machine.files()
        self.assertEqual(after[0] ^ before[0], set())
        self.assertEqual(after[1], before[1])

    def test_its_papers_are_in_order(self):
        tree = extract(os.path.join(self.folder, "tree"), *SERVER, "morrowstream-dev")
        docs = tree + "/usr/share/doc/morrowstream/"
        for name in ("changelog.gz", "NEWS.Debian.gz"):
            with gzip.open(docs + name, "rt", encoding="utf-8") as file:
                self.assertTrue(file.readline().startswith(f"morrowstream ({control('morrowstream', 'Version')}) "), name)
        self.assertTrue(os.path.exists(tree + "/usr/lib/morrowstream/libmorrowstream-cluster.so"))
        self.assertNotIn("libnats", control("morrowstream", "Depends"), "what a cluster alone needs")
        self.assertIn("libnats", control("morrowstream", "Recommends"))
        for name in {*SERVER, *DEVELOPMENT}:
            self.assertIn(b"has not chosen a licence", content(f"{tree}/usr/share/doc/{name}/copyright"))
        for page in glob.glob(docs + "**/*.md", recursive=True):
            for target in re.findall(r"\]\((?!\w+:|#)([^)#]+)", content(page).decode()):
                self.assertTrue(os.path.exists(os.path.join(os.path.dirname(page), target)), f"{page}: {target}")

    def test_memory_follows_the_connections(self):
        tree = extract(os.path.join(self.folder, "tree"), "morrowstream")
        with open(self.folder + "/systemctl", "w", encoding="utf-8") as file:
            file.write('#!/bin/sh\necho "$@"\n')
        os.chmod(file.name, 0o755)
        for arguments, said in (("--quiet", "2560M"), ("--max-connections 100 --quiet", "712M"), ("--max-connections", "2560M"),
                                ("--max-connections 2x", ""), ("--max-connections 9999999", "")):
            wanted = f"set-property --runtime morrowstream.service MemoryMax={said}\n" if said else ""
            self.assertEqual(run(tree + "/usr/lib/morrowstream/memory-limit", *arguments.split(),
                                 env={"PATH": self.folder + ":/usr/bin:/bin"}), wanted, arguments)


class Development(TestInAFolder):
    """Who builds a server of his own, with the packages and a compiler."""

    def test_headers_are_usable_alone(self):
        include = extract(os.path.join(self.folder, "tree"), "morrowstream-dev") + "/usr/include/morrowstream"
        headers = sorted(os.path.relpath(name, include) for name in glob.glob(include + "/**/*.h", recursive=True))
        self.assertGreater(len(headers), 30)
        warnings = ["-Wall", "-Wextra", "-Wpedantic", "-Wconversion", "-Wshadow", "-Werror", "-fsyntax-only", "-I" + include]
        # One by one takes most of a minute, so only where that is asked for. What a header lacks is seen as well where those
        # that bring it along come behind it: in one of the two orders.
        sources = [("clang++", "c++20", [name]) for name in headers] if "MORROW_EVERY_HEADER" in os.environ else []
        sources += [("clang++", "c++20", names) for names in (headers[::-1], headers[1::2] + headers[::2])]
        sources += [(compiler, language, headers) for compiler, language in (("g++", "c++20"), ("g++", "c++23"), ("clang++", "c++23"))]

        def compile_source(number):
            compiler, language, names = sources[number]
            file = os.path.join(self.folder, f"{number}.cpp")
            with open(file, "w", encoding="utf-8") as source:
                source.write("".join(f'#include "{name}"\n' for name in names))
            run(compiler, f"-std={language.replace('23', '2b')}", *warnings, file)

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(compile_source, range(len(sources))))

    def test_a_server_is_built_and_run(self):
        root = os.path.join(self.folder, "root")
        tools = [["g++"], ["cmake"], ["make"], ["pkg-config", "pkgconf"], ["python3"]]
        cleanroot.make(root, depends(DEVELOPMENT) + tools)
        run("dpkg", "--root=" + root, "--install", *map(package, DEVELOPMENT), env={**os.environ, "DEBIAN_FRONTEND": "noninteractive"})
        for example in ("example-host", "example-c", "example-python"):
            shutil.copytree(f"{ROOT}/docs/{example}", f"{root}/root/{example}")
        # How it is built, where; its arguments behind the data folder, and what it says of a phone that sends.
        programs = (("cmake -B build . && cmake --build build && cp build/example-host /root/by-cmake", "example-host", ["0"], "door.pgm 320x240"),
                    ("g++ -std=c++20 main.cpp -o /root/by-hand $(pkg-config --cflags --libs morrowstream)", "example-host", ["0"],
                     "door.pgm 320x240"),
                    ("gcc page.c -o /root/in-c $(pkg-config --cflags --libs morrowstream-c)", "example-c", ["0", "door", "secret"],
                     "door: a phone sends"),
                    ("install phones.py /root/in-python", "example-python", ["0", "door:secret"], "door"))
        with concurrent.futures.ThreadPoolExecutor() as pool:
            list(pool.map(lambda program: run("chroot", root, "sh", "-c", f"cd /root/{program[1]} && {program[0]}"), programs))
        for program, (_, _, arguments, says) in zip(("by-cmake", "by-hand", "in-c", "in-python"), programs):
            with self.subTest(program):
                self.take_a_phone(["chroot", root, "/root/" + program, f"/root/data-{program}", *arguments], says)

    def take_a_phone(self, command, says):
        with subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True) as host:
            try:
                address = host.stdout.readline().removeprefix("listening on ").strip()
                run(OPTIONS.phone, "upload", "--server", address, "--login", "door", "--password", "secret",
                    "--pictures", ROOT + "/phone/pictures/yard", "--frames", "3")
                self.assertIn(says, host.stdout.readline())
            finally:
                host.send_signal(signal.SIGINT)
            said, _ = host.communicate(timeout=20)
        self.assertEqual(host.returncode, 0, said)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True, help="where the packages are")
    parser.add_argument("--phone", required=True)
    OPTIONS, names = parser.parse_known_args()
    BUILD = os.path.abspath(OPTIONS.build)
    if subprocess.run(["chroot", "/", "true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
        print("A clean root needs the right to chroot, so this test was skipped: run it as root.")
        raise SystemExit(SKIPPED)
    unittest.main(argv=["test_package", *names])
