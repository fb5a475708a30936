"""What runs the booted instrument's instructions: this machine's processor where a short trial shows that it does, else QEMU."""

import contextlib
import glob
import os
import platform
import subprocess

from .say import say

EMULATED = "tcg,thread=multi"
_KVM = "kvm"
_DEVICE = "/dev/kvm"
_TRIAL_SECONDS = 20
_DEBIANS_NAMES = {"x86_64": "amd64", "aarch64": "arm64"}


def native():
    """Debian's name of this machine's architecture."""
    return _DEBIANS_NAMES.get(platform.machine(), platform.machine())


def choose(arch, program, machine, kernel, folder):
    """The value of QEMU's -accel. `program` and `machine` are the emulator and its board, `folder` keeps the trial's outcome
    until this machine boots again: there are hosts that have the device, and guests that hang in it."""
    if arch != native() or not os.access(_DEVICE, os.R_OK | os.W_OK):
        return EMULATED
    with open("/proc/sys/kernel/random/boot_id", encoding="ascii") as file:
        note = os.path.join(folder, f"accelerator-{file.read().strip()}")
    with contextlib.suppress(FileNotFoundError), open(note, encoding="ascii") as file:
        return file.read()
    say(f"trying {_DEVICE}, once ({_TRIAL_SECONDS} s at most)")
    chosen = _KVM if _boots(program, machine, kernel) else EMULATED
    if chosen == EMULATED:
        say(f"a kernel does not boot in {_DEVICE} here; the processor is emulated")
    for old in glob.glob(os.path.join(glob.escape(folder), "accelerator-*")):
        os.unlink(old)
    with open(note, "w", encoding="ascii") as file:
        file.write(chosen)
    return chosen


def _boots(program, machine, kernel):
    """Whether a kernel comes so far that it finds no root file system, and so reboots, which ends it here."""
    command = [program, "-machine", machine, "-accel", _KVM, "-cpu", "max", "-m", "512", "-nodefaults", "-no-user-config",
               "-display", "none", "-no-reboot", "-kernel", kernel, "-append", "panic=-1"]
    try:
        return subprocess.run(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=_TRIAL_SECONDS, check=False).returncode == 0
    except subprocess.TimeoutExpired:
        return False
