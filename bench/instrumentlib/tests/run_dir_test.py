"""The run directory: one instrument at a time, leftovers of a killed one removed, logs kept for reading."""

import os
import tempfile
import threading
import unittest

import support  # noqa: F401  (the way to the modules)
from instrumentlib import control
from instrumentlib.errors import BenchError
from instrumentlib.run_dir import RunDir


class RunDirTest(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.path = os.path.join(folder.name, "run")

    def test_a_second_instrument_is_refused_and_told_the_remedy(self):
        first = RunDir(self.path)
        first.claim()
        with self.assertRaisesRegex(BenchError, "runs already.*\n.*--run-dir"):
            RunDir(self.path).claim()
        first.release()
        again = RunDir(self.path)
        again.claim()
        again.release()

    def test_in_use_tells_a_running_instrument(self):
        self.assertFalse(RunDir(self.path).in_use())
        first = RunDir(self.path)
        first.claim()
        self.assertTrue(RunDir(self.path).in_use())
        first.release()
        self.assertFalse(RunDir(self.path).in_use())

    def test_leftovers_of_a_killed_instrument_are_removed(self):
        os.makedirs(os.path.join(self.path, "io"))
        os.symlink("/dev/pts/999", os.path.join(self.path, "controller"))
        os.mkfifo(os.path.join(self.path, "io", "fpga-in.ts"))
        with open(os.path.join(self.path, "commands.log"), "w", encoding="ascii") as log:
            log.write("{}\n")
        run_dir = RunDir(self.path)
        run_dir.claim()
        self.assertFalse(os.path.lexists(run_dir.controller))
        self.assertEqual(os.listdir(run_dir.io), [])
        self.assertEqual(os.path.getsize(run_dir.commands_log), 0)
        run_dir.release()

    def test_the_end_removes_pipes_and_keeps_logs_and_files(self):
        run_dir = RunDir(self.path)
        run_dir.claim()
        os.mkfifo(os.path.join(run_dir.io, "fpga-in.ts"))
        for path in (os.path.join(run_dir.io, "sound.wav"), run_dir.daemon_log):
            with open(path, "w", encoding="ascii") as file:
                file.write("kept")
        run_dir.release()
        self.assertEqual(os.listdir(run_dir.io), ["sound.wav"])
        self.assertEqual(os.path.getsize(run_dir.daemon_log), 4)

    def test_a_picture_of_the_last_run_is_not_taken_for_a_new_one(self):
        os.makedirs(os.path.join(self.path, "io"))
        for name in ("display.ppm", "display.json", "sound.wav", "sound.json", "fpga-out.ts", "fpga-in.ts"):
            with open(os.path.join(self.path, "io", name), "w", encoding="ascii"):
                pass
        run_dir = RunDir(self.path)
        run_dir.claim()
        self.assertEqual(os.listdir(run_dir.io), ["fpga-in.ts"])
        run_dir.release()

    def test_state_without_a_running_instrument_is_an_error_with_the_remedy(self):
        os.makedirs(self.path)
        run_dir = RunDir(self.path)
        run_dir.write_state({"init": 1})
        with self.assertRaisesRegex(BenchError, "no instrument runs.*\n.*bench/instrument run"):
            run_dir.read_state()


class ControlTest(unittest.TestCase):
    def test_requests_work_in_a_directory_of_any_length(self):
        with tempfile.TemporaryDirectory() as folder:
            deep = os.path.join(folder, *["a-rather-long-name"] * 12)
            os.makedirs(deep)
            path = os.path.join(deep, "control")
            server = control.ControlServer(path, lambda request: {"double": request["n"] * 2})
            self.assertEqual(control.ask(path, {"n": 21}), {"double": 42})
            server.close()

    def test_an_error_of_the_supervisor_reaches_the_asker_with_its_remedy(self):
        def refuse(_):
            raise BenchError("the daemon does not run", "start it")
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "control")
            server = control.ControlServer(path, refuse)
            with self.assertRaisesRegex(BenchError, "does not run\n.*start it"):
                control.ask(path, {"action": "daemon pid"})
            server.close()

    def test_a_waiting_request_does_not_hold_up_others(self):
        answered, replies = threading.Event(), []

        def handle(request):
            if request["action"] == "wait":
                return {"in_time": answered.wait(60)}
            answered.set()
            return {}
        with tempfile.TemporaryDirectory() as folder:
            path = os.path.join(folder, "control")
            server = control.ControlServer(path, handle)
            waiter = threading.Thread(target=lambda: replies.append(control.ask(path, {"action": "wait"})))
            waiter.start()
            control.ask(path, {"action": "quick"})
            waiter.join()
            self.assertEqual(replies, [{"in_time": True}])
            server.close()


if __name__ == "__main__":
    unittest.main()
