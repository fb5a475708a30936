"""The command line: what is wrong with it is said together with the remedy."""

import os
import subprocess
import sys
import tempfile
import unittest

from support import BENCH
from instrumentlib import privilege, subcommands
from instrumentlib.errors import BenchError


MAY_BOOT = os.geteuid() == 0 and not privilege.is_users_own()


def call(*arguments, within=()):
    command = [*within, os.path.join(BENCH, "instrument"), *arguments]
    return subprocess.run(command, capture_output=True, text=True, check=False)


class CommandLineTest(unittest.TestCase):
    def test_each_command_has_help(self):
        for command in ("run", "exec", "daemon", "link", "power", "card", "break", "commands", "behave", "status", "stop"):
            result = call(command, "--help")
            self.assertEqual(result.returncode, 0, command)
            self.assertIn("--run-dir", result.stdout, command)

    def test_pairs_name_an_existing_source_and_an_absolute_target(self):
        with tempfile.NamedTemporaryFile() as file:
            pairs = subcommands._pairs("--file", [f"{file.name}=/home/x/../y"])
            self.assertEqual(pairs, [(os.path.realpath(file.name), "/home/y")])
            for wrong in (f"{file.name}", f"{file.name}=relative", "/no/such/file=/x"):
                with self.assertRaises(BenchError):
                    subcommands._pairs("--file", [wrong])

    def test_environment_values_may_hold_equals_signs(self):
        self.assertEqual(subcommands._environment(["A=b=c", "D="]), {"A": "b=c", "D": ""})
        with self.assertRaises(BenchError):
            subcommands._environment(["NOVALUE"])

    def test_status_of_nothing_is_3(self):
        with tempfile.TemporaryDirectory() as folder:
            result = call("status", "--run-dir", folder)
        self.assertEqual(result.returncode, 3)
        self.assertIn("no instrument runs", result.stdout)

    def test_a_request_without_an_instrument_names_the_remedy(self):
        with tempfile.TemporaryDirectory() as folder:
            for arguments in (["stop"], ["link", "down"], ["daemon", "pid"]):
                result = call(*arguments, "--run-dir", folder)
                self.assertEqual(result.returncode, 1)
                self.assertIn("remedy: start one", result.stderr)

    def test_commands_are_printed_as_whole_lines(self):
        with tempfile.TemporaryDirectory() as folder:
            with open(os.path.join(folder, "commands.log"), "w", encoding="ascii") as log:
                log.write('{"argv": ["a"]}\n{"argv": ["b"]}\n{"argv": ["sp')
            result = call("commands", "--run-dir", folder)
        self.assertEqual(result.stdout, '{"argv": ["a"]}\n{"argv": ["b"]}\n')

    @unittest.skipUnless(MAY_BOOT, "a booted instrument needs root")
    def test_a_machine_takes_none_of_the_virtual_instruments_options(self):
        for option in (["--wrapper", "strace"], ["--no-daemon"], ["--bind", "/dev/null=/x"], ["--daemon-env", "A=b"]):
            result = call("run", "--machine", "amd64", *option)
            self.assertEqual(result.returncode, 1)
            self.assertIn(f"{option[0]} is the virtual instrument's", result.stderr)

    @unittest.skipUnless(MAY_BOOT, "a booted instrument needs root")
    def test_missing_packages_are_named_with_the_command_that_makes_them(self):
        with tempfile.TemporaryDirectory() as folder:
            result = call("run", "--machine", "amd64", "--packages", folder, "--run-dir", os.path.join(folder, "run"))
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr, "script/package --arch amd64|script/bootstrap --with machine")

    @unittest.skipUnless(os.geteuid() == 0, "root is asked for its privileges first")
    def test_a_missing_build_is_named_with_its_build_command(self):
        with tempfile.TemporaryDirectory() as folder:
            result = call("run", "--build", os.path.join(folder, "release"), "--run-dir", folder)
        self.assertEqual(result.returncode, 1)
        self.assertIn("cmake --build --preset release", result.stderr)

    def test_others_than_root_are_told_to_use_sudo(self):
        # A user namespace without users makes nobody of root, who can still read this tree.
        self.assertIn("sudo", call("run", within=["unshare", "--user"] if os.geteuid() == 0 else []).stderr)


if __name__ == "__main__":
    sys.exit(unittest.main())
