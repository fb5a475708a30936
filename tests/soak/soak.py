#!/usr/bin/python3
"""Soaks the daemon in the virtual instrument. Called by script/soak, which builds what is needed; see docs/reliability.md."""

import argparse
import os
import re
import shutil
import signal
import sys
import tempfile

FOLDER = os.path.dirname(os.path.realpath(__file__))
REPOSITORY = os.path.dirname(os.path.dirname(FOLDER))
sys.dont_write_bytecode = os.stat(FOLDER).st_uid != os.geteuid()  # nothing of root's in a user's checkout
EMULATED_PATIENCE = 6.0  # times as long as this machine may a booted one take, whose processor is emulated
_UNITS = {"": 60, "s": 1, "m": 60, "h": 3600}


def duration(text):
    """Seconds of "20" (minutes), "90s", "10m" or "1h"."""
    match = re.fullmatch(r"([0-9]+(?:\.[0-9]+)?)([smh]?)", text)
    if not match or float(match.group(1)) == 0:
        raise argparse.ArgumentTypeError(f"{text!r} is no time; write 20 (minutes), 90s, 10m or 1h")
    return float(match.group(1)) * _UNITS[match.group(2)]


def parse(arguments):
    """The command line, completed."""
    parser = argparse.ArgumentParser(prog="script/soak", description=__doc__)
    parser.add_argument("seconds", metavar="TIME", type=duration, nargs="?", default="10m")
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--output", default=os.path.join(REPOSITORY, "build", "soak"))
    parser.add_argument("--build", default=os.path.join(REPOSITORY, "build", "release"))
    parser.add_argument("--daemon")
    parser.add_argument("--machine", choices=["amd64", "arm64"])
    parser.add_argument("--streams", default=os.path.join(REPOSITORY, "build", "streams"))
    parser.add_argument("--interval", type=float, default=5.0, help="seconds between two samples (default 5)")
    parser.add_argument("--only-check", action="store_true", help=argparse.SUPPRESS)  # the script asks before it builds
    options = parser.parse_args(arguments)
    if options.machine and options.daemon:
        parser.error("a booted instrument has the daemon of its package: --machine goes without --daemon")
    for name in ("output", "build", "streams"):
        setattr(options, name, os.path.realpath(getattr(options, name)))
    options.tried = f"package on a booted instrument, {options.machine}" if options.machine else None
    options.daemon = os.path.realpath(options.daemon or os.path.join(options.build, "src", "tessary"))
    return options


def make_unit(options, run_dir):
    """The instrument that is asked for; sets `sanitized` and `patience` of the options."""
    from soaklib import booted, unit
    log = os.path.join(options.output, "instrument.log")
    if options.machine:
        options.sanitized, options.patience = False, EMULATED_PATIENCE
        return booted.BootedUnit(options.machine, run_dir, options.build, log)
    shared = os.path.join(run_dir, "io")
    os.makedirs(shared)
    return unit.VirtualUnit(run_dir, options.build, options.daemon, sanitizer_environment(options, shared), log)


def sanitizer_environment(options, shared):
    """Environment of a daemon built with a sanitizer, a dictionary; sets `sanitized` and `patience` of the options."""
    with open(options.daemon, "rb") as file:
        binary = file.read()
    address, thread = b"__asan_init" in binary, b"__tsan_init" in binary
    options.sanitized = address or thread
    options.patience = 4.0 if options.sanitized else 1.0
    if address:
        shutil.copy(os.path.join(REPOSITORY, "tests", "sanitizers", "asan.supp"), shared)
        return {"ASAN_OPTIONS": "detect_leaks=0:detect_stack_use_after_return=1:strict_string_checks=1"
                                ":suppressions=/run/bench/asan.supp",
                "UBSAN_OPTIONS": "print_stacktrace=1:halt_on_error=1"}
    return {"TSAN_OPTIONS": "ignore_noninstrumented_modules=1"} if thread else {}


def interrupted(*_):
    raise KeyboardInterrupt


def soak(options, unit):
    """Runs and reports; returns the exit status."""
    from soaklib import evidence, report, run
    the_soak = run.Soak(options, unit)
    outcome, status = "passed", 0
    try:
        the_soak.run()
    except KeyboardInterrupt:
        outcome, status = "interrupted", 130
    except Exception as error:  # pylint: disable=broad-exception-caught  # whatever it is: the evidence is kept
        outcome, status = f"FAILED: {type(error).__name__}: {error}", 1
        folder = os.path.join(options.output, "failure")
        evidence.keep(folder, unit, the_soak.pid, the_soak.last, outcome)
        print(f"the last commands, logs and stacks are in {folder}", file=sys.stderr)
        if not isinstance(error, run.Failure):
            import traceback
            traceback.print_exc()
    shutil.copy(unit.log_path("daemon"), options.output)
    print(report.write(options.output, the_soak.figures, options, outcome), flush=True)
    return status


def main():
    """Returns the exit status: 0 passed, 1 failed, 2 can not start."""
    options = parse(sys.argv[1:])
    if options.only_check:
        return 0
    # The package of the build that is soaked, and what made streams are made of.
    sys.path[:0] = [FOLDER, os.path.join(options.build, "python"), os.path.join(REPOSITORY, "bench", "streams")]
    import tessary
    os.makedirs(options.output, exist_ok=True)
    shutil.rmtree(os.path.join(options.output, "failure"), ignore_errors=True)  # of an earlier soak
    run_dir = tempfile.mkdtemp(prefix="tessary-soak-", dir="/run")
    unit = make_unit(options, run_dir)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, interrupted)
    try:
        unit.start()
        return soak(options, unit)
    except tessary.NoInstrumentError as error:
        print(f"soak: {error}", file=sys.stderr)
        return 2
    finally:
        unit.stop()
        shutil.rmtree(run_dir, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
