"""The virtual module: the daemon as a program in namespaces over an overlay of this machine's root."""

import dataclasses
import functools
import signal
import subprocess
import time

from . import kernel_setting, layer, machine_root, network, privilege, registry
from .daemon import Daemon
from .errors import BenchError
from .machine import Machine, MachineSettings
from .say import say

_START_SECONDS = 180  # long: a machine that has other work takes its time


@dataclasses.dataclass
class VirtualSettings:
    """What the command line asks for."""

    machine: MachineSettings
    layer_folder: str
    daemon_env: dict
    wrapper: str
    setarch: bool
    start_daemon: bool


class VirtualModule:
    """The instrument's module in namespaces. What is public here is what the supervisor needs of a module."""

    LINE_RATE = None  # the serial lines take bytes as they come
    LOGS = "line,console,commands,daemon,services"

    def __init__(self, run_dir, settings):
        self._run_dir, self._settings = run_dir, settings
        self._machine = self.daemon = None

    def provide(self):
        """What is made once and kept."""
        self._settings.machine.layer = layer.ensure(self._settings.layer_folder)

    def prepare(self, stack, lines, on_event):
        """Everything that forks; `on_event` gets each Program that ends, None when all is gone."""
        settings = self._settings.machine
        settings.terminals = {"/dev/ttymxc1": lines[0].device, "/dev/ttymxc0": lines[1].device}
        self._machine = Machine(functools.partial(machine_root.build, settings), on_event, lambda: on_event(None))
        stack.callback(self._machine.stop)

    def start(self, stack):
        """Brings it up as far as it is called ready."""
        self._machine.start_reading()
        self._raise_rmem_max(stack)
        network.set_up(self._machine.init_pid, self._machine.sender_pid)
        self._start_services(stack)
        settings = self._settings
        self.daemon = Daemon(self._machine, self._run_dir.daemon_log, environment=settings.daemon_env,
                             wrapper=settings.wrapper, setarch=settings.setarch, emulator=settings.machine.emulator)
        stack.callback(self._end_daemon)
        if settings.start_daemon:
            self.daemon.start()

    def state(self):
        """What other calls of the script need to enter it."""
        return {"init": self._machine.init_pid, "sender": self._machine.sender_pid}

    def set_link(self, up):
        """Plugs the cable in or out."""
        network.set_link(self._machine.sender_pid, up)

    def status(self):
        """Its parts in words."""
        return {"eth0": network.describe(self._machine.init_pid, "eth0"),
                "uplink": network.describe(self._machine.sender_pid, "uplink")}

    def handle(self, action, _):
        """A request that not every module knows."""
        raise BenchError(f"the virtual instrument has no {action}", "start one with --machine, see docs/bench.md")

    @staticmethod
    def _raise_rmem_max(stack):
        if privilege.is_users_own():
            kernel_setting.tell_missing()
            return
        stack.callback(_put_rmem_max_back)
        before, now = kernel_setting.acquire()
        if now != before:
            print(f"net.core.rmem_max of this kernel raised from {before} to {now} while the instrument runs")

    def _start_services(self, stack):
        """DHCP server at the sender's end, then the message bus and NetworkManager inside; waits for the latter."""
        log = stack.enter_context(open(self._run_dir.services_log, "ab"))

        def start(command, net="instrument"):
            self._machine.spawn(command, log, net=net, label=command[0])

        start(network.dhcp_server_command("/run"), "sender")
        start(["dbus-daemon", "--system", "--nofork", "--nopidfile", "--nosyslog"])
        self._wait_for("the message bus", ["test", "-S", "/run/dbus/system_bus_socket"], log)
        start(["NetworkManager", "--debug"])
        if self._settings.machine.elements:
            registry.provide(self._machine, self._settings.machine, log)
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
        program = self.daemon.running()
        if program:
            program.send_signal(signal.SIGTERM)
            program.ended.wait(1)


def _put_rmem_max_back():
    now, others = kernel_setting.release()
    say(f"net.core.rmem_max stays at {now} for {others} other instrument(s)" if others
        else f"net.core.rmem_max is {now} again")


def check_host():
    """BenchError unless this machine can carry a virtual module. For a user's own root the mount itself loads what it needs."""
    if privilege.is_users_own():
        return
    with open("/proc/filesystems", encoding="ascii") as file:
        if "overlay" not in file.read().split() and subprocess.call(["modprobe", "-q", "overlay"]) != 0:
            raise BenchError("this kernel has no overlay file system", "load it: modprobe overlay")
