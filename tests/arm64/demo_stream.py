#!/usr/bin/python3
"""The arm64 daemon under an emulator in the virtual instrument, asked as the controller asks: byte for byte.

usage: demo_stream.py --native DIR --arm64 DIR --emulator FILE --stream FILE [options of bench/instrument run]

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
import select
import signal
import subprocess
import sys
import tempfile
import time

TREE = os.path.dirname(os.path.dirname(os.path.dirname(os.path.realpath(__file__))))
INSTRUMENT = os.path.join(TREE, "bench", "instrument")
sys.dont_write_bytecode = True
sys.path.insert(0, os.path.join(TREE, "bench", "streams"))

from streamlib import packets  # noqa: E402  (the path must be set first)

ELF_MACHINE_ARM64 = 183
SDT_PID, SDT_ACTUAL = 0x11, 0x42  # ETSI EN 300 468
PORT = 1234


class Failed(Exception):
    """Something is not as it must be."""


class Line:
    """The controller's end of the serial line."""

    def __init__(self, path):
        self._fd = os.open(path, os.O_RDWR | os.O_NOCTTY)

    def read(self, seconds, enough):
        """Bytes received until `enough(bytes)` holds or the line was silent for `seconds`."""
        received = b""
        while not enough(received):
            ready, _, _ = select.select([self._fd], [], [], seconds)
            if not ready:
                break
            received += os.read(self._fd, 65536)
        return received

    def ask(self, command, seconds=10, enough=lambda received: False):
        """The answer to a command: what comes until `enough`, or until silence."""
        self.read(0.3, lambda received: False)
        os.write(self._fd, command)
        first = self.read(seconds, bool)
        return first if enough(first) or not first else first + self.read(0.5, lambda more: enough(first + more))


def expect(what, wanted, found):
    """Says that it holds, or ends the test."""
    if wanted != found:
        raise Failed(f"{what}: expected {wanted!r}, found {found!r}")
    print(f"checked: {what}: {found if len(found) < 60 else str(len(found)) + ' bytes'}", flush=True)


@contextlib.contextmanager
def running_instrument(options, run_dir):
    """An instrument that has said "ready"; stopped at the end, its logs kept beside the arm64 build's."""
    command = [INSTRUMENT, "run", "--run-dir", run_dir, "--build", options.native,
               "--daemon", os.path.join(options.arm64, "src/tessary"), "--emulator", options.emulator,
               "--elements", os.path.join(options.arm64, "bench/elements"), *options.more]
    runner = subprocess.Popen(command, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL, text=True)
    try:
        if not any(line == "ready\n" for line in runner.stdout):
            raise Failed("the virtual instrument did not start (see above)")
        yield
    finally:
        runner.send_signal(signal.SIGTERM)
        runner.communicate()
        for name in ("daemon", "line", "commands", "services"):
            with contextlib.suppress(OSError):
                with open(os.path.join(run_dir, name + ".log"), "rb") as log:
                    with open(os.path.join(options.arm64, f"demo-stream-{name}.log"), "wb") as kept:
                        kept.write(log.read())


def ethernet_address(run_dir):
    """The address that eth0 has got by DHCP. The stream comes to it, and not to a multicast group: qemu-user 7.2 takes the
    interface's index of IP_ADD_MEMBERSHIP for twice as long as it is and joins on another interface or none."""
    deadline = time.monotonic() + 30
    while time.monotonic() < deadline:
        said = subprocess.run([INSTRUMENT, "exec", "--run-dir", run_dir, "ip", "-4", "-o", "address", "show", "dev", "eth0"],
                              capture_output=True, text=True, check=True).stdout
        if "inet " in said:
            return said.partition("inet ")[2].partition("/")[0]
        time.sleep(0.2)
    raise Failed("eth0 has no address after 30 s")


@contextlib.contextmanager
def running_sender(options, run_dir, address):
    """The demo stream, again and again."""
    sender = subprocess.Popen(
        [INSTRUMENT, "exec", "--run-dir", run_dir, "--sender",
         os.path.join(options.native, "bench/sender/tessary-send"), "--loop", "--interface", "uplink", options.stream,
         f"udp://{address}:{PORT}"], stdout=subprocess.DEVNULL, stdin=subprocess.DEVNULL)
    try:
        yield
    finally:
        sender.send_signal(signal.SIGTERM)
        sender.wait()


def check_the_daemon_is_arm64s(options, run_dir):
    """Its file is the build's, unmodified, and the emulator runs it."""
    pid = subprocess.run([INSTRUMENT, "daemon", "pid", "--run-dir", run_dir], capture_output=True, text=True,
                         check=True).stdout.strip()
    with open(f"/proc/{pid}/root/usr/bin/tessary", "rb") as inside:
        program = inside.read()
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


def check_services(line, address, wanted):
    """Sections come as the stream repeats them (at most every 2 s for the SDT), so the question is asked again."""
    line.ask(f"server=UDP {address} {PORT}\n".encode(), 0.5)
    line.ask(b"scancur\n", 0.5)
    deadline = time.monotonic() + 60
    answer = b""
    while len(answer) < 5 + len(wanted) and time.monotonic() < deadline:
        answer = line.ask(b"streaminfo?\n", 3, lambda received: len(received) >= 5 + len(wanted))
    expect("scancur, streaminfo?", (b"<SDT>" + wanted).hex(), answer.hex())


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    for name in ("--native", "--arm64", "--emulator", "--stream"):
        parser.add_argument(name, required=True)
    options, options.more = parser.parse_known_args()
    with tempfile.TemporaryDirectory(dir="/run") as folder:
        run_dir = os.path.join(folder, "instrument")
        with running_instrument(options, run_dir):
            check_the_daemon_is_arm64s(options, run_dir)
            line = Line(os.path.join(run_dir, "controller"))
            expect("greeting", b"HELLO !\r\n", line.read(120, lambda received: received.endswith(b"\n")))
            answer = line.ask(b"version?\n", 60, lambda received: received.endswith(b"\n"))
            if not answer.endswith(b"\n"):
                raise Failed(f"version?: no line, but {answer!r}")
            expect("version?", b"SV: mx8 ", answer[:8])
            address = ethernet_address(run_dir)
            with running_sender(options, run_dir, address):
                check_services(line, address, service_table(options.stream))
    return 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except (Failed, OSError, subprocess.SubprocessError) as error:
        sys.exit(f"demo_stream: {error}")
