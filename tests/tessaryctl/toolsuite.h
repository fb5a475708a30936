#pragma once

#include "instrument.h"

#include <gtest/gtest.h>
#include <memory>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <vector>

namespace tessary::test {

/// tessaryctl against the daemon in an instrument with its hardware. One instrument for all tests of a suite;
/// its daemon has greeted.
class ToolSuite : public testing::Test
{
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void TearDown() override;

    static Instrument& instrument() { return *s_instrument; }
    static QString port() { return instrument().path("controller"); }

    /// Runs the tool on the instrument's port. What it prints with --json must be as its schema says.
    static CommandResult tool(const QStringList& arguments);
    /// The same on another port.
    static CommandResult toolOn(const QString& port, const QStringList& arguments);
    /// With --json; what it printed as an object. The run has to succeed.
    static QJsonObject toolJson(const QStringList& arguments);

    /// Starts it on the instrument's port and lets it run.
    static std::unique_ptr<GuardedProcess> startTool(const QStringList& arguments);

    /// A fresh daemon, which has greeted.
    static void restartDaemon();

    /// Sends a stream over and over to UDP 239.0.0.1 port 1234; returns when so many bytes have arrived at
    /// the instrument.
    static RunningStream sendStream(
        const QString& file, const QStringList& options = {}, qint64 bytes = 100 * 1316);

private:
    static std::unique_ptr<Instrument> s_instrument;
};

/// The elements of a JSON array.
std::vector<QJsonValue> elements(const QJsonValue& array);

/// Path of the tool under test.
QString toolPath();

/// Ends with this status, with this text on standard error, and says nothing but data on standard output.
void expectFailure(const CommandResult& result, int status, const QByteArray& words);

} // namespace tessary::test
