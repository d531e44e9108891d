#!/usr/bin/env python3
"""What goes wrong between a running daemon and its meters, and is mended again, by the words of heatmeter-sim."""

import os
import re
import socket
import stat
import subprocess

import box

LINE = "/tmp/heatmeter-line"
CONTROL = "/tmp/control"
START = "2024-03-02 08:20:00"
RATE = 60

# Family, as the daemon calls it, and a meter of it.
FAMILIES = {"KM5": "type=km5,T1=71.25", "VIST": "type=vist,serial=7,devices=1,T1=71.25",
            "VISTmodbus": "type=vist-modbus,serial=5,devices=1,T1=71.25", "SA94": "type=sa94,serial=74565,T1=71.25"}


def row_count(way):
    return len(re.findall(f" {way} ", box.read("/tmp/trace")))


class Failures(box.Test):
    def setUp(self):
        super().setUp()
        self.start_clock(START, RATE)

    def meters(self, *words):
        return self.sim("--control", CONTROL, "--trace", "/tmp/trace", "--history-days", "0.1", *words)

    def tell(self, *words, status=0):
        done = subprocess.run([f"{self.sim_build}/heatmeter-sim", "--tell", CONTROL, *words], capture_output=True,
                              text=True, timeout=20)
        self.assertEqual(done.returncode, status, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout

    def wait_for_value(self, value="71.250000"):
        self.wait_for(lambda: box.item("m1", "T1") == value, f"T1 = {value}", 100)

    def wait_for_questions(self, count=3):
        """The daemon has asked so many times more."""
        asked = row_count(">")
        self.wait_for(lambda: row_count(">") >= asked + count, "questions", 100)

    def each_family(self, name):
        self.meters("--meter", FAMILIES[name])
        return self.daemon(name, "-r", "m1")

    def forget_value(self):
        os.remove("/tmp/m1/1/tc_items/T1")


if __name__ == "__main__":
    box.main(__file__)
