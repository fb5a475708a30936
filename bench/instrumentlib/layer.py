"""The instrument's own package layer: packages that bring daemons, installed over the host's root but not on it.

The layer is kept as one archive, `build/bench-layer/<key>.tar`: the upper directory of an overlay in which
apt-get installed the packages. An archive, because the kernel refuses an overlay whose lower directories lie
within each other, and because one file is either there whole or not at all.
"""

import contextlib
import hashlib
import os
import shutil
import signal
import subprocess
import sys
import tempfile

from . import overlay, privilege, syscalls
from .errors import BenchError
from .once import give_to_owner, made_once
from .say import say

# Daemons come here. Plain programs stand here too, so that the instrument has them whatever the host has.
PACKAGES = ["network-manager", "dnsmasq-base", "smcroute", "dbus", "ethtool", "net-tools", "iputils-ping",
            "iproute2", "sudo", "psmisc", "procps", "kmod"]
_KEPT = 4  # of the newest layers
RECIPE = 1  # raise it when the way a layer is made changes
_DPKG_STATUS = "/var/lib/dpkg/status"
# Left behind by the package manager; the instrument has no use for them.
_NOT_KEPT = ["var/cache/apt", "var/lib/apt", "var/log", "var/cache/debconf", "tmp", "run", "dev", "proc", "sys",
             "etc/resolv.conf", "usr/sbin/policy-rc.d", "usr/share/doc", "usr/share/man", "usr/share/locale",
             "usr/share/info"]


def key():
    """Names the layer: the same packages over the same host packages give the same key."""
    marks = " user" if privilege.is_users_own() else ""  # the overlay marks, too, are for whom the overlay is
    digest = hashlib.sha256(f"{RECIPE} {' '.join(PACKAGES)}{marks}\n".encode())
    with open(_DPKG_STATUS, "rb") as status:
        digest.update(status.read())
    return digest.hexdigest()[:16]


def ensure(folder):
    """Returns the layer's archive below `folder`, making it first if this host has none yet."""
    archive = os.path.join(folder, key() + ".tar")
    made_once(archive, lambda: _make(folder, archive), "the package layer")
    return archive


def _make(folder, archive):
    say(f"making the package layer once for this host: {' '.join(PACKAGES)}")
    partial = archive + ".partial"
    for name in os.listdir(folder):
        if name.startswith("making-"):
            shutil.rmtree(os.path.join(folder, name))  # of a maker that was killed
    scratch = tempfile.mkdtemp(prefix="making-", dir=folder)
    child = os.fork()
    if child == 0:
        _run_maker(scratch, partial)
    try:
        _, status = os.waitpid(child, 0)
    except BaseException:
        os.kill(child, signal.SIGTERM)
        os.waitpid(child, 0)
        raise
    finally:
        shutil.rmtree(scratch, ignore_errors=True)
    if status != 0:
        with contextlib.suppress(FileNotFoundError):
            os.unlink(partial)
        raise BenchError("the package layer could not be made (see apt-get's messages above)",
                         "check the network and /etc/apt/sources.list, then try again")
    give_to_owner(folder, partial)
    os.rename(partial, archive)
    _forget_old(folder)
    say(f"package layer ready: {archive} ({os.path.getsize(archive) >> 20} MiB)")


def _forget_old(folder):
    """Layers made for packages that the host no longer has; clean roots on this tree have layers of their own."""
    archives = [entry for entry in os.scandir(folder) if entry.name.endswith(".tar")]
    archives.sort(key=lambda entry: entry.stat().st_mtime, reverse=True)
    for entry in archives[_KEPT:]:
        os.unlink(entry.path)


def _run_maker(scratch, partial):
    """Body of the forked maker: never returns. Its mounts live in its own namespace and vanish with it."""
    status = 1
    try:
        syscalls.die_with_parent(signal.SIGTERM)
        syscalls.unshare(syscalls.CLONE_NEWNS | syscalls.CLONE_NEWIPC | syscalls.CLONE_NEWUTS)
        _install(scratch)
        _archive(os.path.join(scratch, "upper"), partial)
        status = 0
    except (OSError, BenchError, subprocess.SubprocessError) as error:
        print(f"instrument: making the package layer: {error}", file=sys.stderr)
    finally:
        sys.stderr.flush()
        os._exit(status)


def _install(scratch):
    root = overlay.mount_root(scratch)
    for where in ("run", "tmp"):
        syscalls.mount(where, os.path.join(root, where), "tmpfs", syscalls.MS_NOSUID | syscalls.MS_NODEV)
    if privilege.is_users_own():  # the network, whose sysfs this is, is the machine's
        syscalls.mount("/sys", os.path.join(root, "sys"), None, syscalls.MS_BIND | syscalls.MS_REC)
    else:
        syscalls.mount("sysfs", os.path.join(root, "sys"), "sysfs", syscalls.MS_RDONLY)
    overlay.make_dev(os.path.join(root, "dev"))
    _replace(os.path.join(root, "usr/sbin/policy-rc.d"), "#!/bin/sh\nexit 101\n", 0o755)
    with open("/etc/resolv.conf", "r", encoding="utf-8", errors="replace") as resolver:
        _replace(os.path.join(root, "etc/resolv.conf"), resolver.read(), 0o644)
    _apt_get(root)


def _apt_get(root):
    environment = dict(os.environ, DEBIAN_FRONTEND="noninteractive", LC_ALL="C.UTF-8",
                       PATH="/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin")
    install = ["apt-get", "-q", "-y", "--no-install-recommends", "-o", "Dpkg::Use-Pty=0",
               "-o", "Dpkg::Options::=--force-confdef", "-o", "Dpkg::Options::=--force-confold",
               "-o", "Dpkg::Options::=--force-unsafe-io", "install", *PACKAGES]

    # Processes of their own: the packages' scripts neither see nor reach the host's, and all end with this one.
    # The shell stays as their first process, for apt-get changes its user and so loses what ends it with its parent.
    inside = ["setpriv", "--pdeathsig", "KILL", "unshare", "--pid", "--fork", f"--mount-proc={root}/proc",
              "chroot", root, "setpriv", "--bounding-set=-sys_module,-sys_boot,-sys_time,-sys_rawio",
              "--pdeathsig", "KILL", "sh", "-c", '"$@"; exit $?', "sh"]

    def run(command):
        return subprocess.run([*inside, *command], env=environment, stdin=subprocess.DEVNULL,
                              stdout=sys.stderr.fileno(), check=False).returncode

    if run(install) == 0:
        return
    say("trying again with fresh package lists")
    run(["apt-get", "-q", "update"])
    if run(install) != 0:
        raise BenchError("apt-get install failed")


def _replace(path, text, mode):
    """Writes a regular file, also where a symbolic link out of the overlay stood."""
    with contextlib.suppress(FileNotFoundError):
        os.unlink(path)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)


def _archive(upper, partial):
    for path in _NOT_KEPT:
        full = os.path.join(upper, path)
        if os.path.isdir(full) and not os.path.islink(full):
            shutil.rmtree(full)
        elif os.path.lexists(full):
            os.unlink(full)
    # Overlay marks (a directory that hides the host's) are trusted.* attributes, removed files are devices 0:0.
    subprocess.run(["tar", "--xattrs", "--xattrs-include=*", "--numeric-owner", "--sparse",
                    "-C", upper, "-cf", partial, "."], check=True)


def unpack(archive, upper):
    """Puts the layer into the (empty) upper directory of an overlay of the host's root."""
    subprocess.run(["tar", "--xattrs", "--xattrs-include=*", "--numeric-owner", "-C", upper, "-xpf", archive],
                   check=True)
