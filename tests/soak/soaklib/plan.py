"""The order of events: an endless sequence that depends on the random numbers alone, never on what the daemon does."""

import dataclasses

from . import commands, faults

# Kinds of commands and pauses in seconds that lead the daemon somewhere; random commands come in between.
SCENES = {
    "watch": (8, ["server=", "scancur", 2.0, "streaminfo?", "getnit?", "play=", 3.0, "!07_E_&", "getpmt?", "videostatus?",
                  2.0, "t2miframe?", "play=", 3.0, "!07_E_&", "getpmt?", 1.0]),
    "measure": (3, ["server=", "getethernetmes?", 1.3, "getethernetmes?", 1.1, "getiat?", "getethernetmes?", 0.5, "getiat?"]),
    "record": (3, ["server=", "scancur", "PVR_record", 3.0, "PVR_reclist", "PVR_stop", "PVR_reclist", "PVR_scan", 1.0,
                   "streaminfo?", "play=", 2.0, "!07_E_&", "PVR_export", "PVR_reclist"]),
    "fpga": (3, ["!07_S_&", 2.0, "!07_A_&", "!0C_L_IX:", "!0C_D_IX:", 2.0, "!07_E_&", "PVR_record", 1.5, "PVR_reclist",
                 "sendts", 1.5, "PVR_stop"]),
    "forward": (2, ["server=", "scancur", 0.5, "sendts", 2.0, "videostatus?", "t2miframe?", "PVR_record", 1.0, "sendts"]),
    "dab": (0.7, ["START_DAB", "dab", "dab", "version?", "dab", 0.5, "dab", "play=", "dab", "STOP_DAB", "dab"]),
    "network": (2, ["interface=", 2.0, "interface?", "ipstatus?", "ping", "interface=", 1.0, "interface?"]),
    "random": (4, []),
}
_SERVICES_WEIGHT = 4  # of playing services where nothing goes wrong, beside the scenes'
_MOST_FAULTS = 2


@dataclasses.dataclass
class Burst:
    """Commands for one burst; `fault` begins under them."""

    commands: list
    fault: faults.Fault = None


class Plan:
    """Hands out the next event: a Burst, a number (seconds to pause), or a function to call."""

    def __init__(self, soak):
        self._soak, self._random, self._scene = soak, soak.random, soak.scene
        self._step = 0
        self._active = []  # (step at which it ends, fault)
        self._network_back = None  # step at which the plain network set-up comes back, and the stream to its address

    def events(self):
        """First each command once and some services, then scene after scene."""
        kinds = list(commands.TABLE)
        self._random.shuffle(kinds)
        yield self._soak.tune
        for kind in kinds:
            yield from self._around(Burst([commands.make(kind, self._random, self._scene)]))
        yield self._soak.play_services
        names = [*SCENES, "services"]
        weights = [weight for weight, _ in SCENES.values()] + [_SERVICES_WEIGHT]
        while True:
            if self._random.random() < 0.4:
                yield self._soak.tune
            name = self._random.choices(names, weights)[0]
            if name == "services":
                yield self._soak.play_services
            else:
                yield from self._scene_events(SCENES[name][1])

    def active(self):
        """The faults that last at the moment."""
        return [fault for _, fault in self._active]

    def end_faults(self):
        """Puts everything right that the plan has made go wrong."""
        for _, fault in self._active:
            fault.end()
        self._active.clear()

    def _scene_events(self, items):
        for item in items:
            if self._random.random() < 0.05:
                continue
            if isinstance(item, float):
                yield item * self._random.uniform(0.2, 1.5)
                continue
            if self._random.random() < 0.2:
                yield from self._around(self._random_burst(commands.PEACEFUL if self._random.random() < 0.7 else None))
            yield from self._around(Burst([commands.make(item, self._random, self._scene)]))
        if not items:
            for _ in range(self._random.randint(3, 12)):
                yield from self._around(self._random_burst())

    def _random_burst(self, kinds=None):
        """One to five commands that fit into a burst together; what must stand last ends it. Of all kinds, or of these."""
        chosen = []
        for _ in range(self._random.choice([1, 1, 1, 2, 3, 5])):
            command = commands.choose(self._random, self._scene, kinds)
            if len(commands.burst([*chosen, command])) > commands.MOST_BYTES:
                break
            chosen.append(command)
            if command.last:
                break
        return Burst(chosen)

    def _around(self, burst):
        """A burst with what ends and begins before it, and what must follow it."""
        self._step += 1
        for entry in [entry for entry in self._active if entry[0] <= self._step]:
            self._active.remove(entry)
            yield from self._end(entry[1])
        if self._random.random() < 0.16 and len(self._active) < _MOST_FAULTS:
            fault, steps = faults.choose(self._soak)
            under = fault.during and self._random.random() < 0.4
            if type(fault) not in {type(active) for active in self.active()}:
                self._active.append((self._step + steps, fault))
                if under:
                    burst.fault = fault
                else:
                    yield lambda: self._soak.begin_fault(fault)
        yield burst
        yield from self._see_to_the_network(burst)
        yield self._random.choice([0.0, 0.0, 0.1, 0.5]) * self._random.random()

    def _see_to_the_network(self, burst):
        """An update leaves networking off. A VLAN, or another address than the one a stream is sent to, means silence: some
        of it is wanted, hours of it are not."""
        if any(command.update for command in burst.commands):
            yield Burst([commands.Command("command:", b"command:nmcli networking on\n", seconds=30)])
        if any(command.kind == "interface=" for command in burst.commands):
            self._network_back = self._step + self._random.randint(2, 6)
        elif self._network_back and self._step >= self._network_back:
            self._network_back = None
            if self._scene.network == "vlan":
                yield Burst([commands.Command("interface=", b"interface=dhcp\n", seconds=90)])
                self._scene.network = "dhcp"
                yield 2.0
            yield self._soak.retune

    @staticmethod
    def _end(fault):
        yield fault.end
