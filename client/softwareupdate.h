#pragma once

#include "client/psi/bytes.h"
#include "client/serialline.h"

#include <functional>
#include <optional>
#include <string>

namespace tessary::client {

/// Sends a package to the instrument and finds out what became of it. The daemon says only "waiting update"
/// and "update ok"; every failure is silent. They are told apart by what the line shows after the transfer: a
/// daemon that answers "version?" without having said "update ok" has given up, and when it began to answer
/// tells why. Used from one thread; throws LineError when the line itself fails.
class SoftwareUpdate
{
public:
    enum class Result {
        Installed, ///< "update ok"
        NotStarted, ///< no "waiting update" came, but the daemon answers other commands
        Refused, ///< answered again at once: the checksum did not match or the file could not be written
        BytesLost, ///< answered again after its own time-out: it had waited for the rest of the package
        Restarted, ///< greeted in the middle
        Stopped, ///< Settings::stop was true before the package was wholly sent
        Unconfirmed, ///< neither "update ok" nor any other sign of life in time
    };

    /// What a result other than Installed means, and what to do.
    struct Explanation
    {
        std::string cause;
        std::string remedy;
    };

    struct Settings
    {
        /// Never faster than this: what 115200 baud carry. Then the progress is the line's, not that of a
        /// buffer on the way.
        std::size_t bytesPerSecond = 11520;
        Milliseconds answer{10000}; ///< for "waiting update" and for room on the line
        Milliseconds installation{180000}; ///< from the checksum to "update ok"
        /// Asked while the package is sent: true ends that. The daemon then waits daemonPatience for the
        /// rest, and takes whatever it reads meanwhile for it.
        std::function<bool()> stop;
    };

    /// How long the daemon waits between two bytes of a package.
    static constexpr Milliseconds daemonPatience{10000};

    /// Called with the bytes sent so far, at least ten times a second while bytes move.
    using Progress = std::function<void(std::size_t sent)>;

    /// `line` is borrowed.
    SoftwareUpdate(SerialLine& line, Settings settings)
        : m_line(line)
        , m_settings(settings)
    {
    }

    /// `package` is at most 2^31 - 1 bytes, as the daemon's size is signed.
    Result run(const Bytes& package, const Progress& progress);

    /// What goes for every remedy.
    static constexpr const char* offlineRemark =
        "the instrument's networking is off since the update began; it "
        "comes back when the daemon starts again";

    static Explanation explain(Result result, const Settings& settings);

    /// What came on the line instead of an answer, for a message.
    const std::string& unexpected() const { return m_received; }

private:
    using Clock = std::chrono::steady_clock;

    bool begin(std::size_t size);
    /// Nothing when all has been sent, else how the update ended.
    std::optional<Result> sendPackage(const Bytes& package, const Progress& progress);
    void sendChecksum(const Bytes& package);
    Result awaitVerdict();
    bool sees(const char* text) const { return m_received.find(text) != std::string::npos; }

    SerialLine& m_line;
    Settings m_settings;
    std::string m_received;
};

} // namespace tessary::client
