"""Fixtures for pytest: `instrument`, `controller` and `stream`. Loaded by itself once the package is installed.

    def test_services(controller, stream):
        table = controller.scan(stream.url)
        assert [service.name for service in table.services] == ["Café Tessary", "Tessary Grün", "Tessary Blå"]

With --tessary-port the same tests run with a real instrument, and --tessary-stream says what is on its Ethernet.
"""

from __future__ import annotations

import pathlib
from collections.abc import Iterator

import pytest

from .controller import Controller
from .errors import NoInstrumentError
from .instrument import DEFAULT_SERVER, Instrument, Stream
from .places import make_streams, stream_folder

_SHOWN_LINES = 20  # of the logs, beside a test that failed


def pytest_addoption(parser: pytest.Parser) -> None:
    """The options of this plugin."""
    group = parser.getgroup("tessary", "tessary: measuring instrument")
    group.addoption("--tessary-port", metavar="PORT", help="a real instrument's serial port instead of a virtual instrument")
    group.addoption("--tessary-stream", metavar="URL", help="with --tessary-port: what arrives at its Ethernet")
    group.addoption("--tessary-hardware", action="store_true", help="virtual instruments have FPGA and DAB receiver, too")
    group.addoption("--tessary-logs", metavar="DIR", help="keep the virtual instrument's logs there")


def pytest_configure(config: pytest.Config) -> None:
    """The markers of this plugin."""
    config.addinivalue_line(
        "markers", "stream(file, url=..., *options): what the fixture `stream` sends, and where (default: demo.ts)"
    )


@pytest.fixture(scope="session")
def _tessary_instrument(request: pytest.FixtureRequest) -> Iterator[Instrument]:
    """One virtual instrument for all tests of the run."""
    config = request.config
    try:
        made = Instrument(hardware=config.getoption("--tessary-hardware"))
        made.start()
    except NoInstrumentError as error:
        pytest.skip(str(error))
    try:
        yield made
    finally:
        if folder := config.getoption("--tessary-logs"):
            made.save_logs(folder)
        made.stop()


@pytest.fixture
def instrument(request: pytest.FixtureRequest) -> Iterator[Instrument]:
    """A virtual instrument. It is the same for all tests of a run, and each finds it with the cable in, its daemon running, all
    programs real, its command log empty. With --tessary-port tests that need one are skipped."""
    if request.config.getoption("--tessary-port"):
        pytest.skip("needs a virtual instrument, and --tessary-port names a real one")
    shared: Instrument = request.getfixturevalue("_tessary_instrument")
    shared.put_right()
    yield shared
    if getattr(request.node, "tessary_failed", False):
        for name in ("daemon", "commands"):
            lines = shared.log(name).splitlines()[-_SHOWN_LINES:]
            request.node.add_report_section("teardown", f"instrument's {name} log", "\n".join(lines))


@pytest.hookimpl(hookwrapper=True)  # type: ignore[misc]  # pytest 7.2 has no type for it
def pytest_runtest_makereport(item: pytest.Item, call: pytest.CallInfo[None]) -> Iterator[None]:
    """Notes a failure, so that the logs are shown beside it."""
    if call.when == "call" and call.excinfo is not None:
        item.tessary_failed = True  # type: ignore[attr-defined]
    yield


@pytest.fixture
def controller(request: pytest.FixtureRequest) -> Iterator[Controller]:
    """A controller on the virtual instrument's line, or on that of --tessary-port; the instrument answers."""
    port = request.config.getoption("--tessary-port")
    if port:
        made = Controller(port)
        made.wait_until_ready()
    else:
        virtual: Instrument = request.getfixturevalue("instrument")
        made = virtual.controller()
    with made:
        yield made


@pytest.fixture
def stream(request: pytest.FixtureRequest) -> Iterator[Stream]:
    """A stream on the instrument's Ethernet: demo.ts at udp://239.0.0.1:1234, or what the marker `stream` says."""
    config = request.config
    if config.getoption("--tessary-port"):
        url = config.getoption("--tessary-stream")
        if not url:
            pytest.skip("--tessary-stream does not say what arrives at the real instrument's Ethernet")
        yield Stream(url, None, None)
        return
    marker = request.node.get_closest_marker("stream")
    name, *options = marker.args if marker else ("demo.ts",)
    url = marker.kwargs.get("url", DEFAULT_SERVER) if marker else DEFAULT_SERVER
    virtual: Instrument = request.getfixturevalue("instrument")
    file = next((path for path in (pathlib.Path(name), stream_folder() / name) if path.exists()), None)
    file = file or make_streams() / name
    with virtual.send(file, url, *options) as sender:
        yield Stream(url, file, sender)
        sender.check()
