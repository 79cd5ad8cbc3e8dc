#!/usr/bin/env python3
"""Runs the commands of `quendra` against the sample server with real servers in between, and compares the bytes that come and go.

    Tests/RealServers/RealServers.py build/linux/bin [--only WORD] [--outages 3,10,30]

Prints for each server and variant how many calls passed, and what did not hold. Then the network goes away for a while in the middle of
transfers and of a wait for the feed. Servers.py holds the variants; `CMake/prepare.sh real` installs the servers. As root the servers
become the users that their packages make.
"""
import argparse
import contextlib
import json
import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time

sys.dont_write_bytecode = True
from Calls import FILE_SIZES, Calls
from Servers import SERVERS, VARIANTS, Variant

PASSWORD = "s3cret pässword"
LIMIT = 60  # seconds for a server to begin or to end


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def is_open(port):
    with socket.socket() as probe:
        return probe.connect_ex(("127.0.0.1", port)) == 0


class Trap:
    """A port that nobody is to connect to."""

    def __init__(self):
        self.socket = socket.create_server(("127.0.0.1", 0))
        self.socket.setblocking(False)
        self.port = self.socket.getsockname()[1]

    def was_met(self):
        try:
            self.socket.accept()[0].close()
        except BlockingIOError:
            return False
        return True


class Certificates:
    """An authority, and a certificate of the loopback interface."""

    def __init__(self, folder):
        self.folder = folder
        self.run("req -x509 -newkey rsa:2048 -nodes -days 2 -subj /CN=Trial -keyout authority.key -out authority")
        self.run("req -newkey rsa:2048 -nodes -subj /CN=localhost -keyout key -out request")
        (folder / "names").write_text("subjectAltName=DNS:localhost,IP:127.0.0.1\n")
        self.run("x509 -req -in request -CA authority -CAkey authority.key -CAcreateserial -days 2 -extfile names -out certificate")
        (folder / "both").write_text((folder / "certificate").read_text() + (folder / "key").read_text())
        self.files = {name: folder / name for name in ("authority", "certificate", "key", "both")}
        for file in self.files.values():
            file.chmod(0o644)

    def run(self, words):
        subprocess.run(["openssl", *words.split()], cwd=self.folder, check=True, capture_output=True)


class Place:
    """A variant's servers, files and ports."""

    def __init__(self, programs, variant, certificates):
        self.variant, self.programs, self.certificates = variant, programs, certificates
        self.folder = pathlib.Path(tempfile.mkdtemp(prefix="quendra-real-"))
        self.folder.chmod(0o777)  # for servers that become another user
        self.work, self.root, self.own = (self.folder / name for name in ("work", "root", "server"))
        for folder in (self.work, self.own):
            folder.mkdir()
        self.own.chmod(0o777)
        self.started = []
        self.trap = Trap()
        self.values = {**{name: str(file) for name, file in certificates.files.items()}, "folder": str(self.own), "work": str(self.work),
                       **{name: str(self.work / name) for name in FILE_SIZES}, "port": str(free_port()), "trap": str(self.trap.port),
                       "dead": str(free_port())}

    def __enter__(self):
        try:
            return self.start()
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        for process in self.started:
            process.terminate()
        for process in self.started:
            try:
                process.wait(timeout=LIMIT)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
        self.trap.socket.close()
        shutil.rmtree(self.folder, ignore_errors=True)

    def fill(self, text):
        return re.sub(r"@(\w+)@", lambda found: self.values[found[1]], text)

    def start(self):
        variant = self.variant
        self.values["origin"] = self.start_origin()
        self.environment = self.make_environment()
        if variant.calls in ("expected", "few", "keep"):
            self.environment["QUENDRA_TOKEN"] = self.log_in()
        if variant.origins > 1:  # it knows the session, as it begins after the login
            self.values["origin2"] = self.start_origin()
        if variant.server in SERVERS:
            self.start_server()
        return self

    def make_environment(self):
        variant = self.variant
        clean = {name: value for name, value in os.environ.items() if "proxy" not in name.lower() and not name.startswith("QUENDRA_")}
        host = "localhost" if "https" in (variant.scheme, variant.origin_scheme) else "127.0.0.1"
        scheme, port = (variant.origin_scheme, "origin") if variant.is_proxy else (variant.scheme, "port")
        own = {"QUENDRA_SERVER": f"{scheme}://{host}:@{port}@", "QUENDRA_PASSWORD": PASSWORD, "QUENDRA_SESSION": "@work@/session",
               "QUENDRA_REGISTRY": "@work@/none", "SSL_CERT_FILE": "@authority@", "LC_ALL": "C.UTF-8"}
        if variant.is_proxy:
            own[f"{scheme}_proxy"] = "http://127.0.0.1:@port@"
        return {**clean, **{name: self.fill(value) for name, value in {**own, **variant.environment}.items()}}

    def start_origin(self):
        words = [self.programs / "quendra-appliance", "--root", self.root, "--user", "demo:" + PASSWORD]
        if self.variant.origin_scheme == "https":
            words += ["--cert", self.values["certificate"], "--key", self.values["key"]]
        if self.variant.faults:
            (self.own / "faults").write_text(json.dumps({"faults": self.variant.faults}))
            words += ["--faults", self.own / "faults"]
        process = subprocess.Popen(words, stdout=subprocess.PIPE, text=True)
        self.started.append(process)
        for line in process.stdout:
            if line.startswith("listening on "):
                threading.Thread(target=process.stdout.read, daemon=True).start()
                return line.rsplit(":", 1)[1].strip()
        raise RuntimeError("the sample server does not start")

    def log_in(self):
        """Past the server in between."""
        own = {"QUENDRA_SERVER": f"{self.variant.origin_scheme}://localhost:{self.values['origin']}",
               "QUENDRA_SESSION": str(self.work / "first"), "no_proxy": "*"}
        subprocess.run([self.programs / "quendra", "login", "demo"], env={**self.environment, **own}, check=True, capture_output=True,
                       timeout=LIMIT)
        return re.search(r'"token" *: *"([^"]*)"', (self.work / "first").read_text())[1]

    def start_server(self):
        program, arguments, configuration = SERVERS[self.variant.server]
        (self.own / "conf").write_text(self.fill(configuration.replace("@variant@", self.variant.configuration)))
        hashed = subprocess.run(["openssl", "passwd", "-apr1", "p@ss wörd"], capture_output=True, text=True, check=True).stdout
        (self.own / "users").write_text("ann:" + hashed)
        self.output = open(self.own / "output", "w+")
        environment = {**os.environ, "XDG_DATA_HOME": str(self.own), "XDG_CONFIG_HOME": str(self.own), "HOME": str(self.own),
                       "PATH": os.environ["PATH"] + ":/usr/sbin"}
        process = subprocess.Popen([program, *self.fill(arguments).split()], stdout=self.output, stderr=self.output, env=environment)
        self.started.insert(0, process)  # ended before the sample servers
        limit = time.monotonic() + LIMIT
        while not is_open(int(self.values["port"])):
            if process.poll() is not None or time.monotonic() > limit:
                errors = (self.own / "error.log").read_text() if (self.own / "error.log").exists() else ""
                raise RuntimeError(f"it does not start: {(self.own / 'output').read_text()}{errors}"[-2000:])
            time.sleep(0.02)


def run_variant(programs, variant, certificates):
    """The calls, and what failed."""
    if not shutil.which(SERVERS[variant.server][0], path=os.environ["PATH"] + ":/usr/sbin"):
        return 0, ["not installed: CMake/prepare.sh real"]
    try:
        with Place(programs, variant, certificates) as place:
            calls = Calls(place)
            calls.run_all()
            calls.check(not place.trap.was_met(), "no request goes elsewhere")
            return calls.count, calls.failures
    except (RuntimeError, OSError, ValueError, subprocess.SubprocessError) as failure:
        return 0, [repr(failure)]


class Relay(threading.Thread):
    """Forwards connections to a port. Behind so many bytes, in either direction, nothing passes for a while."""

    RATE = 4 << 20  # bytes a second

    def __init__(self, target, behind, seconds):
        super().__init__(daemon=True)
        self.target, self.behind, self.seconds = target, behind, seconds
        self.listener = socket.create_server(("127.0.0.1", 0))
        self.port = self.listener.getsockname()[1]
        self.passed, self.silent_until = 0, None
        self.lock = threading.Lock()
        self.start()

    def run(self):
        with contextlib.suppress(OSError):
            while True:
                near = self.listener.accept()[0]
                far = socket.create_connection(("127.0.0.1", self.target))
                for source, target in ((near, far), (far, near)):
                    threading.Thread(target=self.carry, args=(source, target), daemon=True).start()

    def carry(self, source, target):
        with contextlib.suppress(OSError):
            while block := source.recv(65536):
                time.sleep(len(block) / self.RATE)
                self.wait(len(block))
                target.sendall(block)
        with contextlib.suppress(OSError):
            target.shutdown(socket.SHUT_WR)

    def wait(self, count):
        with self.lock:
            self.passed += count
            if self.silent_until is None and self.passed >= self.behind:
                self.silent_until = time.monotonic() + self.seconds
            left = (self.silent_until or 0) - time.monotonic()
        if left > 0:
            time.sleep(left)


def run_outages(programs, certificates, seconds):
    """Transfers and a wait for the feed, at the same time, with a line that is silent for the seconds."""
    with Place(programs, Variant("", "", calls="few"), certificates) as place:
        return Calls(place).run_outages(seconds, lambda behind: Relay(int(place.values["origin"]), behind, seconds))


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("programs", type=lambda text: pathlib.Path(text).resolve())
    options.add_argument("--only", default="", help="only the rows whose text has this")
    options.add_argument("--outages", default="3,10,30", help="seconds, separated by commas")
    chosen = options.parse_args()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))

    total, failed = 0, 0

    def row(server, name, count, failures):
        nonlocal total, failed
        if not count and not failures:
            failures = ["nothing was tried"]
        total, failed = total + count, failed + len(failures)
        print(f"| {server} | {name} | {count} | {count - len(failures) if count else 0} |", flush=True)
        for failure in failures:
            print("    DOES NOT HOLD:", failure, flush=True)

    print("| server | variant | calls | passed |\n|---|---|---|---|")
    with tempfile.TemporaryDirectory(prefix="quendra-real-") as folder:
        folder = pathlib.Path(folder)
        folder.chmod(0o755)
        certificates = Certificates(folder)
        for variant in VARIANTS:
            if chosen.only in f"{variant.server}, {variant.name}":
                row(variant.server, variant.name, *run_variant(chosen.programs, variant, certificates))
        for seconds in filter(None, chosen.outages.split(",")):
            if chosen.only in (name := f"an outage of {seconds} s"):
                row("relay", name, *run_outages(chosen.programs, certificates, float(seconds)))
    print(f"{total} calls, {failed} did not pass")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
