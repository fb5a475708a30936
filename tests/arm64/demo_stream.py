#!/usr/bin/python3
"""The arm64 daemon under an emulator in the virtual instrument, asked as the controller asks: byte for byte.

usage: PYTHONPATH=NATIVE/python demo_stream.py --native DIR --arm64 DIR --emulator FILE --stream FILE [options of bench/instrument run]

Starts an instrument whose daemon and platform elements are of the arm64 build, and the stream sender of the native build,
and expects on the serial line:
  HELLO !<CR><LF>          as the first bytes
  version?                 one line of text
  scancur, streaminfo?     "<SDT>" and then the stream's SDT section for the actual stream
Prints a line for each thing checked; exit status 0 when all hold. Needs root.
"""

import argparse
import contextlib
import os
import shutil
import sys
import tempfile

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(TREE, "bench", "streams"))

import tessary  # noqa: E402  (of the native build: PYTHONPATH)
from streamlib import packets  # noqa: E402

ELF_MACHINE_ARM64 = 183
SDT_PID, SDT_ACTUAL = 0x11, 0x42  # ETSI EN 300 468
PORT = 1234


class Failed(Exception):
    """Something is not as it must be."""


def expect(what, wanted, found):
    """Says that it holds, or ends the test."""
    if wanted != found:
        raise Failed(f"{what}: expected {wanted!r}, found {found!r}")
    print(f"checked: {what}: {found if len(found) < 60 else str(len(found)) + ' bytes'}", flush=True)


def arm64_instrument(options, run_dir):
    """With daemon and platform elements of the arm64 build."""
    emulation = ["--emulator", options.emulator, "--elements", os.path.join(options.arm64, "bench/elements")]
    return tessary.Instrument(build=options.native, daemon=os.path.join(options.arm64, "src/tessary"), run_dir=run_dir,
                              options=[*emulation, *options.more])


def keep_logs(options, run_dir):
    """Beside the arm64 build's other logs."""
    for name in ("daemon", "line", "commands", "services"):
        with contextlib.suppress(OSError):
            shutil.copy(os.path.join(run_dir, name + ".log"), os.path.join(options.arm64, f"demo-stream-{name}.log"))


def check_the_daemon_is_arm64s(options, instrument):
    """Its file is the build's, unmodified, and the emulator runs it."""
    pid = instrument.daemon_pid()
    program = instrument.inside("/usr/bin/tessary").read_bytes()
    with open(os.path.join(options.arm64, "src/tessary"), "rb") as built:
        if program != built.read():
            raise Failed("the program in the instrument is not the build's")
    expect("ELF machine of the daemon", str(ELF_MACHINE_ARM64), str(int.from_bytes(program[18:20], "little")))
    expect("program of its process", "/usr/bin/qemu-aarch64-static", os.readlink(f"/proc/{pid}/exe"))
    with open(f"/proc/{pid}/cmdline", "rb") as arguments:
        expect("last word of its command line", b"/usr/bin/tessary", arguments.read().rstrip(b"\0").split(b"\0")[-1])


def service_table(path):
    """The SDT section for the actual stream, as the file carries it."""
    with open(path, "rb") as file:
        data = file.read()
    for _, pid, packet in packets.packets(data):
        section = packets.single_packet_section(packet) if pid == SDT_PID else None
        if section and section[0] == SDT_ACTUAL:
            return section
    raise Failed(f"{path} carries no SDT for the actual stream")


def check_answers(instrument, controller, stream):
    """The stream comes to eth0's own address, and not to a multicast group: qemu-user 7.2 takes the interface's index of
    IP_ADD_MEMBERSHIP for twice as long as it is and joins on another interface or none."""
    expect("greeting", b"HELLO !\r\n", controller.line.read_exactly(9, 120))
    expect("version?", b"SV: mx8 ", controller.ask("version?", timeout=60)[:8])
    server = f"udp://{instrument.address(wait=30)}:{PORT}"
    with instrument.send(stream, server):
        controller.scan(server, wait=60)
        expect("scancur, streaminfo?", (b"<SDT>" + service_table(stream)).hex(), controller.ask("streaminfo?").hex())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("--native", "--arm64", "--emulator", "--stream"):
        parser.add_argument(name, required=True)
    options, options.more = parser.parse_known_args()
    with tempfile.TemporaryDirectory(dir="/run") as folder:
        try:
            with arm64_instrument(options, folder) as instrument, tessary.Controller(instrument.port, timeout=60) as controller:
                check_the_daemon_is_arm64s(options, instrument)
                check_answers(instrument, controller, options.stream)
        finally:
            keep_logs(options, folder)
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (Failed, OSError, tessary.TessaryError) as error:
        sys.exit(f"demo_stream: {error}")
