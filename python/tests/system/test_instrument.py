"""The virtual instrument, started, steered, looked into and stopped; and what the plug-in makes of it."""

from __future__ import annotations

import os
import pathlib
import signal
import subprocess
import sys
import time

import pytest

import tessary

if os.geteuid() != 0:
    pytest.skip("the virtual instrument needs root", allow_module_level=True)


def processes_with(text: str) -> list[str]:
    found = []
    for entry in pathlib.Path("/proc").glob("[0-9]*/cmdline"):
        try:
            if text in entry.read_bytes().decode(errors="replace"):
                found.append(entry.parent.name)
        except OSError:
            continue
    return found


def test_nothing_is_left_behind() -> None:
    with tessary.Instrument(hardware=True) as instrument:
        folder = instrument.run_dir
        with instrument.controller() as controller:
            assert controller.version().fpga_configured is True
        assert instrument.running and processes_with(str(folder))
    assert not folder.exists()
    assert processes_with(str(folder)) == []
    assert str(folder) not in pathlib.Path("/proc/self/mountinfo").read_text(encoding="utf-8")


@pytest.mark.parametrize("hardware", [False, True])
def test_it_ends_with_the_program_that_started_it(hardware: bool) -> None:
    script = (
        f"import tessary, time\nwith tessary.Instrument(hardware={hardware}) as i:\n"
        "    i.start_program(['sleep', '600'])\n    print(i.run_dir, flush=True)\n    time.sleep(600)"
    )
    with subprocess.Popen([sys.executable, "-c", script], stdout=subprocess.PIPE, text=True) as program:
        assert program.stdout is not None
        folder = program.stdout.readline().strip()
        program.send_signal(signal.SIGKILL)
    deadline = time.monotonic() + 60
    while processes_with(folder) or os.path.exists(folder):
        assert time.monotonic() < deadline, processes_with(folder)
        time.sleep(0.05)


def test_knobs(tmp_path: pathlib.Path) -> None:
    with tessary.Instrument(hardware=True, knobs={"configured": 0}, run_dir=tmp_path) as instrument:
        instrument.set_knobs(export_rate=100000)
        assert instrument.knobs()["export-rate"] == 100000
        with pytest.raises(tessary.UsageError, match="docs/bench.md"):
            instrument.set_knobs(no_such_knob=1)
    assert (tmp_path / "daemon.log").exists()  # its folder was given, so the logs stay


def test_files_of_the_desk_inside(tmp_path: pathlib.Path) -> None:
    (tmp_path / "note").write_text("hello\n", encoding="ascii")
    with tessary.Instrument(files={"/etc/note": tmp_path / "note"}, start_daemon=False, card="0") as instrument:
        assert instrument.run("cat", "/etc/note") == "hello\n"
        assert instrument.inside("/etc/note").read_text(encoding="ascii") == "hello\n"
        assert instrument.daemon_pid() == 0 and "not started" in instrument.daemon_end()
        with pytest.raises(tessary.CommandFailedError, match="status 7"):
            instrument.run("sh", "-c", "exit 7")
        with pytest.raises(tessary.UsageError, match="no FPGA"):
            instrument.set_knobs(configured=0)


def test_what_the_daemon_ran_and_what_failed(instrument: tessary.Instrument, controller: tessary.Controller) -> None:
    assert instrument.commands("nmcli") == []  # the start of the daemon is over and forgotten
    controller.run_command("true")
    shell = [command for command in instrument.commands("sh") if command.by_daemon]
    assert shell[-1].argv == ["sh", "-c", "true"] and shell[-1].kind == "shell"
    instrument.behave("ethtool", tessary.Behaviour(status=1, times=1))
    controller.run_command("ethtool eth0")
    assert len(instrument.commands("ethtool")) == 1
    with pytest.raises(tessary.UsageError, match="is not among the recorded programs"):
        instrument.behave("no-such-program", tessary.Behaviour(status=1))
    outcome = controller.run_command_shown("echo so; exit 5")
    assert (outcome.output, outcome.status) == (b"so\n", 5)


def test_logs(instrument: tessary.Instrument, controller: tessary.Controller, tmp_path: pathlib.Path) -> None:
    controller.version()
    assert '"from_daemon"' in instrument.log("line") or "hex" in instrument.log("line")
    assert "ready" in instrument.log("runner")
    instrument.save_logs(tmp_path)
    assert (tmp_path / "daemon.log").stat().st_size > 0
    with pytest.raises(tessary.UsageError, match="daemon, line"):
        instrument.log("kernel")


def test_a_sender_that_can_not_send_is_told(instrument: tessary.Instrument, tmp_path: pathlib.Path) -> None:
    (tmp_path / "nothing.ts").write_bytes(b"no stream")
    with instrument.send(tmp_path / "nothing.ts") as sender:
        sender.wait(30)
        with pytest.raises(tessary.CommandFailedError, match="nothing.ts"):
            sender.check()


@pytest.mark.stream("demo-t2mi.ts", url="udp+t2mi://239.0.0.3:1236?pid=4096&plp=1")
def test_t2mi(controller: tessary.Controller, stream: tessary.Stream) -> None:
    assert controller.scan(stream.url).services
    packet = controller.t2mi_packet(wait=10)
    assert packet is not None and packet.crc_correct and packet.type_name


def test_recording(controller: tessary.Controller, stream: tessary.Stream) -> None:
    controller.scan(stream.url)
    controller.record()
    deadline = time.monotonic() + 60
    while controller.recording_size() < 3_000_000:
        assert time.monotonic() < deadline
        time.sleep(0.1)
    controller.stop_recording()
    controller.scan_recording()
    table = controller.stream_info()
    while table is None and time.monotonic() < deadline:
        table = controller.stream_info()
    assert table is not None and table.services


def test_arrivals(controller: tessary.Controller, stream: tessary.Stream) -> None:
    assert controller.measure(stream.url, wait=10).present
    statistics = tessary.statistics_of(controller.inter_arrival_times())
    assert statistics.count > 100 and 0 < statistics.median_us < 100_000
    status = controller.ip_status()
    assert status.mtu == 1500 and status.received is not None and status.received.packets > 0
