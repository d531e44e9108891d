"""What `heatmeterctl COMMAND --json` prints, held against docs/schemas."""

import os
import subprocess

FOLDER = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "docs", "schemas")
VALIDATE = """
import json, sys
try:
    import jsonschema
except ImportError:
    sys.exit(77)
schema = json.load(open(sys.argv[1]))
jsonschema.Draft202012Validator.check_schema(schema)
jsonschema.validate(json.load(sys.stdin), schema)
"""


class Schemas:
    """Beside unittest.TestCase."""

    def assert_schema(self, command, text):
        """By the system's own interpreter, for which the package python3-jsonschema is."""
        done = subprocess.run(["/usr/bin/python3", "-c", VALIDATE, f"{FOLDER}/{command}.schema.json"], input=text,
                              capture_output=True, text=True, timeout=20)
        if done.returncode == 77:
            self.skipTest("no python3-jsonschema")
        self.assertEqual(done.returncode, 0, f"{text}: {done.stderr[-500:]}")
