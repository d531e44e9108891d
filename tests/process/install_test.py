#!/usr/bin/env python3
"""The start script and its helper: one process for each PORT.conf, all ended by a stop."""

import os
import signal
import socket
import time

import box
import start_script
from start_script import CONFIG, LOG, RUN, write


class Installation:
    def test_a_port_is_started_once_and_stopped(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        self.assertEqual(self.script("status"), (3, "heatmeterd on a is not running\n"))
        self.assertEqual(self.script("start"), (0, ""))
        self.wait_for_daemons(1)
        first = self.daemons()
        self.assertEqual(self.script("start"), (0, ""))
        time.sleep(1)
        self.assertEqual(self.daemons(), first)
        self.wait_for(lambda: self.script("status")[0] == 0, "the status")
        self.assertEqual(self.state_of("a"), "heatmeterd on a is running since _, process _\n")
        self.assertEqual(self.script("stop"), (0, ""))
        self.assertEqual(self.daemons(), set())
        self.assertEqual(os.listdir(RUN), [])
        self.assertEqual(self.script("stop"), (0, ""))

    def test_a_stop_ends_a_process_whose_file_was_renamed_and_one_whose_file_is_gone(self):
        self.sim("--meter", "uuid=m1", "--meter", "uuid=m2")
        self.configure(a="m1", b="m2")
        self.script("start")
        self.wait_for_daemons(2)
        os.rename(f"{CONFIG}/a.conf", f"{CONFIG}/c.conf")
        os.unlink(f"{CONFIG}/b.conf")
        self.assertEqual(self.script("restart"), (0, ""))
        self.wait_for(lambda: self.process_of("m1"), "the renamed port")
        self.assertEqual(len(self.daemons()), 1)
        self.assertEqual(sorted(os.listdir(RUN)), ["heatmeterd.c.pid", "heatmeterd.c.state"])
        os.unlink(f"{CONFIG}/c.conf")
        self.assertEqual(self.script("stop"), (0, ""))
        self.assertEqual(self.daemons(), set())

    def test_a_meter_that_is_read_under_an_old_name_of_its_port_gets_no_second_reader(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        self.script("start")
        self.wait_for_daemons(1)
        first = self.process_of("m1")
        os.rename(f"{CONFIG}/a.conf", f"{CONFIG}/c.conf")
        self.assertEqual(self.script("start"), (1, f"heatmeterd: process {first} reads a meter of {CONFIG}/c.conf already\n"))
        self.assertEqual(self.daemons(), {first})
        self.assertEqual(self.script("status", "c")[0], 3)
        self.assertEqual(self.script("restart"), (0, ""))
        self.wait_for(lambda: self.process_of("m1") not in (None, first), "the new name")
        self.assertEqual(len(self.daemons()), 1)

    def test_words_behind_the_action_are_ports(self):
        self.sim("--meter", "uuid=m1", "--meter", "uuid=m2")
        self.configure(a="m1", b="m2")
        self.assertEqual(self.script("start", "a"), (0, ""))
        self.wait_for_daemons(1)
        self.script("start")
        self.wait_for_daemons(2)
        first, second = self.process_of("m1"), self.process_of("m2")
        self.assertEqual(self.script("restart", "b"), (0, ""))
        self.wait_for(lambda: self.process_of("m2") not in (None, second), "another process")
        self.assertEqual(self.process_of("m1"), first)
        self.assertEqual(self.script("stop", "b"), (0, ""))
        self.assertEqual(self.daemons(), {first})
        self.assertEqual(self.script("status", "b")[0], 3)
        self.assertEqual(self.script("status", "a")[0], 0)
        self.assertEqual(self.script("start", "x"), (6, f"heatmeterd: no {CONFIG}/x.conf\n"))
        self.assertEqual(self.script("nonsense")[0], 2)
        self.assertEqual(self.script()[0], 2)

    def test_a_pid_of_another_program_is_not_believed(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        stranger = self.start("sleep", ["sleep", "600"])
        write(f"{RUN}/heatmeterd.a.pid", f"{stranger.process.pid}\n")
        self.assertEqual(self.script("status"), (1, "heatmeterd on a is not running, though nobody has stopped it\n"))
        self.assertEqual(self.script("start"), (0, ""))
        self.wait_for_daemons(1)
        write(f"{RUN}/heatmeterd.b.pid", f"{stranger.process.pid}\n")
        self.assertEqual(self.script("stop"), (0, ""))
        self.assertEqual(self.daemons(), set())
        self.assertTrue(stranger.runs())

    def test_a_process_goes_with_its_keeper_and_comes_back_with_it(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        self.script("start")
        self.wait_for_daemons(1)
        first = self.process_of("m1")
        os.kill(int(box.read(f"{RUN}/heatmeterd.a.pid")), signal.SIGKILL)
        self.wait_for_daemons(0)
        self.assertEqual(self.script("status")[0], 1)
        self.script("start")
        self.wait_for_daemons(1)
        self.assertNotIn(first, self.daemons())
        os.kill(self.process_of("m1"), signal.SIGKILL)
        self.wait_for(lambda: "signal 9" in self.state_of("a"), "the end")
        self.assertEqual(self.script("status")[0], 1)
        self.wait_for_daemons(1)

    def test_a_keeper_keeps_its_files(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        self.script("start")
        self.wait_for_daemons(1)
        os.unlink(f"{RUN}/heatmeterd.a.pid")
        self.wait_for(lambda: self.script("status")[0] == 0, "the pid file", 5)
        os.unlink(f"{RUN}/heatmeterd.a.state")
        self.wait_for(lambda: self.script("status")[0] == 0, "the state", 5)
        self.script("start")
        self.assertEqual(len(self.daemons()), 1)
        self.script("stop")
        self.assertEqual(self.daemons(), set())

    def test_who_is_not_root_is_told_so_and_nothing_else(self):
        if os.geteuid() != 0:
            self.skipTest("needs root")
        nobody = 65534
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        for action in ("start", "restart"):
            self.assertEqual(self.script(action, user=nobody), (4, "heatmeterd: only root may do that\n"))
        self.script("start")
        self.wait_for_daemons(1)
        self.assertEqual(self.script("stop", user=nobody), (4, "heatmeterd: only root may do that\n"))
        # BusyBox sees that it runs, start-stop-daemon of dpkg does not.
        seen = self.script("status", user=nobody)
        self.assertTrue(seen == (4, "heatmeterd on a was started; only root sees how it is\n") or
                        self.tools and seen[0] == 0, seen)
        self.assertEqual(len(self.daemons()), 1)

    def test_a_name_with_a_blank_is_one_port(self):
        self.configure(**{"a b": "m1"})
        wrong = f"{CONFIG}/a b.conf:1: the name has other signs than letters, digits, '.', '_' and '-'\n"
        self.assertEqual(self.script("start"), (6, wrong))
        self.assertEqual(self.script("status"), (3, wrong + "heatmeterd on a b is not running\n"))

    def test_without_a_port_or_a_program_the_status_says_so(self):
        self.assertEqual(self.script("status"), (0, f"heatmeterd: no port configured in {CONFIG}\n"))
        self.assertEqual(self.script("start")[0], 6)
        self.assertEqual(self.script("start", HEATMETERD_DAEMON="/nowhere"), (5, "heatmeterd: not installed\n"))

    def test_files_of_other_programs_are_no_ports(self):
        self.configure(units="[m1]\nIE1 = Gcal\n", uplink="[mqtt]\nurl = mqtt://localhost\n")
        self.assertEqual(self.script("status"), (0, f"heatmeterd: no port configured in {CONFIG}\n"))
        self.assertEqual(self.script("start", "units"), (6, f"heatmeterd: of no port: {CONFIG}/units.conf\n"))
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        self.assertEqual(self.script("start"), (0, ""))
        self.wait_for_daemons(1)
        self.wait_for(lambda: self.script("status")[0] == 0, "the status")

    # ---- what may go wrong

    def test_a_process_that_ends_again_and_again_is_told_with_its_exit_status(self):
        self.sim("--meter", "uuid=m1")
        write("/tmp/failing", "#!/bin/sh\necho says $#\numask\nexit 7\n")
        os.chmod("/tmp/failing", 0o755)
        self.configure(a="m1")
        self.assertEqual(self.script("start", HEATMETERD_DAEMON="/tmp/failing")[0], 0)
        self.wait_for(lambda: "again and again, 2 times so far; last exit status 7" in self.state_of("a"), "two ends")
        self.assertEqual(self.script("status")[0], 1)
        self.assertEqual(box.read(f"{LOG}/a.log"), "says 3\n0022\nEnded with exit status 7.\n")

    def test_mistakes_are_told_with_file_and_line_before_anything_is_started(self):
        self.sim("--meter", "uuid=good")
        self.configure(crlf='# words\r\nHEATMETERD_WORDS="KM5 -r m2"\r\n', bare="HEATMETERD_WORDS=KM5 -r m3\n",
                       name='\n\nHEATMETERD_WORDS="KM7 -r m4"\n', variable='WORDS="KM5 -r m5"\n',
                       shell='HEATMETERD_WORDS="KM5 -r $(touch /tmp/hurt)"\n', good="good")
        status, told = self.script("start")
        self.assertEqual(status, 6)
        self.assertEqual(told.splitlines(), [
            f"{CONFIG}/bare.conf:1: the value is not in quotes",
            f"{CONFIG}/crlf.conf:2: the line ends with CR LF, not with LF alone",
            f'{CONFIG}/name.conf:3: unknown name "KM7"; there are KM5, KM56i, ATT, VIST, VISTmodbus, SA94',
            f'{CONFIG}/shell.conf:1: "$(touch" has other signs than letters, digits, \'.\', \'_\' and \'-\'',
            f'{CONFIG}/variable.conf:1: "WORDS" is not HEATMETERD_WORDS'])
        self.wait_for_daemons(1)
        self.assertIsNotNone(self.process_of("good"))
        self.assertFalse(os.path.exists("/tmp/hurt"))

    def test_a_meter_on_two_ports_is_refused_on_both(self):
        self.configure(a="m1 m2", b="m3 m2")
        status, told = self.script("start")
        self.assertEqual(status, 6)
        self.assertEqual(told, f"{CONFIG}/a.conf:1: uuid m2 also stands in b.conf\n"
                               f"{CONFIG}/b.conf:1: uuid m2 also stands in a.conf\n")
        self.assertEqual(os.listdir(RUN), [])

    def test_what_a_start_prints_is_kept_but_never_grows_without_bound(self):
        self.sim("--meter", "uuid=m1")
        write("/tmp/talking", "#!/bin/sh\necho first\ni=0\nwhile [ $i -lt 9000 ]; do echo line $i of many; i=$((i + 1)); "
                              "done\necho >&2 last\nexec sleep 600\n")
        os.chmod("/tmp/talking", 0o755)
        self.configure(a="m1")
        self.script("start", HEATMETERD_DAEMON="/tmp/talking")
        self.wait_for(lambda: os.path.exists(f"{LOG}/a.log") and os.path.getsize(f"{LOG}/a.log") == 64 * 1024, "a log")
        time.sleep(1)
        self.assertTrue(box.read(f"{LOG}/a.log").startswith("first\nline 0 of many\n"))
        self.script("stop", HEATMETERD_DAEMON="/tmp/talking")
        text = box.read(f"{LOG}/a.log")
        self.assertTrue(text.endswith("line 8999 of many\nlast\nStopped.\n"), text[-200:])
        self.assertLess(len(text), 70 * 1024)

    def test_it_waits_for_the_configuration_service(self):
        self.configure(a="m1")
        self.assertEqual(self.script("start"), (0, ""))
        time.sleep(3)
        self.assertEqual(self.daemons(), set())
        self.assertEqual(self.state_of("a"), "heatmeterd on a waits for the configuration service since _\n")
        self.assertEqual(self.script("status")[0], 3)
        self.sim("--meter", "uuid=m1")
        self.wait_for_port("m1")

    def test_a_long_wait_is_told_with_its_beginning(self):
        self.start_clock("2024-03-02 08:20:00", 60)
        self.configure(a="m1")
        self.script("start", FAKETIME_DONT_FAKE_MONOTONIC="0")
        self.wait_for(lambda: os.path.exists(f"{RUN}/heatmeterd.a.state"), "the state")
        begin = box.read(f"{RUN}/heatmeterd.a.state")
        self.assertRegex(begin, r"^3 waits .* since 02\.03\.2024 08:2\d")
        time.sleep(4)
        self.assertEqual(box.read(f"{RUN}/heatmeterd.a.state"), begin)

    def test_nothing_that_was_open_at_a_start_stays_open(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        here, there = os.pipe()
        self.script("start", pass_fds=(there,))
        os.close(there)
        self.wait_for_daemons(1)
        os.set_blocking(here, False)
        self.assertEqual(os.read(here, 1), b"")  # its end
        os.close(here)

    def test_a_stop_does_not_wait_for_the_configuration_service(self):
        silent = socket.create_server(("127.0.0.1", 8082))
        self.configure(a="m1")
        self.script("start")
        time.sleep(1)
        start = time.monotonic()
        self.assertEqual(self.script("stop"), (0, ""))
        self.assertLess(time.monotonic() - start, 8)
        silent.close()


class UnderDash(Installation, start_script.Dash, box.Test):
    pass


class UnderBusyBox(Installation, start_script.BusyBox, box.Test):
    pass


if __name__ == "__main__":
    box.main(__file__)
