#!/usr/bin/env python3
"""What heatmeter-view tells programs is what heatmeterctl tells them."""

import json

import box
import keeper
import visitor

RATE = 240  # an archive is read half an hour after the start
OF_THE_MOMENT = ("time", "age_s", "free")


def without_moment(value):
    """What does not change between two questions."""
    if isinstance(value, list):
        return [without_moment(one) for one in value]
    if isinstance(value, dict):
        return {name: without_moment(one) for name, one in value.items() if name not in OF_THE_MOMENT}
    return value


class SameWords(visitor.Visitor, keeper.Keeper):
    def test_of_both_programs(self):
        self.start_clock("2024-03-02 08:05:00", RATE)
        self.sim("--history-days", "0.5", "--meter", "uuid=m1,model=2,events=2")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: len(box.archive("m1", "A1")) > 5 and box.archive("m1", "_A57"), "archives", 90)
        daemon.end()  # from now on nothing changes
        self.view()
        status = self.get("/api/meters")
        self.assert_schema("status", status)
        self.assertEqual(without_moment(json.loads(status)), without_moment(self.status()))
        values = self.get("/api/meters/m1/1/values")
        self.assert_schema("values", values)
        self.assertEqual(json.loads(values), json.loads(self.ctl("values", "m1", "--json")))
        events = self.get("/api/meters/m1/1/events")
        self.assertEqual(json.loads(events)["events"], json.loads(self.ctl("events", "m1", "--json"))["events"])
        for words, options in (("", []), ("&names=A12,A1", ["--names", "A12,A1"]), ("&quality=1", ["--quality"]),
                               ("&long=1&good=1", ["--long", "--good"]), ("&by=record", ["--by", "record"]),
                               ("&from=@1709359200&epoch", ["--from", "@1709359200", "--epoch"]),
                               ("&to=2024-03-02+07:00", ["--to", "2024-03-02 07:00"]),
                               ("&kind=events", ["--events"])):
            for form in ("csv", "json"):
                if form == "json" and ("quality" in words or "long" in words or "epoch" in words):
                    continue
                told = self.get(f"/api/meters/m1/1/archive?format={form}{words}")
                wanted = self.ctl("archive", "m1", "--format", form, *options)
                self.assertEqual(told, wanted, f"{form}{words}")
        self.assertGreater(self.ctl("archive", "m1", "--format", "csv").count("\n"), 5)


if __name__ == "__main__":
    box.main(__file__)
