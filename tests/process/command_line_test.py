#!/usr/bin/env python3
"""What the words on the command line do, as seen from outside."""

import os
import subprocess

import box

RUN_BLOCK = ["#define INIT_FALSE: -2", "#define INIT_HELP: -1", "#define INIT_NORMAL: 0", "#define INIT_VERSION: 2",
             "#define INIT_SINGLEBUS: 3", "Parse uuid..."]


def of_checkout(path):
    """The box has the checkout at its own place, which may be below /tmp."""
    return os.path.commonpath([path, box.TREE]) in (path, box.TREE)


def trees():
    """Every folder and link below /tmp and /mnt/storage that belongs to a meter."""
    return {path for top in ("/tmp", "/mnt/storage") for entry in os.scandir(top) if entry.is_dir()
            for path in [entry.path, *(sub.path for sub in os.scandir(entry.path))] if not of_checkout(path)}


def tree_of(uuid):
    names = ["", *(f"/{n}" for n in range(1, 7)), "/default"]
    return {f"{top}/{uuid}{name}" for top in ("/tmp", "/mnt/storage") for name in names}


class CommandLine(box.Test):
    def run_words(self, *words):
        daemon = self.daemon(*words)
        status = daemon.status()
        return status, daemon.output(), daemon.output("stderr")

    def test_version_is_exactly_two_lines(self):
        done = self.run_words("-v")
        self.assertEqual(done, (0, "2.1.14_26592\niteration delay = 0 minutes, off\n", ""))
        self.assertEqual(box.general_log()[:7], ["Run = 2", *RUN_BLOCK])

    def test_no_words_are_bad_syntax_and_make_nothing(self):
        self.assertEqual(self.run_words(), (0, "Error: bad syntax\n", ""))
        self.assertEqual(trees(), set())
        self.assertEqual(box.general_log()[0], "Run = -2")

    def test_an_unknown_option_is_bad_syntax(self):
        self.assertEqual(self.run_words("KM5", "-x", "u1"), (0, "Error: bad syntax\n", ""))
        self.assertEqual(box.general_log()[0], "Run = -1")

    def test_words_without_an_option_still_make_the_trees_of_the_third_and_later_ones(self):
        self.assertEqual(self.run_words("a", "b", "c", "d"), (0, "Error: bad syntax\n", ""))
        self.assertEqual(trees(), tree_of("c") | tree_of("d"))
        self.assertEqual(os.readlink("/mnt/storage/c/default"), "/mnt/storage/c/1")
        self.assertEqual(os.readlink("/tmp/d/default"), "/tmp/d/1")
        for n in range(1, 7):
            self.assertEqual(box.read(f"/tmp/c/{n}/tc_items/Connected"), "0\n")
            for folder in ("tc_archives", "tmp_archives", "tc_tmp_archives"):
                self.assertTrue(os.path.isdir(f"/mnt/storage/d/{n}/{folder}"))

    def test_a_name_behind_its_option_is_no_name(self):
        self.assertEqual(self.run_words("-r", "KM5", "u1"), (0, "ups..\n", ""))
        self.assertIn("Heat meter name = -r", box.general_log())
        self.assertEqual(box.general_log()[-1], "Heat meter not definded. Exit.")

    def test_an_unknown_name_ends_the_process(self):
        self.assertEqual(self.run_words("KM7", "-r", "u1"), (0, "ups..\n", ""))
        self.assertEqual(box.general_log()[-1], "Heat meter not definded. Exit.")

    def test_a_missing_uuid_ends_without_a_crash(self):
        self.assertEqual(self.run_words("KM5", "-r")[0], 0)

    def test_an_over_long_uuid_does_not_crash(self):
        uuid = "u" * 300
        sim = self.sim("--meter", f"uuid={uuid}", "--dump", "/tmp/dump")
        daemon = self.daemon("KM5", "-r", uuid)
        self.wait_for(lambda: any(line.startswith("Start ") for line in box.general_log()), "the start")
        self.stays(daemon)
        sim.end()
        self.assertEqual(box.read("/tmp/dump").count("get_config"), 2)

    def test_an_over_long_name_does_not_crash(self):
        self.assertEqual(self.run_words("K" * 5000, "-r", "u1")[0], 0)

    def test_a_stale_driver_flag_and_an_old_connected_do_not_survive_a_start(self):
        self.run_words("a", "b", "u1")
        with open("/tmp/DRV_LCK_u1", "w"):
            pass
        subprocess.run("for n in 1 2 3 4 5 6; do echo 1 > /tmp/u1/$n/tc_items/Connected; done", shell=True, check=True)
        self.run_words("a", "b", "u1")
        self.assertFalse(os.path.exists("/tmp/DRV_LCK_u1"))
        self.assertEqual([box.item("u1", "Connected", n) for n in range(1, 7)], ["0"] * 6)


if __name__ == "__main__":
    box.main(__file__)
