#!/usr/bin/python3
"""What tests/boot computes by itself: the capture with VLAN tags, the greeting in the line's log."""

import json
import os
import struct
import sys
import tempfile
import types
import unittest

sys.dont_write_bytecode = True
from bootlib import machine, tagged  # noqa: E402


class TaggedCapture(unittest.TestCase):
    def test_each_frame_has_the_tag_and_its_time(self):
        with tempfile.TemporaryDirectory() as folder:
            stream, capture = os.path.join(folder, "a.ts"), os.path.join(folder, "a.pcap")
            payload = bytes(range(188)) * 7
            with open(stream, "wb") as file:
                file.write(payload * 2 + b"rest")
            tagged.write(capture, stream, 100, "239.1.2.3", 1234, 8 * 1316 * 100)
            with open(capture, "rb") as file:
                data = file.read()
        frame = data[24 + 16:][:18 + 28 + 1316]
        self.assertEqual(len(data), 24 + 2 * (16 + len(frame)))
        self.assertEqual(frame[:6].hex(), "01005e010203")
        self.assertEqual(struct.unpack("!HHH", frame[12:18]), (0x8100, 100, 0x0800))
        self.assertEqual(struct.unpack("!HH", frame[18 + 22:18 + 26]), (1234, 8 + 1316))
        self.assertEqual(frame[-1316:], payload)
        first, second = (struct.unpack("<II", data[at:at + 8]) for at in (24, 24 + 16 + len(frame)))
        self.assertEqual((second[0] - first[0]) * 1_000_000 + second[1] - first[1], 10_000)


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


if __name__ == "__main__":
    unittest.main()
