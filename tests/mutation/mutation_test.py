#!/usr/bin/python3
"""The parts of script/mutate: what is changed, what is not, that it goes again, and that nothing leaves the containment."""

import json
import os
import subprocess
import sys
import tempfile
import unittest

FOLDER = os.path.dirname(os.path.realpath(__file__))
sys.dont_write_bytecode = True
sys.path.insert(0, FOLDER)

from mutationlib.cases import topics_of  # noqa: E402  (the path must be set first)
from mutationlib.changes import changes_of, found_again, in_random_order  # noqa: E402
from mutationlib.report import Report, earlier_changes  # noqa: E402
from mutationlib.tree import Tree  # noqa: E402

IS_ROOT = os.geteuid() == 0


def made(line, file="src/x.cpp"):
    """The changes of one line in a function's body, as (kind, old, new)."""
    text = "void f()\n{\n    ;\n    " + line + "\n}\n"
    return {(change.kind, change.old, change.new) for change in changes_of(file, text) if change.line == 4}


class Changes(unittest.TestCase):
    def test_comparisons_are_turned_to_their_opposite_and_to_their_neighbour(self):
        changes = made("x = a <= b;")
        self.assertIn(("comparison turned", "<=", "<"), changes)
        self.assertIn(("comparison turned", "<=", ">"), changes)
        self.assertIn(("comparison turned", "!=", "=="), made("x = a != b;"))

    def test_brackets_of_templates_are_no_comparisons(self):
        self.assertEqual(made("std::vector<std::pair<int, A>> values;"), set())

    def test_numbers_go_up_and_down_in_their_own_notation(self):
        self.assertEqual(made("const unsigned mask = 0x0Fu;"),
                         {("constant off by one", "0x0Fu", "0x10u"), ("constant off by one", "0x0Fu", "0x0Eu")})
        self.assertEqual(made("bool sent = false;"), {("constant turned", "false", "true")})
        self.assertEqual(made("int none = 0;"), {("constant off by one", "0", "1")})

    def test_statements_are_left_out_and_declarations_are_not(self):
        for line in ("call(a, b);", "m_x = y;", "object->part.act();", "++count;", "delete link;", "Q_EMIT changed(x);",
                     "connect(a, [this] { act(); });"):
            self.assertIn(("statement left out", line, ";"), made(line), line)
        for line in ("const auto x = call(y);", "std::string name;", "using std::swap;"):
            self.assertNotIn("statement left out", {kind for kind, _, _ in made(line)}, line)
        self.assertNotIn("statement left out", {kind for kind, _, _ in made("Worker();", "src/worker.h")})

    def test_a_statement_goes_up_to_its_own_end(self):
        text = "void f()\n{\n    call(a,\n        b);\n    other();\n}\n"
        left_out = [change.old for change in changes_of("src/x.cpp", text) if change.kind == "statement left out"]
        self.assertEqual(left_out, ["call(a,\n        b);", "other();"])

    def test_branches_are_inverted_as_a_whole(self):
        self.assertIn(("branch inverted", "a && (b || c)", "!(a && (b || c))"), made("if (a && (b || c))"))
        self.assertIn(("branch inverted", "n >= 0", "!(n >= 0)"), made("if (const int n = g(); n >= 0)"))
        self.assertIn(("branch inverted", "a", "!(a)"), made("x = f(y, a ? b : c);"))

    def test_jumps_are_left_out_and_operators_swapped(self):
        self.assertIn(("jump left out", "break;", ";"), made("break;"))
        self.assertIn(("jump left out", "return x;", ";"), made("return x;"))
        self.assertIn(("operator swapped", "&&", "||"), made("x = a && b;"))
        self.assertIn(("operator swapped", "-", "+"), made("x = a - b;"))
        self.assertIn(("operator left out", "!", ""), made("x = !a;"))

    def test_texts_comments_and_directives_hold_nothing_to_change(self):
        self.assertEqual(made("const char* text = \"if (a < 1) b(); \\\" 2 == 3\";"), set())
        self.assertEqual(made("// if (a < 1) return;"), set())
        self.assertEqual(changes_of("src/x.cpp", "#define MANY 12 \\\n    + 3\n#if A == 1\n"), [])

    def test_every_change_of_a_line_can_be_made(self):
        text = "void f()\n{\n    if (a < 1 && !b)\n        return;\n    c += d - 2;\n}\n"
        for change in changes_of("src/x.cpp", text):
            self.assertNotEqual(change.applied(text), text)

    def test_the_daemons_own_sources_have_many(self):
        worker = os.path.join(FOLDER, "..", "..", "src", "app", "worker.cpp")
        with open(worker, encoding="utf-8") as file:
            kinds = {change.kind for change in changes_of("src/app/worker.cpp", file.read())}
        self.assertLessEqual({"comparison turned", "constant off by one", "statement left out", "branch inverted",
                              "jump left out"}, kinds)


class Order(unittest.TestCase):
    TEXT = "void f()\n{\n" + "".join(f"    call{n}(1, 2);\n" for n in range(50)) + "}\n"

    def test_a_seed_is_an_order_with_one_change_of_each_line(self):
        changes = changes_of("src/x.cpp", self.TEXT)
        order = in_random_order(changes, 7)
        self.assertEqual(order, in_random_order(changes, 7))
        self.assertNotEqual(order, in_random_order(changes, 8))
        self.assertEqual(len({change.line for change in order}), len(order))

    def test_a_change_is_found_again_where_its_line_has_gone(self):
        change = next(c for c in changes_of("src/x.cpp", self.TEXT) if c.kind == "statement left out" and "call30" in c.old)
        moved = self.TEXT.replace("    call2(", "    early();\n    call2(")
        self.assertEqual(found_again(change, changes_of("src/x.cpp", moved)).line, change.line + 1)
        self.assertIsNone(found_again(change, changes_of("src/x.cpp", moved.replace("call30", "call99"))))

    def test_the_longest_path_names_the_topic(self):
        self.assertEqual(topics_of("src/commands/pvr_commands.cpp"), ["pvr"])
        self.assertEqual(topics_of("src/commands/uart_command.h"), ["app"])


class Files(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)

    def path(self, *names):
        return os.path.join(self.folder.name, *names)

    def test_a_change_is_made_in_the_copy_alone_and_taken_out_again(self):
        checkout = self.path("checkout")
        os.makedirs(os.path.join(checkout, "src"))
        text = "void f()\n{\n    call();\n}\n"
        with open(os.path.join(checkout, "src", "x.cpp"), "w", encoding="utf-8") as file:
            file.write(text)
        subprocess.run(["git", "init", "-q", checkout], check=True)
        tree = Tree(checkout, self.path("scratch"), "release")
        tree.refresh()
        change = next(c for c in changes_of("src/x.cpp", text) if c.kind == "statement left out")
        tree.apply(change)
        self.assertEqual(tree.text("src/x.cpp"), text.replace("call();", ";"))
        with open(os.path.join(checkout, "src", "x.cpp"), encoding="utf-8") as file:
            self.assertEqual(file.read(), text)
        tree.restore()
        self.assertEqual(tree.text("src/x.cpp"), text)

    def test_a_report_tells_its_survivors(self):
        first, second = changes_of("src/x.cpp", "void f()\n{\n    call();\n    other();\n}\n")
        report = Report(self.path("report"), {"seed": 7})
        report.add(1, first, "seen", 2.0, {"Suite.Case": {"result": "failed", "said": "Failure"}})
        report.add(2, second, "survived", 3.0)
        self.assertEqual(earlier_changes(report.path + ".json"), [(2, second)])
        self.assertEqual(earlier_changes(report.path + ".json", {1}), [(1, first)])
        self.assertIn("2 changes ran: 1 seen, 1 survived", report.text())


class Runs(unittest.TestCase):
    def results(self, cases, keep_going=True):
        """What the runner says of shell texts, each given two seconds."""
        with tempfile.TemporaryDirectory() as folder:
            order = {"jobs": 2, "keep_going": keep_going, "memory": None, "cases": [
                {"name": name, "command": ["/bin/sh", "-c", text], "directory": folder, "limit": 2,
                 "control": ["/bin/sh", "-c", "[ ! -e busy ]"]} for name, text in cases.items()]}
            done = subprocess.run(["/usr/bin/python3", "-B", os.path.join(FOLDER, "run_cases.py")], check=True,
                                  input=json.dumps(order).encode(), stdout=subprocess.PIPE, timeout=60)
        return {result["name"]: result["result"] for result in map(json.loads, done.stdout.splitlines())}

    def test_how_a_case_ends(self):
        self.assertEqual(self.results({
            "good": "exit 0", "bad": "exit 1", "ended": "kill -SEGV $$", "stuck": "sleep 100",
            "left": "echo '[  SKIPPED ] x'", "once": "[ -e once ] || { : > once; exit 1; }"}),
            {"good": "passed", "bad": "failed", "ended": "failed", "stuck": "time-out", "left": "skipped",
             "once": "unsteady"})

    def test_a_case_that_the_unchanged_program_fails_as_well_tells_nothing(self):
        self.assertEqual(self.results({"slow": ": > busy; exit 1"}), {"slow": "unsteady"})

    def test_it_ends_with_the_first_failure(self):
        cases = {"bad": "exit 1", **{f"late{n}": "sleep 1" for n in range(20)}}
        self.assertLess(len(self.results(cases, keep_going=False)), 5)


@unittest.skipUnless(IS_ROOT, "namespaces need root")
class Containment(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory(dir="/var/tmp")
        self.addCleanup(self.folder.cleanup)
        os.mkdir(os.path.join(self.folder.name, "home"))

    def said(self, shell, *options):
        """What a shell text says inside."""
        done = subprocess.run([os.path.join(FOLDER, "contain"), *options, self.folder.name, "/bin/sh", "-c", shell],
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=60, check=False)
        return done.stdout.decode()

    def test_the_machines_files_can_not_be_written_to(self):
        for path in ("/etc", "/var/tmp", "/home", "/root", "/usr", "/proc/sys/kernel", FOLDER):
            self.assertIn("no", self.said(f"touch {path}/written-by-test 2>/dev/null || echo no"), path)

    def test_the_scratch_folder_forgets_unless_told_to_keep(self):
        written = os.path.join(self.folder.name, "written")
        self.assertIn("there", self.said("echo there > written; cat written"))
        self.assertFalse(os.path.exists(written))
        self.said("echo there > written", "--keep")
        self.assertTrue(os.path.exists(written))

    def test_no_process_no_network_and_no_device_of_the_machine_is_there(self):
        with subprocess.Popen(["sleep", "60"]) as other:
            self.assertIn("no", self.said(f"kill -KILL {other.pid} 2>/dev/null || echo no"))
            self.assertIsNone(other.poll())
            other.terminate()
        self.assertEqual(self.said("cut -d: -f1 -s /proc/net/dev | tr -d ' '").split()[-1:], ["lo"])
        self.assertEqual(self.said("ls /dev").split(), sorted(
            ["fd", "full", "null", "ptmx", "pts", "random", "shm", "urandom", "zero"]))

    def test_root_can_not_stop_the_machine(self):
        effective = int(self.said("sed -n 's/^CapEff:\\s*//p' /proc/self/status"), 16)
        for number in (16, 17, 22, 25):  # modules, raw I/O, reboot, time
            self.assertEqual(effective >> number & 1, 0, number)
        self.assertEqual(effective >> 21 & 1, 1)  # administration: the tests mount


if __name__ == "__main__":
    unittest.main(verbosity=2)
