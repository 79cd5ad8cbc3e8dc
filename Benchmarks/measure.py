#!/usr/bin/python3
"""Measures the library beside plain libcurl (Linux) or a bare WinHTTP loop (Wine) and writes Docs/Performance.md's tables and charts.

    Benchmarks/measure.py [--windows] [--rounds N] [--only WORD]        --windows and --only print, and write nothing

Needs a build with -DQUENDRA_BENCHMARKS=ON in build/linux (or build/windows), python3-matplotlib, nginx, openssl, and a machine that does nothing else.
Peers run in turn, as library, no event, plain, plain, no event, library; each round gives one ratio of each kind, and the tables show the
median and the quartiles of the rounds. Files are in memory (/dev/shm).

Under Wine the plain loop runs with a cancel event, too, the work is a tenth, and all programs share one processor: each call to the Wine server
is a change between processes, and on two processors its cost depends on where the kernel puts them.
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
    ("5,000 `GetPathAttributes`, 8 threads", "attributes", 5000, 0, 8, None),
    ("5,000 `GetPathAttributes`, 32 threads", "attributes", 5000, 0, 32, (0.8, 1.3)),
    ("5,000 `GetPathAttributes`, 64 threads", "attributes", 5000, 0, 64, None),
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

# Serves what is read from files, and passes what is posted on to the work server, over HTTP and TLS.
NGINX = """
daemon off; worker_processes 1; pid {folder}/pid; error_log {folder}/error.log;
events {{ worker_connections 256; }}
http {{
    access_log off; client_max_body_size 0; client_body_temp_path {folder}/body; proxy_temp_path {folder}/proxy;
    fastcgi_temp_path {folder}/f; uwsgi_temp_path {folder}/u; scgi_temp_path {folder}/s;
    sendfile on; keepalive_requests 1000000; default_type application/json;
    upstream work {{ server 127.0.0.1:{upstream}; keepalive 64; keepalive_requests 1000000; }}
    server {{
        listen 127.0.0.1:{port}; listen 127.0.0.1:{tls_port} ssl;
        ssl_certificate {folder}/certificate; ssl_certificate_key {folder}/key;
        root {folder}/root;
        location / {{ error_page 418 = @work; if ($request_method = POST) {{ return 418; }} }}
        location @work {{
            proxy_pass http://work; proxy_http_version 1.1; proxy_set_header Connection "";
            proxy_buffering off; proxy_request_buffering off;
        }}
    }}
}}
"""
FILES = {
    "endpoints": b'{"sync":{"1.3":{"path":"/sync"}}}',
    "sync/init": b'{"device_token_auth":true}',
    "sync/folders/a": b'{"name":"Quarterly report.docx","revision":"4f9c2e7a-1","directory":false,"creation_time":"2015-03-02T10:20:30.1234567Z",'
    b'"modification_time":"2016-02-29T23:59:59.7654321Z","size":1,"attributes":32,"permissions":"WRITE","folder_permissions":"WRITE"}',
    "sync/folders/16384": b"q" * 16384,
    f"sync/folders/{512 * MEBIBYTE}": b"q" * (512 * MEBIBYTE),
    f"sync/folders/{512 * MEBIBYTE // 10}": b"q" * (512 * MEBIBYTE // 10),
}


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
    def nginx(self):
        """Runs nginx; gives its port, and its URL with TLS."""
        with tempfile.TemporaryDirectory(dir="/dev/shm") as folder, socket.socket() as free, socket.socket() as free_for_tls:
            os.chmod(folder, 0o755)  # its worker is another user
            for path, content in FILES.items():
                file = pathlib.Path(folder) / "root" / path
                file.parent.mkdir(parents=True, exist_ok=True)
                file.write_bytes(content)
            ports = []
            for each in free, free_for_tls:
                each.bind(("127.0.0.1", 0))
                ports.append(each.getsockname()[1])
            free.close()
            free_for_tls.close()
            words = "req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=localhost -addext subjectAltName=DNS:localhost -out certificate -keyout key"
            subprocess.run(["openssl", *words.split()], cwd=folder, check=True, capture_output=True)
            configuration = pathlib.Path(folder) / "nginx.conf"
            configuration.write_text(NGINX.format(folder=folder, upstream=self.port, port=ports[0], tls_port=ports[1]))
            self.environment["SSL_CERT_FILE"] = f"{folder}/certificate"
            nginx = subprocess.Popen(["nginx", "-c", configuration, "-e", f"{folder}/error.log"])
            try:
                time.sleep(1)
                yield str(ports[0]), f"https://localhost:{ports[1]}"
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


def tenth_of(kind, count, size, threads):
    return kind, max(1, count // 10), size // 10 if size > MEBIBYTE else size, threads


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--windows", action="store_true", help="the Windows build under Wine")
    options.add_argument("--rounds", type=int, default=10)
    options.add_argument("--only", default="", help="only the work whose name has this; nothing is written")
    chosen = options.parse_args()

    if not chosen.only and not chosen.windows:
        import matplotlib  # fails here, not after ten minutes

        for program in "ListingBenchmark", "TracingBenchmark", "quendra":
            if not (ROOT / "build/linux/bin" / program).exists():
                sys.exit(f"build {program} first")
    if chosen.windows:
        os.sched_setaffinity(0, {min(os.sched_getaffinity(0))})
    rows, drawn = [], []
    # Under Wine each test of an event is a call to the Wine server, for every program that can be cancelled.
    plain_event = "plain-event" if chosen.windows else "plain"
    peers = dict.fromkeys(["library", "no-event", plain_event, "plain"])
    with Bench(chosen.windows) as bench:

        def compare(name, work, aim=None, url=None):
            if chosen.only not in name:
                return
            if chosen.windows:
                name, work = "a tenth of: " + name, tenth_of(*work)
            results = in_turn(chosen.rounds, {peer: (lambda peer=peer: bench.run(peer, *work, url)) for peer in peers})
            event, without = ratios(results, "library", plain_event), ratios(results, "no-event")
            rows.append([name, spread(event[0]), spread(without[0]), spread(event[1]), spread(without[1]), f"{aim[0]} / {aim[1]}" if aim else ""])
            drawn.append((name, *event))
            print(*rows[-1], sep=" | ", flush=True)

        with bench.nginx() as (port, url):
            for name, *work, aim in WORK:
                compare(name, work, aim, port if work[0] in ("download", "attributes") else None)
            for name, *work in TLS_WORK if not chosen.windows else []:
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
    items, listed = listing(bench)
    text = replace_section(text, "listing", items)
    text = replace_section(text, "tracing", tracing(bench))
    grown, lines = growth(chosen.rounds)
    text = replace_section(text, "growth", grown)
    DOCUMENT.write_text(text)
    draw(ROOT / "Docs" / "Performance.svg", drawn)
    draw_growth(ROOT / "Docs" / "Growth.svg", {**lines, "item of a listing": listed})


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
    counters = [("ratio", ".2f"), ("peakRatio", ".2f"), ("bytesPerItem", ".0f")]
    rows = [[f"{int(entry['name'].split('/')[1]):,}"] + [format(entry[name], form) for name, form in counters] for entry in found]
    listed = [(int(entry["name"].split("/")[1]), 1e6 / entry["items_per_second"]) for entry in found]
    return table(["items", "time beside the bare parse", "peak memory beside it", "bytes that a record keeps"], rows), listed


def tracing(bench):
    out = subprocess.run([bench.bin / "TracingBenchmark", "--benchmark_format=json"], check=True, capture_output=True, text=True).stdout
    rows = [[entry["label"], f"{entry['cpu_time']:.0f} ns"] for entry in json.loads(out)["benchmarks"]]
    return table(["listener", "a function with one message"], rows)


def growth(rounds):
    """What one request and one MiB cost as there are more of them: a table, and the lines of a chart."""
    requests, mebibytes = (100, 1000, 10_000, 100_000), (1, 16, 256, 1024)
    with Bench(False) as bench:

        def cost(kind, count, size, units):
            used = [bench.run("library", kind, count, size, 1)[1] for _ in range(min(rounds, 3))]
            return statistics.median(used) / units * 1e6

        lines = {"`GetPathAttributes`": [(count, cost("attributes", count, 0, count)) for count in requests]}
        for kind in ("download", "upload"):
            lines[f"MiB of one {kind}"] = [(size, cost(kind, 1, size * MEBIBYTE, size)) for size in mebibytes]
    rows = [[f"{count:,} {name}", f"{each:.1f} us each"] for name, points in lines.items() for count, each in points]
    return table(["work", "processor time"], rows), lines


def draw_growth(path, lines):
    from matplotlib import pyplot

    figure, axis = pyplot.subplots(figsize=(7, 3.5))
    for name, points in lines.items():
        axis.plot([count for count, _ in points], [each / points[-1][1] for _, each in points], marker="o", label=name.replace("`", ""))
    axis.set(xscale="log", ylim=(0, None), xlabel="how many", title="Processor time of each, beside the most (1)")
    axis.legend()
    figure.tight_layout()
    figure.savefig(path, metadata={"Date": None})


if __name__ == "__main__":
    sys.exit(main())
