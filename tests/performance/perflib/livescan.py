"""Scan of a live stream: from the command to PAT and all PMTs, on streams that repeat them every 100 ms."""

import contextlib
import random
import time

from . import plots, scan, streams
from .session import Failure, median, span
from .instrument import Instrument
from .processes import run_json
from .tables import milliseconds, table, verdict

TITLES = {"daemon": "tessary, from \"scancur\" on the line", "ours": "tessary's scan in a process of its own",
          "bare": "the same elements, bare", "ffprobe-short": "ffprobe -analyzeduration 0.5 s",
          "ffprobe": "ffprobe, as it is"}
_PORT, _SILENT_PORT = 5040, 5041
AIM_CHANGE_MS = 50


class _Scene:
    """A running instrument with one stream."""

    def __init__(self, session, instrument, programs):
        self._session, self._instrument, self._programs = session, instrument, programs
        self._address = instrument.address()
        self._dice = random.Random(7)

    def _pause(self):
        """So that each scan meets the tables' cycle at another place."""
        time.sleep(0.3 + self._dice.random() / 10)

    def daemon(self):
        """What the daemon prints tells what it has found."""
        self._pause()
        instrument = self._instrument
        before = len(instrument.log("daemon"))
        begin = time.monotonic()
        instrument.write("scancur\n")
        while time.monotonic() - begin < 15:
            said = instrument.log("daemon")[before:]
            if "new PAT" in said and said.count("new PMT received") >= self._programs:
                taken = (time.monotonic() - begin) * 1000
                instrument.ask_version()
                instrument.command("PVR_stop")  # the port is the next one's
                return {"tables_ms": taken}
            time.sleep(0.001)
        raise Failure(f"only {said.count('new PMT received')} of {self._programs} PMTs within 15 s")

    def ours(self):
        """Without the line and the poll."""
        self._pause()
        program = [self._session.program("scan-measure"), "udp", self._address, str(_PORT), str(self._programs)]
        return self._tables(run_json(self._instrument.in_network(program)))

    def bare(self):
        """The elements alone."""
        self._pause()
        source = f"udpsrc port={_PORT} buffer-size=30000000 do-timestamp=false"
        program = [self._session.program("scan-elements"), str(self._programs), "udp", *scan.pipeline(source)]
        return self._tables(run_json(self._instrument.in_network(program)))

    @staticmethod
    def _tables(value):
        return {"tables_ms": max(value["pat_ms"], value["pmts_ms"])}

    def ffprobe(self, *options):
        """Start of the program included."""
        self._pause()
        command = ["ffprobe", "-v", "quiet", *options, "-show_entries", "program=program_id",
                   f"udp://{self._address}:{_PORT}"]
        return {"tables_ms": scan.run_timed(self._instrument.in_network(command), 60)}


@contextlib.contextmanager
def _streaming(session, file, *options):
    with Instrument(session) as instrument:
        instrument.wait_for_daemon()
        address = instrument.address()
        instrument.command(f"server=UDP {address} {_PORT}")
        with instrument.send(file, f"udp://{address}:{_PORT}", *options) as sender:
            time.sleep(1)
            sender.check()
            yield instrument


def _change(instrument):
    """A source whose stream has nothing to say is replaced: to the line that the new one prints when its making begins, which
    is when the old one is gone, and to the answer to a question behind the command, when it is there and scans."""
    instrument.command("scancur")
    time.sleep(0.5)  # the start's own messages are over: the bus is quiet
    before, changed = len(instrument.log("daemon")), None
    begin = time.monotonic()
    instrument.write("scancur\n\0version?\n")
    while changed is None:
        if "udpsource constr" in instrument.log("daemon")[before:]:
            changed = time.monotonic()
        elif time.monotonic() > begin + 15:
            raise Failure("no new source within 15 s")
        else:
            time.sleep(0.0005)
    instrument.read_until(b"\n")
    return {"source_ms": (changed - begin) * 1000, "answer_ms": (time.monotonic() - begin) * 1000}


def _measure_change(session):
    with Instrument(session) as instrument:
        instrument.wait_for_daemon()
        instrument.command(f"server=UDP {instrument.address()} {_SILENT_PORT}")
        return session.rounds("change of an idle stream's source", {"daemon": lambda: _change(instrument)})["daemon"]


def measure(session):
    """The demo's stream with all tools; made streams of more and more services with ours and the bare elements."""
    raw = {"services": {}, "change": _measure_change(session)}
    with _streaming(session, f"{session.repository}/build/streams/demo.ts") as instrument:
        scene = _Scene(session, instrument, 3)
        tools = {"daemon": scene.daemon, "ours": scene.ours, "bare": scene.bare,
                 "ffprobe-short": lambda: scene.ffprobe("-analyzeduration", "500000"), "ffprobe": scene.ffprobe}
        raw["demo"] = session.rounds("live scan of 3 services", tools)
    for services in ([50] if session.quick else [1, 5, 50, 500]):
        per_cycle = max(400, 2 * services)  # packets in 100 ms
        path = streams.write(f"{session.folder}/live.ts", streams.multiplex(session.repository, services, per_cycle))
        bitrate = streams.size_of(path) / 16 * 8 * 10
        with _streaming(session, path, "--bitrate", str(round(bitrate))) as instrument:
            scene = _Scene(session, instrument, services)
            # More runs: each meets the tables' cycle at another place.
            raw["services"][str(services)] = session.rounds(
                f"live scan of {services} services", {"daemon": scene.daemon, "ours": scene.ours, "bare": scene.bare},
                session.runs + 2)
    return raw


def report(raw, _results):
    """Markdown."""
    rows = [[title, milliseconds(median(raw["demo"].get(tool, []), "tables_ms"))] for tool, title in TITLES.items()
            if raw["demo"].get(tool)]
    grown = [[services, *(milliseconds(median(tools.get(tool, []), "tables_ms")) for tool in ("daemon", "ours", "bare"))]
             for services, tools in raw["services"].items()]
    return "\n".join([table(["live, 3 services, 5 Mbit/s", "to PAT and all PMTs"], rows), "",
                      table(["services", "from \"scancur\"", "in a process of its own", "bare elements"], grown), "",
                      _change_verdict(raw["change"])])


def _change_verdict(runs):
    source = median(runs, "source_ms")
    return verdict(f"from \"scancur\" to the new source less than {AIM_CHANGE_MS} ms while the old one's stream is idle",
                   None if source is None else source < AIM_CHANGE_MS,
                   f"median {milliseconds(source)}, runs {span(runs, 'source_ms', 1)} ms; made, started and the next command "
                   f"answered after {milliseconds(median(runs, 'answer_ms'))}")


def plot(raw, folder):
    """Time over services."""
    series = {TITLES[tool]: [(int(count), median(tools.get(tool, []), "tables_ms"))
                             for count, tools in raw["services"].items()] for tool in ("daemon", "ours", "bare")}
    plots.lines(f"{folder}/live-scan.svg", "Live scan to PAT and all PMTs, repeated every 100 ms", "services", "milliseconds",
                series, log_x=True)
    return ["live-scan.svg"]
