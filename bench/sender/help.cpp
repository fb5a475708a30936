#include "options.h"

namespace tessary::sender {

std::string helpText()
{
    return R"(usage: tessary-send FILE udp://HOST:PORT|rtp://HOST:PORT [options]

Sends a transport stream file (188-byte or 204-byte packets) as UDP datagrams, or as RTP after RFC 2250, at a constant
rate. A single pass sends the file's bytes unchanged. From a capture (pcap, pcapng) it sends a stream's datagrams again, to
HOST:PORT, unchanged and with their own timing.

Rate (one of these):
  --rate-from-pcr          the file's own mean rate, from its PCRs (default)
  --bitrate RATE           transport stream bits per second: packets as sent (188 or 204 bytes), without RTP, UDP, IP and
                           Ethernet headers; suffix k, M or G, for example 5M
  --datagram-rate N        datagrams per second
                           Each datagram has an absolute due time, so the mean rate holds even when single wake-ups are
                           late: what is due is then sent at once (see longest_burst). More than 200 ms of lag is not
                           caught up.

Datagrams:
  --packets N              packets in a datagram, 1 to 348 (default 7); a pass's end does not cut one, the stream's end does
  --packet-size 188|204    size of a packet as sent (default: as in the file); 204 adds RS(204,188) parity, 188 takes it away
  --ttl N                  time to live, 1 to 255 (default 4)
  --interface NAME|ADDR    interface for multicast (default: the system's choice)
  --multicast-loop         this machine's own receivers get multicast too (default: not)

Captures:
  --flow ADDRESS:PORT      the stream to send, by the address that it went to (default: the only one)
  --keep-vlan              with the VLAN tags that the datagrams had: to a multicast group, by --interface NAME; needs root
                           Rates, packets and faults are the capture's own; --loop sends the same bytes again

How long:
  --loop[=N]               send the file N times, without N until stopped. Continuity counters stay continuous over the seam;
                           PCR, PTS and DTS are moved on by the length of a pass
  --no-restamp             with --loop: send the same bytes in each pass; counters and clocks jump at the seam
  --duration SECONDS       end after this much stream time
  --count N                end after N datagrams
  --stop-file FILE         end when FILE exists (looked for every 100 ms)
                           SIGINT and SIGTERM end it too; the count is printed in any case

Faults:
  --cc-errors-per-second N put in N continuity errors a second, evenly spread: the counter of a PID that carries PES
                           packets (any PID when none does) jumps by 2 once and goes on from there. A check for
                           "previous + 1" finds exactly one error each; no packet is lost. Not with --no-restamp
  --cc-errors-from SECONDS begin with them after so much stream time
  --cc-errors-for SECONDS  and end after so much more

  --json                   print the count as one line of JSON
  --help                   print this text

The count: datagrams, ts_packets, ts_bytes, frame_bits (with 42 bytes of Ethernet, IPv4 and UDP header a datagram, 54
with RTP), seconds, both bit rates, injected_cc_errors, failed_datagrams, passes, max_late_us, longest_burst, not_caught_up_ms.

Exit status: 0 sent (or stopped), 1 sending failed, 2 wrong arguments, 3 the file can not be used.
)";
}

} // namespace tessary::sender
