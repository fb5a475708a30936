"""`bench/hardware`: an instrument together with its hardware: FPGA, bitstream file and DAB receiver program."""

import argparse
import os
import shlex
import signal
import subprocess
import sys

from . import places, subcommands
from .errors import BenchError
from .run_dir import DEFAULT, RunDir

COUNTERPARTS = os.path.join(places.HERE, "counterparts")
FILES = {"gpio": "/sys/class/gpio", "pci": "/sys/bus/pci", "spidev0.0": "/dev/spidev0.0",
         "xillybus_write_8": "/dev/xillybus_write_8"}
BITFILE = "/home/ondrak/Tessary/Tessary.bit"
RECEIVER = "/home/ondrak/qt-dab/qt-dab"


def main(arguments, usage):
    """Returns the exit status once the instrument is down again."""
    options, others = _parse(arguments, usage)
    if any(word.startswith("--machine") for word in others):
        raise BenchError("a booted instrument has its hardware inside",
                         "bench/instrument run --machine; its knobs are /run/fpga/knobs")
    mount_point = os.path.join(options.run_dir, "fpga")
    notes = os.path.join(options.run_dir, "hardware")
    for folder in (mount_point, notes):
        os.makedirs(folder, exist_ok=True)
    parent = os.getppid()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))  # until the instrument takes them over
    fpga = _start_fpga(options, mount_point, notes)
    try:
        return subcommands.main(_run_arguments(options, others, mount_point, _bitfile(options, notes)))
    finally:
        fpga.terminate()
        fpga.wait()
        subprocess.run(["umount", "-l", mount_point], stderr=subprocess.DEVNULL, check=False)  # usually done by now
        if options.remove_orphaned and os.getppid() != parent:
            RunDir(options.run_dir).remove()


def _parse(arguments, usage):
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("-h", "--help", action="store_true")
    parser.add_argument("--bitfile")
    parser.add_argument("--bitfile-options", default="")
    parser.add_argument("--knob", action="append", default=[])
    parser.add_argument("--run-dir", default=DEFAULT)
    parser.add_argument("--remove-orphaned", action="store_true")
    parser.add_argument("--build", default=places.DEFAULT_BUILD)
    options, others = parser.parse_known_args(arguments)
    if options.help:
        print(usage)
        sys.exit(0)
    options.run_dir = os.path.realpath(options.run_dir)
    return options, others


def _start_fpga(options, mount_point, notes):
    """Returns the FPGA's process, its files ready to be opened."""
    program = places.part("fpga", options.build)
    if not os.access(program, os.X_OK):
        raise places.not_there([program], options.build)
    # A session of its own: a Ctrl-C is the instrument's, whose daemon needs its FPGA to the end.
    fpga = subprocess.Popen(["setpriv", "--pdeathsig", "TERM", program, mount_point, notes], stdout=subprocess.PIPE,
                            text=True, start_new_session=True)
    if fpga.stdout.readline() != "ready\n":
        fpga.wait()
        raise BenchError("the FPGA did not start (see above)", "is the kernel's fuse module there, and may you open /dev/fuse? "
                         "Debian lets everybody; where nobody has set it so: chmod 666 /dev/fuse, as root")
    for knob in options.knob:
        with open(os.path.join(mount_point, "knobs"), "w", encoding="ascii") as knobs:
            knobs.write(knob + "\n")
    return fpga


def _bitfile(options, folder):
    """Path of the bitstream file to show inside, or None for none."""
    if options.bitfile is not None:
        return options.bitfile or None
    path = os.path.join(folder, "Tessary.bit")
    subprocess.run([os.path.join(COUNTERPARTS, "make-bitfile"), *shlex.split(options.bitfile_options), path], check=True)
    return path


def _run_arguments(options, others, mount_point, bitstream):
    arguments = ["run", "--run-dir", options.run_dir, "--build", options.build, *others]
    for name, target in FILES.items():
        arguments += ["--bind", f"{mount_point}/{name}={target}"]
    if bitstream:
        arguments += ["--file", f"{bitstream}={BITFILE}"]
    return [*arguments, "--file", f"{COUNTERPARTS}/qt-dab={RECEIVER}"]
