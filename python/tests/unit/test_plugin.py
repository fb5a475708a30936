"""The pytest plug-in, with a stand-in for a real instrument."""

from __future__ import annotations

import pytest
from conftest import Desk

pytest_plugins = ["pytester"]


def run(pytester: pytest.Pytester, *options: str) -> pytest.RunResult:
    return pytester.runpytest_subprocess("-q", "-p", "no:cacheprovider", "-rs", *options)


def test_a_real_instrument_takes_the_virtual_ones_place(pytester: pytest.Pytester, desk: Desk) -> None:
    desk.controller.close()
    desk.answers["version?"] = b"SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=OK\n"
    pytester.makepyfile(
        """
        def test_version(controller):
            assert controller.version().software == "1.4"

        def test_stream(stream):
            assert (stream.url, stream.sender) == ("udp://239.0.0.9:1234", None)

        def test_link(instrument):
            instrument.link(False)
        """
    )
    result = run(pytester, "--tessary-port", desk.far.path, "--tessary-stream", "udp://239.0.0.9:1234")
    result.assert_outcomes(passed=2, skipped=1)
    result.stdout.fnmatch_lines(["*names a real one*"])
    run(pytester, "--tessary-port", desk.far.path).assert_outcomes(passed=1, skipped=2)


def test_a_missing_port_is_told(pytester: pytest.Pytester) -> None:
    pytester.makepyfile("def test_version(controller): pass")
    result = run(pytester, "--tessary-port", "/dev/no-such-port")
    result.assert_outcomes(errors=1)
    result.stdout.fnmatch_lines(["*NoInstrumentError*No such file*"])
