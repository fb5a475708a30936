"""The booted instrument's disk for a processor that is not this machine's.

Nothing for it can be run here, and nothing is told to this machine's kernel to change that: packages are unpacked here, and an
emulated machine installs them, Debian's in its first boot and ours in its second.
"""

import dataclasses
import glob
import gzip
import os
import shutil
import stat
import subprocess

from . import places, qemu
from .errors import BenchError

_BOARD = os.path.join(places.HERE, "machine")
_FIRST_BOOT_MODULES = ["virtio_pci", "virtio_blk", "crc32c_generic", "ext4", "9pnet_virtio", "9p"]
_SECONDS = 7200


@dataclasses.dataclass
class Settings:
    """What Debian is made of."""

    arch: str
    packages: list      # names; what they depend on comes with them
    sources: str        # for apt
    apt_options: list   # mmdebstrap's
    disk_size: str


def make_base(settings, work, log):
    """Debian as a disk with kernel and initrd beside it, in a folder below `work`; returns the folder. CalledProcessError."""
    root, made, shared = (os.path.join(work, name) for name in ("root", "made", "shared"))
    for folder in (made, shared):
        os.mkdir(folder)
    _unpack(settings, root, log)
    kernel, = glob.glob(os.path.join(root, "boot", "vmlinuz-*"))  # mmdebstrap has unpacked that package
    initrd = os.path.join(work, "initrd")
    with open(initrd, "wb") as file:
        file.write(gzip.compress(_initramfs(root, kernel.partition("vmlinuz-")[2]), 1))
    disk = os.path.join(made, "disk.img")
    _run(["mke2fs", "-q", "-t", "ext4", "-L", "instrument", "-d", root, "-E",
          "root_owner=0:0,lazy_itable_init=0,lazy_journal_init=0", disk, settings.disk_size], log)
    shutil.copy(os.path.join(_BOARD, "install-debian"), os.path.join(shared, "work"))
    _boot(settings.arch, kernel, initrd, disk, shared, log)
    _take_kernel(shared, made)
    return made


def make_disk(arch, base, work, made, given, log):
    """The same with what is given (see bench/machine/install) in the folder `made`. CalledProcessError."""
    shared = os.path.join(work, "shared")
    shutil.copytree(given, os.path.join(shared, "given"))
    with open(os.path.join(shared, "work"), "w", encoding="ascii") as file:
        file.write("set -e\ncp -r /run/bench/given /tmp/given\n/tmp/given/install /tmp/given\n"
                   "cp -L /vmlinuz /initrd.img /run/bench/\nrm /install-and-off\n")
    disk = os.path.join(made, "disk.img")
    _run(["cp", "--sparse=always", os.path.join(base, "disk.img"), disk], log)
    _boot(arch, *(os.path.join(base, name) for name in ("vmlinuz", "initrd.img")), disk, shared, log)
    _take_kernel(shared, made)


def _unpack(settings, root, log):
    """All packages' files, and the packages themselves where apt keeps them."""
    names = ["?essential", "?priority(required)", "busybox-static", f"linux-image-{settings.arch}", *settings.packages]
    command = ["mmdebstrap", "--mode=root", "--variant=extract", "--format=directory", f"--architectures={settings.arch}",
               "--skip=check/qemu,cleanup/apt/cache", "--hook-dir=/usr/share/mmdebstrap/hooks/merged-usr",
               *(f"--include={name}" for name in names), *settings.apt_options, "bookworm", root, "-"]
    _run(command, log, settings.sources)
    _run(["cp", "-r", "--no-preserve=ownership", f"{_BOARD}/base/.", root], log)
    shutil.copy(os.path.join(_BOARD, "install-and-off"), root)


def _initramfs(root, version):
    """A first root that loads what the second one needs, and goes there. Its only program is the packages' own busybox."""
    _run_quietly(["depmod", "--basedir", root, version])
    shown = _run_quietly(["modprobe", "--dirname", root, "--set-version", version, "--all", "--show-depends",
                          *_FIRST_BOOT_MODULES])
    modules = list(dict.fromkeys(line.split()[1] for line in shown.splitlines() if line.startswith("insmod")))
    archive = _Archive()
    for folder in ("bin", "dev", "proc", "modules", "root"):
        archive.add(folder, stat.S_IFDIR | 0o755, b"")
    busybox = os.path.join(root, "bin", "busybox")
    archive.add("bin/busybox", stat.S_IFREG | 0o755, _content(busybox))
    load = []
    for path in modules:
        name = os.path.basename(path)
        archive.add(f"modules/{name}", stat.S_IFREG | 0o644, _content(path))
        load.append(f"insmod /modules/{name}")
    archive.add("init", stat.S_IFREG | 0o755, "\n".join([
        "#!/bin/busybox sh", "/bin/busybox --install -s /bin", "export PATH=/bin", "mount -t devtmpfs dev /dev",
        "mount -t proc proc /proc", *load, "until mount -t ext4 /dev/vda /root; do sleep 0.2; done",
        "mount --move /dev /root/dev", "umount /proc", "exec switch_root /root /install-and-off", ""]).encode())
    return archive.bytes()


class _Archive:
    """A cpio archive as the kernel takes it for an initramfs (its Documentation, initramfs buffer format)."""

    def __init__(self):
        self._parts, self._number = [], 0

    def add(self, name, mode, content):
        self._number += 1
        encoded = name.encode() + b"\0"
        fields = (self._number, mode, 0, 0, 1, 0, len(content), 0, 0, 0, 0, len(encoded), 0)
        self._put(b"070701" + b"".join(b"%08X" % field for field in fields) + encoded)
        self._put(content)

    def _put(self, data):
        self._parts.append(data + bytes(-len(data) % 4))

    def bytes(self):
        """The archive, closed."""
        self.add("TRAILER!!!", 0, b"")
        return b"".join(self._parts)


def _boot(arch, kernel, initrd, disk, shared, log):
    """Until the machine has done the work in the shared folder and is off. CalledProcessError when it has not."""
    command = qemu.installer_command(arch, kernel, initrd, "init=/install-and-off", disk, shared)
    try:
        _run(command, log, seconds=_SECONDS)
    except subprocess.TimeoutExpired as error:
        raise subprocess.CalledProcessError(1, command) from error
    if not os.path.exists(os.path.join(shared, "done")):
        raise subprocess.CalledProcessError(1, command)


def _take_kernel(shared, made):
    for name in ("vmlinuz", "initrd.img"):
        shutil.copy(os.path.join(shared, name), made)


def _content(path):
    with open(path, "rb") as file:
        return file.read()


def _run(command, log, text=None, seconds=None):
    log.flush()
    subprocess.run(command, input=text, stdin=subprocess.DEVNULL if text is None else None, stdout=log, stderr=subprocess.STDOUT,
                   text=True, check=True, timeout=seconds)


def _run_quietly(command):
    done = subprocess.run(command, stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)
    if done.returncode:
        raise BenchError(f"{' '.join(command[:3])}...: {done.stderr.strip()}")
    return done.stdout
