"""The machines of a cluster, played on this one: servers of NATS, hosts and HAProxy, with the files of packaging/cluster.

Each machine has a loopback address of its own; or, as root, a network of its own (a network namespace, joined to the others by a
bridge), which can be cut off.
"""

import base64
import ctypes
import os
import re
import shutil
import socket
import subprocess
import sys
import threading
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent / "browser"))
from hostprogram import Host, free_port, wait  # noqa: E402

EXAMPLE = Path(__file__).resolve().parents[2] / "packaging/cluster"
SECRET = "0123456789abcdef0123456789abcdef"
ADDRESSES = ("10.0.0.1", "10.0.0.2", "10.0.0.3")  # those of the files
BRIDGE_ADDRESS = "10.0.0.6"
CLONE_NEWNET = 0x40000000


def program(name):
    found = shutil.which(name) or shutil.which(name, path="/usr/sbin:/sbin")
    if found is None:
        raise RuntimeError(f"{name} is missing: scripts/setup test installs it")
    return found


def example(name, changes):
    """The text of a file of packaging/cluster, with what its first lines ask to be put in."""
    text = (EXAMPLE / name).read_text(encoding="utf-8")
    for was, becomes in changes:
        assert was in text, (name, was)
        text = text.replace(was, becomes)
    return text


class Program:
    """A child process that can be killed, stopped and started again."""

    def __init__(self, command, log):
        self.command, self.log, self.process = command, log, None

    def start(self):
        with open(self.log, "ab") as log:
            self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=log, stderr=log)

    def kill(self):
        if self.process is not None:
            self.process.kill()
            self.process.wait()
            self.process = None

    freeze, thaw = Host.freeze, Host.thaw


class Nats(Program):
    """One server of NATS, whose store outlives it."""

    def __init__(self, folder):
        self.port = free_port()
        super().__init__([program("nats-server"), "-a", "127.0.0.1", "-p", str(self.port), "-js", "-sd", os.path.join(folder, "nats")],
                         os.path.join(folder, "nats.log"))

    @property
    def url(self):
        return f"nats://127.0.0.1:{self.port}"


class Loopback:
    """All machines are addresses of this one."""

    addresses = ("127.0.0.1", "127.0.0.2", "127.0.0.3")
    front = "127.0.0.1"

    def command(self, _machine):
        return []

    def connect(self, address, _machine=None, timeout=10):
        return socket.create_connection(address, timeout=timeout)

    def close(self):
        pass


class Namespaces:
    """Each machine has a network of its own; balancer, phones and people are on this one, at a bridge to all of them."""

    addresses = ADDRESSES
    front = BRIDGE_ADDRESS

    def __init__(self):
        self.name = f"mw{os.getpid() % 10000}"
        self.libc = ctypes.CDLL(None, use_errno=True)
        self.run("link", "add", self.name, "type", "bridge")
        self.run("addr", "add", f"{self.front}/29", "dev", self.name)
        self.run("link", "set", self.name, "up")
        for machine, address in enumerate(self.addresses):
            self.run("netns", "add", self.of(machine))
            self.run("link", "add", self.of(machine), "type", "veth", "peer", "name", "eth0", "netns", self.of(machine))
            self.run("link", "set", self.of(machine), "master", self.name, "up")
            self.run("-n", self.of(machine), "addr", "add", f"{address}/29", "dev", "eth0")
            subprocess.run([*self.command(machine), program("sysctl"), "-qp", EXAMPLE / "sysctl.conf"], check=True)
            for link in ("eth0", "lo"):
                self.run("-n", self.of(machine), "link", "set", link, "up")

    def of(self, machine):
        return f"{self.name}-{machine}"

    def run(self, *words, check=True):
        subprocess.run(["ip", *words], check=check, stdout=subprocess.DEVNULL, stderr=None if check else subprocess.DEVNULL)

    def command(self, machine):
        return ["ip", "netns", "exec", self.of(machine)]

    def connect(self, address, machine=None, timeout=10):
        """From this network, or from a machine's: a socket stays in the network of the thread that made it."""
        if machine is None:
            return socket.create_connection(address, timeout=timeout)
        made = []

        def work():
            with open(f"/run/netns/{self.of(machine)}", "rb") as network:
                if self.libc.setns(network.fileno(), CLONE_NEWNET) == 0:
                    try:
                        made.append(socket.create_connection(address, timeout=timeout))
                    except OSError as error:
                        made.append(error)

        thread = threading.Thread(target=work)
        thread.start()
        thread.join()
        if not made or isinstance(made[0], OSError):
            raise made[0] if made else OSError("no such network")
        return made[0]

    def cut(self, machine):
        """Nothing goes to that machine or comes from it; who is on it does not hear of that."""
        self.run("link", "set", self.of(machine), "nomaster")

    def mend(self, machine):
        self.run("link", "set", self.of(machine), "master", self.name)

    def close(self):
        for machine in range(len(self.addresses)):
            self.run("netns", "del", self.of(machine), check=False)
        self.run("link", "del", self.name, check=False)


class MachineHost(Host):
    """A host of the cluster: the administrator is the founder's."""

    def __init__(self, program_path, folder, listen, arguments, network, machine, founder):
        super().__init__(program_path, folder, arguments)
        self.address_text, _, port = listen.partition(":")
        self.port, self.listen = int(port), listen
        self.network, self.machine, self.founder = network, machine, founder or self
        self.admin_password = super().admin_password if founder is None else founder.admin_password
        self.token = None  # once there is one, it signs in

    def start(self, **options):
        command = [*self.network.command(self.machine), self.program, "--listen", self.listen, "--data", self.data, *self.arguments]
        with open(self.log.name, "ab") as log:
            self.process = subprocess.Popen(command, stdout=log, stderr=log, stdin=subprocess.DEVNULL, **options)

    def is_ready(self):
        if self.process.poll() is not None:
            raise RuntimeError(f"the host ended with status {self.process.returncode}:\n{self.log_tail()}")
        try:
            return self.ask("/readyz")[0] == 200
        except OSError:
            return False

    def ask(self, target, method="GET", body=None, timeout=5):
        """Status and body."""
        head = f"{method} {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n"
        basic = base64.b64encode(f"admin:{self.admin_password()}".encode()).decode()
        head += f"Authorization: Bearer {self.founder.token}\r\n" if self.founder.token else f"Authorization: Basic {basic}\r\n"
        if body is not None:
            head += f"Content-Type: application/json\r\nContent-Length: {len(body)}\r\n"
        with socket.create_connection((self.address_text, self.port), timeout=timeout) as connection:
            connection.sendall((head + "\r\n").encode() + (body or b""))
            answer = b""
            while part := connection.recv(65536):
                answer += part
        if not answer.startswith(b"HTTP/1.1 "):
            raise OSError("no answer")
        return int(answer[9:12]), answer.partition(b"\r\n\r\n")[2]


class Machines:
    """Three servers of NATS, three hosts, and a balancer in front of them."""

    def __init__(self, host_program, folder, network=None, cameras=(), password="demo", options=()):
        self.network = network or Loopback()
        self.folder = folder
        addresses = self.network.addresses
        client, route, port, self.port = (free_port() for _ in range(4))
        secret = os.path.join(folder, "secret")
        Path(secret).write_text(SECRET + "\n", encoding="utf-8")

        moved = [(ours, theirs) for ours, theirs in zip(ADDRESSES, addresses) if ours != theirs]
        self.nats, self.monitors = [], [free_port() for _ in range(3)]
        for machine in range(3):
            place = os.path.join(folder, str(machine + 1))
            os.makedirs(place)
            # As its first lines say: each has its own name and address, and routes to the others.
            text = example("nats-server.conf", [("morrow-1", f"morrow-{machine + 1}"), ("/var/lib/nats", os.path.join(place, "nats")),
                                                ("8222", str(self.monitors[machine])), ("4222", str(client))])
            own = {ADDRESSES[0]: ADDRESSES[machine], ADDRESSES[machine]: ADDRESSES[0]}
            text = re.sub("|".join(map(re.escape, own)), lambda found: own[found[0]], text)
            for was, becomes in [("6222", str(route)), *moved]:
                text = text.replace(was, becomes)
            config = os.path.join(place, "nats-server.conf")
            Path(config).write_text(text, encoding="utf-8")
            self.nats.append(Program([*self.network.command(machine), program("nats-server"), "-c", config], os.path.join(place, "nats.log")))

        given = re.search(r'OPTIONS="(.*)"', example("morrowstream.default", [("4222", str(client)), ("cams.example.org:8080", f"cams.example.org:{self.port}"), *moved]))[1].split()
        self.hosts = []
        for machine, address in enumerate(addresses):
            words = {**dict(zip(given, given[1:])), "--node": f"host-{machine + 1}", "--cluster-secret": secret}
            trusted = [word for one in {*addresses, self.network.front} for word in ("--trusted-proxy", one)]
            arguments = ["--quiet", "--allow-plain", *trusted, *(word for name in ("--public", "--node", "--cluster", "--cluster-secret") for word in (name, words[name])), *options]
            self.hosts.append(MachineHost(host_program, os.path.join(folder, str(machine + 1)), f"{address}:{port}", arguments, self.network,
                                          machine, self.hosts[0] if self.hosts else None))
        if cameras:
            self.hosts[0].write_cameras(cameras, password)

        config = os.path.join(folder, "haproxy.cfg")
        Path(config).write_text(example("haproxy.cfg", [("/dev/log local0", "stderr format raw local0"),
                                                    ("bind :8080", f"bind {self.network.front}:{self.port}"), (":8081\n", f":{port}\n"), *moved]), encoding="utf-8")
        subprocess.run([program("haproxy"), "-c", "-f", config], check=True, stdout=subprocess.DEVNULL)
        self.balancer = Program([program("haproxy"), "-db", "-f", config], os.path.join(folder, "haproxy.log"))

    @property
    def front(self):
        return (self.network.front, self.port)

    def start(self):
        for one in self.nats:
            one.start()
        founder, *others = self.hosts
        for hosts in ([founder], others):
            for host in hosts:
                host.start()
            for host in hosts:
                wait(f"{host.listen}", host.is_ready)
        self.balancer.start()
        wait("the balancer", self.answers)

    def answers(self):
        try:
            with socket.create_connection(self.front, timeout=5) as connection:
                connection.sendall(b"GET /readyz HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n")
                return connection.recv(100).startswith(b"HTTP/1.1 200")
        except OSError:
            return False

    def close(self):
        for one in (self.balancer, *self.nats):
            if one.process is not None:
                one.thaw()
                one.kill()
        for host in self.hosts:
            host.close()
        self.network.close()
