"""net.core.rmem_max, which belongs to the whole kernel: raised while virtual instruments run, then put back.

A record below /run counts who needs it. Holders that were killed are recognised by PID and start time, so the next
start (or the next end) repairs what they left.
"""

import contextlib
import fcntl
import json
import os

NEEDED = 30_000_000  # the receivers ask for this many bytes of socket buffer
_SETTING = "/proc/sys/net/core/rmem_max"
_RECORD = "/run/tessary-instrument.rmem"


def _read_setting():
    with open(_SETTING, encoding="ascii") as file:
        return int(file.read())


def _write_setting(value):
    with open(_SETTING, "w", encoding="ascii") as file:
        file.write(str(value))


def start_time(pid):
    """Start of a process in clock ticks since boot (proc(5)); None when there is no such process."""
    try:
        with open(f"/proc/{pid}/stat", encoding="ascii", errors="replace") as file:
            return int(file.read().rpartition(")")[2].split()[19])
    except (FileNotFoundError, ProcessLookupError):
        return None


@contextlib.contextmanager
def _record():
    """The record under its lock, written back on leaving."""
    with open(os.open(_RECORD, os.O_RDWR | os.O_CREAT | os.O_CLOEXEC, 0o644), "r+", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        try:
            record = json.load(file)
        except ValueError:
            record = {"original": None, "raised": None, "holders": []}
        record["holders"] = [h for h in record["holders"] if start_time(h["pid"]) == h["start"]]
        if not record["holders"]:
            _put_back(record)  # whoever raised it last was killed
        yield record
        file.seek(0)
        file.truncate()
        json.dump(record, file)


def _put_back(record):
    """Restores the value from before, unless someone has set another one since."""
    if record["original"] is not None and _read_setting() == record["raised"]:
        _write_setting(record["original"])
    record["original"] = record["raised"] = None


def tell_missing():
    """Says what a user's own root, who can not raise it, goes without."""
    value = _read_setting()
    if value < NEEDED:
        print(f"net.core.rmem_max stays at {value} for want of root (the instrument has {NEEDED}): fast streams lose datagrams. "
              f"As root: sysctl -w net.core.rmem_max={NEEDED}")


def acquire():
    """Counts this process in. Returns (value before, value now)."""
    with _record() as record:
        before = _read_setting()
        if before < NEEDED:
            if record["original"] is None:
                record["original"] = before
            record["raised"] = NEEDED
            _write_setting(NEEDED)
        record["holders"].append({"pid": os.getpid(), "start": start_time(os.getpid())})
        return (record["original"] if record["original"] is not None else before), _read_setting()


def release():
    """Counts this process out; the last one puts the old value back. Returns (value now, instruments still up)."""
    with _record() as record:
        record["holders"] = [h for h in record["holders"] if h["pid"] != os.getpid()]
        if not record["holders"]:
            _put_back(record)
        return _read_setting(), len(record["holders"])
