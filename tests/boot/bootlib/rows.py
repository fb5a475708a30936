"""Every command of the line, answered by the machine with its hardware."""

import filecmp
import struct

import tessary

from .machine import require, tell

SERVER = "udp://239.0.0.1:1234"
_T2MI_SERVER = "udp+t2mi://239.0.0.3:1238?pid=4096&plp=1"
CARD = "/run/media/mmcblk1p1"
RECORDING = f"{CARD}/record.ts"
_LONG_ANSWERS = 100_000  # bytes


def rows(machine, options):
    """All rows of the protocol, and answers that are longer than the UART's buffer, without a byte lost."""
    since = machine.line_position()
    with machine.controller() as controller:
        for part in (_maintenance, _network, _player, _t2mi, _fpga_stream, _recorder, _dab, _refused_update):
            part(machine, controller, options)
    sent = machine.sent_since(since)
    missing = [word for word in tessary.COMMANDS if word.encode() not in sent]
    require(not missing, f"never sent: {missing}")
    tell(f"all {len(tessary.COMMANDS)} commands were sent and answered")


def _maintenance(machine, controller, _):
    version = controller.version()
    require(version.fpga_configured and version.fpga_built, f"the FPGA: {version.fpga}")
    tell(f"version?: {version.software}, FPGA of {version.fpga_built}")
    outcome = controller.run_command_shown("id -u")
    require((outcome.output.strip(), outcome.status) == (b"0", 0), f"command: {outcome.output!r}")
    machine.instrument.send_break()
    require(still_answers(controller, version.software), "no answer after a break on the line")


def _network(machine, controller, _):
    controller.set_interface()
    _await_address(machine, controller)
    require("192.168.77." in str(controller.ip_status().as_dict()), "ipstatus? shows no address")
    report = controller.ping(machine.instrument.sender_address())
    require(report.received == report.transmitted > 0, f"ping: {report.as_dict()}")


def _await_address(machine, controller):
    def has_one():
        interface = controller.interface()
        return interface is not None and interface.address.startswith("192.168.77.")
    machine.wait_until(has_one, "interface?: no address by DHCP", 60)


def _player(machine, controller, options):
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER)
    try:
        controller.ask_server()
        require(len(controller.scan(SERVER, wait=60).services) == 3, "scancur: three services are sent")
        require(controller.stream_info() is not None and controller.network(wait=60) is not None, "streaminfo?, getnit?")
        controller.play(2, wait=60)
        require(controller.program(wait=60) is not None and controller.player_status(), "getpmt?, videostatus?")
        controller.send_stream()
        machine.wait_until(lambda: machine.size_of("fpga-out.ts") > 1_000_000, "sendts: nothing arrives", 60)
        require(controller.measure(SERVER, wait=60).present, "getethernetmes?: no stream")
        machine.wait_until(lambda: len(controller.inter_arrival_times()) == 1024, "getiat?: 1024 are kept", 60)
    finally:
        sender.stop()


def _t2mi(machine, controller, options):
    """T2-MI packets of more bytes than the UART's buffer has, and their checksums."""
    sender = machine.instrument.send(options.streams / "demo-t2mi.ts", _T2MI_SERVER)
    try:
        require(controller.scan(_T2MI_SERVER, wait=60).services, "T2-MI: no services")
        controller.t2mi_packet(wait=60)
        count = 0
        longest = 0
        while count < _LONG_ANSWERS:
            packet = controller.t2mi_packet()
            require(packet is not None and packet.crc_correct, f"t2miframe? after {count} bytes: {packet}")
            longest = max(longest, packet.payload_bits // 8)
            count += packet.payload_bits // 8
    finally:
        sender.stop()
    tell(f"t2miframe?: {count} bytes at the line's speed, up to {longest} in an answer, every checksum right")


def _fpga_stream(machine, controller, options):
    machine.instrument.shared("fpga-in.ts").write_bytes((options.streams / "demo.ts").read_bytes())
    controller.ebs_scan()
    machine.wait_until(lambda: controller.ebs_status().programs == 3, "!07_S_&: three services", 120)
    require(controller.ebs_service_name(1), "!0C_L_IX:")
    controller.ebs_play(1)
    machine.wait_until(lambda: controller.ebs_status().selected == 1, "!0C_D_IX:", 60)
    controller.ebs_decoder_info()
    controller.ebs_audio_level(50)
    require(controller.ebs_version().fpga_configured, "!07_V_&")
    machine.instrument.shared("fpga-in.ts").unlink()


def _recorder(machine, controller, options):
    make_recording(machine, controller, options)
    controller.scan_recording()
    machine.wait_until(lambda: _services(controller) == 3, "PVR_scan: three services", 120)
    controller.set_server(SERVER)  # lets go of the recording
    size = controller.export_recording()
    exported = machine.instrument.run_dir / "hardware" / "export.bin"
    recording = machine.instrument.shared("recording")
    machine.run("cp", RECORDING, "/run/bench/recording")
    require(recording.stat().st_size == size, "the recording's size")
    require(filecmp.cmp(exported, recording, shallow=False), "PVR_export: other bytes arrived")
    recording.unlink()
    tell(f"PVR_export: {size} bytes of the recording arrived at the FPGA")


def _services(controller):
    table = controller.stream_info()
    return len(table.services) if table else 0


def make_recording(machine, controller, options, least=2_000_000):
    """A recording of some seconds, ended as a controller ends it. Returns its size."""
    sender = machine.instrument.send(options.streams / "demo.ts", SERVER)
    try:
        controller.scan(SERVER, wait=60)
        controller.record()
        machine.wait_until(lambda: controller.recording_size() > least, "PVR_record: it does not grow", 120)
        controller.stop_recording()
    finally:
        sender.stop()
    return controller.recording_size()


def _dab(_, controller, __):
    controller.start_dab()
    block = b"dab" + bytes(range(114))
    require(controller.dab(block) == bytes(byte ^ 0xFF for byte in block), "dab: the receiver program's answer")
    controller.stop_dab()


def _refused_update(machine, controller, _):
    """A package whose checksum is wrong is not installed, and the daemon answers."""
    before = controller.version().software
    wrong_checksum(controller, b"!<arch>\n" + bytes(5000))
    require(still_answers(controller, before), "update: the old version no longer answers")
    controller.run_command("nmcli networking on")
    _await_address(machine, controller)


def still_answers(controller, software):
    """Whether that version answers within a minute. What is read in one piece with a checksum goes with it: it is asked again."""
    for _ in range(12):
        try:
            return controller.version(timeout=5).software == software
        except tessary.TimedOutError:
            pass
    return False


def wrong_checksum(controller, package):
    """Sends a package as `update` does it, with a checksum that is not its own."""
    line = controller.line
    line.write(b"update %d\n" % len(package))
    answer = line.read_line(60)
    require(answer == b"waiting update\n", f"update: {answer!r}")
    line.write(package, timeout=10 + len(package) / 1000)
    line.write(struct.pack("<I", 0))
