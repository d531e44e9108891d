#!/usr/bin/env python3
"""A process whose port was gone is started again, by the start script's keeper; one whose port is fine is left alone."""

import os
import subprocess
import time

import box
import start_script


class Healing:
    def test_reading_goes_on_when_an_adapter_is_unplugged_and_plugged_in_again(self):
        self.start_clock("2024-03-02 08:20:00")  # a meter is left alone around its full hour
        words = ("--meter", "uuid=m1,line=/tmp/line1", "--service", "off")
        self.serve({"m1": "/tmp/line1", "m2": "/tmp/line2"})
        first = self.sim(*words)
        self.sim("--meter", "uuid=m2,line=/tmp/line2", "--service", "off")
        self.configure(a="m1", b="m2")
        self.script("start")
        gone, good = self.wait_for_port("m1"), self.wait_for_port("m2")
        self.wait_for(lambda: box.item("m1", "Connected") == "1", "the meter")
        first.end()
        time.sleep(4)
        back = time.monotonic()
        self.sim(*words)
        self.wait_for(lambda: self.process_of("m1") not in (None, gone), "another process", 10)
        self.wait_for(lambda: box.item("m1", "Connected") == "1", "reading")
        self.assertLess(time.monotonic() - back, 10)
        self.assertEqual(self.process_of("m2"), good)
        healed = self.process_of("m1")
        time.sleep(5)
        self.assertEqual((self.process_of("m1"), self.process_of("m2")), (healed, good))

    def test_a_link_that_leads_elsewhere_is_another_device(self):
        self.serve({"m1": "/tmp/link"})
        ends = [os.openpty(), os.openpty()]
        names = [os.ttyname(end[1]) for end in ends]
        os.symlink(names[0], "/tmp/link")
        self.configure(a="m1")
        self.script("start")
        first = self.wait_for_port("m1")
        os.unlink("/tmp/link")
        time.sleep(5)
        self.assertEqual(self.process_of("m1"), first)
        os.symlink(names[1], "/tmp/link")
        self.wait_for(lambda: self.process_of("m1") not in (None, first), "another process", 10)

    def test_a_port_that_was_not_there_at_the_start_is_opened_when_it_comes(self):
        self.serve({"m1": "/tmp/link"})
        self.configure(a="m1")
        self.script("start")
        self.wait_for_daemons(1)
        closed = self.process_of("m1")
        time.sleep(5)
        self.assertEqual(self.process_of("m1"), closed)
        _, end = os.openpty()
        os.symlink(os.ttyname(end), "/tmp/link")
        self.wait_for(lambda: self.process_of("m1") not in (None, closed), "another process", 10)
        self.wait_for_port("m1")

    def test_a_device_that_cannot_be_opened_is_tried_once(self):
        os.mkdir("/tmp/no-terminal")
        self.serve({"m1": "/tmp/no-terminal"})
        self.configure(a="m1")
        self.script("start")
        self.wait_for_daemons(1)
        first = self.process_of("m1")
        time.sleep(7)
        self.assertEqual(self.process_of("m1"), first)

    def test_looking_at_a_process_from_outside(self):
        devices = {"m1": "/tmp/link"}
        self.serve(devices)
        ends = [os.openpty(), os.openpty()]
        os.symlink(os.ttyname(ends[0][1]), "/tmp/link")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: "open_tty = /tmp/link, fd = " in "".join(box.general_log()), "the port")
        self.assertEqual(self.look(daemon.process.pid), 0)
        os.unlink("/tmp/link")
        self.assertEqual(self.look(daemon.process.pid), 0)
        for end in ends[0]:
            os.close(end)
        self.assertEqual(self.look(daemon.process.pid), 1)
        self.service.shutdown()
        self.service.server_close()
        self.assertEqual(self.look(daemon.process.pid), 1)
        daemon.end()
        self.assertEqual(self.look(daemon.process.pid), 0)

    def look(self, pid):
        return subprocess.run([f"{self.build}/heatmeterd-care", "look", str(pid)], timeout=60, check=False).returncode


class UnderSystemd(box.Test):
    def test_only_what_was_seen_without_its_port_is_restarted(self):
        os.mkdir("/tmp/tools")
        for name, lines in {
                "systemctl": 'case $1 in list-units) printf "heatmeterd@%s.service loaded\\n" 10 11 12 19 ;;\n'
                             'show) echo "$5" | tr -cd 0-9 ;;\n*) echo "$@" >>/tmp/done ;;\nesac',
                "care": 'case $2 in 19) kill -9 $$ ;; *) exit ${2#1} ;; esac'}.items():
            start_script.write(f"/tmp/tools/{name}", f"#!/bin/sh\n{lines}\n")
            os.chmod(f"/tmp/tools/{name}", 0o755)
        heal = box.read(f"{self.build}/packaging/heal")
        start_script.write("/tmp/heal", heal.replace("/usr/lib/heatmeterd/heatmeterd-care", "care"))
        subprocess.run(["sh", "/tmp/heal"], env={"PATH": "/tmp/tools:" + os.environ["PATH"]}, check=False, timeout=20)
        self.assertEqual(box.read("/tmp/done"), "--no-block restart heatmeterd@11.service\n")


class UnderDash(Healing, start_script.Dash, box.Test):
    pass


class UnderBusyBox(Healing, start_script.BusyBox, box.Test):
    pass


if __name__ == "__main__":
    box.main(__file__)
