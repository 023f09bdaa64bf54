"""What a picture of another host costs each program that it passes: processor time, messages, bytes."""

import json
import os
import time
import urllib.request

TICK = os.sysconf("SC_CLK_TCK")


def processor(pid):
    with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
        return sum(int(ticks) for ticks in file.read().rpartition(")")[2].split()[11:13]) / TICK


class Look:
    """The figures of a moment."""

    def __init__(self, machines, screens):
        self.at = time.monotonic()
        self.processor = {f"host {n}": processor(host.process.pid) for n, host in enumerate(machines.hosts, 1)}
        self.processor["NATS, all three"] = sum(processor(one.process.pid) for one in machines.nats)
        self.traffic = dict.fromkeys(("in_msgs", "out_msgs", "in_bytes", "out_bytes"), 0)
        for port in machines.monitors:
            with urllib.request.urlopen(f"http://127.0.0.1:{port}/varz", timeout=10) as answer:
                figures = json.loads(answer.read())
            for name in self.traffic:
                self.traffic[name] += figures[name]
        self.pictures = sum(len(screen.seen) for screen in screens)


def measure(machines, screens, seconds):
    """Per second, over that time."""
    begin = Look(machines, screens)
    time.sleep(seconds)
    end = Look(machines, screens)
    took = end.at - begin.at
    return ({name: (end.processor[name] - was) / took for name, was in begin.processor.items()},
            {name: (end.traffic[name] - was) / took for name, was in begin.traffic.items()}, (end.pictures - begin.pictures) / took)


def show(machines, screens, seconds, begin_to_look):
    """All phones are at host 1; then everybody looks at host 2."""
    alone, quiet, _ = measure(machines, screens, seconds)
    begin_to_look()
    time.sleep(3)
    looked, busy, pictures = measure(machines, screens, seconds)
    print(f"{pictures:.0f} pictures a second of host 1, looked at on host 2; for each of them:")
    print("| program | µs of a core |")
    print("|---|---|")
    for name, was in alone.items():
        print(f"| {name} | {1e6 * (looked[name] - was) / pictures:.0f} |")
    print("servers of NATS together: " + ", ".join(f"{(busy[name] - was) / pictures:.1f} {name}" for name, was in quiet.items()))
