#!/usr/bin/env python3
"""heatmeter-store while everything around it, and the store itself, is killed: each line stands once at the end."""

import os
import random
import signal
import time

import box
from far_end import NATS_PORT, FarEnd, Publisher, line, message
from network import Disk

SEED = int(os.environ.get("STORE_SEED", "1"))
FAULTS = int(os.environ.get("STORE_FAULTS", "10"))
HOUR = 1709377200


class Gateway:
    """Publishes again what was not confirmed, and remembers what must stand in the table."""

    def __init__(self, chance):
        self.chance = chance
        self.expected = {}
        self.events = set()
        self.unconfirmed = []
        self.number = 0

    def write(self, count):
        for _ in range(count):
            self.number += 1
            meter = f"m{self.chance.randrange(20)}"
            if self.chance.random() < 0.1:
                self.unconfirmed.append(message(meter=meter, kind="event",
                                                lines=[line("_A57", HOUR + self.number // 50, f"{self.number}.000000", 1)]))
                self.events.add((meter, HOUR + self.number // 50, float(self.number)))
                continue
            lines = []
            for name in ("A1", "A4", "A17"):
                # Every fifth line is one of an earlier hour, written anew.
                hour = self.number if self.chance.random() < 0.8 else self.chance.randrange(self.number)
                value = f"{self.chance.randrange(10**9) / 1000:.6f}"
                lines.append(line(name, HOUR + 3600 * hour, value))
                self.expected[meter, name, HOUR + 3600 * hour] = float(value)
            self.unconfirmed.append(message(meter=meter, lines=lines))

    def publish(self, ports=(NATS_PORT,)):
        """In their order, as an uplink does: what follows an unconfirmed message is sent again behind it."""
        while self.unconfirmed:
            try:
                publisher = Publisher(self.chance.choice(ports))
                publisher.make_stream()
                while self.unconfirmed:
                    some = self.unconfirmed[:50]
                    publisher.publish(*some)
                    del self.unconfirmed[:len(some)]
            except (OSError, ValueError):
                return False
        return True


class Faults(FarEnd):
    def run_with(self, faults, seed):
        chance = random.Random(seed)
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        publisher.make_consumer(ack_wait=3)
        gateway = Gateway(chance)
        stores = [self.store("--batch", "40") for _ in range(2)]
        for _ in range(faults):
            gateway.write(400)
            gateway.publish()
            time.sleep(chance.random() * 1.0)
            fault = chance.choice(["store", "store", "postgres", "nats"])
            if fault == "store":
                number = chance.randrange(2)
                self.kill(stores[number])
                stores[number] = self.store("--batch", "40")
            elif fault == "postgres":
                self.kill(self.postgres)
                time.sleep(chance.random())
                self.start_postgres()
            else:
                self.kill(self.nats)
                gateway.write(100)
                gateway.publish()
                time.sleep(chance.random())
                self.start_nats()
        self.wait_for(gateway.publish, "the last messages")
        self.check(gateway, stores)

    def check(self, gateway, stores):
        """All that was written stands once, and nothing else."""
        def is_idle():
            try:
                about = Publisher().consumer()
            except (OSError, ValueError):
                return False
            return about.get("num_pending") == 0 and about.get("num_ack_pending") == 0
        self.wait_for(is_idle, "the end of the queue", 90)
        for store in stores:
            self.assertEqual(store.end(), 0, store.output("stderr"))
        found = {(meter, name, int(moment)): float(value) for meter, name, moment, value in self.sql(
            "SELECT meter, name, extract(epoch FROM time)::bigint, value FROM record_line WHERE kind = 'hourly'")}
        self.assertEqual(len(found), int(self.sql("SELECT count(*) FROM record")[0][0]))
        self.assertEqual(found, gateway.expected)
        events = [(meter, int(moment), float(value)) for meter, moment, value in self.sql(
            "SELECT meter, extract(epoch FROM time)::bigint, value FROM record_line WHERE kind = 'event'")]
        self.assertEqual(sorted(events), sorted(gateway.events))
        self.assertEqual(self.sql("SELECT * FROM rejected"), [])

    def test_each_line_stands_once_whatever_is_killed(self):
        self.run_with(FAULTS, SEED)

    def test_a_cluster_goes_on_whichever_of_its_nodes_is_killed(self):
        chance = random.Random(SEED)
        self.start_postgres()
        nodes = [self.start_cluster_node(n) for n in range(3)]
        self.wait_for_cluster()
        ports = [NATS_PORT + n for n in range(3)]
        urls = ",".join(f"nats://127.0.0.1:{port}" for port in ports)
        self.store_once("--nats", urls, "--replicas", "3", "--keep", "30", "--consumer", "first")
        Publisher().make_consumer(ack_wait=3)
        about = Publisher().request("$JS.API.STREAM.INFO.HEATMETER")["config"]
        self.assertEqual((about["num_replicas"], about["max_age"]), (3, 30 * 86400 * 10**9))
        gateway = Gateway(chance)
        stores = [self.store("--batch", "40", "--nats", urls) for _ in range(2)]
        for _ in range(FAULTS // 2):
            gateway.write(200)
            gateway.publish(ports)
            number = chance.randrange(3)
            self.kill(nodes[number])
            gateway.write(200)
            gateway.publish(ports)
            time.sleep(chance.random())
            nodes[number] = self.start_cluster_node(number)
            self.wait_for_cluster()
        self.wait_for(lambda: gateway.publish(ports), "the last messages", 60)
        self.check(gateway, stores)

    def test_a_store_that_starts_first_waits_for_both_servers(self):
        store = self.store()
        self.wait_for(lambda: "again in" in store.output("stderr"), "a word")
        self.start_nats()
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        self.start_postgres()
        self.wait_for(lambda: self.sql("SELECT value FROM record", check=False) == [["1"]], "the line", 60)
        self.assertEqual(store.end(), 0)

    def test_a_server_that_says_nothing_is_left_and_found_again(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        store = self.store()
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        self.wait_for(lambda: self.sql("SELECT value FROM record", check=False) == [["1"]], "the first line")
        self.nats.process.send_signal(signal.SIGSTOP)
        self.wait_for(lambda: "again in" in store.output("stderr"), "a word", 90)
        self.nats.process.send_signal(signal.SIGCONT)
        Publisher().publish(message(lines=[line("A1", HOUR + 3600, "2.000000")]))
        self.wait_for(lambda: self.values() == [[str(HOUR), "1"], [str(HOUR + 3600), "2"]], "the second line", 60)
        self.assertEqual(store.end(), 0)

    @box.disks(nats=16 << 20)
    def test_a_server_whose_disk_was_full_is_told_of_and_has_what_it_confirmed(self):
        """It hangs, and only to be killed helps it."""
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        disk = Disk("/tmp/nats")
        disk.fill()
        with self.assertRaises(OSError):
            publisher.publish(*[message(lines=[line("A1", HOUR + 3600, "2.000000")] * 200)] * 20)
        store = self.store()
        self.wait_for(lambda: "again in" in store.output("stderr"), "a word", 60)
        disk.free()
        self.kill(self.nats)
        self.start_nats()
        Publisher().publish(message(lines=[line("A1", HOUR + 7200, "3.000000")]))
        self.wait_for(lambda: {str(HOUR), str(HOUR + 7200)} <= {row[0] for row in self.sql(
            "SELECT extract(epoch FROM time)::bigint FROM record_line", check=False)}, "what was confirmed", 60)
        self.assertEqual(store.end(), 0)

    def test_a_store_that_waits_ends_when_it_is_asked_to(self):
        store = self.store()
        self.wait_for(lambda: "again in" in store.output("stderr"), "a word")
        started = time.monotonic()
        self.assertEqual(store.end(), 0)
        self.assertLess(time.monotonic() - started, 5)

    def test_nothing_is_acknowledged_while_the_database_is_full(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        self.store_once()
        # Every write fails, as on a full disk.
        self.sql("CREATE FUNCTION full_disk() RETURNS trigger LANGUAGE plpgsql AS"
                 " $$ BEGIN RAISE EXCEPTION 'No space left on device' USING ERRCODE = '53100'; END $$;"
                 " CREATE TRIGGER full_disk BEFORE INSERT ON record FOR EACH ROW EXECUTE FUNCTION full_disk()")
        store = self.store()
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        self.wait_for(lambda: "No space left on device; again in" in store.output("stderr"), "a word")
        self.assertEqual(publisher.consumer()["num_ack_pending"], 1)
        self.sql("DROP TRIGGER full_disk ON record")
        self.wait_for(lambda: self.values() == [[str(HOUR), "1"]], "the line")
        self.wait_for(lambda: publisher.consumer()["num_ack_pending"] == 0, "the acknowledgement")
        self.assertEqual(self.sql("SELECT * FROM rejected"), [])
        self.assertEqual(store.end(), 0)


if __name__ == "__main__":
    box.main(__file__)
