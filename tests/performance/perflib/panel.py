"""The front panel: its first view, what it takes with many browsers, an hour of it, and a scrape of its metrics."""

import os
import pathlib
import socket
import sys
import threading
import time

import tessary

from .processes import process_seconds, resident_kib
from .session import Failure, median, percentile, worst
from .tables import milliseconds, number, table, verdict

BIT_RATE = 10_000_000
BROWSERS = (0, 1, 20)
LONG_SECONDS = "TESSARY_PANEL_SECONDS"  # environment: for how long its memory is watched

# When the page shows that the instrument answers, the stream's bit rate and a plot of it.
NOTE_FIRST_VIEW = """addEventListener('DOMContentLoaded', () => new MutationObserver((_, observer) => {
    const shows = (where, what) => document.querySelector(where)?.textContent.includes(what);
    if (!shows('.chip', 'connected') || !shows('.answer.reception', 'bit/s') || !document.querySelector('.plot canvas')) return;
    observer.disconnect();
    requestAnimationFrame(() => setTimeout(() => { window.firstView = performance.now(); }));
}).observe(document.body, {childList: true, subtree: true, characterData: true}));"""


class Listener:
    """What a browser asks for once it shows the reception: the events without end, and the last five minutes."""

    def __init__(self, panel):
        self.bytes = 0
        panel.get(f"/api/history?from={time.time() - 300}&points=1500")
        host, port = panel.address.split(":")
        self._socket = socket.create_connection((host, int(port)))
        self._socket.sendall(f"GET /api/events HTTP/1.1\r\nHost: {panel.address}\r\n\r\n".encode())
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        try:
            while data := self._socket.recv(65536):
                self.bytes += len(data)
        except OSError:
            pass  # stopped

    def stop(self):
        """Ends as a browser that is closed."""
        self._socket.shutdown(socket.SHUT_RDWR)
        self._socket.close()


class Watched:
    """A panel on a virtual instrument that measures a stream of 10 Mbit/s, and its browsers."""

    def __init__(self, session):
        sys.path.insert(0, f"{session.repository}/tests/panel")
        import live  # pylint: disable=import-outside-toplevel,import-error
        self.live = live
        self._folder = live.Folder()
        build = pathlib.Path(session.build)
        self._instrument = tessary.Instrument(build=build, run_dir=self._folder.path / "instrument")
        self._instrument.start()
        history = self._folder.path / "history.sqlite"
        self.panel = live.PanelProgram(build, self._instrument.run_dir, "--history", history)
        live.keep_a_day(history)
        self.panel.send(bit_rate=BIT_RATE)
        self.panel.measure()
        self.pid = self.panel.process.pid

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.panel.stop()
        self._instrument.stop()
        self._folder.remove()

    def with_browsers(self, count, seconds):
        """Processor time and memory of the panel, and what goes to each browser."""
        listeners = [Listener(self.panel) for _ in range(count)]
        try:
            time.sleep(2)
            used, before = process_seconds(self.pid), sum(each.bytes for each in listeners)
            time.sleep(seconds)
            used, sent = process_seconds(self.pid) - used, sum(each.bytes for each in listeners) - before
            if any(each.bytes == 0 for each in listeners):
                raise Failure("a browser got nothing")
            return {"cpu_percent": 100 * used / seconds, "resident_kib": resident_kib(self.pid),
                    "bytes_per_second": sent / seconds / count if count else None}
        finally:
            for each in listeners:
                each.stop()

    def memory(self, seconds):
        """Resident memory with 20 browsers, ten times in this while."""
        listeners = [Listener(self.panel) for _ in range(max(BROWSERS))]
        try:
            sizes = [resident_kib(self.pid)]
            for _ in range(10):
                time.sleep(seconds / 10)
                sizes.append(resident_kib(self.pid))
            return {"seconds": seconds, "first_kib": sizes[1], "last_kib": sizes[-1], "most_kib": max(sizes)}
        finally:
            for each in listeners:
                each.stop()

    def scrapes(self, count):
        """Scrapes of /metrics one after another."""
        taken, before = [], process_seconds(self.pid)
        for _ in range(count):
            begin = time.monotonic()
            text = self.panel.ask("/metrics")
            taken.append((time.monotonic() - begin) * 1000)
        return {"median_ms": percentile(taken, 0.5), "worst_ms": max(taken), "bytes": len(text),
                "series": sum(not line.startswith("#") for line in text.splitlines()),
                "cpu_ms": (process_seconds(self.pid) - before) * 1000 / count}

    def views(self):
        """A fresh browser: its first view, and the plots of a whole day."""
        import browser  # pylint: disable=import-outside-toplevel,import-error
        driver = browser.start_browser()
        try:
            driver.execute_cdp_cmd("Page.addScriptToEvaluateOnNewDocument", {"source": NOTE_FIRST_VIEW})
            page = browser.LivePanel(driver, self.panel.url)
            page.size(1280, 900)
            driver.get(page.url)
            first = page.until("return window.firstView")
            page.go("reception")
            page.until("return document.querySelectorAll('.page.reception .plots canvas').length >= 8")
            return {"first_ms": first, "day_ms": driver.execute_async_script(browser.DRAW_A_DAY)}
        finally:
            driver.quit()


def measure(session):
    """By number of browsers; views, scrapes and memory."""
    seconds = 10 if session.quick else 30
    raw = {"browsers": {}, "views": [], "scrapes": [], "memory": []}
    long = int(os.environ.get(LONG_SECONDS, "30" if session.quick else "120"))
    with Watched(session) as watched:
        for name, values in session.rounds("panel", {
                str(count): lambda count=count: watched.with_browsers(count, seconds) for count in BROWSERS}, 2).items():
            raw["browsers"][name] = values
        for name, work in (("views", watched.views), ("scrapes", lambda: watched.scrapes(300))):
            raw[name] = session.rounds("panel", {name: work})[name]
        raw["memory"] = session.rounds("panel", {"memory": lambda: watched.memory(long)}, 1)["memory"]
    return raw


def report(raw, _results):
    """Markdown."""
    rows = [[f"{name} browsers", f"{median(values, 'cpu_percent'):.1f} %",
             number((median(values, "bytes_per_second") or 0) / 1000, 1) + " kB/s" if name != "0" else "–",
             number(median(values, "resident_kib") / 1024, 1) + " MiB"]
            for name, values in raw["browsers"].items() if values]
    views, scrapes, memory = raw["views"], raw["scrapes"], raw["memory"]
    lines = [table(["", "CPU (of one processor)", "to each browser", "resident"], rows), "",
             table(["", "median", "worst"], [
                 ["first view, from the address to bit rate and plot", milliseconds(median(views, "first_ms")),
                  milliseconds(worst(views, "first_ms"))],
                 ["24 hours, from the choice to four plots", milliseconds(median(views, "day_ms")),
                  milliseconds(worst(views, "day_ms"))],
                 ["a scrape of /metrics", milliseconds(median(scrapes, "median_ms")), milliseconds(worst(scrapes, "worst_ms"))]]),
             ""]
    if scrapes:
        lines += [f"A scrape has {number(scrapes[0]['bytes'])} bytes and {scrapes[0]['series']} series, and takes "
                  f"{median(scrapes, 'cpu_ms'):.2f} ms of the panel's processor time.", ""]
    if memory:
        grown = memory[0]["last_kib"] - memory[0]["first_kib"]
        lines += [f"Memory over {number(memory[0]['seconds'] / 60)} minutes with 20 browsers: "
                  f"{memory[0]['first_kib'] / 1024:.1f} MiB after a tenth of the time, {memory[0]['last_kib'] / 1024:.1f} MiB at the "
                  f"end ({grown:+,} KiB), {memory[0]['most_kib'] / 1024:.1f} MiB at most.", ""]
    first = worst(views, "first_ms")
    lines.append(verdict("first view within a second", None if first is None else first <= 1000, milliseconds(first)))
    day = median(views, "day_ms")
    lines.append(verdict("24 hours drawn within a second", None if day is None else day <= 1000, milliseconds(day)))
    return "\n".join(lines)


def plot(_raw, _folder):
    """None."""
    return []
