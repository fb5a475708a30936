"""A controller's regression test: the services of a stream are found, and its programs are played as they should be.

    sudo pytest test_regression.py                                                          # with a virtual instrument
    pytest test_regression.py --tessary-port /dev/ttyUSB0 --tessary-stream udp://239.0.0.1:1234     # with a real one
"""

import pytest

import tessary

PROGRAMS = {1: "Café Tessary", 2: "Tessary Grün", 3: "Tessary Blå"}


@pytest.fixture
def services(controller, stream):
    """The services of the stream, scanned."""
    return {service.id: service for service in controller.scan(stream.url).services}


def test_the_instrument_is_there(controller):
    assert controller.version().software
    assert controller.interface() is not None


def test_the_services_are_found(services):
    assert {number: service.name for number, service in services.items()} == PROGRAMS
    assert not any(service.scrambled for service in services.values())


@pytest.mark.parametrize("number", PROGRAMS)
def test_a_program_is_played(controller, services, number):
    played = controller.play(services[number].name, wait=20)
    assert played.number == number
    assert played.presentation.picture.state == "decoded", played.presentation.text
    assert played.presentation.sound.state == "decoded", played.presentation.text
    assert controller.player_status() == "running"


def test_the_network_is_known(controller, services):
    network = controller.network(wait=15)
    assert network is not None and network.name


def test_a_program_that_there_is_not_is_told(controller, services):
    with pytest.raises(tessary.NothingError, match="no program 77"):
        controller.play(77, wait=1)
