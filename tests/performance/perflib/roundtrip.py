"""Round trip of a command, idle and under load; what the daemon takes when idle; its start."""

import random
import time

from . import plots, streams
from .session import Failure, median, percentile
from .instrument import CpuMeter, Instrument
from .processes import resident_kib
from .tables import milliseconds, number, table

TITLES = {"idle": "tessary, idle", "bare": "5 ms poll and an answer, nothing else",
          "load-10": "tessary, playing and capture, 10 Mbit/s",
          "load-100": "tessary, playing and capture, 100 Mbit/s"}
_PORT = 5050


def _round_trips(instrument, count):
    dice = random.Random(11)
    taken = []
    for _ in range(count):
        time.sleep(dice.random() / 100)  # at any moment of the poll's period
        begin = time.monotonic()
        instrument.ask_version(20)
        taken.append((time.monotonic() - begin) * 1000)
    return {"median_ms": percentile(taken, 0.5), "p99_ms": percentile(taken, 0.99), "worst_ms": max(taken)}


def _rest(instrument, seconds):
    pid = instrument.daemon_pid()
    meter = CpuMeter(pid)
    time.sleep(seconds)
    return {"cpu_percent": meter.share(), "resident_kib": resident_kib(pid)}


def _start(instrument):
    """From the request to start the daemon to its greeting at the controller's end, and to the first answer."""
    instrument.stop_daemon()
    instrument.drop_input(0.2)
    begin = time.monotonic()
    instrument.start_daemon()
    instrument.read_until(b"HELLO !\r\n", 60)
    greeted = time.monotonic() - begin
    instrument.ask_version(60)  # what is asked during the start waits in the line
    answered = time.monotonic() - begin
    instrument.drop_input(0.2)
    return {"greeting_ms": greeted * 1000, "answer_ms": answered * 1000}


def _idle(session, daemon, name, raw):
    count, seconds = (200, 2) if session.quick else (200, 4)
    with Instrument(session, daemon=daemon) as instrument:
        instrument.wait_for_daemon()
        time.sleep(2)
        raw["trips"][name] = session.rounds("round trip", {name: lambda: _round_trips(instrument, count)})[name]
        raw["rest"][name] = session.rounds("at rest", {name: lambda: _rest(instrument, seconds)})[name]
        raw["start"][name] = session.rounds("start", {name: lambda: _start(instrument)})[name]


def _loaded(session, megabits, raw):
    name = f"load-{megabits}"
    factor = megabits // 5
    path = streams.stuff(f"{session.folder}/load.ts", f"{session.repository}/build/streams/demo.ts", factor, 27000)
    with Instrument(session) as instrument:
        instrument.wait_for_daemon()
        address = instrument.address()
        with instrument.send(path, f"udp://{address}:{_PORT}", "--bitrate", f"{megabits}M") as sender:
            instrument.command(f"server=UDP {address} {_PORT}")
            instrument.write("getethernetmes?\n")  # the capture goes on beside what is played after it
            instrument.drop_input(1.5)
            instrument.command("play=2")
            time.sleep(3)
            sender.check()
            instrument.write("videostatus?\n")
            instrument.read_until(b"running")
            trips = {name: lambda: {**_round_trips(instrument, 200), **_busy(instrument)}}
            raw["trips"][name] = session.rounds("round trip", trips)[name]


def _busy(instrument):
    pid = instrument.daemon_pid()
    meter = CpuMeter(pid)
    time.sleep(1)
    return {"cpu_percent": meter.share(), "resident_kib": resident_kib(pid)}


def measure(session):
    """Trips by load, rest and start by daemon."""
    raw = {"trips": {}, "rest": {}, "start": {}}
    steps = [lambda: _idle(session, None, "idle", raw), lambda: _idle(session, session.program("poll-line"), "bare", raw),
             *([] if session.quick else [lambda: _loaded(session, 10, raw)]), lambda: _loaded(session, 100, raw)]
    for step in steps:
        try:
            step()
        except Failure as error:
            session.problem(f"round trip: {error}")
    return raw


def report(raw, _results):
    """Markdown."""
    trips = [[title, milliseconds(median(values, "median_ms")), milliseconds(median(values, "p99_ms")),
              milliseconds(median(values, "worst_ms")), "–" if tool == "idle" or tool == "bare"
              else f"{median(values, 'cpu_percent'):.0f} %"]
             for tool, title in TITLES.items() if (values := raw["trips"].get(tool))]
    rest = []
    for tool in ("idle", "bare"):
        still, start = raw["rest"].get(tool, []), raw["start"].get(tool, [])
        if still or start:
            resident = median(still, "resident_kib")
            rest.append([TITLES[tool], number(median(still, "cpu_percent"), 2) + " %",
                         number(resident / 1024 if resident else None, 1) + " MiB",
                         milliseconds(median(start, "greeting_ms")), milliseconds(median(start, "answer_ms"))])
    return "\n".join([
        table(["200 × version?", "median", "99th percentile", "longest", "CPU (of one processor)"], trips), "",
        "The poll period of 5 ms is the floor: asked at any moment, an answer waits 2.5 ms in the mean and 5 ms at most.", "",
        table(["at rest", "CPU", "resident", "start to greeting", "start to first answer"], rest)])


def plot(raw, folder):
    """Round trip over the load."""
    loads = {"idle": 0, "load-10": 10, "load-100": 100}
    series = {name: [(loads[tool], median(raw["trips"].get(tool, []), key)) for tool in loads]
              for name, key in (("median", "median_ms"), ("99th percentile", "p99_ms"))}
    plots.lines(f"{folder}/round-trip.svg", "Round trip of version?, playing and capture", "stream, Mbit/s", "milliseconds",
                series)
    return ["round-trip.svg"]
