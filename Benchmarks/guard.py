#!/usr/bin/env python3
"""Compares what fixed work costs, in instructions and system calls, with recorded figures. Neither depends on the clock.

    Benchmarks/guard.py [--record] [BUILD]          default: build/linux, a build with -DQUENDRA_BENCHMARKS=ON

Needs valgrind and strace. Fails if work costs over 3% more instructions than recorded, or over 5% and half a call more system calls (25%
where blocks are what has arrived). Polls, receives, and what the allocator and locks ask of the system do not count: they depend on when the
server's bytes arrive. Where processes may not be traced, as in some containers, system calls are left out, and a line says so.
Figures hold for the compiler, libraries and processor that they were recorded with; elsewhere they are shown, and nothing fails.
`--record` writes Benchmarks/costs.json anew; do that when a change is worth its cost, and say so in the commit.
"""
import collections
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parent.parent
RECORD = ROOT / "Benchmarks" / "costs.json"
TOLERANCE = 0.03
CALLS_TOLERANCE = 0.05
CHANCE = {"download of 4 MiB": 0.25}  # each block is what has arrived, so their number varies
SOME_CALLS = 0.5  # what differs by chance between the short and the long run

# name: kind, bytes of a file or items of a listing, requests of the short and of the long run
WORK = {
    "GetPathAttributes": ("attributes", 0, 20, 120),
    "listing of 1,000 items": ("listing", 1000, 5, 15),
    "download of 16 KiB": ("download", 1 << 14, 20, 120),
    "upload of 16 KiB": ("upload", 1 << 14, 20, 120),
    "download of 4 MiB": ("download", 1 << 22, 2, 7),
    "upload of 4 MiB": ("upload", 1 << 22, 2, 7),
}


def run(command, **options):
    return subprocess.run(command, check=True, capture_output=True, text=True, **options)


def environment():
    """What the figures depend on besides the sources."""
    packages = ["g++", "libc6", "libcurl4", "libjsoncpp25", "libstdc++6", "valgrind"]
    versions = run(["dpkg-query", "-W", "-f", "${Package} ${Version}\n", *packages]).stdout.split("\n")[:-1]
    processor = re.search(r"model name\s*: (.*)", pathlib.Path("/proc/cpuinfo").read_text())
    return versions + [processor.group(1) if processor else "unknown processor"]


def instructions(work):
    with tempfile.NamedTemporaryFile() as out:
        told = run(["valgrind", "--tool=callgrind", f"--callgrind-out-file={out.name}", *work]).stderr
    return int(re.search(r"Collected : (\d+)", told).group(1))


def calls(work):
    with tempfile.NamedTemporaryFile("r") as out:
        run(["strace", "-f", "-o", out.name, *work])
        return sum(1 for line in out if re.match(r"\d+\s+(?!poll|recvfrom|brk|mmap|munmap|madvise|mremap|futex)\w+\(", line))


def measure(binary):
    kinds = [("instructions", instructions, 1)]
    if subprocess.run(["strace", "-o", os.devnull, "true"], capture_output=True).returncode == 0:
        # Tracing system calls is quick: more requests, less noise.
        kinds.append(("calls", calls, 8))
    else:
        print("strace cannot trace here: system calls are not compared")
    server = subprocess.Popen([binary, "serve"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    try:
        port = server.stdout.readline().strip()
        found = collections.OrderedDict()
        for name, (kind, size, few, many) in WORK.items():
            costs = {}
            for what, count, times in kinds:
                short, long = (count([binary, "library", kind, port, str(n * times), str(size)]) for n in (few, many))
                costs[what] = round((long - short) / (many - few) / times, 2)
            found[name] = costs
        return found
    finally:
        server.stdin.close()
        server.wait(timeout=60)


def main(arguments):
    record = "--record" in arguments
    build = next((word for word in arguments if not word.startswith("-")), "build/linux")
    found = measure(str(ROOT / build / "bin" / "work"))
    recorded = json.loads(RECORD.read_text()) if RECORD.exists() else {}
    failed = False
    for name, costs in found.items():
        before = recorded.get(name, costs)
        limits = {
            "instructions": before["instructions"] * (1 + TOLERANCE),
            "calls": before["calls"] * (1 + CHANCE.get(name, CALLS_TOLERANCE)) + SOME_CALLS,
        }
        worse = any(costs[what] > limits[what] for what in costs)
        failed = failed or worse
        told = ", ".join(f"{value:,.1f} {what} (recorded {before[what]:,.1f})" for what, value in costs.items())
        print(f"{'WORSE ' if worse else ''}{name}: {told}")
    here = environment()
    if record:
        RECORD.write_text(json.dumps({"environment": here, **found}, indent=1) + "\n")
    elif failed and recorded.get("environment") != here:
        print("not judged: recorded with " + ", ".join(recorded.get("environment", ["something else"])))
        print("here: " + ", ".join(here))
        return 0
    return 1 if failed and not record else 0


if __name__ == "__main__":
    os.environ["TMPDIR"] = "/dev/shm"
    sys.exit(main(sys.argv[1:]))
