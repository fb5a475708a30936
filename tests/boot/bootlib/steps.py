"""Start, session, card and trouble of a booted instrument. A step prints its figures and raises Failed for what it misses."""

import sys
import time
import types

from .machine import require, tell
from .places import TREE
from .rows import CARD, SERVER, make_recording


def start(machine, _):
    """Power on to the greeting; all that systemd started; no error of ours in the journal."""
    seconds = machine.cut_power_and_boot()
    tell(f"power on to greeting: {seconds:.1f} s")
    tell(machine.run("systemd-analyze", "time").replace("\n", "; "))
    software = machine.is_in_order()
    tell(f"software {software}, package {machine.package_version()}")
    errors = machine.run("journalctl", "--boot", "--priority=err", "--output=cat", "--unit=tessary", "--quiet")
    require(not errors, f"errors of ours in the journal: {errors}")
    others = machine.run("journalctl", "--boot", "--priority=err", "--output=short-monotonic", "--no-hostname", "--quiet")
    tell(f"errors of others in the journal: {others or 'none'}")
    tell(machine.shell("systemd-analyze security tessary --no-pager | tail -n 1"))
    settings = machine.shell("sysctl -n net.core.rmem_max vm.dirty_expire_centisecs vm.dirty_writeback_centisecs; "
                             "ethtool -k eth0 | "
                             "grep -E '^(tcp-segmentation|generic-segmentation|generic-receive|large-receive)-offload'")
    require(settings.startswith("30000000\n100\n100\n") and " on" not in settings, f"settings of kernel and interface: {settings}")
    levels = machine.shell("amixer sget PCM; amixer sget Headphone")
    require("[80%]" in levels and "[92%]" in levels, f"mixer levels: {levels}")


def session(machine, options):
    """The controller's session of script/demo: picture from the screen, tone from the sound card."""
    sys.path.insert(0, str(TREE / "bench" / "demo"))
    import session as demo  # pylint: disable=import-outside-toplevel,import-error
    given = types.SimpleNamespace(build=options.build, streams=options.streams, out=options.out, stay=False)
    senders = [machine.instrument.send(options.streams / name, url)
               for name, url in (("demo.ts", demo.TELEVISION), ("services.ts", demo.RADIO))]
    try:
        require(demo.play(demo.Session(given, machine.instrument), senders) == 0, "the session failed (above)")
    finally:
        for sender in senders:
            sender.stop()


def trouble(machine, options):
    """The daemon killed, memory eaten, the disk full, the clock set back: it is there again, and counts right."""
    since = time.monotonic_ns()
    machine.instrument.kill_daemon()
    tell(f"killed to greeting: {machine.await_greeting(since):.1f} s")
    # In a unit of its own: systemd ends all of a unit of which the kernel has ended one.
    machine.shell("systemd-run --quiet --wait --collect python3 -c 'x = []\nwhile True: x.append(b\"1\" * 10**7)' || true")
    _answers(machine, "the kernel ended a program for lack of memory")
    machine.shell("dd if=/dev/zero of=/var/full bs=1M 2>/dev/null || true")
    _answers(machine, "the disk was full", lambda: machine.run("rm", "/var/full"))
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER)
    try:
        with machine.controller() as controller:
            controller.measure(SERVER, wait=60)
            machine.shell("date --set='1 year ago'")
            found = [controller.measure(SERVER, wait=60) for _ in range(3)]
            machine.shell("date --set='1 year'")
            found += [controller.measure(SERVER, wait=60) for _ in range(3)]
    finally:
        sender.stop()
    tell(f"bit rates while the clock was set back, and after: {[period.bit_rate for period in found]}")
    require(all(abs(found[at].bit_rate - found[2].bit_rate) < found[2].bit_rate / 20 for at in (2, 5)), "they differ")
    machine.is_in_order()


def card(machine, options):
    """The card pulled while it is written to, only to be read, and full: the daemon answers, and the next recording is whole."""
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER)
    try:
        with machine.controller() as controller:
            controller.scan(SERVER, wait=60)
            controller.record()
            machine.wait_until(lambda: controller.recording_size() > 1_000_000, "the recording does not grow", 120)
            machine.instrument.card("out")
            machine.wait_until(lambda: not _is_mounted(machine), "a pulled card stays mounted", 60)
            tell(f"pulled: {controller.version().software} answers, a recording of {controller.recording_size()} bytes is there")
            controller.stop_recording()
            machine.instrument.card("in")
            machine.wait_until(lambda: _is_mounted(machine), "the card is in, but not mounted", 60)
            machine.run("mount", "-o", "remount,ro", CARD)
            _try_recording(controller, "only to be read")
            machine.run("mount", "-o", "remount,rw", CARD)
            machine.shell(f"dd if=/dev/zero of={CARD}/full bs=1M 2>/dev/null || true")
            _try_recording(controller, "full")
            machine.run("rm", f"{CARD}/full")
    finally:
        sender.stop()
    with machine.controller() as controller:
        tell(f"in again: a recording of {make_recording(machine, controller, options)} bytes")
    machine.is_in_order()


def _try_recording(controller, how):
    """A recording that can not be made."""
    controller.set_server(SERVER)
    controller.record()
    time.sleep(5)
    size = controller.recording_size()
    controller.stop_recording()
    tell(f"{how}: {controller.version().software} answers, a recording of {size} bytes is there")


def _is_mounted(machine):
    return machine.shell(f"mountpoint -q {CARD} && echo yes || true") == "yes"


def _answers(machine, what, end_cause=lambda: None):
    """Tells how long after the cause's end the daemon answers."""
    end_cause()
    began = time.monotonic()
    with machine.controller() as controller:
        controller.version()
    tell(f"{what}: an answer {time.monotonic() - began:.1f} s after its end")
