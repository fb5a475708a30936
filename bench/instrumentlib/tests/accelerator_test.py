"""Which processor a booted instrument gets, and that it is tried once."""

import os
import tempfile
import unittest
from unittest import mock

import support  # noqa: F401  (the way to the modules)
from instrumentlib import accelerator


class AcceleratorTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.tries = os.path.join(self.folder, "tries")

    def choose(self, script, device="/dev/null", processor="x86_64", seconds=20):
        program = os.path.join(self.folder, "qemu")
        with open(program, "w", encoding="ascii") as file:
            file.write(f"#!/bin/sh\necho >>{self.tries}\n{script}\n")
        os.chmod(program, 0o755)
        with mock.patch.multiple(accelerator, _DEVICE=device, _TRIAL_SECONDS=seconds, say=lambda _: None), \
                mock.patch("platform.machine", lambda: processor):
            return accelerator.choose("amd64", program, "q35", "/kernel", self.folder)

    def tried(self):
        return os.path.getsize(self.tries) if os.path.exists(self.tries) else 0

    def test_a_guest_that_comes_to_its_end_has_the_machines_processor(self):
        self.assertEqual(self.choose("exit 0"), "kvm")

    def test_a_guest_that_hangs_is_emulated(self):
        self.assertEqual(self.choose("exec sleep 60", seconds=0.2), accelerator.EMULATED)

    def test_a_refused_device_is_emulated(self):
        self.assertEqual(self.choose("exit 1"), accelerator.EMULATED)

    def test_the_trial_is_made_once_until_the_machine_boots_again(self):
        for _ in range(2):
            self.choose("exit 1")
        self.assertEqual(self.tried(), 1)

    def test_no_trial_without_the_device_or_for_another_processor(self):
        self.assertEqual(self.choose("exit 0", device="/dev/none"), accelerator.EMULATED)
        self.assertEqual(self.choose("exit 0", processor="aarch64"), accelerator.EMULATED)
        self.assertEqual(self.tried(), 0)


if __name__ == "__main__":
    unittest.main()
