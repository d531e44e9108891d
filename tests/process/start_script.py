"""The start script in a box, under dash and under BusyBox with the start-stop-daemon of either: what its tests need."""

import http.server
import os
import re
import shutil
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


def is_terminal(path):
    try:
        fd = os.open(path, os.O_PATH)
    except OSError:
        return False
    try:
        return os.major(os.fstat(fd).st_rdev) > 1
    finally:
        os.close(fd)


class Dash:
    """Mixed into a test case."""
    shell = ["dash"]
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

    def script(self, *words, user=None, pass_fds=(), **more):
        """Its exit status and all that it says."""
        environment = {**(self.clock.environment() if self.clock else os.environ), "HEATMETERD_DAEMON": self.program,
                       "HEATMETERD_CONFIG": CONFIG, "HEATMETERD_CARE": f"{self.build}/heatmeterd-care", 
                       "HEATMETERD_RUN": RUN, "HEATMETERD_LOG": LOG, **more}
        done = subprocess.run([*self.shell, "/tmp/heatmeterd.init", *words], env=environment, timeout=60, text=True,
                              user=user, pass_fds=pass_fds, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.STDOUT)
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


class BusyBox(Dash):
    shell = ["busybox", "sh"]
    tools = "busybox"
