#!/usr/bin/env python3
"""heatmeterctl check, before the start; heatmeterctl log, while a daemon writes."""

import json
import os
import re
import subprocess
import time

import box
import keeper
from keeper import FAMILIES, LINE, RATE

START = "2024-03-02 08:05:00"


class Check(keeper.Keeper):
    def troubles(self, *words):
        """Topic to level of all that is not well."""
        done = subprocess.run([f"{self.build}/heatmeterctl", "check", "--json", *words], capture_output=True, text=True,
                              timeout=30, env=self.clock.environment() if self.clock else dict(os.environ))
        self.assert_schema("check", done.stdout)
        found = json.loads(done.stdout)
        self.assertEqual(done.returncode, 1 if found["level"] == "error" else 0)
        return {finding["topic"]: finding["level"] for finding in found["findings"] if finding["level"] != "ok"}

    def test_all_is_well(self):
        self.meters("--meter", FAMILIES["KM5"])
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {})
        self.assertIn(f"{LINE} is there and free", self.ctl("check", "KM5", "-r", "m1"))

    def test_wrong_words(self):
        self.meters()
        self.assertEqual(self.troubles("KM7", "-r", "m1")["words"], "error")
        self.assertEqual(self.troubles("KM5", "-r", "a/b")["uuid"], "error")
        self.assertEqual(self.troubles("KM5", "-r", "m9"), {"service": "error"})
        self.ctl("check", statuses=[2])
        self.ctl("check", "nowhere", statuses=[2])

    def test_the_service_and_what_it_says(self):
        self.meters("--meter", FAMILIES["VIST"])
        self.tell("told", "m1", "speed=115200,parity=O,manufacturer=acme,serial=0")
        self.assertEqual(self.troubles("VIST", "-r", "m1"),
                         {"speed": "warning", "parity": "warning", "manufacturer": "warning", "serial": "error"})
        self.tell("service", "nonsense")
        self.assertEqual(self.troubles("VIST", "-r", "m1"), {"service": "error"})
        self.tell("service", "mute")
        self.assertEqual(self.troubles("VIST", "-r", "m1"), {"service": "error"})
        self.tell("service", "off")
        self.assertEqual(self.troubles("VIST", "-r", "m1"), {"service": "error"})

    def test_the_port(self):
        self.meters()
        self.tell("told", "m1", "port=/tmp/nowhere")
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"port": "error"})
        self.tell("told", "m1", "port=/dev/null")
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"port": "error"})
        self.tell("told", "m1", f"port={LINE}")
        with open(LINE, "r+b", buffering=0):
            self.assertIn(f"held by process {os.getpid()}", self.ctl("check", "KM5", "-r", "m1", statuses=[1]))
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {})

    def test_a_process_that_runs_already(self):
        self.meters("--meter", FAMILIES["VISTmodbus"])
        self.daemon("VISTmodbus", "-r", "m1")
        self.wait_for(lambda: "open_tty" in box.read("/tmp/uni_logs.general.txt"), "the port")
        self.assertEqual(self.troubles("VISTmodbus", "-r", "m1"), {"port": "warning"})
        self.assertEqual(self.troubles("KM5", "-r", "m1"),
                         {"port": "error", "process": "error", "manufacturer": "error"})

    def test_flags_clock_and_zone(self):
        self.meters()
        with open("/tmp/pause_tvk_all", "w", encoding="utf-8"):
            pass
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"flags": "warning"})
        os.remove("/tmp/pause_tvk_all")
        os.makedirs("/mnt/storage/m1/1/tc_archives")
        with open("/mnt/storage/m1/1/tc_archives/A1", "w", encoding="utf-8") as file:
            file.write(f"{int(time.time()) + 86400},192,1.000000\n")
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"clock": "error"})
        os.remove("/mnt/storage/m1/1/tc_archives/A1")
        os.environ["TZ"] = "CET-1CEST,M3.5.0,M10.5.0/3"
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"zone": "warning"})

    def test_a_clock_before_2020(self):
        self.start_clock("2000-01-01 00:10:00")
        self.meters()
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"clock": "error"})

    @box.storage("read-only")
    def test_the_storage(self):
        self.meters()
        self.assertEqual(self.troubles("KM5", "-r", "m1"), {"storage": "error"})


class Log(keeper.Keeper):
    def follow(self, *words):
        return self.start("log", [f"{self.build}/heatmeterctl", "log", "--follow", *words])

    def test_a_log_is_followed_across_the_start_of_another_process(self):
        self.start_clock(START, RATE)
        self.meters("--meter", FAMILIES["VIST"])
        daemon = self.daemon("VIST", "-r", "m1")
        self.wait_for(lambda: "Requesting" in box.read("/tmp/uni_logs.m1.txt"), "a question")
        log = self.follow("m1", "--plain")
        self.wait_for(lambda: log.output().count("Requesting: ") > 3, "questions")
        daemon.end()
        with open("/tmp/uni_logs.m1.txt", encoding="utf-8") as file:
            written = file.read().replace("\r", "").splitlines()
        self.wait_for(lambda: log.output().splitlines()[:len(written)] == written, "all lines")
        self.daemon("VIST", "-r", "m1")
        self.wait_for(lambda: "begins anew" in log.output("stderr"), "the second start")
        self.wait_for(lambda: log.output().count("VISTFunctions") == box.read("/tmp/uni_logs.m1.txt").count("VISTFunctions"),
                      "the lines of the second one")

    def test_tries_are_folded(self):
        self.start_clock(START, RATE)
        self.meters()
        self.tell("cable", LINE, "cut")
        self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: box.read("/tmp/uni_logs.m1.debug.txt").count("0 bytes received") > 12, "tries")
        self.assertRegex(self.ctl("log", "m1"), r"\n\d\d:\d\d:\d\d to \d\d:\d\d:\d\d: \d+ tries, nothing heard\n")
        plain = self.ctl("log", "m1:debug", "--plain")
        self.assertTrue(plain.startswith(re.match(".*\n", box.read("/tmp/uni_logs.m1.debug.txt"))[0]))
        self.assertGreater(plain.count("0 bytes received"), 12)

    def test_names_that_are_none(self):
        for name in ("../../etc/passwd", "m1:secrets", ""):
            self.ctl("log", name, statuses=[2])
        self.ctl("log", "m1", statuses=[1])
        self.ctl("log", "general", statuses=[1])


if __name__ == "__main__":
    box.main(__file__)
