"""Export of a recording to the FPGA's device, beside dd."""

import re
import subprocess
import time

from . import plots
from .session import Failure, median, ratio
from .instrument import CARD, Instrument
from .processes import run_json
from .tables import number, table, times

TITLES = {"ours": "tessary, PVR_export", "bare": "read, select and write of 1024 bytes, nothing else",
          "dd": "dd bs=1024"}
_SETTLING = 1.0  # seconds that the export waits at its end, for the driver to send out what it holds


def _ours(instrument, size):
    instrument.write("PVR_export\n")
    instrument.read_until(b"PVR_export_ok\n", 10)
    begin = time.monotonic()
    instrument.ask_version(120)  # nothing else is answered until the export has ended
    seconds = time.monotonic() - begin - _SETTLING
    return {"seconds": seconds, "mb_per_s": size / seconds / 1e6}


def _bare(session, instrument, size):
    result = run_json([session.program("export-blocks"), instrument.card_file("record.ts"),
                       f"{instrument.run_dir}/fpga/xillybus_write_8"], 120)
    return {"seconds": result["seconds"], "mb_per_s": size / result["seconds"] / 1e6}


def _dd(instrument, size):
    command = instrument.command_line(["dd", f"if={CARD}/record.ts", "of=/dev/xillybus_write_8", "bs=1024"])
    done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
    found = re.search(r"copied, ([\d.e-]+) s", done.stderr)
    if done.returncode or not found:
        raise Failure(f"dd: {done.stderr.strip()[-200:]}")
    return {"seconds": float(found[1]), "mb_per_s": size / float(found[1]) / 1e6}


def measure(session):
    """{size: {tool: [runs]}}"""
    raw = {}
    with open(f"{session.repository}/build/streams/demo.ts", "rb") as file:
        demo = file.read()
    with Instrument(session, hardware=True) as instrument:
        instrument.wait_for_daemon()
        for megabytes in ([5] if session.quick else [5, 15, 50]):
            data = (demo * (megabytes * 1000000 // len(demo) + 1))[:megabytes * 1000000 // 188 * 188]
            with open(instrument.card_file("record.ts"), "wb") as file:
                file.write(data)
            tools = {"ours": lambda s=len(data): _ours(instrument, s),
                     "bare": lambda s=len(data): _bare(session, instrument, s), "dd": lambda s=len(data): _dd(instrument, s)}
            raw[str(megabytes)] = session.rounds(f"export of {megabytes} MB", tools)
    return raw


def report(raw, _results):
    """Markdown."""
    rows = []
    for size, tools in raw.items():
        reference, bare = (median(tools.get(name, []), "mb_per_s") for name in ("dd", "bare"))
        for tool, title in TITLES.items():
            if values := tools.get(tool):
                speed = median(values, "mb_per_s")
                rows.append([title, size, number(median(values, "seconds"), 2), number(speed, 1),
                             times(ratio(speed, bare)), times(ratio(speed, reference))])
    return "\n".join([
        table(["", "MB", "seconds", "MB/s", "to the bare loop", "to dd"], rows), "",
        "The virtual instrument's device is a FUSE file that notes every write: each request to it goes through a process. dd "
        "makes one request for a block, the export two, for it asks first whether the device takes one; so a device that "
        "stalls is noticed. On the FPGA's own driver both are system calls without a process behind."])


def plot(raw, folder):
    """Time over size."""
    series = {title: [(int(size), median(tools.get(tool, []), "seconds")) for size, tools in raw.items()]
              for tool, title in TITLES.items()}
    plots.lines(f"{folder}/export.svg", "Export to the FPGA's device", "MB", "seconds", series)
    return ["export.svg"]
