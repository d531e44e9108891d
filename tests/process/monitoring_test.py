#!/usr/bin/env python3
"""heatmeter-view and a real Prometheus: what it scrapes is what the files say, and the rules and the dashboard of
docs/monitoring ask for what there is."""

import base64
import json
import os
import re
import shutil
import subprocess
import time
import urllib.parse
import urllib.request

import box
import visitor
from visitor import write

MONITORING = os.path.join(box.DOCS, "monitoring")
CONFIG = """
global: { scrape_interval: 1s, scrape_timeout: 1s }
scrape_configs:
  - job_name: heatmeter
    static_configs: [ { targets: ["127.0.0.1:8083"] } ]
"""
NO_METRICS = {"heatmeter", "heatmeter_view"}  # names of the job and of programs


class Monitoring(visitor.Visitor):
    def setUp(self):
        super().setUp()
        if shutil.which("prometheus") is None or shutil.which("promtool") is None:
            self.skipTest("no prometheus (Debian package prometheus)")

    def prometheus(self, more=""):
        write("/tmp/prometheus.yml", CONFIG + more)
        self.start("prometheus", ["prometheus", "--config.file=/tmp/prometheus.yml",
                                  "--storage.tsdb.path=/tmp/prometheus",
                                  "--web.listen-address=127.0.0.1:9090", "--log.level=warn"])

    def query(self, expression):
        words = urllib.parse.urlencode({"query": expression})
        try:
            with urllib.request.urlopen(f"http://127.0.0.1:9090/api/v1/query?{words}", timeout=20) as answer:
                return json.load(answer)["data"]["result"]
        except urllib.error.HTTPError as error:
            if error.code == 503:  # is being started
                return []
            self.fail(f"{expression}: {error.read().decode()}")
        except OSError:
            return []

    def meters(self):
        """Two families are read; what they publish is whole when this ends."""
        away_from_the_hour = f"clock={(30 - time.localtime().tm_min) * 60}"  # round which a meter is left alone
        self.sim("--meter", f"uuid=school,model=2,{away_from_the_hour}", "--history-days", "0.1",
                 "--meter", f"uuid=baths,type=vist,serial=7,devices=1,line=/tmp/vist,{away_from_the_hour}")
        daemons = [self.daemon("KM5", "-r", "school"), self.daemon("VIST", "-r", "baths")]
        for uuid in ("school", "baths"):
            self.wait_for(lambda uuid=uuid: box.item(uuid, "T1") and "driver" not in box.item(uuid, "_DriverStatus"),
                          f"values of {uuid}", 60)
        # A pass is over when nothing was written for a while.
        def newest():
            return max(entry.stat().st_mtime for uuid in ("school", "baths")
                       for entry in os.scandir(f"/tmp/{uuid}/1/tc_items"))
        self.wait_for(lambda: time.time() - newest() > 3, "the end of a pass", 90)
        return daemons

    def names(self):
        return {name for name in re.findall(r"^# TYPE (\w+) ", self.get("/metrics"), re.MULTILINE)}

    def asked_for(self, text):
        return set(re.findall(r"\b(?:heatmeter|process)_\w+", text)) - NO_METRICS

    def test_what_is_scraped_is_what_the_files_say(self):
        self.meters()
        hour = int(time.time()) // 3600 * 3600  # the meters' own records come after half an hour
        write("/mnt/storage/school/1/tc_archives/A1", f"{hour - 3600},192,1.000000\n{hour},192,1.000000\n")
        view = self.view()
        self.prometheus()
        self.wait_for(lambda: self.query('up{job="heatmeter"} == 1') and self.query("heatmeter_value"), "a scrape", 60)
        expected = {}
        for uuid in ("school", "baths"):
            told = subprocess.run([f"{self.build}/heatmeterctl", "values", uuid, "--json"], check=True,
                                  stdout=subprocess.PIPE, text=True).stdout
            numeric = [value["name"] for value in json.loads(told)["values"] if isinstance(value["value"], (int,
                                                                                                            float))]
            self.assertGreater(len(numeric), 20)
            for name in numeric:
                if name != "Connected":
                    expected[uuid, name] = float(box.item(uuid, name))
        series = self.query("heatmeter_value") + self.query("heatmeter_value_total")
        scraped = {(one["metric"]["meter"], one["metric"]["name"]): float(one["value"][1]) for one in series
                   if one["metric"]["system"] == "1"}
        self.assertEqual(scraped, expected)
        totals = {one["metric"]["name"] for one in self.query('heatmeter_value_total{meter="school"}')}
        self.assertLessEqual({"IE1", "IM1", "IM2"}, totals)
        self.assertNotIn("T1", totals)

        # Meanwhile a value changes, and soon Prometheus has it.
        write("/tmp/school/1/tc_items/T1", "77.125000\n")
        self.wait_for(lambda: [one["value"][1] for one in self.query('heatmeter_value{meter="school",name="T1"}')] ==
                      ["77.125"], "the change")
        self.assertEqual([one["value"][1] for one in self.query("heatmeter_daemon_up")], ["1", "1"])
        self.assertEqual({one["metric"]["meter"] for one in self.query("heatmeter_level")}, {"school", "baths"})
        self.assertEqual([one["value"][1] for one in self.query("heatmeter_service_up")], ["1"])
        newest = {one["metric"]["meter"]: int(one["value"][1]) for one in
                  self.query('heatmeter_archive_newest_timestamp_seconds{kind="hourly"}')}
        self.assertEqual(newest["school"], hour)
        self.assertTrue(view.runs())

    def test_the_text_is_clean(self):
        self.meters()
        self.view()
        done = subprocess.run(["promtool", "check", "metrics"], input=self.get("/metrics"), text=True,
                              capture_output=True)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))

    def test_hostile_names_are_labels(self):
        uuid = 'a"b\\c\nd\u202ee<script>'
        visitor.publish(uuid, T1="1.5", SerialNumber='7"} 1\nheatmeter_level 0', MeterModel="\x1b[2J")
        os.makedirs(b"/tmp/\xff\xfe/1/tc_items")
        write(b"/tmp/\xff\xfe/1/tc_items/T1".decode(errors="surrogateescape"), "2\n")
        self.view()
        done = subprocess.run(["promtool", "check", "metrics"], input=self.get("/metrics"), text=True,
                              capture_output=True)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.prometheus()
        self.wait_for(lambda: self.query("heatmeter_value"), "a scrape", 60)
        self.assertEqual({one["metric"]["meter"]: one["value"][1] for one in self.query("heatmeter_value")},
                         {uuid: "1.5", "\ufffd\ufffd": "2"})
        self.assertEqual({one["metric"]["meter"] for one in self.query("heatmeter_level")}, {uuid, "\ufffd\ufffd"})

    def test_rules(self):
        for words in (["check", "rules", "alerts.yml"], ["test", "rules", "alerts_test.yml"]):
            done = subprocess.run(["promtool", *words], cwd=MONITORING, capture_output=True, text=True)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
            self.assertIn("SUCCESS", done.stdout)

    def test_rules_dashboard_and_documents_know_the_metrics_that_there_are(self):
        self.meters()
        self.view()
        hour = int(time.time()) // 3600 * 3600  # the meters' own records come after half an hour
        write("/mnt/storage/school/1/tc_archives/A1", f"{hour},192,1.000000\n")
        self.prometheus()
        self.wait_for(lambda: self.query('up{job="heatmeter"} == 1'), "a scrape", 60)
        documented = self.asked_for(" ".join(re.findall(r"^\| (`.*?) \| (?:gauge|counter)",
                                                        box.read(f"{MONITORING}/README.md"), re.MULTILINE)))
        of_uplink = {name for name in documented if name.startswith("heatmeter_uplink_")}  # where one is, see its test
        there = self.names() | of_uplink
        rules = box.read(f"{MONITORING}/alerts.yml")
        self.assertEqual(self.asked_for(rules) - there, set())
        dashboard = json.loads(box.read(f"{MONITORING}/grafana.json"))
        expressions = [target["expr"] for panel in dashboard["panels"] for target in panel.get("targets", [])]
        self.assertGreater(len(expressions), 25)
        for expression in expressions:
            self.assertEqual(self.asked_for(expression) - there, set(), expression)
            self.query(expression.replace("$meter", ".*").replace("$__rate_interval", "5m"))
        for variable in dashboard["templating"]["list"]:
            self.assertEqual(self.asked_for(variable.get("definition", "")) - there, set())
        self.assertEqual(documented, there)

    def test_a_password_is_asked_of_prometheus_too(self):
        visitor.publish("m1", T1="1.5")
        self.view("--password-file", visitor.password_file("/tmp/etc/view.passwd", prometheus="right"))
        for path, status in (("/metrics", 401), ("/healthz", 200)):
            self.get(path, status=status)
        key = base64.b64encode(b"prometheus:right").decode()
        self.assertIn('heatmeter_value{meter="m1"', self.get("/metrics", headers={"Authorization": f"Basic {key}"}))
        self.prometheus("    basic_auth: { username: prometheus, password: right }\n")
        self.wait_for(lambda: self.query('up{job="heatmeter"} == 1'), "a scrape", 60)
        self.assertEqual([one["value"][1] for one in self.query('heatmeter_value{name="T1"}')], ["1.5"])

    def test_a_wrong_password_is_seen_as_a_target_that_is_away(self):
        self.view("--password-file", visitor.password_file("/tmp/etc/view.passwd", prometheus="right"))
        self.prometheus("    basic_auth: { username: prometheus, password: wrong }\n")
        self.wait_for(lambda: self.query('up{job="heatmeter"} == 0'), "a scrape", 60)
        self.assertEqual(self.query("heatmeter_value"), [])


if __name__ == "__main__":
    box.main(__file__)
