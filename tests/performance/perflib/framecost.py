"""The cost of one frame in the capture's callback: time by Google Benchmark, instructions by callgrind."""

import json
import os
import re

from . import plots
from .bench import Failure, median
from .processes import run
from .tables import number, table

_FRAMES = 20000


def _benchmarks(bench):
    """{name: CPU nanoseconds} of one run."""
    if not os.path.exists(bench.program("frame-cost")):
        raise Failure("frame-cost is not built: Google Benchmark (libbenchmark-dev) is missing")
    seconds = 0.05 if bench.quick else 0.1
    said = json.loads(run([bench.program("frame-cost"), "--benchmark_format=json", f"--benchmark_min_time={seconds}"], 120))
    return {one["name"]: one["cpu_time"] for one in said["benchmarks"]}


def _callgrind(bench):
    """{function: instructions per frame} of the shipped code, by symbol: what was inlined counts with its caller."""
    out = f"{bench.folder}/callgrind.out"
    run(["env", "LD_BIND_NOW=1", "valgrind", "--tool=callgrind", f"--callgrind-out-file={out}", "--compress-strings=no",
         "--compress-pos=no", "--toggle-collect=ETHERNETMeasurement::onPacketReceived*", bench.program("frame-loop"), str(_FRAMES)], 300)
    costs, function, called = {}, None, False
    with open(out, encoding="utf-8", errors="replace") as file:
        for line in file:
            if line.startswith("fn="):
                function = line[3:].strip()
            elif line.startswith("calls="):
                called = True  # the next line is what the call cost inside, counted there
            elif re.match(r"\d+ \d+$", line):
                if not called:
                    costs[function] = costs.get(function, 0) + int(line.split()[1])
                called = False
    os.unlink(out)
    if not costs:
        raise Failure("callgrind counted nothing")
    return {_short(name): count / _FRAMES for name, count in costs.items()}


def _short(name):
    return re.sub(r"\(.*", "", name).strip()


def measure(bench):
    """Times of each run, and the instructions."""
    raw = {"times": bench.rounds("frame cost", {"Google Benchmark": lambda: _benchmarks(bench)})["Google Benchmark"],
           "instructions": {}}
    instructions = bench.rounds("frame cost", {"callgrind": lambda: _callgrind(bench)}, 1)["callgrind"]
    raw["instructions"] = instructions[0] if instructions else {}
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
    return {"whole callback, UDP, 7 packets": whole, "headers, arrival record, virtual buffer": without_packets,
            "walk over 7 TS packets, continuity": walk, "record buffer of 1024 frames": records,
            "wall clock for the presence": of("wallClock"), "results to the readers (atomics), rest": max(rest, 0.0)}


def report(raw, _results):
    """Markdown."""
    found = steps(raw)
    whole = found["whole callback, UDP, 7 packets"] or None
    rows = [[name, number(value, 1), "–" if not whole else f"{100 * value / whole:.0f} %"] for name, value in found.items()]
    rtp, udp = median(raw["times"], "statisticsRtp/7"), median(raw["times"], "statisticsUdp/7")
    total = sum(raw["instructions"].values()) or None
    counted = sorted(raw["instructions"].items(), key=lambda item: -item[1])
    counted = [[f"`{name}`", number(count, 0), f"{100 * count / total:.0f} %"] for name, count in counted if count >= 1]
    return "\n".join([
        table(["step", "ns", "share"], rows), "",
        f"RTP, whose 12 bytes of header are stepped over, takes {number(rtp, 1)} ns without the record buffer, UDP "
        f"{number(udp, 1)} ns. The virtual buffer's multiplication and division in 128 bits are {number(median(raw['times'], 'virtualBufferDrain'), 1)} ns of the first "
        "step.", "",
        f"Instructions per frame: {number(total)}, by the symbols of the shipped code (what the compiler inlined counts with "
        "its caller):", "", table(["symbol", "instructions", "share"], counted)])


def plot(raw, folder):
    """Cost over the packets of a datagram."""
    points = [(count, median(raw["times"], f"statisticsUdp/{count}")) for count in (0, 1, 2, 4, 7)]
    plots.lines(f"{folder}/frame-cost.svg", "Statistics of one frame, without the record buffer", "TS packets in the datagram",
                "nanoseconds", {"headers, virtual buffer and TS walk": points})
    return ["frame-cost.svg"]
