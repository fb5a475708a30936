#!/usr/bin/python3
"""Tests of what script/performance computes and makes by itself: streams, medians, tables, the page."""

import os
import struct
import sys
import tempfile
import time
import unittest
import unittest.mock

FOLDER = os.path.dirname(os.path.realpath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(FOLDER))
sys.dont_write_bytecode = True
sys.path.insert(0, FOLDER)
from perflib import arrival, capture, framecost, report, session, streams, tables, zapping  # noqa: E402


def sections_of(data):
    """[(PID, section)] of a stream whose sections may be longer than a packet."""
    found, open_sections = [], {}
    for at in range(0, len(data), streams.PACKET):
        packet = data[at:at + streams.PACKET]
        pid, payload = (packet[1] & 0x1F) << 8 | packet[2], packet[4:]
        if packet[1] & 0x40:
            open_sections[pid] = payload[1:]
        elif pid in open_sections:
            open_sections[pid] += payload
        section = open_sections.get(pid, b"")
        length = 3 + ((section[1] & 0x0F) << 8 | section[2]) if len(section) > 3 else 0
        if length and len(section) >= length:
            found.append((pid, section[:length]))
            del open_sections[pid]
    return found


class Streams(unittest.TestCase):
    def test_every_service_has_its_tables_with_right_checksums(self):
        packets = streams.tables_module(REPOSITORY)
        sections = sections_of(streams.multiplex(REPOSITORY, 300, 1000, cycles=1))
        self.assertTrue(all(packets.crc32(section) == 0 for _, section in sections))
        listed = {}
        for pid, section in sections:
            if pid == 0:
                listed.update(packets.program_map_pids(section))
        self.assertEqual(sorted(listed), list(range(1, 301)))
        maps = {(section[3] << 8 | section[4]): pid for pid, section in sections if section[0] == 0x02}
        self.assertEqual(maps, listed)
        self.assertTrue(all(len(section) <= 1024 for _, section in sections))

    def test_a_repetition_continues_the_counters(self):
        once = streams.multiplex(REPOSITORY, 3, 100)
        last = {}
        for at in range(0, 2 * len(once), streams.PACKET):
            packet = (once + once)[at:at + streams.PACKET]
            pid = (packet[1] & 0x1F) << 8 | packet[2]
            self.assertEqual(packet[3] & 15, (last.get(pid, packet[3] - 1) + 1) & 15)
            last[pid] = packet[3] & 15

    def test_a_written_stream_has_whole_packets(self):
        with tempfile.TemporaryDirectory() as folder:
            path = streams.write(f"{folder}/s.ts", b"\x47" * 188 * 3, 1000)
            self.assertEqual(streams.size_of(path), 5 * 188)
            stuffed = streams.stuff(f"{folder}/t.ts", path, 4, 2)
            self.assertEqual(streams.size_of(stuffed), 8 * 188)


def _stamp(ticks, mark):
    return bytes([mark << 4 | ticks >> 29 & 0x0E | 1, ticks >> 22 & 0xFF, ticks >> 14 & 0xFE | 1, ticks >> 7 & 0xFF,
                  ticks << 1 & 0xFE | 1])


class Zapping(unittest.TestCase):
    """A stream of program 7, fed packet by packet; each comes a millisecond after the one before."""

    TICKS = 3600  # of 90 kHz, of a picture

    def setUp(self):
        self.wait, self.now = arrival.StreamWait(REPOSITORY, 7), 0
        self.packets = streams.tables_module(REPOSITORY)

    def packet(self, pid, payload, starts=True, flags=None, clock=0):
        """With adaptation flags and a clock, which bench/streams does not make."""
        field = b""
        if flags is not None:
            reference = (clock << 15).to_bytes(6, "big") if flags & 0x10 else b""
            field = bytes([1 + len(reference), flags]) + reference
        payload += b"\xff" * (184 - len(field) - len(payload))
        self.now += 1000000
        head = bytes([0x47, (0x40 if starts else 0) | pid >> 8, pid & 0xFF, 0x30 if field else 0x10])
        self.wait.feed(self.now, head + field + payload)
        return self.now

    def section(self, pid, table_id, extension, body):
        return self.packet(pid, b"\x00" + self.packets.section(table_id, extension, body, private=0))

    def tables(self):
        self.section(0, 0x00, 1, (7).to_bytes(2, "big") + (0xE000 | 0x30).to_bytes(2, "big"))
        streams_of_program = b"".join(bytes([kind]) + (0xE000 | pid).to_bytes(2, "big") + b"\xf0\x00"
                                      for kind, pid in ((0x1B, 0x31), (0x03, 0x32)))
        return self.section(0x30, 0x02, 7, (0xE000 | 0x31).to_bytes(2, "big") + b"\xf0\x00" + streams_of_program)

    def picture(self, decoded, shown, key=False):
        """The first packet of a picture; times in pictures."""
        stamps = _stamp(shown * self.TICKS, 3) + _stamp(decoded * self.TICKS, 1)
        return self.packet(0x31, b"\0\0\1\xe0\0\0\x80\xc0\x0a" + stamps, flags=0x40 if key else None)

    def sound(self, shown, size):
        return self.packet(0x32, b"\0\0\1\xc0" + (size - 6).to_bytes(2, "big") + b"\x80\x80\x05" + _stamp(shown * self.TICKS, 2))

    def test_a_picture_is_there_when_those_decoded_before_its_turn_are(self):
        self.picture(0, 0, key=True)  # nobody knows yet that it is one
        mapped = self.tables()
        self.picture(1, 1)
        key = self.picture(2, 4, key=True)
        for decoded, shown in ((3, 7), (4, 5)):  # the second is decoded in the moment that the key picture is shown
            self.picture(decoded, shown)
        self.assertNotIn("picture", self.wait.came)
        whole = self.picture(5, 6)
        self.picture(6, 6)
        self.assertEqual(self.wait.came, {"map": mapped, "key": key, "picture": whole})

    def test_a_picture_without_reordering_is_there_when_the_next_begins(self):
        self.tables()
        self.picture(1, 1, key=True)
        whole = self.picture(2, 2)
        self.assertEqual(self.wait.came["picture"], whole)

    def test_sound_is_there_with_its_last_byte_and_due_by_the_streams_clock(self):
        self.tables()
        for clock in (0, 90, 180):  # a tick of 90 kHz for each packet: the stream's clock is the packets' count
            reference = self.packet(0x31, b"", starts=False, flags=0x10, clock=clock)
        self.sound(2, 184 + 1)
        self.assertNotIn("sound", self.wait.came)
        last = self.packet(0x32, b"", starts=False)
        self.assertEqual(self.wait.came["sound"], last)
        self.sound(9, 184)
        self.assertEqual(self.wait.came["sound"], last, "the first one")
        self.assertEqual(self.wait.sound_due(), reference - 2000000 + 2 * 40000000)

    def test_a_capture_is_read_from_a_moment_on(self):
        realtime_ahead = time.time_ns() - time.monotonic_ns()
        with tempfile.NamedTemporaryFile() as file:
            file.write(struct.pack("=IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 2000, 1))
            for came in (1000000000, 2000000000):
                at = came + realtime_ahead
                file.write(struct.pack("=IIII", at // 1000000000, at % 1000000000, 45, 45) + b"h" * 42 + b"abc")
            file.write(struct.pack("=IIII", 0, 0, 45, 45) + b"cut off")
            file.flush()
            [(came, data)] = arrival.datagrams(file.name, 1500000000)
        self.assertEqual(data, b"abc")
        self.assertAlmostEqual(came, 2000000000, delta=5000000)

    def test_only_what_comes_after_the_beginning_counts(self):
        with tempfile.TemporaryDirectory() as folder:
            outputs = zapping._Outputs(folder)  # pylint: disable=protected-access
            for name, text in (("display.json", '{"first_picture_ns":3000000,"moving_ns":5000000}'),
                               ("sound.json", '{"first_sound_ns":4000000}')):
                with open(f"{folder}/{name}", "w", encoding="ascii") as file:
                    file.write(text)
            self.assertEqual(outputs.wait(1000000), {"picture_ms": 2, "moving_ms": 4, "sound_ms": 3})
            with unittest.mock.patch.object(zapping, "_LONGEST", 0):
                with self.assertRaisesRegex(session.Failure, "no picture_ms within"):
                    outputs.wait(3000000)
            outputs.clear()
            self.assertEqual(os.listdir(folder), [])


class Figures(unittest.TestCase):
    def test_median_worst_and_percentile(self):
        runs = [{"a": 3}, {"a": 1}, {"a": 10}, {"b": 5}]
        self.assertEqual((session.median(runs, "a"), session.worst(runs, "a"), session.median([], "a")), (3, 10, None))
        self.assertEqual(session.percentile(range(200), 0.99), 198)
        self.assertIsNone(session.ratio(1, 0))

    def test_no_loss_proves_nothing_below_the_rate(self):
        self.assertTrue(tables.met_without_loss(0, 99000, 100000))
        self.assertIsNone(tables.met_without_loss(0, 50000, 100000))
        self.assertFalse(tables.met_without_loss(1, 50000, 100000))


CALLGRIND = """desc: D1 cache: 32768 B, 64 B, 8-way associative
events: Ir Dr Dw I1mr D1mr D1mw ILmr DLmr DLmw
fn=outer(int, char const*)
10 30 5 5 1 2 1 0 0 1
11 10
cfn=inner
calls=2 4
12 60 10 20 0 4
fn=inner
4 60 10 20 0 4
summary: 100 15 25 1 6 1 0 0 1
"""


class Callgrind(unittest.TestCase):
    def test_counts_are_those_of_a_frame_and_calls_count_where_they_lead(self):
        counts = framecost.counts_of(CALLGRIND.splitlines(keepends=True), 10)
        self.assertEqual(counts["symbols"], {"outer": 4, "inner": 6})
        self.assertEqual(counts["cache"], "32 KiB, 8 ways")
        self.assertAlmostEqual(framecost.model_cycles(counts), (100 + 10 * 8 + 100) / 10)

    def test_a_report_has_a_row_for_each_cache_and_one_without_callgrind_has_none(self):
        counts = framecost.counts_of(CALLGRIND.splitlines(keepends=True), 10)
        raw = {"times": [{"wholeCallback/7": 50.5, "streamAlone": 0.5}], "callgrind": {"32 KiB": counts}}
        text = framecost.report(raw, {})
        self.assertIn("| 32 KiB, 8 ways | 10 | 4 | 0.7 | 28 |", text)
        self.assertIn("in at most 50 ns: **met** (50.0 ns", text)
        del raw["callgrind"]
        self.assertNotIn("| 32 KiB", framecost.report(raw, {}))


class Capture(unittest.TestCase):
    def test_each_aim_is_told_by_its_own_rate(self):
        def runs(processor, lost=0):
            return [{"rate": 199000, "sent": 1000, "lost": lost, "cpu_per_million": processor}]

        raw = {tool: {} for tool in capture.TITLES}
        raw["ours"] = {"100000": runs(1.05), "200000": runs(3)}
        raw["bare"] = {"100000": runs(1), "200000": runs(1)}
        text = capture.report(raw, {})
        self.assertIn("no loss at 200,000 datagrams a second: **met**", text)
        self.assertIn("CPU at most 1.05 times the bare counter at 100,000 a second: **met**", text)
        raw["ours"] = {"100000": runs(1.06), "200000": runs(1, lost=1)}
        self.assertEqual(capture.report(raw, {}).count("**not met**"), 2)


class Page(unittest.TestCase):
    def test_a_part_is_replaced_and_the_rest_kept(self):
        begin, end = report.MARK.format("begin", "scan"), report.MARK.format("end", "scan")
        text = f"before\n{begin}\nold\n{end}\nafter\n"
        replaced = report.replace_part(text, "scan", "new")
        self.assertEqual(replaced, f"before\n{begin}\nnew\n{end}\nafter\n")
        self.assertEqual(report.replace_part(replaced, "scan", "new"), replaced)

    def test_the_page_of_the_tree_has_a_place_for_every_line(self):
        with open(f"{REPOSITORY}/docs/performance.md", encoding="utf-8") as file:
            page = file.read()
        for name in ("run", "capture", "frame-cost", "scan", "live-scan", "zapping",
                     "recording", "export", "round-trip", "panel", "growth"):
            self.assertEqual(page.count(report.MARK.format("begin", name)), 1, name)
            self.assertEqual(page.count(report.MARK.format("end", name)), 1, name)


if __name__ == "__main__":
    unittest.main()
