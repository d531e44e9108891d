#!/usr/bin/env python3
"""What heatmeterctl tells of archive files, against an independent reckoning from the same files."""

import argparse
import calendar
import json
import os
import random
import re
import shutil
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest

import schemas

LINE = re.compile(rb"(-?\d+),(\d+),(-?(?:\d+\.\d{6}|inf|nan))")
HOUR = 3600
OPTIONS = None


def ctl(root, *words, status=0, zone="UTC0"):
    done = subprocess.run([f"{OPTIONS.build}/heatmeterctl", "--root", root, *words], capture_output=True,
                          env={**os.environ, "TZ": zone}, timeout=120)
    assert done.returncode == status, (words, done.returncode, done.stderr)
    return done.stdout


def natural(name):
    return [(0, "", int(part)) if part.isdigit() else (1, part, 0) for part in re.findall(r"\d+|\D", name)]


def lines_of(path):
    """Time, quality, value of each whole line, and how many there are that are none."""
    with open(path, "rb") as file:
        pieces = file.read().split(b"\n")
    if not pieces[-1]:
        pieces.pop()
    found = [LINE.fullmatch(piece) for piece in pieces]
    lines = [match.groups() for match in found if match and -2**31 <= int(match[1]) < 2**31]
    return [(int(when), quality.decode(), value.decode()) for when, quality, value in lines], len(pieces) - len(lines)


def last_written(path):
    return {when: (quality, value) for when, quality, value in lines_of(path)[0]}


def kind_of(name):
    if name == "_A57":
        return "events"
    if name == "T4":
        return "hourly"
    match = re.fullmatch(r"_?A(\d+)", name)
    return None if not match else "hourly" if int(match[1]) <= 28 else "daily"


def names_of(folder, kind):
    return sorted((name for name in os.listdir(folder) if kind_of(name) == kind), key=natural)


def moment(when, zone):
    os.environ["TZ"] = zone
    time.tzset()
    text = time.strftime("%Y-%m-%dT%H:%M:%S%z", time.localtime(when))
    return f"{text[:-2]}:{text[-2:]}"


def csv_of(folder, kind, first=None, last=None, zone="UTC0"):
    names = names_of(folder, kind)
    columns = [last_written(f"{folder}/{name}") for name in names]
    rows = [",".join(["time", *names])]
    for when in sorted(set().union(*columns)):
        if (first is None or when >= first) and (last is None or when < last):
            rows.append(",".join([moment(when, zone)] + [column.get(when, ("", ""))[1] for column in columns]))
    return rows


class Made:
    """A meter's archives as records that a script has made, with what happens to such files."""

    def __init__(self, seed, hours=24 * 60):
        self.random = random.Random(seed)
        self.room = tempfile.TemporaryDirectory()
        self.root = self.room.name
        self.folder = f"{self.root}/mnt/storage/m1/1/tc_archives"
        os.makedirs(self.folder)
        self.begin = calendar.timegm((2024, 9, 20, 0, 0, 0)) + 1000 * HOUR * (seed % 3)
        self.records = list(range(hours))
        self.totals, self.means = ["A1", "A4", "A12"], ["A17", "A20", "A21"]
        self.names = self.totals + self.means

    def time_in(self, name, record):
        return self.begin + (record + (name in self.totals)) * HOUR

    def write(self, lacking=(), torn=0, repeats=0):
        for name in self.names:
            there = [record for record in self.records if (name, record) not in lacking]
            lines = [f"{self.time_in(name, record)},192,{record / 7:.6f}\n" for record in there]
            for _ in range(repeats):
                at = self.random.randrange(len(lines))
                lines[at:at] = lines[max(0, at - 200):at]
            for _ in range(torn):
                line = self.random.choice(lines)
                lines.insert(self.random.randrange(len(lines)), line[:self.random.randrange(1, len(line) - 8)] + "\n")
                lines.insert(self.random.randrange(len(lines)), "\0" * self.random.randrange(1, 3000) + "\n")
            with open(f"{self.folder}/{name}", "w") as file:
                file.writelines(lines)


class Archive(schemas.Schemas, unittest.TestCase):
    def assert_same(self, root, folder, meter):
        for kind in ("hourly", "daily", "events"):
            if not names_of(folder, kind):
                continue
            for zone in ("UTC0", "CET-1CEST,M3.5.0,M10.5.0/3"):
                told = ctl(root, "archive", meter, f"--{kind}", "--format", "csv", zone=zone).decode().splitlines()
                self.assertEqual(told, csv_of(folder, kind, zone=zone))
            times = sorted(set().union(*(last_written(f"{folder}/{name}") for name in names_of(folder, kind))))
            for first in times[:: max(1, len(times) // 5)]:
                told = ctl(root, "archive", meter, f"--{kind}", "--format", "csv", "--from", f"@{first}", "--to",
                           f"@{first + 200 * HOUR}").decode().splitlines()
                self.assertEqual(told, csv_of(folder, kind, first, first + 200 * HOUR))

    def test_a_time_of_faults_is_told_line_by_line(self):
        for family in ("KM5", "VIST", "VISTmodbus", "SA94"):
            with self.subTest(family), tempfile.TemporaryDirectory() as root:
                subprocess.run([f"{OPTIONS.build}/heatmeter-soak", "--family", family, "--seed", str(OPTIONS.seed),
                                "--days", str(OPTIONS.days), "--keep", root], check=True, stdout=subprocess.DEVNULL)
                compared = 0
                for uuid in os.listdir(f"{root}/mnt/storage"):
                    for system in range(1, 7):
                        folder = f"{root}/mnt/storage/{uuid}/{system}"
                        staged = os.path.isdir(f"{folder}/tmp_archives") and os.listdir(f"{folder}/tmp_archives")
                        folder += "/tc_tmp_archives" if staged else "/tc_archives"
                        if os.path.isdir(folder) and names_of(folder, "hourly"):
                            self.assert_same(root, folder, f"{uuid}/{system}")
                            compared += 1
                self.assertGreater(compared, 0)

    def test_torn_lines_repeats_and_the_doubled_hour(self):
        for seed in range(6):
            made = Made(seed)
            made.write(torn=5, repeats=seed)
            self.assert_same(made.root, made.folder, "m1")

    def test_the_other_forms_hold_the_same(self):
        made = Made(1, hours=200)
        made.write(lacking={("A20", 7)}, repeats=2)
        columns = {name: last_written(f"{made.folder}/{name}") for name in made.names}
        cells = sorted((when, natural(name), name, *cell) for name, column in columns.items()
                       for when, cell in column.items())
        long = [f"{when},{name},{quality},{value}" for when, _, name, quality, value in cells]
        self.assertEqual(ctl(made.root, "archive", "m1", "--long", "--epoch").decode().splitlines(),
                         ["time,name,quality,value", *long])
        told = json.loads(ctl(made.root, "archive", "m1", "--json"))
        self.assertEqual((told["meter"], told["system"], told["kind"], told["names"]),
                         ("m1", 1, "hourly", sorted(made.names, key=natural)))
        flat = [(row[0], name, value) for row in told["rows"] for name, value in zip(told["names"], row[1:])
                if value is not None]
        self.assertEqual(flat, [(when, name, float(value)) for when, _, name, _, value in cells])
        head, *rows = ctl(made.root, "archive", "m1", "--format", "csv", "--quality").decode().splitlines()
        self.assertEqual(head, "time," + ",".join(f"{name},{name}.q" for name in told["names"]))
        self.assertTrue(all(row.count(",") == 12 for row in rows))
        by_record = ctl(made.root, "archive", "m1", "--by", "record", "--format", "csv").decode().splitlines()
        self.assertEqual(sum(",," in row or row.endswith(",") for row in by_record[1:]), 1)

    def test_gaps_are_exactly_what_a_script_took_out(self):
        for seed in range(50):
            made = Made(seed, hours=600)
            inner = made.records[1:-1]
            out = set()
            for _ in range(made.random.randrange(4)):
                at = made.random.choice(inner)
                out |= set(range(at, min(at + made.random.randrange(1, 30), inner[-1] + 1)))
            made.records = [record for record in made.records if record not in out]
            lacking = {(made.random.choice(made.names), made.random.choice(made.records))
                       for _ in range(made.random.randrange(5))}
            torn = made.random.randrange(3)
            made.write(lacking=lacking, torn=torn, repeats=made.random.randrange(3))
            told = json.loads(ctl(made.root, "gaps", "m1", "--json", status=1 if out or lacking or torn else 0))
            end = {record: made.begin + (record + 1) * HOUR for record in range(600)}
            missing = [time for hole in told["holes"] for time in range(hole["from"], hole["to"], HOUR)]
            self.assertEqual(missing, [end[record] for record in sorted(out)], seed)
            self.assertEqual(sum(hole["count"] for hole in told["holes"]), len(out))
            self.assertEqual((told["expected"], told["present"]), (600, 600 - len(out)))
            by_time = {}
            for name, record in lacking:
                by_time.setdefault(end[record], []).append(name)
            self.assertEqual({row["time"]: row["missing"] for row in told["incomplete"]},
                             {when: sorted(names, key=natural) for when, names in by_time.items()}, seed)
            self.assertEqual(told["contradictions"], [])
            self.assertEqual(told["unreadable"], 2 * torn * len(made.names))

    def test_a_time_with_two_values_is_a_contradiction(self):
        made = Made(3, hours=50)
        made.write()
        when = made.time_in("A20", 10)
        with open(f"{made.folder}/A20", "a") as file:
            file.write(f"{when},192,5.000000\n{when},192,5.000000\n")
        told = json.loads(ctl(made.root, "gaps", "m1", "--json", status=1))
        self.assertEqual(told["contradictions"], [{"time": when, "name": "A20", "values": ["1.428571", "5.000000"]}])

    def test_an_export_is_what_the_files_hold_and_goes_on(self):
        made = Made(4)
        made.write(torn=2, repeats=2)
        database = f"{made.root}/all.db"
        for change in ("", f"{made.begin + 99999 * HOUR},192,1.000000\n", f"{made.begin},0,2.000000\n17"):
            with open(f"{made.folder}/A20", "a") as file:
                file.write(change)
            ctl(made.root, "export", "--sqlite", database)
            expected = sorted((name, when, int(quality), float(value)) for name in made.names
                              for when, (quality, value) in last_written(f"{made.folder}/{name}").items())
            with sqlite3.connect(database) as opened:
                rows = opened.execute("SELECT name, time, quality, value FROM record_line ORDER BY name, time")
                self.assertEqual(rows.fetchall(), expected)
        self.assertEqual(json.loads(ctl(made.root, "export", "--sqlite", database, "--json"))["lines"], 0)
        with open(f"{made.folder}/A21", "w") as file:  # replaced by another one
            file.write(f"{made.begin},192,77.000000\n")
        self.assertEqual(json.loads(ctl(made.root, "export", "--sqlite", database, "--json"))["lines"], 1)

    def test_hostile_files_hang_nothing_and_reach_no_terminal(self):
        made = Made(6, hours=3)
        made.write()
        items = f"{made.root}/tmp/m1/1/tc_items"
        os.makedirs(items)
        for name, text in (("T1", b"\033[2J\xc2\x9b31m\n"), ("MeterModel", b"\xe2\x80\xae<b>\xff\n"), ("A\033]0;x\a", b"1\n")):
            with open(f"{items}/{name}", "wb") as file:
                file.write(text)
        os.mkfifo(f"{items}/T2")
        os.mkfifo(f"{made.folder}/A2")
        os.symlink("A6", f"{made.folder}/A5")
        os.symlink("A5", f"{made.folder}/A6")
        os.symlink("/etc/passwd", f"{made.folder}/A7")
        os.makedirs(f"{made.root}/tmp/a\nb/1/tc_items")
        os.symlink("/", f"{made.root}/mnt/storage/up")
        os.symlink("loop", f"{made.root}/mnt/storage/loop")
        with open(f"{made.folder}/A3", "wb") as file:
            file.truncate(1 << 30)
        told = {words: ctl(made.root, *words, status=words[0] == "gaps")
                for words in (("list",), ("values", "m1"), ("values", "m1", "--json"), ("archive", "m1"), ("gaps", "m1"),
                              ("archive", "m1", "--format", "csv"), ("export", "--sqlite", f"{made.root}/all.db"))}
        for words, text in told.items():
            self.assertFalse(re.search(rb"[\x00-\x09\x0b-\x1f\x7f]|\xc2[\x80-\x9f]|root:|\xe2\x80\xae", text), words)
            text.decode()
        self.assertEqual(len(told["list",].splitlines()), 3)
        self.assertEqual(len(json.loads(told["values", "m1", "--json"])["values"]), 3)

    def test_json_keeps_to_its_schema(self):
        made = Made(6, hours=50)
        made.write(lacking={("A20", 7)}, torn=1)
        items = f"{made.root}/tmp/m1/1/tc_items"
        os.makedirs(items)
        for name, text in (("EG", "18446744073709551615\n"), ("SerialNumber", "00012345\n"), ("T1", "12.500000\n"),
                           ("T2", ""), ("odd", "0x10\n"), ("\x9b31m", "nan\n")):
            with open(f"{items}/{name}", "w") as file:
                file.write(text)
        for name, text in (("_A57", f"{made.begin},192,87.000000\n{made.begin},192,85.000000\n{made.begin},0,85.000000\n"),
                           ("A2", f"{made.begin},192,007.500000\n{made.begin + HOUR},0,-inf\n"), ("A29", "")):
            with open(f"{made.folder}/{name}", "w") as file:
                file.write(text)
        told = {}
        for words, status in ((["list"], 0), (["values", "m1"], 0), (["archive", "m1"], 0),
                              (["archive", "m1", "--events"], 0), (["events", "m1"], 0), (["gaps", "m1"], 1),
                              (["gaps", "m1", "--daily"], 0), (["export", "--sqlite", f"{made.root}/all.db"], 0)):
            text = ctl(made.root, *words, "--json", status=status)
            self.assert_schema(words[0], text.decode("ascii"))
            told[" ".join(words[:3])] = json.loads(text)
        self.assertEqual({item["name"]: item["value"] for item in told["values m1"]["values"]},
                         {"EG": 18446744073709551615, "SerialNumber": "00012345", "T1": 12.5, "T2": None,
                          "odd": "0x10", "\x9b31m": "nan"})
        self.assertEqual([row[2] for row in told["archive m1"]["rows"][:2]], [7.5, None])
        self.assertEqual((told["gaps m1 --daily"]["from"], told["gaps m1 --daily"]["to"]), (None, None))

    def test_a_second_of_many_lines_and_the_end_of_time_take_no_longer(self):
        made = Made(6, hours=3)
        for name in ("A1", "_A57"):
            with open(f"{made.folder}/{name}", "w") as file:
                file.writelines(f"{made.begin},192,{i}.000000\n" for i in range(200_000))
        for name in ("A29", "A45"):
            with open(f"{made.folder}/{name}", "w") as file:
                file.writelines(f"{when},192,1.000000\n" for when in (0, 2**31 - 1))
        self.assertEqual(len(json.loads(ctl(made.root, "events", "m1", "--json"))["events"]), 200_000)
        told = json.loads(ctl(made.root, "gaps", "m1", "--json", status=1))
        self.assertEqual([len(twice["values"]) for twice in told["contradictions"]], [200_000])
        told = json.loads(ctl(made.root, "gaps", "m1", "--daily", "--from", "2030-01-01 12:00", "--to", "2099-01-01",
                              "--names", "A29", "--json", status=1))
        self.assertTrue(all(hole["from"] < hole["to"] for hole in told["holes"]), told)

    def test_a_misleading_line_of_a_log_is_explained_unless_it_is_wanted_plain(self):
        made = Made(0, hours=1)
        os.makedirs(f"{made.root}/tmp")
        line = "02/03/24 10:00:00.000 : Current header timestamp is exists"
        with open(f"{made.root}/tmp/uni_logs.m1.txt", "w") as file:
            file.write(line + "\n")
        self.assertEqual(ctl(made.root, "log", "m1").decode(), f"{line}\n    ^ no new hour yet\n")
        self.assertEqual(ctl(made.root, "log", "m1", "--plain").decode(), line + "\n")

    def test_times_are_told_with_their_offset(self):
        made = Made(0, hours=10)
        made.write()
        zone = "CET-1CEST,M3.5.0,M10.5.0/3"
        newest = made.begin + 10 * HOUR
        for words, status in ((["list"], 0), (["status"], 3)):
            self.assertIn(moment(newest, zone), ctl(made.root, *words, status=status, zone=zone).decode())
            self.assertIn(f" {newest}", ctl(made.root, *words, "--epoch", status=status, zone=zone).decode())
        told, = json.loads(ctl(made.root, "list", "--json"))["meters"]
        self.assertEqual(told, {"uuid": "m1", "family": None, "model": None, "serial": None, "systems": [1],
                                "value": None, "hourly": newest, "daily": None})

    def test_a_chart_is_there_when_it_is_whole(self):
        made = Made(5, hours=30)
        made.write()
        chart = f"{made.root}/chart.svg"
        with open(chart, "w") as file:
            file.write("an older one")
        words = [f"{OPTIONS.build}/heatmeterctl", "--root", made.root, "plot", "m1", "A1", "--output", chart]
        done = subprocess.run(words, env={**os.environ, "PATH": "/nowhere"}, capture_output=True, text=True, timeout=60)
        self.assertEqual((done.returncode, done.stderr.count("\n")), (1, 1))
        self.assertIn("apt-get install gnuplot", done.stderr)
        with open(chart) as file:
            self.assertEqual(file.read(), "an older one")
        if shutil.which("gnuplot"):
            ctl(made.root, *words[3:])
            with open(chart) as file:
                self.assertIn("<svg", file.read())
        self.assertEqual([name for name in os.listdir(made.root) if name.startswith("chart")], ["chart.svg"])

    def test_units_are_the_keepers(self):
        made = Made(5, hours=30)
        made.write()
        for folder in ("etc/heatmeterd", "tmp/m1/2/tc_items"):
            os.makedirs(f"{made.root}/{folder}")
        with open(f"{made.root}/etc/heatmeterd/units.conf", "w") as file:
            file.write("[m1]\nIE1 = Gcal\nA1 = Gcal\nno line\n[m1/2]\nIE1 = MWh\n")
        for name in ("IE1", "IM1"):
            with open(f"{made.root}/tmp/m1/2/tc_items/{name}", "w") as file:
                file.write("1.5\n")
        told = json.loads(ctl(made.root, "values", "m1/2", "--json"))["values"]
        self.assertEqual({item["name"]: item["unit"] for item in told}, {"IE1": "MWh", "IM1": ""})
        self.assertIn(b" MWh ", ctl(made.root, "values", "m1/2"))
        if shutil.which("gnuplot"):
            self.assertIn(b", Gcal", ctl(made.root, "plot", "m1", "A1"))

    def test_wrong_words_and_missing_files_are_told(self):
        made = Made(5, hours=3)
        made.write()
        for words in (["archive"], ["archive", "../m1"], ["archive", "m1/7"], ["archive", "m1", "--from", "soon"],
                      ["nothing"], ["archive", "m1", "--names", "../A1"], []):
            ctl(made.root, *words, status=2)
        for words in (["archive", "--names", "A1,A4", "m1"], ["gaps", "--names", "A1", "--names", "A4", "m1"]):
            ctl(made.root, *words)
        for words in (["archive", "m2"], ["gaps", "m1", "--daily"], ["values", "m1"], ["events", "m1"],
                      ["archive", "m2", "--names", "A1"], ["archive", "m1", "--names", "A5,X"],
                      ["gaps", "m1", "--names", "A5"], ["plot", "m1", "A5"],
                      ["export", "--sqlite", f"{made.root}/all.db", "m1", "m2"]):
            ctl(made.root, *words, status=1)


if __name__ == "__main__":
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--days", type=int, default=6, help="of the time of faults")
    parser.add_argument("--seed", type=int, default=7)
    OPTIONS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0], *rest], warnings="ignore")
