#pragma once

#include "client/ebs.h"
#include "client/instrumentsettings.h"
#include "client/measurement.h"
#include "client/psi/bytes.h"
#include "client/requests.h"
#include "client/serialline.h"

#include <algorithm>
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

/// How a command ended that the instrument's shell ran.
struct CommandOutcome
{
    std::string output; ///< standard output and standard error, in the order in which they came
    int status = 0; ///< exit status; of one that a signal ended 128 and the signal's number
};

/// How long to wait. The daemon handles one command at a time and some block it for seconds, hence the long
/// waits.
struct Patience
{
    Milliseconds firstByte{8000}; ///< for an answer that always comes
    Milliseconds absent{1500}; ///< for a DAB answer, which may not come
    Milliseconds blocked{32000}; ///< for the daemon to end what keeps it from answering

    /// With `timeout` for everything. An answer that may not come is followed by the question whether the
    /// daemon lives, so the wait for it can be short.
    static Patience of(Milliseconds timeout)
    {
        return {timeout, std::min(Milliseconds(300), timeout), timeout};
    }
};

/// Is told what a Controller learns of the instrument beside the answers. Borrowed by it.
class CommandWatcher
{
public:
    CommandWatcher() = default;
    virtual ~CommandWatcher() = default;
    CommandWatcher(const CommandWatcher&) = delete;
    CommandWatcher& operator=(const CommandWatcher&) = delete;

    /// `command` is the word with its argument. Not `surely` when waiting for its end failed.
    virtual void carriedOut(std::string_view command, bool surely) = 0;
    /// The greeting was on the line: the daemon has started since the line was read last.
    virtual void greeted() = 0;
};

/// The controller of the instrument: sends commands over a line and reads the answers. Used from one thread;
/// throws LineError, and AnswerError where an answer is not what the protocol says.
///
/// Of several commands that lie in the daemon's receive buffer with only line feeds between them the daemon
/// takes the first one and drops the others. So a command goes out when nothing before it is unread or
/// unanswered, and one whose answer does not tell its own end (or that has none) carries an EndMark behind a
/// NUL, in the same burst: it can not be dropped, and its answer tells that the command has been carried out.
/// There is never more than one question open.
class Controller
{
public:
    static constexpr const char* greeting = "HELLO !\r\n";

    /// `line` is borrowed and must outlive the controller.
    explicit Controller(SerialLine& line, Patience patience = {}, CommandWatcher* watcher = nullptr);

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

    /// How the stream arrives; starts the measurement and stops playing. Nothing without Ethernet link.
    std::optional<Measurement> measurement();
    /// Microseconds between the last frames, at most 1024, oldest first; otherwise as measurement().
    std::optional<std::vector<std::int64_t>> interArrivalTimes();

    /// Nothing without Ethernet link.
    std::optional<InterfaceAddress> interfaceAddress();
    void setInterface(const InterfaceSettings& settings);
    /// What the instrument's own tools say of eth0; empty when they say nothing of its speed.
    std::string ipStatus();
    /// What "ping" with these arguments prints. Give a count ("-c 3 192.168.1.1"): without, it never ends.
    std::string ping(const std::string& arguments);
    /// Runs a shell command on the instrument and returns when it has ended.
    void runCommand(const std::string& command);
    /// The same with what it told: the shell writes its output and its status to the instrument's end of this
    /// line, the status behind a tag that is new each time. `command` is one line.
    CommandOutcome runCommandShown(const std::string& command);

    void record();
    /// Ends the recording, and with it the current source.
    void stopRecording();
    /// Bytes of the recording; 0 when there is none.
    std::uint64_t recordingSize();
    /// Sends the recording to the FPGA; returns when that has begun. settle() waits for its end.
    void exportRecording();

    void startDab();
    void stopDab();
    /// `block`: at most 117 bytes that begin with "dab". The receiver's 117 bytes; empty when DAB mode is off
    /// or the receiver can not be reached.
    Bytes dab(const std::string& block);

    void ebsScan();
    /// Plays a service by its index, counted from 1.
    void ebsPlay(int index);
    std::string ebsServiceName(int index);
    EbsStatus ebsStatus();
    EbsDecoderInfo ebsDecoderInfo();
    /// `level` is two hexadecimal digits on the line; the daemon acknowledges it and leaves the sound as it
    /// is.
    void ebsAudioLevel(int level);
    std::string ebsVersion();

    /// Sends a command as it is, word and argument and a line feed, without waiting for anything.
    void send(const Request& request, std::string_view argument = {});
    /// Waits until the daemon has handled everything sent so far, by this program or an earlier one. Returns
    /// what came before: the late answer to an earlier query.
    std::string settle();
    /// Sends and reads the answer as `request` says. A query during which the daemon restarts is asked again;
    /// a restart during any other command is a LineError.
    std::string ask(const Request& request, std::string_view argument = {});

private:
    std::string askUntilAnswered(const Request& request, std::string_view argument);
    /// Nothing when the daemon restarted meanwhile.
    std::optional<std::string> askOnce(const Request& request, std::string_view argument);
    /// Tells whether there is a greeting in it, and passes that on.
    bool noteGreeting(const std::string& received);
    /// Everything sent before has been carried out, and nothing is unread.
    void getInStep();
    /// Sends `command` and an EndMark; what came before `ending` and the mark's answer.
    std::string askMarked(const std::string& command, const std::string& ending = {});
    std::string readUntil(const std::string& ending);
    std::string readAnswer(const Request& request);
    std::string readValues(std::size_t size);
    /// The rest of an answer that began with `received` and has `size` bytes in all.
    std::string complete(std::string received, std::size_t size);
    std::string askFixed(const Request& request, std::string_view argument, std::string_view expected);

    SerialLine& m_line;
    Patience m_patience;
    CommandWatcher* m_watcher;
    bool m_inStep = false; ///< everything sent has been carried out, and its answers have been read
};

} // namespace tessary::client
