"""The machine under test: what its logs and its systemd say."""

import json
import time

import tessary

GREETING = b"HELLO !"


class Failed(Exception):
    """What was to be seen was not seen; the text says what was."""


def require(condition, text):
    """Failed with that text unless the condition holds."""
    if not condition:
        raise Failed(text)


def tell(text):
    """A figure, or what was seen."""
    print(f"   {text}", flush=True)


class Machine:
    """One booted instrument."""

    def __init__(self, instrument):
        self.instrument = instrument

    def run(self, *words):
        """What a command inside prints, without the last line feed."""
        return self.instrument.run(*words, timeout=600).rstrip("\n")

    def shell(self, text):
        """The same of a shell's command."""
        return self.run("sh", "-c", text)

    def greeting_after(self, since_ns):
        """Seconds from that time (CLOCK_MONOTONIC) to the daemon's greeting on the line; Failed when it has not come."""
        text = b""
        for line in self.instrument.log("line").splitlines():
            entry = json.loads(line)
            if entry["t"] < since_ns or entry["dir"] != "from_daemon":
                continue
            text = text[-len(GREETING):] + bytes.fromhex(entry["hex"])
            if GREETING in text:
                return (entry["t"] - since_ns) / 1e9
        raise Failed("the daemon has not greeted")

    def await_greeting(self, since_ns, seconds=600):
        """The same, but waits for it."""
        deadline = time.monotonic() + seconds
        while True:
            try:
                return self.greeting_after(since_ns)
            except Failed:
                if time.monotonic() > deadline:
                    raise
                time.sleep(0.2)

    def line_position(self):
        """How far the line's log goes now, for sent_since()."""
        return len(self.instrument.log("line"))

    def sent_since(self, position):
        """All bytes that were sent to the daemon since then."""
        entries = (json.loads(line) for line in self.instrument.log("line")[position:].splitlines())
        return b"".join(bytes.fromhex(entry["hex"]) for entry in entries if entry["dir"] == "to_daemon")

    def size_of(self, name):
        """Bytes of a file that both see; 0 while there is none."""
        path = self.instrument.shared(name)
        return path.stat().st_size if path.exists() else 0

    @staticmethod
    def wait_until(condition, otherwise, seconds):
        """Failed with that text when the condition does not come to hold."""
        deadline = time.monotonic() + seconds
        while not condition():
            require(time.monotonic() < deadline, otherwise)
            time.sleep(0.2)

    def controller(self):
        """A controller once the daemon answers. An emulated machine takes its time."""
        return self.instrument.controller(timeout=60, wait=300)

    def is_in_order(self):
        """Failed unless all units run, the daemon answers and dpkg has nothing half done."""
        failed = self.run("systemctl", "--failed", "--no-legend", "--plain")
        require(not failed, f"failed units: {failed}")
        audit = self.run("dpkg", "--audit")
        require(not audit, f"dpkg --audit: {audit}")
        differing = self.shell("dpkg --verify tessary || true")
        require(not differing, f"dpkg --verify: {differing}")
        with self.controller() as controller:
            return controller.version().software

    def package_version(self):
        """Version and state of the daemon's package."""
        return self.run("dpkg-query", "-W", "-f", "${Version} ${db:Status-Status}", "tessary")

    def restart_daemon(self):
        """Has the controller restart the unit, as after an update; seconds until the greeting."""
        since = time.monotonic_ns()
        with self.controller() as controller:
            try:
                controller.run_command("systemctl restart tessary", timeout=120)
            except tessary.TessaryError:
                pass  # it ends before it can answer
        return self.await_greeting(since)

    def cut_power_and_boot(self):
        """Power off at once, and on; seconds until the greeting."""
        self.instrument.power("cut")
        since = time.monotonic_ns()
        self.instrument.power("on")
        return self.await_greeting(since)
