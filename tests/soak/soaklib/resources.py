"""What the daemon's process holds: memory, descriptors, threads, children; sampled into a CSV file.

A booted instrument runs this file inside (booted.py): it needs the standard library alone.
"""

import contextlib
import csv
import os
import re
import shutil
import subprocess
import threading
import time

FIELDS = ["seconds", "phase", "commands", "rss_kib", "anonymous_kib", "peak_kib", "descriptors", "threads", "children",
          "zombies", "cpu_seconds"]
_TICKS = os.sysconf("SC_CLK_TCK")


def sample(pid):
    """One look at the process; None when it is gone."""
    try:
        status = dict(line.split(":\t", 1) for line in _text(f"/proc/{pid}/status").splitlines() if ":\t" in line)
        times = _text(f"/proc/{pid}/stat").rpartition(")")[2].split()
        children = children_of(pid)
        return {
            "rss_kib": int(status["VmRSS"].split()[0]), "anonymous_kib": int(status["RssAnon"].split()[0]),
            "peak_kib": int(status["VmHWM"].split()[0]), "descriptors": len(os.listdir(f"/proc/{pid}/fd")),
            "threads": int(status["Threads"]), "children": len(children), "zombies": sum(map(_is_zombie, children)),
            "cpu_seconds": round((int(times[11]) + int(times[12])) / _TICKS, 2),
        }
    except (OSError, KeyError, ValueError):
        return None


def children_of(pid):
    """PIDs of a process's children, of all its threads."""
    children = []
    with contextlib.suppress(OSError):
        for thread in os.listdir(f"/proc/{pid}/task"):
            with contextlib.suppress(OSError):
                children += [int(word) for word in _text(f"/proc/{pid}/task/{thread}/children").split()]
    return children


def start_time(pid):
    """Tells a process from another that has its PID later; None when it is gone."""
    with contextlib.suppress(OSError):
        return _text(f"/proc/{pid}/stat").rpartition(")")[2].split()[19]
    return None


def describe(pid):
    """Descriptors and threads by name, for the comparison of two looks."""
    lines = []
    with contextlib.suppress(OSError):
        for name in sorted(os.listdir(f"/proc/{pid}/fd"), key=int):
            with contextlib.suppress(OSError):
                lines.append(f"descriptor {name} {os.readlink(f'/proc/{pid}/fd/{name}')}")
        for thread in sorted(os.listdir(f"/proc/{pid}/task"), key=int):
            with contextlib.suppress(OSError):
                lines.append(f"thread {_text(f'/proc/{pid}/task/{thread}/comm').strip()}")
        lines += _text(f"/proc/{pid}/smaps_rollup").splitlines()[1:]
    return "\n".join(lines) + "\n"


# Only while the one thread waits: within an allocation, the question would wait for itself.
_ASK_HEAP = """import gdb
idle = ("poll", "ppoll", "epoll_wait", "clock_nanosleep", "select")
if any(word in (gdb.newest_frame().name() or "") for word in idle):
    gdb.execute("call (void)malloc_stats()")
"""


def ask_heap(pid, log_path):
    """Bytes that the C library's heap holds for the daemon in all arenas, as malloc_stats() writes them to the daemon's log;
    None without gdb. The process stands still for a fraction of a second."""
    if not shutil.which("gdb"):
        return None
    command = ["gdb", "-nx", "-batch", "-iex", f"set sysroot /proc/{pid}/root",
               "-ex", "python exec(" + repr(_ASK_HEAP) + ")", "-p", str(pid)]
    for _ in range(5):
        before = os.path.getsize(log_path)
        with contextlib.suppress(subprocess.TimeoutExpired):
            subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                           timeout=60, check=False)
        with open(log_path, "rb") as log:
            log.seek(before)
            found = re.search(rb"Total \(incl\. mmap\):\nsystem bytes *= *\d+\nin use bytes *= *(\d+)", log.read())
        if found:
            return int(found.group(1))
        time.sleep(0.5)
    return None


class Sampler:
    """A thread that writes a row every `interval` seconds. `look()` gives a sample, `facts()` phase and number of commands."""

    def __init__(self, path, interval, look, facts):
        self._path, self._interval, self._look, self._facts = path, interval, look, facts
        self._stop = threading.Event()
        self._thread = threading.Thread(target=self._run, name="sampler", daemon=True)
        self.most = {}
        self.rows = 0

    def start(self):
        """Begins."""
        self._thread.start()

    def stop(self):
        """Ends; the file is whole afterwards."""
        self._stop.set()
        self._thread.join()

    def _run(self):
        began = time.monotonic()
        with open(self._path, "w", newline="", encoding="ascii") as file:
            table = csv.DictWriter(file, FIELDS)
            table.writeheader()
            while True:
                row = self._look()
                if row:
                    for key, value in row.items():
                        self.most[key] = max(value, self.most.get(key, 0))
                    table.writerow({"seconds": round(time.monotonic() - began, 1), **self._facts(), **row})
                    file.flush()
                    self.rows += 1
                if self._stop.wait(self._interval):
                    return


def _is_zombie(pid):
    with contextlib.suppress(OSError):
        return _text(f"/proc/{pid}/stat").rpartition(")")[2].split()[0] == "Z"
    return False


def _text(path):
    with open(path, encoding="utf-8", errors="replace") as file:
        return file.read()
