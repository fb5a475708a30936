#!/usr/bin/python3
"""The soak's own parts: what counts as a reply, the order of events, the packages, the times on the command line."""

import argparse
import contextlib
import io
import json
import os
import pathlib
import random
import subprocess
import sys
import tempfile
import tty
import types
import unittest

FOLDER = os.path.dirname(os.path.realpath(__file__))
BENCH = os.path.join(os.path.dirname(os.path.dirname(FOLDER)), "bench")
sys.path[:0] = [FOLDER, BENCH, os.path.join(BENCH, "streams")]

import soak  # noqa: E402  (the path must be set first)
from soaklib import commands, evidence, faults, line, packages, plan, replies, services, streams  # noqa: E402
from streamlib import recipes  # noqa: E402

VERSION = b"SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=OK\n"


class FakePackages:
    """The choice without the package maker."""

    @staticmethod
    def choose(generator):
        return packages.Package("noise", generator.randint(1, 9), b"", b"", True, 60)


def fake_soak(seed, booted=False):
    """As much of a soak as the plan looks at."""
    scene = types.SimpleNamespace(on_air=None, network="dhcp", booted=booted, sender_address="192.168.77.1",
                                  packages=FakePackages, servers=[stream.server for stream in streams.STREAMS])
    made = types.SimpleNamespace(random=random.Random(seed), scene=scene, booted=booted, unit=None, tune=None, retune=None)
    made.retune = lambda: None
    made.play_services = lambda: None
    made.tune = lambda: made.random.random()  # draws as the real one does
    return made


class Replies(unittest.TestCase):
    def check(self, data, *parsers):
        return replies.check(data + VERSION, [*parsers, replies.VERSION_LINE])[1]

    def test_a_silent_command_must_be_silent(self):
        self.assertIsNone(self.check(b"", replies.silent))
        self.assertIsNotNone(self.check(b"x", replies.silent))

    def test_sections_end_where_their_length_says(self):
        section = b"\x42\xf0\x05" + b"12345"
        sdt = replies.sections(0x42, b"<SDT>")
        self.assertIsNone(self.check(b"<SDT>" + section * 2, sdt))
        self.assertIsNone(self.check(b"", sdt))
        self.assertEqual(self.check(b"<SDT>" + section + b"6", sdt), 1)
        self.assertEqual(self.check(section, sdt), 1)
        self.assertEqual(replies.check(b"<SDT>" + section[:-1], [sdt]), ([], 0))

    def test_the_measurement_is_seven_values_or_a_line(self):
        self.assertIsNone(self.check(b"\x01\0\0\0" + b"v" * 20 + b"\x0a\0\0\0", replies.MEASUREMENT))
        self.assertIsNone(self.check(b"not connected\n", replies.MEASUREMENT))
        self.assertEqual(self.check(b"\x01\0\0\0" + b"v" * 19 + b"\x0a\0\0\0", replies.MEASUREMENT), 0)
        self.assertEqual(self.check(b"", replies.MEASUREMENT), 0)

    def test_a_status_ends_with_two_digits_whatever_follows(self):
        status = b"*17_a.FL:02_NS:03$_DS:00"
        self.assertIsNone(self.check(status + b"17327055;2665;", replies.STATUS_FRAME, replies.ARRIVALS))
        self.assertIsNone(self.check(status, replies.STATUS_FRAME))
        self.assertEqual(self.check(status[:-1], replies.STATUS_FRAME), 0)

    def test_a_t2mi_packet_has_the_length_of_its_header(self):
        packet = b"\0\x2a\0\0\0\x09" + b"pp" + b"crc!"
        self.assertIsNone(self.check(packet, replies.t2mi_packet))
        self.assertEqual(self.check(packet + b"?", replies.t2mi_packet), 1)

    def test_a_relayed_block_comes_back_inverted_or_not_at_all(self):
        block = b"dab\n".ljust(117, b"\0")
        self.assertIsNone(self.check(bytes(byte ^ 0xFF for byte in block), replies.inverted_block(block)))
        self.assertIsNone(self.check(b"", replies.inverted_block(block)))
        self.assertEqual(self.check(b"\x9b" * 117, replies.inverted_block(block)), 1)

    def test_several_commands_are_told_apart(self):
        parsers = [replies.STATUS_WORD, replies.INTERFACE_LINE, replies.STATUS_WORD]
        self.assertIsNone(self.check(b"running192.168.77.100 255.255.255.0\n", *parsers))
        self.assertEqual(self.check(b"runningnot connected", *parsers), 1)


class Plan(unittest.TestCase):
    @staticmethod
    def texts(seed, count, booted=False):
        """The bursts among the first events. Functions are left out: they act on an instrument."""
        events = plan.Plan(fake_soak(seed, booted)).events()
        found = (next(events) for _ in range(count))
        return [commands.burst(event.commands) for event in found if isinstance(event, plan.Burst)]

    def test_the_seed_tells_the_order(self):
        self.assertEqual(self.texts(3, 2000), self.texts(3, 2000))
        self.assertNotEqual(self.texts(3, 2000), self.texts(4, 2000))

    def test_a_booted_instrument_is_not_asked_to_reboot_and_its_programs_are_real(self):
        self.assertIn(b"command:reboot\n", b"".join(self.texts(1, 20000)))
        self.assertNotIn(b"command:reboot\n", b"".join(self.texts(1, 20000, booted=True)))
        made = fake_soak(1, booted=True)
        kinds = {type(faults.choose(made)[0]) for _ in range(2000)}
        self.assertEqual(set(faults.TABLE) - kinds, {faults.ProgramFails, faults.ProgramStalls})

    def test_every_command_comes_and_every_burst_fits(self):
        bursts = self.texts(1, 500)
        for kind, (_, make) in commands.TABLE.items():
            word = make(random.Random(0), fake_soak(0).scene).text
            word = b"x" if kind == "unknown" else kind.encode()
            self.assertTrue(any(text.startswith(word) for burst in bursts for text in burst.split(b"\0")), kind)
        for burst in self.texts(2, 20000):
            self.assertLessEqual(len(burst), 640)
            self.assertTrue(burst.endswith(b"\n"))
            self.assertNotIn(b"\0\0", burst)
            self.assertNotIn(b"\n", burst[:-1])  # a read that ends with it would end the burst

    def test_services_are_played_early_and_again(self):
        made = fake_soak(1)
        events = plan.Plan(made).events()
        at = [number for number, event in zip(range(5000), events) if event is made.play_services]
        self.assertLess(at[0], 150)
        self.assertGreater(len(at), 5)

    def test_an_update_is_followed_by_networking(self):
        bursts = self.texts(5, 5000)
        after = [bursts[at + 1] for at, burst in enumerate(bursts[:-1]) if burst.split(b"\0")[-1].startswith(b"update ")]
        self.assertTrue(after)
        self.assertEqual(set(after), {b"command:nmcli networking on\n"})


class Services(unittest.TestCase):
    """Each of these is chosen while the display and the sound file still are the last service's."""

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.report, self.sound = (os.path.join(folder.name, name) for name in ("display.json", "sound.wav"))
        self.put(300, 900_000)
        self.watch = services.Watch(services.FrameCount(self.report), self.sound)

    def put(self, frames, sound_bytes):
        with open(self.report, "w", encoding="ascii") as file:
            json.dump({"frames": frames}, file)
        with open(self.sound, "wb") as file:
            file.truncate(sound_bytes)

    @staticmethod
    def service(name):
        return next(service for service in services.SERVICES if service.name == name)

    def test_television_needs_both(self):
        television = self.service("television")
        for frames, sound_bytes, missing in ((300, 900_000, "picture (0 shown) and sound (0 bytes played)"),
                                             (0, 44, "picture (0 shown) and sound (0 bytes played)"),
                                             (1, 100_000, "picture (1 shown)"), (40, 100_000, "")):
            self.put(frames, sound_bytes)
            self.assertEqual(self.watch.find(television), missing)

    def test_a_picture_that_stands_still_is_none(self):
        self.put(0, 0)
        self.assertTrue(self.watch.find(self.service("picture only")))
        self.put(1, 0)
        self.assertTrue(self.watch.find(self.service("picture only")))
        self.put(30, 0)
        self.assertEqual(self.watch.find(self.service("picture only")), "")

    def test_a_radio_shows_nothing(self):
        radio = self.service("radio, AAC")
        self.put(0, 0)
        self.assertEqual(self.watch.find(radio), "sound (0 bytes played)")
        self.put(0, 100_000)
        self.assertEqual(self.watch.find(radio), "")
        self.put(1, 200_000)
        self.assertRaises(services.Missing, self.watch.find, radio)

    def test_a_picture_alone_is_silent(self):
        self.put(0, 0)
        self.watch.find(self.service("picture only"))
        self.put(30, 5_000)
        self.assertRaises(services.Missing, self.watch.find, self.service("picture only"))

    def test_a_screen_that_changes_shows_a_picture(self):
        watch = services.Watch(services.ScreenChanges(self.report), self.sound)
        self.assertEqual(watch.find(self.service("picture only")), "picture (0 shown)")
        self.assertEqual(watch.find(self.service("picture only")), "picture (0 shown)")
        for frames in range(301, 306):
            self.put(frames, 900_000)
            found = watch.find(self.service("picture only"))
        self.assertEqual(found, "")

    def test_before_anything_was_played_nothing_is_there(self):
        os.remove(self.report)
        os.remove(self.sound)
        watch = services.Watch(services.FrameCount(self.report), self.sound)
        self.assertTrue(watch.find(self.service("television")))

    def test_the_services_are_those_of_the_stream(self):
        made = {program["number"]: recipes.coders(recipes.SERVICES, program) for program in recipes.SERVICES["programs"]}
        undecoded = recipes.announced(recipes.SERVICES)
        self.assertEqual({service.number: (service.picture, service.sound) for service in services.SERVICES},
                         {number: (video is not None, audio is not None and number not in undecoded)
                          for number, (video, audio) in made.items()})


class SerialLine(unittest.TestCase):
    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)
        self.log = os.path.join(self._folder.name, "line.log")
        self.write_log(json.dumps({"dir": "to_daemon", "hex": "00" * 50}) + "\n")  # before this soak's time
        self.far, slave = os.openpty()
        self.addCleanup(os.close, self.far)
        self.addCleanup(os.close, slave)
        tty.setraw(slave)
        self.line = line.Line(os.ttyname(slave), self.log, lambda: None)
        self.addCleanup(self.line.close)

    def write_log(self, text):
        with open(self.log, "a", encoding="ascii") as log:
            log.write(text)

    def test_a_burst_is_taken_when_the_relay_has_passed_all_of_it_and_nothing_is_unread(self):
        unread = [7, 0, 0]
        self.line.unread = lambda: unread.pop(0) if len(unread) > 1 else unread[0]
        self.line.write(b"scancur\n")
        self.assertRaises(line.NoAnswer, self.line.wait_until_taken, 0.2)
        note = json.dumps({"dir": "to_daemon", "hex": b"scancur\n".hex()}) + "\n"
        self.write_log(json.dumps({"dir": "from_daemon", "hex": "00" * 99}) + "\n" + note[:30])
        self.assertRaises(line.NoAnswer, self.line.wait_until_taken, 0.2)
        self.write_log(note[30:])
        self.line.wait_until_taken(60.0)

    def test_an_answer_is_whole_with_its_line_feed(self):
        for part in (b"running" + VERSION[:20], VERSION[20:]):
            os.write(self.far, part)
        received = self.line.read_while(lambda sofar: not line.has_versions(sofar, 1), "the answer", 60.0)
        self.assertEqual(received, b"running" + VERSION)
        with self.assertRaises(line.NoAnswer) as missing:
            self.line.read_while(lambda sofar: not line.has_versions(sofar, 1), "the answer", 0.1)
        self.assertEqual(missing.exception.received, b"")


class Evidence(unittest.TestCase):
    def test_of_a_booted_instrument_tells_what_each_thread_does_and_what_was_shown(self):
        def run(*words):
            return subprocess.run(words, stdout=subprocess.PIPE, text=True, check=False).stdout
        with tempfile.TemporaryDirectory() as folder:
            run_dir = pathlib.Path(folder)
            (run_dir / "display.ppm").write_text("P6")
            unit = types.SimpleNamespace(run_dir=folder, booted=True, shared=run_dir.joinpath, run=lambda *words: run(
                *[word.replace("sleep", "true") for word in words]))
            evidence.keep(run_dir / "kept", unit, os.getpid(), [], "it fell")
            self.assertIn("python3: ", (run_dir / "kept" / "threads.txt").read_text())
            self.assertEqual((run_dir / "kept" / "display.ppm").read_text(), "P6")


class CommandLine(unittest.TestCase):
    def test_times(self):
        for text, seconds in (("20", 1200), ("90s", 90), ("10m", 600), ("1h", 3600), ("0.5h", 1800)):
            self.assertEqual(soak.duration(text), seconds)
        for text in ("", "0", "-5", "1d", "soon"):
            self.assertRaises(argparse.ArgumentTypeError, soak.duration, text)

    def test_a_booted_instrument_has_its_packages_daemon(self):
        self.assertIn("amd64", soak.parse(["--machine", "amd64"]).tried)
        with contextlib.redirect_stderr(io.StringIO()) as said, self.assertRaises(SystemExit):
            soak.parse(["--machine", "amd64", "--daemon", "/bin/true"])
        self.assertIn("goes without --daemon", said.getvalue())


if __name__ == "__main__":
    unittest.main()
