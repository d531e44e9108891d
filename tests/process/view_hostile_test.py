#!/usr/bin/env python3
"""Clients of heatmeter-view that mean it ill: whatever they do, others are served within two seconds, and memory and
descriptors stay within bounds."""

import base64
import os
import re
import resource
import socket
import subprocess
import threading
import time

import visitor
from visitor import ADDRESS, PORT, publish, write

MOST_MEMORY = 12 * 1024 * 1024  # bytes of its own, whatever comes
SAFETY = {"Content-Security-Policy": "default-src 'none'; ", "X-Content-Type-Options": "nosniff",
          "X-Frame-Options": "DENY", "Referrer-Policy": "no-referrer"}
SECRET = "not-to-be-read"


def connect(patience=10):
    return socket.create_connection((ADDRESS, PORT), timeout=patience)


def basic(user, password):
    return {"Authorization": "Basic " + base64.b64encode(f"{user}:{password}".encode()).decode()}


def rest_of(connection):
    """All that comes until the end, or until nothing comes."""
    told = b""
    try:
        while piece := connection.recv(65536):
            told += piece
    except OSError:
        pass
    return told


def say(text, patience=10):
    """What is answered to these bytes."""
    with connect(patience) as connection:
        try:
            connection.sendall(text)
            connection.shutdown(socket.SHUT_WR)
        except OSError:
            pass
        return rest_of(connection)


class Hostile(visitor.Visitor):
    def setUp(self):
        super().setUp()
        resource.setrlimit(resource.RLIMIT_NOFILE, (4096, resource.getrlimit(resource.RLIMIT_NOFILE)[1]))
        publish("m1", MeterModel="KM5-2", T1="61.5", IE1="1000.25")
        hour = int(time.time()) // 3600 * 3600
        for name in ("A1", "A20"):
            write(f"/mnt/storage/m1/1/tc_archives/{name}",
                  "".join(f"{hour - i * 3600},192,{i}.500000\n" for i in reversed(range(2000))))

    def begin(self, *words):
        self.program = self.view(*words)
        self.before = None

    def is_well(self, **more):
        self.is_served(**more)
        self.assertTrue(self.program.runs(), self.program.output("stderr"))
        if not self.is_sanitized():
            self.assertLess(self.memory(self.program), MOST_MEMORY)
        if self.before is None:
            self.before = self.descriptors(self.program)

    def is_sanitized(self):  # which has memory of its own
        with open(f"/proc/{self.program.process.pid}/maps", encoding="utf-8", errors="replace") as maps:
            return re.search(r"lib(asan|tsan)", maps.read()) is not None

    def comes_back(self, **more):
        """What was open for them is closed again."""
        self.wait_for(lambda: self.descriptors(self.program) <= self.before + 2, "closed descriptors")
        self.is_well(**more)

    def while_well(self, seconds, work, **more):
        """Others are served while the work is done in threads."""
        threads = [threading.Thread(target=one, daemon=True) for one in work]
        for thread in threads:
            thread.start()
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.is_well(**more)
            time.sleep(0.2)
        for thread in threads:
            thread.join(30)
            self.assertFalse(thread.is_alive())

    def test_a_thousand_connections_that_say_nothing(self):
        self.begin()
        self.is_well()
        open_ones = []
        def come():
            for _ in range(1000):
                try:
                    open_ones.append(connect(1))
                except OSError:
                    pass
        self.while_well(6, [come])
        self.assertGreater(len(open_ones), 500)
        self.assertLess(self.descriptors(self.program), 250)
        # All at once, again and again.
        for _ in range(3):
            for connection in open_ones:
                connection.close()
            open_ones.clear()
            self.while_well(1, [come])
        for connection in open_ones:
            connection.close()
        self.comes_back()

    def test_a_connection_that_says_nothing_is_closed(self):
        self.begin()
        self.is_well()
        begin = time.monotonic()
        with connect(60) as silent:
            self.assertEqual(rest_of(silent), b"")
        self.assertLess(time.monotonic() - begin, 30)

    def test_headers_of_a_megabyte(self):
        self.begin()
        self.is_well()
        megabyte = b"x" * 1024 * 1024
        texts = [b"GET / HTTP/1.1\r\nHost: localhost\r\nX: " + megabyte + b"\r\n\r\n",
                 b"GET / HTTP/1.1\r\n" + b"X: y\r\n" * 200_000 + b"\r\n",
                 b"GET /" + megabyte + b" HTTP/1.1\r\nHost: localhost\r\n\r\n",
                 megabyte, b"GET /?" + b"a=b&" * 4000 + b" HTTP/1.1\r\nHost: localhost\r\n\r\n"]
        answers = []
        self.while_well(3, [lambda text=text: answers.append(say(text)) for text in texts * 8])
        for answer in answers:
            self.assertNotIn(b" 200 ", answer.split(b"\r\n")[0])
        self.comes_back()

    def test_a_byte_a_second(self):
        self.begin()
        self.is_well()
        ends = []
        def dawdle(text):
            begin = time.monotonic()
            with connect(60) as connection:
                connection.settimeout(1)
                for i in range(60):
                    try:
                        connection.sendall(text[i:i + 1])
                        if connection.recv(1000) == b"":
                            break
                    except TimeoutError:
                        continue
                    except OSError:
                        break
            ends.append(time.monotonic() - begin)
        work = [lambda: dawdle(b"GET /healthz HTTP/1.1\r\nHost: localhost\r\nX: " + b"y" * 60)] * 20
        work += [lambda: dawdle(b"\r\n" * 40)] * 5
        self.while_well(26, work)
        self.assertLess(max(ends), 35)
        self.comes_back()

    def test_answers_that_nobody_takes(self):
        self.begin()
        self.is_well()
        open_ones = []
        def ask():
            for _ in range(40):
                connection = socket.socket()
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
                connection.settimeout(5)
                try:
                    connection.connect((ADDRESS, PORT))
                    connection.sendall(b"GET /api/meters/m1/1/archive?format=csv&from=@0&long=1 HTTP/1.1\r\n"
                                       b"Host: localhost\r\n\r\n" * 20)
                    open_ones.append(connection)
                except OSError:
                    pass
        self.while_well(5, [ask])
        for connection in open_ones:
            connection.close()
        self.comes_back()

    def test_streams_that_never_read(self):
        for i in range(60):
            publish("m1", **{f"X{i}": "x" * 2000})
        self.begin()
        self.is_well()
        open_ones, answers = [], []
        def listen():
            for _ in range(60):
                connection = socket.socket()
                connection.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 2048)
                connection.settimeout(5)
                connection.connect((ADDRESS, PORT))
                connection.sendall(b"GET /api/stream HTTP/1.1\r\nHost: localhost\r\n\r\n")
                answers.append(connection.recv(20))
                open_ones.append(connection)
        def write_on():
            for turn in range(40):
                for i in range(60):
                    publish("m1", **{f"X{i}": f"{turn} " + "x" * 2000})
                time.sleep(0.2)
        self.while_well(12, [listen, write_on])
        self.assertIn(b"HTTP/1.1 200 OK", answers[0])
        self.assertIn(b"HTTP/1.1 503", answers[-1])
        self.assertLess(sum(b"200 OK" in answer for answer in answers), 60)
        for connection in open_ones:
            connection.close()
        self.comes_back()
        status, headers, _ = self.stream_begins()
        self.assertEqual((status, headers["Content-Type"]), (200, "text/event-stream"))

    def stream_begins(self):
        with connect() as connection:
            connection.sendall(b"GET /api/stream HTTP/1.1\r\nHost: localhost\r\n\r\n")
            head = b""
            while b"event: hello" not in head:
                piece = connection.recv(4096)
                self.assertTrue(piece, head)
                head += piece
        lines = head.split(b"\r\n\r\n")[0].decode().split("\r\n")
        return int(lines[0].split()[1]), dict(line.split(": ", 1) for line in lines[1:]), head

    def test_a_hundred_wrong_passwords_a_second(self):
        keeper = basic("keeper", "right")
        self.begin("--password-file", visitor.password_file("/tmp/etc/view.passwd", keeper="right", other="known"))
        self.is_well(headers=keeper)
        told = []
        def guess(user):
            for turn in range(250):
                begin = time.monotonic()
                try:
                    told.append(self.ask("/api/overview", headers=basic(user, f"guess {turn}"))[:2])
                except OSError:
                    told.append((0, {}))
                time.sleep(max(0, 0.04 - (time.monotonic() - begin)))
        self.while_well(9, [lambda user=user: guess(user) for user in ("keeper", "keeper", "nobody", "other")],
                        headers=keeper)
        statuses = [status for status, _ in told]
        self.assertEqual(statuses.count(200), 0)
        self.assertGreater(statuses.count(429), 700)
        self.assertLess(statuses.count(401), 100)
        self.assertTrue(all(int(headers["Retry-After"]) > 0 for status, headers in told if status == 429))
        # One who comes now for the first time gets in, though not at once.
        self.wait_for(lambda: self.ask("/api/overview", headers=basic("other", "known"))[0] == 200, "the other one", 70)
        self.comes_back(headers=keeper)

    def test_other_methods_and_broken_requests(self):
        self.begin()
        self.is_well()
        for method in ("POST", "PUT", "DELETE", "OPTIONS", "PATCH", "TRACE", "CONNECT", "BREW"):
            status, headers, _ = self.ask("/api/overview", method=method)
            self.assertEqual((status, headers["Allow"]), (405, "GET, HEAD"), method)
        self.assertEqual(self.ask("/healthz", method="HEAD")[::2], (200, b""))
        line = b"GET /healthz HTTP/1.1\r\nHost: localhost\r\n"
        for text in (b"", b"\r\n\r\n\r\n", b"\0" * 5000, b"GET\r\n\r\n", b"GET /healthz\r\n\r\n",
                     b"GET /healthz HTTP/9.9\r\n\r\n", b"GET  /healthz  HTTP/1.1\r\n\r\n",
                     b"get /healthz HTTP/1.1\r\nHost: x\r\n\r\n", b"GET http://[ HTTP/1.1\r\n\r\n",
                     b"GET * HTTP/1.1\r\nHost: localhost\r\n\r\n", b"\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03",
                     b"PRI * HTTP/2.0\r\n\r\nSM\r\n\r\n", line + b"Content-Length: -1\r\n\r\n",
                     line + b"Content-Length: 99999999999999999999\r\n\r\n",
                     line + b"Content-Length: 5\r\nContent-Length: 6\r\n\r\nhello",
                     line + b"Content-Length: 10\r\n\r\nhello",
                     line + b"Transfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n",
                     line + b"Transfer-Encoding: x\r\n\r\n", line + b"Host: other\r\n\r\n",
                     line + b" folded: y\r\n\r\n", line + b": y\r\n\r\n", line + b"X\r\n\r\n",
                     line + b"Authorization: Basic \xff\xff\r\n\r\n",
                     line + b"Authorization: Basic " + b"A" * 9000 + b"\r\n\r\n",
                     line + b"If-None-Match: " + b"\"x\"," * 1000 + b"\r\n\r\n",
                     line + b"Range: bytes=0-99999999999\r\n\r\n",
                     line + b"Expect: 100-continue\r\nContent-Length: 3\r\n\r\n",
                     line + b"Upgrade: websocket\r\nConnection: upgrade\r\n\r\n"):
            answer = say(text, patience=3)
            self.assertTrue(answer == b"" or answer.startswith(b"HTTP/1."), text[:80])
            self.is_well()
        self.comes_back()

    def test_pipelined_requests(self):
        self.begin()
        self.is_well()
        request = b"GET /healthz HTTP/1.1\r\nHost: localhost\r\n"
        answer = say((request + b"\r\n") * 999 + request + b"Connection: close\r\n\r\n")
        self.assertEqual(answer.count(b"HTTP/1.1 200 OK"), 1000)
        slow = b"GET /api/meters/m1/1/archive?from=@0 HTTP/1.1\r\nHost: localhost\r\n\r\n"
        self.while_well(4, [lambda: say(slow * 200)] * 10)
        self.comes_back()

    def test_many_who_ask_for_what_is_dear(self):
        self.begin()
        self.is_well()
        def ask():
            for _ in range(30):
                say(b"GET /api/meters/m1/1/archive?from=@0&points=2000 HTTP/1.1\r\nHost: localhost\r\n"
                    b"Connection: close\r\n\r\n")
        self.while_well(4, [ask] * 20)
        self.comes_back()

    def test_nothing_but_the_files_of_known_meters_is_served(self):
        write("/tmp/secret/T1", SECRET + "\n")
        write("/tmp/secret.txt", SECRET + "\n")
        os.makedirs("/tmp/m1/2/tc_items")
        os.mkfifo("/tmp/m1/2/tc_items/T1")
        os.makedirs("/mnt/storage/m1/2/tc_archives")
        os.mkfifo("/mnt/storage/m1/2/tc_archives/A1")
        os.symlink("/dev/zero", "/mnt/storage/m1/2/tc_archives/A20")
        self.begin()
        self.is_well()
        paths = ["/../secret.txt", "/..%2fsecret.txt", "/%2e%2e/secret.txt", "/%252e%252e/secret.txt", "//secret.txt",
                 "/style.css%00.js", "/api/meters/%00/1/values", "/api/meters/../1/values",
                 "/api/meters/%2e%2e/1/values", "/api/meters/..%2fsecret/1/values",
                 "/api/meters/..%2f..%2fetc/1/values", "/api/meters/m1%2f..%2fsecret/1/values",
                 "/api/meters/secret/1/values", "/api/meters/m1/0/values", "/api/meters/m1/7/values",
                 "/api/meters/m1/1.0/values", "/api/meters/m1/1/../values", "/api/meters/m1//values",
                 "/api/meters//1/values", "/api/meters/./1/values", "/api/meters/m1/-1/values",
                 "/api/meters/m1/99999999999999999999/values", "/api//meters", "/api/meters/m1/1/values/",
                 "/" + "a" * 15000, "/api/meters/" + "%41" * 4000 + "/1/values", "/tmp/secret.txt", "/etc/passwd",
                 "/page/index.html", "/%", "/%f", "/%zz", "/%ff%fe", "/\\..\\secret.txt", "/file:///etc/passwd"]
        paths += [f"/api/meters/m1/1/archive?names={name}" for name in
                  ("../../../../../tmp/secret.txt", "..%2f..%2ftc_items%2fT1", "%2e%2e", "A1%00", "/etc/passwd",
                   "A" * 300)]
        for path in paths:
            answer = say(f"GET {path} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode("latin-1"))
            status = answer.split(b" ")[1:2]
            self.assertNotIn(SECRET.encode(), answer, path)
            self.assertNotIn(b"root:", answer, path)
            if "names=" not in path and path not in ("/api/meters/m1/1/values/",):
                self.assertIn(status, ([b"400"], [b"404"], [b"414"], [b"431"]), f"{path}: {answer[:100]}")
        self.is_well()
        for target in ("/api/meters/m1/2/values", "/api/meters/m1/2/archive", "/api/meters/m1/2/archives"):
            self.assertNotIn(b" 500 ",
                             say(f"GET {target} HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n".encode()))
        self.is_well()

    def test_links_lead_nowhere(self):
        """Who may write into /tmp gets nothing shown that heatmeter-view alone may read."""
        write("/mnt/outside/tc_items/T1", SECRET + "\n")
        write("/mnt/outside/1/tc_items/T1", SECRET + "\n")
        for place, root in (("/tmp", []), ("/tmp/copy/tmp", ["--root", "/tmp/copy"])):
            os.makedirs(f"{place}/m2/1")
            os.symlink("/mnt/outside/tc_items", f"{place}/m2/1/tc_items")
            os.makedirs(f"{place}/m3/1/tc_items")
            os.symlink("/mnt/outside/tc_items/T1", f"{place}/m3/1/tc_items/T1")
            os.symlink("/mnt/outside", f"{place}/m4")
            self.begin(*root)
            for uuid in ("m2", "m3", "m4"):
                for what in ("values", "archives", "archive", "events"):
                    _, _, body = self.ask(f"/api/meters/{uuid}/1/{what}")
                    self.assertNotIn(SECRET, body.decode(), f"{root} {uuid} {what}")
            self.assertNotIn(SECRET, self.get("/metrics"))
            self.program.end()

    def test_without_passwords_it_listens_on_loopback_alone(self):
        for listen in ("0.0.0.0:8083", "[::]:8083", "192.0.2.1:8083", ":8083", "8083", "localhost.evil:8083",
                       "127.0.0.1:99999"):
            done = subprocess.run([f"{self.build}/heatmeter-view", "--listen", listen], timeout=20,
                                  capture_output=True, text=True)
            self.assertEqual(done.returncode, 2, f"{listen}: {done.stderr}")
            self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        for text in ("", "no hash\n", "a:plain\n", "\n"):
            write("/tmp/etc/passwords", text)
            done = subprocess.run([f"{self.build}/heatmeter-view", "--listen", "0.0.0.0:8083", "--password-file",
                                   "/tmp/etc/passwords"],
                                  timeout=20, capture_output=True, text=True)
            self.assertEqual(done.returncode, 2, f"{text}: {done.stderr}")
        self.view("--password-file", visitor.password_file("/tmp/etc/view.passwd", keeper="right"),
                  listen="0.0.0.0:8083")
        self.get("/api/overview", status=401)
        self.get("/healthz")

    def test_a_page_of_another_host_is_told_nothing(self):
        """A name that leads to this machine's loopback in a foreign page's hands."""
        self.begin()
        self.assertEqual(self.ask("/api/overview", headers={"Host": "evil.example"})[0], 421)
        for host in ("localhost", "localhost:8083", "127.0.0.1:8083", "[::1]:8083"):
            self.assertEqual(self.ask("/api/overview", headers={"Host": host})[0], 200, host)

    def test_every_answer_is_guarded(self):
        self.begin("--password-file", visitor.password_file("/tmp/etc/view.passwd", keeper="right"))
        keeper = basic("keeper", "right")
        rows = [("/", keeper, 200), ("/", {}, 401), ("/healthz", {}, 200), ("/metrics", keeper, 200),
                ("/api/overview", keeper, 200), ("/api/nothing", keeper, 404), ("/nothing", keeper, 404),
                ("/api/meters/m1/1/archive?format=csv", keeper, 200), ("/%zz", keeper, 400),
                ("/api/meters/m1/1/archive?from=soon", keeper, 400)]
        for target, method, headers, status in [*((row[0], "GET", *row[1:]) for row in rows),
                                                ("/", "HEAD", keeper, 200), ("/", "POST", keeper, 405)]:
            told, answer, body = self.ask(target, method=method, headers=headers)
            self.assertEqual(told, status, f"{target}: {body[:100]}")
            for name, beginning in SAFETY.items():
                self.assertTrue((answer[name] or "").startswith(beginning), f"{target}: {name}: {answer[name]}")
            if target.startswith("/api") and status >= 400:
                self.assertEqual(answer["Content-Type"].split(";")[0], "application/json")


if __name__ == "__main__":
    import box
    box.main(__file__)
