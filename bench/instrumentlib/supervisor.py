"""`bench/instrument run`: brings the instrument up, watches it, and takes it down on every way out."""

import contextlib
import os
import queue
import signal
import time

from . import network, places
from .control import ControlServer
from .daemon import LABEL
from .errors import BenchError
from .relay import Relay, SerialLine
from .say import say


class Stopped(BaseException):
    """The user asks for the end (Ctrl-C, SIGTERM, SIGHUP, `stop`); raised in the main thread."""


class Supervisor:
    """Everything of one running instrument around its module, which is a VirtualModule or a BootedModule."""

    def __init__(self, run_dir, module, *, run_dir_given):
        self._run_dir, self._module, self._run_dir_given = run_dir, module, run_dir_given
        self._events = queue.SimpleQueue()
        self._started = time.monotonic()
        self._ready = False

    def run(self):
        """Returns the exit status once the instrument is down again."""
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            if signal.getsignal(number) != signal.SIG_IGN:  # nohup means what it says
                signal.signal(number, self._asked_to_stop)
        with contextlib.ExitStack() as stack:
            try:
                self._bring_up(stack)
                return self._watch()
            except Stopped:
                return 0 if self._ready else 1
            finally:
                self._ignore_signals()
                if self._ready:
                    say("stopping")

    @staticmethod
    def _asked_to_stop(*_):
        raise Stopped

    @staticmethod
    def _ignore_signals():
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)

    def _bring_up(self, stack):
        paths, module = self._run_dir, self._module
        paths.claim()
        stack.callback(paths.release)
        module.provide()
        lines = self._open_lines(stack)
        module.prepare(stack, lines, self._events.put)
        relay = Relay(lines)
        stack.callback(relay.stop)
        relay.start()
        module.start(stack)
        paths.write_state({"supervisor": os.getpid(), **module.state()})
        control = ControlServer(paths.control, self._handle)
        stack.callback(control.close)
        self._print_how_to_connect(lines)

    def _open_lines(self, stack):
        lines = []
        for far, log, raw in ((self._run_dir.controller, self._run_dir.line_log, False),
                              (self._run_dir.console, self._run_dir.console_log, True)):
            line = SerialLine(log, raw_from_start=raw, bits_per_second=self._module.LINE_RATE)
            stack.callback(line.close)
            if "SUDO_UID" in os.environ:  # who called sudo may use a terminal program without it
                os.chown(line.far_device, int(os.environ["SUDO_UID"]), -1)
            os.symlink(line.far_device, far)
            lines.append(line)
        return lines

    def _watch(self):
        while True:
            event = self._events.get()
            if event is None:
                raise BenchError("the instrument's first process has ended unexpectedly",
                                 f"see {self._run_dir.services_log} and the kernel's log")
            if event == "stop":
                return 0
            if event.label == LABEL:
                say(f"the daemon {event.describe_end()}; the instrument stays up "
                    f"(start it again: {places.COMMAND} daemon start{self._run_dir_option()})")
            elif event.label:
                say(f"{event.label} {event.describe_end()}; see {self._run_dir.services_log}")

    def _run_dir_option(self):
        return f" --run-dir {self._run_dir.path}" if self._run_dir_given else ""

    def _print_how_to_connect(self, lines):
        paths, option = self._run_dir, self._run_dir_option()
        print(f"controller's end of the serial line   {paths.controller} -> {lines[0].far_device}\n"
              f"   for example: picocom -b 115200 --noreset {paths.controller}    or: screen {paths.controller}\n"
              f"console (/dev/ttymxc0)                {paths.console} -> {lines[1].far_device}\n"
              f"stream sender's network               {places.COMMAND} exec{option} --sender COMMAND...\n"
              f"   its address is {network.SENDER_ADDRESS} on \"uplink\"; the instrument's eth0 gets one by DHCP\n"
              f"inside the instrument                 {places.COMMAND} exec{option} COMMAND...\n"
              f"logs                                  {paths.path}/{{{self._module.LOGS}}}.log\n"
              f"files shared with the instrument      {paths.io} (inside: /run/bench)\n"
              f"started in {time.monotonic() - self._started:.1f} s; Ctrl-C stops it")
        self._ready = True
        print("ready", flush=True)

    # Requests of other calls of the script; each on a thread of its own.

    def _handle(self, request):
        action = request["action"]
        if action == "stop":
            self._events.put("stop")
            return {}
        if action == "link":
            self._module.set_link(request["up"])
            return {}
        if action == "status":
            return {"up_seconds": round(time.monotonic() - self._started, 1),
                    "daemon": self._module.daemon.describe(), **self._module.status()}
        if action.startswith("daemon "):
            return self._handle_daemon(action)
        return self._module.handle(action, request)

    def _handle_daemon(self, action):
        daemon = self._module.daemon
        if action == "daemon pid":
            return daemon.pids()
        if action == "daemon wait":
            return daemon.wait()
        if action in ("daemon stop", "daemon kill", "daemon restart"):
            if action != "daemon restart" or daemon.running():
                daemon.end(signal.SIGKILL if action == "daemon kill" else signal.SIGTERM)
        if action in ("daemon start", "daemon restart"):
            return daemon.start()
        return {}


def check_host():
    """BenchError unless this machine can carry an instrument and the caller may start one."""
    if os.geteuid() != 0:
        raise BenchError("the instrument needs root: it makes namespaces, mounts and network devices",
                         places.GET_ROOT)
    missing = network.missing_tools()
    if missing:
        raise BenchError(f"programs missing on this machine: {', '.join(missing)}", places.REPAIR)
