#!/usr/bin/env python3
"""The page of heatmeter-view in a real browser: what it shows, what it asks, and how it bears what goes wrong."""

import glob
import json
import math
import os
import re
import shutil
import sys
import time
import urllib.request

import box
import keeper
from keeper import RATE

try:
    from selenium import webdriver
except ImportError:  # a package of the system's own interpreter
    sys.path.append("/usr/lib/python3/dist-packages")
    try:
        from selenium import webdriver
    except ImportError:
        webdriver = None

START = "2024-03-02 08:05:00"
ADDRESS = "http://127.0.0.1:8083"
HOUR, DAY = 3600, 86400
YEARS = 10
TEN_YEARS = ("A17", "A18", "A19", "A20", "A21", "A22")
HOSTILE_UUID = "u\"'<img src=x onerror=owned=1>\u202e&%41"
HOSTILE = "<script>owned=1</script><img src=x onerror=owned=1>\"'\u202egnirts\x1b[31m\x07" + "x" * 10000
PHONE, DESK, WALL = (360, 740), (1280, 800), (3840, 2160)
VIEWS = {"overview": "#/", "values": "#/meter/m1/1", "charts": "#/meter/m1/1/charts", "table": "#/meter/m1/1/table",
         "events": "#/meter/m1/1/events"}
DRAWN_WITHIN = 3  # seconds, on a machine that does much else

# Until the chart stands that belongs to a new address, or a click.
DRAW = """
const [action, done] = arguments;
const start = performance.now();
const look = () => {
    const chart = document.querySelector(".chart");
    const stands = chart?.getAttribute("aria-busy") === "false" && chart.querySelector("canvas");
    if (!stands) return requestAnimationFrame(look);
    requestAnimationFrame(() => requestAnimationFrame(() => done(performance.now() - start)));
};
document.querySelector(".chart")?.removeAttribute("aria-busy");
if (action.startsWith("#")) location.hash = action;
else document.getElementById(action).click();
requestAnimationFrame(look);
"""


def write(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(text.encode(errors="surrogateescape"))


def publish(uuid, n=1, **items):
    for name, text in items.items():
        write(f"/tmp/{uuid}/{n}/tc_items/{name}", f"{text}\n")


def store(uuid, name, lines, n=1):
    write(f"/mnt/storage/{uuid}/{n}/tc_archives/{name}", "".join(lines))


class Page(keeper.Keeper):
    def setUp(self):
        super().setUp()
        self.browser = None
        if webdriver is None or not shutil.which("chromium") or not shutil.which("chromedriver"):
            self.skipTest("no chromium, chromium-driver or python3-selenium")

    def tearDown(self):
        if self.browser:
            self.browser.quit()
        super().tearDown()

    # ---- programs

    def view(self, *before):
        view = self.start("heatmeter-view", [*before, f"{self.build}/heatmeter-view"])

        def answers():
            try:
                return urllib.request.urlopen(f"{ADDRESS}/healthz", timeout=2).read() == b"ok\n"
            except OSError:
                return not view.runs()
        self.wait_for(answers, "heatmeter-view")
        self.assertTrue(view.runs(), view.output("stderr"))
        return view

    def open_browser(self):
        options = webdriver.ChromeOptions()
        for word in ("--headless=new", "--no-sandbox", "--disable-gpu", "--disable-dev-shm-usage", "--hide-scrollbars",
                     "--user-data-dir=/tmp/chromium", "--lang=en-US"):
            options.add_argument(word)
        options.set_capability("goog:loggingPrefs", {"browser": "ALL", "performance": "ALL"})
        os.environ["HOME"] = "/tmp"
        service = webdriver.chrome.service.Service("/usr/bin/chromedriver")
        self.browser = webdriver.Chrome(service=service, options=options)
        self.browser.set_script_timeout(30)
        self.browser.get("about:blank")
        for log in ("browser", "performance"):
            self.browser.get_log(log)  # of the browser's own first page
        self.screen(DESK)

    # ---- the browser

    def screen(self, size, dark=False):
        self.size, self.dark = size, dark
        self.browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride", {
            "width": size[0], "height": size[1], "deviceScaleFactor": 1, "mobile": size == PHONE})
        self.browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {
            "features": [{"name": "prefers-color-scheme", "value": "dark" if dark else "light"}]})

    def run_script(self, script, *words):
        return self.browser.execute_script(script, *words)

    def go(self, view):
        self.run_script("location.hash = arguments[0]", view)

    def texts(self, selector="main"):
        """What is to be read there, one text for each element."""
        return self.run_script("return [...document.querySelectorAll(arguments[0])].map((it) => it.innerText)",
                               selector)

    def sees(self, *texts, within="main", patience=10):
        """Soon each of the texts, a regular expression, stands there."""
        def all_there():
            text = "\n".join(self.texts(within))
            return all(re.search(pattern, text) for pattern in texts)
        try:
            self.wait_for(all_there, f"{texts}", patience)
        except AssertionError as error:
            raise AssertionError(f"{error}: {self.texts(within)}") from None

    def drawn(self, action):
        """Seconds until the chart of an address, or after a click, is there."""
        return self.browser.execute_async_script(DRAW, action) / 1000

    def settle(self):
        """Nothing is being read any more."""
        self.wait_for(lambda: self.run_script("return document.readyState === 'complete' && "
                                              "!document.querySelector('[aria-busy=true]')"), "a calm page")

    def pictures_folder(self):
        folder = f"{self.build}/pictures"
        os.makedirs(folder, exist_ok=True)
        return folder

    def measured(self, text):
        """Kept beside the pictures, since what a good test prints is not shown."""
        with open(f"{self.pictures_folder()}/measured.txt", "a", encoding="utf-8") as file:
            file.write(f"{time.strftime('%F %T')} {text}\n")

    def picture(self, name):
        kind = f"{self.size[0]}{'-dark' if self.dark else ''}"
        self.browser.save_screenshot(f"{self.pictures_folder()}/{name}-{kind}.png")

    def assert_fits(self, name):
        wide, room = self.run_script("return [document.documentElement.scrollWidth, innerWidth]")
        self.assertLessEqual(wide, min(room, self.size[0]), f"{name} is wider than {self.size[0]}")

    def assert_clean(self, but="no such text"):
        """Nothing in the console, and no other host was asked."""
        entries = [entry["message"] for entry in self.browser.get_log("browser")]
        self.assertEqual([entry for entry in entries if but not in entry], [])
        events = [json.loads(entry["message"])["message"] for entry in self.browser.get_log("performance")]
        asked = [event["params"]["request"]["url"] for event in events
                 if event["method"] == "Network.requestWillBeSent"]
        self.assertEqual([url for url in asked if not url.startswith((ADDRESS + "/", "data:"))], [])
        return asked


class Words(box.Test):
    def test_each_is_there_in_every_language(self):
        """Also every title of the catalogue."""
        clients = os.path.join(os.path.dirname(os.path.dirname(box.TREE)), "clients")
        titles = set(re.findall(r', +"([^"]+)"\},$', box.read(f"{clients}/contract/catalogue_tables.cpp"), re.M))
        words = {name: json.loads(box.read(f"{clients}/view/page/words.{name}.json")) for name in ("en", "de", "ru")}
        self.assertGreater(len(titles), 60)
        for name in ("de", "ru"):
            self.assertEqual(set(words[name]["titles"]), titles, name)
            self.assertEqual(list(words[name]["words"]), list(words["en"]["words"]), name)
            for key, text in words["en"]["words"].items():
                places = [re.findall(r"\{\w+\}", one) for one in (text, words[name]["words"][key])]
                self.assertEqual(places[0], places[1], key)
        for path in glob.glob(f"{clients}/view/page/*.js"):
            for key in re.findall(r'\bt\("([^"]+)"', box.read(path)):
                self.assertIn(key, words["en"]["words"], path)


class Records(Page):
    """Over files that were planted: ten years of hours of six names, events, and a hostile meter."""

    def setUp(self):
        super().setUp()
        self.hour = int(time.time()) // HOUR * HOUR
        self.first = self.hour - YEARS * 365 * DAY
        publish("m1", MeterModel="KM5-4", SerialNumber="123456", Connected="1", T1="61.500000", T2="40.25", M1="12.5",
                IE1="26543.125", EG="4611686018427387904")
        publish("m1", 2, T1="55.125")
        for index, name in enumerate(TEN_YEARS):
            hole = range(self.hour - (50 + index) * HOUR, self.hour - 40 * HOUR)
            hours = (when for when in range(self.first, self.hour, HOUR) if when not in hole)
            store("m1", name, (self.record(index, when) for when in hours))
        store("m1", "A48", (f"{when},192,{when // DAY % 50}.500000\n" for when in range(self.first, self.hour, DAY)))
        store("m1", "_A57", (f"{self.hour - days * DAY},192,{10 + days % 80}.000000\n" for days in (30, 3, 2)))
        publish(HOSTILE_UUID, MeterModel=HOSTILE, SerialNumber=HOSTILE, T1=HOSTILE, T2="7.25", **{"<b>odd": HOSTILE})

    def record(self, index, when):
        """Warmer by day and in summer; one value is bad."""
        value = 60 + 4 * index + 3 * math.sin(when / DAY * math.tau) + 20 * math.cos(when / DAY / 365.25 * math.tau)
        return f"{when},{0 if when == self.hour - 20 * HOUR else 192},{value:.6f}\n"

    def test_each_view_and_what_it_asks(self):
        self.view()
        self.open_browser()
        self.browser.get(ADDRESS)
        with self.subTest("overview"):
            self.sees("m1\n", "KM5-4", "2 meters|unknown|critical", "System")
            self.sees("live", within="#connection")
        with self.subTest("live"):
            self.live_values()
        with self.subTest("ten years"):
            self.ten_years()
        with self.subTest("zoom"):
            self.zoom()
        with self.subTest("csv"):
            self.csv()
        with self.subTest("table"):
            self.table()
        with self.subTest("languages"):
            self.languages()
        with self.subTest("pictures"):
            self.pictures()
        with self.subTest("hostile"):
            self.hostile()
        self.assert_clean()

    def live_values(self):
        self.go(VIEWS["values"])
        self.sees("temperature 1", r"\b61\.5\b", r"\b26,543\.125\b")
        publish("m1", T1="77.75")
        changed = time.monotonic()
        self.sees(r"77\.75", within="tr.changed", patience=2)
        self.measured(f"a changed value was seen after {time.monotonic() - changed:.2f} s")
        self.assertEqual(len(self.texts("tr.changed")), 1)
        publish("m1", 2, T1="56.5")  # of another system
        self.wait_for(lambda: not self.texts("tr.changed"), "the end of the mark")
        self.go("#/meter/m1/2")
        self.sees(r"\b56\.5\b")

    def ten_years(self):
        names = ",".join(TEN_YEARS)
        self.drawn(f"{VIEWS['charts']}?names=A20&range=week")
        seconds = self.drawn(f"{VIEWS['charts']}?names={names}&range=all")
        self.measured(f"six names over ten years were drawn after {seconds:.2f} s")
        self.assertLess(seconds, DRAWN_WITHIN)
        self.sees("Drawn are the least and the greatest values", within=".note")
        self.sees("Shaded: records are missing", "of bad quality", within=".note")
        self.assertEqual(len(self.texts(".key")), 6)

    def asked_archives(self):
        return [url for url in self.assert_clean() if "/archive?" in url]

    def zoom(self):
        self.assert_clean()
        self.drawn(f"{VIEWS['charts']}?names=A20&range=all")
        whole = self.asked_archives()
        self.assertEqual(len(whole), 1)
        self.run_script("document.querySelector('.chart').focus()")
        self.browser.switch_to.active_element.send_keys("++++++")
        self.wait_for(lambda: "from=" in self.browser.current_url, "a window in the address")
        time.sleep(0.5)
        self.settle()
        asked = self.asked_archives()
        self.assertTrue(0 < len(asked) < 6, asked)  # not once for each step
        ends = [int(end) for end in re.findall(r"(?:from|to)=%40(\d+)", asked[-1])]
        self.assertLess(ends[1] - ends[0], YEARS * 365 * DAY / 16)
        steps = [json.load(urllib.request.urlopen(url, timeout=20))["step"] for url in (whole[0], asked[-1])]
        self.assertLess(steps[1], steps[0])
        window = self.browser.current_url
        self.browser.switch_to.active_element.send_keys("0")
        self.sees("All", within="button[aria-pressed=true]")
        self.browser.get(window)  # the address tells all
        self.browser.refresh()
        self.settle()
        self.assertEqual(self.browser.current_url, window)
        self.assertFalse(self.texts("#choose-all[aria-pressed=true]"))

    def csv(self):
        self.drawn(f"{VIEWS['charts']}?names=A20,A17&range=month")
        path = self.run_script("return document.querySelector('a[download]').href")
        took = urllib.request.urlopen(path, timeout=20).read().decode()
        last = self.hour - HOUR
        said = self.ctl("archive", "m1/1", "--format", "csv", "--names", "A20,A17", "--from", f"@{last + 1 - 31 * DAY}",
                        "--to", f"@{last + 1}")
        self.assertEqual(took, said)
        self.assertGreater(took.count("\n"), 30 * 24 - 60)

    def table(self):
        self.go(f"{VIEWS['table']}?names=A20,A21&range=month")
        self.sees("temperature 1", "temperature 2", "A20")
        self.settle()
        rows = self.texts("tbody tr")
        self.assertTrue(480 < len(rows) <= 500, len(rows))  # with a hole
        # The gateway's zone, three hours east; the reader's is another.
        shown = time.strftime("%-I:%M %p", time.gmtime(self.hour - HOUR + 3 * HOUR))
        self.assertIn(shown, rows[0].replace("\u202f", " "))
        self.assertEqual([number for number, row in enumerate(rows) if "*" in row], [19])
        self.run_script("document.getElementById('older').click()")
        self.wait_for(lambda: len(self.texts("tbody tr")) < 300, "older records")
        self.go(VIEWS["events"])
        self.sees("Code", "Events: 3")

    def languages(self):
        choose = ("const it = document.getElementById(arguments[0]); it.value = arguments[1];"
                  "it.dispatchEvent(new Event('change'))")
        self.screen(PHONE)
        for language, words in (("de", ("Wärmemenge", "Temperatur 1", "vor ")),
                                ("ru", ("тепловая энергия", "температура 1", "назад")),
                                ("en", ("heat", "temperature 1", "ago"))):
            self.go(VIEWS["values"])
            self.run_script(choose, "language", language)
            self.sees(*words, "4611686018427387904")
            self.assertEqual(self.run_script("return document.documentElement.lang"), language)
            for name, view in VIEWS.items():
                self.go(view)
                self.sees(".")
                self.settle()
                self.assert_fits(f"{name} {language}")
            self.picture(language)

    def pictures(self):
        for size, dark in ((PHONE, False), (PHONE, True), (DESK, False), (DESK, True), (WALL, False)):
            self.screen(size, dark)
            for name, view in VIEWS.items():
                self.go(view)
                self.sees(".")
                self.settle()
                if name == "charts":
                    self.drawn("choose-month")
                self.assert_fits(name)
                self.picture(name)
            ground = self.run_script("return getComputedStyle(document.body).backgroundColor")
            light = sum(map(int, re.findall(r"\d+", ground)[:3])) / 3
            self.assertTrue(light < 80 if dark else light > 200, ground)
        self.screen(DESK)

    def hostile(self):
        self.screen(PHONE)
        self.go("#/")
        self.sees("<img src=x onerror=owned=1>", "<script>owned=1</script>")
        self.assert_fits("overview")
        self.run_script("[...document.querySelectorAll('h2 a')].find((it) => it.innerText.includes('<img')).click()")
        self.sees(r"7\.25", "<script>owned=1</script>")
        self.assert_fits("values")
        self.picture("hostile")
        for name in ("charts", "table", "events"):
            self.run_script("document.getElementById(arguments[0]).click()", f"tab-{name}")
            self.settle()
            self.assert_fits(name)
        self.assertIsNone(self.run_script("return window.owned ?? null"))
        self.assertEqual(self.run_script("return document.querySelectorAll('main script, main img').length"), 0)
        self.screen(DESK)


class Troubles(Page):
    """Programs go away and come back."""

    def test_the_daemon_the_view_and_the_clock(self):
        self.start_clock(START, RATE)
        self.meters()
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for_values()
        view = self.view()
        self.open_browser()
        self.browser.get(ADDRESS)
        self.sees("m1", r"\bok\b")
        with self.subTest("the daemon is killed"):
            daemon.end()
            publish("m1", Vi="777.125")  # levels are looked at when something has changed, else each half minute
            self.sees("critical", "no process reads this meter", "What to do: start its process", within="article",
                      patience=40)
            self.assertIn("critical", self.run_script("return document.getElementById('spoken').textContent"))
            self.picture("critical")
            daemon = self.daemon("KM5", "-r", "m1")
            self.wait_for(lambda: self.texts("article .badge")[0].strip() == "ok", "the level to be well again", 40)
            daemon.end()  # what is published from now on stays
        self.assert_clean()
        with self.subTest("the view is killed"):
            self.go(VIEWS["values"])
            self.sees("mass flow 1")
            view.end()
            self.sees("does not answer", "since", within="#banner")
            self.picture("gone")
            self.view()
            self.wait_for(lambda: not self.texts("#banner:not([hidden])"), "the end of the banner", 15)
            self.sees("live", within="#connection")
            publish("m1", M1="4711.5")
            self.sees(r"4,711\.5", patience=2)
        with self.subTest("the clock is set back"):
            self.set_back()
        self.assert_clean(but="net::ERR_")

    def set_back(self):
        self.programs[-1].end()
        earlier = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(self.clock.start - DAY))
        for name in os.listdir("/tmp/m1/1/tc_items"):
            os.utime(f"/tmp/m1/1/tc_items/{name}", (time.time() + 2 * DAY / RATE,) * 2)  # as the programs' clock counts
        self.view("env", f"FAKETIME=@{earlier} x{RATE}")
        self.sees("live", within="#connection", patience=20)
        self.sees("later than the gateway's clock")
        self.assertNotRegex(self.texts()[0], r"-\d+ (sec|min|hr|day)|\bin \d+")
        publish("m1", M1="12.5")
        self.sees(r"M1 · \d+ (sec|min)\. ago", r"\b12\.5\b", patience=3)


if __name__ == "__main__":
    box.main(__file__)
