#!/usr/bin/env python3
"""From archive files to the table: gateways whose files grow and break, a cluster of three nats-server, two stores and
PostgreSQL, each of them killed, stopped or cut off at random. When all is well again, what stands in the files stands in
the table once, and nothing else does than what once stood in them."""

import os
import random
import signal
import socket
import threading
import time

import box
from far_end import FarEnd, Publisher, STREAM, POSTGRES

SEED = int(os.environ.get("FLEET_SEED", "1"))
FAULTS = int(os.environ.get("FLEET_FAULTS", "9"))
HOUR = 1709377200
NODES = (4222, 4223, 4224)
GATEWAYS = ("g1", "g2", "g3")
NAMES = ("A1", "A4", "A12", "A29", "_A57")
KINDS = {"A29": "daily", "_A57": "event"}


class Link:
    """A network between two programs: connections to one port go on to another, until it is cut; or they go slowly."""

    def __init__(self, port, target):
        self.target, self.delay, self.connections = target, 0.0, []
        self.listener = socket.create_server(("127.0.0.1", port))
        threading.Thread(target=self.accept, daemon=True).start()
        self.is_cut = False

    def accept(self):
        while True:
            here, _ = self.listener.accept()
            try:
                if self.is_cut:
                    raise ConnectionError
                there = socket.create_connection(("127.0.0.1", self.target), 5)
            except OSError:
                here.close()
                continue
            self.connections += [here, there]
            for pair in ((here, there), (there, here)):
                threading.Thread(target=self.carry, args=pair, daemon=True).start()

    def carry(self, source, target):
        try:
            while piece := source.recv(65536 if not self.delay else 2048):
                time.sleep(self.delay)
                target.sendall(piece)
        except OSError:
            pass
        for end in (source, target):
            end.close()

    def cut(self):
        self.is_cut = True
        for end in self.connections:
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        self.connections = []

    def mend(self):
        self.is_cut, self.delay = False, 0.0


class Gateway:
    """The archive files of a gateway, and what ever stood in them."""

    def __init__(self, name, chance):
        self.name, self.chance = name, chance
        self.root = f"/tmp/{name}"
        self.ever, self.count = set(), {}
        os.makedirs(f"{self.root}/tmp")
        for uuid in ("m1", "m.2"):
            for archive in NAMES:
                path = f"{self.root}/mnt/storage/{uuid}/1/tc_archives/{archive}"
                os.makedirs(os.path.dirname(path), exist_ok=True)
                open(path, "w").close()
                self.count[uuid, archive, path] = 0

    def write(self):
        for (uuid, archive, path), hours in self.count.items():
            with open(path, "r+b" if os.path.exists(path) else "wb") as file:
                file.seek(0, os.SEEK_END)
                if file.tell():
                    file.seek(-1, os.SEEK_END)
                    if file.read(1) != b"\n":  # a torn line gets its end, as the daemon gives it one
                        file.write(b"\n")
                for hour in range(hours, hours + 30):
                    # Now and then an hour is read again, with another value.
                    moment = HOUR + 3600 * (hour if self.chance.random() < 0.9 else self.chance.randrange(hour + 1))
                    line = (moment, self.chance.choice((192, 192, 192, 0)), f"{self.chance.randrange(10**9) / 1000:.6f}")
                    self.ever.add((uuid, archive, *line[:2], float(line[2])))
                    file.write(f"{line[0]},{line[1]},{line[2]}\n".encode())
            self.count[uuid, archive, path] += 30

    def harm(self):
        """Something befalls a file."""
        _, _, path = self.chance.choice(list(self.count))
        fault = self.chance.choice(("torn", "zeros", "emptied", "replaced", "cut"))
        with open(path, "rb") as file:
            text = file.read()
        if fault == "torn":
            text += f"{HOUR},192,12.3".encode()
        elif fault == "zeros":
            text += bytes(300) + b"\n"
        elif fault == "cut":
            text = text[:text.rfind(b"\n", 0, len(text) // 2) + 1]
        elif fault == "emptied":
            text = b""
        if fault == "replaced":
            with open(path + ".new", "wb") as file:
                file.write(text[text.find(b"\n", len(text) // 3) + 1:])
            os.rename(path + ".new", path)
        else:
            with open(path, "r+b") as file:
                file.truncate(0)
                file.write(text)
        return fault

    def on_file(self):
        """(uuid, name, time) -> (quality, value) of the line written last; of events the lines themselves."""
        lines, events = {}, set()
        for uuid, archive, path in self.count:
            for line in open(path, "rb").read().decode(errors="replace").splitlines():
                words = line.split(",")
                if len(words) != 3 or not words[0].isdigit() or len(words[2].partition(".")[2]) != 6:
                    continue
                record = int(words[1]), float(words[2])
                if archive == "_A57":
                    events.add((uuid, archive, int(words[0]), *record))
                else:
                    lines[uuid, archive, int(words[0])] = record
        return lines, events


class Fleet(FarEnd):
    def setUp(self):
        super().setUp()
        self.nodes, self.stores, self.uplinks = {}, [None, None], {}

    def start_node(self, port):
        routes = ",".join(f"nats://127.0.0.1:{other + 2000}" for other in NODES)
        self.nodes[port] = self.start("nats", [
            "nats-server", "-a", "127.0.0.1", "-p", str(port), "-js", "-sd", f"/tmp/nats{port}", "--name", f"n{port}",
            "--cluster_name", "heat", "--cluster", f"nats://127.0.0.1:{port + 2000}", "--routes", routes])

    def start_store(self, number):
        servers = ",".join(f"nats://127.0.0.1:{port + 1000}" for port in NODES)
        self.stores[number] = self.start("heatmeter-store", [
            f"{self.build}/heatmeter-store", "--nats", servers, "--postgres", POSTGRES, "--batch", "40"], self.runner)

    def start_uplink(self, name):
        self.uplinks[name] = self.start("heatmeter-uplink", [
            f"{self.build}/heatmeter-uplink", "--root", f"/tmp/{name}", "--config", f"/tmp/{name}.conf",
            "--state", f"/tmp/state-{name}"], self.runner)

    def make_stream(self):
        def made():
            try:
                publisher = Publisher()
                answer = publisher.request(f"$JS.API.STREAM.CREATE.{STREAM}", {
                    "name": STREAM, "subjects": ["heatmeter.>"], "storage": "file", "retention": "limits",
                    "max_consumers": -1, "max_msgs": -1, "max_bytes": -1, "max_age": 0, "num_replicas": 3,
                    "discard": "old"})
                if "error" in answer:
                    return False
                publisher.make_consumer(ack_wait=3)
                return True
            except (OSError, ValueError, AssertionError):
                return False
        self.wait_for(made, "the cluster", 60)

    def start_all(self, chance):
        self.start_postgres()
        for port in NODES:
            self.start_node(port)
        self.make_stream()
        # Between gateways and nodes, and between stores and nodes, there is a network.
        self.links = [Link(port + 1000, port) for port in NODES]
        self.gateways = {name: Gateway(name, chance) for name in GATEWAYS}
        for name in GATEWAYS:
            servers = ",".join(f"nats://127.0.0.1:{port + 1000}" for port in NODES)
            with open(f"/tmp/{name}.conf", "w") as file:
                file.write(f"[gateway]\nname = {name}\n[nats]\nurl = {servers}\n")
            os.makedirs(f"/tmp/state-{name}", exist_ok=True)
            self.start_uplink(name)
        for number in range(2):
            self.start_store(number)

    def hurt(self, chance):
        """Something befalls a program, or the network."""
        fault = chance.choice(("uplink", "node", "store", "postgres", "cut", "slow", "stopped", "file", "file"))
        if fault == "uplink":
            name = chance.choice(GATEWAYS)
            self.kill(self.uplinks[name])
            self.start_uplink(name)
        elif fault == "node":
            port = chance.choice(NODES)
            self.kill(self.nodes[port])
            time.sleep(chance.random() * 2)
            self.start_node(port)
        elif fault == "store":
            number = chance.randrange(2)
            self.kill(self.stores[number])
            self.start_store(number)
        elif fault == "postgres":
            self.kill(self.postgres)
            time.sleep(chance.random())
            self.start_postgres()
        elif fault == "cut":
            for link in chance.sample(self.links, 2):
                link.cut()
            time.sleep(chance.random() * 2)
        elif fault == "slow":
            chance.choice(self.links).delay = 0.02
        elif fault == "stopped":
            node = self.nodes[chance.choice(NODES)].process
            node.send_signal(signal.SIGSTOP)
            time.sleep(chance.random() * 3)
            node.send_signal(signal.SIGCONT)
        else:
            fault = self.gateways[chance.choice(GATEWAYS)].harm()
        return fault

    def found(self):
        lines, events = {}, {}
        rows = self.sql("SELECT gateway, meter, name, extract(epoch FROM time)::bigint, quality, value FROM record_line",
                        check=False)
        for gateway, meter, name, moment, quality, value in rows:
            record = int(quality), float(value)
            if name == "_A57":
                events.setdefault(gateway, []).append((meter, name, int(moment), *record))
            else:
                of_gateway = lines.setdefault(gateway, {})
                self.assertNotIn((meter, name, int(moment)), of_gateway, "a line that stands twice")
                of_gateway[meter, name, int(moment)] = record
        return lines, events

    def differences(self):
        """What of the files does not stand in the table as it stands there."""
        lines, events = self.found()
        missing = []
        for name, gateway in self.gateways.items():
            on_file, events_on_file = gateway.on_file()
            there = lines.get(name, {})
            missing += [(name, place, record, there.get(place)) for place, record in on_file.items()
                        if there.get(place) != record]
            missing += [(name, event) for event in events_on_file - set(events.get(name, []))]
        return missing

    def assert_nothing_else(self):
        lines, events = self.found()
        for name, gateway in self.gateways.items():
            all_lines = [(*place, *record) for place, record in lines.get(name, {}).items()] + events.get(name, [])
            self.assertEqual(len(all_lines), len(set(all_lines)), "a line that stands twice")
            self.assertEqual(set(all_lines) - gateway.ever, set(), "a line that never was")
        self.assertEqual(self.sql("SELECT reason FROM rejected"), [])

    def run_with(self, seed):
        chance = random.Random(seed)
        self.start_all(chance)
        story = []
        for _ in range(FAULTS):
            for gateway in self.gateways.values():
                gateway.write()
            time.sleep(chance.random() * 1.5)
            story.append(self.hurt(chance))
            if chance.random() < 0.5:
                for link in self.links:
                    link.mend()
        for link in self.links:
            link.mend()
        for gateway in self.gateways.values():
            gateway.write()
        try:
            self.wait_for(lambda: not self.differences(), "the end of the queue", 150)
        except AssertionError:
            missing = self.differences()
            self.fail(f"seed {seed}, {story}: {len(missing)} lines, {missing[:5]}\n" +
                      "\n".join(program.output("stderr")[-600:] for program in
                                [*self.uplinks.values(), *self.stores]))
        self.assert_nothing_else()

    def test_what_stands_in_files_stands_in_the_table_once(self):
        self.run_with(SEED)


if __name__ == "__main__":
    box.main(__file__)
