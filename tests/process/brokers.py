"""Brokers for the tests of what forwards, of the test's own, in its box; and what came in."""

import base64
import gzip
import json
import os
import shutil
import socket
import ssl
import subprocess
import threading
import time

import box

MQTT_PORT = 1883
NATS_PORT = 4222


def write(path, text, mode=0o644):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)
    return path


def is_open(port):
    with socket.socket() as trial:
        return trial.connect_ex(("127.0.0.1", port)) == 0


def certificates(folder):
    """An authority's, one for 127.0.0.1, one for another host, and one of a client: names of files without their ends."""
    os.makedirs(folder, exist_ok=True)

    def openssl(*words):
        subprocess.run(["openssl", *words], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    for ca in ("ca", "stranger"):
        openssl("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-days", "3",
                "-subj", f"/CN={ca}", "-keyout", f"{folder}/{ca}.key", "-out", f"{folder}/{ca}.crt")
    for name, host in (("server", "IP:127.0.0.1,DNS:localhost"), ("other", "DNS:other.example"), ("client", "DNS:c")):
        openssl("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1", "-nodes", "-subj", f"/CN={name}",
                "-keyout", f"{folder}/{name}.key", "-out", f"{folder}/{name}.csr")
        extra = write(f"{folder}/{name}.ext", f"subjectAltName={host}\n")
        openssl("x509", "-req", "-in", f"{folder}/{name}.csr", "-CA", f"{folder}/ca.crt", "-CAkey", f"{folder}/ca.key",
                "-CAcreateserial", "-days", "3", "-extfile", extra, "-out", f"{folder}/{name}.crt")
    return folder


class ThinLine:
    """Connections to a port go on to another, in both directions together with no more than so many bytes a second."""

    def __init__(self, port, target, rate):
        self.target, self.rate, self.carried, self.free_at = target, rate, 0, 0.0
        self.lock = threading.Lock()
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)  # what waits, waits with who sends
        self.listener.bind(("127.0.0.1", port))
        self.listener.listen()
        threading.Thread(target=self.accept, daemon=True).start()

    def accept(self):
        while True:
            here, _ = self.listener.accept()
            there = socket.create_connection(("127.0.0.1", self.target), 5)
            there.settimeout(None)
            for pair in ((here, there), (there, here)):
                threading.Thread(target=self.carry, args=pair, daemon=True).start()

    def carry(self, source, target):
        try:
            while piece := source.recv(256):
                with self.lock:
                    self.carried += len(piece)
                    self.free_at = max(self.free_at, time.monotonic()) + len(piece) / self.rate
                    free_at = self.free_at
                time.sleep(max(0.0, free_at - time.monotonic()))
                target.sendall(piece)
        except OSError:
            pass
        for end in (source, target):
            end.close()


class NatsClient:
    """As much of the protocol as reading a stream takes."""

    def __init__(self, port=NATS_PORT, context=None, **words):
        self.socket = socket.create_connection(("127.0.0.1", port), 10)
        self.file = self.socket.makefile("rb")
        self.file.readline()  # INFO
        if context:
            self.socket = context.wrap_socket(self.socket, server_hostname="localhost")
            self.file = self.socket.makefile("rb")
        self.send("CONNECT " + json.dumps({"verbose": False, "headers": True, "no_responders": True, **words}))
        self.inbox = f"_INBOX.{os.getpid()}.{id(self)}"
        self.send(f"SUB {self.inbox} 1")

    def send(self, line, body=b""):
        self.socket.sendall(line.encode() + b"\r\n" + body)

    def request(self, subject, question):
        body = json.dumps(question).encode()
        self.send(f"PUB {subject} {self.inbox} {len(body)}", body + b"\r\n")
        while True:
            line = self.file.readline().decode().split()
            if not line:
                raise ConnectionError("the server has gone")
            if line[0] == "PING":
                self.send("PONG")
            elif line[0] == "MSG":
                answer = self.file.read(int(line[-1]) + 2)[:-2]
                return json.loads(answer)
            elif line[0] == "HMSG":
                self.file.read(int(line[-1]) + 2)
                return {}

    def messages(self, stream="HEATMETER"):
        """(subject, headers, body) of all that stands in the stream, in its order."""
        state = self.request(f"$JS.API.STREAM.INFO.{stream}", {}).get("state")
        found = []
        for sequence in range(state["first_seq"], state["last_seq"] + 1) if state and state["messages"] else ():
            message = self.request(f"$JS.API.STREAM.MSG.GET.{stream}", {"seq": sequence}).get("message")
            if message:
                head, body = (base64.b64decode(message.get(part, "")) for part in ("hdrs", "data"))
                if b"Content-Encoding: gzip" in head:
                    body = gzip.decompress(body)
                found.append((message["subject"], head.decode(), json.loads(body)))
        return found


class Brokers(box.Test):
    def need(self, *programs):
        for program in programs:
            if shutil.which(program, path=os.environ["PATH"] + ":/usr/sbin") is None:
                self.skipTest(f"no {program}")

    def mosquitto(self, *lines, port=MQTT_PORT):
        self.need("mosquitto", "mosquitto_sub")
        os.makedirs("/tmp/broker/mqtt", exist_ok=True)
        config = write(f"/tmp/broker/mosquitto{port}.conf", "\n".join(
            [f"listener {port} 127.0.0.1", "user root", "persistence true", "persistence_location /tmp/broker/mqtt/",
             "allow_anonymous true", "max_queued_messages 0", *lines, ""]))
        broker = self.start("mosquitto", [shutil.which("mosquitto", path="/usr/sbin:/usr/bin"), "-c", config])
        self.wait_for(lambda: is_open(port), "mosquitto")
        return broker

    def nats(self, *lines, port=NATS_PORT):
        self.need("nats-server")
        config = write(f"/tmp/broker/nats{port}.conf", "\n".join(
            [f"listen: 127.0.0.1:{port}", f'jetstream {{ store_dir: "/tmp/broker/nats{port}" }}', *lines, ""]))
        broker = self.start("nats", [shutil.which("nats-server", path="/usr/sbin:/usr/bin"), "-c", config])
        self.wait_for(lambda: is_open(port), "nats-server")
        return broker

    def listener(self, *words, port=MQTT_PORT, topic="#"):
        """Prints "topic body" of all that comes, and has come while it was away."""
        program = self.start("listener", ["mosquitto_sub", "-p", str(port), "-i", "listener", "-c", "-q", "1", "-v",
                                          "-t", topic, "-V", "5", "-F", "%t %p", *words])
        time.sleep(0.5)
        return program

    def settings(self, *sections, name="g1", **send):
        lines = ["[gateway]", f"name = {name}", "[send]", *(f"{key} = {value}" for key, value in send.items())]
        return write("/tmp/etc/uplink.conf", "\n".join([*lines, *sections, ""]))

    def uplink(self, *words):
        os.makedirs("/tmp/state", exist_ok=True)
        return self.start("uplink", [f"{self.build}/heatmeter-uplink", "--config", "/tmp/etc/uplink.conf",
                                     "--state", "/tmp/state", *words], self.runner)
