"""The instrument's Ethernet: a veth pair, or a tap device, from eth0 to the stream sender's "uplink", and nothing beyond."""

import os
import subprocess

from .errors import BenchError

SENDER_ADDRESS = "192.168.77.1"
MAC = "02:74:65:73:73:01"  # of eth0
_POOL = "192.168.77.100,192.168.77.200,1h"
# The instrument's package switches these off: captured packets are then those on the wire, and keep their times.
_OFFLOADS = ["tso", "off", "gso", "off", "gro", "off", "lro", "off"]
# A cable carries finished checksums; on a veth they would be left open.
_CHECKSUMS = ["tx", "off"]
# Set together, because the kernel drops the multicast route whenever the device goes down.
_UPLINK_UP = ["link set uplink up", "route replace 224.0.0.0/4 dev uplink"]


def _run(machine_pid, command, stdin=None):
    """Runs a host program in the network namespace of a process."""
    result = subprocess.run(["nsenter", f"--net=/proc/{machine_pid}/ns/net", *command], input=stdin, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
    if result.returncode != 0:
        raise BenchError(f"{' '.join(command)}: {result.stdout.strip()}")
    return result.stdout


def _ip(pid, lines):
    _run(pid, ["ip", "-batch", "-"], "\n".join(lines) + "\n")


def set_up(instrument_pid, sender_pid):
    """Makes the veth pair between the two namespaces (PIDs of processes in them) and configures the sender's end."""
    try:
        _ip(instrument_pid, ["link set lo up",
                             f"link add eth0 address {MAC} type veth peer name uplink "
                             f"address 02:74:65:73:73:02 netns {sender_pid}"])
    except BenchError as error:
        raise BenchError(f"eth0 can not be made: {error}",
                         "the kernel needs veth pairs (modprobe veth)") from error
    _run(instrument_pid, ["ethtool", "-K", "eth0", *_OFFLOADS])
    _set_up_sender(sender_pid)


def _set_up_sender(pid):
    _run(pid, ["ethtool", "-K", "uplink", *_OFFLOADS, *_CHECKSUMS])
    _ip(pid, ["link set lo up", f"address add {SENDER_ADDRESS}/24 dev uplink", *_UPLINK_UP])


def set_up_socket(sender_pid):
    """The sender's end alone: what another program puts into the cable's other end, a tap device's, comes out here."""
    try:
        # An emulated machine takes its time: what a burst brings waits in the cable.
        _ip(sender_pid, ["tuntap add dev uplink mode tap", "link set uplink address 02:74:65:73:73:02 txqueuelen 10000"])
    except BenchError as error:
        raise BenchError(f"the cable can not be made: {error}", "the kernel needs tap devices (modprobe tun)") from error
    _set_up_sender(sender_pid)


def set_link(sender_pid, up):
    """Plugs the cable in or out, at the sender's end."""
    _ip(sender_pid, _UPLINK_UP if up else ["link set uplink down"])


def describe(pid, device):
    """One line: state and addresses of a device in the namespace of `pid`."""
    return " ".join(_run(pid, ["ip", "-brief", "address", "show", "dev", device]).split())


def dhcp_server_command(folder):
    """A DHCP server (and a name server that knows the sender alone) on the sender's end; its files go into `folder`."""
    return ["dnsmasq", "--conf-file=/dev/null", "--keep-in-foreground", "--user=root", "--interface=uplink",
            "--bind-interfaces", f"--dhcp-range={_POOL}", "--dhcp-authoritative", "--no-ping", "--no-resolv",
            "--no-hosts", f"--address=/sender/{SENDER_ADDRESS}", f"--dhcp-leasefile={folder}/dnsmasq-uplink.leases",
            f"--pid-file={folder}/dnsmasq-uplink.pid", "--log-facility=-", "--log-dhcp"]


def missing_tools():
    """Programs that the host itself must have."""
    return [name for name in ("ip", "ethtool", "nsenter", "tar", "chroot", "setpriv") if not _in_path(name)]


def _in_path(name):
    return any(os.access(os.path.join(folder, name), os.X_OK)
               for folder in ("/usr/sbin", "/usr/bin", "/sbin", "/bin", "/usr/local/sbin", "/usr/local/bin"))
