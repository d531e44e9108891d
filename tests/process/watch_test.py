#!/usr/bin/env python3
"""heatmeterctl watch in a real terminal: keys are typed, and the screen is read."""

import os
import re
import shutil
import signal
import subprocess
import time

import box

ROOT = "/tmp/copy"
HOUR = 3600
RAW = "/tmp/raw"  # what the program sends to its terminal
SETTINGS = "set -g status off\nset -g default-terminal screen-256color\n"
HOSTILE = b"\x1b]0;owned\x07\x1b[2J\xc2\x9b31m\xe2\x80\xae\x9b\xff\r\n"
COLOUR = re.compile(r"\033\[(?:[\d;]*;)?[34][0-7](?:;[\d;]*)?m")


def write(path, text):
    with open(path, "wb") as file:
        file.write(text if isinstance(text, bytes) else text.encode())


def publish(uuid, n=1, root=ROOT, age=0, **items):
    folder = f"{root}/tmp/{uuid}/{n}/tc_items"
    os.makedirs(folder, exist_ok=True)
    for name, text in items.items():
        write(f"{folder}/{name}", text if isinstance(text, bytes) else f"{text}\n")
        if age:
            os.utime(f"{folder}/{name}", (time.time() - age,) * 2)


def store(uuid, name, times, n=1, root=ROOT, folder="tc_archives"):
    folder = f"{root}/mnt/storage/{uuid}/{n}/{folder}"
    os.makedirs(folder, exist_ok=True)
    with open(f"{folder}/{name}", "a", encoding="utf-8") as file:
        file.writelines(f"{when},192,{when % 1000 + 0.5:.6f}\n" for when in times)


def shown_hour(when):
    return time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(when))


class Terminal(box.Test):
    def setUp(self):
        super().setUp()
        if shutil.which("tmux") is None:
            self.skipTest("no tmux")
        self.number = 0  # of the terminal
        self.hour = int(time.time()) // HOUR * HOUR
        publish("m1", MeterModel="KM5-4", T1="61.5", T2="40.25")
        publish("m1", 2, T1="55.125")
        publish("m2", MeterModel="SA94/1", TX="1")

    def tearDown(self):
        self.close()
        super().tearDown()

    def close(self):
        self.tmux("kill-server", fails=True)
        if os.path.exists(RAW):
            os.remove(RAW)

    def tmux(self, *words, fails=False):
        done = subprocess.run(["tmux", "-L", f"watch{self.number}", "-f", "/tmp/tmux.conf", *words], capture_output=True, text=True,
                              timeout=20)
        self.assertTrue(fails or done.returncode == 0, f"{words}: {done.stderr}")
        return done.stdout

    def watch(self, *words, root=ROOT, size=(80, 24), before=""):
        """In a shell, which tells how it has ended and what the terminal is then."""
        self.close()
        self.number += 1
        write("/tmp/tmux.conf", SETTINGS)
        write("/tmp/run", f"trap : INT; read begin\n{before} {self.build}/heatmeterctl --root '{root}' watch {' '.join(words)}\n"
                          'echo "ended $?"; stty -a; exec cat\n')
        self.tmux("new-session", "-d", "-x", str(size[0]), "-y", str(size[1]), "sh /tmp/run")
        self.tmux("pipe-pane", f"cat >{RAW}")
        self.wait_for(lambda: os.path.exists(RAW), "the recorder")
        self.type("Enter")

    def pid(self):
        pane = int(self.tmux("list-panes", "-F", "#{pane_pid}"))
        children = box.read(f"/proc/{pane}/task/{pane}/children").split()
        return int(children[0]) if children else None

    def type(self, *keys):
        self.tmux("send-keys", *keys)

    def screen(self):
        return self.tmux("capture-pane", "-p").splitlines()

    def raw(self):
        return box.read(RAW)

    def sees(self, *texts, patience=10, but=()):
        """Soon all of the texts, each a regular expression, stand in lines of the screen, and the others do not."""
        def there(text):
            return any(re.search(text, line) for line in self.screen())
        try:
            self.wait_for(lambda: all(map(there, texts)) and not any(map(there, but)), f"{texts}", patience)
        except AssertionError as error:
            raise AssertionError("\n".join([str(error), *self.screen()])) from None

    def is_bold(self, name):
        """In the line of a value."""
        bold = False
        for part in re.split(r"(\033\[[\d;]*m|\n)", self.tmux("capture-pane", "-p", "-e")):
            if part.startswith("\033"):
                for code in part[2:-1].split(";"):
                    bold = {"0": False, "": False, "22": False, "1": True}.get(code, bold)
            elif part.startswith(name):
                return bold
        return None

    def ended(self, status=0):
        self.sees(rf"^(\^C)?ended {status}\b")

    def assert_in_order(self):
        """The terminal is as it was."""
        self.ended()
        self.sees(r" echo\b", r" icanon\b", " onlcr")
        self.assertEqual(self.tmux("display-message", "-p", "#{alternate_on} #{cursor_flag} #{keypad_flag}"),
                         "0 1 0\n")


class Keys(Terminal):
    def test_a_meter_and_a_system_are_chosen(self):
        self.watch()
        self.sees("^> m1 ", "^  m2 ", "^-- m1/1: values -", "^T1 +61.5 ", "2 meters$", "KM5-4", "SA94/1")
        for key, line in (("Down", "m2/1"), ("Down", "m2/1"), ("Up", "m1/1"), ("Up", "m1/1"), ("j", "m2/1"),
                          ("k", "m1/1"), ("Right", "m1/2"), ("Right", "m1/2"), ("Left", "m1/1"), ("Left", "m1/1")):
            self.type(key)
            self.sees(f"^-- {line}: values -", f"^> {line[:2]} ")
        self.type("Right")
        self.sees("^T1 +55.125 ", but=["^T2 "])
        self.type("q")
        self.ended()

    def test_records_the_log_and_help(self):
        store("m1", "A20", range(self.hour - 60 * HOUR, self.hour, HOUR))
        store("m1", "A29", [self.hour - 86400 - self.hour % 86400])
        log = "".join(f"02/03/24 08:{minute:02}:00.000 : line {minute}\n" for minute in range(60))
        write(f"{ROOT}/tmp/uni_logs.m1.debug.txt", log)
        self.watch("m1")
        self.sees("^> m1 ", "1 meter$")
        self.type("a")
        newest = self.hour  # the end of the record
        self.sees("hourly records", "^end of record +A20$", f"^{shown_hour(newest)} +[0-9.]+$")
        self.type("NPage")
        self.sees(f"^{shown_hour(newest - 30 * HOUR)}", but=[f"^{shown_hour(newest)}"])
        for _ in range(9):
            self.type("NPage")
        self.sees(f"^{shown_hour(newest - 59 * HOUR)}", but=[f"^{shown_hour(newest - 60 * HOUR)}"])
        self.type("g")
        self.sees(f"^{shown_hour(newest)}")
        store("m1", "A20", [self.hour])
        self.sees(f"^{shown_hour(newest + HOUR)} +", patience=3)
        self.type("d")
        self.sees("daily records", "^end of record +A29$", ":00:00 +[0-9.]+$")
        self.type("l")
        self.sees("^-- m1/1: log", ": line 59$", but=[": line 20$"])
        with open(f"{ROOT}/tmp/uni_logs.m1.debug.txt", "a", encoding="utf-8") as file:
            file.write("02/03/24 09:00:00.000 : one more\n")
        self.sees("one more$", patience=3)
        self.type("?")
        self.sees("PgUp, PgDn", but=["one more"])
        self.type("Escape")
        self.sees("one more$", but=["PgUp, PgDn"])
        self.type("h")
        self.sees("PgUp, PgDn")
        self.type("q")
        self.sees("one more$")
        self.type("v")
        self.sees("^T2 +40.25 ")
        self.type("Escape", "F5")
        self.sees("^T2 +40.25 ")
        self.type("q")
        self.assert_in_order()

    def test_values_that_do_not_fit_are_turned_over(self):
        publish("m1", **{f"X{number}": number for number in range(60)})
        self.watch()
        self.sees("^T1 +61.5 ", but=["^X59 "])
        for _ in range(6):
            self.type("NPage")
        self.sees("^X59 +59 ", but=["^T1 "])
        for _ in range(9):
            self.type("PPage")
        self.sees("^T1 +61.5 ", but=["^X59 "])
        self.type("Space")
        self.sees("^X", but=["^T1 "])
        self.type("b")
        self.sees("^T1 +61.5 ")

    def test_a_long_uuid_is_told_whole(self):
        uuid = "0f8fad5b-d9cb-469f-a165-70867728950e"
        publish(uuid, T1=1)
        self.watch(uuid)
        self.sees(f"^-- {uuid}/1: values", "^v values .* q end")


class Changes(Terminal):
    def test_a_value_that_changes_is_marked_for_five_seconds(self):
        self.watch()
        self.sees("^T1 +61.5 ")
        self.assertFalse(self.is_bold("T1"))
        publish("m1", T1="77.75")
        self.sees("^T1 +77.75 ", patience=2)
        seen = time.monotonic()
        self.assertTrue(self.is_bold("T1"))
        self.assertFalse(self.is_bold("T2"))
        time.sleep(2)
        self.assertTrue(self.is_bold("T1"))
        self.wait_for(lambda: not self.is_bold("T1"), "the end of the mark", 6 - (time.monotonic() - seen))

    def test_a_unit_is_the_keepers(self):
        os.makedirs(f"{ROOT}/etc/heatmeterd")
        write(f"{ROOT}/etc/heatmeterd/units.conf", "[m1/2]\nT1 = °R\n")
        self.watch()
        self.sees("^T1 +61.5 +")
        self.type("Right")
        self.sees("^T1 +55.125 +°R ")

    def test_a_value_written_with_an_old_time_loses_its_mark_too(self):
        publish("m1", age=5000, MeterModel="KM5-4", T1="61.5", T2="40.25")
        self.watch("m1")
        self.sees("^T1 +61.5 ")
        publish("m1", age=5000, T1="77.75")
        self.sees("^T1 +77.75 ", patience=2)
        self.wait_for(lambda: not self.is_bold("T1"), "the end of the mark", 6)

    def test_a_meter_that_appears_step_by_step(self):
        self.watch()
        self.sees("2 meters$")
        for step in ("tmp/m3", "tmp/m3/1", "tmp/m3/1/tc_items", "mnt", "mnt/storage"):
            os.makedirs(f"{ROOT}/{step}", exist_ok=True)
            time.sleep(0.3)
        publish("m3", Connected=1)
        time.sleep(0.3)
        publish("m3", T1="12.5")
        self.sees("^  m3 ", "3 meters$", patience=2)
        publish("m3", MeterModel="VIST")
        self.type("Down", "Down")
        self.sees("^> m3 .* VIST ", "^T1 +12.5 ", patience=2)

    def test_records_of_a_meter_appear_step_by_step(self):
        os.makedirs(f"{ROOT}/mnt/storage")
        self.watch("m1")
        self.sees("^> m1 ")
        for step in ("m1", "m1/1", "m1/1/tc_archives"):
            os.makedirs(f"{ROOT}/mnt/storage/{step}")
            time.sleep(0.3)
        store("m1", "A20", [self.hour - HOUR])
        self.sees(f"^> m1 .* {shown_hour(self.hour)[5:16]}", patience=2)
        # From now on the driver hands over whole passes.
        store("m1", "T4", [self.hour + HOUR], folder="tmp_archives")
        time.sleep(0.5)
        store("m1", "T4", [self.hour + HOUR], folder="tc_tmp_archives")
        self.sees(f"^> m1 .* {shown_hour(self.hour + 2 * HOUR)[5:16]}", patience=2)

    def test_folders_that_are_taken_away_and_come_again(self):
        self.watch("m1")
        self.sees("^T1 +61.5 ")
        shutil.rmtree(f"{ROOT}/tmp/m1")
        self.sees("^> m1 ", but=["^T1 "], patience=3)
        publish("m1", T1="13.5")
        self.sees("^T1 +13.5 ", patience=3)
        publish("m1", T1="14.5")
        self.sees("^T1 +14.5 ", patience=2)

    def test_only_meters_that_were_asked_for(self):
        self.watch("m2", "m7")
        self.sees("^> m2 ", "^  m7 ", but=["m1"])
        publish("m3", T1=1)
        publish("m7", T1="17.5")
        self.type("Down")
        self.sees("^> m7 ", "^T1 +17.5 ", "2 meters$", but=["m3"])

    def test_nothing_is_there_yet(self):
        os.makedirs("/tmp/nothing/tmp")
        self.watch(root="/tmp/nothing")
        self.sees("none yet: no meter has files here", "0 meters$")
        self.type("a", "l", "d", "Down", "Right", "NPage", "v")
        publish("m1", root="/tmp/nothing", T1="3.5")
        self.sees("^> m1 ", "^T1 +3.5 ", patience=3)


class Sizes(Terminal):
    def test_the_terminal_is_made_smaller_and_larger(self):
        publish("m1", **{f"X{number}": number for number in range(60)})
        store("m1", "A20", range(self.hour - 60 * HOUR, self.hour, HOUR))
        self.watch()
        self.sees("^> m1 ", "^T1 ")
        for view in "vadl?":
            self.type(view)
            for width, height in ((40, 10), (200, 60), (10, 3), (1, 1), (3, 2), (7, 24), (80, 4), (80, 24)):
                with self.subTest(f"{view} {width}x{height}"):
                    self.tmux("resize-window", "-x", str(width), "-y", str(height))
                    foot = "v values  a hourly  d daily  l log  ? help  q end"[:max(0, width - 1)].rstrip()
                    self.wait_for(lambda: self.screen()[-1].rstrip() == foot, "the screen", 5)
                    lines = self.screen()
                    self.assertEqual(len(lines), height)
                    self.assertEqual(sum("v value" in line for line in lines), 1 if width > 7 else 0)
                    if height > 3:
                        self.assertTrue(lines[0].startswith("heatmeterctl watch"[:max(0, width - 9)]), lines)
        self.type("q", "v")
        self.sees("^T1 +61.5 ", "2 meters$")
        self.type("q")
        self.assert_in_order()

    def test_it_begins_on_a_very_small_one(self):
        self.watch(size=(10, 3))
        self.sees("^v values$")
        self.tmux("resize-window", "-x", "80", "-y", "24")
        self.sees("^T1 +61.5 ")


class Looks(Terminal):
    def test_colours(self):
        self.watch()
        self.sees("^> m1 +unknown")
        self.assertRegex(self.raw(), COLOUR)
        self.assertNotIn("\033]", self.raw())

    def test_no_colours(self):
        self.watch(before="NO_COLOR=1")
        self.sees("^> m1 +unknown")
        self.assertIsNone(COLOUR.search(self.raw()))
        publish("m1", T1="77.75")
        self.sees("^T1 +77.75 ", patience=2)
        self.assertTrue(self.is_bold("T1"))
        self.assertIsNone(COLOUR.search(self.raw()))

    def plain(self, *words, **more):
        self.watch(*words, **more)
        self.sees(r"^\S+ m1/1 T1 61.5$", r"^\S+ m1/2 T1 55.125$")
        publish("m1", T1="77.75")
        self.sees("m1/1 T1 77.75$", patience=2)
        self.assertNotIn("\033", self.raw())
        self.type("C-c")
        self.ended(130)

    def test_a_terminal_that_can_nothing(self):
        self.plain(before="TERM=dumb")

    def test_a_terminal_that_nobody_knows(self):
        self.plain(before="TERM=no-such-terminal")

    def test_no_word_about_the_terminal(self):
        self.plain(before="env -u TERM")

    def test_plain_lines_on_wish(self):
        self.plain("--plain")

    def test_hostile_texts_do_not_act(self):
        uuid = b"u\x1b[31m\xc2\x9b\xff"
        publish("m1", MeterModel=HOSTILE, T1=HOSTILE, T2=HOSTILE * 100)
        write(f"{ROOT}/tmp/m1/1/tc_items/".encode() + b"A\x1b]0;x\x07\n", HOSTILE)
        os.makedirs(f"{ROOT}/tmp/".encode() + uuid + b"/1/tc_items")
        write(f"{ROOT}/tmp/".encode() + uuid + b"/1/tc_items/T1", HOSTILE)
        write(f"{ROOT}/tmp/uni_logs.m1.txt", b"02/03/24 08:00:00.000 : " + HOSTILE + b"end of it\n" + HOSTILE)
        for words in ((), ("--plain", "--for", "1s")):
            with self.subTest(words):
                self.watch(*words)
                self.sees("\ufffd]0;owned\ufffd\ufffd\\[2J")
                if not words:
                    self.type("Down", "Up", "a", "l")
                    self.sees("end of it")
                    self.type("q")
                self.ended()
                raw = self.raw().encode(errors="surrogateescape")
                for bad in (b"\x1b]", b"\x1b[31m\xc2", b"\x07", b"\xc2\x9b", b"\xe2\x80\xae", b"\xff", b"\x1b[2J\xef"):
                    self.assertNotIn(bad, raw)
                raw.decode()

    def test_letters_of_other_tongues_without_a_locale(self):
        publish("m1", T1="тепло 6°", T2="漢字" * 20)
        for locale in ("C.UTF-8", "C"):
            with self.subTest(locale):
                self.watch(before=f"LC_ALL={locale}")
                self.sees("^T1 +тепло 6° ", "^T2 +(漢字){4} ")


class Ends(Terminal):
    def end(self, number):
        self.watch()
        self.sees("^> m1 ")
        os.kill(self.pid(), number)
        self.assert_in_order()

    def test_sigterm(self):
        self.end(signal.SIGTERM)

    def test_sighup(self):
        self.end(signal.SIGHUP)

    def test_ctrl_c(self):
        self.watch()
        self.sees("^> m1 ")
        self.type("C-c")
        self.assert_in_order()

    def test_the_terminal_goes_away(self):
        self.watch(before="trap '' HUP;")
        self.sees("^> m1 ")
        pid = self.pid()
        self.tmux("kill-server")
        self.wait_for(lambda: not os.path.exists(f"/proc/{pid}") or " (heatmeterctl) Z" in box.read(f"/proc/{pid}/stat"),
                      "the end", 5)

    def test_the_time_is_over(self):
        self.watch("--for", "2s")
        self.sees("^> m1 ")
        self.assert_in_order()

    def test_wrong_words(self):
        for words in (["--for", "soon"], ["m1/2"], [".."]):
            done = subprocess.run([f"{self.build}/heatmeterctl", "watch", *words], capture_output=True, text=True,
                                  timeout=20)
            self.assertEqual((done.returncode, done.stdout, done.stderr.count("\n")), (2, "", 1), words)


class WithoutATerminal(Terminal):
    def test_a_line_for_each_change_at_once(self):
        store("m1", "A20", [self.hour - HOUR])
        watcher = self.start("watch", [f"{self.build}/heatmeterctl", "--root", ROOT, "watch", "--for", "8s"])
        began = time.monotonic()
        def lines():
            return [line.partition(" ")[2] for line in watcher.output().splitlines()]
        self.wait_for(lambda: len(lines()) == 7, "what is there")
        self.assertEqual(lines(), ["m1/1 MeterModel KM5-4", "m1/1 T1 61.5", "m1/1 T2 40.25",
                                   f"m1/1 hourly record {time.strftime('%FT%T+03:00', time.localtime(self.hour))}",
                                   "m1/2 T1 55.125", "m2/1 MeterModel SA94/1", "m2/1 TX 1"])
        for change, line in ((lambda: publish("m1", T1="62.5"), "m1/1 T1 62.5"),
                             (lambda: publish("m3", T1="1.5"), "m3/1 T1 1.5"),
                             (lambda: store("m1", "A20", [self.hour]), "m1/1 hourly record ")):
            change()
            self.wait_for(lambda: lines()[-1].startswith(line), line, 2)
        publish("m1", T1="62.5")  # no change
        self.assertEqual(watcher.status(), 0)
        self.assertLess(abs(time.monotonic() - began - 8), 1.5)
        self.assertEqual(len(lines()), 10)

    def test_its_reader_goes_away(self):
        reader, writer = os.pipe()
        watcher = self.start("watch", [f"{self.build}/heatmeterctl", "--root", ROOT, "watch"], stdout=writer)
        os.close(writer)
        os.read(reader, 1)
        os.close(reader)
        publish("m1", T1="62.5")
        self.assertEqual(watcher.status(2), -signal.SIGPIPE)


class Quiet(Terminal):
    """Five meters that do not change, live, with all that belongs to it."""

    MOST = 0.001  # of a core

    def setUp(self):
        super().setUp()
        for number in range(1, 6):
            uuid = f"q{number}"
            for n in (1, 2, 3):
                publish(uuid, n, "", 400, MeterModel="KM5-4", **{f"T{i}": i for i in range(1, 30)})
                for archive in range(1, 29):
                    store(uuid, f"A{archive}", range(self.hour - 900 * HOUR, self.hour, HOUR), n, "")
            write(f"/tmp/uni_logs.{uuid}.debug.txt", "02/03/24 08:20:24.100 : Send dump:\n" * 5000)

    def share(self, pid, seconds):
        clock = (~pid << 3) | 2  # the processor time of all threads of a process
        before = time.clock_gettime(clock)
        time.sleep(seconds)
        return (time.clock_gettime(clock) - before) / seconds

    def test_values_that_do_not_change_cost_nothing(self):
        self.watch(root="/")
        self.sees("^> q1 ", "^T1 ", "restart|no process|storage|nothing|not", patience=20)
        time.sleep(2)
        for view in "va":
            self.type(view)
            time.sleep(1)
            self.assertLess(self.share(self.pid(), 20), self.MOST, view)

    def test_nor_without_a_terminal(self):
        watcher = self.start("watch", [f"{self.build}/heatmeterctl", "watch"])
        self.wait_for(lambda: "q5/3 daily" in watcher.output() or "q5/3 T9 " in watcher.output(), "what is there")
        time.sleep(2)
        self.assertLess(self.share(watcher.process.pid, 10), self.MOST / 10)


if __name__ == "__main__":
    box.main(__file__)
