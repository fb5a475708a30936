#!/usr/bin/python3
"""A session at the panel's page: the real panel on a virtual instrument with its hardware, in a headless Chromium.

usage: session_test.py BUILD [options of unittest]

BUILD is the build folder. Needs root for the virtual instrument; exit status 77 without it or without a browser.
"""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

try:
    from browser import Panel, start_browser
except ImportError as missing:
    print(f"skipped: {missing}; script/bootstrap --with panel installs it", file=sys.stderr)
    sys.exit(77)

TREE = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else TREE / "build" / "release"


class LivePanel(Panel):
    """A browser's view of a panel that runs by itself."""

    def __init__(self, driver, url):
        self.driver = driver
        self.address = url

    @property
    def url(self):
        return self.address

    def complaints(self):
        """Without the browser's notes of answers that are no success, which are no fault of the page."""
        return [each for each in super().complaints() if "Failed to load resource" not in each]


def line_of(process, wanted):
    """Reads what a process says up to this line, which is returned."""
    for line in process.stdout:
        if wanted(line):
            return line.strip()
    raise AssertionError(f"{process.args[0]} ended before it said what was waited for")


class Session(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = pathlib.Path(tempfile.mkdtemp(prefix="panel-session."))
        cls.addClassCleanup(shutil.rmtree, cls.folder, ignore_errors=True)
        cls.run_dir = cls.folder / "instrument"
        cls.start_instrument()
        cls.start_panel()
        cls.driver = start_browser()
        cls.addClassCleanup(cls.driver.quit)
        cls.panel = LivePanel(cls.driver, cls.url)
        cls.panel.size(1280)
        cls.panel.open()

    @classmethod
    def start_instrument(cls):
        cls.instrument = subprocess.Popen(
            [TREE / "bench" / "hardware", "--build", BUILD, "--run-dir", cls.run_dir],
            stdout=subprocess.PIPE,
            stderr=subprocess.DEVNULL,
            stdin=subprocess.DEVNULL,
            text=True,
        )
        cls.addClassCleanup(cls.end_instrument)
        line_of(cls.instrument, lambda line: line == "ready\n")

    @classmethod
    def end_instrument(cls):
        subprocess.run(
            [TREE / "bench" / "instrument", "stop", "--run-dir", cls.run_dir], stdout=subprocess.DEVNULL, check=False
        )
        cls.instrument.wait()
        cls.instrument.stdout.close()

    @classmethod
    def start_panel(cls):
        environment = {**os.environ, "XDG_STATE_HOME": str(cls.folder / "state")}
        cls.program = subprocess.Popen(
            [
                BUILD / "bin" / "tessary-panel",
                "--port",
                cls.run_dir / "controller",
                "--listen",
                "127.0.0.1:0",
                "--instrument",
                TREE / "bench" / "instrument",
                "--sender",
                BUILD / "bench" / "sender" / "tessary-send",
                "--streams",
                TREE / "build" / "streams",
                "--page",
                TREE / "client" / "panel" / "www",
            ],
            stdout=subprocess.PIPE,
            stdin=subprocess.DEVNULL,
            text=True,
            env=environment,
        )
        cls.addClassCleanup(cls.end_panel)
        cls.url = line_of(cls.program, lambda line: line.startswith("http://")).rstrip("/") + "/"

    @classmethod
    def end_panel(cls):
        cls.program.terminate()
        cls.program.wait()
        cls.program.stdout.close()

    def test_session(self):
        """One after another, as a person goes through it: each step needs what the one before has brought."""
        for step in (
            self.start_sender,
            self.scan,
            self.take_table_apart,
            self.play,
            self.look,
            self.measure,
            self.ping,
            self.type_command,
            self.lose_and_find_the_daemon,
        ):
            with self.subTest(step=step.__name__):
                step()
        self.assertEqual(self.panel.complaints(), [])

    def start_sender(self):
        self.panel.go("desk")
        self.panel.until(
            "const it = document.querySelector('.page.desk select'); it.value = 'demo.ts'; return it.value === 'demo.ts'"
        )
        self.panel.press("Start sender")
        self.panel.until_text("sends", ".page.desk table")

    def scan(self):
        self.panel.go("stream")
        self.panel.press("Set and scan")
        self.panel.until_text("Tessary Grün", ".page.stream table")
        self.panel.press("PIDs of Tessary Grün")
        self.panel.until_text("257 (0x101)", ".page.stream")

    def take_table_apart(self):
        self.panel.press("Fetch")
        self.panel.until_text("service_id", ".tree")

    def play(self):
        self.panel.press("Play Tessary Grün")
        self.panel.until_text("plays Tessary Grün", ".chips")

    def look(self):
        self.panel.go("picture")
        self.panel.until("return document.querySelector('.screen img')?.naturalWidth === 720")
        self.panel.until_text("dBFS", ".meters")

    def measure(self):
        self.panel.go("reception")
        self.panel.press("Measure")
        self.panel.until_text("stream present", ".page.reception")
        self.panel.until("return document.querySelectorAll('.histogram .bar').length > 0")
        self.panel.until_text("Mbit/s", ".page.reception figcaption")

    def ping(self):
        self.panel.go("network")
        self.panel.js(
            "[...document.querySelectorAll('.page.network input')].find((each) => each.required).value = '192.168.77.1'"
        )
        self.panel.press("Ping from the instrument")
        self.panel.until_text("3 of 3 answered", ".page.network")

    def type_command(self):
        self.panel.go("commands")
        self.panel.js("document.querySelector('.commands input.mono').value = 'raw version?'")
        self.panel.press("Run")
        self.panel.until_text("SV: mx8", ".page.commands .outcome")

    def lose_and_find_the_daemon(self):
        self.panel.go("desk")
        self.panel.press("Kill the daemon")
        self.panel.until("return document.querySelector('.banner').hidden === false")
        self.panel.press("Start the daemon")
        self.panel.until("return document.querySelector('.banner').hidden")


if __name__ == "__main__":
    if os.geteuid() != 0:
        print("skipped: the virtual instrument needs root", file=sys.stderr)
        sys.exit(77)
    unittest.main()
