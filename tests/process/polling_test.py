#!/usr/bin/env python3
"""Hours of polling on a fast clock: what stands in items and archive files is what the simulated meters hold."""

import os
import re
import signal

import box

START = "2024-03-02 00:20:00"
RATE = 200  # the first pass of a meter lasts the half hour after which archives are due
HISTORY = ["--history-days", "0.1"]  # two hourly records and a daily one at the start

# Archive file, and what the meter calls the value. Totals bear the date of the record, averages one a period earlier.
HOUR, DAY = 3600, 86400
TOTALS = {"hourly": {"A1": "IQ", "A4": "IT", "A6": "IV1", "A8": "IV2", "A12": "IM1", "A14": "IM2"},
          "daily": {"A29": "IQ", "A32": "IT", "A34": "IV1", "A36": "IV2", "A40": "IM1", "A42": "IM2"}}
AVERAGES = {"hourly": {"A17": "P1", "A18": "P2", "A20": "T1", "A21": "T2"},
            "daily": {"A45": "P1", "A46": "P2", "A48": "T1", "A49": "T2"}}
PERIOD = {"hourly": HOUR, "daily": DAY}
WITHOUT_VOLUMES = {"A6", "A8", "A34", "A36"}  # that a model 6 does not fill

# Present values that leave under their own names; of a firmware above 2.10.
VALUES = ["IE1", "IE2", "IM1", "IM2", "Q1", "Q2", "Q4", "M1", "M2", "M4", "M5", "P1", "P2", "P4",
          "T1", "T2", "T3", "T4", "T5", "T6", "Ta"]
VALUES_OF_MODEL = {2: ["Vi", "IQ1", "IQ2"], 6: ["IE4", "IM4", "IM5"]}


class Held:
    """What a meter holds, read from the rows of --dump."""

    def __init__(self, dump, uuid):
        self.records = {"hourly": [], "daily": []}
        self.events = []
        self.values = {}
        for row in dump.splitlines():
            words = row.split()
            if words[:2] != [uuid, "1"]:
                continue
            if words[2] in self.records:
                fields = dict(word.split("=") for word in words[4:])
                self.records[words[2]].append((int(words[3]), fields))
            elif words[2] == "event":
                self.events.append((int(words[3]), int(words[4])))
            elif words[2] == "value":
                self.values[words[3]] = words[4]

    def files(self, model):
        """Archive file to the lines that it has when everything was read."""
        files = {}
        for kind, records in self.records.items():
            for name, field in TOTALS[kind].items():
                files[name] = [f"{time},192,{fields[field]}" for time, fields in records]
            for name, field in AVERAGES[kind].items():
                files[name] = [f"{time - PERIOD[kind]},192,{fields[field]}" for time, fields in records]
        files["_A57"] = [f"{time},{192 if code >= 128 else 0},{code % 128}.000000" for time, code in self.events]
        return {name: lines for name, lines in files.items() if model != 6 or name not in WITHOUT_VOLUMES}

    def items(self, model):
        items = {name: self.values[name] for name in VALUES + VALUES_OF_MODEL[model]}
        return items | {"IT1": self.values["Tp"]}  # the newer page of the running time comes last


def passes(uuid):
    return box.read(f"/tmp/uni_logs.{uuid}.general.txt").count("END: RUN_MAIN")


class Polling(box.Test):
    def setUp(self):
        super().setUp()
        self.start_clock(START, RATE)

    def meters(self, *words):
        return self.sim(*words, *HISTORY, "--trace", "/tmp/trace", "--dump", "/tmp/dump")

    def wait_for_pass(self, uuid, number=1, patience=100):
        self.wait_for(lambda: passes(uuid) >= number, f"pass {number} of {uuid}", patience)

    def assert_archives(self, uuid, model, least):
        """Each file holds what the meter has held, each record once, in order, up to some record."""
        files = Held(box.read("/tmp/dump"), uuid).files(model)
        folder = f"/mnt/storage/{uuid}/1/tc_archives"
        self.assertEqual(set(os.listdir(folder)), set(files) | {"_EXISTS_FIRST_RECORD"})
        for name, lines in files.items():
            found = box.archive(uuid, name)
            self.assertEqual(found, lines[:len(found)], name)
            self.assertGreaterEqual(len(found), least.get(name, 1), name)
        hourly = {len(box.archive(uuid, name)) for name in files if name in TOTALS["hourly"] | AVERAGES["hourly"]}
        self.assertEqual(len(hourly), 1)

    def assert_items(self, uuid, model, serial):
        expected = Held(box.read("/tmp/dump"), uuid).items(model)
        expected |= {"MeterModel": f"KM5-{model}", "SerialNumber": serial, "Firmware": "2.150000", "Connected": "1",
                     "TSMode": "1", "SC": "1", "PortType": "RS-485"}
        self.assertEqual({name: box.item(uuid, name) for name in expected}, expected)

    def test_two_meters_on_one_line_are_read_to_the_last_value(self):
        sim = self.meters("--meter", "uuid=m1,model=2,T1=71.25,P1=6.0625,events=2",
                          "--meter", "uuid=m2,model=6,serial=87654321,T1=-3.5,events=1")
        daemon = self.daemon("KM5", "-r", "m1", "m2")
        self.wait_for_pass("m1")
        self.wait_for_pass("m2")
        daemon.end()
        sim.end()
        self.assertEqual(daemon.output("stderr"), "")
        for uuid, model, serial in (("m1", 2, "12345678"), ("m2", 6, "87654321")):
            with self.subTest(uuid):
                self.assert_items(uuid, model, serial)
                self.assert_archives(uuid, model, {"A1": 2, "A21": 2, "A29": 1, "A49": 1})
        self.assertEqual(box.item("m1", "T1"), "71.250000")
        self.assertEqual(box.archive("m1", "_A57")[1].partition(",")[2], "0,5.000000")
        self.assertFalse(os.path.exists("/tmp/DRV_LCK_m1"))
        self.assertRegex(box.read("/tmp/driver.m1.state"), r"^\[02\.03\.2024 \d\d:\d\d:\d\d\] \[m1\]  .+\n$")

    def test_after_a_kill_the_reading_goes_on_behind_the_last_record(self):
        sim = self.meters("--meter", "uuid=m1,events=2")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for_pass("m1")
        daemon.end(signal.SIGKILL)
        first = {name: box.archive("m1", name) for name in os.listdir("/mnt/storage/m1/1/tc_archives")}
        self.assertGreaterEqual(len(first["A1"]), 2)

        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: passes("m1") == 0, "an empty log")
        self.wait_for_pass("m1")
        daemon.end()
        sim.end()
        self.assert_archives("m1", 2, {"A1": len(first["A1"]) + 1, "A29": 1, "_A57": 2})
        for name in ("A1", "A21", "A29", "_A57"):
            self.assertEqual(box.archive("m1", name)[:len(first[name])], first[name])

    def test_a_bad_line_loses_nothing(self):
        sim = self.meters("--meter", "uuid=m1,events=1", "--noise", "0.1", "--silence", "0.1", "--bad-sums", "0.1")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for_pass("m1")
        daemon.end()
        sim.end()
        self.assert_items("m1", 2, "12345678")
        self.assert_archives("m1", 2, {"A1": 2, "A29": 1})

    def assert_goes_on(self, daemon):
        """An archive pass has been made, and another pass of current values after it."""
        self.wait_for_pass("m1", 2)
        self.assertTrue(daemon.runs())
        asked = set(re.findall(r"> 78 56 34 12 (\w\w)", box.read("/tmp/trace")))
        self.assertLessEqual({"33", "37", "41"}, asked)  # bounds, events, records
        self.assertEqual(box.item("m1", "T1"), "95.500000")
        self.assertEqual(box.item("m1", "Connected"), "1")

    @box.storage("read-only")
    def test_a_read_only_storage_stops_nothing(self):
        self.meters("--meter", "uuid=m1,events=1")
        self.assert_goes_on(self.daemon("KM5", "-r", "m1"))
        self.assertEqual(os.listdir("/mnt/storage"), [])

    @box.storage("small")
    def test_a_full_storage_stops_nothing(self):
        with open("/mnt/storage/ballast", "wb", buffering=0) as ballast, self.assertRaises(OSError):
            while ballast.write(b"x" * 4096):
                pass
        self.meters("--meter", "uuid=m1,events=1")
        self.assert_goes_on(self.daemon("KM5", "-r", "m1"))
        folder = "/mnt/storage/m1/1/tc_archives"
        self.assertEqual([name for name in os.listdir(folder) if os.path.getsize(f"{folder}/{name}") > 0], [])


if __name__ == "__main__":
    box.main(__file__)
