#!/usr/bin/env python3
"""Standard streams that are closed, full or left by their reader: the process does not mind, and what it prints lands
nowhere else."""

import glob
import os

import box

PRINTED = ("Query is: ", "Received: ", "tc_sernum: ", "dev: ", "manufacturer = ", "tc_baud: ", "tc_parity: ")


class StandardOutput(box.Test):
    def setUp(self):
        super().setUp()
        self.start_clock("2024-03-02 08:20:00")

    def exchanges(self):
        return [line.split(" > ")[1] for line in box.read("/tmp/trace").splitlines() if " > " in line]

    def assert_works_cleanly(self, daemon):
        self.wait_for(lambda: box.item("m1", "Connected") == "1", "the meter's description")
        self.assertTrue(daemon.runs())
        for request in self.exchanges():
            self.assertRegex(request, r"^78 56 34 12( [0-9A-F]{2}){12}$")
        places = [*glob.glob("/tmp/uni_logs.*"), *glob.glob("/tmp/driver.*.state"), *glob.glob("/tmp/m1/*/tc_items/*")]
        self.assertTrue(places)
        for path in places:
            self.assertEqual([words for words in PRINTED if words in box.read(path)], [], path)

    def in_shell(self, redirections, **streams):
        self.sim("--meter", "uuid=m1", "--trace", "/tmp/trace")
        return self.start("heatmeterd", ["sh", "-c", f'exec "{self.build}/heatmeterd" KM5 -r m1 {redirections}'],
                          **streams)

    def test_a_closed_output_is_no_place_for_a_log_or_the_line(self):
        self.assert_works_cleanly(self.in_shell(">&-"))

    def test_nor_are_three_closed_streams(self):
        self.assert_works_cleanly(self.in_shell("<&- >&- 2>&-"))

    def test_a_pipe_whose_reader_is_gone_does_not_end_the_process(self):
        reader, writer = os.pipe()
        os.close(reader)
        daemon = self.in_shell("", stdout=writer, stderr=writer)
        os.close(writer)
        self.assert_works_cleanly(daemon)

    def test_a_full_output_does_not_end_the_process(self):
        self.assert_works_cleanly(self.in_shell(">/dev/full 2>&1"))


if __name__ == "__main__":
    box.main(__file__)
