#!/usr/bin/env python3
"""heatmeter-store beside psql that does the same COPY and INSERT by hand, and two stores beside one. Both sides of a
figure are measured in one run, turn by turn, with a nats-server and a PostgreSQL of their own in a box. bench/store
runs it."""

import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests", "process"))

import box  # noqa: E402
from far_end import STREAM, FarEnd, Publisher, line, message  # noqa: E402

HOUR = 1709251200
TURNS = 3
METERS = 200
NAMES = 20
LINES_A_DAY = 500  # of a meter
BATCH = 500  # messages: the store's own


def median(values):
    return sorted(values)[len(values) // 2]


def taken_by(pid):
    """Seconds of a core, and the most memory in MiB."""
    with open(f"/proc/{pid}/stat") as file:
        user, system = file.read().rsplit(")", 1)[1].split()[11:13]
    peak = next(row.split()[1] for row in box.read(f"/proc/{pid}/status").splitlines() if row.startswith("VmHWM"))
    return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK"), int(peak) / 1024


class StoreBench(FarEnd):
    def tell(self, text):
        print(text)
        with open(f"{self.build}/store-figures.txt", "a") as file:
            file.write(text + "\n")

    def figure(self, what, ratio, wanted):
        holds = ratio >= wanted
        self.tell(f"{what}: ratio {ratio:.2f}, wanted at least {wanted}: {'pass' if holds else 'FALLS SHORT'}")
        self.assertTrue(holds, what)

    def publish(self, hours_each, messages):
        """Messages of so many hours of all names of a meter; the values of each."""
        publisher = Publisher()
        publisher.request(f"$JS.API.STREAM.DELETE.{STREAM}")
        publisher.make_stream()
        publisher.make_consumer(60)
        made = [message(gateway=f"g{i % METERS // 30}", meter=f"m{i % METERS}", lines=[
            line(f"A{name}", HOUR + 3600 * (i // METERS * hours_each + hour), f"{i * 20 + name + hour * 0.125:.6f}")
            for name in range(1, NAMES + 1) for hour in range(hours_each)]) for i in range(messages)]
        publisher.publish(*made)
        return publisher

    def empty(self):
        self.sql("DROP TABLE IF EXISTS record_2024_03, event_2024_03; TRUNCATE record, event; CHECKPOINT")

    def seconds_of_stores(self, publisher, count, *words):
        """Until all is stored and acknowledged."""
        start = time.monotonic()
        stores = [self.store(*words) for _ in range(count)]
        while True:
            about = publisher.consumer()
            if about["num_pending"] == 0 and about["num_ack_pending"] == 0:
                break
            time.sleep(0.02)
        seconds = time.monotonic() - start
        self.taken = [taken_by(store.process.pid) for store in stores]
        for store in stores:
            self.assertEqual(store.end(), 0, store.output("stderr"))
        return seconds

    def script_by_hand(self, hours_each, messages):
        """What the store makes of the same messages, with numbers known and lines sorted."""
        systems = {meter: int(number) for number, meter in self.sql("SELECT id, meter FROM meter_system")}
        names = {name: int(number) for number, name in self.sql("SELECT id, name FROM archive_name")}
        with open("/tmp/by-hand.sql", "w") as file:
            file.write("CREATE TEMPORARY TABLE incoming_record (LIKE record) ON COMMIT DELETE ROWS;\n")
            for begin in range(0, messages, BATCH):
                rows = sorted((systems[f"m{i % METERS}"], HOUR + 3600 * (i // METERS * hours_each + hour),
                               names[f"A{name}"], i * 20 + name + hour * 0.125, i)
                              for i in range(begin, min(messages, begin + BATCH))
                              for name in range(1, NAMES + 1) for hour in range(hours_each))
                file.write("BEGIN;\nCOPY incoming_record FROM STDIN;\n")
                for system, moment, name, value, i in rows:
                    date = time.strftime("%Y-%m-%d %H:%M:%S+00", time.gmtime(moment))
                    file.write(f"{date}\t{value:.6f}\t{(1 << 55) + i * 8192}\t{system}\t{name}\t192\n")
                file.write("\\.\nINSERT INTO record SELECT * FROM incoming_record ON CONFLICT (system_id, time, name_id)"
                           " DO UPDATE SET value = excluded.value, quality = excluded.quality, written ="
                           " excluded.written WHERE excluded.written > record.written;\nCOMMIT;\n")

    def seconds_by_hand(self):
        start = time.monotonic()
        subprocess.run(["psql", "-X", "-q", "-v", "ON_ERROR_STOP=1", "host=/tmp/postgres user=postgres dbname=heat",
                        "-f", "/tmp/by-hand.sql"], check=True)
        return time.monotonic() - start

    def side_by_side(self, hours_each, messages):
        lines = hours_each * messages * NAMES
        ours, by_hand = [], []
        for turn in range(TURNS + 1):  # the first one warms, and fills the dictionaries
            publisher = self.publish(hours_each, messages)
            self.empty()
            self.sql("SELECT make_month('2024-03-01')")
            before = self.sql("SELECT pg_current_wal_lsn()")[0][0]
            seconds = self.seconds_of_stores(publisher, 1)
            self.assertEqual(self.sql("SELECT count(*) FROM record"), [[str(lines)]])
            if turn == 0:
                self.script_by_hand(hours_each, messages)
                journal = int(self.sql(f"SELECT pg_current_wal_lsn() - '{before}'")[0][0])
                stream = publisher.request(f"$JS.API.STREAM.INFO.{STREAM}")["state"]["bytes"]
                size = int(self.sql("SELECT sum(pg_total_relation_size(inhrelid)) FROM pg_inherits"
                                    " WHERE inhparent = 'record'::regclass")[0][0])
            self.empty()
            self.sql("SELECT make_month('2024-03-01')")
            hand = self.seconds_by_hand()
            self.assertEqual(self.sql("SELECT count(*) FROM record"), [[str(lines)]])
            if turn > 0:
                ours.append(seconds)
                by_hand.append(hand)
        self.tell(f"messages of {hours_each * NAMES} lines: store {lines / median(ours):,.0f} lines/s, which feeds"
                  f" {lines / median(ours) * 86400 / LINES_A_DAY / 1e6:.0f} million meters, psql by hand"
                  f" {lines / median(by_hand):,.0f} lines/s; bytes a line: {stream / lines:.0f} in the stream, {size / lines:.0f} in the table with its index,"
                  f" {journal / lines:.0f} of WAL; the store: {self.taken[0][0] / lines * 1e6:.1f} s of a core for a million"
                  f" lines, at most {self.taken[0][1]:.0f} MiB")
        self.figure(f"store / psql by hand, messages of {hours_each * NAMES} lines",
                    median([hand / own for own, hand in zip(ours, by_hand)]), 0.7)

    def begin(self):
        self.start_postgres("-c", "shared_buffers=512MB", "-c", "max_wal_size=4GB")
        self.start_nats()
        self.store_once()

    def test_1_hourly_messages(self):
        self.begin()
        self.side_by_side(1, 12000)

    def test_2_messages_of_a_week_that_is_caught_up(self):
        self.begin()
        self.side_by_side(48, 300)

    def test_3_two_stores_where_postgres_is_not_the_limit(self):
        self.begin()
        # A transaction that waits: a database far away, or with a replica that has to confirm.
        self.sql("CREATE FUNCTION far_away() RETURNS trigger LANGUAGE plpgsql AS"
                 " $$ BEGIN PERFORM pg_sleep(0.25); RETURN NULL; END $$;"
                 " CREATE TRIGGER far_away AFTER INSERT ON record FOR EACH STATEMENT EXECUTE FUNCTION far_away()")
        ratios = []
        for _ in range(TURNS):
            one, two = [self.seconds_of_stores(self.publish(1, 600), count, "--batch", "25") for count in (1, 2)]
            ratios.append(one / two)
        self.figure("two stores / one, a transaction of 0.25 s", median(ratios), 1.6)


if __name__ == "__main__":
    box.SIDE_BY_SIDE = 1
    box.main(__file__)
