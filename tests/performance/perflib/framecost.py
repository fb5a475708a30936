"""The cost of one frame in the capture's callback: time by Google Benchmark, instructions by callgrind."""

import json
import os
import re

from . import plots
from .session import Failure, median, span
from .processes import run
from .tables import number, table, verdict

AIM_NS = 50
_FRAMES = 20000
_WHOLE = "whole callback, UDP, 7 packets"


def _benchmarks(session):
    """{name: CPU nanoseconds} of one run."""
    if not os.path.exists(session.program("frame-cost")):
        raise Failure("frame-cost is not built: Google Benchmark (libbenchmark-dev) is missing")
    seconds = 0.05 if session.quick else 0.1
    said = json.loads(run([session.program("frame-cost"), "--benchmark_format=json", f"--benchmark_min_time={seconds}"], 120))
    return {one["name"]: one["cpu_time"] for one in said["benchmarks"]}


def _callgrind(session, *options):
    """callgrind's counts of the shipped code, each frame's share; its model of the caches included."""
    out = f"{session.folder}/callgrind.out"
    run(["env", "LD_BIND_NOW=1", "valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", "--compress-strings=no",
         "--compress-pos=no", "--cache-sim=yes", *options, "--toggle-collect=ETHERNETMeasurement::onPacketReceived*",
         session.program("frame-loop"), str(_FRAMES)], 300)
    with open(out, encoding="utf-8", errors="replace") as file:
        counts = counts_of(file, _FRAMES)
    os.unlink(out)
    if not counts["symbols"]:
        raise Failure("callgrind counted nothing")
    return counts


def counts_of(lines, frames):
    """{event: count, "cache": first-level data cache, "symbols": {function: instructions}} of a callgrind file, the counts for
    each of the frames. What was inlined counts with its caller."""
    cache, events, totals, symbols, function, called = "", [], [], {}, None, False
    for line in lines:
        if line.startswith("fn="):
            function = re.sub(r"\(.*", "", line[3:]).strip()
        elif line.startswith("calls="):
            called = True  # the next line is what the call cost inside, counted there
        elif line.startswith("desc: D1 cache:"):
            size, _, ways = re.findall(r"\d+", line.split(":")[2])
            cache = f"{int(size) // 1024} KiB, {ways} ways"
        elif line.startswith("events:"):
            events = line.split()[1:]
        elif line.startswith("summary:"):
            totals = [int(word) / frames for word in line.split()[1:]]
        elif re.match(r"\d+( \d+)+$", line):
            if not called:
                symbols[function] = symbols.get(function, 0) + int(line.split()[1]) / frames
            called = False
    return {**dict(zip(events, totals)), "cache": cache, "symbols": symbols}


def measure(session):
    """Times of each run, and callgrind's counts with two first-level data caches: this machine's, and one of 32 KiB."""
    models = {"own": lambda: _callgrind(session), "32 KiB": lambda: _callgrind(session, "--D1=32768,8,64")}
    raw = {"times": session.rounds("frame cost", {"Google Benchmark": lambda: _benchmarks(session)})["Google Benchmark"]}
    raw["callgrind"] = {name: runs[0] for name, runs in session.rounds("frame cost, callgrind", models, 1).items() if runs}
    return raw


def steps(raw):
    """{step: nanoseconds}, the whole first."""
    def of(name):
        value = median(raw["times"], name)
        return 0.0 if value is None else value

    stream, whole = of("streamAlone"), of("wholeCallback/7") - of("streamAlone")
    without_packets = of("statisticsUdp/0") - stream
    walk = of("statisticsUdp/7") - of("statisticsUdp/0")
    records = of("wholeCallback/7") - of("callbackWithoutRecords/7")
    rest = whole - without_packets - walk - records - of("wallClock")
    return {_WHOLE: whole, "headers, arrival record, virtual buffer": without_packets,
            "walk over 7 TS packets, continuity": walk, "record buffer of 1024 frames": records,
            "wall clock for the presence": of("wallClock"), "results to the readers (atomics), rest": max(rest, 0.0),
            "whole callback, frames in libpcap's ring": of("wholeCallbackFromRing") - of("ringAlone")}


def model_cycles(counts):
    """KCachegrind's rule: one for an instruction, 10 more for a first-level miss, 100 more for a last-level miss."""
    first, last = (sum(counts[name] for name in (f"I{level}mr", f"D{level}mr", f"D{level}mw")) for level in "1L")
    return counts["Ir"] + 10 * first + 100 * last


def _model_row(counts):
    return [counts["cache"], number(counts["Ir"]), number(counts["Dr"] + counts["Dw"]), number(counts["D1mr"] + counts["D1mw"], 1),
            number(model_cycles(counts))]


def report(raw, _results):
    """Markdown."""
    found = steps(raw)
    whole = found[_WHOLE]
    rows = [[name, number(value, 1), "–" if not whole else f"{100 * value / whole:.0f} %"] for name, value in found.items()]
    rtp, udp = median(raw["times"], "statisticsRtp/7"), median(raw["times"], "statisticsUdp/7")
    callgrind = raw.get("callgrind", {})
    symbols = callgrind.get("own", {}).get("symbols", {})
    total = sum(symbols.values()) or None
    counted = sorted(symbols.items(), key=lambda item: -item[1])
    counted = [[f"`{name}`", number(count, 0), f"{100 * count / total:.0f} %"] for name, count in counted if count >= 1]
    return "\n".join([
        table(["step", "ns", "share"], rows), "",
        verdict(f"the whole callback in at most {AIM_NS} ns", whole <= AIM_NS if whole else None,
                f"{number(whole or None, 1)} ns; the runs: {span(raw['times'], 'wholeCallback/7', 1)}"), "",
        f"RTP, whose 12 bytes of header are stepped over, takes {number(rtp, 1)} ns without the record buffer, UDP "
        f"{number(udp, 1)} ns. The virtual buffer's multiplication and division are "
        f"{number(median(raw['times'], 'virtualBufferDrain'), 1)} ns of the first step.", "",
        "What a frame in libpcap's ring takes by callgrind's model of the caches, this machine's and one of 32 KiB:", "",
        table(["first-level data cache", "instructions", "reads and writes", "misses of it", "cycles by the model"],
              [_model_row(counts) for counts in callgrind.values()]), "",
        f"Instructions per frame: {number(total)}, by the symbols of the shipped code (what the compiler inlined counts with "
        "its caller):", "", table(["symbol", "instructions", "share"], counted)])


def plot(raw, folder):
    """Cost over the packets of a datagram."""
    points = [(count, median(raw["times"], f"statisticsUdp/{count}")) for count in (0, 1, 2, 4, 7)]
    plots.lines(f"{folder}/frame-cost.svg", "Statistics of one frame, without the record buffer", "TS packets in the datagram",
                "nanoseconds", {"headers, virtual buffer and TS walk": points})
    return ["frame-cost.svg"]
