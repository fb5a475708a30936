"""A VLAN device made by `interface=`, and the measurement inside it against what was sent."""

import time

import tessary

from . import tagged
from .machine import require, tell

FLOW = tagged.Flow(vlan=100, group="239.0.0.9", port=1240, bit_rate=5_000_000)
_SERVER = f"udp://{FLOW.group}:{FLOW.port}"
_SECONDS = 60
_ERROR_TIMES = [10 + 1.7 * number for number in range(24)]  # within periods that count: neither the first nor the last seconds
_DEVICE = f"eth0.{FLOW.vlan}"


def vlan(machine, options):
    """Services, bit rate, continuity errors and inter-arrival times in the VLAN."""
    capture = options.out / "tagged.pcap"
    tagged.write(capture, options.streams / "demo.ts", FLOW, _SECONDS, _ERROR_TIMES)
    with machine.controller() as controller:
        controller.set_interface("192.168.78.2/24", vlan=FLOW.vlan)
        try:
            _is_there(machine)
            _scan(machine, controller, capture)
            _measure(machine, controller, capture, options)
        finally:
            controller.set_interface()


def _is_there(machine):
    device = machine.shell(f"for i in $(seq 50); do ip -d link show {_DEVICE} 2>/dev/null | grep -q LOWER_UP && break; "
                           f"sleep 0.2; done; ip -d -brief address show {_DEVICE}; ip -d link show {_DEVICE}")
    require(f"802.1Q id {FLOW.vlan}" in device and "192.168.78.2/24" in device, f"{_DEVICE}: {device}")


def _scan(machine, controller, capture):
    sender = machine.instrument.send(capture, _SERVER, "--keep-vlan")
    try:
        services = [service.name for service in controller.scan(_SERVER, wait=60).services]
    finally:
        sender.stop()
    tell(f"services in {_DEVICE}: {', '.join(services)}")
    require(len(services) == 3, "three services were sent")


def _measure(machine, controller, capture, options):
    """One pass of the capture, from silence to silence, so that every error is in a period."""
    at_uplink = options.out / "uplink.pcap"
    watcher = machine.instrument.start_program(
        ["tcpdump", "-Z", "root", "-i", "uplink", "--immediate-mode", "-U", "-w", at_uplink, f"vlan {FLOW.vlan} and udp"],
        sender=True)
    machine.wait_until(lambda: "listening on" in watcher.output, "tcpdump did not begin to listen", 30)
    periods, times = _one_pass(machine, controller, capture)
    watcher.stop()
    rates = [period.figures.bit_rate for period in periods[2:-1]]  # whole seconds of the stream
    total = periods[-1].total
    sent_rate = FLOW.bit_rate * (tagged.PAYLOAD + tagged.HEADERS) // tagged.PAYLOAD
    sent, measured = tessary.statistics_of(tagged.gaps(at_uplink)), tessary.statistics_of(times)
    tell(f"sent {sent_rate} bit/s; {len(rates)} periods measured {min(rates)} to {max(rates)}, mean {sum(rates) // len(rates)}")
    tell(f"sent {len(_ERROR_TIMES)} continuity errors; counted {total.continuity_errors}{', no period missed' if total.exact else ''}")
    for name, figures in (("at the cable's other end", sent), (f"in {_DEVICE}", measured)):
        tell(f"inter-arrival times {name}: median {figures.median_us} us, 95 % {figures.percentile_95_us} us, "
             f"99 % {figures.percentile_99_us} us, mean {figures.mean_us:.0f} us, of {figures.count}")
    require(abs(sum(rates) / len(rates) - sent_rate) < sent_rate / 100, "the mean bit rate differs by more than 1 %")
    require(total.exact and total.continuity_errors == len(_ERROR_TIMES), "other errors were counted than sent")
    require(abs(measured.mean_us - sent.mean_us) < sent.mean_us / 20, "the mean inter-arrival time differs by more than 5 %")


def _one_pass(machine, controller, capture):
    """(periods in which something came, the inter-arrival times of the middle)"""
    periods, times, sender = [], [], None
    began = time.monotonic()
    for period in controller.periods(_SERVER):
        require(time.monotonic() - began < 5 * _SECONDS, f"the stream did not come and go: {len(periods)} periods")
        if period.figures.present:
            periods.append(period)
        elif sender is None:
            sender = machine.instrument.send(capture, _SERVER, "--keep-vlan", loop=False)
        elif periods:
            break
        if len(periods) == _SECONDS // 2 and not times:
            times = controller.inter_arrival_times()
    return periods, times
