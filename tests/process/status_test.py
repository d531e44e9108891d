#!/usr/bin/env python3
"""heatmeterctl status: each cause of silence, staged with real processes and simulated meters, is named, and nothing
else is."""

import json
import os
import shutil
import subprocess
import time

import box
import keeper
from keeper import FAMILIES, LINE, RATE, TWO_PERIODS

START = "2024-03-02 08:05:00"


class Silence(keeper.Keeper):
    def setUp(self):
        super().setUp()
        self.start_clock(START, RATE)

    def read(self, family, *words):
        """A process of this family, which has its first values."""
        self.meters("--meter", FAMILIES[family], *words)
        daemon = self.daemon(family, "-r", "m1")
        self.wait_for_values()
        return daemon

    def cut(self, family):
        self.read(family)
        self.assertEqual(self.reasons(), ([], ["first-half-hour"] if family != "SA94" else []))
        self.assert_schema("status", self.ctl("status", "--json", statuses=range(4)))
        self.assert_schema("list", self.ctl("list", "--json"))
        self.assert_schema("values", self.ctl("values", "m1", "--json"))
        self.tell("cable", LINE, "cut")
        self.assert_reason("nothing-heard", level="warning")

    def test_the_cable_of_a_km5_is_cut(self):
        self.cut("KM5")

    def test_the_cable_of_a_vist_is_cut(self):
        self.cut("VIST")

    def test_the_cable_of_a_vist_over_modbus_is_cut(self):
        self.cut("VISTmodbus")

    def test_the_cable_of_an_sa94_is_cut(self):
        self.cut("SA94")

    def test_a_km5_whose_sums_are_wrong(self):
        self.meters("--meter", FAMILIES["KM5"], "--bad-sums", "1")
        self.daemon("KM5", "-r", "m1")
        self.assert_reason("no-answer")

    def test_a_vist_whose_sums_are_wrong(self):
        self.meters("--meter", FAMILIES["VIST"], "--bad-sums", "1", "--noise", "1")
        self.daemon("VIST", "-r", "m1")
        self.assert_reason("no-answer")

    def test_an_sa94_on_a_noisy_line(self):
        self.meters("--meter", FAMILIES["SA94"], "--noise", "1")
        self.daemon("SA94", "-r", "m1")
        self.assert_reason("no-answer")

    def test_a_km5_without_a_heat_system(self):
        self.meters("--meter", "type=km5,systems=0")
        self.daemon("KM5", "-r", "m1")
        self.assert_reason("settings", patience=2 * TWO_PERIODS)

    def test_the_service_is_off_at_the_start(self):
        self.meters("--service", "off")
        self.daemon("KM5", "-r", "m1")
        self.assert_reason("service-off", ["service-off"])

    def test_the_service_goes_off_later(self):
        self.read("KM5")
        self.tell("service", "off")
        status = self.status()
        self.assertEqual(self.reasons(status), (["service-off"], ["first-half-hour"]))
        self.assertEqual((status["level"], status["meters"][0]["level"]), ("warning", "ok"))

    def test_the_service_does_not_know_the_uuid(self):
        self.meters()
        self.daemon("KM5", "-r", "m9")
        self.assert_reason("uuid-unknown")

    def test_the_port_is_not_there(self):
        self.meters("--meter", "uuid=m1,port=/tmp/nowhere")
        self.daemon("KM5", "-r", "m1")
        self.assertIn("/tmp/nowhere", self.assert_reason("port-missing"))

    def test_the_port_is_no_terminal(self):
        self.meters("--meter", "uuid=m1,port=/dev/zero")
        self.daemon("KM5", "-r", "m1")
        self.assert_reason("port-no-terminal")

    def test_the_port_comes_too_late(self):
        self.meters()
        self.tell("adapter", LINE, "out")
        daemon = self.daemon("KM5", "-r", "m1")
        self.assert_reason("port-missing")
        self.tell("adapter", LINE, "in")
        self.assert_reason("port-closed")
        self.assertTrue(daemon.runs())

    def test_the_adapter_is_unplugged_and_another_one_plugged_in(self):
        self.read("VISTmodbus")
        self.tell("adapter", LINE, "out")
        self.assert_reason("port-gone")
        self.tell("adapter", LINE, "in")
        self.assert_reason("port-gone")

    def test_another_vist_answers_under_the_number(self):
        self.read("VIST")
        self.tell("cable", LINE, "cut")
        self.assert_reason("nothing-heard", level="warning")
        self.tell("swap", "m1", "type=vist,serial=7,devices=1,number=4711")
        self.tell("cable", LINE, "whole")
        self.assert_reason("other-meter")

    def test_another_km5_was_put_in_and_the_service_told(self):
        self.read("KM5")
        self.tell("swap", "m1", "type=km5,serial=7")
        self.tell("told", "m1", "serial=7")
        self.assert_reason("other-meter")

    def test_an_at_t_under_the_name_of_a_km5(self):
        self.meters("--meter", "type=att")
        self.daemon("KM5", "-r", "m1")
        self.assert_reason("wrong-family")

    def test_a_vist_under_the_name_of_a_km5(self):
        self.meters("--meter", FAMILIES["VIST"])
        self.daemon("KM5", "-r", "m1")
        self.assertIn("told KM5, and the service says vis-t", self.assert_reason("wrong-family"))

    def test_somebody_holds_the_bus(self):
        self.read("VIST")
        with open("/tmp/pause_tvk_all", "w", encoding="utf-8") as file:
            file.write("service laptop\x1b[31m\n")
        text = self.assert_reason("bus-held", level="warning")
        self.assertIn('/tmp/pause_tvk_all, made by', text)
        self.assertIn('it says "service laptop\ufffd[31m"', text)

    def test_the_general_pause_does_not_hold_an_sa94(self):
        self.read("SA94")
        with open("/tmp/pause_tvk", "w", encoding="utf-8"):
            pass
        self.assertEqual(self.reasons()[1], [])

    def test_archives_fall_behind(self):
        self.read("KM5")
        self.wait_for(lambda: self.status()["meters"][0]["systems"][0]["hourly"]["newest"], "archives", 90)
        self.assertEqual(self.reasons(), ([], []))
        self.tell("clock", "m1", str(5 * 86400))  # five days without a record
        self.assert_reason("archives-behind", level="warning", patience=2 * TWO_PERIODS)

    def test_archives_of_a_vist_over_modbus_are_held(self):
        with open("/tmp/RPRT_LCK_m1", "w", encoding="utf-8"):
            pass
        self.read("VISTmodbus")
        self.assert_reason("archives-held", level="warning", patience=60)

    def test_two_processes_read_one_meter(self):
        self.read("KM5")
        self.daemon("KM5", "-r", "m1")
        self.assert_reason("two-writers")

    def test_nothing_is_there(self):
        self.assertIn("UNKNOWN - no meter", self.ctl("status", statuses=[3]))
        self.assert_schema("status", self.ctl("status", "--json", statuses=[3]))
        self.assertIn("(no-files)", self.ctl("status", "m7", "../..", statuses=[3]))

    def test_files_that_were_copied_from_a_gateway(self):
        self.read("VISTmodbus")
        shutil.copytree("/tmp/m1", "/tmp/copy/tmp/m1", symlinks=True)
        text = self.ctl("--root", "/tmp/copy", "status", "--json", statuses=[3])
        self.assert_schema("status", text)
        self.assertEqual(self.reasons(json.loads(text)), ([], ["copy"]))

    def test_no_process_reads_it(self):
        self.read("KM5").end()
        time.sleep(1.2)  # more than a minute of the gateway's
        self.assert_reason("no-process")

    @box.storage("unmounted")
    def test_the_storage_is_not_mounted(self):
        self.read("SA94")
        self.assertEqual(self.reasons(), (["storage-not-mounted"], []))

    @box.storage("missing")
    def test_the_storage_is_missing(self):
        self.meters()
        self.assertEqual(self.reasons(), (["storage-missing"], []))
        self.assertEqual(self.status()["level"], "critical")

    @box.storage("read-only")
    def test_the_storage_is_read_only(self):
        self.read("SA94")
        self.assertEqual(self.reasons(), (["storage-read-only"], []))

    @box.storage("small")
    def test_the_storage_is_full(self):
        self.read("SA94")
        self.assertEqual(self.reasons(), ([], []))
        with open("/mnt/storage/fill", "wb", buffering=0) as file:
            try:
                while file.write(bytes(4096)):
                    pass
            except OSError:
                pass
        self.assertEqual(self.reasons(), (["storage-full"], []))


class RealClock(keeper.Keeper):
    """A process that is started again each second, and a clock that is set back under its files."""

    def loop(self, *words):
        self.start("loop", ["sh", "-c", f"while :; do {self.build}/heatmeterd {' '.join(words)}; sleep 1; done"])
        self.wait_for(lambda: "Add uuid" in box.read("/tmp/uni_logs.general.txt"), "a start")

    def test_the_service_does_not_answer(self):
        self.meters("--service", "mute")
        self.loop("KM5", "-r", "m1")
        self.assert_reason("service-silent", ["service-silent"])

    def test_the_service_answers_nonsense(self):
        self.meters("--service", "nonsense")
        self.loop("VIST", "-r", "m1")
        self.assert_reason("service-nonsense", ["service-nonsense"])

    def test_the_clock_is_set_back(self):
        if shutil.which("faketime") is None:
            self.skipTest("no faketime")
        self.meters("--meter", FAMILIES["VISTmodbus"])
        self.daemon("VISTmodbus", "-r", "m1")
        self.wait_for_values()
        done = subprocess.run(["faketime", "-f", "-2h", f"{self.build}/heatmeterctl", "status", "--json"],
                              env={**os.environ, "NO_FAKE_STAT": "1"}, capture_output=True, text=True, timeout=20)
        self.assertEqual(self.reasons(json.loads(done.stdout)), ([], ["clock-back"]), done.stderr)

    def test_one_of_two_meters_on_a_line_is_silent(self):
        self.meters("--meter", "uuid=m1,type=vist-modbus,serial=5,devices=1",
                    "--meter", "uuid=m2,type=vist-modbus,serial=6,devices=1")
        self.tell("meter", "m2", "silent")
        self.daemon("VISTmodbus", "-r", "m1", "m2")
        self.wait_for(lambda: "nothing-heard" in self.reasons()[1], "m2", 60)
        status = self.status()
        self.assertEqual([(meter["level"], meter["reasons"]) for meter in status["meters"]],
                         [("ok", ["first-half-hour"]), ("critical", ["nothing-heard"])])

    def test_a_process_of_no_family(self):
        self.meters()
        self.loop("KM7", "-r", "m1")
        self.assertIn("Heat meter not definded. Exit.", self.assert_reason("restarting"))


if __name__ == "__main__":
    box.main(__file__)
