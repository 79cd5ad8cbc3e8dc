#!/usr/bin/env python3
"""The sample server where no well-behaved client leads it: what it refuses, what it keeps whole, and how it ends.

    Tests/Appliance/Requests.py SERVER [emulator...]

Tests/Cases/Appliance.json holds requests and their answers. Hostile.py tries the same server for longer and harder.
"""
import json
import os
import pathlib
import re
import resource
import ssl
import subprocess
import sys
import threading
import time
import unittest
import urllib.request

import Hostile

PROGRAM = []  # the emulator, if any, and the server
CASES = json.loads(re.sub(r"(?m)^ *//.*$", "", (pathlib.Path(__file__).parent.parent / "Cases" / "Appliance.json").read_text()))
UPLOAD = f"/home/f?resume_id={Hostile.UPLOAD_ID}"
TIME = ("modification_time", "2020-03-02T10:20:30.123Z")


class Server(Hostile.Server):
    arguments = ()

    def __init__(self):
        super().__init__(PROGRAM)

    @staticmethod
    def shown(path):
        """A path as the server sees it: Wine shows this machine's files on a drive of its own."""
        return "Z:" + str(path).replace("/", "\\") if PROGRAM[-1].endswith(".exe") else str(path)

    def command(self):
        return [*PROGRAM, "--root", self.shown(self.root), *self.arguments]

    def stop(self):
        """@return the status that it ends with; 0 under Wine, which ends a process like SIGKILL."""
        self.process.terminate()
        status = self.process.wait(timeout=60)
        self.printed = "" if self.process.stdout.closed else self.process.stdout.read()
        self.process.stdout.close()
        return 0 if PROGRAM[-1].endswith(".exe") else status

    def request(self, line, body="", headers=None):
        """A body that begins with a boundary is multipart, another a form."""
        method, target = line.split(" ", 1)
        kind = 'multipart/form-data; boundary="{B}"' if body.startswith("--{B}") else "application/x-www-form-urlencoded"
        return self.ask(method, Hostile.API + target, body.encode(), {"Content-Type": kind, **(headers or {})})

    def json(self, *request):
        return json.loads(self.request(*request)[1])

    def error(self, *request):
        return self.json(*request)["errorId"]

    def item(self, path):
        return self.json("GET /folders" + path)["document_info"]

    def content(self, path):
        return self.request(f"GET /folders{path}?skip=0")[1]

    def chunk(self, target, offset, data, flag="qd_no_flag"):
        headers = {"qd_file_size": "10", "qd_offset": str(offset), "qd_block_size": str(len(data)), flag: "true"}
        return self.put(target, data, headers=headers, api="/resume/upload")[0]

    def received(self, member="bytes_received"):
        return self.json("GET /resume/upload" + UPLOAD)[member]

    def statuses(self, sent):
        """The statuses of all replies to what a connection sends, when nothing more will come, one space behind each."""
        with Hostile.socket.create_connection(("127.0.0.1", self.port), timeout=60) as connection:
            try:
                connection.sendall(sent)
                connection.shutdown(Hostile.socket.SHUT_WR)
            except OSError:
                pass  # refused before everything was read
            replies = b"".join(iter(lambda: connection.recv(65536), b""))
        return "".join(each.decode() for each in re.findall(rb"HTTP/1\.[01] (\d\d\d )", replies))


class SampleServer(unittest.TestCase):
    def setUp(self):
        self.server = Server()

    def tearDown(self):
        self.assertEqual(self.server.stop(), 0)
        Hostile.shutil.rmtree(self.server.place)

    def expect(self, cases):
        for request, body, status in cases:
            found, reply = self.server.request(request, body)
            self.assertEqual(found, status, (request, body[:100]))
            self.assertTrue(found < 400 or json.loads(reply)["errorId"], f"{request} is refused without a reason")

    def test_nothing_leads_out_of_the_root(self):
        self.expect([("POST /folders/home", "operation=create&name=sub", 200)])
        for path in [*CASES["outside"], "/" + "a" * 5000]:
            answers = [self.server.request(f"GET /folders{path}?skip=0")[0], self.server.request("GET /folders" + path)[0],
                       self.server.request("DELETE /folders" + path)[0], self.server.upload(path, b"overwritten"),
                       self.server.request("POST /folders/home/sub", "operation=move&path=" + path)[0]]
            self.assertLessEqual(set(answers), {400, 404, 409}, path[:100])
        # Where these are names like any other they may be used; where they are not, they lead nowhere.
        for path in ("/..%5csecret", "/home%5c..%5c..%5csecret", "/C:%5csecret", "/C:secret", "/secret:stream", "/NUL"):
            self.server.upload(path, b"overwritten")
        self.assertTrue(self.server.outside_is_untouched())

    def test_malformed_requests_are_refused(self):
        self.expect(CASES["malformed"])
        field = '--{B}\r\nContent-Disposition: form-data; name="v"\r\n\r\n'
        self.expect([("POST /sessions", "a" * 5_000_000, 413), ("POST /folders/home/f", "--{B}\r\n" + "h" * 40_000, 400),
                     ("POST /folders/home/f", field + "v" * 100_000 + "\r\n--{B}--\r\n", 400),
                     ("POST /folders/home", "operation=move&path=" + "a/" * 2_000_000, 400),
                     ("POST /sessions", "user_id=demo&password=demo" + "&a" * 10_000, 400),
                     ("POST /sessions", "user_id=demo&password=demo&device_id=" + "x" * 1001, 403),
                     ("POST /registrations", "user_id=demo&device_id=" + "x" * 1001, 403)])
        for kind in ("multipart/form-data", "multipart/form-data; boundary=b"):
            self.assertEqual(self.server.put("/home/f", b"x", headers={"Content-Type": kind})[0], 400)
        refused = json.loads(self.server.put(UPLOAD, b"x", api="/resume/upload")[1])
        self.assertEqual(refused["errorId"], "14", "a proxy drops qd_ headers")
        token_path = f"/api/{self.server.token}/folders/home"
        self.assertEqual([self.server.ask("GET", path)[0] for path in (token_path, "/api/forged/folders/home")], [200, 401])
        self.server.token = "forged"
        self.assertEqual(self.server.error("GET /folders"), "6")
        refused = json.loads(self.server.put("/home/f", b"x" * 1_000_000)[1])
        self.assertEqual(refused["errorId"], "6", "the refusal reaches a client that sends all before it reads")

    def test_a_connection_gets_one_reply_for_each_request(self):
        endless = [["GET /sync/1.3/version HTTP/1.1\r\nX: " + "x" * 100_000 + "\r\n\r\n", "431 "],
                   ["POST /sync/1.3/sessions HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n" + "x" * 200_000 + "\r\n\r\n", "400 "]]
        for sent, statuses in CASES["hostile"] + endless:
            self.assertEqual(self.server.statuses(sent.encode("latin-1")), statuses, sent[:200])

    def test_content_changes_wholly_or_not_at_all(self):
        self.assertEqual(self.server.upload("/home/f", b"old content"), 200)
        first = self.server.item("/home/f")
        self.assertEqual(first["size"], 11)
        # An upload that breaks off.
        head = (f"POST {Hostile.API}/folders/home/f HTTP/1.1\r\nCookie: session_token={self.server.token}\r\n"
                "Content-Type: multipart/form-data; boundary=B\r\nContent-Length: 1000000\r\n\r\n"
                '--B\r\nContent-Disposition: form-data; name="file"; filename="x"\r\n\r\n')
        self.assertEqual(self.server.statuses(head.encode() + b"x" * 500_000), "400 ")
        self.assertEqual((self.server.content("/home/f"), self.server.item("/home/f")), (b"old content", first))
        # A file that somebody changes in the folder itself is another revision.
        outside = self.server.root / "home" / "f"
        written = outside.stat()
        outside.write_bytes(b"changed outside, with its old time")
        os.utime(outside, ns=(written.st_atime_ns, written.st_mtime_ns))
        self.assertEqual(self.server.error(f"DELETE /folders/home/f?revision={first['revision']}"), "1077")
        outside.write_bytes(b"changed outside")
        refused = self.server.put("/home/f", b"lost", [("operation", "create"), ("revision", first["revision"])])[1]
        self.assertEqual(json.loads(refused)["errorId"], "1077")
        self.assertEqual(self.server.error(f"DELETE /folders/home/f?revision={first['revision']}"), "1077")
        self.assertEqual(outside.read_bytes(), b"changed outside")

    def test_what_others_do_in_the_folder_shows(self):
        self.assertEqual(self.server.upload("/home/f", b"content"), 200)
        revision = self.server.item("/home/f")["revision"]
        outside = self.server.root / "home" / "f"
        outside.unlink()
        outside.mkdir()
        self.assertEqual(self.server.item("/home/f")["attributes"], 16)
        self.assertEqual(self.server.error(f"DELETE /folders/home/f?revision={revision}"), "1077")
        self.assertEqual(self.server.upload("/home/late", b"content"), 200)
        late = self.server.root / "home" / "late"
        self.expect([("POST /folders/home/late", "operation=update&modification_time=2300-01-01T00:00:00Z", 200)])
        self.assertGreater(late.stat().st_mtime, 0)
        os.utime(late, (10**10, 10**10))
        self.expect([("GET /folders/home?type=all", "", 200)])

    @unittest.skipIf("exe" in str(sys.argv[1:2]), "no limits on Windows")
    def test_a_full_disk_takes_no_change_or_a_whole_one(self):
        journal = self.server.root / ".quendra-appliance" / "items.jsonl"
        self.expect([("POST /folders/home", "operation=create&name=" + name, 200) for name in "ab"])
        self.assertEqual(self.server.upload("/home/f", b"content"), 200)
        before = self.server.json("GET /folders/home?type=all")
        resource.prlimit(self.server.process.pid, resource.RLIMIT_FSIZE, (journal.stat().st_size + 5, resource.RLIM_INFINITY))
        self.expect([("POST /folders/home", "operation=create&name=c", 507), ("POST /folders/home/a", "operation=update&path=c", 507),
                     ("POST /folders/home/f", "operation=update&modification_time=2020-03-02T10:20:30Z", 507),
                     ("DELETE /folders/home/b", "", 507)])
        self.assertEqual(self.server.upload("/home/f", b"changed"), 507)
        self.assertEqual((self.server.json("GET /folders/home?type=all"), self.server.content("/home/f")), (before, b"content"))
        resource.prlimit(self.server.process.pid, resource.RLIMIT_FSIZE, (resource.RLIM_INFINITY, resource.RLIM_INFINITY))
        self.expect([("POST /folders/home/f", "operation=update&attributes=33", 200)])
        item = self.server.item("/home/f")
        self.server.stop()
        self.server.start()
        self.assertEqual(self.server.item("/home/f"), item)

    def test_ranges_end_where_the_file_ends(self):
        content = bytes(index * 7 % 251 for index in range(200_000))
        self.assertEqual(self.server.upload("/home/f", content), 200)
        for query, expected in {"skip=65535&count=65538": content[65535:131073], "skip=199999&count=9223372036854775807": content[-1:],
                                "skip=200000&count=1": b"", "skip=9223372036854775807": b"", "count=0": b""}.items():
            self.assertTrue(self.server.request("GET /folders/home/f?" + query)[1] == expected, query)
        self.expect(CASES["ranges"])

    def test_moves_overwrite_only_what_they_may(self):
        self.expect([("POST /folders", "operation=create&name=" + name, 200) for name in "ab"])
        self.assertEqual([self.server.upload(f"/{name}/f", name.encode()) for name in "ab"], [200, 200])
        moved = self.server.item("/a/f")
        self.expect(CASES["moves"])
        # What was recorded has moved along, and is still there after a restart, behind a record that was cut off.
        self.server.stop()
        with open(self.server.root / ".quendra-appliance" / "items.jsonl", "a", encoding="utf-8") as journal:
            journal.write('{"/c/f":{"rev')
        self.server.start()
        self.assertEqual(self.server.item("/c/f"), {**moved, "orca_path": "/c/f"})

    def test_refused_chunks_and_deltas_leave_nothing(self):
        chunk = self.server.chunk
        self.assertEqual(chunk(UPLOAD, 0, b"12345", "qd_start"), 200)
        self.assertEqual(chunk(UPLOAD, 6, b"x"), 409, "a gap")
        self.assertEqual(chunk(UPLOAD, 5, b"678901"), 400, "beyond the end")
        self.assertEqual(chunk(UPLOAD, 2**64 - 1, b"x"), 400)
        headers = {"qd_offset": "5", "qd_block_size": "2"}
        self.assertEqual(self.server.put(UPLOAD, b"6", headers=headers, api="/resume/upload")[0], 400, "shorter than it says")
        self.assertEqual(self.server.received(), 5)
        self.assertEqual(chunk(UPLOAD, 5, b"6", "qd_finish"), 409, "too early")
        self.assertEqual(chunk(UPLOAD.replace("/f", "/g"), 5, b"6"), 404, "another item's upload")
        for path, status in (("/home", 409), ("/../f2", 400)):
            self.assertEqual(self.server.request("POST /resume/upload" + UPLOAD, "", {"qd_new_path": path})[0], status)
        self.assertEqual(chunk(UPLOAD, 0, b"12345"), 200, "a late chunk of a connection that the client has closed")
        headers = {"qd_offset": "0", "qd_block_size": "5"}
        self.assertEqual(self.server.put(UPLOAD, b"9", headers=headers, api="/resume/upload")[0], 400, "shorter than it says")
        self.assertEqual(self.server.received(), 6, "it takes nothing back")
        late = (f"POST {Hostile.API}/resume/upload{UPLOAD} HTTP/1.1\r\nCookie: session_token={self.server.token}\r\nqd_offset: 0\r\n"
                "qd_block_size: 5\r\nContent-Type: multipart/form-data; boundary=B\r\nContent-Length: 100\r\n\r\n"
                '--B\r\nContent-Disposition: form-data; name="file"; filename="x"\r\n\r\n99999')
        with Hostile.socket.create_connection(("127.0.0.1", self.server.port), timeout=60) as connection:
            connection.sendall(late.encode())
            latest = time.monotonic() + 60
            while self.server.received("is_locked") != "true":
                self.assertLess(time.monotonic(), latest, "the upload is not locked while a chunk comes")
        self.assertEqual(self.server.statuses(late.encode()), "400 ")
        self.assertEqual(self.server.received(), 6, "a late chunk that breaks off takes nothing back")
        self.assertEqual(chunk(UPLOAD, 6, b"7890"), 200)
        self.assertEqual(self.server.upload("/home/g", b"another item"), 200)
        self.assertEqual(self.server.request("POST /resume/upload" + UPLOAD, "", {"qd_new_path": "/home/g"})[0], 409)
        self.assertEqual(chunk(UPLOAD, 3, b"4567890", "qd_finish"), 200, "a chunk that was sent before may come again")
        self.assertEqual(self.server.content("/home/g"), b"another item")
        self.assertEqual([*(self.server.root / ".quendra-appliance" / "resume").iterdir()], [])

        # A signature comes alone, a delta with fields.
        huge_blocks = b"rs\x01\x36\x7F\xFF\xFF\xFF\0\0\0\x08"
        for fields, file in (([], huge_blocks), ([], b"rs"), ([TIME], b"neither"), ([TIME], b"rs\x02\x36\x45\0\xFF")):
            self.assertIn(self.server.put("/home/f", file, fields, api="/delta")[0], (400, 501))
        self.assertEqual((self.server.root / "home" / "f").read_bytes(), b"1234567890")

    def test_the_feed_loses_nothing_and_ends_with_the_server(self):
        reader, other = self.server.token, self.server.log_in()
        # A reader that hangs up leaves the actions to the session's next one.
        with Hostile.socket.create_connection(("127.0.0.1", self.server.port)) as connection:
            connection.sendall(f"GET {Hostile.API}/notifs HTTP/1.1\r\nCookie: session_token={reader}\r\n\r\n".encode())
        self.server.token = other
        self.expect([("POST /folders", "operation=create&name=x", 200)])
        self.server.token = reader
        self.assertEqual(self.server.json("GET /notifs")["contents"][0]["m"], "/x")

        # Many that wait hold up nobody, also where they have all places or have hung up.
        for hangs_up in (False, True):
            connections = [Hostile.socket.create_connection(("127.0.0.1", self.server.port)) for _ in range(500)]
            for each in connections:
                each.sendall(f"GET {Hostile.API}/notifs HTTP/1.1\r\nCookie: session_token={reader}\r\n\r\n".encode())
            begun = time.monotonic()
            for each in connections if hangs_up else []:
                each.close()
            self.expect([("GET /folders", "", 200)])
            self.assertLess(time.monotonic() - begun, 20)
            for each in connections:
                each.close()

        def wait():
            try:
                self.server.request("GET /notifs")
            except (OSError, Hostile.http.client.HTTPException):
                pass  # the server has ended

        waiting = [threading.Thread(target=wait) for _ in range(20)]
        for each in waiting:
            each.start()
        self.expect([("GET /folders", "", 200)])
        begun = time.monotonic()
        self.server.stop()
        for each in waiting:
            each.join()
        self.assertLess(time.monotonic() - begun, 10)

    @unittest.skipIf("exe" in str(sys.argv[1:2]), "no TLS on Windows")
    def test_tls_needs_the_certificates_own_key(self):
        place = self.server.place
        for name in ("own", "other"):
            subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", "/CN=x",
                            "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", place / f"{name}.key", "-out", place / f"{name}.pem"],
                           check=True, capture_output=True)
        command = [*PROGRAM, "--root", place / "tls", "--cert", place / "own.pem", "--key"]
        refused = subprocess.run([*command, place / "other.key"], capture_output=True, text=True, timeout=60, check=False)
        self.assertEqual((refused.returncode, "cannot use --cert and --key" in refused.stderr), (1, True), refused.stderr)
        with subprocess.Popen([*command, place / "own.key"], stdout=subprocess.PIPE, text=True) as process:
            url = next(line.split()[-1] for line in process.stdout if line.startswith("listening on https://"))
            with urllib.request.urlopen(url + "/endpoints", timeout=60, context=ssl.create_default_context(cafile=place / "own.pem")) as reply:
                self.assertIn("sync", json.load(reply))
            process.terminate()
        self.assertEqual(process.returncode, 0)

    def test_a_start_spares_what_it_cannot_use(self):
        state = self.server.root / ".quendra-appliance"
        second = subprocess.run(self.server.command(), capture_output=True, text=True, timeout=10, check=False)
        self.assertEqual((second.returncode, "another process serves this root" in second.stderr), (1, True), second.stderr)
        self.server.stop()
        protected = state / "temporary" / "protected"
        protected.mkdir()
        (protected / "f").touch()
        protected.chmod(0o555)
        self.server.start()
        self.server.stop()
        if protected.exists():
            protected.chmod(0o755)
        if PROGRAM[-1].endswith(".exe"):
            return  # Wine takes a link to itself for nothing
        os.replace(state / "items.jsonl", state / "kept")
        os.symlink("items.jsonl", state / "items.jsonl")
        refused = subprocess.run(self.server.command(), capture_output=True, text=True, timeout=10, check=False)
        self.assertEqual((refused.returncode, (state / "items.jsonl").is_symlink()), (1, True), refused.stderr)
        os.replace(state / "kept", state / "items.jsonl")
        self.server.start()

    def test_a_broken_chunk_leaves_no_more_than_was_announced(self):
        head = (f"POST {Hostile.API}/resume/upload{UPLOAD} HTTP/1.1\r\nCookie: session_token={self.server.token}\r\nqd_start: true\r\n"
                "qd_file_size: 10\r\nqd_offset: 0\r\nqd_block_size: 5\r\nContent-Type: multipart/form-data; boundary=B\r\n"
                "Content-Length: 999\r\n\r\n--B\r\nContent-Disposition: form-data; name=\"file\"; filename=\"x\"\r\n\r\n")
        self.server.statuses(head.encode() + b"x" * 50)
        self.assertLessEqual(int(self.server.received()), 5)

    def test_a_slow_reply_pauses_once_before_each_block(self):
        plan = self.server.place / "plan"
        plan.write_text('{"faults": [{"name": "slow", "path": "/endpoints", "blocks": {"bytes": 100000, "ms": 1000}}]}')
        self.server.stop()
        self.server.arguments = ["--faults", self.server.shown(plan)]
        self.server.start()
        begun = time.monotonic()
        self.assertEqual(self.server.ask("GET", "/endpoints")[0], 200)
        self.assertAlmostEqual(time.monotonic() - begun, 1.5, delta=0.5)  # the reply is shorter than a block

    def test_the_log_holds_no_token_and_no_forged_line(self):
        self.server.stop()
        self.server.arguments = ["--log"]
        self.server.start()
        for path in (f"/api/{self.server.token}/folders/home", "/%s/1.0/x" % "\x9b"):
            self.server.statuses(f"GET {path} HTTP/1.1\r\n\r\n".encode("latin-1"))
        connection = self.server.connect()
        connection.request("POST", Hostile.API + "/registrations", "user_id=demo&device_id=d&device_name=%0Aforged%1B")
        reply = connection.getresponse()
        self.assertEqual((reply.status, reply.getheader("Content-Length")), (204, None), "a 204 has no length")
        connection.close()
        self.server.stop()
        self.assertIn("GET /api/TOKEN/folders/home -> 200", self.server.printed)
        self.assertIn('"\\nforged\\x1B"', self.server.printed)

    def test_arguments_are_checked_one_by_one(self):
        for arguments, status, message in CASES["arguments"]:
            if message:
                done = subprocess.run([*PROGRAM, *arguments], capture_output=True, text=True, timeout=60, check=False)
                self.assertEqual(done.returncode, status, message)
                self.assertIn(message, done.stdout + done.stderr)
                continue
            self.server.stop()
            self.server.arguments = arguments
            self.server.start()
            self.assertEqual(self.server.port, 65535)


if __name__ == "__main__":
    PROGRAM[:] = [*sys.argv[2:], sys.argv[1]]
    unittest.main(argv=sys.argv[:1])
