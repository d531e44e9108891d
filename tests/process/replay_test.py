#!/usr/bin/env python3
"""Captures of every family, played back to the daemon as meters: it asks what it asked then, and reads the same."""

import glob
import os
import re

import box

START = "2024-03-02 08:20:00"
RATE = 60


class Replay(box.Test):
    def play(self, name, *words):
        """The words of the daemon, and the T1 that it read then; as the head of the capture tells."""
        path = f"{box.DATA}/{name}.txt"
        head = [row[2:].split() for row in box.read(path).splitlines() if row.startswith("# ")]
        sim = next(row[1:] for row in head if row[0] == "heatmeter-sim")
        daemon = next(row[1:] for row in head if row[0] == "heatmeterd")
        self.start_clock(START, RATE)
        program = self.sim("--meter", sim[sim.index("--meter") + 1], "--replay", path, *words)
        return program, daemon, float(re.search(r"T1=([\d.]+)", " ".join(sim))[1])

    def wait_for_value(self, sim, value):
        self.wait_for(lambda: box.item("m1", "T1") or not sim.runs(), "a value", 100)
        self.assertEqual(sim.output("stderr"), "")
        self.assertEqual(box.item("m1", "T1"), f"{value:.6f}")

    def strictly(self, name):
        sim, daemon, value = self.play(name, "--strict")
        self.daemon(*daemon)
        self.wait_for_value(sim, value)
        self.assertTrue(sim.runs())

    def by_question(self, name):
        sim, daemon, value = self.play(name)
        for _ in range(2):
            program = self.daemon(*daemon)
            self.wait_for_value(sim, value)
            program.end()
            os.remove("/tmp/m1/1/tc_items/T1")

    def test_another_question_is_an_error_when_strict(self):
        sim, _, _ = self.play("km5_model_2", "--strict")
        self.daemon("VIST", "-r", "m1")
        self.assertEqual(sim.status(60), 1)
        self.assertRegex(sim.output("stderr"), r"^heatmeter-sim: asked 43 41 4C 4C .* of row 5 of the trace\n$")

    def test_every_family_has_three(self):
        names = [os.path.basename(path).partition("_")[0] for path in glob.glob(f"{box.DATA}/*.txt")]
        self.assertEqual({name: names.count(name) for name in names}, dict.fromkeys(("km5", "vist", "modbus", "sa94"), 3))


for capture in sorted(glob.glob(f"{box.DATA}/*.txt")):
    name = os.path.basename(capture)[:-len(".txt")]
    setattr(Replay, f"test_{name}_strictly", lambda self, name=name: self.strictly(name))
for name in ("km5_model_2", "vist_two_devices", "modbus_three_systems", "sa94_m301"):
    setattr(Replay, f"test_{name}_by_question", lambda self, name=name: self.by_question(name))


if __name__ == "__main__":
    box.main(__file__)
