"""The panel as it ships on a virtual instrument (tessary.Instrument), and what is asked of it without a browser."""

import json
import os
import pathlib
import shutil
import sqlite3
import subprocess
import tempfile
import time
import urllib.error
import urllib.request

TREE = pathlib.Path(__file__).resolve().parents[2]
STREAMS = TREE / "build" / "streams"
PATIENCE = 120  # seconds after which something that does not come is not waited for any more
TELEVISION = "udp://239.0.0.1:1234"
DAY = 24 * 3600


def until(what, wanted, patience=PATIENCE):
    """Waits until `wanted()` is true; returns its value. `what` is for the message."""
    end = time.monotonic() + patience
    while time.monotonic() < end:
        value = wanted()
        if value:
            return value
        time.sleep(0.05)
    raise AssertionError(f"never came: {what}")


def line_of(process, wanted):
    """Reads what a process says up to this line, which is returned."""
    for line in process.stdout:
        if wanted(line):
            return line.strip()
    raise AssertionError(f"{process.args[0]} ended before it said what was waited for")


def started(words, **more):
    return subprocess.Popen(
        [os.fspath(word) for word in words], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, **more
    )


def keep_a_day(file):
    """A row for each second of the last 24 hours, as a measurement leaves them."""
    with sqlite3.connect(file, timeout=PATIENCE) as history:
        now = int(time.time())
        columns = "time, event, server, present, frame_bit_rate, delay_factor_ms, continuity_errors"
        columns += ", iat_median_us, iat_p95_us, iat_p99_us, iat_longest_us"
        history.executemany(
            f"INSERT INTO history ({columns}) VALUES ({', '.join('?' * 11)})",
            (
                (second, "period", TELEVISION, 1, 5159000 + 40 * (second % 997), 2 + (second % 97 == 0), second % 1201 == 0)
                + (2105, 3150 + second % 100, 4700 + second % 300, 6500 + second % 1500)
                for second in range(now - DAY, now - 30)
            ),
        )
    history.close()


class Folder:
    """A folder that is gone with the test."""

    def __init__(self):
        self.path = pathlib.Path(tempfile.mkdtemp(prefix="panel-test.", dir="/run"))

    def remove(self):
        shutil.rmtree(self.path, ignore_errors=True)


class PanelProgram:
    """tessary-panel on an instrument's line."""

    def __init__(self, build, run_dir, *options):
        self.process = started(
            [
                build / "bin" / "tessary-panel",
                *("--port", run_dir / "controller"),
                *("--listen", "127.0.0.1:0"),
                *("--instrument", TREE / "bench" / "instrument"),
                *("--sender", build / "bench" / "sender" / "tessary-send"),
                *("--streams", STREAMS),
                *("--page", TREE / "client" / "panel" / "www"),
                *options,
            ],
            env={**os.environ, "XDG_STATE_HOME": f"{run_dir}.state"},
        )
        self.url = line_of(self.process, lambda line: line.startswith("http://")).rstrip("/")

    @property
    def address(self):
        return self.url.removeprefix("http://")

    def stop(self):
        self.process.terminate()
        self.process.wait()
        self.process.stdout.close()

    def ask(self, path, value=None, method=None):
        """The answer's text; `value` is posted as JSON."""
        request = urllib.request.Request(self.url + path, method=method)
        if value is not None:
            request.data = json.dumps(value).encode()
            request.add_header("Content-Type", "application/json")
        with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
            return answer.read().decode()

    def get(self, path):
        return json.loads(self.ask(path))

    def post(self, path, value):
        return json.loads(self.ask(path, value))

    def run(self, *words):
        """A command line of tessaryctl, carried out; its JSON."""
        done = self.post("/api/run?wait=1", {"words": words})
        if done["status"] != 0:
            raise AssertionError(f"{words} ended with {done['status']}: {done['result']}")
        return done["result"]

    def until_topic(self, topic, wanted):
        """Waits until a topic's value is as wanted; returns it."""

        def look():
            value = self.get("/api/state").get(topic)
            return value if value is not None and wanted(value) else None

        return until(f"{topic} as wanted", look)

    def send(self, file="demo.ts", url=TELEVISION, **more):
        """Starts a sender; its number."""
        return self.post("/api/desk/senders", {"file": file, "url": url, **more})["id"]

    def end_sender(self, number):
        self.ask(f"/api/desk/senders/{number}", method="DELETE")

    def measure(self, url=TELEVISION):
        """Begins to measure, and waits for the stream's figures."""
        self.until_topic("line", lambda line: line["answers"])
        self.run("server", url)
        self.post("/api/measure", {"on": True})
        self.until_topic("measurement", lambda measurement: measurement["state"] == "valid")
