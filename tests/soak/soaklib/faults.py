"""What goes wrong around the daemon. Each fault begins and ends; none of them asks anything of the daemon."""

import json
import os

import tessary

from . import streams
from . import unit as units

_PROGRAMS = ["nmcli", "smcroute", "ethtool", "ifconfig", "ping", "killall", "dpkg", "sudo", "sync", "systemctl", "amixer"]
_WORDS = ["No such device", "unknown interface eth0", "Error: failed", "", "Speed", "\x01\x02 half a li"]


class Fault:
    """Base: `extra` seconds that a command may take longer while it lasts, `during` that it may begin under a command."""

    extra = 0.0
    during = True

    def __init__(self, soak):
        self.soak, self.unit, self.random = soak, soak.unit, soak.random
        self.detail = ""

    def begin(self):
        """Makes it go wrong. All random numbers are drawn here, whatever the state of the instrument."""

    def end(self):
        """Puts it right."""


class LinkDown(Fault):
    """The cable is out."""

    extra = 10.0

    def begin(self):
        self.unit.link(False)

    def end(self):
        self.unit.link(True)


class LinkFlaps(Fault):
    """The cable goes out and in several times."""

    extra = 10.0

    def begin(self):
        times, pauses = self.random.randint(1, 4), [self.random.uniform(0.01, 0.4) for _ in range(8)]
        self.detail = f"{times} times"
        for index in range(times):
            self.unit.link(False)
            self.soak.sleep(pauses[2 * index])
            self.unit.link(True)
            self.soak.sleep(pauses[2 * index + 1])


class CardFull(Fault):
    """The memory card has hardly any room, or none."""

    def begin(self):
        room = self.random.choice([0, 0, 100, 188 * 1000, 2000000])
        self.detail = f"room for {room} bytes"
        self.unit.shell(f"cd {units.CARD} && size=$(($(df --output=avail -B1 . | tail -n 1) - {room})) && "
                        "[ $size -gt 0 ] && head -c $size /dev/zero >filler")

    def end(self):
        self.unit.shell(f"rm -f {units.CARD}/filler")


class RecordingSpoilt(Fault):
    """The recording is cut, overwritten, removed, or a folder has its name."""

    def begin(self):
        self.detail = self.random.choice(list(self._WAYS))
        self.unit.shared("noise").write_bytes(self.random.randbytes(200000))
        self.unit.shell(f"cd {units.CARD} && {self._WAYS[self.detail]}")

    def end(self):
        self.unit.shell(f"rmdir {units.CARD}/record.ts")

    _WAYS = {"cut": "truncate -s $(($(stat -c %s record.ts) / 2 + 1)) record.ts",
             "noise": "[ -e record.ts ] && dd if=/run/bench/noise of=record.ts conv=notrunc", "removed": "rm record.ts",
             "folder": "rm record.ts && mkdir record.ts", "empty": "[ -e record.ts ] && truncate -s 0 record.ts"}


class FpgaStream(Fault):
    """The FPGA's stream is absent, empty, noise, cut off in the middle, or stalls."""

    def begin(self):
        self.detail = self.random.choice(["absent", "absent", "empty", "noise", "cut", "stalls"])
        noise, path = self.random.randbytes(500000), str(self.unit.shared("fpga-in.ts"))
        if self.detail == "absent":
            os.unlink(path)
            return
        with open(path + ".new", "wb") as file:
            if self.detail == "noise":
                file.write(noise)
            elif self.detail == "cut":
                with open(self.soak.fpga_stream, "rb") as whole:
                    file.write(whole.read(188 * 1000 + 77))
        if self.detail == "stalls":  # a FIFO that nobody feeds
            os.unlink(path + ".new")
            os.mkfifo(path + ".new")
        os.rename(path + ".new", path)

    def end(self):
        self.soak.restore_fpga_stream()


class FpgaInput(Fault):
    """The FPGA's stream input stalls, is slow, fails or is absent."""

    extra = 30.0

    def begin(self):
        self.detail, knobs = self.random.choice([
            ("export-rate=0", {"export_rate": 0}), ("export-rate=2000000", {"export_rate": 2000000}),
            ("export-fails=1", {"export_fails": 1}), ("export-absent=1", {"export_absent": 1})])
        self.unit.set_knobs(**knobs)

    def end(self):
        self.unit.set_knobs(export_rate=-1, export_fails=0, export_absent=0)


class FpgaLost(Fault):
    """The FPGA has lost its configuration."""

    def begin(self):
        self.unit.set_knobs(configured=0)

    def end(self):
        self.unit.set_knobs(configured=1)


class Bitfile(Fault):
    """The file of the bitstream is gone, empty, or noise."""

    def begin(self):
        self.detail = self.random.choice(["removed", "empty", "noise", "cut"])
        noise = self.random.randbytes(3000)
        content = {"removed": b"", "empty": b"", "noise": noise, "cut": self.soak.bitfile[:40]}[self.detail]
        self.unit.put(units.BITFILE, content)
        if self.detail == "removed":
            self.unit.run("rm", units.BITFILE)

    def end(self):
        self.unit.put(units.BITFILE, self.soak.bitfile)


class ReceiverDies(Fault):
    """The DAB receiver program is killed; never while it owes an answer, which the daemon awaits without limit."""

    during = False

    def begin(self):
        self.detail = f"{self.unit.kill_inside('qt-dab')} killed"


class ReceiverDiesAtStart(Fault):
    """The DAB receiver program is killed while the daemon waits for it to open; the attempts go on to their end."""

    extra = 60.0

    def begin(self):
        self.soak.set_receiver({"open_after_s": 3600})

    def end(self):
        self.soak.set_receiver({})
        self.unit.kill_inside("qt-dab")


class ReceiverSlow(Fault):
    """The DAB receiver program opens late, or answers late."""

    extra = 8.0

    def begin(self):
        settings = self.random.choice([{"answer_after_s": 1.5}, {"answer_after_s": 0.3}, {"open_after_s": 5}])
        self.detail = json.dumps(settings)
        self.soak.set_receiver(settings)

    def end(self):
        self.soak.set_receiver({})


class ProgramFails(Fault):
    """A host program ends with an error instead of doing its work."""

    extra = 15.0

    def begin(self):
        program = self.random.choice(_PROGRAMS)
        matters = {"status": self.random.choice([0, 1, 2, 127, 255]), "times": self.random.randint(1, 4),
                   "stderr": self.random.choice(_WORDS), "stdout": self.random.choice(_WORDS)}
        self.detail = f"{program} {json.dumps(matters)}"
        self.soak.misbehaving.add(program)
        self.unit.behave(program, tessary.Behaviour(**matters))

    def end(self):
        self.soak.all_programs_real()


class ProgramStalls(Fault):
    """A host program takes its time."""

    extra = 30.0

    def begin(self):
        program = self.random.choice(_PROGRAMS)
        delay, times = self.random.uniform(0.1, 2.0), self.random.randint(1, 3)
        self.detail = f"{program} {delay:.1f} s, {times} times"
        self.soak.misbehaving.add(program)
        self.unit.behave(program, tessary.Behaviour(delay=delay, times=times))

    def end(self):
        self.soak.all_programs_real()


class NetworkManagerDies(Fault):
    """NetworkManager is killed; later it is started again, as the unit's init does."""

    extra = 60.0

    def begin(self):
        self.detail = f"{self.unit.kill_inside('NetworkManager')} killed"

    def end(self):
        self.soak.start_network_manager()


class RoutingDaemonDies(Fault):
    """The multicast routing daemon is killed."""

    extra = 10.0

    def begin(self):
        self.detail = f"{self.unit.kill_inside('smcrouted') + self.unit.kill_inside('smcroute')} killed"


class ChildrenKilled(Fault):
    """The programs that the daemon runs at this moment are killed."""

    def begin(self):
        self.soak.sleep(self.random.uniform(0.0, 0.3))
        self.detail = " ".join(self.unit.kill_children(self.soak.pid)) or "none ran"


class StreamStops(Fault):
    """Nothing is on the air."""

    def begin(self):
        self.soak.air.send(None)

    def end(self):
        self.soak.tune()


class StreamFaulty(Fault):
    """The stream on the air has continuity errors, or jumps back at its seam."""

    def begin(self):
        options = self.random.choice([["--cc-errors-per-second", "3"], ["--cc-errors-per-second", "50"], ["--no-restamp"],
                                      ["--packets", "1"], ["--packet-size", "204"]])
        self.detail = " ".join(options)
        self.soak.air.send(self.soak.air.stream or streams.STREAMS[0], *options)

    def end(self):
        self.soak.tune()


class Disturbance(Fault):
    """Datagrams beside the stream, at its own port, that no receiver expects."""

    def begin(self):
        self.detail, seed = self.random.choice(streams.DISTURBANCES), self.random.getrandbits(30)
        self.soak.air.disturb(self.detail, seed)

    def end(self):
        self.soak.air.calm()


class OnlyDisturbance(Disturbance):
    """The stream is gone and such datagrams come in its place."""

    def begin(self):
        stream = self.soak.air.stream
        super().begin()
        self.soak.air.send(None)
        self.soak.air.stream = stream

    def end(self):
        super().end()
        self.soak.tune()


# Weight, and the most steps that each lasts.
TABLE = {
    LinkDown: (3, 4), LinkFlaps: (3, 1), CardFull: (3, 12), RecordingSpoilt: (3, 3), FpgaStream: (4, 12), FpgaInput: (3, 10),
    FpgaLost: (2, 6), Bitfile: (2, 6), ReceiverDies: (2, 1), ReceiverDiesAtStart: (0.5, 6), ReceiverSlow: (2, 12),
    ProgramFails: (6, 8), ProgramStalls: (4, 6), NetworkManagerDies: (1.5, 5), RoutingDaemonDies: (3, 1),
    ChildrenKilled: (4, 1), StreamStops: (3, 8), StreamFaulty: (3, 12), Disturbance: (5, 12), OnlyDisturbance: (3, 8),
}


# Need the virtual instrument's stand-ins for the programs that the daemon runs.
_VIRTUAL = (ProgramFails, ProgramStalls)


def choose(soak):
    """(fault, steps that it lasts)."""
    kinds = [kind for kind in TABLE if not (soak.booted and kind in _VIRTUAL)]
    kind = soak.random.choices(kinds, [TABLE[kind][0] for kind in kinds])[0]
    return kind(soak), soak.random.randint(1, TABLE[kind][1])
