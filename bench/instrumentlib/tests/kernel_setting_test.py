"""The kernel's receive buffer limit: raised once, put back by the last, repaired after a kill. On files of the test."""

import json
import os
import subprocess
import tempfile
import unittest
from unittest import mock

import support  # noqa: F401  (the way to the modules)
from instrumentlib import kernel_setting


class KernelSettingTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.setting = os.path.join(folder.name, "rmem_max")
        self.record = os.path.join(folder.name, "record")
        self.write(212992)
        for name, path in (("_SETTING", self.setting), ("_RECORD", self.record)):
            patch = mock.patch.object(kernel_setting, name, path)
            patch.start()
            self.addCleanup(patch.stop)

    def write(self, value):
        with open(self.setting, "w", encoding="ascii") as file:
            file.write(str(value))

    def value(self):
        with open(self.setting, encoding="ascii") as file:
            return int(file.read())

    def add_holder(self, pid, start):
        with open(self.record, encoding="ascii") as file:
            record = json.load(file)
        record["holders"].append({"pid": pid, "start": start})
        with open(self.record, "w", encoding="ascii") as file:
            json.dump(record, file)

    def test_raised_while_held_and_put_back(self):
        self.assertEqual(kernel_setting.acquire(), (212992, kernel_setting.NEEDED))
        self.assertEqual(self.value(), kernel_setting.NEEDED)
        self.assertEqual(kernel_setting.release(), (212992, 0))
        self.assertEqual(self.value(), 212992)

    def test_a_greater_value_is_left_alone(self):
        self.write(64_000_000)
        kernel_setting.acquire()
        self.assertEqual(self.value(), 64_000_000)
        kernel_setting.release()
        self.assertEqual(self.value(), 64_000_000)

    def test_stays_raised_for_another_instrument(self):
        kernel_setting.acquire()
        other = subprocess.Popen(["sleep", "60"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        self.add_holder(other.pid, kernel_setting.start_time(other.pid))
        self.assertEqual(kernel_setting.release(), (kernel_setting.NEEDED, 1))

    def test_a_killed_holder_does_not_count(self):
        kernel_setting.acquire()
        self.add_holder(os.getpid(), 1)  # a process of another start time that had this number
        kernel_setting.release()
        self.assertEqual(self.value(), 212992)

    def test_what_a_killed_supervisor_left_is_repaired_at_the_next_start(self):
        with open(self.record, "w", encoding="ascii") as file:
            json.dump({"original": 212992, "raised": kernel_setting.NEEDED,
                       "holders": [{"pid": os.getpid(), "start": 1}]}, file)
        self.write(kernel_setting.NEEDED)
        self.assertEqual(kernel_setting.acquire(), (212992, kernel_setting.NEEDED))
        kernel_setting.release()
        self.assertEqual(self.value(), 212992)

    def test_a_value_that_someone_else_set_meanwhile_is_kept(self):
        kernel_setting.acquire()
        self.write(50_000_000)
        kernel_setting.release()
        self.assertEqual(self.value(), 50_000_000)

    def test_a_damaged_record_is_started_anew(self):
        with open(self.record, "w", encoding="ascii") as file:
            file.write("{\"original\":")
        kernel_setting.acquire()
        self.assertEqual(kernel_setting.release(), (212992, 0))


if __name__ == "__main__":
    unittest.main()
