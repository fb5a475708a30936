#!/usr/bin/python3
"""Measures how a stream arrives and writes a row for each second into a CSV file, and a plot beside it.

    python3 measure_to_csv.py udp://239.0.0.1:1234 --port /dev/ttyUSB0       # ten minutes, a real instrument
    sudo python3 measure_to_csv.py --virtual --seconds 60                    # a minute, a virtual one with a stream of its own
"""

import argparse
import contextlib
import csv
import datetime
import pathlib
import time

import matplotlib

matplotlib.use("Agg")  # into a file, without a display
import matplotlib.pyplot as plt  # noqa: E402  (the line above must come first)

import tessary  # noqa: E402

FIELDS = ["time", "present", "bit_rate", "delay_factor_ms", "continuity_errors", "packet_size", "packets_per_datagram"]


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("server", nargs="?", default="udp://239.0.0.1:1234", help="stream server (default: %(default)s)")
    parser.add_argument("--port", help="serial port (default: TESSARY_PORT, else a virtual instrument that runs)")
    parser.add_argument("--virtual", action="store_true", help="start a virtual instrument and send it a stream")
    parser.add_argument("--seconds", type=float, default=600, help="so long (default: ten minutes)")
    parser.add_argument("--output", type=pathlib.Path, default=pathlib.Path("measurement.csv"))
    return parser.parse_args()


def controller_of(options, stack):
    if not options.virtual:
        return stack.enter_context(tessary.Controller(options.port))
    instrument = stack.enter_context(tessary.Instrument())
    stack.enter_context(instrument.send(tessary.make_streams() / "demo.ts", options.server))
    return stack.enter_context(instrument.controller())


def measure(controller, server, seconds, writer):
    """Returns the rows that were written."""
    rows = []
    end = time.monotonic() + seconds
    for period in controller.periods(server):
        moment = datetime.datetime.fromtimestamp(period.time).astimezone()
        rows.append({"time": moment.isoformat(timespec="milliseconds"), **period.figures.as_dict()})
        writer.writerow(rows[-1])
        if time.monotonic() >= end:
            break
    print(f"{period.total.periods} seconds with {period.total.continuity_errors} continuity errors")
    return rows


def plot(rows, path):
    times = [datetime.datetime.fromisoformat(row["time"]) for row in rows]
    figure, axes = plt.subplots(3, sharex=True, figsize=(10, 7))
    for axis, (field, label, unit) in zip(axes, [("bit_rate", "bit rate, Mbit/s", 1e6), ("delay_factor_ms", "delay factor, ms", 1),
                                                 ("continuity_errors", "errors in the second", 1)]):
        axis.plot(times, [row[field] / unit for row in rows])
        axis.set_ylabel(label)
        axis.set_ylim(bottom=0)
    figure.autofmt_xdate()
    figure.savefig(path)


def main():
    options = parse()
    with contextlib.ExitStack() as stack:
        controller = controller_of(options, stack)
        file = stack.enter_context(options.output.open("w", newline="", encoding="utf-8", buffering=1))
        writer = csv.DictWriter(file, FIELDS)
        writer.writeheader()
        rows = measure(controller, options.server, options.seconds, writer)
    plot(rows, options.output.with_suffix(".png"))
    print(f"{len(rows)} rows in {options.output}, plot in {options.output.with_suffix('.png')}")


if __name__ == "__main__":
    main()
