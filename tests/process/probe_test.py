#!/usr/bin/env python3
"""heatmeterctl on a line that a daemon reads: what is said there, a probe beside the daemon, a killed one, and flags."""

import json
import os
import signal
import subprocess
import termios

import box
import polling_test
import schemas

START = "2024-03-02 00:20:00"
RATE = 120
HISTORY = ["--history-days", "0.15"]  # three hourly records and a daily one at the start
LINE = "/tmp/heatmeter-line"
FLAG = "/tmp/pause_tvk_all"

# By the daemon's word: the meter, what it is asked by, what it says of itself, where its archive is written.
METERS = {
    "KM5": ("type=km5,model=2,serial=12345678", "12345678", "KM5-2", "tc_archives"),
    "VIST": ("type=vist,serial=7,devices=1", "7", "ВИСТ-2", "tmp_archives"),
    "VISTmodbus": ("type=vist-modbus,serial=5,devices=1", "5", "VIST-TC-3", "tmp_archives"),
    "SA94": ("type=sa94,serial=74565,firmware=M301,events=2,T1=71.25", "74565", "SA94/2M", "tc_archives"),
}


def held(dump):
    """Archive file to the lines that the meter's records give, from the rows of --dump."""
    files = {}
    for row in dump.splitlines():
        words = row.split()
        if words[:3] == ["m1", "1", "line"]:
            files.setdefault(words[3], []).append(",".join(words[4:7]))
    return files


def settings_of(path):
    port = os.open(path, os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK)
    try:
        return termios.tcgetattr(port)
    finally:
        os.close(port)


class Probe(schemas.Schemas, box.Test):
    def ctl(self, *words):
        return subprocess.run([f"{self.build}/heatmeterctl", *words], capture_output=True, text=True, timeout=100,
                              stdin=subprocess.DEVNULL)

    def begin(self, *words):
        """The program in the background, by the real clock."""
        process = subprocess.Popen([f"{self.build}/heatmeterctl", *words], stdin=subprocess.DEVNULL, text=True,
                                   stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.stderr.close)
        self.addCleanup(process.kill)
        return process

    def lines_of(self, place, name="A1"):
        return box.read(f"/mnt/storage/m1/1/{place}/{name}").splitlines()

    def probe_within_a_pass(self, family, *words):
        meter, serial, model, place = METERS[family]
        self.start_clock(START, RATE)
        sim = self.sim("--meter", f"uuid=m1,{meter}", *HISTORY, "--trace", "/tmp/trace", "--dump", "/tmp/dump")
        daemon = self.daemon(family, "-r", "m1")
        # Records are coming: the daemon is in the middle of its archives.
        self.wait_for(lambda: self.lines_of(place), "the first record", 150)
        before = settings_of(LINE)
        answer = self.ctl("probe", family, "--port", LINE, "--serial", serial, "--json", *words)
        self.assertEqual((answer.returncode, answer.stderr), (0, ""))
        self.assert_schema("probe", answer.stdout)
        found = json.loads(answer.stdout)["meters"]
        self.assertEqual([(each["model"], each["serial"]) for each in found], [(model, serial)])
        self.assertFalse(os.path.exists(FLAG))
        self.assertEqual(settings_of(LINE), before)
        # The daemon goes on; most come soon to a record that the meter has stored since.
        if family == "SA94":
            clock = box.item("m1", "MDateTime")
            self.wait_for(lambda: box.item("m1", "MDateTime") not in ("", clock), "the next pass", 60)
            self.assertEqual(box.item("m1", "T1"), "71.250000")
        else:
            count = len(self.lines_of(place))
            self.wait_for(lambda: len(self.lines_of(place)) > count, "another record", 150)
        daemon.end()
        sim.end()
        dump = box.read("/tmp/dump")
        files = polling_test.Held(dump, "m1").files(2) if family == "KM5" else held(dump)
        self.assertGreaterEqual(len(files), 10)
        for name, lines in files.items():
            # Each line once and in order, and none left out; a VIST begins behind its oldest record, probe or not.
            stored = self.lines_of(place, name)
            begin = lines.index(stored[0]) if stored else 0
            self.assertLessEqual(begin, 1 if family == "VIST" else 0, name)
            self.assertEqual(stored, lines[begin:begin + len(stored)], name)

    def test_a_km5_is_probed_within_a_pass_and_no_record_is_lost(self):
        self.probe_within_a_pass("KM5")

    def test_a_vist_is_probed_between_two_passes_and_no_record_is_lost(self):
        self.probe_within_a_pass("VIST", "--wait", "90s")

    def test_a_vist_over_modbus_is_probed_within_a_pass_and_no_record_is_lost(self):
        self.probe_within_a_pass("VISTmodbus")

    def test_an_sa94_is_probed_between_two_passes_and_no_record_is_lost(self):
        self.probe_within_a_pass("SA94", "--wait", "90s")

    def decoded(self, family, *words, status=0):
        answer = self.ctl("decode", family, "--json", *words)
        self.assertEqual((answer.returncode, answer.stderr), (status, ""))
        self.assert_schema("decode", answer.stdout)
        return json.loads(answer.stdout)

    def decode_of_a_pass(self, family, log):
        """What the daemon notes of a line means what a trace of the line means."""
        self.sim("--meter", f"uuid=m1,{METERS[family][0]}", "--trace", "/tmp/trace", "--silence", "0.05")
        daemon = self.daemon(family, "-r", "m1")
        self.wait_for(lambda: len(box.read("/tmp/trace").splitlines()) > 24, "some questions")
        daemon.end()
        line = self.decoded(family, "/tmp/trace")
        noted = self.decoded(family, f"/tmp/uni_logs.m1.{log}")
        self.assertGreater(len(line), 20)
        self.assertEqual({(each["direction"] in ("question", "answer"), each["kind"] is not None) for each in line},
                         {(True, True)})

        def values(frames):
            return [field for frame in frames if frame["direction"] == "answer" for field in frame["fields"]
                    if field["name"] not in ("address", "registers", "system", "file", "record")]
        length = min(len(values(line)), len(values(noted)))
        self.assertGreater(length, 12)
        self.assertEqual(values(noted)[:length], values(line)[:length])

    def test_the_log_of_a_km5_is_decoded_as_its_line(self):
        self.decode_of_a_pass("KM5", "debug.txt")

    def test_the_log_of_a_vist_is_decoded_as_its_line(self):
        self.decode_of_a_pass("VIST", "txt")

    def test_the_log_of_a_vist_over_modbus_is_decoded_as_its_line(self):
        self.decode_of_a_pass("VISTmodbus", "txt")

    def test_the_log_of_an_sa94_is_decoded_as_its_line(self):
        self.decode_of_a_pass("SA94", "debug.txt")

    def test_wrong_sums_and_noise_are_a_finding(self):
        for family, name in (("KM5", "km5"), ("VISTmodbus", "modbus"), ("VIST", "vist")):
            with self.subTest(family=family):
                frames = self.decoded(family, f"{box.DATA}/{name}_bad_line.txt", status=1)
                self.assertTrue([each for each in frames if each["reason"] == "noise in front of a frame"])
        self.assertEqual(self.ctl("decode", "KM6", "/dev/null").returncode, 2)
        self.assertEqual(self.ctl("decode", "KM5", "/dev/null").returncode, 1)

    def test_a_dialog_of_the_daemon_is_not_broken_into(self):
        self.sim("--meter", "uuid=m1,type=sa94,serial=74565,firmware=M301")
        self.daemon("SA94", "-r", "m1")
        self.wait_for(lambda: box.item("m1", "Connected") == "1", "the first answer")
        answer = self.ctl("probe", "SA94", "--port", LINE, "--serial", "74565", "--wait", "1s")
        self.assertEqual(answer.returncode, 1)
        self.assertIn("in the middle of a pass", answer.stderr)
        self.assertFalse(os.path.exists(FLAG))

    def test_no_daemon_speaks_while_a_probe_does(self):
        self.sim("--meter", "uuid=m1,type=km5,model=2,serial=12345678", "--trace", "/tmp/trace")
        self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: box.item("m1", "Connected") == "1", "the first answer")
        # An address that nobody has: each question to it is the probe's.
        self.assertEqual(self.ctl("probe", "KM5", "--port", LINE, "--serial", "99999998").returncode, 1)
        rows = [row.split(" ", 4)[2:] for row in box.read("/tmp/trace").splitlines()]
        ours = [i for i, row in enumerate(rows) if row[1] == ">" and row[2].startswith("98 99 99 9")]
        self.assertGreaterEqual(len(ours), 3)
        foreign = [row for row in rows[ours[0]:ours[-1] + 1] if row[1] == ">" and not row[2].startswith("98 99 99 9")]
        self.assertEqual(foreign, [])

    def kill_a_scan(self, number):
        """A scan for a meter that is not there, ended in the middle, while a daemon has the port open."""
        self.sim("--meter", "uuid=m1,type=km5,model=2,serial=12345678")
        self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: box.item("m1", "Connected") == "1", "the first answer")
        before = settings_of(LINE)
        probe = self.begin("probe", "KM5", "--port", LINE, "--serial", "87654321", "--scan")
        self.wait_for(lambda: "set" in box.read(FLAG) and settings_of(LINE) != before, "the probe's own settings")
        probe.send_signal(number)
        probe.wait(20)
        return probe, before

    def end_a_scan(self, number):
        probe, before = self.kill_a_scan(number)
        self.assertEqual(probe.returncode, 1)
        self.assertIn("ended by a signal", probe.stderr.read())
        self.assertFalse(os.path.exists(FLAG))
        self.assertEqual(settings_of(LINE), before)

    def test_a_probe_that_is_told_to_end_leaves_no_flag_and_the_port_as_it_was(self):
        self.end_a_scan(signal.SIGTERM)

    def test_a_probe_that_is_broken_off_leaves_no_flag_and_the_port_as_it_was(self):
        self.end_a_scan(signal.SIGINT)

    def test_a_probe_whose_terminal_goes_leaves_no_flag_and_the_port_as_it_was(self):
        self.end_a_scan(signal.SIGHUP)

    def test_what_a_killed_probe_leaves_is_named_and_put_right_by_the_next_one(self):
        probe, before = self.kill_a_scan(signal.SIGKILL)
        self.assertTrue(os.path.exists(FLAG))
        self.assertNotEqual(settings_of(LINE), before)
        answer = self.ctl("probe", "KM5", "--port", LINE, "--serial", "12345678")
        self.assertEqual(answer.returncode, 0)
        self.assertIn(f"took away {FLAG} that heatmeterctl probe, process {probe.pid} had left behind", answer.stderr)
        self.assertIn("KM5-2", answer.stdout)
        self.assertFalse(os.path.exists(FLAG))
        self.assertEqual(settings_of(LINE), before)

    def test_resume_takes_away_what_a_killed_probe_has_left(self):
        probe, before = self.kill_a_scan(signal.SIGKILL)
        answer = self.ctl("resume")
        self.assertEqual(answer.returncode, 0)
        self.assertIn(f"process {probe.pid} had left behind", answer.stderr)
        self.assertFalse(os.path.exists(FLAG))
        self.assertEqual(settings_of(LINE), before)

    def test_a_scan_finds_the_speed_of_a_meter(self):
        self.sim("--meter", "type=vist-modbus,serial=5,devices=1", "--speed", "19200")
        answer = self.ctl("probe", "VISTmodbus", "--port", LINE, "--serial", "5", "--scan", "--json")
        self.assertEqual(answer.returncode, 0)
        found = json.loads(answer.stdout)["meters"]
        self.assertEqual([(each["speed"], each["address"]) for each in found], [(19200, 5)])
        self.assertEqual(os.listdir("/mnt/storage"), [])
        self.assertFalse([name for name in os.listdir("/tmp") if name.startswith("uni_logs")])

    def test_a_held_bus_is_left_alone(self):
        self.sim("--meter", "type=vist-modbus,serial=5,devices=1")
        with open(FLAG, "w"):
            pass
        answer = self.ctl("probe", "VISTmodbus", "--port", LINE, "--serial", "5")
        self.assertEqual(answer.returncode, 1)
        self.assertIn("the bus is held by somebody else", answer.stderr)
        self.assertEqual(self.ctl("probe", "VISTmodbus", "--port", LINE, "--serial", "5", "--anyway").returncode, 0)
        self.assertTrue(os.path.exists(FLAG))
        self.assertEqual(self.ctl("pause").returncode, 1)
        self.assertIn("somebody else", self.ctl("resume").stdout)
        self.assertFalse(os.path.exists(FLAG))

    def test_a_flag_is_never_made_through_a_link(self):
        os.symlink("/tmp/elsewhere", FLAG)
        self.assertEqual(self.ctl("pause").returncode, 1)
        self.assertFalse(os.path.exists("/tmp/elsewhere"))
        self.assertEqual(self.ctl("resume").returncode, 0)
        self.assertFalse(os.path.lexists(FLAG))

    def test_a_pause_with_a_time_ends_by_itself_or_by_a_signal(self):
        self.assertEqual(self.ctl("pause", "--for", "1s").returncode, 0)
        self.assertFalse(os.path.exists(FLAG))
        pause = self.begin("pause", "--for", "1h")
        self.wait_for(lambda: os.path.exists(FLAG), "the flag")
        pause.terminate()
        self.assertEqual(pause.wait(20), 0)
        self.assertFalse(os.path.exists(FLAG))
        pause = self.begin("pause", "--for", "1h")
        self.wait_for(lambda: os.path.exists(FLAG), "the flag")
        pause.kill()
        pause.wait(20)
        self.assertIn("had left behind", self.ctl("pause").stderr)
        self.assertEqual(box.read(FLAG), "heatmeterctl pause\n")

    def test_a_poll_is_asked_for_where_somebody_serves_the_meter(self):
        self.assertEqual(self.ctl("poll", "m1").returncode, 1)
        self.assertEqual([name for name in os.listdir("/tmp") if name.startswith("tvk")], [])
        self.sim("--meter", "uuid=m1,type=km5,model=2")
        self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: box.item("m1", "T1") != "", "the first pass")
        self.wait_for(lambda: "END: RUN_MAIN" in box.read("/tmp/uni_logs.m1.general.txt"), "the end of the pass", 60)
        written = os.stat("/tmp/m1/1/tc_items/T1").st_mtime
        self.assertEqual(self.ctl("poll", "m1").returncode, 0)
        self.wait_for(lambda: os.stat("/tmp/m1/1/tc_items/T1").st_mtime > written, "another pass", 40)
        self.assertFalse(os.path.exists("/tmp/tvk_force_update_m1"))
        self.assertEqual(self.ctl("pause").returncode, 0)
        answer = self.ctl("poll", "m1", "--archives")
        self.assertEqual(answer.returncode, 0)
        self.assertIn("no family looks at that flag", answer.stdout)
        self.assertIn("held by heatmeterctl pause", answer.stderr)


if __name__ == "__main__":
    box.main(__file__)
