#pragma once

#include "burstline.h"
#include "instrument.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>

namespace tessary::test {

/// One instrument for all tests of a suite, its daemon started and greeted. After the suite the daemon must
/// still be alive and no sanitizer may have found anything.
class SystemSuite : public testing::Test
{
protected:
    /// Nothing of an earlier test is under way any more. Throws when the daemon has ended, so that the others
    /// do not wait for its answers.
    SystemSuite();

    static void SetUpTestSuite();
    static void TearDownTestSuite();

    /// A fresh daemon on the same instrument; returns when it has greeted and answers.
    static void restartDaemon();

    static Instrument& instrument() { return *s_instrument; }
    static BurstLine& line() { return *s_line; }
    static client::Controller& controller() { return *s_controller; }

    /// Nothing but the answer to "version?" comes: the daemon lives, and what was sent before has no reply.
    static void expectOnlyVersionAnswers();

private:
    static void startTalking();

    static std::unique_ptr<Instrument> s_instrument;
    static std::optional<BurstLine> s_line;
    static std::optional<client::Controller> s_controller;
};

/// "SV: mx8 1.4 FPGA: ...\n".
bool isVersionLine(const std::string& text);

} // namespace tessary::test
