#!/usr/bin/python3
"""The session of script/demo, which builds what it needs: a virtual instrument, two stream senders, and tessaryctl.

usage: PYTHONPATH=BUILD/python session.py --build DIR --streams DIR --out DIR [--stay [--no-panel]]

Exit status 0 when picture and sound are those of the programs and the stream was measured. Needs root.
"""

import argparse
import os
import pathlib
import shlex
import signal
import socket
import subprocess
import sys

import tessary

TREE = pathlib.Path(__file__).resolve().parents[2]
TELEVISION = "udp://239.0.0.1:1234"
RADIO = "udp://239.0.0.2:1236"
USUAL_RUN_DIR = os.path.dirname(tessary.controller.VIRTUAL_PORT)


class Session:
    """What is done with one instrument."""

    def __init__(self, options, instrument):
        self.options, self.instrument = options, instrument

    def tool(self, *words):
        """Runs the controller's tool and shows how it was called."""
        print("\n$ tessaryctl " + " ".join(map(shlex.quote, words)), flush=True)
        run(self.options.build / "bin" / "tessaryctl", "--port", self.instrument.port, *words)

    def look(self, *words):
        """Whether picture and sound are as they should be."""
        run(self.options.build / "bench" / "demo" / "demo-look", "--run-dir", self.instrument.run_dir, "--out",
            self.options.out, *words)

    def play(self):
        """A controller's session. Measuring ends the playing, so it comes last."""
        self.tool("version")
        # Program 2 of demo.ts: a green field with a white digit, and a tone.
        self.tool("scan", TELEVISION)
        self.tool("play", "2")
        self.look("--name", "program2", "--picture", "00c000", "--tone", "1000")
        # A service of services.ts without picture.
        self.tool("scan", "--no-pids", RADIO)
        self.tool("play", "Radio AAC")
        self.look("--name", "radio", "--picture", "none", "--tone", "800")
        self.transcript()
        self.tool("measure", TELEVISION)
        self.tool("iat", "--plot", "--png", str(self.options.out / "iat.png"))

    def transcript(self):
        """The session so far as it passed on the serial line. The tool asks for the version behind each silent command, to know
        that it was taken; that is shown once."""
        print("\non the serial line (> controller, < daemon):", flush=True)
        run(TREE / "bench" / "line-transcript", "--once", "version?", self.instrument.log_path("line"))

    def stay(self):
        """Keeps everything running until Ctrl-C, with the front panel on the line unless it is to be left free."""
        print(f"\n{self.instrument.log('runner')}"
              f"The streams go on at {TELEVISION} (three programs) and {RADIO} (radio and others).\n"
              "Ctrl-C ends everything.", flush=True)
        if self.options.panel:
            self.show_panel()
        named = "" if str(self.instrument.run_dir) == USUAL_RUN_DIR else f"--port {self.instrument.port} "
        print(f"In a second terminal:\n    build/release/bin/tessaryctl {named}scan\n    build/release/bin/tessaryctl {named}shell",
              flush=True)
        signal.pause()

    def show_panel(self):
        """The front panel takes the line; as root, for the desk needs it. It prints its address, and ends with the session."""
        words = [self.options.build / "bin" / "tessary-panel", "--port", self.instrument.port, "--listen", panel_address()]
        print("The front panel has the line (with --no-panel it is left to tessaryctl). Open in a browser:", flush=True)
        with subprocess.Popen([os.fspath(word) for word in words], stdin=subprocess.DEVNULL) as panel:
            try:
                panel.wait()
            finally:
                panel.terminate()
        raise tessary.TessaryError("the front panel has ended (its message is above)")


def panel_address():
    """The panel's usual one; with any free port when something else listens there."""
    with socket.socket() as usual:
        usual.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            usual.bind(("127.0.0.1", 8080))
        except OSError:
            return "127.0.0.1:0"
    return "127.0.0.1:8080"


def run(*words):
    """CalledProcessError when it fails; it has said why."""
    subprocess.run([os.fspath(word) for word in words], stdin=subprocess.DEVNULL, check=True)


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("--build", "--streams", "--out"):
        parser.add_argument(name, required=True, type=pathlib.Path)
    parser.add_argument("--stay", action="store_true")
    parser.add_argument("--no-panel", dest="panel", action="store_false")
    return parser.parse_args()


def run_dir_of(options):
    """Where tools look for an instrument by themselves, unless one runs there already; None for one of its own."""
    asked = subprocess.run([TREE / "bench" / "instrument", "status", "--run-dir", USUAL_RUN_DIR], capture_output=True, check=False)
    return USUAL_RUN_DIR if options.stay and asked.returncode else None


def play(session, senders):
    """Returns the exit status; a sender that had ended is the likely cause of a failure."""
    try:
        session.instrument.controller().close()  # the daemon prepares the hardware first
        session.play()
    except (subprocess.CalledProcessError, tessary.TessaryError) as error:
        print(f"demo: {error}", file=sys.stderr)
        for sender in senders:
            if not sender.running:
                print(f"A stream sender had ended meanwhile: {sender.output}", file=sys.stderr)
        return 1
    return 0


def ended(number, _):
    sys.exit(128 + number)


def main():
    options = parse()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, ended)
    instrument = tessary.Instrument(build=options.build, run_dir=run_dir_of(options))
    try:
        instrument.start()
        senders = [instrument.send(options.streams / "demo.ts", TELEVISION),
                   instrument.send(options.streams / "services.ts", RADIO)]
        session = Session(options, instrument)
        status = play(session, senders)
        if options.stay:
            for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
                signal.signal(number, lambda *_: sys.exit(status))  # the expected end
            session.stay()
        return status
    except tessary.TessaryError as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    finally:
        if instrument.running:
            instrument.save_logs(options.out)  # what was said on the lines stays beside picture and sound
        instrument.stop()


if __name__ == "__main__":
    sys.exit(main())
