#!/usr/bin/env python3
"""VIST meters over Modbus on a clock that is put forward: two meters on one line, a restart, and single-bus mode."""

import os
import shutil
import signal
import time

import box

START = "2024-03-02 00:20:00"
MINUTE = 60
HISTORY = ["--history-days", "0.15"]  # three hourly records at the start
METERS = ["--meter", "uuid=m1,type=vist-modbus,serial=40001,T1=71.25",
          "--meter", "uuid=m2,type=vist-modbus,serial=50456,devices=1,T1=58.5"]
FIRST = ["--meter", "uuid=m1,type=vist-modbus,serial=40001,devices=1"]

# Every hourly record has these files, for a meter with all fields; the others hold totals of headers.
RECORD = {"A2", "A3", "A5", "A7", "A9", "A11", "A13", "A15", "A17", "A18", "A19", "A20", "A21", "A22", "A23", "A24",
          "A25", "A26", "A27", "A28", "T4"}
HEADER = {"A1", "A4", "A6", "A8", "A10", "A12", "A14", "A16"}
VALUES = {"T1", "T2", "T3", "T4", "P1", "P2", "P3", "P4", "Q1", "Q2", "Q3", "M1", "M2", "M3", "M1max", "M1min", "M2max",
          "M2min", "IQ1", "IQ2", "IQ3", "IM1", "IM2", "IM3", "IE1", "IT1", "ER", "EG", "SC", "MDateTime", "DN1"}


class SteppedClock(box.FastClock):
    """A clock that starts at a local time, goes as fast as any, and can be put forward while programs run. On a fast
    clock the time that this driver leaves its meter for an answer would be shorter too."""

    PATH = "/tmp/box.clock"

    def __init__(self, start):
        super().__init__(start, 1)
        self.ahead = self.start - time.time()
        self.forward(0)

    def forward(self, seconds):
        self.ahead += seconds
        with open(self.PATH + ".new", "w") as file:
            file.write(f"{self.ahead:+.0f}\n")
        os.rename(self.PATH + ".new", self.PATH)

    def environment(self):
        words = {name: value for name, value in self.shared.items() if name != "FAKETIME"}
        return {**words, "FAKETIME_TIMESTAMP_FILE": self.PATH, "FAKETIME_CACHE_DURATION": "1"}


def held(dump, uuid, n):
    """Archive file to the lines that the meter's records give, from the rows of --dump."""
    files = {}
    for row in dump.splitlines():
        words = row.split()
        if words[:3] == [uuid, str(n), "line"]:
            files.setdefault(words[3], []).append(",".join(words[4:7]))
    return files


def folder(uuid, n, name):
    return f"/mnt/storage/{uuid}/{n}/{name}"


def lines_of(uuid, n, name):
    return box.read(folder(uuid, n, name)).splitlines()


class Modbus(box.Test):
    def setUp(self):
        super().setUp()
        if shutil.which("faketime") is None:
            self.skipTest("no faketime")
        self.clock = SteppedClock(START)

    def meters(self, *words):
        return self.sim(*words, *HISTORY, "--trace", "/tmp/trace", "--dump", "/tmp/dump")

    def wait_for_values(self, uuid, n):
        """The first pass: archives are due ten minutes after the start."""
        self.wait_for(lambda: box.item(uuid, "MDateTime", n) and box.item(uuid, "_DriverStatus", n) == "6",
                      f"the values of {uuid}/{n}")

    def wait_for_hand_over(self, uuid, n):
        self.wait_for(lambda: all(lines_of(uuid, n, f"tc_tmp_archives/{name}") for name in RECORD | HEADER),
                      f"the files of {uuid}/{n}", 60)

    def assert_archives(self, uuid, n, least):
        """Each file holds what the meter has held, each record once, in order, up to some record."""
        files = held(box.read("/tmp/dump"), uuid, n)
        self.assertEqual(set(files), RECORD)
        self.assertEqual(set(os.listdir(folder(uuid, n, "tmp_archives"))), RECORD | HEADER)
        for name, lines in files.items():
            for place in ("tmp_archives", "tc_tmp_archives"):
                found = lines_of(uuid, n, f"{place}/{name}")
                self.assertGreaterEqual(len(found), least, f"{uuid}/{n} {place}/{name}")
                self.assertEqual(found, lines[:len(found)], f"{uuid}/{n} {place}/{name}")
        for name in HEADER:
            times = [line.split(",")[0] for line in lines_of(uuid, n, f"tmp_archives/{name}")]
            self.assertEqual(times, sorted(set(times)), f"{uuid}/{n} {name}")

    def test_two_meters_on_a_line_are_read_and_their_files_handed_over(self):
        sim = self.meters(*METERS)
        daemon = self.daemon("VISTmodbus", "-r", "m1", "m2")
        heat_systems = (("m1", 1), ("m1", 2), ("m2", 1))
        self.wait_for_values("m2", 1)
        self.clock.forward(15 * MINUTE)
        for uuid, n in heat_systems:
            self.wait_for_hand_over(uuid, n)
        daemon.end()
        sim.end()
        self.assertEqual(daemon.output("stderr"), "")
        for uuid, n in heat_systems:
            with self.subTest(uuid=uuid, system=n):
                expected = {"T1": "71.250000" if uuid == "m1" else "58.500000", "_HMsystem": f"TS{n}", "DN1": "50",
                            "SerialNumber": "40001" if uuid == "m1" else "50456", "Connected": "1"}
                self.assertEqual({name: box.item(uuid, name, n) for name in expected}, expected)
                self.assertLessEqual(VALUES, set(os.listdir(f"/tmp/{uuid}/{n}/tc_items")))
                self.assert_archives(uuid, n, 3)
        self.assertEqual(box.item("m1", "MeterModel"), "VIST-TC-3")
        for uuid, n in (("m1", 3), ("m2", 2)):
            self.assertEqual(os.listdir(folder(uuid, n, "tmp_archives")), [])
        self.assertIn("Create VIST modbus", box.general_log())
        # 40001 is slave 65, 50456 is slave 24: the main configuration of both.
        self.assertIn("Send: 0x41 0x03 0x00 0x00 0x00 0x63 0x0B 0x23 \n", daemon.output())
        self.assertIn("Send: 0x18 0x03 0x00 0x00 0x00 0x63 0x07 0xEA \n", daemon.output())

    def test_after_a_kill_the_reading_goes_on_behind_the_last_record(self):
        sim = self.meters(*FIRST, "--silence", "0.02", "--noise", "0.02", "--bad-sums", "0.02")
        daemon = self.daemon("VISTmodbus", "-r", "m1")
        self.wait_for_values("m1", 1)
        self.clock.forward(15 * MINUTE)
        self.wait_for_hand_over("m1", 1)
        daemon.end(signal.SIGKILL)
        first = len(lines_of("m1", 1, "tmp_archives/T4"))
        self.assertGreaterEqual(first, 3)
        os.remove("/tmp/uni_logs.m1.txt")
        daemon = self.daemon("VISTmodbus", "-r", "m1")
        self.wait_for(lambda: "VIST modbus run_main done." in box.read("/tmp/uni_logs.m1.txt"), "a pass")
        self.clock.forward(120 * MINUTE)
        self.wait_for(lambda: len(lines_of("m1", 1, "tc_tmp_archives/T4")) > first, "records of another run", 60)
        daemon.end()
        sim.end()
        self.assert_archives("m1", 1, first + 2)
        self.assertEqual(len(lines_of("m1", 1, "tmp_archives/A6")), 2)

    def test_single_bus_mode_makes_the_driver_and_never_runs_it(self):
        sim = self.meters("--meter", "uuid=k1,type=km5,serial=12345678", *FIRST)
        daemon = self.daemon("bus", "-j", "m1", "k1")
        self.wait_for(lambda: "END: RUN_MAIN" in box.read("/tmp/uni_logs.k1.general.txt"), "the pass of the KM5", 120)
        self.stays(daemon)
        daemon.end()
        sim.end()
        self.assertEqual(box.item("k1", "MeterModel"), "KM5-2")
        self.assertIn("VISTmodbus creating.", box.read("/tmp/uni_logs.m1.txt"))
        self.assertNotIn("In run_main...", box.read("/tmp/uni_logs.m1.txt"))
        self.assertEqual(box.item("m1", "MeterModel"), "")
        self.assertEqual(daemon.output().count("Send: "), 0)


if __name__ == "__main__":
    box.main(__file__)
