#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace tessary::sender {

/// The command line can not be used; what() names the argument and what is allowed.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The command line of tessary-send.
struct Options
{
    std::string file;
    std::string host;
    std::uint16_t port = 0;
    bool rtp = false;
    bool multicastLoop = false;
    int ttl = 4;

    double bitRate = 0; ///< transport stream bits per second; 0: from the file's PCRs
    double datagramRate = 0; ///< datagrams per second instead of bitRate; 0: not given
    std::size_t packetsPerDatagram = 7;
    std::size_t packetSize = 0; ///< bytes as sent, 188 or 204; 0: as in the file
    std::string interface; ///< name or IPv4 address for multicast; empty: the system's choice

    std::string flow; ///< of a capture: "ADDRESS:PORT"; empty: the only one

    std::uint64_t passes = 1; ///< 0: without end
    std::int64_t durationNs = 0; ///< stream time; 0: no limit
    std::uint64_t datagramLimit = 0; ///< 0: no limit
    std::string stopFile; ///< sending ends when this file is there; empty: none
    std::int64_t errorsFromNs = 0; ///< stream time
    std::int64_t errorsForNs = 0; ///< 0: to the end
    unsigned errorsPerSecond = 0;
    bool restamp = true; ///< from the second pass on

    bool keepVlan = false; ///< of a capture: with the datagrams' VLAN tags
    bool packetsAreSet = false; ///< packetsPerDatagram, by the command line
    bool json = false;
    bool help = false;
};

/// Reads main's arguments. Throws UsageError.
Options parseOptions(int argc, const char* const* argv);

/// Throws UsageError for what can not be asked of a capture, or only of one.
void checkForCapture(const Options& options, bool isCapture);

/// A number with an optional decimal suffix k, M or G: "1.5M" is 1,500,000. Throws UsageError naming `what`
/// unless it is greater than 0.
double parseRate(const std::string& text, const std::string& what);

/// The text of --help.
std::string helpText();

} // namespace tessary::sender
