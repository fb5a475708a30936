"""Updates over the line, and what is not installed."""

import subprocess
import time

import tessary

from .machine import require, tell
from .places import TREE
from .rows import still_answers, wrong_checksum

_FULL = "/var/full"


def next_package(machine, options):
    """Path of a package of the next version, whose daemon says so."""
    path = options.out / "next.deb"
    if not path.exists():
        packages = sorted((TREE / "build" / "packages").glob(f"tessary_*_{options.machine}.deb"))
        version = machine.package_version().split()[0] + "+next"
        subprocess.run([TREE / "packaging" / "make-update", "--next", packages[-1], "--daemon", options.next, "--version", version,
                        path], check=True)
    return path


def update(machine, options):
    """What can not be installed leaves the old version; the next version over the line at its own speed."""
    package = next_package(machine, options)
    with machine.controller() as controller:
        before = controller.version().software
        for what, attempt in (
                ("a wrong checksum", lambda: wrong_checksum(controller, package.read_bytes()[:50_000])),
                ("a file that is no package", lambda: _send(controller, b"!<arch>\n no package at all")),
                ("a package whose script fails", lambda: _send(controller, _failing_package(options))),
                ("a full disk", lambda: _send_to_full_disk(machine, controller, package))):
            said = attempt()
            require(still_answers(controller, before), f"{what}: the old version no longer answers")
            tell(f"{what}: {said or 'silence'}; {before} answers")
        began = time.monotonic()
        controller.update(package, installation=600)
        tell(f"update of {package.stat().st_size} bytes: {time.monotonic() - began:.1f} s")
        require(controller.version(timeout=60).software == before, "another version answers before the restart")
    seconds = machine.restart_daemon()
    after = machine.is_in_order()
    tell(f"restart to greeting: {seconds:.1f} s; {before} is now {after}, package {machine.package_version()}")
    require(after != before and machine.package_version().endswith("+next installed"), "the new version does not answer")


def _send(controller, package):
    """What became of it, in words."""
    try:
        controller.update(package, installation=600)
        return "answered as installed"
    except tessary.UpdateError as error:
        return str(error).splitlines()[0]


def _send_to_full_disk(machine, controller, package):
    machine.shell(f"dd if=/dev/zero of={_FULL} bs=1M 2>/dev/null; cat /dev/zero >>{_FULL} 2>/dev/null || true")
    try:
        return _send(controller, package.read_bytes())
    finally:
        machine.run("rm", _FULL)


def _failing_package(options):
    """Bytes of a Debian package whose preinst ends with 1."""
    folder = options.out / "failing"
    (folder / "DEBIAN").mkdir(parents=True, exist_ok=True)
    (folder / "DEBIAN" / "control").write_text(
        "Package: tessary\nVersion: 99\nArchitecture: all\nMaintainer: none <none@localhost>\n"
        "Description: can not be installed\n")
    (folder / "DEBIAN" / "preinst").write_text("#!/bin/sh\nexit 1\n")
    (folder / "DEBIAN" / "preinst").chmod(0o755)
    subprocess.run(["dpkg-deb", "--build", "--root-owner-group", folder, options.out / "failing.deb"], check=True,
                   stdout=subprocess.DEVNULL)
    return (options.out / "failing.deb").read_bytes()
