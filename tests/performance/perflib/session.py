"""One run of the measurements: its settings, its progress on the terminal, its raw figures."""

import statistics
import sys
import time

import tessary


class Failure(Exception):
    """A measurement that could not be made; the text says why."""


class Session:
    """Settings of one run and its progress. `folder` is a place for streams and recordings, in memory if there is room."""

    def __init__(self, options, folder):
        self.quick = options.quick
        self.runs = options.runs or (2 if options.quick else 5)
        self.build = options.build
        self.repository = options.repository
        self.folder = folder
        self.problems = []
        self._began = time.monotonic()
        self._deadline = self._began + options.longest_minutes * 60

    def program(self, name):
        """Path of one of the measuring programs."""
        return f"{self.build}/tests/performance/{name}"

    def say(self, text):
        """One line of progress."""
        print(f"{time.monotonic() - self._began:6.0f} s  {text}", flush=True)

    def problem(self, text):
        """Notes what could not be measured; it is printed and stands in the report."""
        self.problems.append(text)
        self.say(f"PROBLEM: {text}")

    def late(self):
        """True when the time is over: what has been measured must do."""
        return time.monotonic() > self._deadline

    def rounds(self, title, measurements, runs=None):
        """{name: [value of each run]} of {name: function}; the functions take turns, so that a machine that is slower for a
        while is slower for all. A value is a dict of numbers. One that fails twice is left out from then on."""
        values = {name: [] for name in measurements}
        failed = {name: 0 for name in measurements}
        for turn in range(runs or self.runs):
            if turn and self.late():
                self.problem(f"{title}: stopped after {turn} runs, the time is over")
                break
            for name, function in measurements.items():
                if failed[name] >= 2:
                    continue
                try:
                    value = function()
                except (Failure, tessary.TessaryError, OSError, ValueError, KeyError, IndexError) as error:
                    failed[name] += 1
                    self.problem(f"{title}, {name}: {error if isinstance(error, (Failure, tessary.TessaryError)) else repr(error)}")
                    continue
                values[name].append(value)
                self.say(f"{title}, {name}, run {turn + 1}: {_text(value)}")
        return values


def _text(value):
    return ", ".join(f"{key} {number:.6g}" if isinstance(number, float) else f"{key} {number}"
                     for key, number in value.items() if not isinstance(number, dict))


def median(values, key):
    """Median of one field over the runs; None without a run."""
    numbers = [value[key] for value in values if value.get(key) is not None]
    return statistics.median(numbers) if numbers else None


def worst(values, key):
    """Largest value of one field over the runs; None without a run."""
    numbers = [value[key] for value in values if value.get(key) is not None]
    return max(numbers) if numbers else None


def span(values, key, digits=0):
    """Smallest and largest value of one field, as text."""
    numbers = [value[key] for value in values if value.get(key) is not None]
    return f"{min(numbers):,.{digits}f} to {max(numbers):,.{digits}f}" if numbers else "–"


def percentile(numbers, share):
    """Nearest-rank percentile; `share` from 0 to 1."""
    ordered = sorted(numbers)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))]


def ratio(a, b):
    """a / b, or None when one is missing or b is 0."""
    return a / b if a is not None and b else None


def warn(text):
    """To standard error."""
    print(f"session: {text}", file=sys.stderr, flush=True)
