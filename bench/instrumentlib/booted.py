"""The booted module: the instrument as a machine of its own, Debian and our packages in QEMU."""

import base64
import contextlib
import dataclasses
import os
import shutil
import signal
import socket
import subprocess
import tarfile
import threading
import time

from . import accelerator, card, guest_image, network, places, privilege, qemu, syscalls
from .daemon import not_running
from .errors import BenchError
from .guest_link import Agent, Monitor
from .machine import CLEAN_ENVIRONMENT, Machine
from .say import say

_BOOT_SECONDS = 900
_SHUT_DOWN_SECONDS = 180
_PICTURE_SECONDS = 1


@dataclasses.dataclass
class BootedSettings:
    """What the command line asks for."""

    arch: str
    packages: str       # folder with the instrument's packages
    disk: str           # image that keeps what is written, made when it is not there; "" for one that is gone in the end
    card_size: str      # "" for an empty slot
    files: list         # (path on this machine, path inside) to copy


class BootedModule:
    """The instrument's module in QEMU, in the stream sender's network. Public is what the supervisor needs of a module."""

    LINE_RATE = 115_200
    LOGS = "line,console,daemon,journal,boot,services"

    def __init__(self, run_dir, settings):
        self._run_dir, self._settings = run_dir, settings
        self._machine = self._program = self._monitor = self._agent = None
        self._folder = run_dir.scratch  # disks
        self._power = threading.RLock()
        self._image = self._accelerator = self._board = self._log = None
        self.daemon = Unit(self._inside)

    # --- start and stop ---

    def provide(self):
        """What is made once and kept."""
        arch = self._settings.arch
        self._image = guest_image.ensure(places.MACHINE_FOLDER, arch, self._settings.packages)
        self._accelerator = accelerator.choose(arch, qemu.program(arch), qemu.machine(arch), self._image.kernel,
                                               places.MACHINE_FOLDER)

    def prepare(self, stack, lines, on_event):
        """Everything that forks; `on_event` gets each Program that ends, None when all is gone."""
        stack.callback(self._remove_disks)
        self._make_disks()
        self._machine = Machine(_own_processes, on_event, lambda: on_event(None))
        stack.callback(self._machine.stop)
        paths = self._run_dir
        _show_notes(paths)
        self._board = qemu.Board(
            arch=self._settings.arch, accelerator=self._accelerator, kernel=self._image.kernel, initrd=self._image.initrd,
            system=self._settings.disk or self._disk("system.qcow2"),
            card=self._disk("card.img") if self._settings.card_size else "",
            files=self._disk("files.tar") if self._settings.files else "",
            controller=lines[0].device, console=lines[1].device, io_folder=paths.io, boot_log=paths.boot_log,
            journal_log=paths.journal_log, daemon_log=paths.daemon_log, sound=os.path.join(paths.io, "sound.wav"))

    def start(self, stack):
        """Power on, and the boot to its end."""
        self._machine.start_reading()
        network.set_up_socket(self._machine.sender_pid)
        self._log = stack.enter_context(open(self._run_dir.services_log, "ab"))
        self._machine.spawn(network.dhcp_server_command(self._folder), self._log, net="sender", label="dnsmasq")
        stack.callback(self._leave)
        self._switch_on()
        began = time.monotonic()
        state = self._await_boot()
        print(f"booted in {time.monotonic() - began:.1f} s; systemd says: {state}")
        threading.Thread(target=self._keep_picture, name="picture", daemon=True).start()

    def _make_disks(self):
        self._remove_disks()  # of a supervisor that was killed
        os.makedirs(self._folder)
        settings = self._settings
        system = settings.disk or self._disk("system.qcow2")
        if not os.path.exists(system):
            subprocess.run(["qemu-img", "create", "-q", "-f", "qcow2", "-F", "raw", "-b", self._image.disk, system], check=True)
        if settings.card_size:
            card.make(self._disk("card.img"), settings.card_size)
        if settings.files:
            with tarfile.open(self._disk("files.tar"), "w") as archive:
                for source, target in settings.files:
                    archive.add(source, target.lstrip("/"), filter=_of_root)

    def _disk(self, name):
        return os.path.join(self._folder, name)

    def _remove_disks(self):
        shutil.rmtree(self._folder, ignore_errors=True)

    def _switch_on(self):
        monitor, far_monitor = socket.socketpair()
        agent, far_agent = socket.socketpair()
        with far_monitor, far_agent:
            self._program = self._machine.spawn(qemu.command(self._board, 3, 4), self._log, net="sender", label="QEMU",
                                                more_files=(far_monitor, far_agent))
        self._monitor, self._agent = Monitor(monitor), Agent(agent)

    def _is_on(self):
        return self._program is not None and not self._program.ended.is_set()

    def _cut(self):
        """Power off at once, whatever it does."""
        if self._is_on():
            self._program.label = None  # its end is no news
            self._program.send_signal(signal.SIGKILL)
            self._program.ended.wait()
        for link in (self._monitor, self._agent):
            if link:
                link.close()

    def _shut_down(self):
        """Power off as the power key does it."""
        self._program.label = None
        self._monitor.call("system_powerdown")
        if not self._program.ended.wait(_SHUT_DOWN_SECONDS):
            self._program.label = "QEMU"
            raise BenchError(f"the machine has not shut down within {_SHUT_DOWN_SECONDS} s",
                             f"see boot.log and journal.log; {places.COMMAND} power cut ends it")
        self._cut()

    def _leave(self):
        """A disk that stays is left in order."""
        with self._power:
            if self._settings.disk and self._is_on():
                with contextlib.suppress(BenchError):
                    self._shut_down()
            self._cut()

    def _await_boot(self):
        """Until systemd has no more jobs; its state in a word. A machine with a staged kernel starts again on its way there."""
        deadline = time.monotonic() + _BOOT_SECONDS
        while (state := self._ask_systemd()) in ("", "initializing", "starting", "stopping"):
            self._check_boot(deadline)
            time.sleep(0.5)
        return state

    def _ask_systemd(self):
        """Its state in a word, "" while the machine does not say."""
        if not self._agent.answers(2):
            return ""
        try:
            return self._inside("systemctl", "is-system-running")[1].decode().strip()
        except BenchError:
            return ""  # it went down in between

    def _check_boot(self, deadline):
        if not self._is_on():
            raise BenchError(f"QEMU {self._program.describe_end()}", f"see {self._run_dir.services_log}")
        if time.monotonic() > deadline:
            raise BenchError(f"the machine has not booted within {_BOOT_SECONDS} s", f"see {self._run_dir.boot_log}")

    def _keep_picture(self):
        """What the display shows, as a file of the run directory; ends with this program."""
        picture = os.path.join(self._run_dir.io, "display.ppm")
        while True:
            with contextlib.suppress(BenchError, OSError):
                self._monitor.call("screendump", filename=picture + ".new")
                os.replace(picture + ".new", picture)
            time.sleep(_PICTURE_SECONDS)

    # --- what the supervisor asks ---

    def state(self):
        """What other calls of the script need to enter it."""
        return {"machine": self._settings.arch, "sender": self._machine.sender_pid}

    def set_link(self, up):
        """Plugs the cable in or out."""
        self._monitor.call("set_link", name=qemu.CABLE, up=up)

    def status(self):
        """Its parts in words."""
        return {"power": "on" if self._is_on() else "off", "eth0": self._describe_eth0(),
                "uplink": network.describe(self._machine.sender_pid, "uplink")}

    def _describe_eth0(self):
        try:
            return " ".join(self._inside("ip", "-brief", "address", "show", "dev", "eth0")[1].decode().split())
        except BenchError:
            return "unknown"

    def handle(self, action, request):
        """Requests beyond those of every module."""
        if action == "exec start":
            return {"pid": self._agent.start(request["argv"], CLEAN_ENVIRONMENT)}
        if action == "exec poll":
            ended = self._agent.poll(request["pid"])
            return dict(zip(("status", "out", "err"), (ended[0], *map(_in_ascii, ended[1:])))) if ended else {}
        if action == "exec signal":
            self._inside("kill", f"-{request['number']}", str(request["pid"]))
            return {}
        if action == "power":
            return self._turn_power(request["what"])
        if action == "card slot":
            return self._turn_card(request["what"])
        if action == "break":
            self._monitor.call("chardev-send-break", id=qemu.CONTROLLER)
            return {}
        raise BenchError(f"the booted instrument has no {action}")

    def _turn_power(self, what):
        with self._power:
            if what == "on":
                if not self._is_on():
                    self._switch_on()
                return {"systemd": self._await_boot()}
            if not self._is_on():
                raise BenchError("the machine is off", f"{places.COMMAND} power on")
            if what == "cut":
                self._cut()
            else:
                self._shut_down()
            return {}

    def _turn_card(self, what):
        if not self._settings.card_size:
            raise BenchError("this instrument has no memory card", "run it with --card SIZE")
        if what == "out":
            self._monitor.call("eject", id=qemu.CARD, force=True)
        else:
            self._monitor.call("blockdev-change-medium", id=qemu.CARD, filename=self._disk("card.img"), format="raw")
        return {}

    def _inside(self, *argv):
        """Runs a program inside to its end: (status, standard output, standard error)."""
        return self._agent.run(argv, CLEAN_ENVIRONMENT)


class Unit:
    """The daemon as systemd's unit. `inside(*argv)` runs a program in the machine."""

    _NAME = "tessary.service"

    def __init__(self, inside):
        self._inside = inside

    def _ask(self, *words):
        status, out, err = self._inside("systemctl", *words)
        if status:
            raise BenchError(f"systemctl {' '.join(words)}: {err.decode().strip()}")
        return out.decode().strip()

    def running(self):
        """Its PID inside, 0 while it does not run."""
        return int(self._ask("show", "--property=MainPID", "--value", self._NAME))

    def pids(self):
        """Its PID, which only the machine inside counts. BenchError when it does not run."""
        pid = self.running()
        if not pid:
            raise not_running()
        return {"pid": pid, "inside": pid}

    def describe(self):
        """How it is, in words."""
        try:
            state = self._ask("show", "--property=ActiveState,SubState,MainPID", "--value", self._NAME)
        except BenchError:
            return "unknown: the machine does not answer"
        return " ".join(state.split())

    def start(self):
        """Starts the unit; its PID inside."""
        self._ask("start", self._NAME)
        return self.pids()

    def end(self, number):
        """SIGTERM: stops the unit. Any other signal goes to the daemon alone, and systemd starts it again."""
        if number == signal.SIGTERM:
            self._ask("stop", self._NAME)
        else:
            self._ask("kill", "--kill-whom=main", f"--signal={signal.Signals(number).name}", self._NAME)

    def wait(self):
        """Waits until the daemon that runs now is gone; how it ended, as far as systemd still knows."""
        pid = self.pids()["inside"]
        while self.running() == pid:
            time.sleep(0.5)
        status = self._ask("show", "--property=ExecMainStatus", "--value", self._NAME)
        return {"end": f"is no longer process {pid}", "status": int(status or 0)}


def _own_processes():
    """QEMU and what stands beside it see this machine's files, and of its processes their own: PIDs are those of /proc."""
    syscalls.mount(None, "/", None, syscalls.MS_REC | syscalls.MS_PRIVATE)
    syscalls.mount("proc", "/proc", "proc", syscalls.MS_NOSUID | syscalls.MS_NODEV | syscalls.MS_NOEXEC)


def _show_notes(paths):
    """What the hardware inside notes is where the virtual instrument's has it."""
    link = os.path.join(paths.path, "hardware")
    if not os.path.lexists(link):
        os.symlink(os.path.join(os.path.basename(paths.io), "hardware"), link)


def _of_root(entry):
    entry.uid = entry.gid = 0
    entry.uname = entry.gname = "root"
    return entry


def _in_ascii(data):
    return base64.b64encode(data).decode()


def check_host(arch):
    """BenchError unless this machine has what a booted module needs."""
    if privilege.is_users_own():
        raise BenchError("the booted instrument needs this machine's root, for its disks", "run it with sudo, outside of the desk")
    programs = (qemu.program(arch), "qemu-img", "mmdebstrap", "dnsmasq", "sfdisk", "mke2fs", "unshare", "depmod", "modprobe")
    missing = [name for name in programs if not shutil.which(name)]
    if missing:
        raise BenchError(f"programs missing on this machine: {', '.join(missing)}", "script/bootstrap --with machine")
    say(f"the instrument boots on a processor of its own, {arch}; emulated, that takes a minute or two")
