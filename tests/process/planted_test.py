#!/usr/bin/env python3
"""Names that are taken by a FIFO, a device or a link before the daemon comes: it polls on, and touches none of them."""

import os

import box


class PlantedNames(box.Test):
    def setUp(self):
        super().setUp()
        self.start_clock("2024-03-02 00:20:00", 200)

    def test_a_meter_is_read_around_fifos_and_links(self):
        os.mkfifo("/tmp/fifo")
        with open("/tmp/victim", "w") as file:
            file.write("whole")
        for folder in ("/tmp/m1/1/tc_items", "/mnt/storage/m1/1/tc_archives"):
            os.makedirs(folder)
        os.mkfifo("/tmp/uni_logs.general.txt")
        os.mkfifo("/tmp/m1/1/tc_items/T1")
        os.mkfifo("/mnt/storage/m1/1/tc_archives/A1")
        os.mkfifo("/mnt/storage/m1/1/tc_archives/_EXISTS_FIRST_RECORD")
        os.symlink("/tmp/fifo", "/mnt/storage/m1/1/tc_archives/A4")
        os.symlink("/dev/zero", "/mnt/storage/m1/1/tc_archives/A12")
        for path in ("/tmp/driver.m1.state", "/tmp/extds_pause", "/tmp/uni_logs.m1.messages.txt",
                     "/tmp/m1/1/tc_items/T2"):
            os.symlink("/tmp/victim", path)
        self.sim("--meter", "uuid=m1,model=2", "--history-days", "0.1")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: box.archive("m1", "A14"), "an archive", 100)
        self.assertTrue(daemon.runs())
        self.assertEqual(box.item("m1", "Connected"), "1")
        self.assertNotEqual(box.item("m1", "P1"), "")
        self.assertEqual(box.read("/tmp/victim"), "whole")
        self.assertTrue(os.path.islink("/mnt/storage/m1/1/tc_archives/A12"))

    def test_a_file_that_is_named_as_port_is_not_written_to(self):
        with open("/tmp/port", "w") as file:
            file.write("whole")
        self.sim("--meter", "uuid=m1,port=/tmp/port")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: "open_tty = /tmp/port, fd = -1" in box.general_log(), "the refusal")
        self.stays(daemon)
        self.assertEqual(box.read("/tmp/port"), "whole")


if __name__ == "__main__":
    box.main(__file__)
