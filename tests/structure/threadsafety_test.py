"""The static checks find what is used without the mutex that guards it."""

import os
import shutil
import subprocess
import tempfile
import unittest

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
SOURCE = """
#include "system/mutex.h"

struct Table
{{
    Mutex mutex;
    int bytes GUARDED_BY(mutex) = 0;
    void add() REQUIRES(mutex) {{ ++bytes; }}
}};

int read(Table& table)
{{
    {statement}
    return 0;
}}
"""


@unittest.skipUnless(shutil.which("clang-tidy"), "clang-tidy is not installed (script/bootstrap --with-checks)")
class ThreadSafety(unittest.TestCase):
    def findings(self, statement):
        with tempfile.TemporaryDirectory() as folder:
            source = os.path.join(folder, "table.cpp")
            with open(source, "w", encoding="utf-8") as file:
                file.write(SOURCE.format(statement=statement))
            done = subprocess.run(
                ["clang-tidy", "--quiet", f"--config-file={TREE}/.clang-tidy", source, "--", "-std=c++17",
                 f"-I{TREE}/src", "-Wthread-safety"], capture_output=True, text=True, check=False)
        return done.returncode, done.stdout

    def expect_found(self, statement):
        status, output = self.findings(statement)
        self.assertNotEqual(status, 0, statement)
        self.assertIn("clang-diagnostic-thread-safety", output, statement)

    def test_what_is_guarded_is_used_with_its_mutex_only(self):
        self.assertEqual(self.findings("const MutexLock lock(table.mutex); table.add(); return table.bytes;"), (0, ""))
        self.assertEqual(self.findings("if (table.mutex.try_lock()) { table.add(); table.mutex.unlock(); }"), (0, ""))
        self.expect_found("return table.bytes;")
        self.expect_found("table.add();")
        self.expect_found("table.mutex.lock();")
        self.expect_found("table.mutex.try_lock(); table.add(); table.mutex.unlock();")


if __name__ == "__main__":
    unittest.main()
