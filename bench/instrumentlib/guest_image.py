"""The booted instrument's disk: Debian 12 with the packages that are tried, put there by apt. Made once and kept.

Two steps, each kept below build/machine under a key of all that goes into it: Debian with what our packages depend on (minutes),
and on top of that our packages and the board's own files (bench/machine), as a disk with kernel and initrd beside it. For
another processor than this machine's both are done by the machine itself, see foreign_image.py.
"""

import dataclasses
import glob
import hashlib
import os
import re
import shutil
import subprocess
import tempfile

from . import accelerator, foreign_image, places
from .errors import BenchError
from .once import give_to_owner, made_once
from .say import say

RECIPE = 2  # raise it when the way a disk is made changes
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
    foreign = arch != accelerator.native()
    scripts = ["install-and-off", "install-debian"] if foreign else []
    base = os.path.join(folder, f"debian-{arch}-{_key(arch, depends, *_PACKAGES, *_tree('base'), *_scripts(*scripts))}")
    ours = [*_tree("root"), *_scripts("install", *([] if foreign else ["make-disk"])), *map(_content, debs)]
    disk = os.path.join(folder, f"instrument-{arch}-{_key(base, *ours)}")
    make_base, make_disk = (_foreign_base, _foreign_disk) if foreign else (_own_base, _own_disk)
    _once(base, "Debian for the booted instrument", lambda work, log: make_base(arch, depends, work, log))
    _once(disk, "the booted instrument's disk", lambda work, log: make_disk(arch, base, _given(work, debs), work, log))
    return Image(*(os.path.join(disk, name) for name in ("disk.img", "vmlinuz", "initrd.img")))


def _once(place, what, make):
    """Has a folder made where there is none yet. `make(work, log)` works below the folder `work`, writes the programs' messages to
    the file `log`, and returns what is to be kept; CalledProcessError."""
    folder, name = os.path.split(place)

    def make_it():
        say(f"making {what} ({name})")
        log = os.path.join(folder, name + ".log")
        with tempfile.TemporaryDirectory(prefix="making-", dir=folder) as work, open(log, "w", encoding="utf-8") as output:
            give_to_owner(folder, log)
            try:
                os.rename(make(work, output), place)
            except subprocess.CalledProcessError as error:
                raise BenchError(f"{what} could not be made", f"the messages are in {log}") from error
    made_once(place, make_it, what)


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


def _scripts(*names):
    """Contents of the board's programs that make a disk."""
    return [_content(os.path.join(_BOARD, name)) for name in names]


def _tree(part):
    """Names, modes and contents of the board's files for one step."""
    for top, folders, names in os.walk(os.path.join(_BOARD, part)):
        folders.sort()
        for path in (os.path.join(top, name) for name in sorted(names)):
            yield f"{os.path.relpath(path, _BOARD)} {os.stat(path).st_mode & 0o777:o} {_content(path)}"


def _key(*parts):
    return hashlib.sha256("\n".join([str(RECIPE), *parts]).encode()).hexdigest()[:12]


def _own_base(arch, depends, work, log):
    say("some minutes and 2 GB, once")
    root = os.path.join(work, "root")
    command = ["mmdebstrap", "--mode=root", "--variant=minbase", "--format=directory", f"--architectures={arch}",
               f"--include={','.join([*_PACKAGES, 'linux-image-' + arch])}", *_apt_options(),
               "--dpkgopt=force-unsafe-io", f"--essential-hook=cp -r --no-preserve=ownership '{_BOARD}/base/.' \"$1/\"",
               f"--customize-hook=chroot \"$1\" apt-get -q -y --no-install-recommends satisfy \"{depends}\"",
               "bookworm", root, "-"]
    subprocess.run(command, input=_sources(), stdout=log, stderr=subprocess.STDOUT, text=True, check=True)
    return root


def _foreign_base(arch, depends, work, log):
    say(f"{arch} is emulated here: this takes long, and 3 GB, once")
    settings = foreign_image.Settings(arch, [*_PACKAGES, *_names(depends)], _sources(), _apt_options(), _DISK_SIZE)
    return _owned(foreign_image.make_base(settings, work, log))


def _names(depends):
    """The packages of a Depends field, the first of alternatives, without versions."""
    return [re.match(r"[a-z0-9.+-]+", one.strip())[0] for one in depends.split(",")]


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


def _given(work, debs):
    """What bench/machine/install puts into a root, and that program: a folder below `work`."""
    given = os.path.join(work, "given")
    shutil.copytree(os.path.join(_BOARD, "root"), os.path.join(given, "root"))
    shutil.copy(os.path.join(_BOARD, "install"), given)
    os.mkdir(os.path.join(given, "packages"))
    for deb in debs:
        shutil.copy(deb, os.path.join(given, "packages"))
    subprocess.run([os.path.join(places.HERE, "counterparts", "make-bitfile"), os.path.join(given, "Tessary.bit")], check=True)
    return given


def _own_disk(_, base, given, work, log):
    made = _new(work)
    command = ["unshare", "--mount", "--propagation=private", "--pid", "--fork", "--kill-child",
               os.path.join(_BOARD, "make-disk"), base, work, made, _DISK_SIZE, given]
    log.flush()
    subprocess.run(command, stdin=subprocess.DEVNULL, stdout=log, stderr=subprocess.STDOUT, check=True)
    return _owned(made)


def _foreign_disk(arch, base, given, work, log):
    made = _new(work)
    foreign_image.make_disk(arch, base, work, made, given, log)
    return _owned(made)


def _new(work):
    made = os.path.join(work, "made")
    os.mkdir(made)
    return made


def _owned(made):
    """The folder, which with all that is in it is the caller's now."""
    give_to_owner(os.path.dirname(os.path.dirname(made)), made, *(entry.path for entry in os.scandir(made)))
    return made
