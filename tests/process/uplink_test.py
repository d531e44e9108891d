#!/usr/bin/env python3
"""heatmeter-uplink between real files and real brokers."""

import json
import os
import random
import signal
import socket
import subprocess
import threading
import time
import urllib.request

import box
import brokers
import schemas
from brokers import NatsClient, write

MQTT = "[mqtt]\nurl = mqtt://127.0.0.1:1883"
NATS = "[nats]\nurl = nats://127.0.0.1:4222"
START = 1709377200


def path(uuid, name, n=1, folder="tc_archives"):
    return f"/mnt/storage/{uuid}/{n}/{folder}/{name}"


def append(uuid, name, *lines, **place):
    os.makedirs(os.path.dirname(path(uuid, name, **place)), exist_ok=True)
    with open(path(uuid, name, **place), "a", encoding="utf-8") as file:
        file.write("".join(line + "\n" for line in lines))


def hours(first, count, value=0.0):
    return [f"{START + 3600 * hour},192,{value + hour:.6f}" for hour in range(first, first + count)]


def lines_of(body):
    """(meter, system, name, time, quality, value) of a message."""
    return [(body["meter"], body["system"], *line) for line in body["lines"]]


def on_file(*places):
    """The same of what stands in files: (uuid, name)."""
    found = set()
    for uuid, name in places:
        for line in box.read(path(uuid, name)).splitlines():
            moment, quality, value = line.split(",")
            found.add((uuid, 1, name, int(moment), int(quality), float(value)))
    return found


class Uplink(schemas.Schemas, brokers.Brokers):
    def arrived(self, client=None):
        client = client or NatsClient()
        return [line for _, _, body in client.messages() for line in lines_of(body)]

    def wait_for_all(self, *places, patience=60):
        def all_there():
            try:
                return set(self.arrived()) >= on_file(*places)
            except OSError:
                return False
        self.wait_for(all_there, "all lines in the stream", patience)

    def test_records_go_to_a_stream_once_and_what_comes_later_as_well(self):
        self.nats()
        self.settings(NATS)
        append("m1", "A1", *hours(0, 5))
        append("m1", "A29", "1709377200,192,7.000000")
        append("m1", "_A57", "1709377200,192,87.000000", "1709377200,0,87.000000")
        program = self.uplink()
        self.wait_for_all(("m1", "A1"), ("m1", "A29"), ("m1", "_A57"))
        append("m1", "A1", *hours(5, 1))
        append("m1", "A2", "1709377200,192,inf", "rubbish", "1709380800,0,-nan")
        self.wait_for(lambda: len(self.arrived()) == 11, "the later ones")
        self.assertEqual(program.end(), 0)
        found = NatsClient().messages()
        self.assertEqual({(subject, body["kind"], body["gateway"]) for subject, _, body in found},
                         {("heatmeter.g1.m1.1.record.hourly", "hourly", "g1"),
                          ("heatmeter.g1.m1.1.record.daily", "daily", "g1"),
                          ("heatmeter.g1.m1.1.record.event", "event", "g1")})
        self.assertTrue(all("Nats-Msg-Id: g1/m1/1/" in head for _, head, _ in found))
        arrived = self.arrived()
        self.assertIn(("m1", 1, "A2", 1709377200, 192, "inf"), arrived)
        self.assertIn(("m1", 1, "A2", 1709380800, 0, "nan"), arrived)
        # What was confirmed is not sent again.
        program = self.uplink()
        self.wait_for(lambda: "connected" in program.output("stderr"), "the connection")
        append("m2", "A1", *hours(0, 1))
        self.wait_for(lambda: len(self.arrived()) == 12, "the new one")
        self.assertEqual(len(self.arrived()), 12)

    def test_values_and_records_go_to_mqtt(self):
        self.mosquitto()
        listener = self.listener()
        self.settings(MQTT)
        write("/tmp/m#1/1/tc_items/T1", "12.500000\n")
        write("/tmp/m#1/1/tc_items/strange", "x\n")
        append("m#1", "A1", *hours(0, 2))
        program = self.uplink()
        expected = ["heatmeter/g1/status online", "heatmeter/g1/m%231/1/value/T1 12.500000",
                    'heatmeter/g1/m%231/1/record/hourly {"gateway":"g1","meter":"m#1","system":1,"kind":"hourly",'
                    '"lines":[["A1",1709377200,192,0.000000],["A1",1709380800,192,1.000000]]}']
        self.wait_for(lambda: all(line in listener.output().splitlines() for line in expected), "all of it")
        write("/tmp/m#1/1/tc_items/T1", "13.000000\n")
        self.wait_for(lambda: "heatmeter/g1/m%231/1/value/T1 13.000000" in listener.output(), "the new value")
        self.assertNotIn("strange", listener.output())
        # A value brings its time along; what is retained tells a newcomer all.
        shown = subprocess.run(["mosquitto_sub", "-V", "5", "-t", "heatmeter/g1/#", "-W", "1", "-F", "%t %p %P"],
                               capture_output=True, text=True).stdout
        self.assertRegex(shown, r"value/T1 13\.000000 time:1\d{9}")
        self.assertRegex(shown, r"heatmeter/g1/m%231/1/time 1\d{9}")
        self.assertNotIn("record", shown)
        self.assertEqual(program.end(), 0)
        self.wait_for(lambda: listener.output().endswith("heatmeter/g1/status offline\n"), "the last word")

    def test_who_dies_is_offline(self):
        self.mosquitto()
        listener = self.listener()
        self.settings(MQTT)
        program = self.uplink()
        self.wait_for(lambda: "online" in listener.output(), "the connection")
        program.end(signal.SIGKILL)
        self.wait_for(lambda: "heatmeter/g1/status offline" in listener.output(), "the will")

    def test_discovery_tells_what_values_are(self):
        self.mosquitto()
        listener = self.listener(topic="homeassistant/#")
        self.settings(MQTT + "\ndiscovery = yes")
        write("/tmp/m.1/1/tc_items/T1", "12.500000\n")
        write("/tmp/m.1/1/tc_items/MeterModel", "KM5-2\n")
        self.uplink()
        self.wait_for(lambda: listener.output().count("\n") == 2, "both")
        for line in listener.output().splitlines():
            topic, config = line.split(" ", 1)
            config = json.loads(config)
            self.assertRegex(topic, r"^homeassistant/sensor/[A-Za-z0-9_-]+/config$")
            self.assertEqual(config["state_topic"].rsplit("/", 2)[0], "heatmeter/g1/m.1/1")
            self.assertEqual(config["availability_topic"], "heatmeter/g1/status")
        self.assertIn('"state_class":"measurement"', listener.output())

    def test_nothing_is_lost_when_uplink_and_stream_are_killed_at_any_moment(self):
        chance = random.Random(7)
        server = self.nats()
        self.settings(NATS)
        places = [(uuid, name) for uuid in ("m1", "m2", "m3") for name in ("A1", "A4", "A12", "A29", "_A57")]
        written = 0
        program = self.uplink()
        for _ in range(12):
            for uuid, name in places:
                append(uuid, name, *hours(written, 40, value=chance.randrange(1000)))
            written += 40
            time.sleep(chance.random() * 0.8)
            if chance.random() < 0.6:
                program.end(signal.SIGKILL)
                program = self.uplink()
            if chance.random() < 0.4:
                server.end(signal.SIGKILL)
                server = self.nats()
            if chance.random() < 0.4:  # emptied, and filled with something else
                uuid, name = chance.choice(places)
                with open(path(uuid, name), "w", encoding="utf-8") as file:
                    file.write("\n".join(hours(0, written, value=chance.randrange(1000))) + "\n")
        self.wait_for_all(*places, patience=90)
        # And of each line what stands in the file came last.
        newest = {}
        for meter, system, name, moment, quality, value in self.arrived():
            newest[meter, system, name, moment] = (quality, value)
        for line in on_file(*(place for place in places if place[1] != "_A57")):
            self.assertEqual(newest[line[:4]], line[4:], line)

    def test_a_broker_that_is_away_does_not_hold_the_other(self):
        self.mosquitto()
        listener = self.listener(topic="heatmeter/+/+/+/record/#")
        self.settings(MQTT, NATS)
        append("m1", "A1", *hours(0, 3))
        program = self.uplink()
        self.wait_for(lambda: "m1/1/record/hourly" in listener.output(), "the records")
        self.assertIn("heatmeter-uplink: nats: ", program.output("stderr"))
        append("m1", "A1", *hours(3, 3))
        self.wait_for(lambda: listener.output().count("m1/1/record/hourly") == 2, "the later ones")
        self.nats()
        self.wait_for_all(("m1", "A1"))
        program.end()
        self.assertEqual(listener.output().count("m1/1/record/hourly"), 2)

    def test_a_wrong_password_is_told_and_a_right_one_taken(self):
        self.nats('authorization { user: "g1", password: "right" }')
        write("/tmp/etc/password", "wrong\n", 0o600)
        self.settings(NATS + "\nuser = g1\npassword-file = /tmp/etc/password")
        append("m1", "A1", *hours(0, 3))
        program = self.uplink()
        self.wait_for(lambda: "uthorization" in program.output("stderr"), "the reason")
        check = self.uplink("--check")
        self.assertEqual(check.status(), 1)
        self.assertRegex(check.output(), "(?m)^error +nats: .*uthorization")
        write("/tmp/etc/password", "right\n", 0o600)
        self.assertEqual(self.uplink("--check").status(), 0)
        client = NatsClient(user="g1", **{"pass": "right"})
        self.wait_for(lambda: len(self.arrived(client)) == 3, "the lines")
        self.assertNotIn("wrong", program.output("stderr"))

    def test_a_wrong_password_of_mqtt(self):
        write("/tmp/etc/passwd", "")
        subprocess.run(["mosquitto_passwd", "-b", "/tmp/etc/passwd", "g1", "right"], check=True)
        self.mosquitto("password_file /tmp/etc/passwd", "allow_anonymous false")
        write("/tmp/etc/password", "wrong\n", 0o600)
        self.settings(MQTT + "\nuser = g1\npassword-file = /tmp/etc/password")
        check = self.uplink("--check")
        self.assertEqual(check.status(), 1)
        self.assertRegex(check.output(), "(?m)^error +mqtt: the broker refuses: Not authorized")
        write("/tmp/etc/password", "right\n", 0o600)
        self.assertEqual(self.uplink("--check").status(), 0)

    def test_only_a_broker_that_says_so_is_spoken_to_by_the_old_version(self):
        guests, answers = [], [b"", b"\x20\x02\x00\x01"]  # closed without a word; "unacceptable version"; then a real one

        def listen():
            listener = socket.create_server(("127.0.0.1", 1884))
            while True:
                guest, _ = listener.accept()
                connect = guest.recv(4096)
                guests.append(connect[8])  # the version
                if answers:
                    guest.sendall(answers.pop(0))
                    guest.close()
                    continue
                broker = socket.create_connection(("127.0.0.1", 1883))
                broker.sendall(connect)
                for pair in ((guest, broker), (broker, guest)):
                    threading.Thread(target=carry, args=pair, daemon=True).start()

        def carry(source, target):
            try:
                while piece := source.recv(4096):
                    target.sendall(piece)
            except OSError:
                pass
            target.shutdown(socket.SHUT_RDWR)

        broker = self.mosquitto()
        threading.Thread(target=listen, daemon=True).start()
        self.settings("[mqtt]\nurl = mqtt://127.0.0.1:1884")
        program = self.uplink()
        self.wait_for(lambda: "connected; by MQTT 3.1.1" in program.output("stderr"), "the old version")
        self.assertEqual(guests, [5, 5, 4])
        answers.append(b"\x20\x02\x00\x01")
        check = self.uplink("--check")
        self.assertEqual((check.status(), "mqtt: connected; by MQTT 3.1.1" in check.output()), (0, True))
        broker.end(signal.SIGKILL)
        self.mosquitto()
        self.wait_for(lambda: program.output("stderr").endswith("mqtt: connected\n"), "the new one, again")

    def test_a_check_leaves_nothing_at_the_brokers(self):
        self.mosquitto()
        self.nats()
        listener = self.listener()
        self.settings(MQTT)
        program = self.uplink()
        self.wait_for(lambda: "online" in listener.output(), "the connection")
        self.settings(MQTT, NATS)
        check = self.uplink("--check")
        self.assertEqual(check.status(), 0)
        self.assertIn("nats: connected; there is no stream HEATMETER yet", check.output())
        time.sleep(1)
        self.assertEqual(listener.output(), "heatmeter/g1/status online\n")
        self.assertIn("error", NatsClient().request("$JS.API.STREAM.INFO.HEATMETER", {}))
        self.assertTrue(program.runs())

    def test_what_may_not_be_read_is_told(self):
        if os.geteuid() != 0:
            self.skipTest("not root")
        self.nats()
        self.settings(NATS)
        append("m1", "A1", *hours(0, 3))
        append("m1", "A4", *hours(0, 3))
        os.chmod(path("m1", "A1"), 0o600)
        os.makedirs("/tmp/state")
        os.chown("/tmp/state", 65534, 65534)
        self.runner = ["setpriv", "--reuid", "65534", "--regid", "65534", "--clear-groups"]
        check = self.uplink("--check")
        self.assertEqual((check.status(), f"error   {path('m1', 'A1')}: cannot be read" in check.output()), (1, True))
        program = self.uplink()
        self.wait_for(lambda: f"{path('m1', 'A1')}: cannot be read" in program.output("stderr"), "a word")
        self.wait_for_all(("m1", "A4"))

    def test_a_broker_that_talks_rubbish_is_left_for_a_good_one(self):
        chance = random.Random(3)
        info = b'INFO {"server_id":"x","version":"2.9.0","max_payload":1048576,"headers":true,"jetstream":true}\r\n'
        listeners = []

        def listen(port, beginning):
            listener = socket.create_server(("127.0.0.1", port))
            listeners.append(listener)

            def answer():
                while True:
                    try:
                        guest, _ = listener.accept()
                    except OSError:
                        return
                    with guest:
                        guest.settimeout(0.3)
                        try:
                            guest.sendall(beginning)
                            for _ in range(4):
                                try:
                                    guest.recv(4096)
                                except TimeoutError:
                                    pass
                                guest.sendall(chance.randbytes(200) + b"\r\nMSG x 1 99999999\r\n")
                        except OSError:
                            pass
            threading.Thread(target=answer, daemon=True).start()

        listen(1883, b"\x20\x03\x00\x00\x00\x40\x02\x77\x77")  # connected, and confirms what nobody has sent
        listen(4222, info + b"PING\r\n")
        self.settings(MQTT, NATS)
        append("m1", "A1", *hours(0, 3))
        program = self.uplink()
        time.sleep(4)
        self.assertTrue(program.runs(), program.output("stderr"))
        for listener in listeners:
            listener.shutdown(socket.SHUT_RDWR)
            listener.close()
        self.mosquitto()
        self.nats()
        self.wait_for_all(("m1", "A1"))
        self.wait_for(lambda: "mqtt: connected" in program.output("stderr"), "the other one")

    def test_tls_with_certificates_of_ones_own(self):
        keys = brokers.certificates("/tmp/keys")
        tls = f'cert_file: "{keys}/%s.crt", key_file: "{keys}/%s.key", ca_file: "{keys}/ca.crt", verify: true'
        self.nats("tls { " + tls % ("server", "server") + " }")
        self.nats("tls { " + tls % ("other", "other") + " }", port=4223)
        for port, name in ((8883, "server"), (8884, "other")):
            self.mosquitto(f"cafile {keys}/ca.crt", f"certfile {keys}/{name}.crt", f"keyfile {keys}/{name}.key",
                           "require_certificate true", port=port)

        def check(mqtt_port=8883, nats_port=4222, ca="ca", cert="client"):
            own = f"\ncert = {keys}/{cert}.crt\nkey = {keys}/{cert}.key" if cert else ""
            self.settings(f"[mqtt]\nurl = mqtts://127.0.0.1:{mqtt_port}\nca = {keys}/{ca}.crt{own}",
                          f"[nats]\nurl = tls://127.0.0.1:{nats_port}\nca = {keys}/{ca}.crt{own}")
            program = self.uplink("--check")
            status = program.status()
            return status, program.output()

        self.assertEqual(check()[0], 0)
        for wrong in ({"ca": "stranger"}, {"mqtt_port": 8884, "nats_port": 4223}, {"cert": None}):
            status, told = check(**wrong)
            self.assertEqual(status, 1)
            self.assertEqual(told.count("error  "), 2, f"{wrong}: {told}")
        check()  # writes the right settings
        append("m1", "A1", *hours(0, 3))
        program = self.uplink()
        self.wait_for(lambda: program.output("stderr").count(": connected") == 2, "both connections")

    def test_wrong_settings_are_told_with_their_lines(self):
        write("/tmp/etc/uplink.conf", "[gateway]\nname = g1\n[nats]\nurl = http://x\ncolour = red\n[amqp]\n")
        for words in ([], ["--check"]):
            program = self.uplink(*words)
            self.assertEqual(program.status(), 2)
            self.assertEqual([line.split(": ", 1)[0] for line in program.output("stderr").splitlines()],
                             [f"/tmp/etc/uplink.conf:{line}" for line in (4, 5, 6)])

    def test_a_second_one_on_the_same_state_does_not_start(self):
        self.settings(NATS)
        program = self.uplink()
        time.sleep(0.5)
        second = self.uplink()
        self.assertEqual(second.status(), 1)
        self.assertIn("another heatmeter-uplink", second.output("stderr"))
        self.assertTrue(program.runs())

    def test_after_a_long_outage_the_newest_come_first(self):
        self.nats()
        self.settings(NATS, order="newest")
        places = [("m1", name) for name in ("A1", "A4")]
        for uuid, name in places:
            append(uuid, name, *hours(0, 5000))
        self.uplink()
        self.wait_for_all(*places)
        first = [line for _, _, body in NatsClient().messages()[:3] for line in body["lines"]]
        self.assertEqual(max(line[1] for line in first), START + 3600 * 4999)
        # The order of the file holds for the last time that each is sent.
        last_seen = {}
        for at, line in enumerate(self.arrived()):
            last_seen[line[2], line[3]] = at
        for _, name in places:
            order = [last_seen[name, START + 3600 * hour] for hour in range(5000)]
            self.assertEqual(order, sorted(order))

    def test_a_limit_of_lines_is_kept(self):
        self.nats()
        self.settings(NATS, **{"lines-per-second": 100})
        append("m1", "A1", *hours(0, 5000))
        self.uplink()
        self.wait_for(self.arrived, "the first ones")
        begin, there = time.monotonic(), len(self.arrived())
        time.sleep(4)
        rate = (len(self.arrived()) - there) / (time.monotonic() - begin)
        self.assertTrue(50 < rate < 160, rate)

    def test_a_year_comes_over_a_thin_line_and_what_is_new_does_not_wait_for_it(self):
        self.nats()
        line = brokers.ThinLine(4333, brokers.NATS_PORT, 2000)
        self.settings("[nats]\nurl = nats://127.0.0.1:4333\ncompress = yes", order="newest")
        year = [f"{START + 3600 * hour},192,{100 + hour * 0.731:.6f}" for hour in range(24 * 365)]
        append("m1", "A1", *year)
        program = self.uplink()
        self.wait_for(self.arrived, "the first ones")
        begin, count, moments = time.monotonic(), len(year), []
        while len(set(self.arrived())) < count:
            time.sleep(5)
            # A new hour comes within seconds, however much of the year is still to come.
            append("m1", "A1", *hours(count, 1))
            count += 1
            written = time.monotonic()
            self.wait_for(lambda: any(line[3] == START + 3600 * (count - 1) for line in self.arrived()), "the new hour", 20)
            moments.append(time.monotonic() - written)
            self.assertLess(time.monotonic() - begin, 150)
        self.wait_for_all(("m1", "A1"))
        self.assertNotIn("answer", program.output("stderr"))
        size = os.path.getsize(path("m1", "A1"))
        self.tell(f"a year of hours in {time.monotonic() - begin:.0f} s, a new one within {max(moments):.1f} s; "
                  f"{line.carried / count:.1f} bytes a line on the wire, {size / count:.1f} in the file")
        self.assertLess(max(moments), 10)
        self.assertLess(line.carried, size)

    def test_values_come_soon_although_records_fill_a_thin_line(self):
        self.mosquitto()
        listener = self.listener()
        brokers.ThinLine(1884, brokers.MQTT_PORT, 2000)
        self.settings("[mqtt]\nurl = mqtt://127.0.0.1:1884")
        append("m1", "A1", *hours(0, 1500))
        program = self.uplink()

        def lines():
            rows = listener.output().rpartition("\n")[0].splitlines()
            return [line for row in rows if "/record/" in row for line in json.loads(row.split(" ", 1)[1])["lines"]]

        self.wait_for(lambda: len(lines()) > 100, "the first ones")
        for value in ("12.500000", "13.500000"):
            write("/tmp/m1/1/tc_items/T1", value + "\n")
            self.wait_for(lambda: f"m1/1/value/T1 {value}" in listener.output(), "the value", 12)
        self.assertLess(len(lines()), 1500)  # they had not all gone
        append("m2", "A1", *hours(0, 1))
        self.wait_for(lambda: len(lines()) >= 1501, "all of it", 60)
        self.assertEqual(len(lines()), 1501)  # none twice
        self.assertEqual(program.output("stderr").count("connected"), 1)

    def test_status_and_metrics_show_what_waits(self):
        root = "/tmp/root"
        os.makedirs(f"{root}/var/lib/heatmeterd")
        os.makedirs(f"{root}/mnt/storage/m1/1/tc_archives")
        archive = f"{root}/mnt/storage/m1/1/tc_archives/A1"

        def status(*words):
            done = subprocess.run([f"{self.build}/heatmeterctl", "--root", root, "status", *words],
                                  capture_output=True, text=True)
            return done.stdout

        self.assertIsNone(json.loads(status("--json"))["uplink"])
        write(archive, "\n".join(hours(0, 10)) + "\n")
        self.settings(MQTT, NATS)
        self.nats()
        words = [f"{self.build}/heatmeter-uplink", "--root", root, "--config", "/tmp/etc/uplink.conf"]
        program = self.start("uplink", words)
        self.wait_for(lambda: len(self.arrived()) == 10, "the lines")
        program.end()
        with open(archive, "a", encoding="utf-8") as file:
            file.write("\n".join(hours(10, 1)) + "\n")
        told = json.loads(status("--json"))
        self.assert_schema("status", json.dumps(told))
        mqtt, nats = told["uplink"]["sinks"]
        self.assertEqual((mqtt["name"], nats["name"]), ("mqtt", "nats"))
        self.assertEqual(mqtt["pending_bytes"], os.path.getsize(archive))
        self.assertIsNone(mqtt["last_confirmed"])
        self.assertEqual(nats["pending_bytes"], len(hours(10, 1)[0]) + 1)
        self.assertLess(abs(time.time() - START - 36000 - nats["oldest_s"]), 5)
        self.assertLess(abs(time.time() - nats["last_confirmed"]), 30)
        text = status()
        self.assertIn("uplink mqtt: ", text)
        self.assertRegex(text, "uplink nats: 25 bytes wait, the oldest record .* old, last confirmed")
        view = self.start("view", [f"{self.build}/heatmeter-view", "--root", root])
        self.wait_for(lambda: "http://" in view.output("stderr"), "the page's program")

        def metrics():
            with urllib.request.urlopen("http://127.0.0.1:8083/metrics") as answer:
                return answer.read().decode()

        self.wait_for(lambda: 'heatmeter_uplink_pending_bytes{sink="nats"} 25' in metrics(), "the metric")
        self.assertRegex(metrics(), r'heatmeter_uplink_last_confirmed_timestamp_seconds\{sink="nats"\} 1\d+')

    def test_it_is_small_and_still(self):
        self.mosquitto()
        self.nats()
        self.settings(MQTT, NATS)
        for meter in range(30):
            for item in range(30):
                write(f"/tmp/m{meter}/1/tc_items/{('T1', 'T2', 'P1', 'M1', 'IE1', 'IM1')[item % 6]}", f"{item}.5\n")
            for name in ("A1", "A4", "A6", "A12", "A14", "A17", "A18", "A20", "A21", "A29", "A32", "A40"):
                append(f"m{meter}", name, *hours(0, 300))
        program = self.uplink()
        self.wait_for_all(*((f"m{meter}", "A40") for meter in range(30)), patience=90)
        time.sleep(3)

        def used():
            fields = box.read(f"/proc/{program.process.pid}/stat").rsplit(")", 1)[1].split()
            return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

        before = used()
        time.sleep(10)
        own = int(box.read(f"/proc/{program.process.pid}/status").split("RssAnon:")[1].split()[0])
        self.tell(f"own memory {own} KiB, processor {used() - before:.2f} s in 10 s")
        self.assertLess(used() - before, 0.03)
        if not self.runner and "asan" not in self.build and "tsan" not in self.build:
            self.assertLess(own, 8 * 1024)


if __name__ == "__main__":
    box.main(__file__)
