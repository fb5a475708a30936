"""Builds the file system that the daemon sees, from inside the instrument's mount namespace."""

import contextlib
import os
import shutil

from . import layer, overlay, places, syscalls
from .errors import BenchError

HOST = "/run/.host"  # the host's root while the machine is being built; gone afterwards
COMMAND_LOG = "/opt/commandlog/bin"
EMULATOR = "/opt/commandlog/emulator"
EXAMINER = "/opt/commandlog/" + places.EXAMINER
CARD = "/run/media/mmcblk1p1"
# Noted, then run for real. Those that the machine does not have are left out.
RECORDED_PROGRAMS = ("nmcli", "smcroute", "ethtool", "ifconfig", "ping", "killall", "dpkg", "sudo", "sync")
# Noted only: they would end the machine, or work on hardware that is not there.
STAND_INS = {"/usr/bin/systemctl": (), "/usr/bin/amixer": (),
             "/usr/sbin/reboot": ("/usr/sbin/halt", "/usr/sbin/poweroff", "/usr/sbin/shutdown", "/usr/sbin/telinit")}
# Kernel-wide switches below /proc; the network part of /proc/sys belongs to the namespace and stays writable.
_READ_ONLY_PROC = ("/proc/sys", "/proc/irq", "/proc/bus", "/proc/fs", "/proc/acpi", "/proc/mtrr")
_HIDDEN_PROC = ("/proc/sysrq-trigger", "/proc/kcore", "/proc/kmsg", "/proc/keys")


def build(settings):
    """Makes the machine's root and moves this process (and with it the mount namespace) into it.

    `settings` is a MachineSettings. What the host mounts elsewhere is not seen inside any more.
    """
    root = overlay.mount_root(settings.scratch, lambda upper: layer.unpack(settings.layer, upper))
    syscalls.mount("run", root + "/run", "tmpfs", syscalls.MS_NOSUID | syscalls.MS_NODEV, "mode=755")
    os.mkdir(root + HOST)
    syscalls.pivot_root(root, root + HOST)
    _mount_kernel_views()
    overlay.make_dev("/dev", HOST)
    syscalls.mount("tmp", "/tmp", "tmpfs", syscalls.MS_NOSUID | syscalls.MS_NODEV, "mode=1777")
    _share(settings)
    _write_machine_settings()
    _install_command_log(settings.commandlog)
    install_file(HOST + settings.daemon, "/usr/bin/tessary", 0o755)
    if settings.emulator:
        install_file(HOST + settings.emulator, EMULATOR, 0o755)
    if settings.elements:
        _install_elements(settings)
    for source, target in settings.files:
        _install_given(source, target)
    syscalls.umount_detached(HOST)
    os.rmdir(HOST)


def _mount_kernel_views():
    syscalls.mount("proc", "/proc", "proc", syscalls.MS_NOSUID | syscalls.MS_NODEV | syscalls.MS_NOEXEC)
    for path in _READ_ONLY_PROC:
        if os.path.exists(path):
            syscalls.bind(path, path, read_only=True)
    syscalls.bind("/proc/sys/net", "/proc/sys/net")
    syscalls.mount(None, "/proc/sys/net", None, syscalls.MS_BIND | syscalls.MS_REMOUNT)
    for path in _HIDDEN_PROC:
        if os.path.exists(path):
            syscalls.bind(HOST + "/dev/null", path)
    # Read-only also tells NetworkManager that no udev is at work, so that it manages the veth as a wired port.
    syscalls.mount("sysfs", "/sys", "sysfs",
                   syscalls.MS_RDONLY | syscalls.MS_NOSUID | syscalls.MS_NODEV | syscalls.MS_NOEXEC)


def _share(settings):
    """The folders, the log and the two serial lines that the instrument has in common with the host."""
    bind_over(HOST + settings.io_folder, "/run/bench")
    bind_over(HOST + settings.commands_log, "/run/commandlog/commands.log")
    os.makedirs("/run/commandlog/behaviour")
    for device, terminal in settings.terminals.items():
        bind_over(HOST + terminal, device)
    if settings.repository and not os.path.exists(settings.repository):  # sources and suppressions, where sanitizer builds name them
        os.makedirs(settings.repository)
        syscalls.bind(HOST + settings.repository, settings.repository, read_only=True)
    for source, target in settings.binds:
        bind_over(HOST + source, target)
    if settings.card_size:
        os.makedirs(CARD)
        syscalls.mount("card", CARD, "tmpfs", syscalls.MS_NOSUID | syscalls.MS_NODEV,
                       f"mode=755,size={settings.card_size}")


def bind_over(source, target):
    """Shows `source` (file, device, pipe or folder) at `target`, which is made if it is not there."""
    if not os.path.exists(target):
        try:
            _make_mount_point(target, os.path.isdir(source))
        except OSError as error:
            raise BenchError(f"{target} can not be made inside the instrument: {error.strerror}",
                             "choose a path whose folder exists") from error
    syscalls.bind(source, target)


def _make_mount_point(target, is_folder):
    folder = os.path.dirname(target)
    if os.path.commonpath([target, "/sys"]) == "/sys":
        while not os.path.isdir(folder):
            folder = os.path.dirname(folder)
        _make_extensible(folder)
    if is_folder:
        os.makedirs(target)
    else:
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, "xb"):
            pass


def _make_extensible(folder):
    """Lets entries be added to a folder of sysfs: a tmpfs with all that was in it takes its place."""
    if not os.statvfs(folder).f_flag & os.ST_RDONLY:
        return  # done before
    original = os.path.join("/run", "sysfs-" + folder[1:].replace("/", "-"))
    os.mkdir(original)
    syscalls.bind(folder, original)
    syscalls.mount("sysfs-with-more", folder, "tmpfs", syscalls.MS_NOSUID | syscalls.MS_NODEV, "mode=755")
    for entry in os.scandir(original):
        place = os.path.join(folder, entry.name)
        if entry.is_symlink():
            os.symlink(os.readlink(entry.path), place)
            continue
        if entry.is_dir():
            os.mkdir(place)
        else:
            with open(place, "xb"):
                pass
        syscalls.bind(entry.path, place)
    syscalls.umount_detached(original)
    os.rmdir(original)


def _write_machine_settings():
    """What the machine has of its own in /etc, and none of the host's network settings and secrets."""
    for path in ("/root", "/root/.cache"):
        if os.path.islink(path):
            os.unlink(path)  # what is written here from outside must not lead out of the machine
    shutil.rmtree("/root/.cache/gstreamer-1.0", ignore_errors=True)  # the host's elements are not the instrument's
    os.makedirs("/root/.cache/gstreamer-1.0", exist_ok=True)
    for path in ("/etc/NetworkManager/system-connections", "/etc/NetworkManager/conf.d", "/var/lib/NetworkManager",
                 "/etc/network/interfaces.d", "/etc/network/if-up.d", "/etc/network/if-post-down.d"):
        shutil.rmtree(path, ignore_errors=True)
        os.makedirs(path, 0o755)
    write_file("/etc/NetworkManager/NetworkManager.conf",
               "[main]\nplugins=keyfile\nhostname-mode=none\n\n[logging]\nlevel=INFO\n")
    write_file("/etc/network/interfaces", "auto lo\niface lo inet loopback\n")
    write_file("/etc/resolv.conf", "")
    write_file("/etc/hostname", "instrument\n")
    write_file("/etc/hosts", "127.0.0.1 localhost\n127.0.1.1 instrument\n192.168.77.1 sender\n")
    write_file("/etc/smcroute.conf", "# groups are joined with smcroute -j\n")
    os.makedirs("/etc/sudoers.d", exist_ok=True)
    write_file("/etc/sudoers.d/commandlog", "Defaults secure_path=\"" + COMMAND_LOG + ":/usr/local/sbin:/usr/local/bin:"
               "/usr/sbin:/usr/bin:/sbin:/bin\"\n", 0o440)
    if not os.path.exists("/etc/machine-id"):
        write_file("/etc/machine-id", os.urandom(16).hex() + "\n", 0o444)
    os.makedirs("/run/dbus", exist_ok=True)
    os.makedirs("/run/lock", exist_ok=True)


def write_file(path, text, mode=0o644):
    """Writes a regular file; a symbolic link that stood there is replaced, not followed."""
    with contextlib.suppress(FileNotFoundError):
        os.unlink(path)
    with open(path, "w", encoding="utf-8") as file:
        file.write(text)
    os.chmod(path, mode)


def install_file(source, target, mode):
    """Copies a file, times kept (GStreamer's registry goes by them); an existing target is replaced."""
    os.makedirs(os.path.dirname(target), exist_ok=True)
    with contextlib.suppress(FileNotFoundError):
        os.unlink(target)
    shutil.copy2(source, target)
    os.chown(target, 0, 0)
    os.chmod(target, mode)


def _install_command_log(program):
    os.makedirs(COMMAND_LOG)
    install_file(HOST + program, "/usr/bin/sh", 0o755)
    first = None
    for name in RECORDED_PROGRAMS:
        if not shutil.which(name, path="/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin"):
            continue
        if first:
            os.link(first, f"{COMMAND_LOG}/{name}")
        else:
            first = f"{COMMAND_LOG}/{name}"
            install_file(HOST + program, first, 0o755)
    for path, also in STAND_INS.items():
        install_file(HOST + program, path, 0o755)
        for other in also:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(other)
            os.link(path, other)


def _install_elements(settings):
    """The platform's GStreamer elements and sound card. Debian's own kmssink makes room for the platform's."""
    plugins = f"/usr/lib/{settings.multiarch}/gstreamer-1.0"
    with contextlib.suppress(FileNotFoundError):
        os.unlink(f"{plugins}/libgstkms.so")
    elements = HOST + settings.elements
    install_file(f"{elements}/libgstinstrument.so", f"{plugins}/libgstinstrument.so", 0o644)
    install_file(f"{elements}/libasound_module_pcm_instrumentdac.so",
                 f"/usr/lib/{settings.multiarch}/alsa-lib/libasound_module_pcm_instrumentdac.so", 0o644)
    install_file(HOST + settings.asound_conf, "/etc/asound.conf", 0o644)
    if settings.emulator:
        install_file(f"{elements}/{places.EXAMINER}", EXAMINER, 0o755)


def _install_given(source, target):
    source = HOST + source
    if os.path.isdir(source):
        shutil.copytree(source, target, symlinks=True, dirs_exist_ok=True)
    else:
        install_file(source, target, os.stat(source).st_mode & 0o7777)
