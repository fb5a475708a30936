#!/usr/bin/python3
"""make-streams as a program, and its parts: SI tables, the check of a finished multiplex."""
import importlib.util
import os
import pathlib
import subprocess
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
STREAMS = pathlib.Path(__file__).resolve().parents[2] / "bench" / "streams"
SAMPLES = pathlib.Path(os.environ.get("TESSARY_SAMPLES", STREAMS.parents[2] / "shared" / "samples"))
sys.path.insert(0, str(STREAMS))
from streamlib import packets, recipes, t2mi, tables  # noqa: E402  (needs the path above)


def make(folder, *arguments, environment=None):
    return subprocess.run([STREAMS / "make-streams", *arguments, folder], capture_output=True, text=True, env=environment)


def oracle():
    """The independent stream reader beside the recorded streams, or None."""
    path = SAMPLES / "oracle.py"
    if not path.exists():
        return None
    spec = importlib.util.spec_from_file_location("oracle", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


class Tables(unittest.TestCase):
    SERVICES = recipes.DEMO["programs"]

    def test_crc_is_that_of_the_standard(self):
        self.assertEqual(packets.crc32(b"123456789"), 0x0376E6E7)

    def test_sections_end_with_their_crc(self):
        for section in (tables.nit(recipes.NETWORK, self.SERVICES), tables.sdt(recipes.NETWORK, self.SERVICES)):
            self.assertEqual(packets.crc32(section), 0)
            self.assertEqual(len(section), 3 + (((section[1] & 0x0F) << 8) | section[2]))

    def test_names_are_coded_in_their_character_table(self):
        self.assertEqual(tables.encode_text("Café", "latin1"), b"\x10\x00\x01Caf\xe9")
        self.assertEqual(tables.encode_text("Grün", "iso6937"), b"Gr\xc8un")
        self.assertEqual(tables.encode_text("Blå", "utf8"), b"\x15Bl\xc3\xa5")
        with self.assertRaises(UnicodeEncodeError):
            tables.encode_text("Ж", "iso6937")

    def test_nit_is_byte_exact(self):
        network = {"id": 0x1234, "original_id": 0x5678, "stream_id": 0x9ABC, "name": "N", "coding": "iso6937"}
        section = tables.nit(network, [{"number": 7, "type": 1}])
        self.assertEqual(section[:-4].hex(), "40f028" "1234c10000" "f003" "40014e" "f018"
                         "9abc5678f012" "4103000701" "5a0b02d344401f812affffffff")

    def test_sdt_is_byte_exact(self):
        network = {"id": 1, "original_id": 0x5678, "stream_id": 0x9ABC, "name": "N", "coding": "iso6937"}
        section = tables.sdt(network, [{"number": 7, "type": 1, "name": "S", "coding": "iso6937"}])
        self.assertEqual(section[:-4].hex(), "42f018" "9abcc10000" "5678ff" "0007fc8007" "480501014e0153")


class MadeStreams(unittest.TestCase):
    """The quickest stream and the demo's stream, made once for all cases."""

    @classmethod
    def setUpClass(cls):
        cls.temporary = tempfile.TemporaryDirectory(prefix="tessary-streams-")
        cls.folder = pathlib.Path(cls.temporary.name)
        cls.made = make(cls.folder, "--only", "demo.ts", "--only", "mpeg4-mp3.ts")

    @classmethod
    def tearDownClass(cls):
        cls.temporary.cleanup()

    def test_making_says_what_it_does_and_leaves_only_the_streams(self):
        self.assertEqual((self.made.returncode, self.made.stderr), (0, ""))
        self.assertIn("[1/2] demo.ts: making", self.made.stdout)
        self.assertEqual(sorted(p.name for p in self.folder.iterdir()),
                         [".demo.ts.stamp", ".mpeg4-mp3.ts.stamp", "demo.ts", "mpeg4-mp3.ts"])

    def test_a_made_stream_is_kept(self):
        before = (self.folder / "demo.ts").stat().st_mtime_ns
        again = make(self.folder, "--only", "demo.ts")
        self.assertEqual((again.returncode, again.stdout), (0, "[1/1] demo.ts: already made\n"))
        self.assertEqual((self.folder / "demo.ts").stat().st_mtime_ns, before)

    def test_a_damaged_stream_is_made_again(self):
        path = self.folder / "mpeg4-mp3.ts"
        data = path.read_bytes()
        path.write_bytes(data[:-188])
        again = make(self.folder, "--only", "mpeg4-mp3.ts")
        self.assertIn("mpeg4-mp3.ts: making", again.stdout)
        packets.check(path.read_bytes(), {1: [0x10, 0x03]})

    def test_the_check_finds_each_fault(self):
        good = (self.folder / "demo.ts").read_bytes()[:188 * 20000]
        types = recipes.stream_types(recipes.DEMO)
        packets.check(good, types)
        at = {pid: offset for offset, pid, _ in packets.packets(good)}
        lost = good[:at[256] - 188 * 3000] + good[at[256] - 188 * 2900:]
        wrong_crc = bytearray(good)
        wrong_crc[at[16] + 20] ^= 1
        other = bytearray(good)
        other[at[17]:at[17] + 188] = packets.section_packet(good[at[17]:], tables.sdt(recipes.NETWORK, []))
        faults = {"continuity": (lost, types), "CRC": (wrong_crc, types), "2 versions of the SDT": (other, types),
                  "programs": (good, {1: types[1]}), "stream types": (good, {1: [2, 3], 2: [2, 3], 3: [27, 3]}),
                  "sync": (b"\0" + good[1:], types), "whole number": (good[:-1], types)}
        for text, (data, wanted) in faults.items():
            with self.assertRaisesRegex(packets.StreamError, text):
                packets.check(bytes(data), wanted)

    def test_an_independent_reader_finds_tables_and_no_errors(self):
        reader = oracle()
        if reader is None:
            self.skipTest(f"no recorded streams and no reader at {SAMPLES}")
        done = subprocess.run([sys.executable, SAMPLES / "oracle.py", "--brief", self.folder / "demo.ts"],
                              capture_output=True, text=True, check=True)
        for text in ("CC errors strict 0", "'bps_188': 5000000", "16:0x40(NIT)", "17:0x42(SDT)", "name='Café Tessary'",
                     "name='Tessary Grün'", "name='Tessary Blå'", "'name': 'Tessary Test Network', 'ts_count': 1"):
            self.assertIn(text, done.stdout)
        self.assertNotIn("bad", done.stdout)


    def test_t2mi_gives_back_the_stream_in_both_modes(self):
        reader = oracle()
        if reader is None:
            self.skipTest(f"no recorded streams and no reader at {SAMPLES}")
        for name in ("demo-t2mi.ts", "demo-t2mi-normal.ts"):
            made = make(self.folder, "--only", name)
            self.assertEqual((made.returncode, made.stderr), (0, ""))
            inner = self.folder / "inner.ts"
            done = subprocess.run([sys.executable, SAMPLES / "oracle.py", "--t2mi", f"{t2mi.STREAM_PID},1", "--out", inner,
                                   self.folder / name], capture_output=True, text=True, check=True)
            self.assertEqual(inner.read_bytes(), (self.folder / "demo.ts").read_bytes(), name)
            for text in ('"crc32_bad": 0', '"syncd_errors": 0', '"packet_count_errors": 0', '"resyncs": 0'):
                self.assertIn(text, done.stdout)
            for path in (inner, self.folder / name, self.folder / f".{name}.stamp"):
                path.unlink()


    def test_groups_of_pictures_are_as_long_as_said(self):
        self.assertEqual(make(self.folder, "--only", "zap-mpeg2-0.5s.ts").returncode, 0)
        path = self.folder / "zap-mpeg2-0.5s.ts"
        heads = [packets.payload(packet)[:14] for _, pid, packet in packets.packets(path.read_bytes())
                 if pid == 256 and packet[1] & 0x40 and packet[3] & 0x20 and packet[5] & 0x40]  # random access
        for made in (path, self.folder / ".zap-mpeg2-0.5s.ts.stamp"):
            made.unlink()
        shown = [(head[9] & 0x0E) << 29 | head[10] << 22 | (head[11] & 0xFE) << 14 | head[12] << 7 | head[13] >> 1
                 for head in heads]
        apart = [(after - before) / 3600 for before, after in zip(shown, shown[1:])]  # in pictures of 40 ms
        self.assertGreater(len(apart), 20)
        self.assertEqual(set(apart[1:]), {12}, "but the first")


class T2mi(unittest.TestCase):
    def test_crc8_is_that_of_the_standard(self):
        self.assertEqual(t2mi.crc8(b"123456789"), 0xBC)

    def test_a_baseband_header_is_byte_exact(self):
        data = b"".join(bytes([0x47, 0x1F, 0xFF, 0x10]) + bytes(184) for _ in range(30))
        normal = list(t2mi.baseband_frames(data, False))
        self.assertEqual([len(frame) for frame in normal], [4836, 4836])
        self.assertEqual(normal[0][:9].hex(), "f000" "05e0" "96d0" "47" "0000")
        self.assertEqual(normal[1][:9].hex(), "f000" "05e0" "1970" "47" "01f0")  # 814 bytes; a packet starts at byte 62
        self.assertEqual(normal[0][9], t2mi.crc8(normal[0][:9]))
        efficient = list(t2mi.baseband_frames(data, True))
        self.assertEqual(efficient[0][:9].hex(), "f000" "0000" "96d0" "00" "0000")
        self.assertEqual(efficient[0][9], t2mi.crc8(efficient[0][:9]) ^ 1)


class Failures(unittest.TestCase):
    def test_a_missing_ffmpeg_is_named_with_its_package(self):
        with tempfile.TemporaryDirectory() as folder:
            done = make(folder, environment={"PATH": folder})
            self.assertEqual(done.returncode, 1)
            self.assertIn("apt-get install ffmpeg", done.stderr)

    def test_a_failing_ffmpeg_leaves_nothing_behind(self):
        with tempfile.TemporaryDirectory() as folder:
            tool = pathlib.Path(folder) / "bin" / "ffmpeg"
            tool.parent.mkdir()
            tool.write_text("#!/bin/sh\n[ \"$1\" = -version ] && echo version 0 && exit 0\n"
                            "echo 'Unknown encoder' >&2\nexit 1\n")
            tool.chmod(0o755)
            out = pathlib.Path(folder) / "out"
            done = make(out, "--only", "demo.ts", environment={"PATH": f"{tool.parent}:/usr/bin:/bin"})
            self.assertEqual(done.returncode, 1)
            self.assertIn("Unknown encoder", done.stderr)
            self.assertEqual(list(out.iterdir()), [])

    def test_wrong_arguments_are_refused(self):
        done = subprocess.run([STREAMS / "make-streams"], capture_output=True, text=True)
        self.assertEqual(done.returncode, 2)
        self.assertIn("give the folder", done.stderr)


if __name__ == "__main__":
    unittest.main()
