#!/usr/bin/env python3
"""VIST meters on a fast clock, and meters of two families on one line in single-bus mode."""

import os

import box

START = "2024-03-02 00:20:00"
RATE = 120
HISTORY = ["--history-days", "0.15"]  # three hourly records at the start


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


class Vist(box.Test):
    def setUp(self):
        super().setUp()
        self.start_clock(START, RATE)

    def meters(self, *words):
        return self.sim(*words, *HISTORY, "--trace", "/tmp/trace", "--dump", "/tmp/dump")

    def wait_for_hand_over(self, uuid, n):
        self.wait_for(lambda: os.path.exists(folder(uuid, n, "tc_tmp_archives/A1")), f"the files of {uuid}/{n}", 120)

    def test_two_virtual_devices_are_read_and_their_files_handed_over(self):
        sim = self.meters("--meter", "uuid=v1,type=vist,serial=7,devices=2,T1=71.25")
        daemon = self.daemon("VIST", "-r", "v1")
        self.wait_for_hand_over("v1", 1)
        self.wait_for_hand_over("v1", 2)
        daemon.end()
        sim.end()
        self.assertEqual(daemon.output("stderr"), "")
        for n in (1, 2):
            with self.subTest(device=n):
                self.assertEqual(box.item("v1", "T1", n), "71.250000")
                self.assertEqual(box.item("v1", "_HMsystem", n), f"TS{n}")
                self.assertEqual(box.item("v1", "SerialNumber", n), "7")
                files = held(box.read("/tmp/dump"), "v1", n)
                self.assertGreaterEqual(len(files), 12)
                for name, lines in files.items():
                    for place in ("tmp_archives", "tc_tmp_archives"):
                        found = box.read(folder("v1", n, f"{place}/{name}")).splitlines()
                        self.assertGreaterEqual(len(found), 3, f"{place}/{name}")
                        self.assertEqual(found, lines[:len(found)], f"{place}/{name}")
        self.assertEqual(os.listdir(folder("v1", 3, "tmp_archives")), [])
        self.assertIn("Create VIST", box.general_log())

    def test_single_bus_mode_reads_the_km5_once_and_never_the_vist(self):
        sim = self.meters("--meter", "uuid=k1,type=km5,serial=12345678", "--meter", "uuid=v1,type=vist,serial=7")
        daemon = self.daemon("bus", "-j", "v1", "k1")
        self.wait_for(lambda: "END: RUN_MAIN" in box.read("/tmp/uni_logs.k1.general.txt"), "the pass of the KM5", 90)
        self.stays(daemon)
        daemon.end()
        sim.end()
        self.assertEqual(box.item("k1", "MeterModel"), "KM5-2")
        self.assertEqual(box.item("k1", "T1"), "95.500000")
        self.assertEqual(box.read("/tmp/uni_logs.k1.general.txt").count("START: RUN_MAIN"), 1)
        self.assertEqual(box.item("v1", "Connected"), "0")
        self.assertEqual(box.item("v1", "MeterModel"), "")
        log = box.general_log()
        self.assertEqual([text for text in log if text in ("Run SingleBus", "Add Drivers", "Run drivers iterations")],
                         ["Run SingleBus", "Add Drivers", "Run drivers iterations"])


if __name__ == "__main__":
    box.main(__file__)
