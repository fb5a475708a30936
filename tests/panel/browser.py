"""A headless Chromium that looks at the panel's page, and the stand-in that serves it."""

import base64
import pathlib
import shutil
import subprocess
import threading
import time

from selenium import webdriver
from selenium.webdriver.chrome.service import Service

import standin

HERE = pathlib.Path(__file__).resolve().parent
AXE = HERE.parents[1] / "build" / "panel"  # where npm puts axe-core, which is not part of the tree
PATIENCE = 60  # seconds after which something that does not come is not waited for any more
PAGES = [
    "overview",
    "stream",
    "picture",
    "reception",
    "recorder",
    "t2mi",
    "network",
    "fpga",
    "dab",
    "update",
    "commands",
    "line",
    "desk",
]

# Milliseconds from the choice of 24 hours until all four plots are drawn with it.
DRAW_A_DAY = """const done = arguments[arguments.length - 1];
    const draw = Dygraph.prototype.updateOptions;
    let drawn = 0;
    Dygraph.prototype.updateOptions = function (options, ...more) {
        const value = draw.call(this, options, ...more);
        if (options.file?.length > 1000) drawn += 1;
        if (drawn === 4) {
            drawn = 5;
            Dygraph.prototype.updateOptions = draw;
            done(performance.now() - begun);
        }
        return value;
    };
    const stretch = document.querySelector('.page.reception .tools select');
    stretch.value = '86400';
    const begun = performance.now();
    stretch.dispatchEvent(new Event('change'));"""


def start_browser():
    options = webdriver.ChromeOptions()
    for argument in (
        "--headless=new",
        "--no-sandbox",
        "--disable-gpu",
        "--hide-scrollbars",
        "--force-device-scale-factor=1",
        "--autoplay-policy=no-user-gesture-required",
        "--mute-audio",
    ):
        options.add_argument(argument)
    options.set_capability("goog:loggingPrefs", {"browser": "ALL"})
    driver = webdriver.Chrome(service=Service("/usr/bin/chromedriver"), options=options)
    driver.set_page_load_timeout(PATIENCE)
    driver.set_script_timeout(PATIENCE)
    return driver


def axe_source():
    """The text of axe-core in the version of package-lock.json, fetched by npm once."""
    file = AXE / "node_modules" / "axe-core" / "axe.min.js"
    if not file.is_file():
        AXE.mkdir(parents=True, exist_ok=True)
        for name in ("package.json", "package-lock.json"):
            shutil.copy(HERE / name, AXE)
        subprocess.run(
            ["npm", "ci", "--no-audit", "--no-fund", "--ignore-scripts"],
            cwd=AXE,
            check=True,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
        )
    return file.read_text(encoding="utf-8")


class Panel:
    """A stand-in that runs, and a browser's view of it."""

    def __init__(self, driver, *arguments):
        self.driver = driver
        self.start(*arguments)

    def start(self, *arguments):
        self.server = standin.serve([*arguments])
        self.instrument = self.server.instrument
        threading.Thread(target=self.server.serve_forever, kwargs={"poll_interval": 0.05}, daemon=True).start()

    def stop(self):
        self.server.stop()

    @property
    def url(self):
        return f"http://127.0.0.1:{self.server.server_port}/"

    def size(self, width, height=900):
        self.driver.execute_cdp_cmd(
            "Emulation.setDeviceMetricsOverride", {"width": width, "height": height, "deviceScaleFactor": 1, "mobile": False}
        )

    def theme(self, name):
        self.js("localStorage.setItem('theme', arguments[0])", name)
        self.driver.refresh()
        self.until("return document.querySelector('.chip .state') !== null")

    def open(self, page="overview"):
        """The page anew, connected and drawn."""
        self.driver.get("about:blank")
        self.driver.get(f"{self.url}#{page}")
        self.until(
            "return document.querySelector('.chip')?.textContent.includes('connected')"
            " || document.querySelector('.banner')?.hidden === false"
        )

    def go(self, page):
        self.js("location.hash = arguments[0]", page)
        self.until(f"return document.querySelector('.page.{page}')?.hidden === false")

    def js(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def until(self, script, *arguments):
        """Waits until the script's value is true; returns it."""
        end = time.monotonic() + PATIENCE
        while time.monotonic() < end:
            value = self.js(script, *arguments)
            if value:
                return value
            time.sleep(0.05)
        raise AssertionError(f"never came true: {script} {arguments}; the page says: {self.text()[:1500]}")

    def text(self, selector="body"):
        return self.js(
            "return [...document.querySelectorAll(arguments[0])].map((each) => each.innerText).join('\\n')", selector
        )

    def until_text(self, text, selector="body"):
        return self.until(
            "return [...document.querySelectorAll(arguments[0])].some((each) => each.innerText.includes(arguments[1]))",
            selector,
            text,
        )

    def press(self, label, scope="body"):
        """Clicks the visible button of this label."""
        self.until(
            """const it = [...document.querySelectorAll(`${arguments[0]} button, ${arguments[0]} .button`)]
            .find((each) => each.offsetParent !== null && (each.getAttribute('aria-label') ?? each.innerText) === arguments[1]);
            it?.click(); return it !== undefined;""",
            scope,
            label,
        )

    def complaints(self):
        """What the browser's console has of the page's faults, and of violations of its content security policy."""
        return [entry["message"] for entry in self.driver.get_log("browser") if entry["level"] == "SEVERE"]

    def picture(self, path, full=False):
        width, height, top = self.js(
            "return arguments[0] ? [innerWidth, document.documentElement.scrollHeight, 0] : [innerWidth, innerHeight, scrollY]",
            full,
        )
        shot = self.driver.execute_cdp_cmd(
            "Page.captureScreenshot",
            {"captureBeyondViewport": full, "clip": {"x": 0, "y": top, "width": width, "height": height, "scale": 1}},
        )
        pathlib.Path(path).write_bytes(base64.b64decode(shot["data"]))


class LivePanel(Panel):
    """A browser's view of a panel that runs by itself."""

    def __init__(self, driver, url):
        self.driver = driver
        self.address = url

    @property
    def url(self):
        return self.address + "/"

    def complaints(self):
        """Without the browser's notes of answers that are no success, which are no fault of the page."""
        return [each for each in super().complaints() if "Failed to load resource" not in each]

    def fill(self, page, label, value):
        """Types into the control of this label."""
        self.js(
            """const label = [...document.querySelectorAll(`.page.${arguments[0]} label`)]
                .find((each) => each.textContent === arguments[1]);
            const control = document.getElementById(label.htmlFor);
            control.value = arguments[2];
            for (const kind of ['input', 'change']) control.dispatchEvent(new Event(kind));""",
            page,
            label,
            str(value),
        )
