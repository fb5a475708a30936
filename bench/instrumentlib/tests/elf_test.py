"""Where the libraries of the daemon's architecture lie."""

import os
import sys
import sysconfig
import tempfile
import unittest

import support  # noqa: F401  (the way to the modules)
from instrumentlib import elf
from instrumentlib.errors import BenchError


class MultiarchTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "program")

    def of(self, content):
        with open(self.path, "wb") as file:
            file.write(content)
        return elf.multiarch(self.path)

    def header(self, machine):
        return b"\x7fELF\x02\x01\x01" + bytes(9) + b"\x03\x00" + machine.to_bytes(2, "little") + bytes(44)

    def test_a_program_of_this_machine_has_this_machines(self):
        self.assertEqual(elf.multiarch(os.path.realpath(sys.executable)), sysconfig.get_config_var("MULTIARCH"))

    def test_one_for_arm64_has_arm64s(self):
        self.assertEqual(self.of(self.header(183)), "aarch64-linux-gnu")

    def test_a_script_has_this_machines(self):
        self.assertEqual(self.of(b"#!/bin/sh\n"), sysconfig.get_config_var("MULTIARCH"))

    def test_another_machine_is_named(self):
        with self.assertRaisesRegex(BenchError, "ELF machine 243"):
            self.of(self.header(243))


if __name__ == "__main__":
    sys.exit(unittest.main())
