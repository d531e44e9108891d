"""What tests of heatmeter-view share: the program, and somebody who asks it."""

import http.client
import json
import os
import re
import subprocess
import time

import box

ADDRESS = "127.0.0.1"
PORT = 8083


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(text if isinstance(text, bytes) else text.encode())


def publish(uuid, n=1, **items):
    for name, text in items.items():
        write(f"/tmp/{uuid}/{n}/tc_items/{name}", f"{text}\n")


def password_file(path, **passwords):
    def hash_of(password):
        return subprocess.run(["perl", "-e", 'print crypt($ARGV[0], q($6$rounds=5000$heatmeter$))', password],
                              check=True,
                              stdout=subprocess.PIPE, text=True).stdout
    write(path, "".join(f"{name}:{hash_of(password)}\n" for name, password in passwords.items()))
    return path


class Visitor(box.Test):
    def view(self, *words, listen=f"{ADDRESS}:{PORT}"):
        """The running program, ready to be asked."""
        program = self.start("heatmeter-view", [f"{self.build}/heatmeter-view", "--listen", listen, *words],
                             self.runner)
        self.wait_for(lambda: "http://" in program.output("stderr") or not program.runs(), "the program")
        self.assertTrue(program.runs(), program.output("stderr"))
        return program

    def ask(self, target, method="GET", headers=(), patience=20):
        """Status, headers and body of an answer."""
        connection = http.client.HTTPConnection(ADDRESS, PORT, timeout=patience)
        try:
            connection.request(method, target, headers=dict(headers))
            answer = connection.getresponse()
            return answer.status, answer.headers, answer.read()
        finally:
            connection.close()

    def get(self, target, status=200, **more):
        told, _, body = self.ask(target, **more)
        self.assertEqual(told, status, f"{target}: {body[:200]}")
        return body.decode()

    def get_json(self, target, **more):
        return json.loads(self.get(target, **more))

    def is_served(self, longest=2.0, **more):
        """A guest who behaves is served, and soon."""
        for target in ("/healthz", "/api/overview", "/metrics", "/"):
            begin = time.monotonic()
            self.get(target, **more)
            self.assertLess(time.monotonic() - begin, longest, target)

    def memory(self, program):
        """Bytes that are the program's own."""
        return int(re.search(r"RssAnon:\s+(\d+) kB", box.read(f"/proc/{program.process.pid}/status"))[1]) * 1024

    def descriptors(self, program):
        return len(os.listdir(f"/proc/{program.process.pid}/fd"))
