#!/usr/bin/env python3
"""What docs/fleet.md lets each user of nats-server do: enough for the real programs, and nothing to a neighbour."""

import base64
import json
import re
import socket

import box
from brokers import Brokers, write
from far_end import NATS, STREAM, FarEnd, Publisher, line, message

HOUR = 1709377200
API = "$JS.API.STREAM"


def authorization():
    """The document's own block, with passwords that are known, and one gateway more."""
    block = re.search(r"^authorization \{\n.*?^\}\n", box.read(f"{box.DOCS}/fleet.md"), re.M | re.S).group()
    block = re.sub(r'user: (\w+), password: "[^"]*"', r'user: \1, password: "of \1"', block)
    cellar1 = re.search(r"    \{ user: cellar1.*?\} \}\n", block, re.S).group()
    return block.replace(cellar1, cellar1 + cellar1.replace("cellar1", "cellar2"))


class User:
    """A connection that answers nothing but what it is asked to send."""

    def __init__(self, name):
        self.socket = socket.create_connection(("127.0.0.1", 4222), 5)
        self.file = self.socket.makefile("rb")
        self.file.readline()  # INFO
        self.inbox = f"_INBOX_{name}.own"
        self.said = b""
        self.refusals("CONNECT " + json.dumps({"verbose": False, "headers": True, "user": name, "pass": f"of {name}"}),
                      f"SUB {self.inbox} 1")

    def refusals(self, *lines):
        """What the server refuses of them; what else it says is kept."""
        self.socket.sendall("".join(f"{text}\r\n" for text in (*lines, "PING")).encode())
        refused = []
        while (said := self.file.readline()) != b"PONG\r\n":
            if not said:
                raise ConnectionError("nats-server is gone")
            if said.startswith(b"-ERR"):
                refused.append(said.decode())
            self.said += said
        return refused

    def request(self, subject, body=""):
        self.said = b""
        self.socket.sendall(f"PUB {subject} {self.inbox} {len(body)}\r\n{body}\r\n".encode())
        while True:
            words = self.file.readline().split()
            if not words or words[0] == b"-ERR":
                raise ConnectionError(words)
            if words[0] == b"MSG":
                answer = self.file.read(int(words[-1]) + 2)
                return json.loads(answer)


class Permissions(FarEnd, Brokers):
    def start_with_users(self):
        self.start_postgres()
        config = write("/tmp/nats.conf", authorization())
        self.nats = self.start("nats", ["nats-server", "-a", "127.0.0.1", "-p", "4222", "-js", "-sd", "/tmp/nats",
                                        "-c", config])
        self.wait_for(lambda: "Server is ready" in self.nats.output("stderr"), "nats-server")
        for user in ("store", "cellar1"):
            write(f"/tmp/passwords/{user}", f"of {user}\n")
        store = self.store("--user", "store", "--password-file", "/tmp/passwords/store")
        self.wait_for(lambda: self.sql("SELECT 1 FROM stream", check=False) == [["1"]], "the store")
        return store

    def start_uplink(self, *more):
        write("/mnt/storage/m1/1/tc_archives/A1", f"{HOUR},192,1.000000\n")
        self.settings("\n".join(["[nats]", f"url = {NATS}", *more]), name="cellar1")
        return self.uplink()

    def gateways_line_stands(self):
        self.wait_for(lambda: self.values() == [[str(HOUR), "1"]], "the gateway's line")

    def messages(self, user):
        return user.request(f"{API}.INFO.{STREAM}")["state"]["messages"]

    def test_store_and_uplink_work_with_what_the_document_lets_them_do(self):
        store = self.start_with_users()
        uplink = self.start_uplink("user = cellar1", "password-file = /tmp/passwords/cellar1")
        self.gateways_line_stands()
        with open("/mnt/storage/m1/1/tc_archives/A1", "a", encoding="utf-8") as file:
            file.write(f"{HOUR + 3600},192,2.000000\n")
        self.wait_for(lambda: len(self.values()) == 2, "the next one")
        # Confirmed, so it does not come again.
        self.assertEqual(uplink.end(), 0)
        uplink = self.uplink()
        self.wait_for(lambda: "connected" in uplink.output("stderr"), "the connection")
        self.stays(uplink)
        self.assertEqual(self.messages(User("store")), 2)
        self.assertEqual((uplink.end(), store.end()), (0, 0))

    def test_a_gateway_neither_speaks_for_another_nor_hears_what_is_meant_for_others(self):
        self.start_with_users()
        spy = User("cellar2")
        for subject in ("_INBOX.>", "_INBOX_cellar1.>", "_INBOX_*.>", "heatmeter.>", "$JS.>", ">"):
            self.assertEqual(len(spy.refusals(f"SUB {subject} 2")), 1, subject)
        self.start_uplink("user = cellar1", "password-file = /tmp/passwords/cellar1")
        self.gateways_line_stands()
        subject, body = message(gateway="cellar1", lines=[line("A1", HOUR, "666.000000")])
        for wrong in (subject, f"{API}.PURGE.{STREAM}", f"{API}.DELETE.{STREAM}", f"{API}.MSG.GET.{STREAM}",
                      f"$JS.API.CONSUMER.MSG.NEXT.{STREAM}.store", f"$JS.ACK.{STREAM}.store.1.1.1.1.0"):
            self.assertEqual(len(spy.refusals(f"PUB {wrong} {len(body)}", body.decode())), 1, wrong)
        self.assertNotIn(b"\nMSG", spy.said)
        self.assertNotIn(b"\nHMSG", spy.said)
        self.assertEqual(self.messages(User("store")), 1)
        self.assertEqual(self.values(), [[str(HOUR), "1"]])

    def test_where_an_answer_goes_empties_no_stream(self):
        self.start_with_users()
        self.start_uplink("user = cellar1", "password-file = /tmp/passwords/cellar1")
        self.gateways_line_stands()
        store, thief = User("store"), User("cellar2")
        subject, body = message(gateway="cellar2", lines=[line("A4", HOUR, "2.000000")])
        replies = [f"{API}.PURGE.{STREAM}", f"{API}.MSG.DELETE.{STREAM}", f"{API}.DELETE.{STREAM}",
                   f"$JS.API.CONSUMER.DELETE.{STREAM}.store"]
        for reply in replies:
            self.assertEqual(thief.refusals(f"PUB {subject} {reply} {len(body)}", body.decode()), [])
        # The answer to what is there already names the place of that, which is another gateway's.
        first = store.request(f"{API}.MSG.GET.{STREAM}", '{"seq": 1}')["message"]
        head = base64.b64decode(first["hdrs"]).decode()
        self.assertIn("Nats-Msg-Id: ", head)
        self.assertEqual(thief.refusals(f"HPUB {subject} {API}.MSG.DELETE.{STREAM} {len(head)} {len(head) + len(body)}",
                                        head + body.decode()), [])
        self.assertEqual(thief.request(subject, body.decode())["seq"], len(replies) + 2)  # so all others are through
        self.assertEqual(self.messages(store), len(replies) + 2)
        self.assertNotIn("error", store.request(f"$JS.API.CONSUMER.INFO.{STREAM}.store"))
        # An answer under another's name is no message.
        thief.refusals(f"PUB {subject} heatmeter.cellar1.m1.1.record.hourly {len(body)}", body.decode())
        self.wait_for(lambda: len(self.sql("SELECT 1 FROM rejected")) == 1, "what the store thinks of it")
        self.assertEqual(self.lines("gateway, name, value"), [["cellar1", "A1", "1"], ["cellar2", "A4", "2"]])

    def test_a_stream_that_a_gateway_made_lets_nobody_empty_it_either(self):
        self.start_nats()
        self.start_uplink()
        self.wait_for(lambda: "config" in Publisher().request(f"{API}.INFO.{STREAM}"), "the stream")
        config = Publisher().request(f"{API}.INFO.{STREAM}")["config"]
        self.assertTrue(config["deny_delete"] and config["deny_purge"], config)
        self.assertIn("error", Publisher().request(f"{API}.PURGE.{STREAM}"))


if __name__ == "__main__":
    box.main(__file__)
