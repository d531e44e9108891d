#!/usr/bin/env python3
"""What fails between a daemon and its meters while it runs, and is mended again, by the words of heatmeter-sim."""

import os
import socket
import stat
import subprocess
import urllib.error
import urllib.request

import box

LINE = "/tmp/heatmeter-line"
CONTROL = "/tmp/control"
START = "2024-03-02 08:20:00"
RATE = 60


def rows(way):
    return box.read("/tmp/trace").count(f" {way} ")


class Rehearsal(box.Test):
    def meters(self, *words):
        return self.sim("--control", CONTROL, "--trace", "/tmp/trace", "--history-days", "0.1", *words)

    def tell(self, *words, status=0):
        done = subprocess.run([f"{self.sim_build}/heatmeter-sim", "--tell", CONTROL, *words], capture_output=True,
                              text=True, timeout=20)
        self.assertEqual(done.returncode, status, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout + done.stderr


class Failures(Rehearsal):
    def setUp(self):
        super().setUp()
        self.start_clock(START, RATE)

    def wait_for_value(self, value):
        self.wait_for(lambda: box.item("m1", "T1") == value, f"T1 = {value}", 120)

    def wait_for_questions(self, count=4):
        """The daemon has asked so many times more."""
        asked = rows(">")
        self.wait_for(lambda: rows(">") >= asked + count, "questions", 60)

    def fail_in_turn(self, family, meter):
        """Wrong speed, cut cable, missing adapter."""
        self.meters("--meter", f"{meter},T1=71.25")
        self.tell("speed", LINE, "4800")
        daemon = self.daemon(family, "-r", "m1")
        self.wait_for_questions()
        self.assertIn("set to 9600, cable whole, meters at 4800\n", self.tell("status"))
        self.assertEqual(rows("<"), 0)
        self.assertEqual(box.item("m1", "T1"), "")
        self.tell("speed", LINE, "9600")
        self.wait_for_value("71.250000")

        self.tell("cable", LINE, "cut")
        answered = rows("<")
        self.tell("swap", "m1", f"{meter},T1=58.5")
        self.wait_for_questions()
        self.assertLessEqual(rows("<"), answered + 1)  # one was on its way
        self.assertEqual(box.item("m1", "T1"), "71.250000")
        self.tell("cable", LINE, "whole")
        self.wait_for_value("58.500000")

        terminal = os.readlink(LINE)
        self.tell("adapter", LINE, "out")
        self.assertFalse(os.path.lexists(LINE))
        self.tell("swap", "m1", f"{meter},T1=82")
        self.tell("adapter", LINE, "in")
        self.assertNotEqual(os.readlink(LINE), terminal)
        asked = rows(">")
        self.stays(daemon, 5)
        daemon.end()
        self.assertEqual(rows(">"), asked)  # a daemon has its terminal for life
        self.assertEqual(box.item("m1", "T1"), "58.500000")
        self.daemon(family, "-r", "m1")
        self.wait_for_value("82.000000")

    def test_a_km5_fails_and_is_mended(self):
        self.fail_in_turn("KM5", "type=km5")

    def test_a_vist_fails_and_is_mended(self):
        self.fail_in_turn("VIST", "type=vist,serial=7,devices=1")

    def test_a_vist_over_modbus_fails_and_is_mended(self):
        self.fail_in_turn("VISTmodbus", "type=vist-modbus,serial=5,devices=1")

    def test_an_sa94_fails_and_is_mended(self):
        self.fail_in_turn("SA94", "type=sa94,serial=74565")

    def test_with_a_wrong_serial_number_nobody_answers(self):
        self.meters("--meter", "uuid=m1,T1=71.25")
        self.tell("told", "m1", "serial=7")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for_questions()
        daemon.end()
        self.assertIn(" > 07 00 00 00 ", box.read("/tmp/trace"))
        self.assertEqual(rows("<"), 0)
        self.assertEqual(box.item("m1", "T1"), "")
        self.tell("told", "m1", "serial=12345678")
        self.daemon("KM5", "-r", "m1")
        self.wait_for_value("71.250000")

    def test_a_meter_falls_silent_and_its_clock_is_set(self):
        self.meters("--meter", "type=vist-modbus,serial=5,devices=1")
        self.daemon("VISTmodbus", "-r", "m1")
        self.wait_for(lambda: box.item("m1", "MDateTime"), "the clock")
        before = int(box.item("m1", "MDateTime"))
        self.tell("meter", "m1", "silent")
        self.tell("clock", "m1", "+86400")
        self.wait_for_questions()
        self.assertLess(int(box.item("m1", "MDateTime")), before + 86400)
        self.tell("meter", "m1", "answers")
        self.wait_for(lambda: int(box.item("m1", "MDateTime") or 0) >= before + 86400, "the new clock", 60)

    def test_the_service_fails_and_comes_back(self):
        def asked():
            call = b'{"jsonrpc": "2.0", "id": 1, "method": "get_config", "params": ["m1"]}'
            with urllib.request.urlopen("http://127.0.0.1:8082/", call, timeout=10) as answer:
                return answer.read().decode()

        sim = self.meters("--dump", "/tmp/dump")
        self.assertIn('"serial":12345678', asked())
        self.tell("service", "off")
        self.assertRaises(urllib.error.URLError, asked)
        self.tell("told", "m1", "serial=7,alias=serial485.1")
        self.tell("service", "nonsense")
        self.assertEqual(asked(), "Good morning!")
        self.tell("service", "right")
        self.assertIn('"serial":7', asked())
        sim.end()
        self.assertEqual(box.read("/tmp/dump").count("request {"), 3)


class Control(Rehearsal):
    def say(self, text):
        """What is answered to bytes, up to the end."""
        with socket.socket(socket.AF_UNIX) as client:
            client.settimeout(10)
            client.connect(CONTROL)
            try:
                client.sendall(text)
                client.shutdown(socket.SHUT_WR)
                return b"".join(iter(lambda: client.recv(4096), b"")).decode()
            except (BrokenPipeError, ConnectionResetError):
                return "hung up"

    def test_the_socket_is_its_owners_and_goes_with_the_program(self):
        sim = self.meters()
        self.assertEqual(stat.S_IMODE(os.stat(CONTROL).st_mode), 0o600)
        self.assertIn(f"control socket at {CONTROL}\n", sim.output())
        other = self.start("heatmeter-sim", [f"{self.sim_build}/heatmeter-sim", "--control", CONTROL, "--port", "0",
                                             "--link", "/tmp/other"])
        self.assertEqual(other.status(), 1)
        self.assertIn("Address already in use", other.output("stderr"))
        self.assertIn("ok\n", self.tell("status"))
        sim.end()
        self.assertFalse(os.path.lexists(CONTROL))
        self.assertIn("No such file", self.tell("status", status=1))

    def test_a_dead_socket_is_replaced_and_a_file_is_not(self):
        with socket.socket(socket.AF_UNIX) as dead:
            dead.bind(CONTROL)
        self.meters().end()
        with open(CONTROL, "w") as file:
            file.write("mine")
        sim = self.start("heatmeter-sim", [f"{self.sim_build}/heatmeter-sim", "--control", CONTROL])
        self.assertEqual(sim.status(), 1)
        self.assertEqual(box.read(CONTROL), "mine")
        self.assertFalse(os.path.lexists(LINE))

    def test_what_it_does_not_understand_is_an_error(self):
        self.meters()
        for words, error in (
                (["cabel", LINE, "cut"], "cabel: no such word; say help"),
                (["cable", LINE], "say cable LINE cut|whole"),
                (["cable", "/tmp/other", "cut"], "/tmp/other: no such line"),
                (["cable", LINE, "torn"], "torn: cut or whole"),
                (["adapter", LINE, "away"], "away: out or in"),
                (["speed", LINE, "9601"], "speed 9601: no line has it"),
                (["speed", LINE, "-1"], "speed -1: no line has it"),
                (["meter", "m2", "silent"], "m2: no such meter"),
                (["clock", "m1", "1h"], "1h: not a number"),
                (["clock", "m1", "9" * 18], "too far"),
                (["clock", "m1", "9" * 30], f"{'9' * 30}: not a number"),
                (["clock", "m1", "+"], "+: not a number"),
                (["told", "m1", "serial=x"], "serial=x: not a number"),
                (["told", "m1", "T1=5"], "T1: a meter has no such setting"),
                (["swap", "m1", "type=km9"], "type=km9: no such type of meter"),
                (["service", "angry"], "angry: right, nonsense, mute or off"),
                (["c\u00e9\x01"], "c\u00e9: no such word; say help")):
            self.assertEqual(self.tell(*words, status=1), f"error: {error}\n")
        self.assertTrue(self.tell("help").endswith("help                            these words\nok\n"))
        self.assertIn("12345678\nservice right\nok\n", self.tell("status"))

    def test_hostile_clients_stop_nothing(self):
        self.meters()
        self.assertEqual(self.say(b""), "")
        self.assertEqual(self.say(b"\n"), "error: nothing said; say help\n")
        self.assertEqual(self.say(b"\0\n"), "error: nothing said; say help\n")
        self.assertTrue(self.say(b"status\r\nstatus").endswith("service right\nok\n"))
        self.assertIn(self.say(b"x" * 100000), ("error: too long a line\n", "hung up"))
        self.assertIn(self.say(b"help\n" * 20000)[-3:], ("ok\n", " up"))
        crowd = []
        for _ in range(50):
            crowd.append(socket.socket(socket.AF_UNIX))
            crowd[-1].connect(CONTROL)
            crowd[-1].send(b"stat")
        self.assertIn("service right\nok\n", self.tell("status"))
        for client in crowd:
            client.close()
        self.assertIn("service right\nok\n", self.tell("status"))


if __name__ == "__main__":
    box.main(__file__)
