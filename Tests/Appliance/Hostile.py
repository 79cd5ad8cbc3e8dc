#!/usr/bin/env python3
"""Tries the sample server with hostile clients and sudden ends, and prints what was tried and what did not hold.

    Tests/Appliance/Hostile.py build/linux/bin/quendra-appliance [--rounds N] [--seed N]

Each part has a server and a root of its own; beside the root lies a file that nobody may read or change.
"""
import argparse
import hashlib
import http.client
import itertools
import json
import pathlib
import random
import shutil
import socket
import subprocess
import tempfile
import threading
import time
import urllib.parse

SECRET = b"nobody may read this"
UPLOAD_ID = "0F8FAD5B-D9CB-469F-A165-70867728950E"
API = "/sync/1.3"


class Server:
    def __init__(self, program):
        self.program = program
        self.place = pathlib.Path(tempfile.mkdtemp(prefix="quendra-hostile-"))
        self.root = self.place / "root"
        (self.place / "secret").write_bytes(SECRET)
        (self.place / "folder").mkdir()
        (self.place / "folder" / "inner").write_bytes(SECRET)
        self.start()

    def command(self):
        return [self.program, "--root", str(self.root)]

    def start(self):
        # It ignores SIGXFSZ, as Python does.
        self.process = subprocess.Popen(self.command(), stdout=subprocess.PIPE, text=True, restore_signals=False)
        for line in self.process.stdout:
            if line.startswith("listening on "):
                self.port = int(line.rsplit(":", 1)[1])
                break
        self.token = self.log_in()

    def log_in(self):
        return json.loads(self.ask("POST", API + "/sessions", b"user_id=demo&password=demo")[1])["session_token"]

    def connect(self, timeout=60):
        return http.client.HTTPConnection("127.0.0.1", self.port, timeout=timeout)

    def ask(self, method, target, body=b"", headers=None, connection=None):
        own = connection is None
        connection = connection or self.connect()
        cookie = {"Cookie": "session_token=" + self.token} if hasattr(self, "token") else {}
        connection.putrequest(method, target, skip_host=True, skip_accept_encoding=True)
        for name, value in {**cookie, "Content-Length": str(len(body)), **(headers or {})}.items():
            connection.putheader(name, value)
        connection.endheaders(body)
        reply = connection.getresponse()
        result = reply.status, reply.read()
        if own:
            connection.close()
        return result

    def put(self, path, content, fields=(), headers=None, connection=None, api="/folders"):
        parts = b"".join(b'--B\r\nContent-Disposition: form-data; name="%s"\r\n\r\n%s\r\n' % (name.encode(), value.encode())
                         for name, value in fields)
        body = parts + b'--B\r\nContent-Disposition: form-data; name="file"; filename="x"\r\n\r\n' + content + b"\r\n--B--\r\n"
        return self.ask("POST", API + api + path, body, {"Content-Type": "multipart/form-data; boundary=B", **(headers or {})}, connection)

    def upload(self, path, content, connection=None):
        return self.put(path, content, [("operation", "create")], connection=connection)[0]

    def memory(self, what):
        for line in pathlib.Path(f"/proc/{self.process.pid}/status").read_text().splitlines():
            if line.startswith(what + ":"):
                return int(line.split()[1])

    def outside_is_untouched(self):
        return (sorted(each.name for each in self.place.iterdir()) == ["folder", "root", "secret"]
                and (self.place / "secret").read_bytes() == SECRET
                and [each.name for each in (self.place / "folder").iterdir()] == ["inner"]
                and (self.place / "folder" / "inner").read_bytes() == SECRET)

    def end(self):
        self.process.kill()
        self.process.wait()
        shutil.rmtree(self.place)


failures = 0


def check(holds, what):
    global failures
    if not holds:
        failures += 1
        print("  DOES NOT HOLD:", what)


def traversal(server):
    """Paths that lead out of the root, in every encoding, with every request that takes a path."""
    dots = ["..", "%2e%2e", ".%2e", "%2E.", "%252e%252e", "%c0%ae%c0%ae", "%e0%80%ae%e0%80%ae", "%uff0e%uff0e", "..;", ". .", "...", "..%00",
            "%ef%bc%8e%ef%bc%8e", "..%20", "%09..", "..%0d%0a"]
    slashes = ["/", "%2f", "%5c", "\\", "//", "%252f", "%c0%af", "%ef%bc%8f", "/./", "%00/"]
    tried = 0
    for dot, slash in itertools.product(dots, slashes):
        for lead in ("/home" + slash + dot + slash + dot, slash + dot, "/home/" + dot + "/" + dot):
            for target in ("secret", "folder" + slash + "inner", "new"):
                path = lead + slash + target
                if any(unit in path for unit in "\r\n "):
                    path = path.replace(" ", "%20")
                text = urllib.parse.unquote(path, errors="surrogateescape")
                form = urllib.parse.quote(text, safe="", errors="surrogateescape").encode()
                server.upload("/home/f", b"own")
                requests = [("GET", "/folders" + path, b"", {"Accept": "application/octet-stream"}), ("GET", "/folders" + path + "?type=all", b"", {}),
                            ("DELETE", "/folders" + path, b"", {}), ("POST", "/folders" + path, b"operation=create&name=x", {}),
                            ("POST", "/folders/home", b"operation=create&name=" + form, {}),
                            ("POST", "/folders/home/f", b"operation=update&path=" + form, {}),
                            ("POST", "/folders/home/f", b"operation=move&overwrite=true&path=" + form, {}),
                            ("POST", "/share", b"type=1&target=a&path=" + form, {}),
                            ("GET", "/resume/upload" + path + "?resume_id=" + UPLOAD_ID, b"", {})]
                with_connection = server.connect()
                for method, where, body, headers in requests:
                    status, reply = server.ask(method, API + where, body, headers, with_connection)
                    tried += 1
                    check(SECRET not in reply and status < 500, f"{method} {where} {body} -> {status}")
                for api, extra in (("/folders", {}), ("/delta", {}), ("/resume/upload", {"qd_offset": "0", "qd_block_size": "3", "qd_start": "true",
                                                                                     "qd_finish": "true", "qd_file_size": "3"})):
                    status, reply = server.put(path + ("?resume_id=" + UPLOAD_ID if extra else ""), b"bad", [("operation", "create")], extra,
                                               with_connection, api)
                    tried += 1
                    check(status < 500, f"upload {api}{path} -> {status}")
                with_connection.close()
        check(server.outside_is_untouched(), f"outside the root after {dot} with {slash}")
    return f"{tried} requests"


def links(server):
    """Symbolic links out of the root."""
    home = server.root / "home"
    (home / "file").symlink_to("../../secret")
    (home / "folder").symlink_to("../../folder")
    (home / "nowhere").symlink_to("../../new")
    (home / "self").symlink_to("self")
    tried = 0
    for path in ("/home/file", "/home/folder", "/home/folder/inner", "/home/folder/new", "/home/nowhere", "/home/self", "/home/self/x"):
        server.upload("/home/f", b"own")
        for status, reply in [server.ask("GET", API + "/folders" + path, headers={"Accept": "application/octet-stream"}),
                              server.ask("GET", API + "/folders" + path + "?type=all"), server.ask("DELETE", API + "/folders" + path),
                              server.ask("POST", API + "/folders" + path, b"operation=create&name=x"),
                              server.ask("POST", API + "/folders" + path, b"operation=move&path=/home/taken"),
                              server.ask("POST", API + "/folders/home/f", b"operation=move&overwrite=true&path=" + path.encode()),
                              server.ask("POST", API + "/folders" + path, b"operation=update&creation_time=2015-03-02T10:20:30.5Z"),
                              server.put(path, b"bad", [("operation", "create")]), server.put(path, b"bad", api="/delta")]:
            tried += 1
            check(SECRET not in reply and 400 <= status < 500, f"a request for {path} -> {status}")
    names = [item["name"] for item in json.loads(server.ask("GET", API + "/folders/home?type=all")[1])["contents"]]
    check(names == ["f"], f"the listing shows {names}")
    check(server.outside_is_untouched(), "outside the root")
    return f"{tried} requests"


def slow(server):
    """1,000 connections that send a byte a second; ordinary requests beside them."""
    connections, waits = [], []
    stop = threading.Event()

    def trickle():
        while not stop.wait(1):
            for each in connections:
                try:
                    each.send(b"x")
                except OSError:
                    pass

    for number in range(1000):
        each = socket.create_connection(("127.0.0.1", server.port))
        each.setblocking(False)
        each.send(b"GET / HTTP/1.1\r\nX: " if number % 2 else b"POST /sync/1.3/sessions HTTP/1.1\r\nContent-Length: 100000\r\n\r\n")
        connections.append(each)
    threading.Thread(target=trickle, daemon=True).start()
    for number in range(100):
        begun = time.monotonic()
        try:
            status = server.upload("/home/f%d" % number, b"own")
        except OSError as error:
            status = error
        waits.append(time.monotonic() - begun)
        check(status == 200, f"an ordinary upload -> {status}")
        time.sleep(0.02)
    threads, memory = server.memory("Threads"), server.memory("VmRSS") // 1024
    stop.set()
    for each in connections:
        each.close()
    waits.sort()
    check(waits[-1] < 2, f"an ordinary upload took {waits[-1]:.1f} s")
    return f"100 uploads beside: median {waits[50] * 1000:.1f} ms, longest {waits[-1] * 1000:.0f} ms; {threads} threads, {memory} MiB"


def huge(server):
    """Heads and bodies without end."""
    cases = {"a head of one 100 MB line": (b"GET / HTTP/1.1\r\nX: ", b"x" * 65536, 1600), "a head without end": (b"GET / HTTP/1.1\r\n", b"X: y\r\n" * 10000, 1600),
             "a target of 100 MB": (b"GET /", b"x" * 65536, 1600), "an empty head": (b"", b"\r\n" * 32768, 1600),
             "a form of 200 MB": (b"POST /sync/1.3/sessions HTTP/1.1\r\nContent-Length: 209715200\r\n\r\n", b"x" * 65536, 3200),
             "a chunked form of 200 MB": (b"POST /sync/1.3/sessions HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n", b"10000\r\n" + b"x" * 65536 + b"\r\n", 3200),
             "a chunk's extension of 100 MB": (b"POST /sync/1.3/sessions HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n1;", b"x" * 65536, 1600),
             "a length of 2^64-1": (b"POST /sync/1.3/sessions HTTP/1.1\r\nContent-Length: 18446744073709551615\r\n\r\n", b"x" * 65536, 1600)}
    multipart = (f"POST {API}/folders/home/f HTTP/1.1\r\nCookie: session_token={server.token}\r\nContent-Length: 209715200\r\n"
                 "Content-Type: multipart/form-data; boundary=B\r\n\r\n").encode()
    cases["a field of 200 MB"] = (multipart + b'--B\r\nContent-Disposition: form-data; name="a"\r\n\r\n', b"x" * 65536, 3200)
    cases["a part's head of 200 MB"] = (multipart + b"--B\r\n", b"X: y\r\n" * 10000, 3200)
    cases["a million fields"] = (multipart, b'--B\r\nContent-Disposition: form-data; name="a"\r\n\r\n\r\n' * 1000, 3200)
    cases["no boundary in 200 MB"] = (multipart, b"\r\n--A" * 13107, 3200)
    for name, (begin, block, count) in cases.items():
        with socket.create_connection(("127.0.0.1", server.port), timeout=60) as connection:
            try:
                connection.sendall(begin)
                for _ in range(count):
                    connection.sendall(block)
                connection.shutdown(socket.SHUT_WR)
                reply = connection.recv(65536)
            except OSError:
                reply = b""  # reset: refused while sending
            check(not reply or reply.startswith(b"HTTP/1.1 4"), f"{name} -> {reply[:40]}")
    for name, depth in (("a path of 10,000 folders", "/a" * 10000), ("a name of 60,000 bytes", "/" + "a" * 60000)):
        status = server.upload("/home" + depth, b"x")
        check(400 <= status < 500, f"{name} -> {status}")
    check(server.upload("/home/f", b"own") == 200, "an upload afterwards")
    peak = server.memory("VmHWM") // 1024
    check(peak < 100, f"{peak} MiB of memory")
    return f"{len(cases) + 2} cases, {peak} MiB at most"


def identifiers(server):
    """Upload ids that are none."""
    ids = ["", "x", "../../x", "..%2f..%2fx", "%00", UPLOAD_ID + "/x", UPLOAD_ID + "%00", UPLOAD_ID[:-1] + "%2f", UPLOAD_ID + ".json",
           "/" + UPLOAD_ID[1:], UPLOAD_ID.replace("-", "/"), UPLOAD_ID.replace("-", "%2f"), "{" + UPLOAD_ID, "%20" + UPLOAD_ID, UPLOAD_ID * 100]
    for each in ids:
        headers = {"qd_offset": "0", "qd_block_size": "3", "qd_start": "true", "qd_finish": "true", "qd_file_size": "3"}
        status, _ = server.put("/home/f?resume_id=" + each, b"bad", headers=headers, api="/resume/upload")
        check(status == 400, f"the id {each} -> {status}")
    check(not list((server.root / ".quendra-appliance" / "resume").iterdir()) and server.outside_is_untouched(), "something was stored")
    return f"{len(ids)} ids"


def parallel(server):
    """16 threads write one item, others read it."""
    sizes = [random.randrange(1, 300000) for _ in range(16)]
    contents = [bytes([65 + number]) * size for number, size in enumerate(sizes)]
    check(server.upload("/home/one", contents[0]) == 200, "the first upload")
    wrong, winners, reads = [], [], [0]

    def write(number):
        connection = server.connect()
        for _ in range(30):
            if server.upload("/home/one", contents[number], connection) != 200:
                wrong.append("an upload is refused")
        connection.close()

    def read():
        connection = server.connect()
        for _ in range(100):
            status, content = server.ask("GET", API + "/folders/home/one", headers={"Accept": "application/octet-stream"}, connection=connection)
            reads[0] += 1
            if status != 200 or content not in contents:
                wrong.append(f"a reader gets {len(content)} mixed bytes, status {status}")
        connection.close()

    def replace(number, revision):
        status, _ = server.put("/home/one", contents[number], [("operation", "create"), ("revision", revision)])
        winners.append(status)

    def run(threads):
        for each in threads:
            each.start()
        for each in threads:
            each.join()

    run([threading.Thread(target=write, args=(number,)) for number in range(16)] + [threading.Thread(target=read) for _ in range(4)])
    for _ in range(10):
        revision = json.loads(server.ask("GET", API + "/folders/home/one")[1])["document_info"]["revision"]
        winners.clear()
        run([threading.Thread(target=replace, args=(number, revision)) for number in range(16)])
        check(sorted(winners) == [200] + [409] * 15, f"of 16 with one revision: {sorted(winners)}")
    for each in set(wrong):
        check(False, each)
    return f"480 uploads, {reads[0]} whole reads; one of 16 wins where all name one revision"


def kills(server, rounds):
    """kill -9 at any moment of uploads, and a restart."""
    acknowledged, sent, whole, chunks, finished = {}, {}, 0, 0, 0

    def content_of(name, turn):
        return hashlib.sha256(f"{name} {turn}".encode()).digest() * random.Random(name + str(turn)).randrange(1, 20000)

    def work(number, turn):
        name = f"/home/f{number}"
        try:
            connection = server.connect()
            for step in itertools.count():
                content = content_of(name, (turn, step))
                sent.setdefault(name, []).append(content)
                if server.upload(name, content, connection) == 200:
                    acknowledged[name] = content
        except (OSError, http.client.HTTPException):
            pass

    chunked = hashlib.sha256(b"chunked").digest() * 200000
    target = f"/home/big?resume_id={UPLOAD_ID}"

    def send_chunks(state):
        try:
            connection = server.connect()
            while state["offset"] < len(chunked):
                offset = state["offset"]
                piece = chunked[offset:offset + 40000]
                headers = {"qd_offset": str(offset), "qd_block_size": str(len(piece)), "qd_file_size": str(len(chunked))}
                if offset == 0:
                    headers["qd_start"] = "true"
                if server.put(target, piece, headers=headers, connection=connection, api="/resume/upload")[0] != 200:
                    return
                state["offset"] = offset + len(piece)
        except (OSError, http.client.HTTPException):
            pass

    state = {"offset": 0}
    for turn in range(rounds):
        threads = [threading.Thread(target=work, args=(number, turn)) for number in range(4)]
        threads.append(threading.Thread(target=send_chunks, args=(state,)))
        for each in threads:
            each.start()
        time.sleep(random.uniform(0.005, 0.15))
        server.process.kill()
        server.process.wait()
        for each in threads:
            each.join()
        del server.token
        server.start()
        for name, content in acknowledged.items():
            status, found = server.ask("GET", API + "/folders" + name, headers={"Accept": "application/octet-stream"})
            # An upload that was cut off may have become the item, but only as a whole.
            later = sent[name][sent[name].index(content):]
            check(status == 200 and found in later, f"round {turn}: {name} is {status}, {len(found)} bytes")
            whole += 1
            sent[name], acknowledged[name] = [found], found
        check(not list((server.root / ".quendra-appliance" / "temporary").iterdir()), "temporary files are left")
        if state["offset"] > 0:
            status, reply = server.ask("GET", API + "/resume/upload" + target)
            received = json.loads(reply).get("bytes_received", 0)
            check(status == 200 and received >= state["offset"], f"round {turn}: {state['offset']} bytes acknowledged, {received} are there")
            state["offset"] = received
            chunks += 1
        if state["offset"] == len(chunked):
            status, _ = server.ask("POST", API + "/resume/upload" + target, headers={"qd_new_path": "/home/big"})
            found = server.ask("GET", API + "/folders/home/big", headers={"Accept": "application/octet-stream"})[1]
            check(status == 200 and found == chunked, f"round {turn}: the upload in chunks differs")
            state["offset"] = 0
            finished += 1
    return f"{rounds} kills: {whole} acknowledged items found whole, {chunks} times a begun upload in chunks, {finished} of them finished"


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("server")
    parser.add_argument("--rounds", type=int, default=50)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--only")
    arguments = parser.parse_args()
    random.seed(arguments.seed)
    for part in (traversal, links, slow, huge, identifiers, parallel, kills):
        if arguments.only and part.__name__ != arguments.only:
            continue
        server = Server(arguments.server)
        begun = time.monotonic()
        try:
            result = part(server, arguments.rounds) if part is kills else part(server)
            check(server.process.poll() is None, "the server is gone")
        finally:
            server.end()
        print(f"{part.__doc__} {result} ({time.monotonic() - begun:.0f} s)", flush=True)
    print("all holds" if failures == 0 else f"{failures} did not hold")
    raise SystemExit(failures != 0)


if __name__ == "__main__":
    main()
