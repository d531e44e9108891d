"""A gateway in a box: each test runs in a mount, network and process namespace of its own, made by bubblewrap, with an
empty /tmp, an empty /mnt/storage and a loopback interface that nobody else hears. In there the real heatmeterd meets
heatmeter-sim on real pseudo-terminals.

A test file ends with box.main(__file__). It runs its tests side by side: they do little but wait. Exit status 77 tells
that this machine cannot make such a box, or lacks a program.
"""

import argparse
import concurrent.futures
import importlib
import os
import re
import shlex
import shutil
import signal
import subprocess
import sys
import time
import unittest

SKIPPED = 77
SIDE_BY_SIDE = 6
LONGEST_TEST = 240  # seconds
SMALL_STORAGE = 256 * 1024  # bytes
TOLD = "told: "  # before what a test tells although it is well
OF_THIS_MACHINE = ("LD_PRELOAD", "FAKETIME_SHARED")

TREE = os.path.dirname(os.path.abspath(__file__))
DATA = os.path.join(os.path.dirname(TREE), "data")
DOCS = os.path.join(os.path.dirname(os.path.dirname(TREE)), "docs")


# ---- in the test files

def storage(kind):
    """Decorator: the storage of a test is "read-only", "small" (256 KiB), "unmounted" or "missing"."""
    def mark(function):
        function.storage = kind
        return function
    return mark


def disks(**sizes):
    """Decorator: folders below /tmp that are small file systems, by their sizes in bytes."""
    def mark(function):
        function.disks = sizes
        return function
    return mark


class FastClock:
    """A clock that starts at a local time and runs `rate` times as fast. VTIME of a terminal and time-outs of the
    network stay what they are."""

    def __init__(self, start, rate):
        self.start = time.mktime(time.strptime(start, "%Y-%m-%d %H:%M:%S"))
        self.rate = rate
        # Lives as long as the clock, since it keeps what the programs share.
        self.keeper = subprocess.Popen(["faketime", "--exclude-monotonic", "-f", "+0", "sh", "-c",
                                        "env; echo; exec cat"],
                                       stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        self.shared = {}
        for line in iter(self.keeper.stdout.readline, "\n"):
            name, _, value = line.rstrip("\n").partition("=")
            self.shared[name] = value

    def environment(self):
        """For a program, whenever it is started: what the programs share has the moment from which all count."""
        text = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(self.start))
        return {**self.shared, "FAKETIME": f"@{text} x{self.rate}", "FAKETIME_DONT_RESET": "1"}

    def stop(self):
        self.keeper.stdin.close()
        self.keeper.wait()
        self.keeper.stdout.close()


class Program:
    """A running program whose outputs go to files."""

    def __init__(self, name, words, environment, **streams):
        self.paths = {stream: f"/tmp/box.{name}.{stream}" for stream in ("stdout", "stderr")}
        files = {stream: open(path, "w") for stream, path in self.paths.items()}
        self.process = subprocess.Popen(words, env=environment, stdin=subprocess.DEVNULL, **{**files, **streams})
        for file in files.values():
            file.close()

    def output(self, stream="stdout"):
        return read(self.paths[stream])

    def runs(self):
        return self.process.poll() is None

    def status(self, patience=20):
        """The exit status once it has ended by itself; negative for a signal."""
        return self.process.wait(patience)

    def end(self, number=signal.SIGTERM):
        if self.runs():
            self.process.send_signal(number)
        return self.process.wait(20)


class Test(unittest.TestCase):
    build = None
    sim_build = None
    runner = []
    longMessage = True

    def setUp(self):
        self.clock = None
        self.programs = []

    def tearDown(self):
        for program in self.programs:
            program.end(signal.SIGKILL)
        if self.clock:
            self.clock.stop()

    def start_clock(self, start, rate=1):
        if shutil.which("faketime") is None:
            self.skipTest("no faketime")
        self.clock = FastClock(start, rate)

    def start(self, name, words, runner=(), **streams):
        environment = self.clock.environment() if self.clock else dict(os.environ)
        if runner:  # which preloads what fits its program; what this machine's programs share is laid out otherwise
            words = [*runner, *words]
            environment = {key: value for key, value in environment.items() if key not in OF_THIS_MACHINE}
        program = Program(f"{name}{len(self.programs)}", words, environment, **streams)
        self.programs.append(program)
        return program

    def daemon(self, *words, **streams):
        return self.start("heatmeterd", [f"{self.build}/heatmeterd", *words], self.runner, **streams)

    def sim(self, *words):
        """Simulated meters, ready to be asked."""
        sim = self.start("heatmeter-sim", [f"{self.sim_build}/heatmeter-sim", *words])
        self.wait_for(lambda: "ready\n" in sim.output() or not sim.runs(), "the simulated meters")
        return sim

    def wait_for(self, condition, what, patience=30):
        """Until the condition holds; a test fails that has waited too long."""
        end = time.monotonic() + patience
        while not condition():
            if time.monotonic() > end:
                self.fail(f"waited {patience} s for {what}")
            time.sleep(0.05)

    def tell(self, text):
        """Beside the name of a test that has passed."""
        print(f"{TOLD}{text}", flush=True)

    def stays(self, program, seconds=2):
        """The program is still there after a while."""
        time.sleep(seconds)
        self.assertTrue(program.runs(), f"ended with status {program.process.returncode}: {program.output('stderr')}")


def read(path):
    try:
        with open(path, encoding="utf-8", errors="surrogateescape") as file:
            return file.read()
    except OSError:
        return ""


def item(uuid, name, n=1):
    return read(f"/tmp/{uuid}/{n}/tc_items/{name}").rstrip("\n")


def archive(uuid, name, n=1):
    return read(f"/mnt/storage/{uuid}/{n}/tc_archives/{name}").splitlines()


def general_log():
    """The texts of the general log, without their times."""
    return [re.sub(r"^\d\d/\d\d/\d\d \d\d:\d\d:\d\d\.\d{3} : ", "", line)
            for line in read("/tmp/uni_logs.general.txt").splitlines()]


# ---- the way into the box

def box_words(options, storage_kind, private_processes, small_disks=()):
    words = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--tmpfs", "/tmp", "--tmpfs", "/mnt"]
    for folder in [TREE, DATA, DOCS, options.sim_build, *filter(os.path.isdir, options.runner)]:
        words += ["--ro-bind", folder, folder]
    words += ["--bind", options.build, options.build]
    words += ["--size", str(SMALL_STORAGE)] if storage_kind == "small" else []
    words += {"missing": [], "unmounted": ["--dir", "/mnt/storage"]}.get(storage_kind, ["--tmpfs", "/mnt/storage"])
    words += ["--remount-ro", "/mnt/storage"] if storage_kind == "read-only" else []
    for folder, size in dict(small_disks).items():
        words += ["--size", str(size), "--tmpfs", f"/tmp/{folder}"]
    words += ["--unshare-pid", "--proc", "/proc"] if private_processes else []
    # No zone with summer time, on any machine. Memory is left unreleased on purpose.
    words += ["--setenv", "TZ", "MSK-3", "--setenv", "LC_ALL", "C.UTF-8",
              "--setenv", "ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0"]
    return words + ["--unshare-net", "--die-with-parent", "--chdir", "/tmp"]


def find_box(options):
    """Whether a box may have processes of its own; exits when there can be no box."""
    if shutil.which("bwrap") is None:
        print("skipped: bwrap is not installed (Debian package bubblewrap)")
        sys.exit(SKIPPED)
    for private_processes in (True, False):
        trial = subprocess.run([*box_words(options, None, private_processes), "true"], capture_output=True, text=True)
        if trial.returncode == 0:
            return private_processes
    print("skipped: this machine allows no private namespaces:", trial.stderr.strip())
    sys.exit(SKIPPED)


def tests_of(file, options):
    sys.path.insert(0, TREE)
    module = importlib.import_module(os.path.splitext(os.path.basename(file))[0])
    Test.build, Test.sim_build, Test.runner = options.build, options.sim_build, options.runner
    return [test for suite in unittest.defaultTestLoader.loadTestsFromModule(module) for test in suite]


def name_of(test):
    return test.id().partition(".")[2]


def run_inside(test):
    result = unittest.TextTestRunner(verbosity=0, stream=sys.stdout).run(test)
    if result.skipped:
        return SKIPPED
    return 0 if result.wasSuccessful() else 1


def run_in_box(test, file, options, private_processes):
    method = getattr(test, test._testMethodName)
    marks = getattr(method, "storage", None), private_processes, getattr(method, "disks", ())
    words = [*box_words(options, *marks), sys.executable, "-B", file, "--build", options.build,
             "--sim-build", options.sim_build, f"--runner={shlex.join(options.runner)}", "--inside", name_of(test)]
    start = time.monotonic()
    done = subprocess.run(words, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", timeout=LONGEST_TEST)
    word = {0: "ok", SKIPPED: "skipped"}.get(done.returncode, "FAILED")
    print(f"{word:8}{time.monotonic() - start:5.1f} s  {name_of(test)}", flush=True)
    if done.returncode != 0:
        print(done.stdout, flush=True)
    for line in re.findall(f"^{TOLD}(.*)", done.stdout, re.MULTILINE) if done.returncode == 0 else ():
        print(f"{'':17}{line}", flush=True)
    return done.returncode


def main(file):
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True, help="the build directory with heatmeterd and heatmeter-sim")
    parser.add_argument("--sim-build", help="the build directory with heatmeter-sim, if it is another one")
    parser.add_argument("--runner", default="", help="words in front of heatmeterd, such as those of an emulator")
    parser.add_argument("--inside", help=argparse.SUPPRESS)
    parser.add_argument("names", nargs="*", help="parts of names of tests; all tests without them")
    options = parser.parse_args()
    file = os.path.abspath(file)
    options.build = os.path.abspath(options.build)
    options.sim_build = os.path.abspath(options.sim_build or options.build)
    options.runner = shlex.split(options.runner)
    tests = tests_of(file, options)
    if options.inside:
        sys.exit(run_inside(next(test for test in tests if name_of(test) == options.inside)))

    if not os.path.exists(f"{options.sim_build}/heatmeter-sim"):
        print(f"skipped: no heatmeter-sim in {options.sim_build}")
        sys.exit(SKIPPED)
    private_processes = find_box(options)
    if options.names:
        tests = [test for test in tests if any(part in name_of(test) for part in options.names)]
    with concurrent.futures.ThreadPoolExecutor(SIDE_BY_SIDE) as pool:
        statuses = list(pool.map(lambda test: run_in_box(test, file, options, private_processes), tests))
    if all(status == SKIPPED for status in statuses):
        sys.exit(SKIPPED)
    sys.exit(0 if all(status in (0, SKIPPED) for status in statuses) else 1)
