"""Power cuts, and a kernel that is staged, copied and booted."""

import random
import time

import tessary

from .machine import require, tell
from .rows import RECORDING, SERVER, make_recording
from .software import next_package

_STAGED = "/home/ondrak/Tessary/kernel"
_WRITTEN_SECONDS = 10  # docs/deployment.md: so long after its end a recording outlives a power cut
_PROBE = "/boot/staged"  # a file that comes with the staged kernel


def staged_kernel(machine, _):
    """A staged kernel is copied at the daemon's start, and the machine reboots by itself."""
    _stage(machine)
    identity = _boot_id(machine)
    since = time.monotonic()
    machine.shell("systemctl --no-block restart tessary")
    machine.wait_until(lambda: _boot_id(machine) not in ("", identity), "the machine did not reboot", 900)
    software = _is_in_order(machine)
    require(machine.shell(f"cmp /bin/bash /usr/lib/staged/module && stat -c %s {_PROBE}") == "30000000",
            "what was staged is not there")
    tell(f"staged, rebooted, in order again in {time.monotonic() - since:.0f} s; software {software}")


def power_cuts(machine, options):
    """Power cuts at moments in turn; each time everything is in order after the boot."""
    outcomes = {}
    for number in range(options.power_cuts):
        name = list(_MOMENTS)[number % len(_MOMENTS)]
        kept = _MOMENTS[name](machine, options)
        seconds = machine.cut_power_and_boot()
        software = _is_in_order(machine)
        checked = machine.shell("journalctl --boot --quiet --output=cat --unit=systemd-fsck-root; "
                                "dmesg | grep -E 'EXT4-fs (error|warning)' || true").replace("\n", "; ")
        completed = machine.run("systemctl", "show", "--property=ConditionResult", "--value", "tessary-finish-update") == "yes"
        tell(f"{number + 1}: power cut {name}; greeting after {seconds:.1f} s; {software}"
             f"{', update completed' if completed else ''}; {checked}")
        require("EXT4-fs error" not in checked, "the file system is not clean")
        require(kept is None or _recording(machine) == kept,
                f"the recording that was closed before: {_recording(machine)}, not {kept}")
        outcomes.setdefault(name, []).append(seconds)
    for name, times in outcomes.items():
        tell(f"{name}: {len(times)} times, each in order; power on to greeting {min(times):.0f} to {max(times):.0f} s")


# What the power is cut in. Each returns the recording that must be there afterwards, or None.

def _at_rest(machine, _):
    return _recording(machine)


def _recording_closed(machine, options):
    """When a recording has been on the card for as long as the deployment page says."""
    with machine.controller() as controller:
        make_recording(machine, controller, options)
    time.sleep(_WRITTEN_SECONDS)
    return _recording(machine)


def _in_an_update(machine, options):
    """While dpkg works. As the daemon does it, but without the minute on the line."""
    kept = _recording(machine)
    machine.instrument.shared("next.deb").write_bytes(next_package(machine, options).read_bytes())
    machine.shell("cp /run/bench/next.deb /tmp/Tessary.deb && sync && systemd-run --quiet --no-block dpkg -i --force-all "
                  "/tmp/Tessary.deb")
    if random.random() < 0.7:  # from the moment on at which dpkg may have replaced something
        machine.shell("for i in $(seq 3000); do [ -e /var/lib/tessary/update.deb ] && break; sleep 0.01; done")
    time.sleep(random.uniform(0, 1.5))
    return kept


def _while_recording(machine, options):
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER)
    with machine.controller() as controller:
        controller.scan(SERVER, wait=60)
        controller.record()
        machine.wait_until(lambda: controller.recording_size() > 1_000_000, "the recording does not grow", 120)
    sender.stop()


def _while_exporting(machine, options):
    kept = _recording_closed(machine, options)
    machine.instrument.set_knobs(export_rate=100_000)
    before = machine.size_of("hardware/export.bin")
    with machine.controller() as controller:
        controller.ask("PVR_export")  # answered at once
    machine.wait_until(lambda: machine.size_of("hardware/export.bin") not in (0, before), "nothing is exported", 60)
    return kept


def _in_kernel_copy(machine, _):
    kept = _recording(machine)
    _stage(machine)
    machine.shell("systemctl --no-block restart tessary")
    machine.wait_until(lambda: _begins(machine), "the kernel is not copied", 300)
    time.sleep(random.uniform(0, 1))
    return kept


_MOMENTS = {
    "at rest": _at_rest,
    "in an update": _in_an_update,
    "while recording": _while_recording,
    "after a recording": _recording_closed,
    "while exporting": _while_exporting,
    "while a kernel is copied": _in_kernel_copy,
}


def _stage(machine):
    """A kernel's folder beside the daemon's: 30 MB, and a file that can be compared."""
    machine.shell(f"rm -rf {_PROBE} /usr/lib/staged; mkdir -p {_STAGED}/boot {_STAGED}/usr/lib/staged && "
                  f"head -c 30000000 /dev/urandom >{_STAGED}/boot/staged && cp /bin/bash {_STAGED}/usr/lib/staged/module && sync")


def _begins(machine):
    """Whether the copy has begun; it may have ended, and the machine be on its way down."""
    try:
        return _exists(machine, _PROBE)
    except tessary.TessaryError:
        return True


def _exists(machine, path):
    return machine.shell(f"[ ! -e {path} ] || echo yes") == "yes"


def _boot_id(machine):
    """Tells one boot from another; "" while the machine is down."""
    try:
        return machine.run("cat", "/proc/sys/kernel/random/boot_id")
    except tessary.TessaryError:
        return ""


def _is_in_order(machine):
    """As the machine's, once no kernel is staged any more: what a power cut interrupted is copied again, and rebooted. The
    daemon greets in the moments before that, too: it has asked for the reboot by then, and the staging is gone."""
    def unstaged():
        try:
            state = machine.shell(f"[ -e {_STAGED} ] || systemctl is-system-running || true")
            return state in ("starting", "running", "degraded")
        except tessary.TessaryError:
            return False  # it is down
    machine.wait_until(unstaged, "the staged kernel stays", 900)
    return machine.is_in_order()


def _recording(machine):
    """Size and checksum of the recording, "" when there is none."""
    return machine.shell(f"[ ! -e {RECORDING} ] || cksum <{RECORDING}")
