"""The soak itself: carries out the plan, holds the daemon to its word, and looks at what it keeps."""

import collections
import contextlib
import json
import os
import random
import shutil
import time
import types

from . import commands, evidence, packages, plan, replies, report, resources, services, streams
from .line import GREETING, Line, NoAnswer, VERSION, has_versions
from .unit import BITFILE, CARD

_KEPT_COMMANDS = 200
_QUIET_PERIOD = 600.0     # seconds between two looks at the daemon with everything stopped, at most
_SETTLE_SECONDS = 60.0    # idle threads of the pipelines' pools end after 15 s
_START_SECONDS = 120.0
# What is in use wanders with the tables and caches that libraries fill once. One kilobyte lost with each of the thousands of
# commands of an hour would be more than this.
HEAP_TOLERANCE_KIB = 2 * 1024
# The C library keeps freed memory in an arena per thread, and the pipelines' threads come and go: the resident size wanders
# more, and ends where every arena has once held the largest queue.
RESIDENT_TOLERANCE_KIB = 64 * 1024


class Failure(Exception):
    """The daemon did what it must not do, or did not do what it must."""


class Soak:
    """One soak from start to end. `options` are the command line's; the unit is started already."""

    def __init__(self, options, unit):
        self.options, self.unit = options, unit
        self.random = random.Random(options.seed)
        self.figures = report.Figures()
        self.misbehaving = set()
        self.fpga_stream = os.path.join(options.streams, "demo.ts")
        self.air = streams.Air(unit, options.streams, os.path.join(options.output, "sender.log"))
        self.scene = types.SimpleNamespace(
            on_air=None, network="dhcp", booted=unit.booted, sender_address=unit.sender_address(),
            servers=[stream.server for stream in streams.STREAMS],
            packages=packages.Packages(options.output, options.seed))
        self.booted = unit.booted
        self.bitfile = unit.fetch(BITFILE)
        self.last = collections.deque(maxlen=_KEPT_COMMANDS)
        self._all = open(os.path.join(options.output, "commands.jsonl"), "w", encoding="ascii")  # closed by run()
        self.pid, self._born, self._line, self._sampler = 0, None, None, None
        self._phase = "start"
        self._plan = plan.Plan(self)
        self._events = self._plan.events()
        self._minute = 0
        self._began = time.monotonic()

    # --- the way through ---

    def run(self):
        """Raises Failure at the first thing that is wrong; the figures hold what came before."""
        try:
            self._meet_daemon()
            self._work_until(time.monotonic() + self._warm_up_seconds(), "warm-up")
            self._look("start")
            self._work()
            self._compare()
            self._phase = "receiver's death"
            self._receiver_dies_in_an_answer()
        finally:
            if self._sampler:
                self._sampler.stop()
                self.figures.most = self._sampler.most
            self.figures.seconds = time.monotonic() - self._began
            self.figures.log = report.log_findings(str(self.unit.log_path("daemon")))
            self._all.close()
            if self._line:
                self._line.close()
        self._check_log()

    def _warm_up_seconds(self):
        return min(300.0, max(60.0, 0.1 * self.options.seconds))

    def _meet_daemon(self):
        self.restore_fpga_stream()
        self.set_receiver({})
        self._line = Line(self.unit.port, self.unit.log_path("line"), self._alive)
        self._adopt_daemon()
        self._began = time.monotonic()
        self._sampler = resources.Sampler(
            os.path.join(self.options.output, "resources.csv"), self.options.interval, lambda: self.unit.sample(self.pid),
            lambda: {"phase": self._phase, "commands": self.figures.commands})
        self._sampler.start()

    def _adopt_daemon(self):
        """Takes the daemon that runs now for the one to be held to, once it has greeted and answers."""
        self.pid = self.unit.daemon_pid()
        if not self.pid:
            raise Failure(f"the daemon does not run: {self.unit.daemon_end()}")
        self._born = self.unit.start_time(self.pid)
        try:
            self._line.read_while(lambda received: GREETING not in received, "the greeting", _START_SECONDS)
            if not self.booted:
                self._line.watch_daemon(self.pid)
            self._ask_version(_START_SECONDS)
        except NoAnswer as missing:
            raise Failure(str(missing)) from missing

    def _work(self):
        """The soak proper, with looks at the quiet daemon in between and at the end."""
        end = time.monotonic() + self.options.seconds
        period = min(_QUIET_PERIOD, self.options.seconds / 4)
        number = 0
        # A look takes half a minute: none shortly before the last.
        while (until := time.monotonic() + period) < end - period / 2:
            self._work_until(until, "soak")
            number += 1
            self._look(f"quiet {number}")
        self._work_until(end, "soak")
        self._look("end")

    def _work_until(self, end, phase):
        self._phase = phase
        for event in self._events:
            self._carry_out(event)
            self._report_progress()
            if time.monotonic() >= end:
                return

    def _carry_out(self, event):
        if isinstance(event, plan.Burst):
            self.exchange(event.commands, event.fault)
        elif callable(event):
            event()
        else:
            self.sleep(event)

    # --- commands ---

    def exchange(self, burst, fault=None):
        """One burst, the question "version?" behind it, and the check of all that comes back."""
        factor = self.options.patience
        patience = factor * (commands.CYCLE_SECONDS + sum(command.seconds for command in burst)
                             + sum(active.extra for active in self._plan.active()))
        entry = {"seconds": round(time.monotonic() - self._began, 3),
                 "burst": [command.kind for command in burst], "text": repr(commands.burst(burst))[2:-1],
                 "faults": [f"{type(active).__name__} {active.detail}" for active in self._plan.active()]}
        self.last.append(entry)
        began = time.monotonic()
        try:
            received = self._send_and_read(burst, fault, began + patience)
        except NoAnswer as missing:
            entry["reply"] = repr(missing.received)
            raise Failure(f"{missing} after {entry['burst']}") from missing
        entry["took"] = round(time.monotonic() - began, 3)
        entry["reply"] = repr(received[:300])[2:-1]
        lengths, wrong = replies.check(received, [command.parse for command in burst] + [replies.VERSION_LINE])
        if wrong is not None:
            what = burst[wrong].kind if wrong < len(burst) else "version?"
            raise Failure(f"not a reply of {what} in the burst {entry['burst']}: {entry['reply']}")
        self._all.write(json.dumps(entry) + "\n")
        self.figures.note_burst(burst, lengths, entry["took"], patience)

    def _send_and_read(self, burst, fault, deadline):
        def left():
            return max(0.1, deadline - time.monotonic())
        self._line.write(commands.burst(burst))
        if fault:
            self.begin_fault(fault)
        self._line.wait_until_taken(left())
        received = b""
        for command in burst:
            if command.update:
                received = self._transfer(command.update, left)
        self.sleep(0.015)
        return self._answers(1 + sum(command.parse is replies.VERSION_LINE for command in burst), left, received)

    def _answers(self, count, left, received):
        """Asks for the version; all that comes up to its answer. Asked once more when there is none in time: a question that a
        starved machine brought together with the burst before it is no question. The figures tell how often."""
        for seconds in (left(), self.options.patience * commands.CYCLE_SECONDS):
            self._line.write(b"version?\n")
            try:
                return self._line.read_while(lambda sofar: not has_versions(sofar, count), 'the answer to "version?"', seconds,
                                             received)
            except NoAnswer as missing:
                received, last = missing.received, missing
            self.figures.asked_again += 1
        raise last

    def _transfer(self, package, left):
        """The conversation of a software update; returns what the daemon said."""
        received = self._line.read_while(lambda sofar: b"waiting update\n" not in sofar, "the update's prompt", left())
        self.figures.updates[package.kind] += 1
        self._line.write(package.image)
        self._line.wait_until_taken(left())
        self._line.write(package.crc)
        if package.gap:
            self.sleep(12.5)  # the daemon gives up after 10 s without a byte, counted in whole seconds
        elif package.image and not package.crc:
            self.sleep(7.5)   # after 5 s without CRC
        if package.ok:
            received = self._line.read_while(lambda sofar: not sofar.endswith(b"update ok\n"), "the end of the update",
                                             left(), received)
        return received

    def _ask_version(self, seconds):
        """The time that a bare question takes."""
        self._alive()
        self._line.write(b"version?\n")
        self._line.read_while(lambda sofar: not has_versions(sofar, 1), 'the answer to "version?"', seconds)

    def say(self, text, seconds=30.0):
        """A command without reply that is not part of the plan."""
        kind = next(kind for kind in commands.SILENT if text.startswith(kind))
        self.exchange([commands.Command(kind, text.encode() + b"\n", seconds=seconds)])

    def sleep(self, seconds):
        """Waits with an eye on the daemon."""
        time.sleep(max(0.0, seconds))
        self._alive()

    def _alive(self):
        if self.unit.start_time(self.pid) != self._born:
            raise Failure(f"the daemon (PID {self.pid}) has ended: {self.unit.daemon_end()}")

    # --- what the plan and the faults turn to ---

    def begin_fault(self, fault):
        """Makes something go wrong, and counts it."""
        fault.begin()
        self.figures.faults[type(fault).__name__] += 1
        self.figures.fault_details[f"{type(fault).__name__}: {fault.detail}".split(" {")[0]] += 1

    def tune(self, stream=None):
        """Another stream on the air, this one or any."""
        stream = stream or self.air.choose(self.random)
        self.air.send(stream)
        self.scene.on_air = stream
        self.figures.streams[stream.name] += 1

    def retune(self):
        """The same stream, to the address that the instrument has now."""
        self.air.send(self.air.stream)

    def play_services(self):
        """Services of all kinds, seen and heard."""
        try:
            services.play_some(self)
        except services.Missing as missing:
            raise Failure(str(missing)) from missing

    def set_receiver(self, settings):
        """How the DAB receiver program behaves."""
        evidence.write_json(str(self.unit.shared("dab.json")), settings)

    def all_programs_real(self):
        """No host program fails or stalls any more."""
        for program in self.misbehaving:
            self.unit.behave(program, None)
        self.misbehaving.clear()

    def restore_fpga_stream(self):
        """The FPGA's stream is there and good."""
        path = str(self.unit.shared("fpga-in.ts"))
        shutil.copyfile(self.fpga_stream, path + ".new")
        os.rename(path + ".new", path)

    def start_network_manager(self):
        """As the unit's init does when it has died."""
        self.unit.start_network_manager(os.path.join(self.options.output, "services.log"))

    # --- looks at the daemon ---

    def stop_everything(self):
        """Nothing is on the air, no source is there, nothing is wrong any more; the plain network set-up."""
        self._plan.end_faults()
        self.air.calm()
        self.air.send(None)
        self.unit.link(True)
        self.all_programs_real()
        self.unit.shell(f"rm -f {CARD}/filler")
        self.start_network_manager()
        self.unit.start_program(["nm-online", "-s", "-q", "-t", "20"]).wait()
        for text in ("STOP_DAB", "PVR_stop", "command:nmcli networking on", "server=UDP 239.0.0.1 1234", "interface=dhcp"):
            self.say(text, 90.0)
        self.unit.kill_inside("qt-dab")

    def _look(self, name):
        """Everything is stopped; what the daemon still holds is noted under this name."""
        self._phase = "quiet"
        self.stop_everything()
        deadline = time.monotonic() + _SETTLE_SECONDS
        self.sleep(18.0)
        seen, agreed = self.unit.sample(self.pid), 0
        while agreed < 3 and time.monotonic() < deadline:
            self.sleep(1.0)
            now = self.unit.sample(self.pid)
            agreed = agreed + 1 if _alike(now, seen) else 0
            seen = now
        began = time.monotonic()
        try:
            self._ask_version(commands.CYCLE_SECONDS)
        except NoAnswer as missing:
            raise Failure(f"{missing} although everything is stopped") from missing
        answered = round(time.monotonic() - began, 3)
        self.figures.note_look(name, {"minute": round((time.monotonic() - self._began) / 60, 1), **seen,
                                      "heap_kib": self._heap_kib(), "address": self.unit.current_address(),
                                      "version_seconds": answered})
        evidence.write_text(os.path.join(self.options.output, f"held-{name.replace(' ', '-')}.txt"),
                            self.unit.describe(self.pid))
        self._check_log()
        self.tune()

    def _heap_kib(self):
        """A sanitizer has a heap of its own, which does not tell."""
        in_use = None if self.options.sanitized else self.unit.ask_heap(self.pid)
        self._alive()
        return None if in_use is None else in_use // 1024

    def _compare(self):
        """The daemon holds no more at the end than at the start."""
        start, end = self.figures.looks["start"], self.figures.looks["end"]
        wrong = [f"{key}: {start[key]} at the start, {end[key]} at the end"
                 for key in ("descriptors", "threads") if end[key] > start[key]]
        if end["zombies"]:
            wrong.append(f"{end['zombies']} children that were never waited for")
        if start["heap_kib"] and end["heap_kib"] and end["heap_kib"] > start["heap_kib"] + HEAP_TOLERANCE_KIB:
            wrong.append(f"heap in use: {start['heap_kib']} KiB at the start, {end['heap_kib']} KiB at the end")
        if not self.options.sanitized and end["rss_kib"] > start["rss_kib"] + RESIDENT_TOLERANCE_KIB:
            wrong.append(f"resident memory: {start['rss_kib']} KiB at the start, {end['rss_kib']} KiB at the end")
        if wrong:
            raise Failure("the daemon keeps what it does not need: " + "; ".join(wrong))

    def _check_log(self):
        finding = report.sanitizer_finding(str(self.unit.log_path("daemon")))
        if finding:
            raise Failure("a sanitizer found: " + finding)

    def _receiver_dies_in_an_answer(self):
        """The one standstill that is meant: the receiver program dies while the daemon awaits its answer."""
        self._plan.end_faults()
        self.set_receiver({"die_at": 2, "open_after_s": 1})
        self.exchange([commands.make("START_DAB", self.random, self.scene)])
        self.exchange([commands.make("dab", self.random, self.scene)])
        self._line.write(b"dab\n")
        self._line.wait_until_taken(10)
        self._line.write(b"version?\n")
        with contextlib.suppress(NoAnswer):
            self._line.read_while(lambda sofar: VERSION not in sofar, "nothing", 5.0)
            raise Failure("the daemon answers although it owes the controller the receiver's block")
        self._alive()
        self.figures.standstill = "the daemon waited, alive, and answered after its restart"
        self.set_receiver({})
        self._line.close()
        self._line = Line(self.unit.port, self.unit.log_path("line"), lambda: None)
        self._born = None
        self.unit.restart_daemon()
        self._adopt_daemon()

    def _report_progress(self):
        minute = int((time.monotonic() - self._began) / 60)
        if minute == self._minute:
            return
        self._minute = minute
        held = self.unit.sample(self.pid) or {"rss_kib": 0, "descriptors": 0, "threads": 0, "cpu_seconds": 0}
        print(f"{minute:3d} min  {self._phase:8s} {self.figures.commands:6d} commands {sum(self.figures.faults.values()):5d} "
              f"faults  slowest {self.figures.slowest[0]:.1f} s  {held['rss_kib'] / 1024:.1f} MiB  "
              f"{held['descriptors']} descriptors  {held['threads']} threads  {held['cpu_seconds']:.0f} CPU s", flush=True)


def _alike(one, other):
    return one and other and all(one[key] == other[key] for key in ("threads", "descriptors", "children"))
