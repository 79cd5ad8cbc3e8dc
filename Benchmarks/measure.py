#!/usr/bin/python3
"""Measures the library beside plain libcurl (Linux) or a bare WinHTTP loop (Wine) and writes Docs/Performance.md's tables and charts.

    Benchmarks/measure.py [--windows] [--rounds N] [--only WORD]        --windows and --only print, and write nothing

Needs a build with -DQUENDRA_BENCHMARKS=ON in build/linux (or build/windows), python3-matplotlib, nginx, openssl, and a machine that does nothing else.
Peers run in turn, as library, no event, plain, plain, no event, library; each round gives one ratio of each kind, and the tables show the
median and the quartiles of the rounds. Files are in memory (/dev/shm).
"""
import argparse
import contextlib
import json
import os
import pathlib
import socket
import statistics
import subprocess
import sys
import tempfile
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
DOCUMENT = ROOT / "Docs" / "Performance.md"
MEBIBYTE = 1 << 20

# name, kind, requests, bytes of a file, threads, aims with an event (rate, processor time)
WORK = [
    ("download, one file of 512 MiB", "download", 1, 512 * MEBIBYTE, 1, (1.5, 0.7)),
    ("upload, one file of 512 MiB", "upload", 1, 512 * MEBIBYTE, 1, (1.1, 1.0)),
    ("2,000 downloads of 16 KiB", "download", 2000, 16384, 1, (1.0, 1.1)),
    ("2,000 uploads of 16 KiB", "upload", 2000, 16384, 1, (0.95, 1.2)),
    ("5,000 `GetPathAttributes`, 1 thread", "attributes", 5000, 0, 1, (0.95, 1.2)),
    ("5,000 `GetPathAttributes`, 4 threads", "attributes", 5000, 0, 4, (0.8, 1.3)),
    ("5,000 `GetPathAttributes`, 32 threads", "attributes", 5000, 0, 32, (0.8, 1.3)),
    ("listings of 100 items, 200 times", "listing", 200, 100, 1, None),
    ("listings of 10,000 items, 5 times", "listing", 5, 10_000, 1, None),
]
# The same over TLS, through nginx.
TLS_WORK = [
    ("TLS: download, one file of 512 MiB", "download", 1, 512 * MEBIBYTE, 1),
    ("TLS: upload, one file of 512 MiB", "upload", 1, 512 * MEBIBYTE, 1),
    ("TLS: 5,000 `GetPathAttributes`, 1 thread", "attributes", 5000, 0, 1),
    ("TLS: 5,000 `GetPathAttributes`, 32 threads", "attributes", 5000, 0, 32),
]
PEERS = ["library", "no-event", "plain"]

NGINX = """
daemon off; worker_processes 1; pid {folder}/pid; error_log {folder}/error.log;
events {{ worker_connections 256; }}
http {{
    access_log off; client_max_body_size 0; client_body_temp_path {folder}/body; proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/f; uwsgi_temp_path {folder}/u; scgi_temp_path {folder}/s;
    keepalive_requests 1000000;
    upstream work {{ server 127.0.0.1:{upstream}; keepalive 64; keepalive_requests 1000000; }}
    server {{
        listen 127.0.0.1:{port} ssl; ssl_certificate {folder}/certificate; ssl_certificate_key {folder}/key;
        location / {{
            proxy_pass http://work; proxy_http_version 1.1; proxy_set_header Connection "";
            proxy_buffering off; proxy_request_buffering off;
        }}
    }}
}}
"""


class Bench:
    def __init__(self, windows):
        self.environment = dict(os.environ, TMPDIR="/dev/shm")
        platform = "windows" if windows else "linux"
        self.bin = ROOT / "build" / platform / "bin"
        self.prefix = [str(ROOT / "CMake" / "wine.sh"), str(ROOT / "build/windows/wineprefix")] if windows else []
        self.work = self.prefix + [str(self.bin / ("work.exe" if windows else "work"))]
        self.server = subprocess.Popen(self.work + ["serve"], stdin=subprocess.PIPE, stdout=subprocess.PIPE, env=self.environment)
        self.port = self.server.stdout.readline().decode().strip()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.server.stdin.close()
        self.server.wait(timeout=60)

    @contextlib.contextmanager
    def tls(self):
        """Runs nginx with TLS before the server; gives its URL."""
        with tempfile.TemporaryDirectory(dir="/dev/shm") as folder, socket.socket() as free:
            free.bind(("127.0.0.1", 0))
            port = free.getsockname()[1]
            free.close()
            words = "req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -addext subjectAltName=DNS:localhost -out certificate -keyout key"
            subprocess.run(["openssl", *words.split()], cwd=folder, check=True, capture_output=True)
            configuration = pathlib.Path(folder) / "nginx.conf"
            configuration.write_text(NGINX.format(folder=folder, upstream=self.port, port=port))
            self.environment["SSL_CERT_FILE"] = f"{folder}/certificate"
            nginx = subprocess.Popen(["nginx", "-c", configuration, "-e", f"{folder}/error.log"])
            try:
                time.sleep(1)
                yield f"https://localhost:{port}"
            finally:
                nginx.terminate()
                nginx.wait()
                del self.environment["SSL_CERT_FILE"]

    def run(self, peer, kind, count, size, threads, url=None):
        words = [peer, kind, url or self.port, str(count), str(size), str(threads)]
        out = subprocess.run(self.work + words, env=self.environment, check=True, capture_output=True, text=True).stdout
        elapsed, processor = map(float, out.split())
        return elapsed, processor

    def whole(self, command):
        """Elapsed and processor time of a whole process."""
        before = os.times()
        start = time.monotonic()
        subprocess.run(command, env=self.environment, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        after = os.times()
        used = after.children_user + after.children_system - before.children_user - before.children_system
        return time.monotonic() - start, used


def in_turn(rounds, measures):
    """Calls the measures A B ... B A in each round; returns for each the rounds' (elapsed, processor)."""
    results = {name: [] for name in measures}
    for _ in range(rounds):
        forth = [(name, measures[name]()) for name in measures]
        back = [(name, measures[name]()) for name in reversed(list(measures))]
        for name, (elapsed, processor) in forth:
            others = [value for other, value in back if other == name][0]
            results[name].append((elapsed + others[0], processor + others[1]))
    return results


def spread(values):
    middle = statistics.median(values)
    if len(values) < 2:
        return f"{middle:.2f}"
    low, _, high = statistics.quantiles(values, n=4)
    return f"{middle:.2f} ({low:.2f}-{high:.2f})"


def ratios(results, peer, plain="plain"):
    rate = [theirs[0] / ours[0] for ours, theirs in zip(results[peer], results[plain])]
    processor = [ours[1] / theirs[1] for ours, theirs in zip(results[peer], results[plain]) if theirs[1]]
    return rate, processor or [float("nan")]


def replace_section(text, name, body):
    begin, end = f"<!-- {name} -->", f"<!-- end of {name} -->"
    head, rest = text.split(begin)
    tail = rest.split(end)[1]
    return f"{head}{begin}\n{body}\n{end}{tail}"


def table(header, rows):
    lines = ["| " + " | ".join(header) + " |", "|" + "---|" * len(header)]
    return "\n".join(lines + ["| " + " | ".join(row) + " |" for row in rows])


def draw(path, rows):
    import matplotlib

    matplotlib.use("svg")
    matplotlib.rcParams["svg.hashsalt"] = "quendra"
    from matplotlib import pyplot

    names = [row[0].replace("`", "") for row in rows]
    figure, axes = pyplot.subplots(1, 2, figsize=(11, 0.5 * len(rows) + 1.2), sharey=True)
    for axis, column, title in ((axes[0], 1, "rate (more is better)"), (axes[1], 2, "processor time (less is better)")):
        axis.barh(names, [statistics.median(row[column]) for row in rows], color="#4878a8")
        axis.axvline(1, color="black", linewidth=1)
        axis.set_title(title)
    axes[0].invert_yaxis()
    figure.suptitle("The library with a cancel event and a progress callback, beside the HTTP library alone (1)")
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--windows", action="store_true", help="the Windows build under Wine")
    options.add_argument("--rounds", type=int, default=10)
    options.add_argument("--only", default="", help="only the work whose name has this; nothing is written")
    chosen = options.parse_args()

    rows, drawn = [], []
    with Bench(chosen.windows) as bench:

        def compare(name, work, aim=None, url=None):
            if chosen.only not in name:
                return
            results = in_turn(chosen.rounds, {peer: (lambda peer=peer: bench.run(peer, *work, url)) for peer in PEERS})
            event, without = ratios(results, "library"), ratios(results, "no-event")
            rows.append([name, spread(event[0]), spread(without[0]), spread(event[1]), spread(without[1]), f"{aim[0]} / {aim[1]}" if aim else ""])
            drawn.append((name, *event))
            print(*rows[-1], sep=" | ", flush=True)

        for name, *work, aim in WORK:
            compare(name, work, aim)
        if not chosen.windows:
            with bench.tls() as url:
                for name, *work in TLS_WORK:
                    compare(name, work, url=url)
        if not chosen.windows and not chosen.only:
            with tempfile.TemporaryDirectory(dir="/dev/shm") as folder:
                for name, ours, theirs in whole_processes(bench, folder):
                    results = in_turn(chosen.rounds, {"library": lambda: bench.whole(ours), "plain": lambda: bench.whole(theirs)})
                    rate, processor = ratios(results, "library")
                    rows.append([name, spread(rate), "", spread(processor), "", ""])
                    print(*rows[-1], sep=" | ", flush=True)
    if chosen.only or chosen.windows:
        return
    header = ["work", "rate, event", "rate, no event", "processor, event", "processor, no event", "aim: rate / processor, event"]
    text = replace_section(DOCUMENT.read_text(), "linux", table(header, rows))
    text = replace_section(text, "listing", listing(bench))
    text = replace_section(text, "growth", growth(chosen.rounds))
    DOCUMENT.write_text(text)
    draw(ROOT / "Docs" / "Performance.svg", drawn)


def whole_processes(bench, folder):
    """Programs as a user starts them, beside the curl program. The folder is for files."""
    file = pathlib.Path(folder) / "file"
    file.write_bytes(b"q" * 16384)
    url = f"http://127.0.0.1:{bench.port}"
    quendra = f"{bench.bin}/quendra --server http://127.0.0.1 --port {bench.port} --token t --quiet"
    hundred = "for i in $(seq 100); do {} || exit; done"
    curl = f"curl -sf -o /dev/null {url}/sync/folders/a"
    return [
        ("`quendra stat` beside `curl`, whole process", ["sh", "-c", f"{quendra} stat /a"], ["sh", "-c", curl]),
        (
            "100 times `quendra put` of 16 KiB beside `curl -T`",
            ["sh", "-c", hundred.format(f"{quendra} put {file} /a")],
            ["sh", "-c", hundred.format(f"curl -sf -o /dev/null -H Expect: -X POST -T {file} {url}/sync/folders/a")],
        ),
    ]


def listing(bench):
    out = subprocess.run([bench.bin / "ListingBenchmark", "--benchmark_format=json"], check=True, capture_output=True, text=True).stdout
    found = [entry for entry in json.loads(out)["benchmarks"] if entry["name"].startswith("Listing/")]
    rows = [[f"{int(entry['name'].split('/')[1]):,}", f"{entry['ratio']:.2f}", f"{entry['bytesPerItem']:.0f}"] for entry in found]
    return table(["items", "time beside the bare parse", "bytes that a record keeps"], rows)


def growth(rounds):
    rows = []
    with Bench(False) as bench:
        for count in (100, 1000, 10_000, 100_000):
            used = [bench.run("library", "attributes", count, 0, 1) for _ in range(max(1, min(rounds, 3)))]
            rows.append([f"{count:,} `GetPathAttributes`", f"{statistics.median(u[1] for u in used) / count * 1e6:.1f} us a request"])
        for mebibytes in (1, 16, 256, 1024):
            for kind in ("download", "upload"):
                used = [bench.run("library", kind, 1, mebibytes * MEBIBYTE, 1) for _ in range(max(1, min(rounds, 3)))]
                rows.append([f"{kind} of {mebibytes} MiB", f"{statistics.median(u[1] for u in used) / mebibytes * 1e6:.0f} us a MiB"])
    return table(["work", "processor time"], rows)


if __name__ == "__main__":
    sys.exit(main())
