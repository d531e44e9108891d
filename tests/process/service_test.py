#!/usr/bin/env python3
"""The configuration service, right and wrong, and the port that it names."""

import json

import box

SENDING = "Error while sending data!\n"
RECEIVING = "Error while receiving data!\n"


class ConfigurationService(box.Test):
    def test_without_a_service_the_process_goes_on_without_settings(self):
        daemon = self.daemon("KM5", "-r", "m1", "m2")
        self.wait_for(lambda: daemon.output("stderr") == SENDING * 3, "three lost calls")
        self.assertIn("open_tty = , fd = -1", box.general_log())
        self.stays(daemon)

    def test_an_answer_that_is_no_json_ends_the_process(self):
        self.sim("--service", "nonsense")
        daemon = self.daemon("KM5", "-r", "m1")
        self.assertEqual(daemon.status(), 1)
        self.assertEqual(daemon.output("stderr"), "Parse error!\n" + RECEIVING)
        self.assertIn("Received: Good morning!", daemon.output())

    def test_a_connection_closed_without_an_answer_ends_the_process(self):
        self.sim("--service", "mute")
        daemon = self.daemon("KM5", "-r", "m1")
        self.assertEqual(daemon.status(), 1)
        self.assertEqual(daemon.output("stderr"), RECEIVING)

    def test_a_meter_that_the_service_does_not_know_is_never_asked(self):
        self.sim("--meter", "uuid=m1", "--trace", "/tmp/trace")
        daemon = self.daemon("KM5", "-r", "stranger")
        self.wait_for(lambda: "open_tty = , fd = -1" in box.general_log(), "the port")
        self.assertIn("tc_sernum: 0\n", daemon.output())
        self.stays(daemon)
        self.assertEqual(box.read("/tmp/trace"), "")

    def test_the_calls_are_numbered_from_1000(self):
        sim = self.sim("--meter", "uuid=m1", "--meter", "uuid=m2", "--dump", "/tmp/dump")
        daemon = self.daemon("KM5", "-r", "m1", "m2")
        self.wait_for(lambda: daemon.output().count("Received: ") == 3, "three answers")
        daemon.end()
        self.assertEqual(sim.end(), 0)
        calls = [json.loads(line.partition(" ")[2]) for line in box.read("/tmp/dump").splitlines()
                 if line.startswith("request ")]
        expected = [{"jsonrpc": "2.0", "id": 1000 + k, "method": "get_config", "params": [uuid]}
                    for k, uuid in enumerate(["m1", "m1", "m2"])]
        self.assertEqual(calls, expected)

    def test_a_port_that_does_not_open_is_told_and_the_process_goes_on(self):
        self.sim("--meter", "uuid=m1,port=/dev/no-such-port")
        daemon = self.daemon("KM5", "-r", "m1")
        self.wait_for(lambda: 'Start "run_main" driver iterations' in box.general_log(), "the start")
        self.assertIn("open_tty = /dev/no-such-port, fd = -1", box.general_log())
        self.stays(daemon)
        self.assertEqual(box.item("m1", "Connected"), "0")


if __name__ == "__main__":
    box.main(__file__)
