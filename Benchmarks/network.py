#!/usr/bin/python3
"""Measures the library beside plain libcurl over lines with delay, loss, outages and a router that forgets. Writes Docs/Performance.md's table.

    sudo Benchmarks/network.py [--rounds N] [--only WORD]               --only prints, and writes nothing

Client and server run in network namespaces of their own. Each has a TUN device; this program carries the packets between the two, late, at
the line's rate, or not at all. Needs root, /dev/net/tun, iproute2, and build/linux with -DQUENDRA_BENCHMARKS=ON.
"""
import argparse
import collections
import contextlib
import dataclasses
import fcntl
import heapq
import os
import random
import select
import statistics
import struct
import subprocess
import sys
import threading
import time

from measure import DOCUMENT, ROOT, replace_section, table

WORK = ROOT / "build" / "linux" / "bin" / "work"
CLIENT, SERVER = "10.213.0.1", "10.213.0.2"
MEBIBYTE = 1 << 20


@dataclasses.dataclass
class Line:
    """What lies between client and server."""

    delay: float = 0.0  # seconds each way
    rate: float = 6_250_000  # bytes a second from the server
    uplink: float = 6_250_000  # bytes a second to the server
    loss: float = 0.0  # the share of packets that are lost
    outage: tuple = ()  # begin and end, in seconds: nothing passes
    memory: float = float("inf")  # seconds of silence after which a router has forgotten a connection, and drops its packets

    QUEUE = 256 * 1024  # bytes that wait for the line; more are dropped


class Relay(threading.Thread):
    """Carries packets between the two devices until it is stopped."""

    def __init__(self, devices, line):
        super().__init__(daemon=True)
        self.devices, self.line = devices, line
        self.start_time = time.monotonic()
        self.is_stopped = False
        self.connections = 0
        self.start()

    def stop(self):
        self.is_stopped = True
        self.join()

    def run(self):
        line, waiting, order = self.line, [], 0
        free = [self.start_time] * 2  # when the line can take the next packet, up and down
        chance = random.Random(1)
        heard = {}
        while not self.is_stopped:
            now = time.monotonic()
            while waiting and waiting[0][0] <= now:
                _, _, target, packet = heapq.heappop(waiting)
                os.write(self.devices[target], packet)
            ready, _, _ = select.select(self.devices, [], [], min(0.05, max(0.0, waiting[0][0] - now) if waiting else 0.05))
            now = time.monotonic()
            for device in ready:
                packet = os.read(device, 2048)
                if packet[0] >> 4 != 4:
                    continue
                up = device == self.devices[0]
                rate = line.uplink if up else line.rate
                if line.outage and line.outage[0] <= now - self.start_time < line.outage[1] or chance.random() < line.loss:
                    continue
                if packet[9] == 6 and self.is_forgotten(packet, up, heard, now):
                    continue
                free[up] = max(free[up], now)
                if (free[up] - now) * rate > line.QUEUE:
                    continue
                free[up] += len(packet) / rate
                order += 1
                heapq.heappush(waiting, (free[up] + line.delay, order, 1 if up else 0, packet))

    def is_forgotten(self, packet, up, heard, now):
        source, target = struct.unpack_from("!HH", packet, 20)
        connection = (source, target) if up else (target, source)
        opens = packet[33] & 0x12 == 0x02
        self.connections += opens and up
        if not opens and now - heard.get(connection, 0) > self.line.memory:
            return True
        heard[connection] = now
        return False


def run(*words):
    return subprocess.run(words, check=True, capture_output=True, text=True).stdout


def open_device(name):
    device = os.open("/dev/net/tun", os.O_RDWR | os.O_NONBLOCK)
    no_packet_information, tun, TUNSETIFF = 0x1000, 0x0001, 0x400454CA
    fcntl.ioctl(device, TUNSETIFF, struct.pack("16sH", name.encode(), tun | no_packet_information))
    return device


@contextlib.contextmanager
def namespaces():
    """Makes the two namespaces; gives their names and the devices' descriptors."""
    names, devices = [f"quendra-{end}-{os.getpid()}" for end in ("client", "server")], []
    try:
        for end, (name, address) in enumerate(zip(names, (CLIENT, SERVER))):
            run("ip", "netns", "add", name)
            devices.append(open_device(f"qtun{end}"))
            run("ip", "link", "set", f"qtun{end}", "netns", name)
            inside = ["ip", "-n", name]
            run(*inside, "address", "add", f"{address}/24", "dev", f"qtun{end}")
            run(*inside, "link", "set", f"qtun{end}", "up")
            run(*inside, "link", "set", "lo", "up")
        yield names, devices
    finally:
        for device in devices:
            os.close(device)
        for name in names:
            subprocess.run(["ip", "netns", "delete", name], check=False, capture_output=True)


class Network:
    def __init__(self, names, devices):
        self.client, self.devices = ["ip", "netns", "exec", names[0]], devices
        server = ["ip", "netns", "exec", names[1], str(WORK), "serve", SERVER]
        self.server = subprocess.Popen(server, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.url = f"http://{SERVER}:{self.server.stdout.readline().strip()}"

    def close(self):
        self.server.stdin.close()
        self.server.wait(timeout=60)

    def measure(self, line, peer, kind, count, size, threads):
        """The elapsed seconds, or what went wrong; and the connections that were opened. With a count of 0 it is the first request's time."""
        relay = Relay(self.devices, line)
        try:
            words = [*self.client, str(WORK), peer, kind, self.url, str(count), str(size), str(threads)]
            start = time.monotonic()
            done = subprocess.run(words, capture_output=True, text=True, timeout=600)
            elapsed = time.monotonic() - start
            if done.returncode != 0:
                return done.stderr.strip(), relay.connections
            return float(done.stdout.split()[0]) if count else elapsed, relay.connections
        finally:
            relay.stop()


HEALTHY = [
    (f"{delay * 2000:.0f} ms" + (f", {loss:.0%} lost" if loss else ""), Line(delay=delay, loss=loss))
    for delay, loss in ((0.005, 0), (0.02, 0), (0.075, 0), (0.02, 0.01))
]
# name, kind, requests, bytes or items, threads
TASKS = [
    ("100 `GetPathAttributes`", "attributes", 100, 0, 1),
    ("640 `GetPathAttributes`, 64 threads", "attributes", 640, 0, 64),
    ("download of 16 MiB", "download", 1, 16 * MEBIBYTE, 1),
    ("upload of 16 MiB", "upload", 1, 16 * MEBIBYTE, 1),
    ("100 uploads of 16 KiB, 8 threads", "upload", 100, 16384, 8),
    ("listing of 10,000 items", "listing", 1, 10_000, 1),
]
# One run of the library each: what has to pass, whatever it takes.
HARD = [
    ("upload of 1 MiB at 64 kbit/s", Line(delay=0.05, uplink=8000), "upload", 0, MEBIBYTE),
    ("upload of 16 MiB, 10 s without a network", Line(delay=0.02, outage=(2, 12)), "upload", 0, 16 * MEBIBYTE),
    ("download of 16 MiB, 10 s without a network", Line(delay=0.02, outage=(2, 12)), "download", 0, 16 * MEBIBYTE),
    ("45 s of silence, and a router that forgets after 35 s", Line(delay=0.02, memory=35), "idle", 1, 45),
]


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--rounds", type=int, default=3)
    options.add_argument("--only", default="", help="only the work whose name has this; nothing is written")
    chosen = options.parse_args()

    rows, hard = [], []
    with namespaces() as (names, devices), contextlib.closing(Network(names, devices)) as network:
        for name, *task in TASKS:
            if chosen.only not in name:
                continue
            cells = []
            for _, line in HEALTHY:
                found = collections.defaultdict(list)
                for turn in range(chosen.rounds):
                    for peer in ("library", "plain") if turn % 2 == 0 else ("plain", "library"):
                        found[peer].append(network.measure(line, peer, *task))
                failed = [str(result) for results in found.values() for result, _ in results if not isinstance(result, float)]
                times = {peer: statistics.median(result for result, _ in results) for peer, results in found.items()} if not failed else {}
                opened = max(count for _, count in found["library"])
                cells.append(failed[0] if failed else f"{times['plain'] / times['library']:.2f} ({opened})")
            rows.append([name, *cells])
            print(*rows[-1], sep=" | ", flush=True)
        for name, line, kind, count, size in HARD:
            if chosen.only in name:
                result, _ = network.measure(line, "library", kind, count, size, 1)
                hard.append([name, f"{result:.0f} s" if isinstance(result, float) else result])
                print(*hard[-1], sep=" | ", flush=True)
    if chosen.only:
        return
    text = table(["work: rate beside plain libcurl (connections)", *(name for name, _ in HEALTHY)], rows)
    text += "\n\n" + table(["what has to pass", "time"], hard)
    DOCUMENT.write_text(replace_section(DOCUMENT.read_text(), "network", text))


if __name__ == "__main__":
    sys.exit(main())
