#!/usr/bin/env python3
"""The start script and its helper: one process for each PORT.conf, all ended by a stop, healed when a port comes back.
Everything happens under dash and under BusyBox, with the start-stop-daemon of either."""

import http.server
import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time

import box

CONFIG, RUN, LOG = "/tmp/etc", "/tmp/run", "/tmp/log"
WELL = 'HEATMETERD_WORDS="KM5 -r {}"\n'


def pids_of(program):
    """Processes of a program by what they execute, children of the tests too."""
    found = set()
    for name in filter(str.isdigit, os.listdir("/proc")):
        try:
            if os.readlink(f"/proc/{name}/exe") == program and "zombie" not in box.read(f"/proc/{name}/status"):
                found.add(int(name))
        except OSError:
            pass
    return found


def write(path, text):
    with open(path, "w", encoding="utf-8", newline="") as file:
        file.write(text)


class StartScript:
    """Mixed into a test case for each shell."""
    shell = []
    tools = None  # whose start-stop-daemon

    def setUp(self):
        super().setUp()
        for folder in (CONFIG, RUN, LOG):
            os.mkdir(folder)
        script = box.read(f"{self.build}/packaging/heatmeterd.init")
        if self.tools:
            if shutil.which(self.tools) is None:
                self.skipTest(f"no {self.tools}")
            os.mkdir("/tmp/tools")
            for name in ("start-stop-daemon", "sleep", "sort", "cat", "mkdir", "rm"):
                os.symlink(shutil.which(self.tools), f"/tmp/tools/{name}")
            script = script.replace("PATH=", "PATH=/tmp/tools:", 1)
        elif shutil.which("start-stop-daemon", path=os.environ["PATH"] + ":/usr/sbin:/sbin") is None:
            self.skipTest("no start-stop-daemon")
        write("/tmp/heatmeterd.init", script)
        self.program = f"{self.build}/heatmeterd"

    def tearDown(self):
        self.script("stop")
        super().tearDown()

    def script(self, *words, user=None, **more):
        """Its exit status and all that it says."""
        environment = {**(self.clock.environment() if self.clock else os.environ), "HEATMETERD_DAEMON": self.program, "HEATMETERD_CONFIG": CONFIG,
                       "HEATMETERD_CARE": f"{self.build}/heatmeterd-care", "HEATMETERD_RUN": RUN,
                       "HEATMETERD_LOG": LOG, **more}
        done = subprocess.run([*self.shell, "/tmp/heatmeterd.init", *words], env=environment, timeout=60, text=True,
                              user=user, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        return done.returncode, done.stdout

    def configure(self, **ports):
        for port, text in ports.items():
            write(f"{CONFIG}/{port}.conf", text if "=" in text else WELL.format(text))

    def daemons(self):
        return pids_of(self.program)

    def process_of(self, uuid):
        found = [pid for pid in self.daemons() if uuid in box.read(f"/proc/{pid}/cmdline").split("\0")]
        return found[0] if found else None

    def wait_for_daemons(self, count, patience=30):
        self.wait_for(lambda: len(self.daemons()) == count, f"{count} processes", patience)

    def wait_for_port(self, uuid):
        """Until its process has a terminal open; the process."""
        def has_port():
            pid = self.process_of(uuid)
            return pid and any(is_terminal(f"/proc/{pid}/fd/{fd}") for fd in os.listdir(f"/proc/{pid}/fd"))
        self.wait_for(has_port, f"the port of {uuid}")
        return self.process_of(uuid)

    def state_of(self, port):
        return re.sub(r"\d\d\.\d\d\.\d{4} \d\d:\d\d:\d\d|(?<=process )\d+", "_", self.script("status", port)[1])

    # ---- starting and stopping

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

    def test_a_keeper_keeps_its_pid_file(self):
        self.sim("--meter", "uuid=m1")
        self.configure(a="m1")
        self.script("start")
        self.wait_for_daemons(1)
        os.unlink(f"{RUN}/heatmeterd.a.pid")
        self.wait_for(lambda: self.script("status")[0] == 0, "the pid file", 5)
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

    def test_a_stop_does_not_wait_for_the_configuration_service(self):
        silent = socket.create_server(("127.0.0.1", 8082))
        self.configure(a="m1")
        self.script("start")
        time.sleep(1)
        start = time.monotonic()
        self.assertEqual(self.script("stop"), (0, ""))
        self.assertLess(time.monotonic() - start, 8)
        silent.close()

    # ---- healing

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

    # ---- their means

    def look(self, pid):
        return subprocess.run([f"{self.build}/heatmeterd-care", "look", str(pid)], timeout=60, check=False).returncode

    def serve(self, devices):
        """A configuration service that outlives its lines; every process has a meter of its own."""
        class ByUuid(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                uuid = re.search(rb'"params":\["([^"]*)"\]', self.rfile.read(int(self.headers["Content-Length"])))
                name = devices[uuid[1].decode()]
                self.send_response(200)
                self.end_headers()
                self.wfile.write(b'{"result":{"serial":12345678,"systems":{"system_1_type":"heating"},'
                                 b'"port_params":{"name":"%s","speed":9600}}}'
                                 % name.encode())

            def log_message(self, *_):
                pass

        self.service = http.server.ThreadingHTTPServer(("127.0.0.1", 8082), ByUuid)
        threading.Thread(target=self.service.serve_forever, daemon=True).start()


def is_terminal(path):
    try:
        fd = os.open(path, os.O_PATH)
    except OSError:
        return False
    try:
        return os.major(os.fstat(fd).st_rdev) > 1
    finally:
        os.close(fd)


class Dash(StartScript, box.Test):
    shell = ["dash"]


class BusyBox(StartScript, box.Test):
    shell = ["busybox", "sh"]
    tools = "busybox"


if __name__ == "__main__":
    box.main(__file__)
