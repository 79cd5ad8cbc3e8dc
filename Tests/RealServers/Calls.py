"""The calls of `quendra` that each variant has to pass."""
import json
import re
import shlex
import signal
import subprocess
import threading
import time

LIMIT = 120  # seconds for a call

NAMES = [
    "plain.txt", "two words  and more", "Übung äöüß.txt", "U\u0308bung decomposed", "日本語のファイル.txt", "Ελληνικά кириллица", "עברית العربية",
    "😀👩‍👩‍👧.bin", "100%", "%41%2F%00", "a+b", "a&b=c", "a#b", "a;b;c", "what?", "it's", 'say "hi"', "a,b:c", "[x]{y}(z)", "~tilde-_.", "$HOME`id`",
    "a@b", "star*", "<tag>|^", "back\\slash", ".hidden", "..two", "ends.", "!exclamation", "x" * 200, "長" * 80, "http:__", "..%2F..",
]
FILE_SIZES = {"empty": 0, "small": 20_000, "large": 3_000_000}


class Calls:
    def __init__(self, place):
        self.place, self.variant, self.work = place, place.variant, place.work
        self.count, self.failures = 0, []
        self.texts = {}
        with open("/dev/urandom", "rb") as random:
            for name, size in FILE_SIZES.items():
                (self.work / name).write_bytes(random.read(size))

    def check(self, holds, what):
        if not holds:
            self.failures.append(what)

    def start(self, *words, environment=None):
        return subprocess.Popen([self.place.programs / "quendra", *map(str, words)], env={**self.place.environment, **(environment or {})},
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def end(self, process, status, said, words, limit=LIMIT):
        try:
            out, err = process.communicate(timeout=limit)
        except subprocess.TimeoutExpired:
            process.kill()
            out, err = process.communicate()
            err += " (did not end)"
        self.count += 1
        if process.returncode != status or said not in out + err:
            self.failures.append(f"{shlex.join(map(str, words))[:200]}: {process.returncode}, {(err or out).strip()[-400:]}"
                                 + (f" (expected {status}, {said})" if status or said else ""))
        return out

    def run(self, *words, status=0, said="", environment=None):
        return self.end(self.start(*words, environment=environment), status, said, words)

    def item(self, *words):
        try:
            return json.loads(self.run(*words, "--json"))["item"]
        except (ValueError, KeyError):
            return {}

    def same(self, path, expected, what):
        file = self.work / path
        self.check(file.exists() and file.read_bytes() == expected, f"{what}: the bytes differ")
        file.unlink(missing_ok=True)

    def put_and_get(self, local, path, *options):
        self.run("put", self.work / local, path, *options)
        self.run("get", path, self.work / "got")
        self.same("got", (self.work / local).read_bytes(), path)

    def run_all(self):
        kind = self.variant.calls
        if kind == "all":
            self.try_session()
        if kind in ("all", "keep", "few"):
            self.try_items()
            self.try_transfers()
        if kind == "keep":
            self.try_pauses()
        if kind == "all":
            self.try_interrupted()
            self.try_feed()
            self.try_names()
            self.run("logout")
        for words, status, said in self.variant.expected:
            self.run(*shlex.split(self.place.fill(words)), status=status, said=self.place.fill(said))
        if self.variant.origins > 1:
            self.check_stickiness()

    def try_session(self):
        self.run("--version")
        self.run("completion", "bash")
        self.run("handshake", said="1.3 or later")
        self.run("version", said="sample-1")
        self.run("doctor", said="mode legacy, API version 1.3")
        self.run("register", "demo", "--device", "Laptop")
        self.run("login", "demo", said="failed: 20002 (", status=1, environment={"QUENDRA_PASSWORD": "wrong"})
        self.run("login", "demo", said="Logged in")
        self.run("ls", "/", "--token", "forged", status=1, said=": 20006 (")
        self.run("mappings", said="/home")
        (self.work / "audit").write_text('{"uploads": "2 & 3 + 50 %"}')
        self.run("audit", self.work / "audit", said="Published")
        self.run("wipe-ack", "demo", "old-laptop")

    def try_items(self):
        self.run("mkdir", "/home/Folder", said="Created")
        self.run("mkdir", "/home/Folder", status=1)
        self.run("stat", "/home/Folder", said="folder")
        self.run("stat", "/home/none", status=1, said=": 20005 (")
        self.run("touch", "/home/Folder", "--modified", "2024-02-29T12:00:00Z", "--attributes", "0x12")
        kept = self.item("stat", "/home/Folder").get("modified")  # known to the server that changed it
        self.check(self.variant.origins > 1 or kept == "2024-02-29T12:00:00.000Z", "the time is not kept")
        self.run("ls", "/home", said="Folder/")
        self.run("put", self.work / "small", "/home/Folder/item")
        self.run("mv", "/home/Folder/item", "/home/Folder/other")
        self.run("mv", "/home/Folder/other", "/home/moved")
        self.run("share", "/home/moved", "--to", "bob@example.com", "--message", "Have a look & say + %")
        self.run("rm", "/home/moved")
        self.run("ls", "/home/moved", status=1)
        self.run("rm", "/home/Folder", "--recursive")

    def try_transfers(self):
        large = (self.work / "large").read_bytes()
        for name in FILE_SIZES:
            self.put_and_get(name, "/home/" + name)
        self.run("put", self.work / "small", "/home/large", "--revision", "stale", status=1, said=": 21077 (")
        self.run("get", "/home/large", self.work / "got", "--count", 1_000_000)
        self.run("get", "/home/large", self.work / "got", "--skip", 1_000_000, "--count", 5_000_000)
        self.same("got", large, "ranges")
        (self.work / "next").write_bytes(large[:1_000_000] + b"inserted" + large[1_500_000:])
        self.rdiff("signature", "large", "signature")
        self.rdiff("delta", "signature", "next", "delta")
        self.run("put", self.work / "delta", "/home/large", "--delta")
        self.run("get", "/home/large", self.work / "received", "--signature", self.work / "signature")
        self.rdiff("patch", "large", "received", "patched")
        self.same("patched", (self.work / "next").read_bytes(), "deltas")
        self.put_and_get("large", "/home/chunks", "--chunk-size", 200_000)
        self.put_and_get("empty", "/home/no chunks", "--chunk-size", 200_000)

    def rdiff(self, *words):
        (self.work / words[-1]).unlink(missing_ok=True)
        done = subprocess.run(["rdiff", *words], cwd=self.work, capture_output=True, text=True, timeout=LIMIT)
        self.check(done.returncode == 0, f"rdiff {words[0]}: {done.stderr.strip()}")

    def interrupt_upload(self, path):
        """Ctrl-C in the middle of an upload in chunks; gives its id."""
        words = ("put", self.work / "large", path, "--chunk-size", 2000)
        process = self.start(*words)
        identifier = process.stdout.readline().strip().rpartition(" ")[2]
        received = self.place.root / ".quendra-appliance" / "resume"
        while process.poll() is None and not any(file.stat().st_size for file in received.glob("*.bytes")):
            time.sleep(0.01)
        process.send_signal(signal.SIGINT)
        self.end(process, 130, "to resume", words)
        return identifier

    def try_interrupted(self):
        identifier = self.interrupt_upload("/home/resumed")
        self.run("upload-status", "/home/resumed", identifier, said="Received")
        self.run("put", self.work / "large", "/home/resumed", "--chunk-size", 1_000_000, "--resume", identifier)
        self.run("get", "/home/resumed", self.work / "got")
        self.same("got", (self.work / "large").read_bytes(), "a resumed upload")
        identifier = self.interrupt_upload("/home/cancelled")
        self.run("upload-cancel", "/home/cancelled", identifier)
        self.run("upload-status", "/home/cancelled", identifier, status=1)
        words = ("put", self.work / "large", "/home/resumed", "--chunk-size", 1_000_000, "--revision", "stale")
        identifier = re.search(r"[0-9A-F-]{36}|$", self.run(*words, status=1, said="upload-complete"))[0]
        self.run("upload-complete", "/home/resumed", "/home/rescued", identifier)
        self.run("get", "/home/rescued", self.work / "got")
        self.same("got", (self.work / "large").read_bytes(), "a completed upload")

    def try_feed(self):
        own = {"QUENDRA_SESSION": str(self.work / "other")}
        self.run("login", "demo", environment=own)
        self.run("mkdir", "/home/first", environment=own)
        self.run("changes", "--json", said="/home/first")
        self.run("changes", environment=own)
        follow = ("changes", "--follow")
        process = self.start(*follow)
        time.sleep(0.5)  # so that the request waits at the server
        self.run("mkdir", "/home/second")
        seen = process.stdout.readline()
        process.send_signal(signal.SIGINT)
        self.end(process, 130, "", follow)
        self.check("/home/second" in seen, f"the feed shows {seen!r}")

    def try_names(self):
        content = (self.work / "small").read_bytes()
        self.run("mkdir", "/home/names")
        kept = []
        for name in NAMES:
            path = "/home/names/" + name
            before = len(self.failures)
            self.check(self.item("put", self.work / "small", path).get("name") == name, f"put {name}: another name came back")
            self.run("get", path, self.work / "got")
            self.same("got", content, name)
            self.run("mv", path, "/home/names/moved")
            in_chunks = self.item("put", self.work / "small", path, "--chunk-size", 15_000)
            self.check(in_chunks.get("name") == name, f"put {name} in chunks: another name came back")
            self.check(self.item("stat", path).get("size") == len(content), f"stat {name}: another item")
            self.run("mv", "/home/names/moved", path, "--overwrite")
            self.run("get", path, self.work / "got", "--count", len(content))
            self.same("got", content, name)
            if len(self.failures) == before:
                kept.append(name)
        listed = json.loads(self.run("ls", "/home/names", "--json") or '{"items":[]}')["items"]
        self.check(sorted(item["name"] for item in listed) == sorted(kept), "the names of the listing differ")
        for name in NAMES:
            self.run("rm", "/home/names/" + name)

    def try_pauses(self):
        """The client stands still now and then, for longer than the server keeps a connection."""
        words = ("put", self.work / "large", "/home/paused", "--chunk-size", 10_000)
        process = self.start(*words)
        process.stdout.readline()
        for _ in range(5):
            time.sleep(0.05)
            process.send_signal(signal.SIGSTOP)
            time.sleep(1.2)
            process.send_signal(signal.SIGCONT)
        self.end(process, 0, "Uploaded", words)
        self.run("get", "/home/paused", self.work / "got")
        self.same("got", (self.work / "large").read_bytes(), "an upload with pauses")

    def check_stickiness(self):
        """All requests of one instance go to the same server; those of all go to both."""
        def servers():
            return re.findall(r"server (\S+)$", (self.place.own / "output").read_text(), re.MULTILINE)
        seen = set()
        for _ in range(6):
            before = len(servers())
            self.run("put", self.work / "large", "/home/sticky", "--chunk-size", 200_000)
            time.sleep(0.2)  # the log is written behind the reply
            used = servers()[before:]
            self.check(len(used) > 15 and len(set(used)) == 1, f"the requests of an upload went to {used}")
            seen |= set(used)
        self.check(len(seen) == 2, f"all uploads went to {seen}")

    def run_outages(self, seconds, make_relay):
        """Gives the calls and the failures."""
        large = (self.work / "large").read_bytes()
        token = self.place.environment["QUENDRA_TOKEN"]
        origin = f"http://127.0.0.1:{self.place.values['origin']}"
        self.run("put", self.work / "large", "/home/before", "--server", origin)
        uploads = [("put", self.work / "large", "/home/whole"), ("put", self.work / "large", "/home/chunks", "--chunk-size", 100_000)]
        threads = []
        for words in [*uploads, ("get", "/home/before", self.work / "during")]:
            relayed = {"QUENDRA_SERVER": f"http://127.0.0.1:{make_relay(1_000_000).port}"}
            threads.append(threading.Thread(target=self.run, args=words, kwargs={"environment": relayed}))
        for thread in threads:
            thread.start()
        relay = make_relay(float("inf"))
        follow = ("changes", "--follow", "--token", token)
        process = self.start(*follow, environment={"QUENDRA_SERVER": f"http://127.0.0.1:{relay.port}"})
        time.sleep(1)
        relay.silent_until = time.monotonic() + seconds
        self.run("mkdir", "/home/meanwhile", "--server", origin)
        while "/home/meanwhile" not in (line := process.stdout.readline()) and line:
            pass
        self.check("/home/meanwhile" in line, "the feed does not come back")
        process.send_signal(signal.SIGINT)
        self.end(process, 130, "", follow)
        for thread in threads:
            thread.join()
        for path in ("/home/whole", "/home/chunks"):
            self.run("get", path, self.work / "got", "--server", origin)
            self.same("got", large, path)
        self.same("during", large, "a download")
        return self.count, self.failures
