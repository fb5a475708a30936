"""Faults injected and seen: a cable pulled out, errors in the stream, a program of the instrument's that fails.

    sudo pytest test_fault.py
"""

import time

import pytest

import tessary


def test_a_cable_pulled_out_is_seen(instrument, controller, stream):
    assert controller.measure(stream.url, wait=10).present
    instrument.link(False)
    with pytest.raises(tessary.NoLinkError, match="plug the cable in"):
        while True:  # the instrument looks at its link every few milliseconds
            controller.measurement()
    instrument.link(True)
    instrument.address()  # comes back by DHCP
    assert controller.measure(wait=30).present


@pytest.mark.stream("demo.ts", "--cc-errors-per-second", "3")
def test_errors_in_the_stream_are_counted(controller, stream):
    for period in controller.periods(stream.url):
        if period.total.periods >= 4:
            break
    assert 2 * 4 <= period.total.continuity_errors <= 4 * 4


def test_a_stream_that_stops_is_seen(controller, stream):
    assert controller.measure(stream.url, wait=10).present
    stream.sender.stop()
    stopped = time.monotonic()
    while controller.measurement().present:
        assert time.monotonic() < stopped + 30
    stream.sender.restart()
    assert controller.measure(wait=10).present


def test_a_daemon_that_is_killed_comes_back(instrument, controller):
    instrument.kill_daemon()
    with pytest.raises(tessary.TimedOutError):
        controller.version(timeout=0.5)
    instrument.start_daemon()
    controller.wait_until_ready()
    assert controller.version().software
    assert any(command.argv[0].endswith("amixer") for command in instrument.commands())


def test_a_failing_ping_is_told(instrument, controller):
    instrument.behave("ping", tessary.Behaviour(status=2, stderr="ping: unknown host"))
    with pytest.raises(tessary.BadAnswerError):
        controller.ping("192.168.77.1", count=1)
    assert len(instrument.commands("ping")) == 1
    instrument.behave("ping", None)
    assert controller.ping("192.168.77.1", count=1).received == 1
