#!/usr/bin/env python3
"""heatmeter-store between a real nats-server and a real PostgreSQL: what comes, and where it stands."""

import gzip
import json
import subprocess
import time

import box
from far_end import NATS, POSTGRES, STREAM, FarEnd, Publisher, line, message

HOUR = 1709377200  # 2024-03-02 11:00 UTC


class Store(FarEnd):
    def publish(self, *messages):
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(*messages)

    def rejected(self):
        return self.sql("SELECT line, reason FROM rejected ORDER BY sequence, line")

    def test_a_line_that_is_published_stands_in_the_table(self):
        self.start_servers()
        self.publish(message(lines=[line("A1", HOUR, "12.345000")]))
        self.store_once()
        self.assertEqual(self.lines(), [["g1", "m1", "1", "hourly", "A1", str(HOUR), "192", "12.345"]])

    def test_the_store_makes_the_stream_and_a_gateway_finds_it(self):
        self.start_servers()
        self.store_once()
        self.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        self.store_once()
        self.assertEqual(self.values(), [[str(HOUR), "1"]])

    def test_what_comes_twice_stands_once(self):
        self.start_servers()
        same = message(lines=[line("A1", HOUR, "1.000000"), line("A4", HOUR, "2.000000")])
        self.publish(same, same, same)
        self.store_once("--batch", "2")
        self.publish(same)
        self.store_once()
        self.store_once("--consumer", "another")
        self.assertEqual(self.sql("SELECT count(*) FROM record"), [["2"]])

    def test_of_a_line_written_anew_the_last_counts_also_when_the_older_comes_again_later(self):
        self.start_servers()
        self.publish(message(lines=[line("A1", HOUR, "1.000000"), line("A1", HOUR, "2.000000")]),
                     message(lines=[line("A1", HOUR, "3.000000", 0)]),
                     message(lines=[line("A1", HOUR + 3600, "9.000000"), line("A1", HOUR, "4.000000"),
                                    line("A1", HOUR, "5.000000")]))
        expected = [[str(HOUR), "5"], [str(HOUR + 3600), "9"]]
        self.store_once("--consumer", "all_at_once")
        self.assertEqual(self.values(), expected)
        self.sql("TRUNCATE record")
        self.store_once("--batch", "1")
        self.assertEqual(self.values(), expected)
        self.store_once("--batch", "1", "--consumer", "again")  # begins with the first message
        self.assertEqual(self.values(), expected)
        publisher = Publisher()
        for sequence in (2, 3):
            publisher.request("$JS.API.STREAM.MSG.DELETE.HEATMETER", {"seq": sequence})
        self.store_once("--consumer", "the_first_alone")
        self.assertEqual(self.values(), expected)

    def test_a_stream_that_was_made_anew_is_later_than_the_old_one(self):
        self.start_servers()
        self.publish(*[message(lines=[line("A1", HOUR, f"{i}.000000")]) for i in range(5)])
        self.store_once()
        Publisher().request("$JS.API.STREAM.DELETE.HEATMETER")
        self.publish(message(lines=[line("A1", HOUR, "77.000000")]))
        self.store_once()
        self.assertEqual(self.values(), [[str(HOUR), "77"]])

    def test_a_stream_that_is_made_anew_under_a_busy_store_is_later_too(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(*[message(lines=[line("A1", HOUR + 3600 * i, "0.000000")]) for i in range(50)])
        store = self.store("--batch", "10")
        self.wait_for(lambda: self.sql("SELECT count(*) FROM record", check=False) == [["50"]], "the first ones")
        lock = subprocess.Popen(["psql", "-X", "-q", "host=/tmp/postgres user=postgres dbname=heat", "-c", "BEGIN", "-c",
                                 "LOCK TABLE record", "-c", "SELECT pg_sleep(4)", "-c", "COMMIT"], stdout=subprocess.DEVNULL)
        time.sleep(0.5)
        publisher.publish(*[message(lines=[line("A1", HOUR + 3600 * (100 + i), "0.000000")]) for i in range(20)])
        time.sleep(1)
        publisher.request(f"$JS.API.STREAM.DELETE.{STREAM}")
        publisher.make_stream()
        publisher.make_consumer(3)
        publisher.publish(message(lines=[line("A1", HOUR, "77.000000")]))
        self.assertEqual(lock.wait(), 0)
        self.wait_for(lambda: self.values()[0] == [str(HOUR), "77"], "the line of the new stream")
        self.assertEqual(store.end(), 0)

    def test_a_database_that_is_made_anew_under_a_store_is_filled(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        store = self.store()
        self.wait_for(lambda: self.sql("SELECT count(*) FROM record", check=False) == [["1"]], "the first one")
        self.sql("DROP DATABASE heat WITH (FORCE)", database="postgres")
        self.sql("CREATE DATABASE heat", database="postgres")
        publisher.publish(message(lines=["[]", line("A1", HOUR + 3600, "2.000000")]))
        self.wait_for(lambda: self.sql("SELECT count(*) FROM rejected", check=False) == [["1"]], "the next one")
        # What came before that stands in the stream still.
        self.wait_for(lambda: self.values() == [[str(HOUR), "1"], [str(HOUR + 3600), "2"]], "the first one, again")
        self.assertEqual(store.end(), 0)

    def test_what_a_consumer_has_forgotten_is_found(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(*[message(lines=[line("A1", HOUR + 3600 * i, f"{i}.000000")]) for i in range(1200)])
        publisher.request(f"$JS.API.CONSUMER.DURABLE.CREATE.{STREAM}.store", {"stream_name": STREAM, "config": {
            "durable_name": "store", "ack_policy": "explicit", "deliver_policy": "new", "replay_policy": "instant",
            "max_ack_pending": 20000}})
        publisher.publish(message(lines=[line("A1", HOUR + 3600 * 1200, "1200.000000"), "[]"]))
        said = self.store_once()
        self.assertEqual(said.count("500 messages of the stream were not in the database"), 2)
        self.assertIn("200 messages of the stream were not in the database", said)
        self.assertEqual(len(self.values()), 1201)
        self.assertEqual(self.sql("SELECT done FROM stream"), [["{[1,1202)}"]])
        self.assertNotIn("were not", self.store_once())

    def test_events_of_the_same_second_all_stand(self):
        self.start_servers()
        same = message(kind="event", lines=[line("_A57", HOUR, "7.000000", 1), line("_A57", HOUR, "7.000000", 0),
                                            line("_A57", HOUR, "8.000000", 1), line("_A57", HOUR, "7.000000", 1)])
        self.publish(same, same)
        self.store_once("--batch", "1")
        self.assertEqual(self.lines("kind, quality, value"),
                         [["event", "0", "7"], ["event", "1", "7"], ["event", "1", "8"]])

    def test_numbers_keep_their_last_bit(self):
        self.start_servers()
        texts = ["0.100000", "-0.000000", "123456789012345678901234567890.123456", "0.000001", "16777217.000001",
                 "1" + "0" * 308 + ".000000", '"nan"', '"inf"', '"-inf"']
        self.publish(message(lines=[line("A1", HOUR + i, text) for i, text in enumerate(texts)]))
        self.store_once()
        for (_, value), text in zip(self.values(), texts):
            expected, got = float(text.strip('"')), float(value)
            self.assertTrue(expected.hex() == got.hex(), f"{text}: {value}")

    def test_any_date_of_a_gateways_clock_has_its_place(self):
        self.start_servers()
        moments = [-2**31, -1, 0, 946684799, 946684800, 1709251199, 1709251200, 1735689600, 2145916800, 2**31 - 1]
        self.publish(message(lines=[line("A1", moment, "1.000000") for moment in moments]),
                     message(kind="event", lines=[line("_A57", moment, "1.000000") for moment in moments]))
        self.store_once()
        self.assertEqual([int(time) for time, _ in self.values()], moments)
        self.assertEqual([int(time) for time, _ in self.values("_A57")], moments)
        self.assertEqual(self.sql("SELECT tableoid::regclass::text AS name, count(*) FROM record GROUP BY name ORDER BY name"),
                         [["record_2000_01", "1"], ["record_2024_02", "1"], ["record_2024_03", "1"],
                          ["record_2025_01", "1"], ["record_2038_01", "2"], ["record_before_2000", "4"]])
        # This month and two more, beside those.
        self.assertEqual(self.sql("SELECT to_regclass('record_' || to_char(now() AT TIME ZONE 'UTC' + interval '2 months',"
                                  " 'YYYY_MM')) IS NOT NULL"), [["t"]])

    def test_a_month_that_was_taken_away_is_made_again(self):
        self.start_servers()
        self.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        store = self.store()
        self.wait_for(lambda: self.sql("SELECT count(*) FROM record", check=False) == [["1"]], "the line")
        self.sql("DROP TABLE record_2024_03")
        self.publish(message(lines=[line("A1", HOUR + 3600, "2.000000")]))
        self.wait_for(lambda: self.values() == [[str(HOUR + 3600), "2"]], "the line")
        self.assertEqual(self.rejected(), [])
        self.assertEqual(store.end(), 0)

    def test_a_month_that_was_detached_stays_so_and_lines_for_it_have_their_place(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        store = self.store()
        self.wait_for(lambda: self.sql("SELECT count(*) FROM record", check=False) == [["1"]], "the line")
        self.sql("ALTER TABLE record DETACH PARTITION record_2024_03 CONCURRENTLY")
        for i in (1, 2):
            publisher.publish(message(lines=[line("A1", HOUR + 3600 * i, "2.000000"),
                                             line("A1", int(time.time()), f"{i}.000000")]))
        self.wait_for(lambda: self.sql("SELECT count(*) FROM record_2024_03_again", check=False) == [["2"]], "its lines")
        self.assertEqual((self.sql("SELECT count(*) FROM record_2024_03"), self.rejected()), ([["1"]], []))
        self.assertEqual(store.end(), 0)

    def test_of_many_bad_lines_some_are_kept_and_a_neighbour_does_not_wait(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        subject, body = message(lines=["[]"] * 8192)
        publisher.publish(*[(subject, gzip.compress(body))] * 100, header="Content-Encoding: gzip")
        publisher.publish(message(lines=[line("A1", HOUR, "1.000000")]))
        begin = time.monotonic()
        self.assertIn("819200 rejected", self.store_once())
        self.assertLess(time.monotonic() - begin, 30)
        self.assertEqual(self.values(), [[str(HOUR), "1"]])
        self.assertEqual(len(self.rejected()), 100 * 21)
        self.assertEqual(self.rejected()[20], ["20", "and 8172 more lines"])

    def test_a_poisoned_message_stops_nothing(self):
        with open("/tmp/nats.conf", "w") as file:
            file.write("max_payload: 16MB\n")
        self.start_postgres()
        self.start_nats("-c", "/tmp/nats.conf")
        good = message(lines=[line("A1", HOUR, "1.000000")])
        subject, body = good
        poison = [(subject, b""), (subject, b"no JSON"), (subject, b"\xff\xfe"), (subject, body[:-2]),
                  (subject, body.replace(b'"m1"', b'"m2"')), (subject, body.replace(b"m1", b"m\xc3")),
                  (subject, body.replace(b"m1", b"m\\u0000")), (subject, b"[" * 60000), (subject, b" " * 10_000_000),
                  (subject, body + b"{}"), (subject + ".more", body), ("heatmeter.x", body)]
        everything = [good]
        for i, one in enumerate(poison):
            everything += [one, message(lines=[line("A1", HOUR + 3600 * (i + 1), "1.000000")])]
        self.publish(*everything)
        publisher = Publisher()
        publisher.send(b"PUB heatmeter.\xff\xfe in.box 2\r\n{}\r\n")
        publisher.answer()
        self.store_once()
        self.assertEqual(len(self.values()), len(poison) + 1)
        self.assertEqual(len(self.rejected()), len(poison) + 1)
        self.assertIn(["-1", "10000000 bytes (kept: 64 KiB)"], self.rejected())
        self.assertIn(["-1", "a subject that contradicts its message"], self.rejected())
        self.assertEqual(self.sql("SELECT convert_from(body, 'UTF8') FROM rejected WHERE sequence = 4"), [["no JSON"]])
        self.store_once("--consumer", "again")
        self.assertEqual(len(self.rejected()), len(poison) + 1)

    def test_what_a_gateway_has_made_shorter_is_read(self):
        self.start_servers()
        publisher = Publisher()
        publisher.make_stream()
        subject, body = message(lines=[line("A1", HOUR, "1.000000")])
        publisher.publish((subject, gzip.compress(body)), (subject, body), (subject, gzip.compress(b" " * 100_000)),
                          header="Content-Encoding: gzip")
        publisher.publish((subject, gzip.compress(body)))
        publisher.publish((subject, body), header="Content-Encoding: br")
        self.store_once()
        self.assertEqual(self.values(), [[str(HOUR), "1"]])
        self.assertEqual([reason for _, reason in self.rejected()][:2], ["no gzip of at most 65536 bytes"] * 2)
        self.assertEqual([reason.split(":")[0] for _, reason in self.rejected()][2:], ["no JSON", 'an encoding "br"'])

    def test_a_bad_line_is_rejected_and_its_neighbours_stand(self):
        self.start_servers()
        bad = '["A1",253402300799,192,1.000000]'
        self.publish(message(lines=[line("A1", HOUR, "1.000000"), bad, line("A4", HOUR, "2.000000"), "[]"]))
        said = self.store_once()
        self.assertIn("2 rejected", said)
        self.assertEqual(self.lines("name, value"), [["A1", "1"], ["A4", "2"]])
        self.assertEqual(self.sql("SELECT line, reason, convert_from(body, 'UTF8'), subject, arrived > now() - interval"
                                  " '1 hour' FROM rejected ORDER BY line"),
                         [["1", "a time out of range", bad, "heatmeter.g1.m1.1.record.hourly", "t"],
                          ["3", "a line of fewer than four fields", "[]", "heatmeter.g1.m1.1.record.hourly", "t"]])

    def test_what_the_database_itself_refuses_is_found_and_rejected(self):
        self.start_servers()
        self.store_once("--migrate")
        self.sql("ALTER TABLE record ADD CONSTRAINT unlucky CHECK (value <> 13)")
        self.publish(*[message(lines=[line("A1", HOUR + 3600 * i, f"{i}.000000")]) for i in range(40)])
        self.store_once()
        self.assertEqual([float(value) for _, value in self.values()], [i for i in range(40) if i != 13])
        self.assertEqual(len(self.rejected()), 1)
        self.assertIn("unlucky", self.rejected()[0][1])

    def test_texts_are_data(self):
        self.start_servers()
        names = ["'); DROP TABLE record; --", "a\\\"b", "{1,2}", "NULL", "\\N", "Keller ä 🔥", "a\tb", "%s", "a\u2028"]
        for name in names:
            self.publish(message(gateway=name, meter=name, lines=[f'[{json.dumps(name)},{HOUR},192,1.000000]']))
        self.store_once()
        self.assertEqual(self.rejected(), [])
        found = self.sql("SELECT encode(convert_to(gateway || meter || name, 'UTF8'), 'hex') FROM record_line")
        self.assertEqual(sorted(found), sorted([(3 * name).encode().hex()] for name in names))

    def test_migrations_run_once_however_many_start(self):
        self.start_postgres()
        stores = [self.store("--migrate") for _ in range(6)]
        for store in stores:
            self.assertEqual(store.status(60), 0, store.output("stderr"))
        number = self.sql("SELECT count(*), max(number) FROM schema_version")[0]
        self.assertEqual(number[0], number[1])
        self.assertEqual(sum("migrations done" in store.output("stderr") for store in stores) > 0, True)
        self.assertIn("up to date", self.store("--migrate").status() == 0 and self.programs[-1].output("stderr"))

    def test_stores_side_by_side_share_the_work(self):
        self.start_servers()
        self.store_once()
        stores = [self.store("--batch", "20") for _ in range(3)]
        publisher = Publisher()
        for begin in range(0, 3000, 100):
            publisher.publish(*[message(gateway=f"g{i % 7}", meter=f"m{i % 50}",
                                        lines=[line(f"A{n}", HOUR + i // 50 * 3600, f"{i}.{n:06}") for n in range(1, 6)])
                                for i in range(begin, begin + 100)])
        self.wait_for(lambda: self.sql("SELECT count(*) FROM record") == [["15000"]], "all lines", 60)
        self.wait_for(lambda: publisher.consumer()["num_ack_pending"] == 0, "all acknowledged")
        for store in stores:
            self.assertEqual(store.end(), 0)
            self.assertIn(" lines", store.output("stderr"))

    def test_views_for_people(self):
        self.start_servers()
        begin = 1706734800  # 2024-02-01 00:00 in Moscow, as a total is dated: the end of January
        lines = []
        for i in range(0, 24 * 29 + 1):
            if i not in (30, 31, 32):
                lines.append(line("A1", begin + 3600 * i, f"{100 + i}.500000"))
            lines.append(line("A2", begin + 3600 * i, f"{i}.000000"))
        self.publish(*[message(lines=lines[i:i + 100]) for i in range(0, len(lines), 100)],
                     message(kind="daily", lines=[line("A29", begin + 86400, "3.000000"), line("_A48", begin, "4.000000")]))
        self.store_once()
        zone = "SET timezone = 'Europe/Moscow'; "
        self.assertEqual(self.sql(zone + "SELECT time, a1, a2 FROM hourly_record WHERE meter = 'm1' AND system = 1"
                                  f" AND time = to_timestamp({begin + 3600})")[1:],
                         [["2024-02-01 01:00:00+03", "101.5", "0"]])
        self.assertEqual(self.sql(zone + "SELECT time, a29, _a48 FROM daily_record")[1:],
                         [["2024-02-02 00:00:00+03", "3", "4"]])
        self.assertEqual(self.sql(zone + "SELECT month, reading, consumption FROM monthly_consumption"
                                  " WHERE meter = 'm1' AND name = 'A1' ORDER BY month")[1:],
                         [["2024-01-01", "100.5", ""], ["2024-02-01", "796.5", "696"]])
        self.assertEqual(self.sql("SELECT extract(epoch FROM first_missing)::bigint, extract(epoch FROM last_missing)"
                                  "::bigint, missing FROM record_gap"),
                         [[str(begin + 30 * 3600), str(begin + 32 * 3600), "3"]])

    def test_views_tell_of_changed_meters_days_of_25_hours_and_who_is_silent(self):
        self.start_servers()
        january = 1704067200
        readings = [(january - 60, 100), (january + 86400, 150), (january + 2 * 86400, 0), (january + 20 * 86400, 120),
                    (january + 40 * 86400, 130)]
        midnights = (1729893600, 1729980000, 1730070000, 1730156400)  # of Berlin, with the end of summer time
        self.publish(message(lines=[line("A1", moment, f"{value}.000000") for moment, value in readings]),
                     message(meter="m2", kind="daily", lines=[line("A29", moment, "1.000000") for moment in midnights]),
                     message(meter="m3", kind="event", lines=[line("_A57", january, "1.000000")]),
                     message(meter="m2", lines=[line("A1", 2147483647, "1.000000")]))
        self.store_once()
        self.assertEqual(self.sql("SET timezone = 'UTC'; SELECT month, reading, consumption FROM monthly_consumption"
                                  " WHERE meter = 'm1' ORDER BY month")[1:],
                         [["2023-12-01", "100", ""], ["2024-01-01", "120", ""], ["2024-02-01", "130", "10"]])
        self.assertEqual(self.sql("SELECT count(*) FROM record_gap WHERE meter = 'm2'"), [["0"]])
        self.assertEqual(self.sql("SELECT meter, extract(epoch FROM time)::bigint FROM newest_record ORDER BY meter"),
                         [["m1", str(readings[-1][0])], ["m2", str(midnights[-1])], ["m3", ""]])

    def test_wrong_usage_and_failures_have_their_statuses(self):
        def run(*words):
            return subprocess.run([f"{self.build}/heatmeter-store", *words], capture_output=True, text=True, timeout=60)
        for words in ([], ["--nats", NATS], ["--postgres", POSTGRES], ["--batch", "0", "--postgres", "x"],
                      ["--nats", NATS, "--postgres", POSTGRES, "--user", "a", "--password-file", "/missing"],
                      ["--nats", NATS, "--postgres", POSTGRES, "--key", "/etc/passwd"], ["--unknown"], ["word"]):
            done = run(*words)
            self.assertEqual((done.returncode, done.stdout), (2, ""), words)
            self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertEqual(run("--version").stdout.split()[0], "heatmeter-store")
        self.assertIn("--postgres", run("--help").stdout)
        done = run("--nats", NATS, "--postgres", POSTGRES, "--once")
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertEqual(run("--migrate", "--postgres", POSTGRES).returncode, 1)

    def test_a_database_that_cannot_hold_every_text_is_refused(self):
        self.start_servers()
        self.sql("CREATE DATABASE old ENCODING 'SQL_ASCII' TEMPLATE template0 LC_COLLATE 'C' LC_CTYPE 'C'", "postgres")
        done = subprocess.run([f"{self.build}/heatmeter-store", "--migrate", "--postgres",
                               POSTGRES.replace("heat", "old")], capture_output=True, text=True, timeout=60)
        self.assertEqual(done.returncode, 1)
        self.assertIn("not in UTF8", done.stderr)

    def test_passwords_and_certificates_are_checked_on_both_sides(self):
        make_certificates()
        with open("/tmp/nats.conf", "w") as file:
            file.write("authorization { user: store, password: secret }\n"
                       "tls { cert_file: /tmp/server.pem, key_file: /tmp/server.key, ca_file: /tmp/ca.pem, verify: true }\n")
        self.start_postgres()
        self.nats = self.start("nats", ["nats-server", "-a", "127.0.0.1", "-p", "4222", "-js", "-sd", "/tmp/nats",
                                        "-c", "/tmp/nats.conf"])
        self.wait_for(lambda: "Server is ready" in self.nats.output("stderr"), "nats-server")
        for name, text in (("right", "secret\n"), ("wrong", "guess\n")):
            with open(f"/tmp/{name}", "w") as file:
                file.write(text)
        with_tls = ["--cert", "/tmp/client.pem", "--key", "/tmp/client.key"]
        self.store_once("--user", "store", "--password-file", "/tmp/right", "--ca", "/tmp/ca.pem", *with_tls)
        self.store_once("--user", "store", "--password-file", "/tmp/wrong", "--ca", "/tmp/ca.pem", *with_tls, status=1)
        self.store_once("--user", "store", "--password-file", "/tmp/right", "--ca", "/tmp/ca.pem", status=1)
        self.store_once("--user", "store", "--password-file", "/tmp/right", "--ca", "/tmp/other.pem", *with_tls, status=1)
        self.store_once("--user", "store", "--password-file", "/tmp/right", status=1)



def make_certificates():
    """/tmp/ca.pem, and of it a server's and a client's; /tmp/other.pem is somebody else's."""
    def run(*words):
        subprocess.run(["openssl", *words], check=True, capture_output=True, cwd="/tmp")
    for name in ("ca", "other"):
        run("req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{name}.key",
            "-out", f"{name}.pem", "-subj", f"/CN={name}", "-days", "2")
    for name in ("server", "client"):
        run("req", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-keyout", f"{name}.key",
            "-out", f"{name}.csr", "-subj", f"/CN={name}")
        with open("/tmp/ext", "w") as file:
            file.write("subjectAltName=IP:127.0.0.1,DNS:localhost\n")
        run("x509", "-req", "-in", f"{name}.csr", "-CA", "ca.pem", "-CAkey", "ca.key", "-CAcreateserial",
            "-out", f"{name}.pem", "-days", "2", "-extfile", "ext")


if __name__ == "__main__":
    box.main(__file__)
