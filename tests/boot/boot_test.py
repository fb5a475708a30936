#!/usr/bin/python3
"""What tests/boot computes by itself: the capture with VLAN tags, the greeting in the line's log."""

import contextlib
import io
import json
import os
import struct
import subprocess
import sys
import tempfile
import threading
import types
import unittest
import unittest.mock

sys.dont_write_bytecode = True
import boot  # noqa: E402
import tessary  # noqa: E402  (of this build: PYTHONPATH)
from bootlib import machine, places, power, tagged  # noqa: E402

sys.path.insert(0, str(places.TREE / "bench"))
from instrumentlib import booted, errors  # noqa: E402


FLOW = tagged.Flow(vlan=100, group="239.1.2.3", port=1234, bit_rate=8 * 1316 * 100)
FRAME = 18 + 28 + 1316


def packet(pid, has_payload=True):
    return bytes((0x47, pid >> 8, pid & 0xFF, 0x15 if has_payload else 0x25)) + bytes(184)


class TaggedCapture(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.TemporaryDirectory()
        self.addCleanup(self.folder.cleanup)
        self.capture = os.path.join(self.folder.name, "a.pcap")

    def written(self, packets, seconds, error_times=()):
        """The capture's frames."""
        stream = os.path.join(self.folder.name, "a.ts")
        with open(stream, "wb") as file:
            file.write(b"".join(packets) + b"rest")
        tagged.write(self.capture, stream, FLOW, seconds, error_times)
        with open(self.capture, "rb") as file:
            data = file.read()[24:]
        return [data[at + 16:at + 16 + FRAME] for at in range(0, len(data), 16 + FRAME)]

    def test_each_frame_has_the_tag_and_its_time(self):
        frames = self.written([packet(256)] * 14, 0.05)
        self.assertEqual(len(frames), 5)
        self.assertEqual(frames[0][:6].hex(), "01005e010203")
        self.assertEqual(struct.unpack("!HHH", frames[0][12:18]), (0x8100, 100, 0x0800))
        self.assertEqual(struct.unpack("!HH", frames[0][18 + 22:18 + 26]), (1234, 8 + 1316))
        self.assertEqual(tagged.gaps(self.capture), [10_000] * 4)

    def test_counters_go_on_over_the_files_end_and_stand_without_payload(self):
        frames = self.written([packet(256)] * 6 + [packet(256, has_payload=False)], 0.03)
        self.assertEqual([frame[46 + 188 * at + 3] & 15 for frame in frames for at in range(7)],
                         [0, 1, 2, 3, 4, 5, 5, 6, 7, 8, 9, 10, 11, 11, 12, 13, 14, 15, 0, 1, 1])

    def test_an_error_is_one_jump_by_two_that_no_null_packet_takes(self):
        frames = self.written([packet(0x1FFF)] + [packet(256)] * 6, 0.04, [0.015, 0.025])
        counters = [frame[46 + 188 * at + 3] & 15 for frame in frames for at in range(1, 7)]
        jumps = [(later - earlier) % 16 for earlier, later in zip(counters, counters[1:])]
        self.assertEqual([at for at, jump in enumerate(jumps, 1) if jump != 1], [12, 18])
        self.assertEqual({jump for jump in jumps if jump != 1}, {2})


class Greeting(unittest.TestCase):
    def greeting(self, chunks):
        log = "".join(json.dumps({"t": at, "dir": "from_daemon", "hex": text.encode().hex()}) + "\n" for at, text in chunks)
        return machine.Machine(types.SimpleNamespace(log=lambda _: log)).greeting_after(1000)

    def test_that_of_an_earlier_start_does_not_count(self):
        with self.assertRaises(machine.Failed):
            self.greeting([(10, "HELLO !\r\n")])
        self.assertAlmostEqual(self.greeting([(10, "HELLO !\r\n"), (2_000_001_000, "HELLO !\r\n")]), 2.0)

    def test_it_may_come_in_pieces(self):
        self.assertAlmostEqual(self.greeting([(2000, "\0HEL"), (1_000_001_000, "LO !\r\n")]), 1.0)


class Steps(unittest.TestCase):
    def test_a_program_of_the_desk_that_fails_misses_its_step_alone(self):
        def fail(*_):
            raise subprocess.CalledProcessError(1, "strip")
        with contextlib.redirect_stdout(io.StringIO()) as told, unittest.mock.patch.dict(boot.STEPS, update=fail):
            self.assertFalse(boot.run_step("update", None, None))
        self.assertIn("FAILED: Command 'strip'", told.getvalue())


class AfterAPowerCut(unittest.TestCase):
    """A machine that was cut while a kernel was copied: it copies, has no staging any more, goes down, and comes up."""

    def setUp(self):
        self.states = ["", "stopping", tessary.TessaryError("down"), "offline", "starting"]
        self.asked_in = []

    def shell(self, text):
        if "is-system-running" not in text:
            return ""
        state = self.states[0] if len(self.states) == 1 else self.states.pop(0)
        if isinstance(state, Exception):
            raise state
        return state

    def test_a_machine_on_its_way_down_is_not_asked_whether_it_is_in_order(self):
        fake = types.SimpleNamespace(shell=self.shell, run=lambda *_: "", cut_power_and_boot=lambda: 1.0,
                                     wait_until=machine.Machine.wait_until,
                                     is_in_order=lambda: self.asked_in.append(list(self.states)) or "1.4")
        with contextlib.redirect_stdout(io.StringIO()):
            power.power_cuts(fake, types.SimpleNamespace(power_cuts=1))
        self.assertEqual(self.asked_in, [["starting"]])


class PowerOn(unittest.TestCase):
    """The desk's machine. Where a kernel is staged, it is copied at the start, and the machine starts again."""

    def setUp(self):
        self.states = ["starting", errors.BenchError("the machine's agent refuses guest-exec-status"), "", "stopping", "", "running"]

    def answers(self, _):
        return self.states[0] != "" or bool(self.states.pop(0))

    def run_inside(self, *_):
        state = self.states.pop(0)
        if isinstance(state, Exception):
            raise state
        return 0, state.encode() + b"\n", b""

    def test_a_machine_that_starts_again_is_waited_for(self):
        module = booted.BootedModule(types.SimpleNamespace(scratch="", boot_log=""), None)
        module._agent = types.SimpleNamespace(answers=self.answers, run=self.run_inside)
        module._program = types.SimpleNamespace(ended=threading.Event())  # it is on
        self.assertEqual(module.handle("power", {"what": "on"}), {"systemd": "running"})
        self.assertEqual(self.states, [])


if __name__ == "__main__":
    unittest.main()
