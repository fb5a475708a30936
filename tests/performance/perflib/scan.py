"""Scan of a recording: to complete tables, and to its end."""

import re
import time

from . import plots, streams
from .session import Failure, median, ratio, span
from .processes import run, run_json
from .tables import milliseconds, number, table, times, verdict

AIM = 0.95
TITLES = {"ours": "tessary", "bare": "the same elements, bare", "gst-launch": "gst-launch-1.0, the same elements",
          "ffprobe-all": "ffprobe -count_packets", "ffprobe": "ffprobe, as it is"}
UNLIMITED = "max-size-buffers=0 max-size-bytes=0 max-size-time=0"
_HEAD = "queue max-size-buffers=0 max-size-bytes=20000000 max-size-time=0 ! tee ! queue " + UNLIMITED
_TAIL = " ! tsparse ! fakesink async=false"


def pipeline(source):
    """Words of the daemon's scan pipeline behind any source, for gst-launch's syntax."""
    return f"{source} ! {_HEAD}{_TAIL}".split()


def _file_source(path):
    return f"filesrc location={path} blocksize=18800"


def _with_rate(result, size):
    return {**result, "mb_per_s": size / result["end_ms"] / 1000}


def _ours(session, path, programs):
    result = run_json([session.program("scan-measure"), "file", path, str(programs)], 120)
    return _with_rate(result, streams.size_of(path))


def _bare(session, path, programs):
    result = run_json([session.program("scan-elements"), str(programs), "file", *pipeline(_file_source(path))], 120)
    return _with_rate(result, streams.size_of(path))


def _gst_launch(path):
    said = run(["gst-launch-1.0", *pipeline(_file_source(path))], 120)
    found = re.search(r"Execution ended after (\d+):(\d+):([\d.]+)", said)
    if not found:
        raise Failure("gst-launch-1.0 told no time")
    seconds = int(found[1]) * 3600 + int(found[2]) * 60 + float(found[3])
    return _with_rate({"end_ms": seconds * 1000}, streams.size_of(path))


def _ffprobe(path, whole):
    """Its wall time, start of the program included: for a whole file to its end, otherwise to its tables."""
    command = ["ffprobe", "-v", "error", "-show_entries", "program=program_id", *(["-count_packets"] if whole else []), path]
    result = run_timed(command)
    return _with_rate({"end_ms": result}, streams.size_of(path)) if whole else {"tables_ms": result}


def run_timed(command, seconds=120):
    """Wall time of a program in milliseconds."""
    begin = time.monotonic()
    run(command, seconds)
    return (time.monotonic() - begin) * 1000


def _demo(session):
    with open(f"{session.repository}/build/streams/demo.ts", "rb") as file:
        return file.read()


def measure(session):
    """By size of the recording, and by services."""
    raw = {"sizes": {}, "services": {}}
    demo = _demo(session)
    for megabytes in ([30, 300] if session.quick else [30, 100, 300]):
        path = streams.write(f"{session.folder}/scan.ts", demo, megabytes * 1000000)
        tools = {"ours": lambda p=path: _ours(session, p, 3), "bare": lambda p=path: _bare(session, p, 3),
                 "gst-launch": lambda p=path: _gst_launch(p)}
        if megabytes == 300:
            tools["ffprobe-all"] = lambda p=path: _ffprobe(p, True)
            tools["ffprobe"] = lambda p=path: _ffprobe(p, False)
        raw["sizes"][str(megabytes)] = session.rounds(f"scan of {megabytes} MB", tools)
    for services in ([1, 50] if session.quick else [1, 5, 50, 253, 500]):
        cycle = streams.multiplex(session.repository, services, max(1000, 3 * services))
        path = streams.write(f"{session.folder}/scan.ts", cycle, 60000000)
        tools = {"ours": lambda p=path, n=services: _ours(session, p, n), "bare": lambda p=path, n=services: _bare(session, p, n)}
        raw["services"][str(services)] = session.rounds(f"scan of {services} services", tools)
    return raw


def _tables_ms(value):
    fields = [value.get(key) for key in ("pat_ms", "sdt_ms", "pmts_ms")]
    return None if any(field is None or field < 0 for field in fields) else max(fields)


def tables_ms(values):
    """Median time to PAT, SDT and all PMTs, of scans that found them all."""
    found = [{"ms": _tables_ms(value)} for value in values]
    return median(found, "ms") or median(values, "tables_ms")


def report(raw, _results):
    """Markdown."""
    rows = []
    of_300 = raw["sizes"].get("300", {})
    bare = median(of_300.get("bare", []), "mb_per_s")
    for tool, title in TITLES.items():
        if values := of_300.get(tool):
            speed = median(values, "mb_per_s")
            rows.append([title, milliseconds(tables_ms(values)), milliseconds(median(values, "end_ms")), number(speed),
                         times(ratio(speed, bare)), number(median(values, "cpu"), 2)])
    services = []
    for count, tools in raw["services"].items():
        ours, elements = tools.get("ours", []), tools.get("bare", [])
        services.append([count, milliseconds(tables_ms(ours)), milliseconds(tables_ms(elements)),
                         number(median(ours, "pmts")), number(median(ours, "mb_per_s")), number(median(elements, "mb_per_s"))])
    share = ratio(median(of_300.get("ours", []), "mb_per_s"), bare)
    return "\n".join([
        table(["300 MB, 3 services", "to all tables", "to the end", "MB/s", "to the bare elements", "CPU s"], rows), "",
        verdict(f"at least {AIM} of the bare elements' speed", None if share is None else share >= AIM,
                f"{times(share)}; MB/s of the runs: tessary {span(of_300.get('ours', []), 'mb_per_s')}, bare "
                f"{span(of_300.get('bare', []), 'mb_per_s')}; CPU seconds {number(median(of_300.get('ours', []), 'cpu'), 2)} "
                f"and {number(median(of_300.get('bare', []), 'cpu'), 2)}"), "",
        table(["services (60 MB)", "tessary, to all tables", "bare, to all tables", "PMTs found", "tessary, MB/s",
               "bare, MB/s"], services)])


def plot(raw, folder):
    """Time over size, and time to the tables over services."""
    by_size = {TITLES[tool]: [(int(size), median(tools.get(tool, []), "end_ms")) for size, tools in raw["sizes"].items()]
               for tool in ("ours", "bare", "gst-launch")}
    plots.lines(f"{folder}/scan-size.svg", "Scan of a recording to its end", "MB", "milliseconds", by_size)
    by_services = {TITLES[tool]: [(int(count), tables_ms(tools.get(tool, []))) for count, tools in raw["services"].items()]
                   for tool in ("ours", "bare")}
    plots.lines(f"{folder}/scan-services.svg", "Scan of a recording to PAT, SDT and all PMTs", "services", "milliseconds",
                by_services, log_x=True)
    return ["scan-size.svg", "scan-services.svg"]
