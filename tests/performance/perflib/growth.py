"""What each measure does when its work grows tenfold, out of the other lines' figures."""

from .session import median, ratio
from .scan import tables_ms
from .tables import milliseconds, seconds_per_million, table, times


def _at(raw, *path):
    """The runs at the end of a path, an empty list where something is missing."""
    for key in path:
        raw = (raw or {}).get(key)
    return raw or []


def _field(key):
    return lambda values: median(values, key)


def _milliseconds_of_seconds(value):
    return milliseconds(None if value is None else value * 1000)


# What it is; the work; line, way to the smaller and to the larger figure; how one figure is read and shown.
_ROWS = [
    ("capture, CPU seconds per million frames", "10,000 → 100,000 datagrams/s", "capture", ("ours", "10000"),
     ("ours", "100000"), _field("cpu_per_million"), seconds_per_million),
    ("scan of a recording to its end", "30 → 300 MB", "scan", ("sizes", "30", "ours"), ("sizes", "300", "ours"),
     _field("end_ms"), milliseconds),
    ("scan of a recording to all tables", "5 → 50 services", "scan", ("services", "5", "ours"), ("services", "50", "ours"),
     tables_ms, milliseconds),
    ("scan of a recording to all tables", "50 → 500 services", "scan", ("services", "50", "ours"),
     ("services", "500", "ours"), tables_ms, milliseconds),
    ("live scan from \"scancur\"", "5 → 50 services", "live-scan", ("services", "5", "daemon"), ("services", "50", "daemon"),
     _field("tables_ms"), milliseconds),
    ("live scan from \"scancur\"", "50 → 500 services", "live-scan", ("services", "50", "daemon"),
     ("services", "500", "daemon"), _field("tables_ms"), milliseconds),
    ("recording, CPU seconds per million datagrams", "10,000 → 100,000 datagrams/s", "recording", ("ours", "10000"),
     ("ours", "100000"), _field("cpu_per_million"), seconds_per_million),
    ("export", "5 → 50 MB", "export", ("5", "ours"), ("50", "ours"), _field("seconds"), _milliseconds_of_seconds),
    ("round trip of version?, median", "10 → 100 Mbit/s", "round-trip", ("trips", "load-10"), ("trips", "load-100"),
     _field("median_ms"), milliseconds),
]


def part(results):
    """Markdown, or None when nothing of it was measured."""
    rows = []
    for name, work, line, small, large, read, show in _ROWS:
        before, after = (read(_at(results.get(line), *path)) for path in (small, large))
        if before is not None and after is not None:
            rows.append([name, work, show(before), show(after), times(ratio(after, before))])
    return table(["", "work", "before", "after", "growth"], rows) if rows else None
