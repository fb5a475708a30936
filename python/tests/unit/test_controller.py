"""The controller against a stand-in at the far end of a pseudo terminal: every command, its bytes and what becomes of an answer."""

from __future__ import annotations

import os
import signal
import struct
import threading
import time

import pytest
from conftest import Desk

import tessary

VERSION = b"SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=OK\n"
# The examples of docs/protocol.md.
SDT = bytes.fromhex(
    "42f0300001c100000001ff0001fc800d480b010542656e6368034f6e650002fc800d480b010542656e63680354776f72e5abf8"
)
NIT = bytes.fromhex("40f0140001c10000f007400542656e6368f0009228b71a")
PMT = bytes.fromhex("02b01d0002c10000e201f0000" "2e201f00003e202f0060a04656e67000f180f96")


def test_version(desk: Desk) -> None:
    desk.answers["version?"] = VERSION
    version = desk.controller.version()
    assert (version.software, version.fpga_built, version.fpga_configured) == ("1.4", "2021-05-05T04:52:47", True)
    assert version.as_dict()["software"] == "1.4"
    assert repr(version).startswith("Version(software='1.4', fpga='5/5/2021 4:52:47'")


def test_tables(desk: Desk) -> None:
    desk.answers.update({"streaminfo?": b"<SDT>" + SDT, "getnit?": NIT, "getpmt?": PMT})
    table = desk.controller.stream_info()
    assert table is not None and table.complete
    assert [(entry.id, entry.name, entry.provider) for entry in table.services] == [(1, "One", "Bench"), (2, "Two", "Bench")]
    network = desk.controller.network()
    assert network is not None and (network.network_id, network.name) == (1, "Bench")
    program = desk.controller.program()
    assert program is not None and (program.number, program.pcr_pid) == (2, 0x201)
    assert [(stream.pid, stream.medium) for stream in program.streams] == [(0x201, "picture"), (0x202, "sound")]
    assert program.streams[1].languages[0].code == "eng"
    assert program.streams[1].descriptors[0].data == b"eng\0"


def test_nothing_yet(desk: Desk) -> None:
    assert desk.controller.stream_info() is None
    assert desk.controller.network() is None
    assert desk.controller.program() is None
    assert desk.controller.player_status() == ""
    assert desk.controller.t2mi_packet() is None


def test_scan_waits_for_the_services(desk: Desk) -> None:
    desk.answers["interface?"] = b"192.168.1.20 255.255.255.0\n"
    asked = []

    def services() -> bytes:
        asked.append(1)
        return b"<SDT>" + SDT if len(asked) > 2 else b""

    desk.answers["streaminfo?"] = services
    table = desk.controller.scan("udp://@239.0.0.1:1234")
    assert len(table.services) == 2
    assert desk.far.heard[:3] == ["server=UDP 239.0.0.1 1234", "interface?", "scancur"]


def test_scan_of_nothing_says_so(desk: Desk) -> None:
    desk.answers["interface?"] = b"192.168.1.20 255.255.255.0\n"
    with pytest.raises(tessary.NothingError) as caught:
        desk.controller.scan(wait=0.1)
    assert caught.value.kind == "nothing" and "measure()" in caught.value.remedy
    desk.answers["interface?"] = b"not connected\n"
    with pytest.raises(tessary.NoLinkError):
        desk.controller.scan()


def test_play_by_name_tells_what_is_to_be_seen(desk: Desk) -> None:
    desk.answers.update({"streaminfo?": b"<SDT>" + SDT, "getpmt?": PMT})
    desk.answers["!07_E_&"] = b"*32_e.DI:0001_0780_0438_0000_0004_0000_0000_0000_$"
    played = desk.controller.play("two")
    assert played.number == 2 and "play=2" in desk.far.heard
    assert (played.presentation.picture.state, played.presentation.width) == ("decoded", 1920)
    with pytest.raises(tessary.NothingError, match="'One', 'Two'"):
        desk.controller.play("three")


def test_measurement(desk: Desk) -> None:
    desk.answers["getethernetmes?"] = struct.pack("<7i", 1, 8_000_000, 7, 0, 188, 7, 10)
    figures = desk.controller.measurement()
    assert (figures.present, figures.bit_rate, figures.delay_factor_ms) == (True, 8_000_000, 7)
    assert figures.transport_rate(rtp=False) == round(8_000_000 * 1316 / 1358)
    desk.answers["getiat?"] = b"998;1002;1000;"
    times = desk.controller.inter_arrival_times()
    assert times == [998, 1002, 1000]
    assert tessary.statistics_of(times).median_us == 1000
    desk.answers["getethernetmes?"] = b"not connected\n"
    with pytest.raises(tessary.NoLinkError, match="plug the cable in"):
        desk.controller.measurement()


def test_measure_waits_for_a_whole_period(desk: Desk) -> None:
    began = time.monotonic()

    def reading() -> bytes:
        period = int((time.monotonic() - began) / 1.05)
        return struct.pack("<7i", 1, 8_000_000 + period, 7, 0, 188, 7, 10)

    desk.answers["getethernetmes?"] = reading
    figures = desk.controller.measure()
    assert figures.bit_rate >= 8_000_003


def test_interface(desk: Desk) -> None:
    desk.answers["interface?"] = b"192.168.1.20 255.255.255.0\n"
    address = desk.controller.interface()
    assert address is not None and (address.address, address.mask) == ("192.168.1.20", "255.255.255.0")
    desk.controller.set_interface()
    desk.controller.set_interface("192.168.1.20/24")
    desk.controller.set_interface(vlan=42, ethtool="ethtool -s eth0 speed 100")
    assert [text for text in desk.far.heard if text.startswith("interface=")] == [
        "interface=dhcp", "interface=192.168.1.20 255.255.255.0", "interface=dhcp;vlan_id=42;ethtool -s eth0 speed 100"]
    with pytest.warns(UserWarning, match="whole octets"):
        desk.controller.set_interface("10.0.0.1/20")


def test_ping(desk: Desk) -> None:
    desk.answers["ping -c 1 192.168.1.1"] = (
        b"PING 192.168.1.1 (192.168.1.1) 56(84) bytes of data.\n"
        b"64 bytes from 192.168.1.1: icmp_seq=1 ttl=64 time=0.500 ms\n\n--- 192.168.1.1 ping statistics ---\n"
        b"1 packets transmitted, 1 received, 0% packet loss, time 0ms\nrtt min/avg/max/mdev = 0.5/0.5/0.5/0.0 ms\n")
    report = desk.controller.ping("192.168.1.1", count=1)
    assert (report.transmitted, report.received, report.replies[0].time_to_live) == (1, 1, 64)


def test_ebs(desk: Desk) -> None:
    desk.answers.update({"!0C_D_IX:05": b"*0C_d.SX", "!07_A_&": b"*17_a.FL:02_NS:0c$_DS:05", "!16_O_AX:40": b"*07_o.$",
                         "!07_V_&": VERSION})
    controller = desk.controller
    controller.ebs_scan()
    controller.ebs_play(5)
    assert controller.ebs_service_name(31) == "Service31"
    status = controller.ebs_status()
    assert (status.programs, status.selected) == (12, 5)
    controller.ebs_audio_level(0x40)
    assert controller.ebs_version().software == "1.4"
    assert desk.far.heard[:2] == ["!07_S_&", "!0C_D_IX:05"]


def test_recorder_and_dab(desk: Desk) -> None:
    controller = desk.controller
    desk.answers.update({"PVR_reclist": b"reclist file:18800 Bytes", "PVR_export": b"PVR_export_ok\n", "dab list?": bytes(117)})
    controller.record()
    controller.stop_recording()
    assert controller.recording_size() == 18800
    controller.scan_recording()
    assert controller.export_recording() == 18800
    controller.start_dab()
    assert controller.dab(b"dab list?") == bytes(117)
    controller.stop_dab()
    controller.send_stream()
    controller.run_command("sync")
    controller.ask_server()
    words = ["PVR_record", "PVR_stop", "PVR_scan", "PVR_export", "START_DAB", "STOP_DAB", "sendts", "command:sync", "server?"]
    assert [word for word in words if word not in desk.far.heard] == []
    desk.answers["PVR_reclist"] = b"reclist file:0 Bytes"
    with pytest.raises(tessary.NothingError, match="there is no recording"):
        controller.scan_recording()


def test_update(desk: Desk) -> None:
    """The package goes to a far end that plays the daemon's part."""
    package = bytes(range(256)) * 8
    desk.far.hang_up()
    far, near = os.openpty()
    import tty
    tty.setraw(near)
    said = bytearray()

    def daemon() -> None:
        while b"\n" not in said:
            said.extend(os.read(far, 100))
        os.write(far, b"waiting update\n")
        while len(said) < len(b"update 2048\n") + len(package) + 4:
            said.extend(os.read(far, 4096))
        os.write(far, b"update ok\n")

    thread = threading.Thread(target=daemon)
    thread.start()
    sent: list[int] = []
    with tessary.Controller(os.ttyname(near)) as controller:
        controller.update(package, bytes_per_second=1_000_000, progress=sent.append)
    thread.join()
    assert bytes(said[12:-4]) == package and sent[-1] == len(package)
    os.close(far)
    os.close(near)


def test_update_that_is_not_taken_up(desk: Desk) -> None:
    desk.answers["version?"] = VERSION
    desk.controller.timeout = 3  # in which the question before it is answered
    with pytest.raises(tessary.UpdateError) as caught:
        desk.controller.update(b"package")
    assert caught.value.kind == "update-not-started" and caught.value.remedy


def test_every_command_has_a_method_or_goes_by_its_word(desk: Desk) -> None:
    assert len(tessary.COMMANDS) == 34
    desk.answers["version?"] = VERSION
    assert desk.controller.ask("version?") == VERSION
    with pytest.raises(tessary.UsageError, match="there are: interface"):
        desk.controller.ask("versoin?")


def test_a_start_in_between_is_seen(desk: Desk) -> None:
    desk.answers["version?"] = VERSION
    desk.controller.version()
    desk.far.say(b"HELLO !\r\n")
    time.sleep(0.05)
    desk.controller.version()
    assert desk.controller.starts_seen == 1


def test_silence_is_a_time_out_that_says_so(desk: Desk) -> None:
    desk.controller.timeout = 0.2
    with pytest.raises(TimeoutError) as caught:
        desk.controller.version()
    assert isinstance(caught.value, tessary.TimedOutError)
    assert caught.value.kind == "timed-out" and caught.value.remedy and "0.2" not in caught.value.remedy
    desk.answers["version?"] = VERSION
    assert desk.controller.version(timeout=5).software == "1.4"


def test_a_damaged_answer_is_told(desk: Desk) -> None:
    desk.answers["version?"] = b"what?\n"
    with pytest.raises(tessary.BadAnswerError, match="wiring"):
        desk.controller.version()


def test_hanging_up_is_told(desk: Desk) -> None:
    desk.far.hang_up()
    with pytest.raises(tessary.HungUpError):
        desk.controller.version()
    with pytest.raises(tessary.HungUpError, match="is closed; open the port again"):
        desk.controller.version()


def test_no_port(monkeypatch: pytest.MonkeyPatch) -> None:
    with pytest.raises(tessary.NoInstrumentError, match="TESSARY_PORT in the environment") as caught:
        tessary.Controller("/dev/no-such-port")
    assert isinstance(caught.value, OSError)
    monkeypatch.setenv("TESSARY_PORT", "/dev/null")
    with pytest.raises(tessary.NoInstrumentError, match="/dev/null"):
        tessary.Controller()


def test_two_controllers_do_not_take_each_others_answers(desk: Desk) -> None:
    with pytest.raises(tessary.NoInstrumentError):
        tessary.Controller(desk.far.path)
    with tessary.Controller(desk.controller.line) as other:  # on the same line they take turns
        desk.answers["version?"] = VERSION
        assert other.version().software == "1.4"
    assert desk.controller.version().software == "1.4"


@pytest.mark.parametrize("server", ["udp://239.0.0.1", "http://239.0.0.1:1", "udp://239.0.0.1:99999"])
def test_what_the_instrument_would_not_use_is_refused(desk: Desk, server: str) -> None:
    with pytest.raises(ValueError, match="write udp://239.0.0.1:1234"):
        desk.controller.set_server(server)
    for call in (lambda: desk.controller.start_play(70000), lambda: desk.controller.ebs_play(256),
                 lambda: desk.controller.set_interface(vlan=5000), lambda: desk.controller.ping("h", count=0),
                 lambda: desk.controller.run_command_shown("two\nlines"), lambda: desk.controller.dab(b"no")):
        with pytest.raises(tessary.UsageError):
            call()
    assert desk.far.heard == []


def test_other_threads_run_while_it_waits(desk: Desk) -> None:
    counted = threading.Event()
    late = threading.Event()

    def answer() -> bytes:
        late.wait(5)  # the answer comes when the other thread has run
        return VERSION

    desk.answers["version?"] = answer
    other = threading.Thread(target=lambda: (counted.set(), late.set()))
    waiting = threading.Timer(0.05, other.start)
    waiting.start()
    assert desk.controller.version().software == "1.4"
    assert counted.is_set()


def test_ctrl_c_ends_the_waiting(desk: Desk) -> None:
    desk.controller.timeout = 60
    main = threading.main_thread().ident
    assert main is not None
    threading.Timer(0.2, lambda: signal.pthread_kill(main, signal.SIGINT)).start()
    began = time.monotonic()
    with pytest.raises(KeyboardInterrupt):
        desk.controller.version()
    assert time.monotonic() - began < 30  # not the time-out's minute
    desk.controller.timeout = 5
    desk.answers["version?"] = VERSION
    assert desk.controller.version().software == "1.4"


def test_the_bare_line(desk: Desk) -> None:
    desk.answers["version?"] = VERSION
    line = desk.controller.line
    line.write(b"version?\n")
    assert line.read_line(5.0) == VERSION
    assert line.read_some(0.0) == b""
    with pytest.raises(tessary.TimedOutError):
        line.read_exactly(3, 0.05)
