#!/usr/bin/env python3
"""heatmeter-sim itself: its line, its link, its words."""

import os
import re
import select
import signal
import termios
import time
import tty
import urllib.request

import box

LINE = "/tmp/heatmeter-line"

# To the meter 12345678: "who are you?", and its answer: itself, and model 2 counted from 0.
WHO = bytes.fromhex("78563412" "00" "000000000000000000" "08" "14")
ITSELF = bytes.fromhex("78563412" "00" "78563412" "01" "00000000" "01" "29")


def ask(request, quiet=0.6):
    """The answer, once the line has been quiet; and the seconds up to its last byte."""
    fd = os.open(LINE, os.O_RDWR | os.O_NOCTTY)
    tty.setraw(fd)
    termios.tcflush(fd, termios.TCIOFLUSH)
    start = last = time.monotonic()
    os.write(fd, request)
    answer = b""
    while select.select([fd], [], [], quiet)[0]:
        answer += os.read(fd, 256)
        last = time.monotonic()
    os.close(fd)
    return answer, last - start


class Simulator(box.Test):
    def refused(self, *words):
        sim = self.start("heatmeter-sim", [f"{self.build}/heatmeter-sim", *words])
        self.assertNotEqual(sim.status(), 0)
        return sim.output("stderr")

    def test_help_has_examples(self):
        sim = self.start("heatmeter-sim", [f"{self.build}/heatmeter-sim", "--help"])
        self.assertEqual(sim.status(), 0)
        self.assertIn("heatmeterd KM5 -r m1 m2", sim.output())

    def test_the_values_that_the_help_names_can_be_set(self):
        sim = self.start("heatmeter-sim", [f"{self.build}/heatmeter-sim", "--help"])
        sim.status()
        types = re.findall(r"(?<=\n)  (\S+), heatmeterd \S+\n((?: {6}.*\n)+)", sim.output())
        self.assertEqual([name for name, _ in types], ["km5", "km56i", "att", "vist", "vist-modbus", "sa94"])
        meters = []
        for name, words in types:
            values = re.search(r"values: ([^;]*)", words)
            values = values[1].replace(", and decimals", "").split() if values else []
            meters += ["--meter", f"type={name},serial=5," + ",".join(f"{value}=1" for value in values)]
        self.sim(*meters)

    def assert_help_line_works(self, family, meter):
        sim = self.start("heatmeter-sim", [f"{self.build}/heatmeter-sim", "--help"])
        sim.status()
        line = re.search(r"  (faketime .*)\\\n +('.*')\n", sim.output())
        words = (line[1] + line[2]).replace("type=km5", f"type={meter}").replace("KM5", family)
        shell = self.start("shell", ["sh", "-c", f"PATH={self.build}:$PATH exec {words}"], start_new_session=True)
        self.addCleanup(os.killpg, shell.process.pid, signal.SIGKILL)
        self.wait_for(lambda: box.item("m1", "T1"), f"a value of {meter}", 100)

    def test_the_faketime_line_of_the_help_works_for_km5(self):
        self.assert_help_line_works("KM5", "km5")

    def test_the_faketime_line_of_the_help_works_for_km56i(self):
        self.assert_help_line_works("KM56i", "km56i")

    def test_the_faketime_line_of_the_help_works_for_vist(self):
        self.assert_help_line_works("VIST", "vist")

    def test_the_faketime_line_of_the_help_works_for_vist_over_modbus(self):
        self.assert_help_line_works("VISTmodbus", "vist-modbus")

    def test_the_faketime_line_of_the_help_works_for_sa94(self):
        self.assert_help_line_works("SA94", "sa94")

    def test_a_meter_answers_its_own_address_only(self):
        self.sim("--meter", "serial=12345678,model=2", "--trace", "/tmp/trace")
        self.assertEqual(ask(WHO)[0], ITSELF)
        stranger = bytes.fromhex("79563412" "00" "000000000000000000" "09" "15")
        self.assertEqual(ask(stranger)[0], b"")
        self.assertEqual(ask(WHO)[0], ITSELF)
        rows = [row.partition(f" {LINE} ")[2] for row in box.read("/tmp/trace").splitlines()]
        self.assertEqual(rows, [f"{way} {text.hex(' ').upper()}" for way, text in
                                ((">", WHO), ("<", ITSELF), (">", stranger), (">", WHO), ("<", ITSELF))])

    def test_a_slow_line_takes_its_time(self):
        self.sim("--meter", "serial=12345678,model=2", "--speed", "300")
        answer, seconds = ask(WHO, quiet=2)
        self.assertEqual(answer, ITSELF)
        self.assertGreater(seconds, (len(WHO) + len(ITSELF)) * 10 / 300)

    def test_the_link_goes_with_the_program(self):
        for number in (signal.SIGTERM, signal.SIGINT):
            sim = self.sim()
            self.assertTrue(os.readlink(LINE).startswith("/dev/pts/"))
            self.assertEqual(sim.end(number), 0)
            self.assertFalse(os.path.lexists(LINE))

    def test_it_ends_by_itself_when_told_so(self):
        sim = self.sim("--run-seconds", "0.5")
        self.assertEqual(sim.status(), 0)
        self.assertFalse(os.path.lexists(LINE))

    def test_a_dead_link_is_replaced_and_a_file_is_not(self):
        os.symlink("/dev/pts/999", LINE)
        self.sim("--service", "off").end()
        with open(LINE, "w") as file:
            file.write("mine")
        self.assertIn("File exists", self.refused("--service", "off"))
        self.assertEqual(box.read(LINE), "mine")

    def test_two_lines_are_apart(self):
        sim = self.sim("--meter", "uuid=a", "--meter", "uuid=b,line=/tmp/other-line,type=att")
        self.assertNotEqual(os.readlink(LINE), os.readlink("/tmp/other-line"))
        self.assertIn("meter b with serial number 12345679 on /tmp/other-line\n", sim.output())

    def test_what_it_does_not_understand_it_refuses(self):
        self.assertIn("type=km9: no such type of meter", self.refused("--meter", "type=km9"))
        self.assertIn("colour: a meter has no such setting", self.refused("--meter", "colour=red"))
        self.assertIn("serial=x: not a number", self.refused("--meter", "serial=x"))
        self.assertIn("models are 1 to 7", self.refused("--meter", "model=9"))
        self.assertIn("Z9", self.refused("--meter", "Z9=1"))
        self.assertIn("speed 9601", self.refused("--speed", "9601"))
        self.refused("--noise", "2")
        self.refused("--nonsense")

    def test_the_service_answers_on_its_own_port(self):
        self.sim("--port", "8099", "--meter", "uuid=m1,serial=7,alias=serial485.1,systems=heating+gvs")
        call = b'{"jsonrpc": "2.0", "id": 1, "method": "get_config", "params": ["m1"]}'
        with urllib.request.urlopen("http://127.0.0.1:8099/", call) as answer:
            text = answer.read().decode()
        for part in ('"serial":7', '"port_alias":"serial485.1"', '"system_2_type":"gvs"', f'"name":"{LINE}"'):
            self.assertIn(part, text)


if __name__ == "__main__":
    box.main(__file__)
