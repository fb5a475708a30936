#!/usr/bin/python3
"""Boots the instrument as a machine and lets it work. Called by script/test-boot, which builds what it needs; see docs/bench.md.

usage: PYTHONPATH=BUILD/python boot.py --machine ARCH --build DIR --streams DIR --next DAEMON --out DIR [--power-cuts N] [--only STEP]...

Exit status 0 when all that was to be seen was seen. Needs root.
"""

import argparse
import pathlib
import subprocess
import sys
import time

import tessary
from bootlib import figures, power, rows, software, steps, vlan
from bootlib.machine import Failed, Machine

STEPS = {
    "start": steps.start,
    "session": steps.session,
    "rows": rows.rows,
    "vlan": vlan.vlan,
    "update": software.update,
    "kernel": power.staged_kernel,
    "card": steps.card,
    "trouble": steps.trouble,
    "power": power.power_cuts,
    "figures": figures.figures,
}


def parse():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--machine", default="amd64")
    for name in ("--build", "--streams", "--next", "--out"):
        parser.add_argument(name, required=True, type=pathlib.Path)
    parser.add_argument("--power-cuts", type=int, default=6)
    parser.add_argument("--only", action="append", choices=list(STEPS), default=[])
    return parser.parse_args()


def run_step(name, machine, options):
    """Runs one step and tells how it went. Returns whether all was seen."""
    print(f"== {name}", flush=True)
    began = time.monotonic()
    try:
        STEPS[name](machine, options)
        seen = True
    except (Failed, tessary.TessaryError, subprocess.CalledProcessError, OSError) as error:
        print(f"   FAILED: {error}", flush=True)
        seen = False
    print(f"   {'ok' if seen else 'FAILED'} in {time.monotonic() - began:.0f} s", flush=True)
    return seen


def keep_evidence(machine, options):
    """Logs, and the journal of all boots as far as the machine still gives it."""
    machine.instrument.save_logs(options.out)
    try:
        text = machine.run("journalctl", "--no-pager", "--output=short-precise")
        (options.out / "journal-all.txt").write_text(text, encoding="utf-8")
    except (tessary.TessaryError, OSError) as error:
        print(f"   the journal could not be had: {error}")


def main():
    options = parse()
    options.out.mkdir(parents=True, exist_ok=True)
    (options.out / "next.deb").unlink(missing_ok=True)  # of another run: its packages were others
    instrument = tessary.Instrument(machine=options.machine, build=options.build, run_dir=options.out / "run")
    machine = Machine(instrument)
    print("== boot", flush=True)
    try:
        instrument.start()
        print("   " + "\n   ".join(line for line in instrument.log("runner").splitlines() if "booted" in line), flush=True)
        missed = [name for name in STEPS if name in (options.only or STEPS) and not run_step(name, machine, options)]
        keep_evidence(machine, options)
    except tessary.TessaryError as error:
        print(f"   FAILED: {error}", flush=True)
        missed = ["boot"]
        instrument.save_logs(options.out)
    finally:
        instrument.stop()
    print(f"not seen: {', '.join(missed)}; logs in {options.out}" if missed else f"all seen; logs in {options.out}")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
