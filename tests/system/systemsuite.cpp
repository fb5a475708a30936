#include "systemsuite.h"

#include "daemonlog.h"

#include <stdexcept>

namespace tessary::test {

std::unique_ptr<Instrument> SystemSuite::s_instrument;
std::optional<BurstLine> SystemSuite::s_line;
std::optional<client::Controller> SystemSuite::s_controller;

SystemSuite::SystemSuite()
{
    if (s_instrument == nullptr || s_instrument->daemonPid() == 0)
        throw std::runtime_error("the daemon does not run any more");
    line().finish();
}

void SystemSuite::SetUpTestSuite()
{
    s_instrument = std::make_unique<Instrument>();
    s_line.emplace(*s_instrument);
    s_controller.emplace(*s_line, controllerPatience);
    startTalking();
}

void SystemSuite::startTalking()
{
    s_controller->waitForGreeting(BurstLine::patience);
    s_line->finish();
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
    startTalking();
}

bool isVersionLine(const std::string& text)
{
    return text.rfind("SV: mx8 " TESSARY_VERSION " FPGA: ", 0) == 0 && text.find('\n') == text.size() - 1;
}

void SystemSuite::expectOnlyVersionAnswers()
{
    const std::string received = line().ask("version?\n");
    EXPECT_TRUE(isVersionLine(received)) << "received: " << received;
}

} // namespace tessary::test
