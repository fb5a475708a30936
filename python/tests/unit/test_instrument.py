"""What of the virtual instrument's side needs no virtual instrument: refusals, and programs that run beside."""

from __future__ import annotations

import os
import pathlib
import signal
import sys
import time

import pytest

import tessary
from tessary import places


def test_the_parts_lie_where_the_build_has_them() -> None:
    assert (places.bench_folder() / "instrument").exists()
    assert (places.build_folder() / "python" / "tessary").is_dir()
    assert places.bench_module("run_dir").DEFAULT in tessary.default_port() or "TESSARY_PORT" in os.environ


def test_what_does_not_fit_is_refused() -> None:
    with pytest.raises(tessary.UsageError, match="hardware=True"):
        tessary.Instrument(knobs={"configured": 0})
    instrument = tessary.Instrument()
    assert not instrument.running and "not started" in repr(instrument)
    with pytest.raises(tessary.NoInstrumentError, match="with statement"):
        assert instrument.port
    instrument.stop()  # nothing happens


def test_a_missing_build_is_told(tmp_path: pathlib.Path) -> None:
    with pytest.raises(tessary.NoInstrumentError) as caught:
        tessary.Instrument(build=tmp_path).start()
    if os.geteuid() == 0:
        assert "did not start" in str(caught.value) and "not built" in str(caught.value)
    else:
        assert "sudo" in caught.value.remedy
    assert [path for path in pathlib.Path("/run").glob("tessary-*") if path.stat().st_uid == os.geteuid()
            and (path / "runner.log").exists() and str(tmp_path) in (path / "runner.log").read_text()] == []


def test_a_stream_that_there_is_not_is_told() -> None:
    with pytest.raises(tessary.UsageError, match="make_streams"):
        tessary.Instrument().send("no-such-stream.ts")


def test_a_program_beside_ends_with_its_block(tmp_path: pathlib.Path) -> None:
    with tessary.Background(["sh", "-c", "echo hello; exec sleep 600"], tmp_path / "log") as program:
        while "hello" not in program.output:
            time.sleep(0.01)
        program.check()
        pid = program.pid
    assert not program.running
    with pytest.raises(ProcessLookupError):
        os.kill(pid, 0)


def test_a_program_that_ends_early_is_told(tmp_path: pathlib.Path) -> None:
    program = tessary.Background(["sh", "-c", "echo no such file; exit 3"], tmp_path / "log")
    assert program.wait(30) == 3
    with pytest.raises(tessary.CommandFailedError, match="status 3: no such file"):
        program.check()


def test_a_program_that_will_not_end_is_made_to(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setattr("tessary.background._END_SECONDS", 0.1)
    script = "import signal, time; signal.signal(signal.SIGTERM, signal.SIG_IGN); print('up', flush=True); time.sleep(600)"
    program = tessary.Background([sys.executable, "-c", script], tmp_path / "log")
    while "up" not in program.output:
        time.sleep(0.01)
    assert program.stop() == -signal.SIGKILL
