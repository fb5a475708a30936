#pragma once

#include "client/bytes.h"
#include "client/requests.h"
#include "client/serialline.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessary::client {

/// The stream that the instrument receives over IP.
struct StreamServer
{
    enum class Protocol { Udp, Rtp, UdpT2mi, RtpT2mi };

    Protocol protocol = Protocol::Udp;
    std::string address; ///< IPv4, multicast group or unicast
    std::uint16_t port = 0;
    std::uint16_t t2miPid = 0; ///< PID that carries T2-MI; for the T2-MI protocols only
    std::uint8_t t2miPlpId = 0; ///< physical layer pipe to extract; for the T2-MI protocols only

    /// The argument of "server=", without line feed: "UDP 239.0.0.1 1234", "RTP_T2MI 239.0.0.2 5000 4096 0".
    std::string text() const;
};

/// How long to wait. The daemon handles one command at a time and some block it for seconds, hence the long
/// first wait.
struct Patience
{
    Milliseconds firstByte{8000}; ///< for an answer to begin
    Milliseconds quiet{300}; ///< silence that ends an answer without terminator; above a gap of the daemon's
                             ///< byte-by-byte writes
    Milliseconds absent{1500}; ///< after which a query that may be silent counts as unanswered
};

/// The controller of the instrument: sends commands over a line and reads the answers. Used from one thread;
/// throws LineError.
///
/// Of several commands that lie in the daemon's receive buffer with only line feeds between them the daemon
/// takes the first one and drops the others. A command without answer is therefore followed by a query, and
/// the next command goes out when that is answered.
class Controller
{
public:
    static constexpr const char* greeting = "HELLO !\r\n";

    /// `line` is borrowed and must outlive the controller.
    explicit Controller(SerialLine& line, Patience patience = {});

    /// Waits for the greeting. What came before it (of an earlier run of the daemon) is dropped.
    void waitForGreeting(Milliseconds timeout);

    /// "SV: mx8 1.4 FPGA: ...", without the line feed.
    std::string version();

    void setServer(const StreamServer& server);
    void scan();
    void scanRecording();
    void play(int programNumber);
    void sendStream();

    /// The SDT sections as received, without the "<SDT>" before them; empty when there are none yet.
    Bytes streamInfo();
    /// The NIT's sections in order of section_number; empty when there are none yet.
    Bytes networkInformation();
    /// The PMT of the program that was played last; empty when there is none.
    Bytes programMap();
    /// "running" or "stopped"; empty when no source has been selected yet.
    std::string playerStatus();
    /// The T2-MI extractor's last frame; empty without one.
    Bytes t2miFrame();

    /// Sends a command as it is, word and argument and a line feed, without waiting for anything.
    void send(const Request& request, std::string_view argument = {});
    /// Waits until the daemon has handled everything sent so far: asks for its version until it answers.
    void settle();
    /// Sends and reads the answer as `request` says.
    std::string ask(const Request& request, std::string_view argument = {});

private:
    std::string readAnswer(const Request& request);
    std::string readStatusWord();
    std::string readSection();

    SerialLine& m_line;
    Patience m_patience;
};

} // namespace tessary::client
