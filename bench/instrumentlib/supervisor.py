"""`bench/instrument run`: brings the instrument up, watches it, and takes it down on every way out."""

import contextlib
import os
import queue
import signal
import subprocess
import sys
import time

from . import kernel_setting, layer, network, places, registry
from .control import ControlServer
from .daemon import Daemon
from .errors import BenchError
from .machine import Machine
from .relay import Relay, SerialLine

_START_SECONDS = 180  # long: a machine that has other work takes its time


class Stopped(BaseException):
    """The user asks for the end (Ctrl-C, SIGTERM, SIGHUP, `stop`); raised in the main thread."""


class Supervisor:
    """Everything of one running instrument. `options` are the command line's, checked and completed."""

    def __init__(self, run_dir, options):
        self._run_dir, self._options = run_dir, options
        self._events = queue.SimpleQueue()
        self._started = time.monotonic()
        self._machine = self._daemon = None
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
                    _say("stopping")

    @staticmethod
    def _asked_to_stop(*_):
        raise Stopped

    @staticmethod
    def _ignore_signals():
        for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, signal.SIG_IGN)

    def _bring_up(self, stack):
        paths, options = self._run_dir, self._options
        paths.claim()
        stack.callback(paths.release)
        options.machine.layer = layer.ensure(options.layer_folder)
        lines = self._open_lines(stack)
        options.machine.terminals = {"/dev/ttymxc1": lines[0].device, "/dev/ttymxc0": lines[1].device}
        self._machine = Machine(options.machine, self._events.put, lambda: self._events.put(None))
        stack.callback(self._machine.stop)
        relay = Relay(lines)
        stack.callback(relay.stop)
        relay.start()
        self._machine.start_reading()
        self._raise_rmem_max(stack)
        network.set_up(self._machine.init_pid, self._machine.sender_pid)
        self._start_services(stack)
        self._daemon = Daemon(self._machine, paths.daemon_log, environment=options.daemon_env,
                              wrapper=options.wrapper, setarch=options.setarch,
                              emulator=options.machine.emulator)
        stack.callback(self._end_daemon)
        if options.start_daemon:
            self._daemon.start()
        paths.write_state({"supervisor": os.getpid(), "init": self._machine.init_pid,
                           "sender": self._machine.sender_pid})
        control = ControlServer(paths.control, self._handle)
        stack.callback(control.close)
        self._print_how_to_connect(lines)

    def _open_lines(self, stack):
        lines = []
        for far, log, raw in ((self._run_dir.controller, self._run_dir.line_log, False),
                              (self._run_dir.console, self._run_dir.console_log, True)):
            line = SerialLine(log, raw_from_start=raw)
            stack.callback(line.close)
            if "SUDO_UID" in os.environ:  # who called sudo may use a terminal program without it
                os.chown(line.far_device, int(os.environ["SUDO_UID"]), -1)
            os.symlink(line.far_device, far)
            lines.append(line)
        return lines

    def _raise_rmem_max(self, stack):
        stack.callback(self._put_rmem_max_back)
        before, now = kernel_setting.acquire()
        if now != before:
            print(f"net.core.rmem_max of this kernel raised from {before} to {now} while the instrument runs")

    @staticmethod
    def _put_rmem_max_back():
        now, others = kernel_setting.release()
        _say(f"net.core.rmem_max stays at {now} for {others} other instrument(s)" if others
             else f"net.core.rmem_max is {now} again")

    def _start_services(self, stack):
        """DHCP server at the sender's end, then the message bus and NetworkManager inside; waits for the latter."""
        log = stack.enter_context(open(self._run_dir.services_log, "ab"))

        def start(command, net="instrument"):
            self._machine.spawn(command, log, net=net, label=command[0])

        start(network.dhcp_server_command(), "sender")
        start(["dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"])
        self._wait_for("the message bus", ["test", "-S", "/run/dbus/system_bus_socket"], log)
        start(["NetworkManager", "--debug"])
        if self._options.machine.elements:
            registry.provide(self._machine, self._options.machine, log)
        self._wait_for("NetworkManager", ["nm-online", "-s", "-q", "-t", "1"], log)

    def _wait_for(self, what, command, log):
        """Runs a check inside until it succeeds."""
        deadline = time.monotonic() + _START_SECONDS
        while True:
            program = self._machine.spawn(command, log)
            program.ended.wait()
            if program.status == 0:
                return
            if time.monotonic() > deadline:
                raise BenchError(f"{what} did not come up within {_START_SECONDS} s",
                                 f"see {self._run_dir.services_log}")
            time.sleep(0.03)

    def _end_daemon(self):
        program = self._daemon.running()
        if program:
            program.send_signal(signal.SIGTERM)
            program.ended.wait(1)

    def _watch(self):
        while True:
            event = self._events.get()
            if event is None:
                raise BenchError("the instrument's first process has ended unexpectedly",
                                 f"see {self._run_dir.services_log} and the kernel's log")
            if event == "stop":
                return 0
            if event.label == "the daemon":
                _say(f"the daemon {event.describe_end()}; the instrument stays up "
                     f"(start it again: {places.COMMAND} daemon start{self._run_dir_option()})")
            elif event.label:
                _say(f"{event.label} {event.describe_end()}; see {self._run_dir.services_log}")

    def _run_dir_option(self):
        return f" --run-dir {self._run_dir.path}" if self._options.run_dir_given else ""

    def _print_how_to_connect(self, lines):
        paths, option = self._run_dir, self._run_dir_option()
        print(f"controller's end of the serial line   {paths.controller} -> {lines[0].far_device}\n"
              f"   for example: picocom -b 115200 --noreset {paths.controller}    or: screen {paths.controller}\n"
              f"console (/dev/ttymxc0)                {paths.console} -> {lines[1].far_device}\n"
              f"stream sender's network               {places.COMMAND} exec{option} --sender COMMAND...\n"
              f"   its address is {network.SENDER_ADDRESS} on \"uplink\"; the instrument's eth0 gets one by DHCP\n"
              f"inside the instrument                 {places.COMMAND} exec{option} COMMAND...\n"
              f"logs                                  {paths.path}/{{line,console,commands,daemon,services}}.log\n"
              f"files shared with the instrument      {paths.io} (inside: /run/bench)\n"
              f"started in {time.monotonic() - self._started:.1f} s; Ctrl-C stops it")
        print("ready", flush=True)
        self._ready = True

    # Requests of other calls of the script; each on a thread of its own.

    def _handle(self, request):
        action = request["action"]
        if action == "stop":
            self._events.put("stop")
            return {}
        if action == "link":
            network.set_link(self._machine.sender_pid, request["up"])
            return {}
        if action == "status":
            return self._status()
        return self._handle_daemon(action)

    def _handle_daemon(self, action):
        daemon = self._daemon
        if action == "daemon pid":
            program = daemon.running()
            if not program:
                raise BenchError("the daemon does not run", f"start it: {places.COMMAND} daemon start")
            return {"pid": program.host_pid, "inside": program.pid}
        if action == "daemon wait":
            program = daemon.program
            if not program:
                raise BenchError("the daemon has not been started")
            program.ended.wait()
            return {"end": program.describe_end(), "status": os.waitstatus_to_exitcode(program.status)}
        if action in ("daemon stop", "daemon kill", "daemon restart"):
            if action != "daemon restart" or daemon.running():
                daemon.end(signal.SIGKILL if action == "daemon kill" else signal.SIGTERM)
        if action in ("daemon start", "daemon restart"):
            return {"pid": daemon.start().host_pid}
        return {}

    def _status(self):
        program = self._daemon.running()
        return {
            "up_seconds": round(time.monotonic() - self._started, 1),
            "daemon": f"running, PID {program.host_pid} (inside {program.pid})" if program else
                      ("not running: " + self._daemon.program.describe_end() if self._daemon.program
                       else "not started"),
            "eth0": network.describe(self._machine.init_pid, "eth0"),
            "uplink": network.describe(self._machine.sender_pid, "uplink"),
        }


def _say(text):
    """To standard error: "ready" stays the last line of standard output."""
    with contextlib.suppress(OSError):  # nobody may be listening any more
        print(f"instrument: {text}", file=sys.stderr, flush=True)


def check_host():
    """BenchError unless this machine can carry an instrument and the caller may start one."""
    if os.geteuid() != 0:
        raise BenchError("the virtual instrument needs root: it makes namespaces, mounts and network devices",
                         "run it with sudo")
    missing = network.missing_tools()
    if missing:
        raise BenchError(f"programs missing on this machine: {', '.join(missing)}", places.REPAIR)
    with open("/proc/filesystems", encoding="ascii") as file:
        if "overlay" not in file.read().split() and subprocess.call(["modprobe", "-q", "overlay"]) != 0:
            raise BenchError("this kernel has no overlay file system", "load it: modprobe overlay")
