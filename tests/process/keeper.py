"""What tests of heatmeterctl share: a keeper at a shell, beside simulated meters and the daemon that reads them."""

import json
import os
import subprocess
import time

import box
import schemas

LINE = "/tmp/heatmeter-line"
CONTROL = "/tmp/control"
RATE = 60
TWO_PERIODS = 2 * 360 / RATE + 12  # real seconds, and what the programs take on a machine that does much else
EXIT = {"ok": 0, "warning": 1, "critical": 2, "unknown": 3}
FAMILIES = {"KM5": "type=km5", "VIST": "type=vist,serial=7,devices=1",
            "VISTmodbus": "type=vist-modbus,serial=5,devices=1", "SA94": "type=sa94,serial=74565"}


class Keeper(schemas.Schemas, box.Test):
    def ctl(self, *words, statuses=(0,)):
        environment = self.clock.environment() if self.clock else dict(os.environ)
        done = subprocess.run([f"{self.build}/heatmeterctl", *words], capture_output=True, text=True, timeout=60,
                              env=environment)
        self.assertIn(done.returncode, statuses, f"{words}: {done.stdout}{done.stderr}")
        return done.stdout

    def meters(self, *words):
        return self.sim("--control", CONTROL, "--history-days", "0.1", *words)

    def tell(self, *words):
        done = subprocess.run([f"{self.sim_build}/heatmeter-sim", "--tell", CONTROL, *words], capture_output=True,
                              text=True, timeout=20)
        self.assertEqual(done.returncode, 0, f"{words}: {done.stdout}{done.stderr}")

    def status(self):
        return json.loads(self.ctl("status", "--json", statuses=range(4)))

    def reasons(self, status=None):
        """Those of the gateway, and those of the meters."""
        status = status or self.status()
        return status["gateway"]["reasons"], sum((meter["reasons"] for meter in status["meters"]), [])

    def assert_reason(self, reason, gateway=(), level="critical", patience=TWO_PERIODS):
        """Within the time status names this, and nothing else, and goes on doing so."""
        expected = (list(gateway), [reason])
        end = time.monotonic() + patience
        while self.reasons() != expected:
            if time.monotonic() > end:
                self.fail(f"not {expected} but {self.reasons()}:\n{self.ctl('status', statuses=range(4))}")
            time.sleep(0.3)
        text = self.ctl("status", statuses=range(4))
        self.assertEqual(self.reasons(), expected)
        self.assertIn(f"({reason})", text)
        self.assertIn(self.status()["level"], (level, "critical") if level == "warning" else (level,))
        self.ctl("status", statuses=[EXIT[self.status()["level"]]])
        return text

    def wait_for_values(self):
        self.wait_for(lambda: box.item("m1", "M1"), "values", 60)

