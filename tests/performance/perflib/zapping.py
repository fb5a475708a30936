"""Zapping: from "play=N" to the first picture on the display and the first sound, live and from a recording."""

import contextlib
import glob
import json
import os
import random
import shutil
import signal
import time

from . import arrival
from .session import Failure, median, span
from .instrument import Instrument
from .processes import Background, Program, run
from .tables import milliseconds, table, verdict

AIM_MS = 100
_PICTURE_MS = 40  # 25 a second
STREAMS = {"mpeg2-0.5s": "MPEG-2, groups of 0.5 s", "mpeg2-2s": "MPEG-2, groups of 2 s",
           "h264-0.5s": "H.264, groups of 0.5 s", "h264-2s": "H.264, groups of 2 s",
           "h265-0.5s": "HEVC, groups of 0.5 s", "h265-2s": "HEVC, groups of 2 s"}
TOOLS = {"ours": "tessary", "playbin": "playbin", "ffplay": "ffplay"}
_QUICK = ("h264-0.5s", "h264-2s")
_PORT, _PROGRAM = 5060, 1
_LONGEST = 12  # seconds that picture and sound may take; ffplay as it is looks at a live stream for 5
_SHORT = ("-analyzeduration", "500000")


class _Outputs:
    """Where display and sound card tell what came out, in one folder."""

    def __init__(self, folder):
        self.folder = folder

    def clear(self):
        """Before a start."""
        for name in ("display.json", "display.ppm", "sound.json"):
            with contextlib.suppress(FileNotFoundError):
                os.unlink(f"{self.folder}/{name}")

    def _told(self, name):
        try:
            with open(f"{self.folder}/{name}", encoding="ascii") as file:
                return json.load(file)
        except (FileNotFoundError, ValueError):
            return {}

    def first_picture(self):
        """Monotonic ns, 0 while there is none."""
        return self._told("display.json").get("first_picture_ns", 0)

    def moving(self):
        """Monotonic ns of the second picture, 0 before."""
        return self._told("display.json").get("moving_ns", 0)

    def first_sound(self):
        """Monotonic ns, 0 while there is none."""
        return self._told("sound.json").get("first_sound_ns", 0)

    def wait(self, begin):
        """Until pictures move and sound is heard; figures in milliseconds from `begin` (monotonic ns)."""
        wanted = {"picture_ms": self.first_picture, "moving_ms": self.moving, "sound_ms": self.first_sound}
        found = {}
        while True:
            for name, look in wanted.items():
                if name not in found and (came := look()) > begin:
                    found[name] = (came - begin) / 1e6
            if len(found) == len(wanted):
                return found
            if time.monotonic_ns() > begin + _LONGEST * 1000000000:
                raise Failure(f"no {', no '.join(sorted(wanted.keys() - found.keys()))} within {_LONGEST} s")
            time.sleep(0.005)


class _Frames(_Outputs):
    """ffplay's window: SDL's dummy display keeps each of its frames as a file; black ones are no picture."""

    def clear(self):
        super().clear()
        for path in glob.glob(f"{self.folder}/*.bmp"):
            os.unlink(path)

    def _picture(self, number):
        """Time of the frame `number` of those that are not black."""
        seen = 0
        for path in sorted(glob.glob(f"{self.folder}/*.bmp"))[:number + 2]:
            with open(path, "rb") as file:
                pixels = file.read()[54:]
            if pixels.count(0) < len(pixels):
                seen += 1
                if seen == number:
                    return os.stat(path).st_mtime_ns - (time.time_ns() - time.monotonic_ns())
        return 0

    def first_picture(self):
        return self._picture(1)

    def moving(self):
        return self._picture(2)


class _Players:
    """The other players, with the stand-ins of the instrument's display, sound card and decoder."""

    def __init__(self, session, in_network):
        self._in_network = in_network  # puts a command into the stream's network
        self._frames = _Frames(f"{session.folder}/frames")
        self._screen = _Outputs(f"{session.folder}/screen")
        plugins = f"{session.folder}/plugins"
        for folder in (self._frames.folder, self._screen.folder, plugins):
            shutil.rmtree(folder, ignore_errors=True)
            os.makedirs(folder)
        self._gather_plugins(plugins, f"{session.build}/bench/elements/libgstinstrument.so")
        self._environment = {
            **os.environ, "ALSA_PLUGIN_DIR": f"{session.build}/bench/elements",
            "ALSA_CONFIG_PATH": f"/usr/share/alsa/alsa.conf:{session.repository}/bench/elements/asound.conf",
            "GST_PLUGIN_SYSTEM_PATH_1_0": plugins, "GST_REGISTRY_1_0": f"{session.folder}/registry.bin",
            "SDL_VIDEODRIVER": "dummy", "SDL_AUDIODRIVER": "alsa", "SDL_VIDEO_DUMMY_SAVE_FRAMES": "1"}
        run(["gst-inspect-1.0", "kmssink"], env=self._environment)  # makes the registry

    @staticmethod
    def _gather_plugins(folder, ours):
        """All of Debian's but the kmssink that drives a real display, and ours."""
        debians = run(["pkg-config", "--variable=pluginsdir", "gstreamer-1.0"]).strip()
        for path in [*glob.glob(f"{debians}/*.so"), ours]:
            if os.path.basename(path) != "libgstkms.so":
                os.symlink(path, f"{folder}/{os.path.basename(path)}")

    def _play(self, outputs, command, ready=None):
        """Times from the program's start, or from when it has printed `ready`; (begin, figures)."""
        outputs.clear()
        environment = {**self._environment, "INSTRUMENT_SOUND": f"{outputs.folder}/sound.wav"}
        begin = time.monotonic_ns()
        program = Program(self._in_network(command), ready, environment)
        if ready:
            begin = time.monotonic_ns()
        try:
            return begin, outputs.wait(begin)
        finally:
            program.end(signal.SIGKILL)

    def playbin(self, uri):
        """From when gst-launch begins to start its pipeline: the daemon runs already, too."""
        sink = f"video-sink=kmssink picture-location={self._screen.folder}/display.ppm max-lateness=200000000"
        return self._play(self._screen, ["gst-launch-1.0", "playbin", f"uri={uri}", sink, "audio-sink=alsasink"],
                          "Setting pipeline to PAUSED")

    def ffplay(self, uri, *options):
        """From its start."""
        return self._play(self._frames, ["env", "-C", self._frames.folder, "ffplay", "-nostats", "-loglevel", "quiet",
                                         *options, uri])


class _Live:
    """One live stream at the instrument, noted as it comes in."""

    def __init__(self, session, instrument, players):
        self._session, self._instrument, self._players = session, instrument, players
        self._outputs = _Outputs(f"{instrument.run_dir}/io")
        self._address, self._dice, self._group = instrument.address(), random.Random(5), 0
        self._capture = f"{session.folder}/arrival.pcap"

    @contextlib.contextmanager
    def stream(self, name):
        """Sends it and takes down when its datagrams come."""
        instrument, path = self._instrument, _path(self._session, name)
        self._group = float(name.partition("-")[2].rstrip("s"))  # seconds of a group of pictures
        note = ["tcpdump", "-i", "eth0", "-w", self._capture, "-U", "-Z", "root", "--immediate-mode", "--snapshot-length=2000",
                "--time-stamp-precision=nano", "udp", "port", str(_PORT)]
        with instrument.send(path, f"udp://{self._address}:{_PORT}") as sender:
            with Background(instrument.in_network(note)):
                time.sleep(1)
                sender.check()
                yield

    def start(self):
        """The daemon plays, and has loaded the decoders."""
        self._instrument.command(f"server=UDP {self._address} {_PORT}")
        self.ours()

    def stop(self):
        """The port is the next one's."""
        self._instrument.command("PVR_stop")

    def ours(self):
        """From one program to the next, at any moment of the stream."""
        time.sleep(0.3 + self._dice.random() * self._group)
        return self._with_stream(*_play(self._instrument, self._outputs))

    def playbin(self):
        """The same stream."""
        return self._with_stream(*self._players.playbin(f"udp://{self._address}:{_PORT}"))

    def ffplay(self, *options):
        """Likewise."""
        return self._with_stream(*self._players.ffplay(f"udp://{self._address}:{_PORT}", *options))

    def _with_stream(self, begin, found):
        """The figures with the stream's own part of them, and what is over it."""
        wait = arrival.stream_wait(self._session.repository, self._capture, begin, _PROGRAM)
        after = {name: (came - begin) / 1e6 for name, came in wait.came.items()}
        due = (wait.sound_due() - begin) / 1e6
        sound = max(due, after["sound"], after["picture"])
        moves = max((wait.picture_due() - begin) / 1e6, after["picture"]) + _PICTURE_MS
        return {**found, "map_ms": after["map"], "key_ms": after["key"], "picture_own_ms": after["picture"],
                "sound_due_ms": due, "sound_own_ms": sound, "moving_own_ms": moves,
                "picture_over_ms": found["picture_ms"] - after["picture"], "sound_over_ms": found["sound_ms"] - sound,
                "moving_over_ms": found["moving_ms"] - moves}


def _play(instrument, outputs):
    """(begin, figures) of the daemon; it begins with the first byte of the command at the controller's end of the line."""
    outputs.clear()
    begin = time.monotonic_ns()
    instrument.write(f"play={_PROGRAM}\n")
    return begin, outputs.wait(begin)


def _measure_live(session, instrument, players, names, raw):
    live = _Live(session, instrument, players)
    for name in names:
        title = f"live, {STREAMS[name]}"
        with live.stream(name):
            live.start()
            # More runs: where the tables and the key picture are just then decides, as much as we do.
            raw[name] = session.rounds(title, {"ours": live.ours}, 3 * session.runs)
            live.stop()
            raw[name].update(session.rounds(title, {"playbin": live.playbin, "ffplay": lambda: live.ffplay(*_SHORT)}, 2))
            if name == "h264-2s":
                raw[name].update(session.rounds(title, {"ffplay-as-is": live.ffplay}, 1))


def _measure_recording(session, instrument, players, names, raw):
    outputs, dice = _Outputs(f"{instrument.run_dir}/io"), random.Random(6)

    def ours():
        time.sleep(0.3 + dice.random() / 100)
        return _play(instrument, outputs)[1]

    for name in names:
        path = _path(session, name)
        shutil.copyfile(path, instrument.card_file("record.ts"))
        instrument.command("PVR_scan")
        ours()  # the decoders are loaded
        tools = {"ours": ours, "playbin": lambda p=path: players.playbin(f"file://{p}")[1],
                 "ffplay": lambda p=path: players.ffplay(p)[1]}
        raw[name] = session.rounds(f"recording, {STREAMS[name]}", {"ours": tools.pop("ours")})
        instrument.command("PVR_stop")
        raw[name].update(session.rounds(f"recording, {STREAMS[name]}", tools, 2))


def _path(session, name):
    path = f"{session.repository}/build/streams/zap-{name}.ts"
    if not os.path.exists(path):
        raise Failure(f"{path} is missing; make it: bench/streams/make-streams --zapping build/streams")
    return path


def measure(session):
    """{"live": {stream: {tool: [runs]}}, "recording": the same}"""
    raw = {"live": {}, "recording": {}}
    names = _QUICK if session.quick else tuple(STREAMS)
    with Instrument(session) as instrument:
        instrument.wait_for_daemon()
        players = _Players(session, instrument.in_network)
        _measure_live(session, instrument, players, names, raw["live"])
        _measure_recording(session, instrument, players, names, raw["recording"])
    return raw


def _row(title, runs, *fields):
    return [title, *(milliseconds(median(runs, field)) for field in fields)]


def _beside(raw, field):
    """Cells of all tools of one stream."""
    return [milliseconds(median(raw.get(tool, []), field)) for tool in TOOLS]


def _verdict(raw, field, what):
    runs = [value for tools in raw.values() for value in tools.get("ours", [])]
    largest = max((median(tools["ours"], field) for tools in raw.values() if tools.get("ours")), default=None)
    return verdict(f"our part of the time to {what} less than {AIM_MS} ms", None if largest is None else largest < AIM_MS,
                   f"medians of the streams up to {milliseconds(largest)}; runs {span(runs, field)} ms")


def report(raw, _results):
    """Markdown."""
    live, recording = raw["live"], raw["recording"]
    ours = {name: tools.get("ours", []) for name, tools in live.items()}
    zap = [_row(STREAMS[name], runs, "picture_ms", "picture_own_ms", "picture_over_ms", "sound_ms", "sound_own_ms",
                "sound_over_ms", "moving_ms", "moving_over_ms") for name, runs in ours.items()]
    own = [_row(STREAMS[name], runs, "map_ms", "key_ms", "picture_own_ms", "sound_due_ms") for name, runs in ours.items()]
    heads = [f"{what}: {TOOLS[tool]}" for what in ("picture", "sound") for tool in TOOLS]
    over = [[STREAMS[name], *_beside(tools, "picture_over_ms"), *_beside(tools, "sound_over_ms")]
            for name, tools in live.items()]
    files = [[STREAMS[name], *_beside(tools, "picture_ms"), *_beside(tools, "sound_ms")] for name, tools in recording.items()]
    as_is = live.get("h264-2s", {}).get("ffplay-as-is", [])
    lines = [table(["live, from \"play=1\"", "first picture", "the stream's own", "ours", "first sound", "the stream's own",
                    "ours", "picture moves", "ours"], zap), "",
             table(["the stream's own part: there is", "PAT and PMT", "the key picture's first byte",
                    "it and what is decoded before it is shown", "the first sound is due"], own), "",
             table(["live, over the stream's own part", *heads], over), ""]
    if as_is:
        lines += [f"ffplay without -analyzeduration shows the live H.264 stream after {milliseconds(median(as_is, 'picture_ms'))}.",
                  ""]
    lines += [table(["from a recording", *heads], files), "",
              _verdict(live, "picture_over_ms", "the first picture, live"), _verdict(live, "sound_over_ms", "the first sound, live"),
              _verdict(recording, "picture_ms", "the first picture of a recording, which is all of it"),
              _verdict(recording, "sound_ms", "its first sound")]
    return "\n".join(lines)


def plot(_raw, _folder):
    """None: the tables say it."""
    return []
