#pragma once

#include "client/serialline.h"
#include "instrument.h"

#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>

namespace tessary::test {

/// An instrument with its hardware for all tests of a suite: FPGA, bitstream file, DAB receiver program,
/// memory card. Each test starts the daemon itself, after it has prepared the hardware; behind each test the
/// daemon must have been alive and no sanitizer may have found anything.
class HardwareSuite : public testing::Test
{
protected:
    static void SetUpTestSuite();
    static void TearDownTestSuite();
    void SetUp() override;
    void TearDown() override;

    static Instrument& instrument() { return *s_instrument; }
    client::SerialLine& line() { return *m_line; }

    /// Starts the daemon and waits until it is ready for commands.
    void startDaemon();
    /// Sends a command line and returns everything that comes until the line has been silent; waits for the
    /// first byte at most `firstMs`.
    std::string ask(const std::string& command, int firstMs = 1500, int quietMs = 150);
    /// The answer to "version?", which also shows that the daemon has done everything before it.
    std::string version(int timeoutMs = 10000);
    /// What the daemon has logged since it was started.
    QByteArray log() const { return instrument().daemonLog().mid(m_logStart); }
    bool logged(const QByteArray& text, int timeoutMs = 2000) const;
    /// The command lines that the daemon gave to its shell since it was started.
    QStringList shellCommands() const;

    /// A fault for the FPGA, such as "spi-fail=3".
    static void setKnob(const QByteArray& knob);
    static void resetKnobs();
    /// The FPGA's notes of one kind since the test began, without their times.
    QList<QByteArray> notes(const QByteArray& what) const;
    static QByteArray hardwareFile(const QString& name);

    /// Pictures that the display has got since the player was started, 0 before the first.
    static int framesShown();

    /// Makes the bitstream file of the instrument with these options of make-bitfile; returns its bytes.
    static QByteArray makeBitfile(const QStringList& options = {});

    static int patiently(int milliseconds)
    {
        return Instrument::daemonIsSlow() ? milliseconds * 4 : milliseconds;
    }

private:
    static std::unique_ptr<Instrument> s_instrument;
    std::optional<client::SerialLine> m_line;
    int m_logStart = 0;
    int m_notesStart = 0;
    std::int64_t m_started = 0;
};

QByteArray contentOf(const QString& path);
void writeContent(const QString& path, const QByteArray& bytes);

} // namespace tessary::test
