"""What tests of heatmeter-store share: a nats-server and a PostgreSQL of their own, the program between them, and
somebody who publishes what gateways would."""

import glob
import json
import os
import shutil
import signal
import socket
import subprocess
import time

import box

NATS_PORT = 4222
NATS = f"nats://127.0.0.1:{NATS_PORT}"
POSTGRES = "host=/tmp/postgres user=postgres dbname=heat"
STREAM = "HEATMETER"


def programs_of_postgres():
    """Where Debian keeps initdb and postgres, "" without them."""
    return max(glob.glob("/usr/lib/postgresql/*/bin"), default="", key=lambda path: int(path.split("/")[4]))


def token(text):
    return "".join(chr(byte) if chr(byte).isalnum() and byte < 128 or chr(byte) in "-_" else f"%{byte:02X}"
                   for byte in text.encode())


def message(gateway="g1", meter="m1", system=1, kind="hourly", lines=()):
    """Subject and body. Lines are texts, so that a value stands as it would in a file."""
    body = json.dumps({"gateway": gateway, "meter": meter, "system": system, "kind": kind}, ensure_ascii=False)
    return (f"heatmeter.{token(gateway)}.{token(meter)}.{system}.record.{kind}",
            (body[:-1] + ', "lines": [' + ",".join(lines) + "]}").encode())


def line(name, moment, value, quality=192):
    return f'["{name}",{moment},{quality},{value}]'


class Publisher:
    """A connection to NATS, as its protocol has it."""

    def __init__(self, port=NATS_PORT):
        self.socket = socket.create_connection(("127.0.0.1", port), timeout=5)
        self.file = self.socket.makefile("rb")
        self.file.readline()  # INFO
        self.send(b'CONNECT {"verbose":false,"pedantic":false,"headers":true,"no_responders":true}\r\nSUB in.box 1\r\n')

    def send(self, text):
        self.socket.sendall(text)

    def answer(self):
        """The next message to us; empty when nobody is there to answer."""
        while True:
            words = self.file.readline().split()
            if not words:
                raise ConnectionError("nats-server is gone")
            if words[0] == b"PING":
                self.send(b"PONG\r\n")
            elif words[0] == b"-ERR":
                raise ConnectionError(words)
            elif words[0] in (b"MSG", b"HMSG"):
                text = self.file.read(int(words[-1]))
                self.file.readline()
                return text[int(words[-2]):] if words[0] == b"HMSG" else text

    def request(self, subject, body=b""):
        body = body if isinstance(body, bytes) else json.dumps(body).encode()
        self.send(b"PUB %s in.box %d\r\n%s\r\n" % (subject.encode(), len(body), body))
        return json.loads(self.answer())

    def publish(self, *messages, header=""):
        """Subjects and bodies; all are confirmed then. The last one's sequence."""
        head = f"NATS/1.0\r\n{header}\r\n\r\n".encode() if header else b""
        words = b"HPUB %%s in.box %d %%d\r\n" % len(head) if header else b"PUB %s in.box %d\r\n"
        confirmed = {"seq": 0}
        for begin in range(0, len(messages), 200):
            some = messages[begin:begin + 200]
            self.send(b"".join(words % (subject.encode(), len(head + body)) + head + body + b"\r\n"
                               for subject, body in some))
            for _ in some:
                confirmed = json.loads(self.answer())
                if "error" in confirmed:
                    raise ConnectionError(confirmed)
        return confirmed["seq"]

    def make_stream(self):
        self.request(f"$JS.API.STREAM.CREATE.{STREAM}",
                     {"name": STREAM, "subjects": ["heatmeter.>"], "storage": "file", "retention": "limits",
                      "max_consumers": -1, "max_msgs": -1, "max_bytes": -1, "max_age": 0, "num_replicas": 1,
                      "discard": "old"})

    def make_consumer(self, ack_wait):
        """With a shorter wait than the store's own: what a killed one had comes again sooner."""
        answer = self.request(f"$JS.API.CONSUMER.DURABLE.CREATE.{STREAM}.store",
                              {"stream_name": STREAM, "config": {
                                  "durable_name": "store", "ack_policy": "explicit", "deliver_policy": "all",
                                  "replay_policy": "instant", "ack_wait": int(ack_wait * 1e9), "max_deliver": -1,
                                  "max_ack_pending": 20000}})
        assert "error" not in answer, answer

    def consumer(self):
        return self.request(f"$JS.API.CONSUMER.INFO.{STREAM}.store")


class FarEnd(box.Test):
    def setUp(self):
        super().setUp()
        for program, package in (("nats-server", shutil.which("nats-server")), ("postgresql", programs_of_postgres())):
            if not package:
                self.skipTest(f"no {program}")
        self.nats = self.postgres = None

    # PostgreSQL does not run as root.
    def as_postgres(self):
        return ["setpriv", "--reuid", "postgres", "--regid", "postgres", "--clear-groups"] if os.geteuid() == 0 else []

    def make_postgres(self, *words):
        """Its folder, with words for initdb."""
        os.makedirs("/tmp/postgres", exist_ok=True)
        if os.geteuid() == 0:
            shutil.chown("/tmp/postgres", "postgres", "postgres")
        subprocess.run([*self.as_postgres(), f"{programs_of_postgres()}/initdb", "-D", "/tmp/postgres/data", "-U",
                        "postgres", "--encoding", "UTF8", "--locale", "C.UTF-8", "--auth", "trust", "--no-sync", *words],
                       check=True, stdout=subprocess.DEVNULL)

    def run_postgres(self, *settings):
        """The process alone, which may need a while, or end."""
        self.postgres = self.start("postgres", [
            *self.as_postgres(), f"{programs_of_postgres()}/postgres", "-D", "/tmp/postgres/data",
            "-k", "/tmp/postgres", "-c", "listen_addresses=127.0.0.1",
            "-c", "shared_buffers=64MB", *settings])

    def start_postgres(self, *settings):
        if not os.path.exists("/tmp/postgres/data"):
            self.make_postgres()
        self.run_postgres(*settings)
        self.wait_for(lambda: self.sql("SELECT 1", database="postgres", check=False) == [["1"]], "PostgreSQL", 60)
        if not self.sql("SELECT 1 FROM pg_database WHERE datname = 'heat'", database="postgres"):
            self.sql("CREATE DATABASE heat", database="postgres")

    def start_nats(self, *words):
        self.nats = self.start("nats", ["nats-server", "-a", "127.0.0.1", "-p", str(NATS_PORT), "-js", "-sd", "/tmp/nats",
                                        *words])
        self.wait_for_nats()

    def wait_for_nats(self):
        def answers():
            try:
                return "error" not in Publisher().request("$JS.API.INFO")
            except (OSError, ValueError):
                return False
        self.wait_for(answers, "nats-server")

    def start_cluster_node(self, n):
        """One of three, whose ports follow the first one's."""
        routes = ",".join(f"nats://127.0.0.1:{6222 + i}" for i in range(3))
        return self.start(f"nats{n}", ["nats-server", "-a", "127.0.0.1", "-p", str(NATS_PORT + n), "-js", "-sd",
                                       f"/tmp/nats{n}", "--name", f"n{n}", "--cluster_name", "fleet", "--cluster",
                                       f"nats://127.0.0.1:{6222 + n}", "--routes", routes])

    def wait_for_cluster(self):
        """It has a leader."""
        def answers():
            try:
                return "error" not in Publisher().request("$JS.API.INFO")
            except (OSError, ValueError):
                return False
        self.wait_for(answers, "the cluster", 60)

    def start_servers(self):
        self.start_postgres()
        self.start_nats()

    def kill(self, program):
        """With all its processes, as when the machine goes dark; but what it has written stays."""
        program.end(signal.SIGKILL)

    def sql(self, text, database="heat", check=True):
        """Rows of texts."""
        done = subprocess.run(["psql", "-X", "-A", "-t", "-F", "\t", "-v", "ON_ERROR_STOP=1",
                               f"host=/tmp/postgres user=postgres dbname={database}", "-c", text],
                              capture_output=True, text=True, timeout=60)
        if check:
            self.assertEqual(done.returncode, 0, done.stderr)
        return [row.split("\t") for row in done.stdout.splitlines()]

    def store(self, *words):
        """A running store."""
        if "--nats" not in words:
            words = ("--nats", NATS, *words)
        return self.start("heatmeter-store", [f"{self.build}/heatmeter-store", "--postgres", POSTGRES, *words], self.runner)

    def store_once(self, *words, status=0, patience=100):
        program = self.store("--once", *words)
        self.assertEqual(program.status(patience), status, program.output("stderr"))
        return program.output("stderr")

    def lines(self, what="gateway, meter, system, kind, name, extract(epoch FROM time)::bigint, quality, value"):
        return self.sql(f"SELECT {what} FROM record_line ORDER BY gateway, meter, system, kind, name, time, quality, value")

    def values(self, name="A1"):
        """[time, value] of a name."""
        return self.sql(f"SELECT extract(epoch FROM time)::bigint, value FROM record_line WHERE name = '{name}'"
                        " ORDER BY time, quality, value")
