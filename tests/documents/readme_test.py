#!/usr/bin/env python3
"""What README.md tells of words, exit statuses and paths, against the real program; the log lines and the words of
`heatmeterctl status` in docs/operations.md, against the sources; the man page and the completion of heatmeterctl,
against its help."""

import glob
import http.server
import json
import os
import re
import signal
import subprocess
import sys
import threading
import time

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(ROOT, "tests", "process"))

import box  # noqa: E402

box.TREE = ROOT  # what a box shows of this machine besides its programs

UUID = "6f9619ff-8b86-d011-b42d-00c04fc964ff"
METER_TYPES = {"KM5": "km5", "KM56i": "km56i", "ATT": "att", "VIST": "vist", "VISTmodbus": "vist-modbus",
               "SA94": "sa94"}


def document(name):
    return box.read(os.path.join(ROOT, name))


def table(text, first):
    """The rows of the table whose first column has this head, without it."""
    rows = text.split(f"\n| {first} |", 1)[1].split("\n\n")[0].splitlines()[2:]
    return [[cell.strip() for cell in re.split(r"(?<!\\)\|", row)[1:-1]] for row in rows]


def quoted(cell):
    return re.findall(r"`([^`]+)`", cell)


def said(*words):
    return subprocess.run(words, check=True, stdout=subprocess.PIPE, text=True).stdout


def words_of(text):
    """What a document's table calls a condition, and its status."""
    told = {}
    for status, conditions in table(text, "exit status"):
        for condition in re.split(", " if status == "0" else "; ", conditions):
            told[condition] = -signal.SIGABRT if status == "SIGABRT" else int(status)
    return told


class Service:
    """A configuration service that says the same to everybody; without a text it hangs up."""

    def __init__(self, text):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_POST(self):
                self.rfile.read(int(self.headers["Content-Length"]))
                if text is not None:
                    self.send_response(200)
                    self.end_headers()
                    self.wfile.write(text)

            def log_message(self, *words):
                pass

        self.server = http.server.HTTPServer(("127.0.0.1", 8082), Handler)
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *failure):
        self.server.shutdown()
        self.server.server_close()


class Readme(box.Test):
    def setUp(self):
        super().setUp()
        self.readme = document("README.md")

    def end_of(self, *words):
        daemon = self.daemon(*words)
        return daemon.status(60), daemon.output()

    def test_each_meter_is_read_under_its_name_and_manufacturer(self):
        rows = table(self.readme, "family")
        self.assertEqual({quoted(row[2])[0] for row in rows}, set(METER_TYPES))
        away_from_the_hour = (30 - time.localtime().tm_min) * 60
        names = [quoted(row[2])[0] for row in rows]
        self.sim(*(word for name in names for word in (
            "--meter", f"type={METER_TYPES[name]},uuid={name},line=/tmp/line-{name},clock={away_from_the_hour}")))
        daemons = [self.daemon(name, "-r", name) for name in names]
        for row, name, daemon in zip(rows, names, daemons):
            self.wait_for(lambda: box.item(name, "MeterModel"), f"a meter under {name}", 60)
            answer = json.loads(daemon.output().split("Received: ")[1].splitlines()[0])
            self.assertEqual(answer["result"]["manufacturer"], quoted(row[3])[0])

    def test_its_commands_are_those_of_the_tree(self):
        groups = said(f"{ROOT}/scripts/install-packages", "--help")
        self.assertEqual(re.search(r"install-packages +# (.*)", self.readme)[1], re.search(r"  build +(.*)", groups)[1])
        presets = json.loads(document("CMakePresets.json"))
        named = {name for row in table(self.readme, "preset") for name in quoted(row[0])}
        self.assertEqual(named, {preset["name"] for preset in presets["configurePresets"] if not preset.get("hidden")})
        self.assertLessEqual(set(re.findall(r"--build --preset (\w+)", self.readme)),
                             {preset["name"] for preset in presets["buildPresets"]})
        for option in re.findall(r"`(HEATMETERD_\w+)`", self.readme):
            self.assertRegex(document("CMakeLists.txt"), rf'option\({option} ".*" OFF\)')
        more = quoted(re.search(r"More of `./check`:([^(]*)", self.readme)[1])
        self.assertEqual({*more, "all"}, set(re.findall(r"^  ([a-z]+) ", said(f"{ROOT}/check", "--help"), re.M)))
        for word in more:
            self.assertIn(f"\n    {word})", document("check"))
        self.assertIn(said(f"{self.build}/heatmeterd", "-v"), self.readme)

    def test_what_is_no_name_ends_with_the_words_that_are_told(self):
        told = re.search(r'Any other name ends the process with "(.*)" in the general log', self.readme)
        self.end_of("KM7", "-r", "u1")
        self.assertEqual(box.general_log()[-1], told[1])

    def test_each_option_does_what_its_row_tells(self):
        rows = {row[0]: row[1] for row in table(self.readme, "option")}
        values = {"`-r`": 0, "`-v`": 2, "`-j`": 3, "`-i`": -2, "none, or any other": -1}
        self.assertEqual(set(rows), set(values))
        for row, value in values.items():
            self.end_of("any", quoted(row)[0] if quoted(row) else "-x", *([UUID] if row == "`-j`" else []))
            self.assertIn(f"Run = {value}", box.general_log()[:2], row)
        error = re.search(r'"(.*?)", exit status (\d)', rows["none, or any other"])
        for words in ("KM5", "-x", "u1"), ():
            self.assertEqual(self.end_of(*words), (int(error[2]), error[1] + "\n"))

    def test_each_exit_status_is_that_of_its_row(self):
        silent, unknown, wrong = "the configuration service answered nothing or no JSON", \
            "single-bus mode without a meter of a known manufacturer", \
            "the configuration service gave a key of a wrong type"
        words = {"version": ["-v"], "bad syntax": ["a", "b"], "no uuid behind `-r`": ["KM5", "-r"],
                 "unknown heat meter name": ["KM7", "-r", "u1"], unknown: ["any", "-j", UUID]}
        found = {condition: self.end_of(*line)[0] for condition, line in words.items()}
        for text, condition in ((None, silent), (b"<html>", silent), (b'{"result": {"serial": "x"}}', wrong)):
            with Service(text):
                found[condition] = self.end_of("KM5", "-r", UUID)[0]
                self.assertEqual(found[condition], words_of(self.readme)[condition], text)
        told = words_of(self.readme)
        told.pop("`tmp_archives` of a VIST is gone")  # ten minutes behind a start
        self.assertEqual(found, told)

    def test_the_paths_are_there(self):
        self.daemon("KM5", "-r", UUID)
        self.wait_for(lambda: any(line.startswith("Start ") for line in box.general_log()), "the start")
        paths = [quoted(row[0])[0] for row in table(self.readme, "path")]
        for path in paths:
            made = path.replace("<uuid>", UUID).replace("<n>", "1").replace("<item>", "Connected")
            made = made.replace("/<name>", "")
            if made == "/tmp/extds_pause":  # there in every third hour
                continue
            by_daemon = made.startswith(("/mnt", f"/tmp/{UUID}", "/tmp/driver", "/tmp/uni"))
            self.assertEqual(bool(glob.glob(made)), by_daemon, path)


class Operations(box.Test):
    def test_the_log_lines_that_are_quoted_are_those_of_the_program(self):
        sources = "".join(box.read(path) for path in glob.glob(f"{ROOT}/src/**/*.cpp", recursive=True))
        literals = "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', sources.replace("'\"'", "")))
        rows = table(document("docs/operations.md"), "trace") + table(document("docs/operations.md"), "line")
        for row in rows:
            for text in quoted(row[0]):
                if text.startswith(("/", "ls ")) or text in ("KM5", "ATT"):
                    continue
                # Values stand between the literals of a line.
                for part in re.split(r"\d+|(?<== )/dev/\.\.\.|\b(?:yes|no|true|false)\b|, (?=fd|isATT)", text):
                    self.assertTrue(part.strip(" -") in literals, text)

    def test_the_words_of_status_are_those_of_its_rules(self):
        rules = "".join(document(f"clients/contract/{name}.cpp") for name in ("health", "health_rules", "status"))
        words = re.findall(r'"([a-z-]+)",\s+(?:Level::\w+|level\w*|is_\w+ \?)', rules)
        told = [word for row in table(document("docs/operations.md"), "word") for word in quoted(row[0])]
        self.assertEqual(sorted(told), sorted(set(words)))


class Heatmeterctl(box.Test):
    """Every command and every option of its help, and no other."""

    def setUp(self):
        super().setUp()
        self.program = f"{self.build}/heatmeterctl"
        if not os.path.exists(self.program):
            self.skipTest("no heatmeterctl was built")

    def options(self, *words):
        listed = said(self.program, *words, "--help").split("\nOptions:\n")[1].split("\n\n")[0]
        return set(re.findall(r"^  (?:-\w,)?(--[a-z]+)", listed, re.M))

    def commands(self):
        listed = said(self.program, "--help").split("Subcommands:\n")[1].split("\n\n")[0]
        return {name: self.options(name) - {"--help"} for name in re.findall(r"^  ([a-z]+) ", listed, re.M)}

    def test_the_man_page_is_that_of_the_program(self):
        page = document("packaging/heatmeterctl.1").replace("\\-", "-")
        sections = dict(re.findall(r"\n\.SH ([A-Z ]+)\n(.*?)(?=\n\.SH|\Z)", page, re.S))
        told = {}
        for heading, text in re.findall(r'^\.SS "(.*)"\n((?:(?!\.S[SH]).*\n?)*)', sections["COMMANDS"], re.M):
            told[heading.split()[0]] = set(re.findall(r"--[a-z]+", heading))
            self.assertLessEqual(set(re.findall(r"--[a-z]+", text)), told[heading.split()[0]])
        self.assertEqual(told, self.commands())
        in_all = set(re.findall(r"--[a-z]+", sections["OPTIONS"]))
        self.assertLessEqual(self.options(), in_all)
        self.assertLessEqual(in_all, self.options().union(*told.values()))

    def completed(self, *words):
        """What the completion offers for the last one of these words."""
        script = 'source "$1"; COMP_WORDS=("${@:2}"); COMP_CWORD=$(($# - 2)); _heatmeterctl "$2"; echo "${COMPREPLY[@]}"'
        return set(said("bash", "-c", script, "bash", f"{ROOT}/packaging/heatmeterctl.bash", self.program, *words).split())

    def test_the_completion_knows_commands_options_and_meters(self):
        commands = self.commands()
        self.assertEqual(self.completed(""), set(commands))
        for command, options in commands.items():
            self.assertEqual(self.completed(command, "-") - {"-r", "-j"}, options | {"--help"}, command)
        for uuid in ("m1", "m2", "$(touch planted)", "`touch planted`"):
            os.makedirs(f"/tmp/{uuid}/1/tc_items")
            os.makedirs(f"/tmp/copy/tmp/{uuid}7/1/tc_items")
        for words in (["values"], ["check", "KM5", "-r"], ["status", "m1"]):
            self.assertLessEqual({"m1", "m2"}, self.completed(*words, ""), words)
        self.assertEqual(self.completed("--root", "/tmp/copy", "archive", ""), {"m17", "m27"})
        self.assertFalse(os.path.exists("planted"))
        self.assertEqual(self.completed("log", ""), {"general", "m1", "m2"})
        self.assertEqual(self.completed("log", "m1", ":"), {"debug", "messages", "general"})
        self.assertEqual(self.completed("archive", "m1", "--format", ""), {"table", "csv", "json"})
        self.assertEqual(self.completed("probe", "V"), {"VIST", "VISTmodbus"})


class HeatmeterView(box.Test):
    def setUp(self):
        super().setUp()
        self.program = f"{self.build}/heatmeter-view"
        if not os.path.exists(self.program):
            self.skipTest("no heatmeter-view was built")

    def test_man_page_and_completion_are_those_of_the_program(self):
        options = set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", said(self.program, "--help"), re.M))
        page = document("packaging/heatmeter-view.8").replace("\\-", "-")
        sections = dict(re.findall(r"\n\.SH ([A-Z ]+)\n(.*?)(?=\n\.SH|\Z)", page, re.S))
        self.assertEqual(set(re.findall(r"--[a-z-]+", sections["OPTIONS"])), options)
        script = 'source "$1"; COMP_WORDS=(heatmeter-view -); COMP_CWORD=1; _heatmeter_view; echo "${COMPREPLY[@]}"'
        completed = said("bash", "-c", script, "bash", f"{ROOT}/packaging/heatmeter-view.bash")
        self.assertEqual(set(completed.split()), options)

    def test_exit_statuses_are_those_of_the_man_page(self):
        for words, status in ((["--nothing"], 2), (["--listen", "0.0.0.0:8083"], 2),
                              (["--password-file", "/tmp/none"], 2), (["--listen", "127.0.0.1:8082"], 1)):
            with Service(None):
                self.assertEqual(subprocess.run([self.program, *words], capture_output=True, timeout=20).returncode, status)


class HeatmeterStore(box.Test):
    def test_man_page_and_completion_are_those_of_the_program(self):
        program = f"{self.build}/heatmeter-store"
        if not os.path.exists(program):
            self.skipTest("no heatmeter-store was built")
        options = set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", said(program, "--help"), re.M))
        page = document("packaging/heatmeter-store.8").replace("\\-", "-")
        sections = dict(re.findall(r"\n\.SH ([A-Z ]+)\n(.*?)(?=\n\.SH|\Z)", page, re.S))
        self.assertEqual(set(re.findall(r"--[a-z-]+", sections["OPTIONS"])), options)
        script = 'source "$1"; COMP_WORDS=(heatmeter-store -); COMP_CWORD=1; _heatmeter_store; echo "${COMPREPLY[@]}"'
        completed = said("bash", "-c", script, "bash", f"{ROOT}/packaging/heatmeter-store.bash")
        self.assertEqual(set(completed.split()), options)


if __name__ == "__main__":
    box.main(__file__)
