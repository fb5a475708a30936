"""Figures of speed. They are the machine's: an emulated one is slower by far than the module."""

import statistics
import time

from .machine import tell
from .rows import SERVER

_RATES = (1000, 2500, 5000, 10000, 20000)
_PERIODS = 10
_ROUNDS = 5


def figures(machine, options):
    """How much the capture loses at which rate, and how long a program takes from `play=` to its first picture."""
    with machine.controller() as controller:
        for rate in _RATES:
            _capture(machine, controller, options, rate)
        _zapping(machine, controller, options)


def _capture(machine, controller, options, rate):
    """Each continuity error is at least one datagram that the machine did not get, or a gap of several."""
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER, "--datagram-rate", str(rate))
    try:
        controller.measure(SERVER, wait=60)  # the periods in which the sender began
        periods = []
        for period in controller.periods():
            if period.figures.present:
                periods.append(period.figures)
            if len(periods) == _PERIODS:
                break
    finally:
        sender.stop()
    sent = rate * (1316 + 42) * 8
    mean = sum(figures.bit_rate for figures in periods) / len(periods)
    errors = sum(figures.continuity_errors for figures in periods)
    tell(f"capture at {rate} datagrams/s: {100 * mean / sent:.1f} % of the bit rate, {errors} continuity errors in "
         f"{_PERIODS} periods")


def _zapping(machine, controller, options):
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER)
    times = {}
    try:
        services = controller.scan(SERVER, wait=60).services
        for _ in range(_ROUNDS):
            for service in services:
                began = time.monotonic()
                played = controller.play(service.id, wait=60)
                if played.presentation.picture.state == "decoded":
                    times.setdefault(service.name, []).append(time.monotonic() - began)
    finally:
        sender.stop()
    for name, seconds in times.items():
        tell(f"{name}: {statistics.median(seconds):.1f} s from play to the first picture (median of {len(seconds)}, "
             f"{min(seconds):.1f} to {max(seconds):.1f})")
