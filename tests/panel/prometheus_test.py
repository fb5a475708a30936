#!/usr/bin/python3
"""A monitoring system watches two instruments: Debian's Prometheus with the panel's alert rules scrapes two panels.

usage: PYTHONPATH=BUILD/python prometheus_test.py BUILD [options of unittest]

Needs root for the virtual instruments; exit status 77 without it or without Prometheus.
"""

import json
import os
import pathlib
import shutil
import socket
import subprocess
import sys
import unittest
import urllib.error
import urllib.parse
import urllib.request

import live
import tessary

BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else live.TREE / "build" / "release"
PROMETHEUS = shutil.which("prometheus")
RULES = live.TREE / "client" / "panel" / "monitoring" / "tessary.rules.yml"
CONFIGURATION = """global: {{scrape_interval: 1s, evaluation_interval: 1s}}
rule_files: [{rules}]
scrape_configs:
  - job_name: tessary
    static_configs: [{{targets: {targets}}}]
"""


def free_port():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


class Prometheus:
    """Debian's, on this machine alone."""

    def __init__(self, folder, targets):
        configuration = folder / "prometheus.yml"
        configuration.write_text(CONFIGURATION.format(rules=RULES, targets=json.dumps(targets)), encoding="ascii")
        self.url = f"http://127.0.0.1:{free_port()}"
        self.log = open(folder / "prometheus.log", "wb")
        self.process = subprocess.Popen(
            [
                PROMETHEUS,
                f"--config.file={configuration}",
                f"--storage.tsdb.path={folder / 'tsdb'}",
                f"--web.listen-address={self.url.removeprefix('http://')}",
            ],
            stdin=subprocess.DEVNULL,
            stdout=self.log,
            stderr=self.log,
        )

    def stop(self):
        self.process.terminate()
        self.process.wait()
        self.log.close()

    def get(self, path, **query):
        """`data` of its answer; None while it starts."""
        try:
            with urllib.request.urlopen(f"{self.url}{path}?{urllib.parse.urlencode(query)}", timeout=10) as answer:
                return json.load(answer)["data"]
        except urllib.error.URLError:
            return None

    def values(self, expression):
        """{instance: value} of an expression."""
        found = self.get("/api/v1/query", query=expression) or {"result": []}
        return {each["metric"].get("instance"): float(each["value"][1]) for each in found["result"]}

    def firing(self):
        """{alert: {instance}} of the alerts that are firing; None while it starts."""
        found = self.get("/api/v1/alerts")
        if found is None:
            return None
        firing = {}
        for each in found["alerts"]:
            if each["state"] == "firing":
                firing.setdefault(each["labels"]["alertname"], set()).add(each["labels"]["instance"])
        return firing


class Monitoring(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = live.Folder()
        cls.addClassCleanup(folder.remove)
        cls.panels = [cls.watched(folder.path / name) for name in ("first", "second")]
        cls.senders = [panel.send() for panel in cls.panels]
        for panel in cls.panels:
            panel.measure()
        cls.prometheus = Prometheus(folder.path, [panel.address for panel in cls.panels])
        cls.addClassCleanup(cls.prometheus.stop)

    @classmethod
    def watched(cls, run_dir):
        instrument = tessary.Instrument(build=BUILD, run_dir=run_dir)
        instrument.start()
        cls.addClassCleanup(instrument.stop)
        panel = live.PanelProgram(BUILD, run_dir)
        cls.addClassCleanup(panel.stop)
        return panel

    def test_a_lost_stream_is_an_alert_of_its_instrument_alone(self):
        well, other = (panel.address for panel in self.panels)
        both = {well: 1.0, other: 1.0}
        live.until("both are scraped", lambda: self.prometheus.values("tessary_stream_present") == both)
        self.assertEqual(self.prometheus.values('up{job="tessary"}'), both)
        live.until("no alert", lambda: self.prometheus.firing() == {})
        rates = self.prometheus.values("tessary_stream_bits_per_second")
        self.assertTrue(all(4e6 < rate < 7e6 for rate in rates.values()), rates)
        self.panels[1].end_sender(self.senders[1])
        live.until("the alert", lambda: "TessaryStreamGone" in self.prometheus.firing())
        firing = self.prometheus.firing()
        firing.pop("TessaryContinuityErrors", None)  # a busy desk may lose a datagram
        self.assertEqual(firing, {"TessaryStreamGone": {other}})
        self.assertEqual(self.prometheus.values("tessary_stream_present"), {well: 1.0, other: 0.0})
        self.panels[1].send()
        live.until("the alert's end", lambda: "TessaryStreamGone" not in self.prometheus.firing())


if __name__ == "__main__":
    if PROMETHEUS is None:
        print("skipped: prometheus is not installed; script/bootstrap --with panel installs it", file=sys.stderr)
        sys.exit(77)
    if os.geteuid() != 0:
        print("skipped: the virtual instrument needs root", file=sys.stderr)
        sys.exit(77)
    unittest.main()
