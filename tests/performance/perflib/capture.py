"""Capture: frames without loss, and processor time per million frames, over the rate of the stream."""

import os
import re
import signal
import statistics
import time

from . import plots
from .session import Failure, median, ratio, span, worst
from .cable import Cable, sender_processor
from .processes import Program, run_json
from .tables import met_without_loss, number, seconds_per_million, table, times, verdict

FILTER = "host 239.0.0.1 && port 1234"
AIM_RATE = 200000
RATIO_RATE = 100000
AIM_RATIO = 1.05
TITLES = {"ours": "tessary, full statistics", "bare": "bare pcap_loop counter", "tcpdump": "tcpdump -w /dev/null",
          "tcpdump-now": "tcpdump --immediate-mode -w /dev/null", "tshark": "tshark -q, no decoding",
          "tshark-ts": "tshark, TS decoded, a line for each frame"}


def _rates(quick):
    if quick:
        few = [10000, 100000, 200000]
        return {"ours": few, "bare": few, "tcpdump": [100000], "tcpdump-now": [100000], "tshark": [100000],
                "tshark-ts": [25000]}
    most = [10000, 25000, 50000, 75000, 100000, 125000, 150000, 200000]
    return {"ours": most, "bare": most, "tcpdump": [25000, 100000, 200000],
            "tcpdump-now": [100000], "tshark": [25000, 100000], "tshark-ts": [25000]}


def _send(session, cable, rate):
    seconds = 1 if session.quick else 1.5
    command = [*sender_processor(), session.program("frame-sender"), "--rate", str(rate), "--count", str(round(rate * seconds))]
    return run_json(cable.inside(command))


def _beside(command):
    """A reader with one thread keeps away from the sender's processor: on it, it would find whole bursts where it otherwise
    wakes up for every frame, and which of both happened would decide the figures."""
    others = sorted(os.sched_getaffinity(0))[:-1]
    return ["taskset", "-c", ",".join(map(str, others)), *command] if others else command


def _result(sent, counted, processor):
    return {"sent": sent["datagrams"], "rate": sent["datagrams"] / sent["seconds"], "counted": counted,
            "lost": max(0, sent["datagrams"] - counted), "burst": sent["longest_burst"],
            "cpu_per_million": processor / counted * 1e6 if counted else None}


def _probe(session, cable, program, rate):
    """One of our programs, which knows its own processor time from "ready" on."""
    capture = Program(cable.inside(_beside([session.program(program), FILTER])), ready="ready")
    try:
        sent = _send(session, cable, rate)
        time.sleep(0.3)
    except Failure:
        capture.kill()
        raise
    capture.end()
    said = capture.last_json()
    if said.get("continuity_errors") and not said["dropped"]:
        raise Failure(f"{said['continuity_errors']} continuity errors in a stream without any")
    return _result(sent, said["frames"], said["user"] + said["system"])


_START_COSTS = {}


def _start_cost(cable, command, ready, environment, settle):
    """Processor time of a run without a frame, the median of three; measured once for each command."""
    key = " ".join(command)
    if key not in _START_COSTS:
        costs = []
        for _ in range(3):
            idle = Program(cable.inside(command), ready=ready, environment=environment)
            time.sleep(settle)
            costs.append(idle.end(signal.SIGINT))
        _START_COSTS[key] = statistics.median(costs)
    return _START_COSTS[key]


def _peer(session, cable, rate, command, ready, pattern, settle):
    """A program of Debian. Its start takes part of its processor time, which is taken off. What the kernel collects for it
    reaches it within a second."""
    environment = dict(os.environ, TMPDIR=session.folder, LC_ALL="C")
    start = _start_cost(cable, command, ready, environment, settle)
    capture = Program(cable.inside(command), ready=ready, environment=environment)
    try:
        time.sleep(settle)
        sent = _send(session, cable, rate)
        time.sleep(settle + 1)
    except Failure:
        capture.kill()
        raise
    processor = capture.end(signal.SIGINT, 120)
    found = re.findall(pattern, capture.output)
    if not found:
        raise Failure(f"no count in what it said: {capture.output[-200:]!r}")
    return _result(sent, int(found[-1]), max(0.0, processor - start))


def _tcpdump(session, cable, rate, *more):
    command = ["tcpdump", "-Z", "root", "-n", "-i", "eth0", *more, "-w", "/dev/null", FILTER]
    return _peer(session, cable, rate, _beside(command), "listening on", r"(\d+) packets captured", 0.2)


def _tshark(session, cable, rate, decode):
    command = ["tshark", "-n", "-i", "eth0", "-f", FILTER]
    # With -q it counts; a line for each frame wants all of it decoded. Only the count is read here.
    command = (["sh", "-c", 'exec "$@" >/dev/null', "sh", *command, "-d", "udp.port==1234,mp2t"] if decode
               else [*command, "-q"])
    return _peer(session, cable, rate, command, "Capturing on", r"(\d+) packets? captured", 0.7)


def measure(session):
    """{tool: {rate: [runs]}}"""
    rates = _rates(session.quick)
    raw = {tool: {} for tool in TITLES}
    with Cable() as cable:
        tools = {"ours": lambda rate: _probe(session, cable, "capture-measurement", rate),
                 "bare": lambda rate: _probe(session, cable, "capture-counter", rate),
                 "tcpdump": lambda rate: _tcpdump(session, cable, rate),
                 "tcpdump-now": lambda rate: _tcpdump(session, cable, rate, "--immediate-mode"),
                 "tshark": lambda rate: _tshark(session, cable, rate, False),
                 "tshark-ts": lambda rate: _tshark(session, cable, rate, True)}
        for rate in sorted({rate for some in rates.values() for rate in some}):
            for some, runs in _shares(rate, session.runs):
                wanted = {tool: (lambda t=tool, r=rate: tools[t](r)) for tool in some if rate in rates[tool]}
                for tool, values in session.rounds(f"capture at {rate}/s", wanted, runs).items():
                    raw[tool][str(rate)] = values
    return raw


def _shares(rate, runs):
    """[(tools, runs)]: the two whose ratio is an aim run more often at its rate, for they differ by less than the runs do."""
    if rate != RATIO_RATE:
        return [(list(TITLES), runs)]
    return [(["ours", "bare"], 10 * runs), ([tool for tool in TITLES if tool not in ("ours", "bare")], runs)]


def _row(raw, tool, rate):
    values = raw[tool].get(str(rate))
    if not values:
        return None
    ours, bare = median(values, "cpu_per_million"), median(raw["bare"].get(str(rate), []), "cpu_per_million")
    return [TITLES[tool], f"{rate:,}", f"{median(values, 'rate'):,.0f}", number(median(values, "lost")),
            number(worst(values, "lost")), seconds_per_million(ours), times(ratio(ours, bare))]


def _losses(ours, bare):
    """What was lost at the aim's rate, and how the bare counter fared."""
    text = (f"{number(median(ours, 'rate'))} a second really sent; median {number(median(ours, 'lost'))}, worst run "
            f"{number(worst(ours, 'lost'))} of {number(median(ours, 'sent'))} datagrams")
    if worst(ours, "lost") and bare:
        text += (f"; the bare counter lost {number(median(bare, 'lost'))}, worst run {number(worst(bare, 'lost'))}: the "
                 "kernel's ring, which both have, holds less than seven milliseconds at this rate, and its reader did "
                 "not get a processor for longer than that")
    return text


def report(raw, _results):
    """Markdown: the table, then each aim."""
    rates = sorted({int(rate) for some in raw.values() for rate in some})
    rows = [row for rate in rates for tool in TITLES if (row := _row(raw, tool, rate))]
    head = ["", "datagrams/s", "really sent/s", "lost, median", "lost, worst run", "CPU s per million", "to bare counter"]
    ours, bare = (raw[tool].get(str(AIM_RATE), []) for tool in ("ours", "bare"))
    lost = median(ours, "lost")
    compared, with_bare = (raw[tool].get(str(RATIO_RATE), []) for tool in ("ours", "bare"))
    share = ratio(median(compared, "cpu_per_million"), median(with_bare, "cpu_per_million"))
    return "\n".join([
        table(head, rows), "",
        verdict(f"no loss at {AIM_RATE:,} datagrams a second", met_without_loss(lost, median(ours, "rate"), AIM_RATE),
                _losses(ours, bare)),
        verdict(f"CPU at most {AIM_RATIO} times the bare counter at {RATIO_RATE:,} a second",
                None if share is None else share <= AIM_RATIO,
                f"{times(share, 3)}; seconds per million of the {len(compared)} runs: {span(compared, 'cpu_per_million', 2)}, bare "
                f"{span(with_bare, 'cpu_per_million', 2)}")])


def plot(raw, folder):
    """Processor time and loss over the rate."""
    cpu, loss = {}, {}
    for tool, by_rate in raw.items():
        points = [(int(rate), values) for rate, values in by_rate.items() if values]
        cpu[TITLES[tool]] = [(rate / 1000, median(values, "cpu_per_million")) for rate, values in points]
        loss[TITLES[tool]] = [(rate / 1000, 100 * median(values, "lost") / median(values, "sent"))
                              for rate, values in points]
    plots.lines(f"{folder}/capture-cpu.svg", "Capture: processor time", "thousand datagrams per second",
                "CPU seconds per million frames", cpu, log_y=True)
    plots.lines(f"{folder}/capture-loss.svg", "Capture: loss (median of the runs)", "thousand datagrams per second",
                "lost frames, %", loss)
    return ["capture-cpu.svg", "capture-loss.svg"]
