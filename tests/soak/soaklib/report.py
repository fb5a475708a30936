"""The figures of a soak, and how they are told: summary.txt for people, summary.json for programs."""

import collections
import dataclasses
import os
import re

from .commands import SILENT
from .evidence import write_json, write_text

_SANITIZER_MARKS = (b"ERROR: AddressSanitizer", b"WARNING: ThreadSanitizer", b"runtime error:", b"ERROR: LeakSanitizer")
_WARNING = re.compile(rb"-(CRITICAL|WARNING) \*\*: (?:[0-9:.]+: )?(.*)|^(command \".*\" failed: .*)")


@dataclasses.dataclass
class Figures:
    """Counts, times and looks of one soak."""

    seconds: float = 0.0
    commands: int = 0
    bursts: int = 0
    sent: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    answered: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    slowest_of: dict = dataclasses.field(default_factory=dict)
    slowest: tuple = (0.0, "")
    margin: float = 0.0
    asked_again: int = 0
    times: list = dataclasses.field(default_factory=list)
    faults: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    fault_details: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    updates: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    streams: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    services: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    looks: dict = dataclasses.field(default_factory=dict)
    most: dict = dataclasses.field(default_factory=dict)
    log: collections.Counter = dataclasses.field(default_factory=collections.Counter)
    standstill: str = ""

    def note_burst(self, burst, lengths, took, patience):
        """A burst whose replies are as they must be. `took` until "version?" behind it was answered."""
        self.bursts += 1
        self.times.append(took)
        self.margin = max(self.margin, took / patience)
        kinds = " + ".join(command.kind for command in burst)
        self.slowest = max(self.slowest, (took, kinds))
        for command, length in zip(burst, lengths):
            self.commands += 1
            self.sent[command.kind] += 1
            self.answered[command.kind] += length > 0
            if len(burst) == 1:
                self.slowest_of[command.kind] = max(took, self.slowest_of.get(command.kind, 0.0))

    def note_look(self, name, held):
        """What the daemon holds with everything stopped."""
        self.looks[name] = held
        print(f"{held['minute']:5.1f} min  {name}: {held['rss_kib'] / 1024:.1f} MiB, heap {held['heap_kib']} KiB, "
              f"{held['descriptors']} descriptors, "
              f"{held['threads']} threads, {held['zombies']} zombies", flush=True)


def sanitizer_finding(path):
    """The sanitizers' words in the daemon's log, "" without any."""
    with open(path, "rb") as log:
        text = log.read()
    ats = [at for at in (text.find(mark) for mark in _SANITIZER_MARKS) if at >= 0]
    return text[max(0, min(ats) - 40):min(ats) + 4000].decode(errors="replace") if ats else ""


def log_findings(path):
    """Warnings in the daemon's log, counted by their text without numbers and addresses."""
    found = collections.Counter()
    with open(path, "rb") as log:
        for line in log:
            match = _WARNING.search(line)
            if match:
                text = (match.group(2) or match.group(3)).decode(errors="replace").strip()
                level = (match.group(1) or b"no reply").decode()
                found[f"{level}: {re.sub(r'0x[0-9a-f]+|[0-9]+', 'N', text)}"] += 1
    return found


def write(folder, figures, options, outcome):
    """Both files; returns the text."""
    text = _text(figures, options, outcome)
    write_text(os.path.join(folder, "summary.txt"), text)
    content = {field.name: getattr(figures, field.name) for field in dataclasses.fields(figures) if field.name != "times"}
    content |= {"outcome": outcome, "seed": options.seed, "asked_seconds": options.seconds, "daemon": options.tried or options.daemon,
                "median_seconds": _share(figures.times, 0.5), "p99_seconds": _share(figures.times, 0.99)}
    write_json(os.path.join(folder, "summary.json"), content)
    return text


def _share(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))] if ordered else 0.0


def _text(figures, options, outcome):
    silent = sum(figures.sent[kind] for kind in SILENT)
    lines = [
        f"outcome: {outcome}",
        f"seed {options.seed}, {figures.seconds / 60:.1f} minutes, daemon {options.tried or options.daemon}",
        f"{figures.commands} commands in {figures.bursts} bursts; {sum(figures.answered.values())} answered, "
        f"{silent} silent by design, {figures.commands - silent - sum(figures.answered.values())} with nothing to tell",
        f"{sum(figures.faults.values())} faults, {sum(figures.streams.values())} changes of the stream on the air",
        f"until \"version?\" behind a burst was answered: median {_share(figures.times, 0.5):.2f} s, "
        f"99 % {_share(figures.times, 0.99):.1f} s, slowest {figures.slowest[0]:.1f} s ({figures.slowest[1]}); "
        f"at most {100 * figures.margin:.0f} % of the time allowed",
        f"\"version?\" asked again: {figures.asked_again} times",
        f"receiver's death in an answer: {figures.standstill or 'not tried'}",
        "", "held with everything stopped:",
        "  look        minute  resident KiB  heap in use KiB  descriptors  threads  zombies  version? s"]
    lines += [f"  {name:11s} {held['minute']:6.1f}  {held['rss_kib']:12d}  {held['heap_kib'] or '-':>15}  {held['descriptors']:11d}  "
              f"{held['threads']:7d}  {held['zombies']:7d}  {held['version_seconds']:10.3f}"
              for name, held in figures.looks.items()]
    if figures.most:
        lines.append(f"  at most in use: {figures.most['rss_kib']} KiB, {figures.most['descriptors']} descriptors, "
                     f"{figures.most['threads']} threads; {figures.most['cpu_seconds']:.0f} s of processor time")
    lines += ["", "command            sent  answered  slowest s (alone in its burst)"]
    lines += [f"  {kind:16s} {count:5d}  {figures.answered[kind]:8d}  {figures.slowest_of.get(kind, 0.0):9.2f}"
              for kind, count in sorted(figures.sent.items())]
    for title, counts in (("faults", figures.faults), ("updates", figures.updates), ("streams", figures.streams),
                          ("services seen and heard as they should be", figures.services),
                          ("warnings in the daemon's log", figures.log)):
        lines += ["", f"{title}: {sum(counts.values())}"]
        lines += [f"  {count:6d}  {name}" for name, count in counts.most_common(60)]
    return "\n".join(lines) + "\n"
