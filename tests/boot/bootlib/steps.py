"""What is to be seen of a booted instrument, a step each. A step prints its figures and raises Failed for what it misses."""

import pathlib
import random
import subprocess
import sys
import time
import types

import tessary

from . import tagged
from .machine import require

TREE = pathlib.Path(__file__).resolve().parents[3]
VLAN = 100
_TAGGED_GROUP, _TAGGED_PORT, _TAGGED_RATE = "239.0.0.9", 1240, 5_000_000
_HEADERS = 42  # Ethernet, IPv4 and UDP, as the measurement counts a frame
_SERVER = "udp://239.0.0.1:1234"
STAGED = "/home/ondrak/Tessary/kernel"


def tell(text):
    """A figure, or what was seen."""
    print(f"   {text}", flush=True)


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
    settings = machine.shell("sysctl -n net.core.rmem_max; ethtool -k eth0 | grep -E "
                             "'^(tcp-segmentation|generic-segmentation|generic-receive|large-receive)-offload'")
    require(settings.startswith("30000000\n") and " on" not in settings, f"settings of kernel and interface: {settings}")
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


def vlan(machine, options):
    """A VLAN device made by `interface=`, and the measurement inside it against what was sent."""
    capture = options.out / "tagged.pcap"
    tagged.write(capture, options.streams / "demo.ts", VLAN, _TAGGED_GROUP, _TAGGED_PORT, _TAGGED_RATE)
    server = f"udp://{_TAGGED_GROUP}:{_TAGGED_PORT}"
    with machine.controller() as controller:
        controller.set_interface("192.168.78.2/24", vlan=VLAN)
        try:
            device = machine.shell(f"for i in $(seq 50); do ip -d link show eth0.{VLAN} 2>/dev/null | grep -q LOWER_UP && break; "
                                   f"sleep 0.2; done; ip -d -brief address show eth0.{VLAN}; ip -d link show eth0.{VLAN}")
            require(f"802.1Q id {VLAN}" in device and "192.168.78.2/24" in device, f"eth0.{VLAN}: {device}")
            sender = machine.instrument.send(capture, server, "--keep-vlan")
            try:
                services = [service.name for service in controller.scan(server, wait=60).services]
                tell(f"services in eth0.{VLAN}: {', '.join(services)}")
                require(len(services) == 3, "three services were sent")
                controller.measure(server, wait=60)  # the one in which the sender began
                found = [controller.measure(server, wait=60) for _ in range(3)]
            finally:
                sender.stop()
        finally:
            controller.set_interface()
    sent = _TAGGED_RATE * (1316 + _HEADERS) // 1316
    tell(f"sent {sent} bit/s; measured {[period.bit_rate for period in found]}, "
         f"errors {[period.continuity_errors for period in found]}")
    require(all(abs(period.bit_rate - sent) < sent / 50 for period in found[1:]), "the bit rate differs by more than 2 %")


def next_package(machine, options):
    """Path of a package of the next version, whose daemon says so."""
    path = options.out / "next.deb"
    if not path.exists():
        packages = sorted((TREE / "build" / "packages").glob(f"tessary_*_{options.machine}.deb"))
        daemon = options.build / "tests" / "system" / "tessary_next"
        version = machine.package_version().split()[0] + "+next"
        subprocess.run([TREE / "packaging" / "make-update", "--next", packages[-1], "--daemon", daemon, "--version", version,
                        path], check=True)
    return path


def update(machine, options):
    """The next version over the line at its own speed; a package that can not be installed leaves the old one."""
    with machine.controller() as controller:
        before = controller.version().software
        began = time.monotonic()
        try:
            controller.update(b"!<arch>\n no package at all", installation=600)
            tell("a file that is no package was answered as installed")
        except tessary.UpdateError as error:
            tell(f"a file that is no package: {error}".splitlines()[0])
        require(controller.version(timeout=60).software == before, "the old version no longer answers")
        package = next_package(machine, options)
        began = time.monotonic()
        controller.update(package, installation=600)
        tell(f"update of {package.stat().st_size} bytes: {time.monotonic() - began:.1f} s")
        require(controller.version(timeout=60).software == before, "another version answers before the restart")
    seconds = machine.restart_daemon()
    after = machine.is_in_order()
    tell(f"restart to greeting: {seconds:.1f} s; {before} is now {after}, package {machine.package_version()}")
    require(after != before and machine.package_version().endswith("+next installed"), "the new version does not answer")


def staged_kernel(machine, _):
    """A staged kernel is copied at the daemon's start, and the machine reboots by itself."""
    machine.shell(f"mkdir -p {STAGED}/boot {STAGED}/usr/lib/staged && date >{STAGED}/boot/staged && "
                  f"cp /bin/bash {STAGED}/usr/lib/staged/module && sync")
    identity = machine.run("cat", "/proc/sys/kernel/random/boot_id")
    since = time.monotonic_ns()
    machine.shell("systemctl --no-block restart tessary")
    deadline = time.monotonic() + 900
    while True:
        try:
            if machine.run("cat", "/proc/sys/kernel/random/boot_id") != identity:
                break
        except tessary.TessaryError:
            pass  # it is down
        require(time.monotonic() < deadline, "the machine did not reboot")
        time.sleep(1)
    software = machine.is_in_order()
    left = machine.shell(f"ls -d {STAGED} 2>/dev/null || true; ls /boot/staged; cmp /bin/bash /usr/lib/staged/module && echo same")
    require(left == "/boot/staged\nsame", f"after the reboot: {left}")
    tell(f"staged, rebooted, in order again in {(time.monotonic_ns() - since) / 1e9:.0f} s; software {software}")


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
    sender = machine.instrument.send(options.streams / "demo.ts", _SERVER)
    try:
        with machine.controller() as controller:
            controller.measure(_SERVER, wait=60)
            machine.shell("date --set='1 year ago'")
            found = [controller.measure(_SERVER, wait=60) for _ in range(3)]
            machine.shell("date --set='1 year'")
            found += [controller.measure(_SERVER, wait=60) for _ in range(3)]
    finally:
        sender.stop()
    tell(f"bit rates while the clock was set back, and after: {[period.bit_rate for period in found]}")
    require(all(abs(found[at].bit_rate - found[2].bit_rate) < found[2].bit_rate / 20 for at in (2, 5)), "they differ")
    machine.is_in_order()


def _answers(machine, what, end_cause=lambda: None):
    """Tells how long after the cause's end the daemon answers."""
    end_cause()
    began = time.monotonic()
    with machine.controller() as controller:
        controller.version()
    tell(f"{what}: an answer {time.monotonic() - began:.1f} s after its end")


def power_cuts(machine, options):
    """Power cuts at moments in turn; each time everything is in order after the boot."""
    moments = {"at rest": lambda: None, "in an update": lambda: _begin_update(machine, options),
               "while recording": lambda: _begin_recording(machine, options)}
    for number in range(options.power_cuts):
        name = list(moments)[number % len(moments)]
        moments[name]()
        seconds = machine.cut_power_and_boot()
        software = machine.is_in_order()
        checked = machine.shell("journalctl --boot --quiet --output=cat --unit=systemd-fsck-root; "
                                "dmesg | grep -E 'EXT4-fs (error|warning)' || true").replace("\n", "; ")
        completed = machine.run("systemctl", "show", "--property=ConditionResult", "--value", "tessary-finish-update") == "yes"
        tell(f"{number + 1}: power cut {name}; greeting after {seconds:.1f} s; {software}"
             f"{', update completed' if completed else ''}; {checked}")
        require("EXT4-fs error" not in checked, "the file system is not clean")


def _begin_update(machine, options):
    """Returns while dpkg works."""
    machine.instrument.shared("next.deb").write_bytes(next_package(machine, options).read_bytes())
    # As the daemon does it, but without the minute on the line; from the moment on at which dpkg may have replaced something.
    machine.shell("cp /run/bench/next.deb /tmp/Tessary.deb && sync && systemd-run --quiet --no-block dpkg -i --force-all "
                  "/tmp/Tessary.deb; until [ -e /var/lib/tessary/update.deb ]; do sleep 0.01; done")
    time.sleep(random.uniform(0, 1))


def _begin_recording(machine, options):
    """Returns while the card is written to."""
    sender = machine.instrument.send(options.streams / "demo.ts", _SERVER)
    with machine.controller() as controller:
        controller.scan(_SERVER, wait=60)
        controller.record()
        time.sleep(5)
    sender.stop()
