"""QEMU's command line for the booted instrument: what is on the board, and where each thing ends on this machine."""

import dataclasses

from . import network
from .accelerator import EMULATED

# Devices that udev rules inside tell by their places; see bench/machine/root/etc/udev/rules.d.
_CONTROLLER_SLOT, _CONSOLE_SLOT = "0x10", "0x11"
DISPLAY_SIZE = (720, 576)
CABLE, CARD, CONTROLLER = "cable", "card", "controller"  # names for QEMU's monitor

_PROGRAMS = {"amd64": "qemu-system-x86_64", "arm64": "qemu-system-aarch64"}
_BOARDS = {"amd64": "q35", "arm64": "virt"}
_EMULATED_PROCESSORS = {"amd64": "max", "arm64": "cortex-a72"}
_CONSOLES = {"amd64": "ttyS0", "arm64": "ttyAMA0"}
ARCHITECTURES = tuple(_BOARDS)


@dataclasses.dataclass
class Board:
    """What a machine is made of. All paths are this machine's."""

    arch: str
    accelerator: str    # see accelerator.py
    kernel: str
    initrd: str
    system: str         # qcow2 image
    card: str           # raw image, "" for an empty slot
    files: str          # tar archive to unpack inside before the daemon starts, "" for none
    controller: str     # terminals that the serial lines end at
    console: str
    io_folder: str
    boot_log: str
    journal_log: str
    daemon_log: str
    sound: str


def program(arch):
    """Name of the emulator."""
    return _PROGRAMS[arch]


def machine(arch):
    """QEMU's name for the board."""
    return _BOARDS[arch]


def command(board, monitor_fd, agent_fd):
    """The words that start it; `monitor_fd` and `agent_fd` are connected sockets that it is given."""
    return [
        *_computer(board.arch, board.accelerator, "1G"), "-name", "instrument", "-kernel", board.kernel, "-initrd", board.initrd,
        "-append", f"root=/dev/vda ro console={_CONSOLES[board.arch]} panic=-1 systemd.show_status=1 "
        "vt.global_cursor_default=0",
        *_file("system", board.system, "qcow2"), "-device", "virtio-blk-pci,drive=system,serial=system",
        "-device", "virtio-rng-pci", *_lines(board), *_ethernet(), *_display_and_sound(board), *_card(board),
        *_desk(board, monitor_fd, agent_fd),
    ]


def installer_command(arch, kernel, initrd, append, disk, shared):
    """A machine without board, whose disk (raw) is to be filled; `shared` is a folder that it and this machine have."""
    return [
        *_computer(arch, EMULATED, "2G"), "-name", "installer", "-no-reboot", "-serial", "stdio", "-kernel", kernel,
        "-initrd", initrd, "-append", f"root=/dev/vda rw console={_CONSOLES[arch]} panic=-1 {append}",
        *_file("system", disk, "raw", ",cache=unsafe"), "-device", "virtio-blk-pci,drive=system", "-device", "virtio-rng-pci",
        *_shared(shared),
    ]


def _computer(arch, accelerator, memory):
    processor = _EMULATED_PROCESSORS[arch] if accelerator == EMULATED else "max"
    return [program(arch), "-machine", machine(arch), "-cpu", processor, "-smp", "2", "-accel", accelerator, "-m", memory,
            "-nodefaults", "-no-user-config", "-display", "none"]


def _shared(folder):
    return ["-fsdev", f"local,id=bench,path={_escaped(folder)},security_model=none",
            "-device", "virtio-9p-pci,fsdev=bench,mount_tag=bench"]


def _file(name, path, kind, more=""):
    return ["-drive", f"if=none,id={name},format={kind},file={_escaped(path)}{more}"]


def _escaped(path):
    """A path within an option: commas are doubled."""
    return path.replace(",", ",,")


def _lines(board):
    words = ["-chardev", f"file,id=boot,append=on,path={_escaped(board.boot_log)}", "-serial", "chardev:boot"]
    for name, terminal, slot in ((CONTROLLER, board.controller, _CONTROLLER_SLOT),
                                 ("console", board.console, _CONSOLE_SLOT)):
        words += ["-chardev", f"serial,id={name},path={terminal}", "-device", f"pci-serial,chardev={name},addr={slot}"]
    return words


def _ethernet():
    """Frames as they are on the wire: no checksum left open, nothing merged."""
    return ["-netdev", f"tap,id={CABLE},ifname=uplink,script=no,downscript=no,vnet_hdr=off",
            "-device", f"virtio-net-pci,netdev={CABLE},mac={network.MAC},rx_queue_size=1024"]


def _display_and_sound(board):
    width, height = DISPLAY_SIZE
    return ["-device", f"virtio-gpu-pci,xres={width},yres={height}",
            "-audiodev", f"wav,id=speaker,out.frequency=48000,path={_escaped(board.sound)}",
            "-device", "intel-hda", "-device", "hda-output,audiodev=speaker"]


def _card(board):
    words = ["-device", "sdhci-pci"]
    if board.card:
        words += [*_file(CARD, board.card, "raw"), "-device", f"sd-card,id={CARD},drive={CARD}"]
    return words


def _desk(board, monitor_fd, agent_fd):
    """What the instrument does not have: the folder shared with it, the journal's way out, monitor and agent."""
    words = [*_shared(board.io_folder),
             "-chardev", f"socket,id=monitor,fd={monitor_fd}", "-mon", "chardev=monitor,mode=control",
             "-device", "virtio-serial-pci",
             "-chardev", f"socket,id=agent,fd={agent_fd}",
             "-device", "virtserialport,chardev=agent,name=org.qemu.guest_agent.0"]
    for name, log in (("journal", board.journal_log), ("daemon", board.daemon_log)):
        words += ["-chardev", f"file,id={name},append=on,path={_escaped(log)}",
                  "-device", f"virtserialport,chardev={name},name=tessary.{name}"]
    if board.files:
        words += [*_file("files", board.files, "raw", ",readonly=on"), "-device", "virtio-blk-pci,drive=files,serial=files"]
    return words
