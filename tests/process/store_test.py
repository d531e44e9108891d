#!/usr/bin/env python3
"""heatmeter-store between a real nats-server and a real PostgreSQL."""

import box
from far_end import FarEnd, Publisher, line, message


class Store(FarEnd):
    def test_a_line_that_is_published_stands_in_the_table(self):
        self.start_servers()
        Publisher().make_stream()
        Publisher().publish(message(lines=[line("A1", 1709377200, "12.345000")]))
        self.store_once()
        self.assertEqual(self.lines(), [["g1", "m1", "1", "hourly", "A1", "1709377200", "192", "12.345"]])


if __name__ == "__main__":
    box.main(__file__)
