"""Tests of script/includes: it finds includes against the arrows between the folders, and no others."""

import os
import subprocess
import tempfile
import unittest

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
PROGRAM = os.path.join(TREE, "script", "includes")


class Includes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.tree = folder.name
        for header in ("src/app/worker.h", "src/commands/reply.h", "src/media/source.h", "src/measure/capture.h",
                       "src/link/port.h", "src/system/shell.h", "client/controller.h", "client/psi/tables.h", "client/tessaryctl/plot.h",
                       "bench/sender/pacer.h", "tests/support/kit.h"):
            self.write(header, "#pragma once\n")

    def write(self, path, text):
        os.makedirs(os.path.join(self.tree, os.path.dirname(path)), exist_ok=True)
        with open(os.path.join(self.tree, path), "w", encoding="utf-8") as file:
            file.write(text)

    def check(self):
        done = subprocess.run([PROGRAM, self.tree], capture_output=True, text=True, check=False)
        return done.returncode, done.stdout.splitlines()

    def expect_wrong(self, path, name):
        self.write(path, f'// a comment\n#include "{name}"\n')
        status, lines = self.check()
        os.remove(os.path.join(self.tree, path))
        self.assertEqual(status, 1, (path, name))
        self.assertEqual(len(lines), 1, lines)
        self.assertTrue(lines[0].startswith(f'{path}:2: "{name}" is against the arrows'), lines)

    def test_along_the_arrows_nothing_is_found(self):
        self.write("src/app/main.cpp", '#include "commands/reply.h"\n#include "media/source.h"\n#include "worker.h"\n')
        self.write("src/media/source.cpp", '#include "media/source.h"\n#include "system/shell.h"\n#include <vector>\n')
        self.write("client/tessaryctl/plot.cpp", '#include "client/controller.h"\n#include "client/psi/tables.h"\n'
                   '#include "client/tessaryctl/plot.h"\n')
        self.write("client/controller.cpp", '#include "client/psi/tables.h"\n')
        self.write("bench/sender/tests/pacer_test.cpp", '#include "client/psi/tables.h"\n')
        self.write("src/link/port.cpp", '// #include "system/shell.h"\n#include "not/here.h"\n')
        self.assertEqual(self.check(), (0, []))

    def test_against_an_arrow_of_the_daemon_it_is_found(self):
        self.expect_wrong("src/system/a.cpp", "link/port.h")
        self.expect_wrong("src/link/a.cpp", "system/shell.h")
        self.expect_wrong("src/media/a.cpp", "measure/capture.h")
        self.expect_wrong("src/measure/a.h", "media/source.h")
        self.expect_wrong("src/commands/a.cpp", "app/worker.h")
        self.expect_wrong("src/commands/a.cpp", "../app/worker.h")

    def test_from_the_daemon_to_the_desk_it_is_found(self):
        self.expect_wrong("src/app/a.cpp", "client/psi/tables.h")
        self.expect_wrong("src/app/a.cpp", "tests/support/kit.h")
        self.expect_wrong("src/app/a.cpp", "bench/sender/pacer.h")

    def test_from_the_desk_to_the_daemon_it_is_found(self):
        self.expect_wrong("client/a.cpp", "src/link/port.h")
        self.expect_wrong("bench/a.cpp", "system/shell.h")

    def test_from_the_library_to_the_tool_it_is_found(self):
        self.expect_wrong("client/a.cpp", "client/tessaryctl/plot.h")
        self.expect_wrong("client/psi/a.cpp", "client/controller.h")
        self.expect_wrong("client/psi/a.cpp", "client/tessaryctl/plot.h")

    def test_this_tree_has_none(self):
        done = subprocess.run([PROGRAM], capture_output=True, text=True, check=False)
        self.assertEqual((done.returncode, done.stdout), (0, ""))

    def test_wrong_arguments_are_told_apart(self):
        done = subprocess.run([PROGRAM, "a", "b"], capture_output=True, text=True, check=False)
        self.assertEqual(done.returncode, 2)


if __name__ == "__main__":
    unittest.main()
