"""The booted instrument's disk: Debian 12 with the packages that are tried, put there by apt. Made once and kept.

Two steps, each kept below build/machine under a key of all that goes into it: Debian with what our packages depend on (minutes),
and on top of that our packages and the board's own files (bench/machine), as a disk with kernel and initrd beside it.
"""

import dataclasses
import glob
import hashlib
import os
import shutil
import subprocess
import tempfile

from . import places
from .errors import BenchError
from .once import give_to_owner, made_once
from .say import say

RECIPE = 1  # raise it when the way a disk is made changes
_BOARD = os.path.join(places.HERE, "machine")
# Beside what our packages depend on: what makes a machine of them, and what the desk looks in with.
_PACKAGES = ["apt", "systemd-sysv", "udev", "dbus", "kmod", "e2fsprogs", "initramfs-tools", "zstd", "procps", "less",
             "qemu-guest-agent", "python3"]
_OURS = ("tessary", "tessary-bench")
_DISK_SIZE = "4G"


@dataclasses.dataclass
class Image:
    """A disk that is only read, and what QEMU boots it with."""

    disk: str
    kernel: str
    initrd: str


def ensure(folder, arch, packages):
    """Returns the Image for the packages of that architecture in the folder `packages`, making it first where there is none."""
    debs = [_package(packages, name, arch) for name in _OURS]
    depends = ", ".join(_field(deb, "Depends") for deb in debs)
    base = os.path.join(folder, f"debian-{arch}-{_key(arch, depends, *_PACKAGES, *_tree('base'))}")
    parts = map(_content, [os.path.join(_BOARD, "make-disk"), *debs])
    place = os.path.join(folder, f"instrument-{arch}-{_key(base, *_tree('root'), *parts)}")
    made_once(base, lambda: _make_base(folder, base, arch, depends), "Debian for the booted instrument")
    made_once(place, lambda: _make_disk(folder, base, place, debs), "the booted instrument's disk")
    return Image(*(os.path.join(place, name) for name in ("disk.img", "vmlinuz", "initrd.img")))


def _package(folder, name, arch):
    """Path of the newest package of that name."""
    found = sorted(glob.glob(os.path.join(glob.escape(folder), f"{name}_*_{arch}.deb")), key=os.path.getmtime)
    if not found:
        raise BenchError(f"there is no {name} package for {arch} in {folder}", f"script/package --arch {arch}")
    return os.path.realpath(found[-1])


def _field(deb, name):
    return subprocess.run(["dpkg-deb", "--field", deb, name], capture_output=True, text=True, check=True).stdout.strip()


def _content(path):
    with open(path, "rb") as file:
        return hashlib.file_digest(file, "sha256").hexdigest()


def _tree(part):
    """Names, modes and contents of the board's files for one step."""
    for top, folders, names in os.walk(os.path.join(_BOARD, part)):
        folders.sort()
        for path in (os.path.join(top, name) for name in sorted(names)):
            yield f"{os.path.relpath(path, _BOARD)} {os.stat(path).st_mode & 0o777:o} {_content(path)}"


def _key(*parts):
    return hashlib.sha256("\n".join([str(RECIPE), *parts]).encode()).hexdigest()[:12]


def _make_base(folder, base, arch, depends):
    say(f"making Debian for the booted instrument once ({arch}; some minutes and 2 GB below {folder})")
    partial = base + ".partial"
    shutil.rmtree(partial, ignore_errors=True)
    log = os.path.join(folder, "mmdebstrap.log")
    command = ["mmdebstrap", "--mode=root", "--variant=minbase", "--format=directory", f"--architectures={arch}",
               f"--include={','.join([*_PACKAGES, 'linux-image-' + arch])}", *_apt_options(),
               "--dpkgopt=force-unsafe-io", f"--essential-hook=cp -r --no-preserve=ownership '{_BOARD}/base/.' \"$1/\"",
               f"--customize-hook=chroot \"$1\" apt-get -q -y --no-install-recommends satisfy \"{depends}\"",
               "bookworm", partial, "-"]
    with open(log, "w", encoding="utf-8") as output:
        done = subprocess.run(command, input=_sources(), stdout=output, stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode:
        shutil.rmtree(partial, ignore_errors=True)
        raise BenchError("Debian for the booted instrument could not be made", f"the messages are in {log}")
    give_to_owner(folder, log)
    os.rename(partial, base)


def _sources():
    """The sources of this machine's apt, with the key that Debian signs with."""
    found = subprocess.run([os.path.join(places.SHOWN, "script", "clean-root"), "sources"], capture_output=True, text=True,
                           check=True).stdout
    return found.replace("deb ", "deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] ")


def _apt_options():
    """How this machine's apt reaches its mirror."""
    found = subprocess.run(["apt-config", "dump"], capture_output=True, text=True, check=True).stdout
    return [f"--aptopt={line}" for line in found.splitlines()
            if line.startswith(("Acquire::http", "Acquire::https", "Acquire::Check-"))]


def _make_disk(folder, base, place, debs):
    say("making the booted instrument's disk")
    log = os.path.join(folder, "make-disk.log")
    with tempfile.TemporaryDirectory(prefix="making-", dir=folder) as work:
        made = os.path.join(work, "made")
        os.mkdir(made)
        command = ["unshare", "--mount", "--propagation=private", "--pid", "--fork", "--kill-child",
                   os.path.join(_BOARD, "make-disk"), base, work, made, _DISK_SIZE, *debs]
        with open(log, "w", encoding="utf-8") as output:
            done = subprocess.run(command, stdin=subprocess.DEVNULL, stdout=output, stderr=subprocess.STDOUT, check=False)
        if done.returncode:
            raise BenchError("the booted instrument's disk could not be made", f"the messages are in {log}")
        give_to_owner(folder, log, made, *(entry.path for entry in os.scandir(made)))
        os.rename(made, place)
