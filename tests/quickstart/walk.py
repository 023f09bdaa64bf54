"""Does what README.md and docs/install.md tell a newcomer to do, command by command as the pages have them.

Every command of the pages, in their order, needs a line in the tables below: a page cannot change without being walked
again. README's are run in the source tree, with the programs that ./test has built, from a home folder of nobody's.
Those of docs/install.md are run in a clean root (see tests/package/cleanroot.py), which holds Debian's essential packages,
apt, systemd and what the package asks for. All of it happens in namespaces of its own, so that the ports and paths of the pages are
free and nothing stays.

What is not as the pages have it: `sudo` just runs its arguments, since the walk is root's. Nothing boots, so `systemctl`
starts and stops the command line of the unit, as its user; the unit itself is looked at by `systemd-analyze verify`. `xdg-open`
fetches its address. What is not walked says why in its line.
"""

import argparse
import base64
import fcntl
import http.client
import json
import os
import pty
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import termios
import time
import unittest

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "../.."))
sys.path.insert(0, os.path.join(ROOT, "tests/package"))
import cleanroot  # noqa: E402
import test_package  # noqa: E402

SKIPPED = 77
INSIDE = "MORROW_WALK_INSIDE"
PROGRAMS = r"(?:sudo |\./|build/|bench/|scripts/|morrowstream-\w+ |systemctl |systemd-|cmake |nft |chown |--[a-z])"
DATA = "/var/lib/morrowstream"

# In the root: what stands for systemd, with one unit.
SYSTEMCTL = r"""#!/bin/sh
case " $* " in *" morrowstream "* | *" morrowstream.service "* | *" daemon-reload "*) ;; *) exit 5 ;; esac
for word; do case $word in start|stop|restart|status|preset|is-enabled|is-active) action=$word ;; esac; done
unit=/usr/lib/systemd/system/morrowstream.service
enabled=/etc/systemd/system/multi-user.target.wants
field() { sed -n "s/^$1=-\?//p" $unit; }
running() { pid=$(cat /run/morrowstream.pid 2>/dev/null) && test -e "/proc/$pid/exe"; }  # not so of a zombie, which nobody may reap
end() { if running; then kill "$pid"; while running; do sleep 0.1; done; fi; }
begin() {
    . "$(field EnvironmentFile)"
    export MORROWSTREAM_OPTIONS
    command=$(field ExecStart)
    umask "$(field UMask)"
    setsid setpriv --reuid "$(field User)" --regid "$(field Group)" --clear-groups --no-new-privs sh -c "exec $command" \
        >>/run/morrowstream.log 2>&1 </dev/null &
    echo $! >/run/morrowstream.pid
}
case $action in
start) running || begin ;;
stop) end ;;
restart) end; begin ;;
preset) mkdir -p $enabled; ln -sf $unit $enabled ;;
is-enabled) test -e $enabled/morrowstream.service && echo enabled ;;
is-active) running ;;
status) running && echo "active (running)"; cat /run/morrowstream.log ;;
esac
"""


def commands(page):
    """The commands of a page in their order: lines of its fenced blocks, and spans of code that are one."""
    with open(os.path.join(ROOT, page), encoding="utf-8") as file:
        parts = re.split(r"^```.*\n", file.read(), flags=re.M)
    found = []
    for number, part in enumerate(parts):
        if number % 2:
            lines = part.replace("\\\n", " ").splitlines()
            found += [re.sub(r"\s+# .*", "", line) for line in lines if line.strip()]
        else:
            spans = (span.replace("\n", " ") for span in re.findall(r"`([^`]+)`", part))
            found += [span for span in spans if " " in span and re.match(PROGRAMS, span)]
    return found


def eventually(look, what, seconds=30):
    end = time.monotonic() + seconds
    while True:
        try:
            if found := look():
                return found
        except (OSError, http.client.HTTPException):
            pass
        if time.monotonic() > end:
            raise AssertionError(f"{what} has not come")
        time.sleep(0.1)


def ask(path, user=None, address="127.0.0.1"):
    """Status, type and body of an answer of the host of the pages; of one without end just its beginning."""
    connection = http.client.HTTPConnection(address, 8080, timeout=20)
    try:
        lines = {"Authorization": "Basic " + base64.b64encode(user.encode()).decode()} if user else {}
        connection.request("GET", path, headers=lines)
        answer = connection.getresponse()
        kind = answer.headers.get_content_type()
        return answer.status, kind, answer.read(100) if kind.startswith("multipart/") else answer.read()
    finally:
        connection.close()


def shown_size(jpeg):
    shown = subprocess.run(["djpeg", "-pnm"], input=jpeg, check=True, stdout=subprocess.PIPE).stdout
    return shown.split(b"\n", 2)[1].decode()


class Walk(unittest.TestCase):
    maxDiff = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.shell = ["sh", "-c"]
        self.place = ROOT
        self.environment = {"PATH": os.environ["PATH"], "LC_ALL": "C.UTF-8", "DEBIAN_FRONTEND": "noninteractive"}
        self.after = None

    def run_page(self, page, table):
        """Each row: how its command begins, and what is done with it or why it is not walked."""
        told = commands(page)
        for number, command in enumerate(told):
            self.assertLess(number, len(table), f"{page} has a command that the walk does not know: {command}")
            begin, step = table[number]
            self.assertTrue(command.startswith(begin), f'{page}: "{begin}..." was expected, there is: {command}')
            begun = time.monotonic()
            if callable(step):
                step(command)
            print(f"{time.monotonic() - begun:5.1f} s  {command}{'' if callable(step) else '  (not walked: ' + step + ')'}", flush=True)
        self.assertEqual([row[0] for row in table[len(told):]], [], "no longer in the page")

    def do(self, command, **options):
        """Runs it where the page is read, and returns what it says."""
        options = {"stdin": subprocess.DEVNULL, "timeout": 600, **options}
        if "input" in options:
            del options["stdin"]
        result = subprocess.run([*self.shell, command], cwd=self.place, env=self.environment, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, errors="replace", check=False, **options)
        self.assertEqual(result.returncode, 0, f"{command}\n{result.stdout}")
        return result.stdout

    def says(self, pattern):
        return lambda command: self.assertRegex(self.do(command), pattern, command)


class Readme(Walk):
    def setUp(self):
        super().setUp()
        self.home = os.path.join(self.folder, "home")
        self.place = os.path.join(self.folder, "desk")  # what the commands write stays out of the source tree
        tools = os.path.join(self.folder, "tools")
        for folder in (self.home, self.place, tools):
            os.makedirs(folder)
        for name in ("build", "phone"):
            os.symlink(os.path.join(ROOT, name), os.path.join(self.place, name))
        with open(tools + "/xdg-open", "w", encoding="utf-8") as file:
            file.write('#!/bin/sh\ntimeout 2 curl --silent --fail --include --user "admin:$ADMIN" "$1" || test $? = 124\n')
        os.chmod(file.name, 0o755)
        self.environment |= {"HOME": self.home, "PATH": tools + ":" + os.environ["PATH"]}
        self.server = None
        self.addCleanup(self.end)

    def begin(self, command):
        """./run, which is the source tree's, until pages are answered and it has said where."""
        self.end()
        self.log = os.path.join(self.folder, "log")
        with open(self.log, "wb") as log:
            self.server = subprocess.Popen(["sh", "-c", "exec " + command], cwd=ROOT, env=self.environment, stdout=log,
                                           stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL)

        def answered():
            self.assertIsNone(self.server.poll(), test_package.content(self.log).decode())
            said = test_package.content(self.log).decode()
            folder = re.search(r"^Data folder: (.*)\n", said, re.M)
            if folder is None or ask("/healthz")[0] != 200:
                return False
            self.assertIn("\nOpen http://127.0.0.1:8080/", "\n" + said)
            self.data = folder[1]
            return True

        eventually(answered, command, 900)
        self.environment["ADMIN"] = test_package.content(self.data + "/admin-password").decode().strip()

    def end(self):
        """As Ctrl-C does; what is said until then."""
        if self.server is None:
            return ""
        server, self.server = self.server, None
        server.send_signal(signal.SIGINT)
        self.assertEqual(server.wait(30), 0, test_package.content(self.log).decode())
        return test_package.content(self.log).decode()

    def demo(self, command):
        self.begin(command)
        eventually(lambda: self.camera("gate")["connected"] and self.camera("yard")["frames"] >= 40, "the demo's pictures")

    def camera(self, name):
        return next(camera for camera in json.loads(ask("/health")[2])["cameras"] if camera["name"] == name)

    def snapshot(self, command):
        self.do(command)
        self.assertEqual(shown_size(test_package.content(self.place + "/yard.jpg")), "320 240")

    def upload(self, command):
        with subprocess.Popen(["sh", "-c", "exec " + command], cwd=self.place, stdout=subprocess.DEVNULL) as phone:
            eventually(lambda: self.camera("spare")["frames"] > 5, command)
            phone.send_signal(signal.SIGINT)
        for wrong in (("demo", "wrong"), ("spare", "nobody")):
            self.assertNotEqual(subprocess.run(["sh", "-c", command.replace(*wrong)], cwd=self.place, timeout=20, check=False,
                                               stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL).returncode, 0, wrong)

    def view(self, command):
        self.do(command)
        pictures = sorted(os.listdir(self.place + "/pictures"))
        self.assertEqual(len(pictures), 20)
        self.assertEqual(shown_size(test_package.content(f"{self.place}/pictures/{pictures[-1]}")), "240 320")

    def others(self, command):
        said = self.end()
        for camera, least, most in (("yard", 9, 11), ("gate", 4.5, 5.5)):
            self.assertRegex(said, rf"(?m)^{camera}: .* all arrived$")
            rate = float(re.findall(rf"(?m)^{camera} +connected +([\d.]+) fps", said)[-1])
            self.assertTrue(least <= rate <= most, f"{camera}: {rate} pictures a second")
        self.own(command)
        eventually(lambda: json.loads(ask("/health", "admin:" + self.environment["ADMIN"])[2])["cameras"][0]["frames"] > 5, "the demo's pictures")
        self.assertIn(f'\nSign in as "admin"; the password stands in {self.data}/admin-password\n', test_package.content(self.log).decode())

    def own(self, command):
        self.begin(command)
        self.assertEqual(ask("/", address="127.0.0.5")[0], 401)
        self.assertEqual(ask("/settings", "admin:" + self.environment["ADMIN"])[0], 200)

    def user(self, command):
        self.do(command.replace("NAME", "guard"), input="watchful one\n")
        self.assertEqual(eventually(lambda: ask("/", "guard:watchful one")[0] == 200, "the new user"), True)

    def test_as_it_reads(self):
        figure = "a figure of this machine: docs/measurements.md"
        self.run_page("README.md", [
            ("./run", self.demo),
            ("./test", "runs this walk itself"),
            ("curl ", self.snapshot),
            ("curl ", self.says(r'"name":"gate","type":"160x120","connected":true')),
            ("curl ", self.says(r'(?m)^morrowstream_camera_connected\{camera="yard"\} 1$')),
            ("curl ", self.says(r'<html lang="es"')),
            ("xdg-open ", self.says("(?s)200 OK.*multipart/.*image/jpeg")),
            ("xdg-open ", self.says("(?s)200 OK.*text/html")),
            ("xdg-open ", self.says("(?s)200 OK.*text/html")),
            ("build/release/bin/morrowstream-phone upload ", self.upload),
            ("build/release/bin/morrowstream-phone view ", self.view),
            ("./run ", self.others),
            ("./run ", self.own),
            ("build/release/bin/morrowstream-host ", self.user),
            ("bench/compare ", figure), ("bench/load ", figure), ("bench/load ", figure)])


class Install(Walk):
    def setUp(self):
        super().setUp()
        subprocess.run(["mount", "-t", "tmpfs", "tmpfs", self.folder], check=True)
        self.addCleanup(subprocess.run, ["umount", "--lazy", self.folder], check=True)
        self.root = os.path.join(self.folder, "root")

    def package(self, command):
        """From the source tree to the clean root, where the rest of the page is read."""
        self.do(command)
        tree = self.path("/root/morrowstream/build/release")
        test_package.BUILD = os.path.join(ROOT, "build/release")
        wanted = test_package.depends(test_package.SERVER)
        cleanroot.make(self.root, [*wanted, *([name] for name in ("apt", "mawk", "systemd"))])
        os.makedirs(tree)
        for name in test_package.SERVER:
            shutil.copy(test_package.package(name), tree)
        for name, text in (("/usr/bin/systemctl", SYSTEMCTL), ("/usr/bin/sudo", '#!/bin/sh\nexec "$@"\n')):
            with open(self.path(name), "w", encoding="utf-8") as file:
                file.write(text)
            os.chmod(file.name, 0o755)
        os.makedirs(self.path("/run/systemd/system"), exist_ok=True)
        subprocess.run(["mount", "-t", "proc", "proc", self.path("/proc")], check=True)
        self.shell = ["chroot", self.root, "sh", "-c", 'cd "$HOME/morrowstream" && eval "$1"', "sh"]
        self.environment |= {"HOME": "/root", "PATH": "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"}

    def path(self, name):
        return self.root + name

    def install(self, command):
        self.do(command, input="y\n")
        self.answers()
        self.assertEqual(os.stat(self.path(DATA)).st_mode & 0o777, 0o700)
        with open(self.path("/usr/lib/systemd/system/morrowstream.service"), encoding="utf-8") as file:
            self.assertIn("\nExecStart=", file.read())
        subprocess.run(["systemd-analyze", "--root=" + self.root, "--man=no", "verify", "morrowstream.service"], check=True)

    def answers(self):
        eventually(lambda: ask("/healthz")[0] == 200, "the service")

    def without_package(self, command):
        """From the source tree again, to a place that is nobody's yet."""
        place = os.path.join(self.folder, "staged")
        subprocess.run(command, shell=True, check=True, cwd=ROOT, env={**os.environ, "DESTDIR": place},
                       stdout=subprocess.DEVNULL)
        version = subprocess.run([place + "/usr/local/bin/morrowstream-host", "--help"], check=True, stdout=subprocess.PIPE)
        self.assertIn(b"morrowstream-host", version.stdout)

    def password(self, command):
        self.assertEqual(ask("/settings", "admin:" + self.do(command).strip())[0], 200)

    def at_a_terminal(self, command):
        child, terminal = pty.fork()
        if child == 0:
            os.execvpe(self.shell[0], [*self.shell, command], self.environment)
        for answer in (b"watchful one\n", b"watchful one\n"):
            said = b""
            while not said.rstrip().endswith(b":"):
                said += os.read(terminal, 1000)
            # What is typed before the terminal is silent may be thrown away.
            eventually(lambda: not termios.tcgetattr(terminal)[3] & termios.ECHO, "silence")
            time.sleep(0.3)
            os.write(terminal, answer)
            self.assertNotIn(b"watchful", said, "not shown")
        self.assertEqual(os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]), 0)
        os.close(terminal)
        self.guard("watchful one")

    def guard(self, password):
        eventually(lambda: ask("/", "guard:" + password)[0] == 200, "the new user")

    def piped(self, command):
        self.do(command)
        self.guard("PASSWORD")
        owner = os.stat(self.path(DATA)).st_uid
        self.assertEqual(os.stat(self.path(DATA + "/users")).st_uid, owner)

    def let_in(self, command):
        file = self.path("/etc/default/morrowstream")
        text = test_package.content(file).decode()
        with open(file, "w", encoding="utf-8") as changed:
            changed.write(re.sub('(?m)^MORROWSTREAM_OPTIONS=".*"$', f'MORROWSTREAM_OPTIONS="{command}"', text))
        self.do("systemctl restart morrowstream")
        self.answers()
        self.assertEqual(ask("/healthz", address="127.0.0.5")[0], 200)

    def change_admin(self, command):
        self.assertTrue(os.path.exists(self.path(DATA + "/admin-password")))
        self.do(f"sudo morrowstream-host --data {DATA} {command}", input="a new password\n")
        eventually(lambda: ask("/settings", "admin:a new password")[0] == 200, "the new password")
        self.assertFalse(os.path.exists(self.path(DATA + "/admin-password")))

    def security(self, command):
        program, action, unit = command.split()
        subprocess.run([program, action, "--offline=true", "--root=" + self.root, unit + ".service"], check=True,
                       stdout=subprocess.DEVNULL)

    def restore(self, command):
        self.do("systemctl stop morrowstream")
        self.do(f"rm -rf {DATA} && tar -C /var/lib -xzf morrowstream-backup.tar.gz")
        self.do(command)
        self.do("systemctl start morrowstream")
        self.answers()
        self.guard("PASSWORD")

    def upgrade(self, command):
        for newer in test_package.next_version(self.folder):
            shutil.copy(newer, self.path("/root/morrowstream"))
        self.do(command, input="y\n")
        self.assertIn("+next", self.do("dpkg --status morrowstream"))
        self.answers()
        self.guard("PASSWORD")

    def remove(self, command):
        self.do(command, input="y\n")
        self.assertFalse(os.path.exists(self.path("/usr/bin/morrowstream-host")))
        self.assertTrue(os.path.exists(self.path(DATA + "/users")))

    def purge(self, command):
        self.do(command, input="y\n")
        self.assertFalse(os.path.exists(self.path(DATA)))
        self.assertNotIn(b"morrowstream", test_package.content(self.path("/etc/passwd")))

    def test_as_it_reads(self):
        editor = "opens an editor"
        self.run_page("docs/install.md", [
            ("./test", "runs this walk itself"),
            ("scripts/build ", self.package),
            ("sudo apt install ", self.install),
            ("cmake --install ", self.without_package),
            ("sudo cat ", self.password),
            ("systemctl status ", self.says("running")),
            ("sudo morrowstream-host ", self.at_a_terminal),
            ("echo ", self.piped),
            ("--listen ", self.let_in),
            ("nft ", "a rule of somebody's own firewall"),
            ("--add-user ", self.change_admin),
            ("systemd-analyze ", self.security),
            ("sudo tar ", self.do),
            ("chown ", self.restore),
            ("sudo apt install ", self.upgrade),
            ("sudo apt remove ", self.remove),
            ("sudo apt purge ", self.purge),
            ("systemctl edit ", editor), ("systemctl edit ", editor)])


def raise_loopback():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as any_socket:
        fcntl.ioctl(any_socket, 0x8914, struct.pack("16sH14x", b"lo", 0x41))  # SIOCSIFFLAGS: up and running


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__.split("\n", 1)[0])
    arguments, rest = parser.parse_known_args()
    if INSIDE not in os.environ:
        apart = ["unshare", "--net", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc"]
        if os.geteuid() != 0 or subprocess.run([*apart, "true"], stderr=subprocess.DEVNULL, check=False).returncode != 0:
            print("The walk needs namespaces of its own, so it was skipped: run it as root.")
            raise SystemExit(SKIPPED)
        os.environ[INSIDE] = "1"
        os.execvp(apart[0], [*apart, sys.executable, "-B", os.path.abspath(__file__), *rest])
    raise_loopback()
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)
