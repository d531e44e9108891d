#!/usr/bin/env python3
"""SA-94 meters on a fast clock: a pass of values and archives, a restart, an unknown firmware, and single-bus mode."""

import os
import signal

import box

START = "2024-03-02 00:20:00"
RATE = 120  # the first pass lasts longer than the ten minutes after which archives are due
HISTORY = ["--history-days", "0.15"]  # three hourly records and a daily one at the start

METER = "uuid=s1,type=sa94,serial=74565,firmware=M301,T1=71.25"
# Present values that leave under their own names, and the files of an hour and of a day, for this firmware.
VALUES = {"M1", "M2", "T1", "T2", "T3", "dT", "IE1", "IM1", "IM2", "IT1", "P1", "P2", "MDateTime"}
HOURLY = {"A3", "A12", "A14", "_A20", "_A21", "A22", "A26", "A25", "A24", "A1", "A17", "A18", "A6", "A8", "A4"}
DAILY = {"A32", "A40", "A42", "_A48", "_A49", "A50", "A54", "A53", "A52", "A29", "A45", "A46", "A34", "A36"}


def held(dump, uuid):
    """Archive file to the lines that the meter's records give, from the rows of --dump."""
    files = {}
    for row in dump.splitlines():
        words = row.split()
        if words[:3] == [uuid, "1", "line"]:
            files.setdefault(words[3], []).append(",".join(words[4:7]))
    return files


def text_log(uuid):
    return box.read(f"/tmp/uni_logs.{uuid}.messages.txt")


class Sa94(box.Test):
    def setUp(self):
        super().setUp()
        self.start_clock(START, RATE)

    def meters(self, *words):
        return self.sim(*words, *HISTORY, "--trace", "/tmp/trace", "--dump", "/tmp/dump")

    def wait_for_pass(self, uuid):
        """All archives have been read: after the daily one the driver waits for its next pass."""
        self.wait_for(lambda: text_log(uuid).count("Start read archives from SA94") >= 3, f"the archives of {uuid}", 150)
        self.wait_for(lambda: box.item(uuid, "_DriverStatus") in ("6", "0", "1"), f"the end of the pass of {uuid}", 60)

    def assert_archives(self, uuid, least):
        """Each file holds what the meter has held, each record once, in order, up to some record."""
        files = held(box.read("/tmp/dump"), uuid)
        self.assertEqual(set(files) - {"_A57"}, HOURLY | DAILY)
        folder = f"/mnt/storage/{uuid}/1/tc_archives"
        self.assertEqual(set(os.listdir(folder)), set(files) | {"_hPrevE", "_dPrevE"})
        for name, lines in files.items():
            found = box.archive(uuid, name)
            self.assertEqual(found, lines[:len(found)], name)
            self.assertGreaterEqual(len(found), least if name in HOURLY else 1, name)
        self.assertEqual(len({len(box.archive(uuid, name)) for name in HOURLY}), 1)

    def test_values_and_archives_are_read_to_the_last_one(self):
        sim = self.meters("--meter", METER + ",events=2")
        daemon = self.daemon("SA94", "-r", "s1")
        self.wait_for_pass("s1")
        daemon.end()
        sim.end()
        self.assertEqual(daemon.output("stderr"), "")
        expected = {"Firmware": "M301", "MeterModel": "SA94/2M", "T1": "71.250000", "DN1": "50", "_SupportT3": "1",
                    "_SubsystemType": "1", "Connected": "1"}
        self.assertEqual({name: box.item("s1", name) for name in expected}, expected)
        self.assertLessEqual(VALUES, set(os.listdir("/tmp/s1/1/tc_items")))
        self.assertEqual(box.item("s1", "Connected", 6), "1")
        self.assert_archives("s1", 3)
        self.assertEqual(len(box.archive("s1", "_A57")), 2)
        self.assertEqual(box.read("/mnt/storage/s1/1/tc_archives/_hPrevE"),
                         box.archive("s1", "A1")[-1].rpartition(",")[2])
        log = box.general_log()
        self.assertIn("Create SA94", log)

    def test_after_a_kill_the_reading_goes_on_behind_the_last_record(self):
        sim = self.meters("--meter", METER + ",events=0", "--silence", "0.02")
        daemon = self.daemon("SA94", "-r", "s1")
        self.wait_for_pass("s1")
        daemon.end(signal.SIGKILL)
        first = len(box.archive("s1", "A1"))
        self.assertGreaterEqual(first, 3)
        daemon = self.daemon("SA94", "-r", "s1")
        self.wait_for(lambda: "Start getArchives" not in text_log("s1"), "an empty log")
        self.wait_for(lambda: len(box.archive("s1", "A1")) > first and len(box.archive("s1", "A4")) > first,
                      "records of another run", 150)
        daemon.end()
        sim.end()
        self.assert_archives("s1", first + 1)

    def test_an_unknown_firmware_is_told_and_nothing_is_read(self):
        self.meters("--meter", "uuid=s2,type=sa94,serial=7,firmware=SA95 1.0")
        daemon = self.daemon("SA94", "-r", "s2")
        self.wait_for(lambda: text_log("s2").count("getDescription = Failure") >= 2, "two passes", 60)
        self.assertTrue(daemon.runs())
        self.assertEqual(box.item("s2", "Firmware"), "SA951.0")
        self.assertEqual(box.item("s2", "_Firmware"), "Unknown")
        self.assertEqual(box.item("s2", "MeterModel"), "")
        self.assertEqual(box.item("s2", "Connected"), "1")
        self.assertEqual(os.listdir("/mnt/storage/s2/1/tc_archives"), [])

    def test_single_bus_mode_makes_the_driver_and_never_runs_it(self):
        sim = self.meters("--meter", "uuid=k1,type=km5,serial=12345678", "--meter", METER)
        daemon = self.daemon("bus", "-j", "s1", "k1")
        self.wait_for(lambda: "END: RUN_MAIN" in box.read("/tmp/uni_logs.k1.general.txt"), "the pass of the KM5", 120)
        self.stays(daemon)
        daemon.end()
        sim.end()
        self.assertEqual(box.item("k1", "MeterModel"), "KM5-2")
        self.assertIn("SA94::SA94", box.read("/tmp/uni_logs.s1.general.txt"))
        self.assertNotIn("Open port", box.read("/tmp/uni_logs.s1.general.txt"))
        self.assertEqual(text_log("s1"), "")
        self.assertEqual(box.item("s1", "_DriverStatus"), "")
        self.assertEqual(box.item("s1", "MeterModel"), "")
        self.assertEqual(os.listdir("/mnt/storage/s1/1/tc_archives"), [])


if __name__ == "__main__":
    box.main(__file__)
