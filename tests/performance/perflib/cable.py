"""A network of its own with both ends of a cable, "uplink" and "eth0", set up as by the instrument's package."""

import os
import subprocess
import time

from .session import Failure
from .processes import END_WITH_THIS, run

OFFLOADS = ["tso", "off", "gso", "off", "gro", "off", "lro", "off"]
_SET_UP = """link set lo up
link add eth0 type veth peer name uplink
address add 192.168.77.100/24 dev eth0
link set eth0 up
link set uplink up
"""


def sender_processor():
    """Words before the sender's command: it stands for the other end of the cable and keeps to the last processor."""
    return ["taskset", "-c", str(max(os.sched_getaffinity(0)))]


class Cable:
    """Network namespace with the veth pair; gone when the block ends."""

    def __init__(self):
        self._holder = None

    def __enter__(self):
        self._holder = subprocess.Popen([*END_WITH_THIS, "unshare", "--net", "sleep", "infinity"])
        own = os.readlink("/proc/self/ns/net")
        deadline = time.monotonic() + 5
        while os.readlink(f"/proc/{self._holder.pid}/ns/net") == own:
            if self._holder.poll() is not None or time.monotonic() > deadline:
                raise Failure("no network namespace can be made; run as root")
            time.sleep(0.01)
        subprocess.run(self.inside(["ip", "-batch", "-"]), input=_SET_UP, text=True, check=True)
        for device in ("eth0", "uplink"):
            run(self.inside(["ethtool", "-K", device, *OFFLOADS]))
        self._wait_for_link()
        return self

    def _wait_for_link(self):
        deadline = time.monotonic() + 10
        while "state UP" not in run(self.inside(["ip", "link", "show", "dev", "eth0"])):
            if time.monotonic() > deadline:
                raise Failure("the veth pair did not come up")
            time.sleep(0.05)

    def inside(self, command):
        """The command as it runs in this network; no further process is between."""
        return ["nsenter", f"--net=/proc/{self._holder.pid}/ns/net", *command]

    def __exit__(self, *_):
        self._holder.kill()
        self._holder.wait()
