#include "client/softwareupdate.h"

#include "client/lineerror.h"
#include "client/psi/crc32.h"

#include <algorithm>
#include <thread>

namespace tessary::client {

namespace {

constexpr const char* waitingLine = "waiting update\n";
constexpr const char* doneLine = "update ok\n";
constexpr const char* versionMark = "SV: ";
constexpr const char* greetingMark = "HELLO !";
constexpr Milliseconds slice{50}; // of sending; progress is told after each

// A question that the daemon takes for package bytes starts its patience, counted in whole seconds of its own
// clock, again: there is more than that between two questions.
constexpr Milliseconds firstQuestion{2000};
constexpr Milliseconds betweenQuestions{13000};

} // namespace

SoftwareUpdate::Explanation SoftwareUpdate::explain(Result result, const Settings& settings)
{
    const std::string again = std::string("send it again; ") + offlineRemark;
    switch (result) {
    case Result::NotStarted:
        return {"the instrument answers, but did not say \"waiting update\": it did not take up the update",
            "try again; if it stays so, the instrument's software does not know the command"};
    case Result::Refused:
        return {"the instrument refused the package: its checksum did not match, or there is no room for the "
                "file in /tmp",
            again};
    case Result::BytesLost:
        return {"bytes were lost on the line: the instrument waited for the rest of the package and gave up",
            "check the cable, and that no other program uses the port; " + again};
    case Result::Restarted:
        return {"the instrument restarted during the update; nothing was installed",
            "check its power supply, then send the package again"};
    case Result::Stopped:
        return {"the update was ended before the package was wholly sent; nothing was installed",
            std::string("the instrument gives it up by itself; ") + offlineRemark};
    case Result::Unconfirmed:
    case Result::Installed:
        break;
    }
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(settings.installation).count();
    return {"everything was sent, but no \"update ok\" came within " + std::to_string(seconds) + " s",
        "wait, then ask for the version; a slow installation needs a longer time-out"};
}

SoftwareUpdate::Result SoftwareUpdate::run(const Bytes& package, const Progress& progress)
{
    m_received.clear();
    m_line.discardInput();
    if (!begin(package.size()))
        return sees(greetingMark) ? Result::Restarted : Result::NotStarted;
    if (const auto ended = sendPackage(package, progress))
        return *ended;
    sendChecksum(package);
    return awaitVerdict();
}

bool SoftwareUpdate::begin(std::size_t size)
{
    m_line.write("update " + std::to_string(size) + "\n");
    const auto deadline = Clock::now() + m_settings.answer;
    while (!sees(waitingLine) && !sees(greetingMark) && Clock::now() < deadline)
        m_received += m_line.readSome(Milliseconds(100));
    if (sees(waitingLine) || sees(greetingMark))
        return sees(waitingLine) && !sees(greetingMark);
    // A daemon that is there but did not begin is one thing, a dead line another.
    m_line.write("version?\n");
    m_line.readLine(m_settings.answer);
    return false;
}

std::optional<SoftwareUpdate::Result> SoftwareUpdate::sendPackage(
    const Bytes& package, const Progress& progress)
{
    const auto* bytes = reinterpret_cast<const char*>(package.data());
    const auto start = Clock::now();
    m_received.clear();
    std::size_t sent = 0;
    progress(0);
    while (sent < package.size()) {
        const auto passed = std::chrono::duration_cast<Milliseconds>(Clock::now() - start) + slice;
        const std::size_t due = m_settings.bytesPerSecond * static_cast<std::size_t>(passed.count()) / 1000;
        if (due > sent) {
            // A late start of a slice is not made up for with more than two slices at once.
            const std::size_t most = std::max<std::size_t>(m_settings.bytesPerSecond / 10, 1);
            const std::size_t count = std::min({due - sent, package.size() - sent, most});
            m_line.write({bytes + sent, count}, m_settings.answer);
            sent += count;
            progress(sent);
        }
        m_received +=
            m_line.readSome(due > sent ? Milliseconds(0) : slice); // also notices a line that hangs up
        if (sees(greetingMark))
            return Result::Restarted;
        if (sent < package.size() && m_settings.stop && m_settings.stop())
            return Result::Stopped;
    }
    return std::nullopt;
}

void SoftwareUpdate::sendChecksum(const Bytes& package)
{
    const std::uint32_t crc = crc32Mpeg(package.data(), package.size());
    std::string bytes;
    for (unsigned shift = 0; shift < 32; shift += 8)
        bytes.push_back(static_cast<char>(crc >> shift & 0xFFU));
    // The daemon takes the four bytes in one read, so they must not come on the heels of the package.
    m_line.drain();
    std::this_thread::sleep_for(Milliseconds(200));
    m_line.write(bytes);
}

SoftwareUpdate::Result SoftwareUpdate::awaitVerdict()
{
    const auto start = Clock::now();
    auto question = start + firstQuestion;
    while (Clock::now() - start < m_settings.installation) {
        m_received += m_line.readSome(Milliseconds(100));
        if (sees(doneLine))
            return Result::Installed;
        if (sees(greetingMark))
            return Result::Restarted;
        if (sees(versionMark))
            return Clock::now() - start < daemonPatience ? Result::Refused : Result::BytesLost;
        if (Clock::now() >= question) {
            m_line.write("version?\n");
            question += betweenQuestions;
        }
    }
    return Result::Unconfirmed;
}

} // namespace tessary::client
