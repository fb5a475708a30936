"""Recording from UDP: datagrams lost over the rate of the stream."""

import contextlib
import os
import signal
import time

from . import plots, scan, streams
from .session import Failure, median, ratio, worst
from .cable import sender_processor
from .instrument import CARD, MAC, CpuMeter, Instrument
from .processes import Program, run_json
from .tables import met_without_loss, number, seconds_per_million, table, times, verdict

AIM_RATE = 75000
TITLES = {"ours": "tessary: scan and PVR_record", "gst-same": "gst-launch-1.0, tessary's elements",
          "gst": "gst-launch-1.0 udpsrc ! queue ! filesink", "gst-large": "the same with buffer-size=30000000",
          "multicat": "multicat"}
_DATAGRAM = 7 * 188
_PORT = 5040


class _Scene:
    """A running instrument whose card takes the recordings."""

    def __init__(self, session, instrument):
        self._session, self._instrument = session, instrument
        self._address = instrument.address()
        self._seconds = 1 if session.quick else 1.5

    def _send(self, rate):
        command = [*sender_processor(), self._session.program("frame-sender"), "--rate",
                   str(rate), "--count", str(round(rate * self._seconds)), "--address", self._address, "--mac", MAC, "--port",
                   str(_PORT)]
        return run_json(self._instrument.command_line(command, sender=True))

    @staticmethod
    def _settle(path):
        """Until the file does not grow any more."""
        size, same = -1, 0
        while same < 3:
            time.sleep(0.07)
            now = streams.size_of(path)
            size, same = now, same + 1 if now == size else 0

    def _result(self, sent, path, processor):
        recorded = streams.size_of(path) // _DATAGRAM
        with contextlib.suppress(FileNotFoundError):
            os.unlink(path)
        if not recorded:
            raise Failure("nothing was recorded")
        return {"sent": sent["datagrams"], "rate": sent["datagrams"] / sent["seconds"],
                "lost": max(0, sent["datagrams"] - recorded), "cpu_per_million": processor / recorded * 1e6}

    def ours(self, rate):
        """Over the line, as the controller does it: the scan goes on beside the recording."""
        instrument = self._instrument
        instrument.command(f"server=UDP {self._address} {_PORT}")
        instrument.command("scancur")
        instrument.command("PVR_record")
        path = instrument.card_file("record.ts")
        time.sleep(0.3)
        meter = CpuMeter(instrument.daemon_pid())
        sent = self._send(rate)
        self._settle(path)
        processor = meter.used()
        instrument.command("PVR_stop")
        return self._result(sent, path, processor)

    def peer(self, rate, command):
        """A program that records to the same card; it is inside the instrument, so what it uses is read off there."""
        path = self._instrument.card_file("peer.ts")
        recorder = Program(self._instrument.command_line(command))
        try:
            _wait_for(path)
            time.sleep(0.2)
            meter = CpuMeter(_child_of(recorder.pid))
            sent = self._send(rate)
            self._settle(path)
            processor = meter.used()
        except (Failure, OSError):
            recorder.kill()
            raise
        recorder.end(signal.SIGINT)
        with contextlib.suppress(FileNotFoundError):
            os.unlink(self._instrument.card_file("peer.aux"))
        return self._result(sent, path, processor)

    def gst(self, rate, *settings):
        """Ends with an end of stream, so that the file is whole."""
        return self.peer(rate, ["gst-launch-1.0", "-q", "-e", "udpsrc", f"port={_PORT}", *settings, "!", "queue", "!",
                                "filesink", f"location={CARD}/peer.ts"])

    def gst_same(self, rate):
        """What the daemon's pipeline is while it scans and records."""
        source = f"udpsrc port={_PORT} buffer-size=30000000 do-timestamp=false"
        branch = f"t. ! queue {scan.UNLIMITED} ! filesink location={CARD}/peer.ts"
        scanning = " ".join(scan.pipeline(source)).replace("tee", "tee name=t")
        return self.peer(rate, ["gst-launch-1.0", "-q", "-e", *scanning.split(), *branch.split()])

    def multicat(self, rate):
        """-u: no RTP header comes in."""
        return self.peer(rate, ["multicat", "-u", f"@{self._address}:{_PORT}", f"{CARD}/peer.ts"])


def _wait_for(path):
    """Until the recorder has opened its file; then it receives, too, or is about to."""
    deadline = time.monotonic() + 10
    while not os.path.exists(path):
        if time.monotonic() > deadline:
            raise Failure("the recorder did not open its file")
        time.sleep(0.02)


def _child_of(pid):
    """The program that `instrument exec` has started."""
    with open(f"/proc/{pid}/task/{pid}/children", encoding="ascii") as file:
        children = file.read().split()
    if not children:
        raise Failure("the recorder has not started")
    return int(children[0])


def measure(session):
    """{tool: {rate: [runs]}}"""
    raw = {tool: {} for tool in TITLES}
    with Instrument(session, card="1G") as instrument:
        instrument.wait_for_daemon()
        scene = _Scene(session, instrument)
        for rate in ([10000, 75000] if session.quick else [10000, 25000, 50000, 75000, 100000]):
            known = {"ours": lambda r=rate: scene.ours(r), "gst-large": lambda r=rate: scene.gst(r, "buffer-size=30000000"),
                     "gst-same": lambda r=rate: scene.gst_same(r), "gst": lambda r=rate: scene.gst(r),
                     "multicat": lambda r=rate: scene.multicat(r)}
            # Beyond the aim only what is compared there; the large buffer alone says its part at the aim's rate.
            names = ["ours", "gst-same"] if rate > AIM_RATE else [name for name in TITLES if name != "gst-large"]
            names += ["gst-large"] if rate == AIM_RATE else []
            tools = {name: known[name] for name in names}
            for tool, values in session.rounds(f"recording at {rate}/s", tools).items():
                raw[tool][str(rate)] = values
    return raw


def report(raw, _results):
    """Markdown."""
    rows = []
    rates = sorted({int(rate) for some in raw.values() for rate in some})
    for rate in rates:
        reference = median(raw["gst-same"].get(str(rate), []), "cpu_per_million")
        for tool, title in TITLES.items():
            values = raw[tool].get(str(rate))
            if not values:
                continue
            processor = median(values, "cpu_per_million")
            rows.append([title, f"{rate:,}", f"{median(values, 'rate'):,.0f}", number(median(values, "lost")),
                         number(worst(values, "lost")), seconds_per_million(processor), times(ratio(processor, reference))])
    head = ["", "datagrams/s", "really sent/s", "lost, median", "lost, worst run", "CPU s per million",
            "to gst-launch-1.0, tessary's elements"]
    reached = [rate for rate in rates if rate <= AIM_RATE and raw["ours"].get(str(rate))]
    lost = {rate: median(raw["ours"][str(rate)], "lost") for rate in reached}
    reached_rate = median(raw["ours"].get(str(AIM_RATE), []), "rate")
    said = "; ".join(f"{number(median(raw['ours'][str(rate)], 'rate'))} a second really sent: median {number(value)}, worst run "
                     f"{number(worst(raw['ours'][str(rate)], 'lost'))}" for rate, value in lost.items())
    same = raw["gst-same"].get(str(AIM_RATE), [])
    if any(lost.values()) and same:
        said += (f"; gst-launch-1.0 with the same elements and buffer at {AIM_RATE:,} a second: median "
                 f"{number(median(same, 'lost'))}, worst run {number(worst(same, 'lost'))}")
    return "\n".join([table(head, rows), "",
                      verdict(f"no datagram lost up to {AIM_RATE:,} a second with the package's settings",
                              met_without_loss(max(lost.values()) if AIM_RATE in lost else None, reached_rate, AIM_RATE),
                              said or "no run succeeded")])


def plot(raw, folder):
    """Loss and processor time over the rate."""
    loss, cpu = {}, {}
    for tool, by_rate in raw.items():
        points = [(int(rate), values) for rate, values in by_rate.items() if values]
        loss[TITLES[tool]] = [(rate / 1000, 100 * median(values, "lost") / median(values, "sent")) for rate, values in points]
        cpu[TITLES[tool]] = [(rate / 1000, median(values, "cpu_per_million")) for rate, values in points]
    plots.lines(f"{folder}/recording-loss.svg", "Recording from UDP: loss (median of the runs)",
                "thousand datagrams per second", "lost datagrams, %", loss)
    plots.lines(f"{folder}/recording-cpu.svg", "Recording from UDP: processor time", "thousand datagrams per second",
                "CPU seconds per million datagrams", cpu)
    return ["recording-loss.svg", "recording-cpu.svg"]
