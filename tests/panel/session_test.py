#!/usr/bin/python3
"""A session at the panel's page: the real panel on a virtual instrument with its hardware, in a headless Chromium.

usage: PYTHONPATH=BUILD/python session_test.py BUILD [--pictures FOLDER] [options of unittest]

BUILD is the build folder. --pictures takes those of docs/panel.md on the way. Needs root for the virtual instrument; exit
status 77 without it or without a browser.
"""

import json
import os
import pathlib
import subprocess
import sys
import time
import unittest

try:
    from browser import DRAW_A_DAY, LivePanel, start_browser
except ImportError as missing:
    print(f"skipped: {missing}; script/bootstrap --with panel installs it", file=sys.stderr)
    sys.exit(77)

import live
import tessary

BUILD = pathlib.Path(sys.argv.pop(1)).resolve() if len(sys.argv) > 1 else live.TREE / "build" / "release"
PICTURES = None
if "--pictures" in sys.argv:
    at = sys.argv.index("--pictures")
    PICTURES = pathlib.Path(sys.argv[at + 1])
    del sys.argv[at : at + 2]

WIDTH, HEIGHT = 1280, 860
# Of the stream demo.ts: what the display shows (RGB), what the loudspeaker sounds (Hz).
PROGRAMS = {
    "Café Tessary": ((255, 0, 0), 440),
    "Tessary Grün": ((0, 192, 0), 1000),
    "Tessary Blå": ((0, 0, 255), 1700),
}
FIGURES = ("bit_rate", "delay_factor_ms", "continuity_errors", "packet_size", "packets_per_datagram")

# The share of the picture that has a colour, as closely as a lossy coder keeps it.
SHARE_OF_COLOUR = """const [wanted] = arguments;
    const image = document.querySelector('.screen img');
    if (!image?.naturalWidth) return 0;
    const canvas = Object.assign(document.createElement('canvas'), {width: 72, height: 58});
    const context = canvas.getContext('2d');
    context.drawImage(image, 0, 0, canvas.width, canvas.height);
    const {data} = context.getImageData(0, 0, canvas.width, canvas.height);
    let near = 0;
    for (let at = 0; at < data.length; at += 4)
        near += wanted.every((part, i) => Math.abs(data[at + i] - part) < 60) ? 1 : 0;
    return 4 * near / data.length;"""

# What goes to the loudspeaker is listened to, too.
LISTEN_ALONG = """if (window.heard !== undefined) return;
    window.heard = null;
    const connect = AudioNode.prototype.connect;
    AudioNode.prototype.connect = function (target, ...more) {
        if (target === this.context.destination) {
            window.heard = new AnalyserNode(this.context, {fftSize: 32768, smoothingTimeConstant: 0});
            connect.call(this, window.heard);
        }
        return connect.call(this, target, ...more);
    };"""

STRONGEST_TONE = """if (!window.heard) return 0;
    const bins = new Float32Array(window.heard.frequencyBinCount);
    window.heard.getFloatFrequencyData(bins);
    const best = bins.reduce((most, level, at) => (level > bins[most] ? at : most), 0);
    return bins[best] > -60 ? best * window.heard.context.sampleRate / window.heard.fftSize : 0;"""

# Each value of the measurement as it came, with what the page showed then.
NOTE_FIGURES = """window.told = [];
    import('/app/store.js').then(({on}) => on('measurement', (value) => {
        if (value.figures) requestAnimationFrame(() => requestAnimationFrame(() => window.told.push(
            {time: value.time, figures: value.figures, shown: document.querySelector('.page.reception').innerText})));
    })).then(arguments[arguments.length - 1]);"""


class Session(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        folder = live.Folder()
        cls.addClassCleanup(folder.remove)
        cls.folder = folder.path
        instrument = tessary.Instrument(build=BUILD, run_dir=cls.folder / "instrument", hardware=True)
        instrument.start()
        cls.addClassCleanup(instrument.stop)
        history = cls.folder / "history.sqlite"
        cls.program = live.PanelProgram(BUILD, instrument.run_dir, "--history", history, "--allow-update")
        cls.addClassCleanup(cls.program.stop)
        live.keep_a_day(history)
        cls.panel = cls.browser()

    @classmethod
    def browser(cls):
        driver = start_browser()
        cls.addClassCleanup(driver.quit)
        panel = LivePanel(driver, cls.program.url)
        panel.size(WIDTH, HEIGHT)
        panel.open()
        return panel

    def test_session(self):
        """One after another, as a person goes through it: each step needs what the one before has brought."""
        for step in (
            self.start_sender,
            self.scan,
            self.take_table_apart,
            self.play_each_program,
            self.record_and_export,
            self.measure,
            self.compare_with_the_tool,
            self.look_at_a_day,
            self.see_the_same_in_two_browsers,
            self.pull_the_cable,
            self.count_errors,
            self.ping,
            self.type_command,
            self.lose_and_find_the_daemon,
            self.look_around,
            self.install_a_package,
        ):
            began = time.monotonic()
            with self.subTest(step=step.__name__):
                step()
            print(f"{time.monotonic() - began:5.1f} s  {step.__name__}", file=sys.stderr, flush=True)
        self.assertEqual(self.panel.complaints(), [])

    def start_sender(self, errors=0):
        self.panel.go("desk")
        self.panel.until(
            "const it = document.querySelector('.page.desk select'); it.value = 'demo.ts'; return it.value === 'demo.ts'"
        )
        self.panel.fill("desk", "Continuity errors a second", errors)
        self.panel.press("Start sender")
        self.panel.until_text("sends", ".page.desk table")

    def scan(self):
        self.panel.go("stream")
        self.panel.press("Set and scan")
        self.panel.until_text("Tessary Grün", ".page.stream table")
        self.panel.press("PIDs of Tessary Grün")
        self.panel.until_text("257 (0x101)", ".page.stream")
        self.take_picture("stream")

    def take_table_apart(self):
        self.panel.press("Fetch")
        self.panel.until_text("service_id", ".tree")
        self.panel.js(
            "[...document.querySelectorAll('.tree .node')].find((each) => each.innerText.includes('service_id')).click();"
            "document.querySelector('.bytes').scrollIntoView({block: 'center'})"
        )
        self.take_picture("tables", height=620)

    def play_each_program(self):
        for name, (colour, hertz) in PROGRAMS.items():
            self.panel.go("stream")
            self.panel.press(f"Play {name}")
            self.panel.until_text(f"plays {name}", ".chips")
            self.panel.go("picture")
            self.panel.until(f"return (function () {{ {SHARE_OF_COLOUR} }})(arguments[0]) > 0.5", list(colour))
            self.panel.js(LISTEN_ALONG)
            self.panel.press("Listen")
            self.panel.until(f"return Math.abs((function () {{ {STRONGEST_TONE} }})() - arguments[0]) < 3", hertz)
        self.panel.until_text("dBFS", ".meters")
        self.panel.until_text("720 × 576", ".page.picture")
        self.take_picture("picture")

    def record_and_export(self):
        self.panel.go("recorder")
        self.panel.press("Record the current stream")
        self.panel.until_text("records", ".page.recorder .said")
        self.panel.until("return /[1-9][.\\d]* MB/.test(document.querySelector('.page.recorder').innerText)")
        self.take_picture("recorder")
        self.panel.press("Stop")
        self.panel.press("Do it", "dialog")
        self.panel.until_text("a recording is there", ".page.recorder .said")
        self.program.post("/api/desk/knobs", {"export-rate": 500000})
        self.panel.press("Send it to the FPGA")
        self.panel.press("Do it", "dialog")
        self.panel.until_text("exporting", ".strip .job")
        self.panel.until("return document.querySelector('.strip .job') === null")
        self.panel.until_text("done", ".strip .ended")
        self.program.post("/api/desk/knobs", {"export-rate": -1})
        self.assertEqual(self.program.get("/api/state")["done"]["words"], ["export"])

    def measure(self):
        self.panel.go("reception")
        self.panel.press("Measure")
        self.panel.until_text("stream present", ".page.reception")
        self.panel.until("return document.querySelectorAll('.histogram .bar').length > 0")
        self.panel.until_text("Mbit/s", ".page.reception figcaption")

    def compare_with_the_tool(self):
        """The page shows what the tool tells of the same second."""
        self.panel.driver.execute_async_script(NOTE_FIGURES)
        compared = live.until("a second of both", self.same_second)
        shown = self.panel.driver.execute_async_script(
            "import('/app/units.js').then((units) => arguments[1](units.bitRateText(arguments[0])))",
            compared["figures"]["bit_rate"],
        )
        self.assertIn(shown, compared["shown"])

    def same_second(self):
        """What the page showed of the period that the tool has told; nothing when the panel saw only the next one."""
        told = self.program.run("measure")
        for _ in range(20):
            for each in self.panel.js("return window.told"):
                if all(each["figures"][key] == told[key] for key in FIGURES):
                    return each
            time.sleep(0.05)
        return None

    def look_at_a_day(self):
        """A slow machine may need a second try."""
        taken = []

        def quick():
            taken.append(self.panel.driver.execute_async_script(DRAW_A_DAY) / 1000)
            return taken[-1] < 1

        live.until("24 hours drawn within a second", quick, patience=20)
        print(f"         24 hours drawn in {', '.join(f'{each:.2f}' for each in taken)} s", file=sys.stderr)
        rows = self.program.get("/api/history?points=1500&from=0")["rows"]
        self.assertGreater(rows[-1][0] - rows[0][0], live.DAY - 600)
        self.take_picture("reception", height=1300, theme="dark")
        self.panel.js(
            "const it = document.querySelector('.tools select'); it.value = '300'; it.dispatchEvent(new Event('change'))"
        )
        self.panel.go("overview")
        self.take_picture("overview", height=1060)

    def see_the_same_in_two_browsers(self):
        other = self.browser()
        for each in (self.panel, other):
            each.go("reception")
            each.driver.execute_async_script(NOTE_FIGURES)
        live.until("seconds that both have seen", lambda: len(self.seen(self.panel) & self.seen(other)) > 2)
        other.js("localStorage.setItem('name', 'Ada')")
        other.go("commands")
        other.js("document.querySelector('.commands input.mono').value = 'ping 192.168.77.1'")
        other.press("Run")
        self.panel.until_text("ping 192.168.77.1", ".strip")
        self.panel.until_text("Ada", ".strip")
        other.until_text("round trip", ".page.commands .outcome")
        self.panel.until("return document.querySelector('.strip .job') === null")
        live.until("the same head in both", lambda: self.panel.text(".chips") == other.text(".chips"))
        self.assertEqual(other.complaints(), [])
        other.driver.get("about:blank")

    @staticmethod
    def seen(panel):
        """The values of the measurement that a page has had, as text."""
        return {json.dumps([each["time"], each["figures"]]) for each in panel.js("return window.told")}

    def pull_the_cable(self):
        self.panel.go("desk")
        self.panel.press("Pull it out")
        began = time.monotonic()
        self.panel.until_text("no Ethernet link", ".chips")
        print(f"         a pulled cable is seen after {time.monotonic() - began:.1f} s", file=sys.stderr)
        self.panel.until_text("out", ".page.desk dd .bad")
        self.panel.press("Plug the cable in")
        self.panel.until_text("stream present", ".chips")

    def count_errors(self):
        """Three errors a second are sent, and drawn."""
        self.panel.press("Stop sender of demo.ts")
        self.panel.until_text("No sender runs", ".page.desk")
        self.panel.until_text("no stream", ".chips")
        began = time.time()
        self.start_sender(errors=3)
        self.panel.until_text("stream with errors", ".chips")
        self.panel.go("reception")
        self.panel.until(
            """const plot = [...document.querySelectorAll('.page.reception figure')]
            .find((each) => each.querySelector('strong').textContent === 'Continuity errors a second');
            return plot.querySelector('.readout').textContent === '3'"""
        )

        def counted():
            history = self.program.get(f"/api/history?from={began}")
            place = history["columns"].index("continuity_errors")
            errors = [row[place] for row in history["rows"] if row[place]]
            return errors if len(errors) > 6 else None

        errors = live.until("some seconds with errors", counted)[-5:]  # the first ones have the seam to the sender before
        self.assertLessEqual(abs(sum(errors) - 3 * len(errors)), 2, errors)

    def ping(self):
        self.panel.go("network")
        self.panel.js(
            "[...document.querySelectorAll('.page.network input')].find((each) => each.required).value = '192.168.77.1'"
        )
        self.panel.press("Ping from the instrument")
        self.panel.until_text("3 of 3 answered", ".page.network")
        self.take_picture("network")

    def type_command(self):
        self.panel.go("commands")
        self.panel.js("document.querySelector('.commands input.mono').value = 'raw version?'")
        self.panel.press("Run")
        self.panel.until_text("SV: mx8", ".page.commands .outcome")
        self.take_picture("commands")

    def lose_and_find_the_daemon(self):
        self.panel.go("desk")
        self.take_picture("desk")
        self.panel.press("Kill the daemon")
        self.panel.until("return document.querySelector('.banner').hidden === false")
        self.panel.press("Start the daemon")
        self.panel.until("return document.querySelector('.banner').hidden")
        self.panel.until_text("connected", ".chips")

    def look_around(self):
        """The other pages, for their pictures."""
        for page in ("t2mi", "fpga", "dab", "update", "line"):
            self.panel.go(page)
            self.take_picture(page)
        self.panel.go("overview")
        self.take_picture("narrow", width=360, height=760, theme="dark")

    def install_a_package(self):
        package = self.folder / "tessary-update_1.5_all.deb"
        subprocess.run([live.TREE / "bench" / "counterparts" / "make-package", "--bytes", "20000", package], check=True)
        self.panel.go("update")
        self.panel.driver.find_element("css selector", ".page.update input[type=file]").send_keys(str(package))
        self.panel.press("Send and install")
        self.panel.press("Do it", "dialog")
        self.panel.until("const it = document.querySelector('.strip progress'); return it?.value > 0 && it.value < 1")
        self.panel.until_text("installed", ".page.update .outcome")
        self.assertTrue(self.program.get("/api/state")["done"]["result"]["installed"])

    def take_picture(self, name, width=WIDTH, height=HEIGHT, theme="light"):
        """For docs/panel.md, when they are wanted."""
        if PICTURES is None:
            return
        PICTURES.mkdir(parents=True, exist_ok=True)
        panel = self.panel
        panel.size(width, height)
        for _ in range(3):  # its button goes from the one to the next
            if panel.js("return document.documentElement.dataset.theme") != theme:
                panel.js("document.querySelector('.theme').click()")
        panel.until(
            "return [...document.querySelectorAll('.plot')].filter((each) => each.checkVisibility())"
            ".every((each) => each.querySelector('canvas'))"
        )
        time.sleep(1.2)  # the plots are drawn anew once a second
        panel.picture(PICTURES / f"{name}.png")
        panel.size(WIDTH, HEIGHT)


if __name__ == "__main__":
    if os.geteuid() != 0:
        print("skipped: the virtual instrument needs root", file=sys.stderr)
        sys.exit(77)
    unittest.main()
