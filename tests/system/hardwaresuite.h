#pragma once

#include "burstline.h"
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
    BurstLine& line() { return *m_line; }

    /// Starts the daemon and waits until it is ready for commands.
    void startDaemon();
    /// Sends a burst and returns all that the daemon says to it, once it has carried it out.
    std::string ask(const std::string& burst) { return line().ask(burst); }
    std::string version() { return ask("version?\n"); }
    /// What the daemon has logged since it was started.
    QByteArray log() const { return instrument().daemonLog().mid(m_logStart); }
    /// Waits until the daemon has logged this.
    bool logged(const QByteArray& text) const;
    /// The command lines that the daemon gave to its shell since it was started.
    QStringList shellCommands() const;

    /// A fault for the FPGA, such as "spi-fail=3".
    static void setKnob(const QByteArray& knob);
    static void resetKnobs();
    /// The FPGA's notes of one kind since the test began, without their times.
    QList<QByteArray> notes(const QByteArray& what) const;
    static QByteArray hardwareFile(const QString& name);

    /// Makes the bitstream file of the instrument with these options of make-bitfile; returns its bytes.
    static QByteArray makeBitfile(const QStringList& options = {});

private:
    static std::unique_ptr<Instrument> s_instrument;
    std::optional<BurstLine> m_line;
    int m_logStart = 0;
    int m_notesStart = 0;
    std::int64_t m_started = 0;
};

void writeContent(const QString& path, const QByteArray& bytes);

} // namespace tessary::test
