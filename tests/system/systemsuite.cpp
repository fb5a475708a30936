#include "systemsuite.h"

#include "daemonlog.h"

#include <stdexcept>
#include <thread>

namespace tessary::test {

using client::Milliseconds;

std::unique_ptr<Instrument> SystemSuite::s_instrument;
std::optional<client::SerialLine> SystemSuite::s_line;
std::optional<client::Controller> SystemSuite::s_controller;

SystemSuite::SystemSuite()
{
    if (s_instrument == nullptr || s_instrument->daemonPid() == 0)
        throw std::runtime_error("the daemon does not run any more");
}

void SystemSuite::SetUpTestSuite()
{
    s_instrument = std::make_unique<Instrument>();
    s_line.emplace(s_instrument->openController());
    client::Patience patience;
    if (Instrument::daemonIsSlow())
        patience = {patience.firstByte * 2, patience.quiet * 3, patience.absent * 3};
    s_controller.emplace(*s_line, patience);
    s_controller->waitForGreeting(Milliseconds(patiently(30000)));
    s_controller->settle();
}

void SystemSuite::TearDownTestSuite()
{
    if (s_instrument == nullptr)
        return;
    EXPECT_NE(s_instrument->daemonPid(), 0) << "the daemon has ended; its last words:\n"
                                            << s_instrument->daemonLog().right(3000).constData();
    const QByteArray finding = sanitizerFinding(s_instrument->daemonLog());
    EXPECT_TRUE(finding.isEmpty()) << finding.constData();
    s_controller.reset();
    s_line.reset();
    s_instrument.reset();
}

void SystemSuite::restartDaemon()
{
    s_line->discardInput();
    s_instrument->daemon("restart");
    s_controller->waitForGreeting(Milliseconds(patiently(30000)));
    s_controller->settle();
}

bool isVersionLine(const std::string& text)
{
    return text.rfind("SV: mx8 1.4 FPGA: ", 0) == 0 && text.find('\n') == text.size() - 1;
}

std::string SystemSuite::everythingUntilVersion()
{
    std::string received;
    const auto answered = [&received] {
        const std::size_t mark = received.find("SV: mx8");
        return mark != std::string::npos && received.find('\n', mark) != std::string::npos;
    };
    for (int attempt = 0; attempt < 20 && !answered(); ++attempt) {
        std::this_thread::sleep_for(
            Milliseconds(25)); // several polls: what was sent before is a burst of its own
        s_controller->send(client::request::version);
        received += s_line->readUntilSilence(Milliseconds(1000), Milliseconds(patiently(60)));
    }
    return received;
}

void SystemSuite::expectOnlyVersionAnswers()
{
    const std::string received = everythingUntilVersion();
    // The question is asked again when it was swallowed by a burst before it; then it may be answered more
    // than once.
    const std::string first = received.substr(0, received.find('\n') + 1);
    EXPECT_TRUE(isVersionLine(first)) << "received: " << received;
    for (std::size_t at = 0; !first.empty() && at < received.size(); at += first.size())
        EXPECT_EQ(received.substr(at, first.size()), first);
}

} // namespace tessary::test
