#!/usr/bin/env python3
"""From archive files to the table: gateways whose files grow and break, one of them with what a daemon wrote in a time
of faults; a cluster of three nats-server, two stores and PostgreSQL. Each of them is killed, stopped, cut off from any
other, its disk filled, at random. When all is well again, what stands in the files stands in the table once, to the
last bit, and nothing else does than what once stood in them."""

import base64
import collections
import functools
import gzip
import json
import os
import random
import signal
import time

import box
from archives import Invented, Simulated, bits_of, kind_of, lines_of
from far_end import FarEnd, Publisher, STREAM
from network import Disk, Link

SEED = int(os.environ.get("FLEET_SEED", "1"))
FAULTS = int(os.environ.get("FLEET_FAULTS", "9"))
KINDS = ("uplink", "node", "store", "postgres", "stopped", "network", "pair", "alone", "node_disk", "postgres_disk",
         "state_disk", "disks")
HARMS = ("cut", "slow", "silent")
NODES = (4222, 4223, 4224)
PAIRS = ((4222, 4223), (4222, 4224), (4223, 4224))
GATEWAYS = ("g1", "g2", "g3", "g4")
POSTGRES_PORT = 5432
# All that a test writes fits in.
MIB = 1 << 20
DISKS = {**{f"nats{port}": 48 * MIB for port in NODES}, "postgres": 128 * MIB,
         **{f"state-{name}": MIB // 4 for name in GATEWAYS}}
SMALL_WAL = ("-c", "max_wal_size=16MB", "-c", "min_wal_size=2MB", "-c", "wal_recycle=off")


def far(port):
    """Where a network to this port begins."""
    return port + 1000


def route(one, other):
    """Where the network from a node to another one begins."""
    return 7000 + 10 * (one - NODES[0]) + other - NODES[0]


class Fleet(FarEnd):
    def setUp(self):
        super().setUp()
        self.nodes, self.stores, self.uplinks = {}, {}, {}
        self.met = collections.Counter()
        self.story = []

    # ---- the parts

    def start_node(self, port):
        """It hears of the others' own addresses nowhere: nobody answers where each says that it is."""
        routes = ", ".join(f"nats://127.0.0.1:{route(port, other)}" for other in NODES if other != port)
        with open(f"/tmp/nats{port}.conf", "w") as file:
            file.write(f"listen: 127.0.0.1:{port}\nserver_name: n{port}\n"
                       f"jetstream {{ store_dir: /tmp/nats{port}, max_file_store: 1GB }}\n"
                       f"cluster {{ name: heat, listen: 127.0.0.1:{port + 2000}, advertise: 127.0.0.1:1,"
                       f" no_advertise: true, routes: [{routes}] }}\n")
        self.nodes[port] = self.start("nats", ["nats-server", "-c", f"/tmp/nats{port}.conf"])

    def start_store(self, number):
        self.stores[number] = self.start("heatmeter-store", [
            f"{self.build}/heatmeter-store", "--nats", self.servers, "--batch", "40", "--postgres",
            f"host=127.0.0.1 port={far(POSTGRES_PORT)} user=postgres dbname=heat"], self.runner)

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

    def simulate(self, chance):
        """A time of faults of some meters, and all that a daemon has written in it: the folder where that stands."""
        for attempt in range(5):  # with an empty archive all the time, now and then
            folder = f"/tmp/years{attempt}"
            os.mkdir(folder)
            family = chance.choice(("KM5", "VIST", "VISTmodbus", "SA94", "SingleBus"))
            year = self.start("heatmeter-soak", [f"{self.sim_build}/heatmeter-soak", "--seed", str(SEED), "--family", family,
                                                 "--days", "4", "--keep", folder])
            self.assertEqual(year.status(100), 0, year.output())
            if any(kind_of(name) in ("hourly", "daily") and any(lines_of(f"{place}/{name}"))
                   for place, _, names in os.walk(f"{folder}/mnt/storage") for name in names):
                return folder
        return self.fail("nothing was written")

    def start_all(self, chance):
        self.make_postgres("--wal-segsize", "1")  # MiB: a full disk soon stops what is written ahead, too
        self.start_postgres(*SMALL_WAL)
        years = self.simulate(chance)
        self.pairs = {pair: [Link(route(*way), way[1] + 2000) for way in (pair, pair[::-1])] for pair in PAIRS}
        for port in NODES:
            self.start_node(port)
        self.make_stream()
        # Between gateways and nodes, stores and nodes, stores and PostgreSQL.
        self.networks = [[Link(far(port), port)] for port in (*NODES, POSTGRES_PORT)]
        self.servers = ",".join(f"nats://127.0.0.1:{far(port)}" for port in NODES)
        self.disks = {folder: Disk(f"/tmp/{folder}") for folder in DISKS}
        self.gateways = {name: Invented(name, chance) for name in GATEWAYS[:-1]}
        self.gateways[GATEWAYS[-1]] = Simulated(GATEWAYS[-1], chance, years)
        for name in GATEWAYS:
            with open(f"/tmp/{name}.conf", "w") as file:
                file.write(f"[gateway]\nname = {name}\n[nats]\nurl = {self.servers}\n"
                           f"compress = {'no' if name in GATEWAYS[::2] else 'yes'}\n")
            self.start_uplink(name)
        for number in range(2):
            self.start_store(number)

    def keep_running(self):
        """What a keeper of services does: what has ended is started again."""
        for programs, start in ((self.uplinks, self.start_uplink), (self.stores, self.start_store),
                                (self.nodes, self.start_node)):
            for name in [name for name, program in programs.items() if not program.runs()]:
                self.met["started again"] += 1
                start(name)
        if not self.postgres.runs():
            self.met["started again"] += 1
            self.run_postgres(*SMALL_WAL)

    # ---- what befalls them

    def on_uplink(self, chance):
        name = chance.choice(GATEWAYS)
        self.kill(self.uplinks[name])
        self.start_uplink(name)
        return name

    def on_node(self, chance):
        port = chance.choice(NODES)
        self.kill(self.nodes[port])
        time.sleep(chance.random() * 2)
        self.start_node(port)
        return port

    def on_store(self, chance):
        number = chance.randrange(2)
        self.kill(self.stores[number])
        self.start_store(number)
        return number

    def on_postgres(self, chance):
        self.kill(self.postgres)
        time.sleep(chance.random())
        self.run_postgres(*SMALL_WAL)
        return ""

    def on_stopped(self, chance):
        port = chance.choice(NODES)
        node = self.nodes[port].process
        node.send_signal(signal.SIGSTOP)
        time.sleep(chance.random() * 3)
        node.send_signal(signal.SIGCONT)
        return port

    def harm_networks(self, networks, chance):
        how = chance.choice(HARMS)
        for link in sum(networks, []):
            link.harm(how)
        self.met[how] += 1
        time.sleep(chance.random() * 2)
        return how

    def on_network(self, chance):
        places = chance.sample(range(4), 2)
        return places, self.harm_networks([self.networks[place] for place in places], chance)

    def on_pair(self, chance):
        """Two nodes do not hear each other, and both hear the third."""
        pair = chance.choice(PAIRS)
        return pair, self.harm_networks([self.pairs[pair]], chance)

    def on_alone(self, chance):
        """A node hears none of the others, and is there for gateways and stores."""
        port = chance.choice(NODES)
        return port, self.harm_networks([links for pair, links in self.pairs.items() if port in pair], chance)

    def fill(self, folders, chance):
        for _ in range(3):
            for folder in folders:
                self.disks[folder].fill()
            time.sleep(chance.random())
        return folders

    def on_node_disk(self, chance):
        return self.fill([f"nats{chance.choice(NODES)}"], chance)

    def on_postgres_disk(self, chance):
        with_log = chance.random() < 0.7  # what is written ahead needs a new file, too, and that PostgreSQL cannot bear
        next_file = ["SELECT pg_logical_emit_message(true, '', '')", "SELECT pg_switch_wal()"]
        words = ["SELECT pg_sleep(0.7)", *next_file * 20]
        session = with_log and self.start("psql", ["psql", "-X", "host=/tmp/postgres user=postgres dbname=heat",
                                                   *(f"--command={word}" for word in words)])
        time.sleep(0.3)  # who is not there yet is not let in any more
        self.fill(["postgres"], chance)
        return session and session.status()

    def on_state_disk(self, chance):
        return self.fill([f"state-{chance.choice(GATEWAYS)}"], chance)

    def on_disks(self, chance):
        return self.fill(chance.sample(list(self.disks), chance.randint(2, len(self.disks))), chance)

    def mend(self):
        for link in sum([*self.networks, *self.pairs.values()], []):
            link.mend()
        for folder in [folder for folder, disk in self.disks.items() if disk.is_full]:
            self.disks[folder].free()
            if folder.startswith("nats"):  # it hangs in its own lock, and heeds no other signal (docs/fleet.md)
                port = int(folder.removeprefix("nats"))
                self.kill(self.nodes[port])
                self.start_node(port)

    # ---- what came of it

    def found(self):
        """Of each gateway: identity -> (quality, value); and all events."""
        lines, events = {name: {} for name in GATEWAYS}, {name: [] for name in GATEWAYS}
        rows = self.sql("SELECT gateway, meter, system, kind, name, extract(epoch FROM time)::bigint, quality, value"
                        " FROM record_line", check=False)
        for gateway, meter, system, kind, name, moment, quality, value in rows:
            place, record = (meter, int(system), kind, name, int(moment)), (int(quality), bits_of(value))
            if kind == "event":
                events[gateway].append((*place, *record))
            else:
                self.assertNotIn(place, lines[gateway], "a line that stands twice")
                lines[gateway][place] = record
        return lines, events

    def differences(self):
        """What of the files does not stand in the table as it stands there."""
        lines, events = self.found()
        missing = []
        for name, gateway in self.gateways.items():
            on_file, events_on_file = gateway.on_file()
            missing += [(name, place, record, lines[name].get(place)) for place, record in on_file.items()
                        if lines[name].get(place) != record]
            missing += [(name, event) for event in events_on_file - set(events[name])]
        return missing

    @staticmethod
    def line_of(difference):
        """(gateway, meter, system, kind, name, time, quality, value) of one of these."""
        name, place, *record = difference
        return (name, *place, *(record[0] if record else ()))

    @functools.lru_cache
    def in_stream(self):
        """All lines of all messages."""
        publisher, lines = Publisher(), set()
        last = publisher.request(f"$JS.API.STREAM.INFO.{STREAM}")["state"]["last_seq"]
        for sequence in range(1, last + 1):
            found = publisher.request(f"$JS.API.STREAM.MSG.GET.{STREAM}", {"seq": sequence}).get("message")
            text = base64.b64decode(found["data"]) if found else b"{}"
            body = json.loads(gzip.decompress(text) if text.startswith(b"\x1f\x8b") else text)
            for name, moment, quality, value in body.get("lines", ()):
                lines.add((body["gateway"], body["meter"], body["system"], body["kind"], name, moment, quality,
                           bits_of(str(value))))
        return lines

    def is_done(self):
        """Nothing waits any more, and nothing is missing."""
        self.keep_running()
        time.sleep(0.5)
        try:
            about = Publisher().consumer()
        except (OSError, ValueError):
            return False
        return about.get("num_pending") == 0 and about.get("num_ack_pending") == 0 and not self.differences()

    def assert_nothing_else(self):
        lines, events = self.found()
        count = 0
        for name, gateway in self.gateways.items():
            all_lines = [(*place, *record) for place, record in lines[name].items()] + events[name]
            self.assertEqual(len(all_lines), len(set(all_lines)), "a line that stands twice")
            self.assertEqual(set(all_lines) - gateway.ever, set(), "a line that never was")
            count += len(all_lines)
        # Nothing befell the files of this one: it is they that stand in the table.
        last, events_on_file = self.gateways[GATEWAYS[-1]].on_file()
        self.assertEqual(lines[GATEWAYS[-1]], last)
        self.assertEqual(set(events[GATEWAYS[-1]]), events_on_file)
        self.assertNotEqual(last, {})
        self.assertEqual(self.sql("SELECT reason FROM rejected"), [])
        return count

    def run_with(self, seed):
        started = time.monotonic()
        chance = random.Random(seed)
        self.start_all(chance)
        kinds = []
        for round_ in range(FAULTS):
            for gateway in self.gateways.values():
                gateway.write((round_ + 1) / (FAULTS + 1))
            time.sleep(chance.random() * 1.5)
            kinds = kinds or chance.sample(KINDS, len(KINDS))
            kind = kinds.pop()
            self.met[kind] += 1
            self.story.append((kind, getattr(self, f"on_{kind}")(chance)))
            if chance.random() < 0.4:
                self.story.append((self.gateways[chance.choice(GATEWAYS[:-1])].harm(), ""))
                self.met["file"] += 1
            if chance.random() < 0.5:
                self.mend()
                self.story.append(("mended", ""))
            self.keep_running()
        self.mend()
        for gateway in self.gateways.values():
            gateway.write(1)
        well = time.monotonic()
        try:
            self.wait_for(self.is_done, "the end of the queue", 150)
        except AssertionError:
            missing = self.differences()
            broker = [Publisher().consumer(), Publisher().request(f"$JS.API.STREAM.INFO.{STREAM}").get("state"),
                      f"of {len(missing)} lines {sum(line in self.in_stream() for line in map(self.line_of, missing))}"
                      " stand in the stream"]
            self.fail(f"seed {seed}, {self.story}: {len(missing)} lines, {missing[:5]}\n{broker}\n" +
                      "\n".join(program.output("stderr")[-600:] for program in
                                [*self.uplinks.values(), *self.stores.values(), *self.nodes.values()]))
        count = self.assert_nothing_else()
        for name, word in (("heatmeter-store", "No space left"), ("heatmeter-uplink", "cannot be kept"),
                           ("postgres", "PANIC")):
            self.met[f'"{word}"'] += sum(word in program.output("stderr") for program in self.programs
                                         if f"/box.{name}" in program.paths["stderr"])
        met = ", ".join(f"{what} {times}" for what, times in sorted(self.met.items()) if times)
        self.tell(f"seed {seed}: {count} lines, {well - started:.0f} s of faults, all there"
                  f" {time.monotonic() - well:.0f} s later; {met}")

    @box.disks(**DISKS)
    def test_what_stands_in_files_stands_in_the_table_once(self):
        self.run_with(SEED)


if __name__ == "__main__":
    box.main(__file__)
