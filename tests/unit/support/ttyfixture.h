#pragma once

// The one fixture for the serial lines and the log, shared by all unit tests of the daemon. Programs that the
// code runs are recorded by support/privatemachine.h (RecordedPrograms); mounts of single files are
// support/privatemounts.h.

#include "support/eventually.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

/// Collects what the code logs through the Qt debug logger while the object lives. Any thread may log.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// What the code says itself. What an element of the pipeline reports, the bus's thread tells in its own
    /// time (no display, no card, no file here), which no order holds: that is for contains() and waitFor().
    std::vector<std::string> lines() const;
    bool contains(const std::string& line) const;
    /// Waits until a line that begins so is logged, by whatever thread; false when that does not happen.
    bool waitFor(const std::string& beginning) const;
    void forget();
};

/// One end of a pseudo-terminal whose other end stands in the private /dev under a device's name.
class PseudoLine
{
public:
    explicit PseudoLine(const std::string& device);
    ~PseudoLine();
    PseudoLine(const PseudoLine&) = delete;
    PseudoLine& operator=(const PseudoLine&) = delete;

    /// Writes, and returns when the device's side has all of it to read, or as much as the terminal holds.
    void write(const std::string& bytes);
    /// Everything that arrives until `quietMs` pass without a byte.
    std::string readUntilQuiet(int quietMs = 50);
    /// Exactly `count` bytes, or fewer when `timeoutMs` pass first.
    std::string read(std::size_t count, int timeoutMs = patienceMs);
    int descriptor() const { return m_master; }

private:
    std::string m_device;
    int m_master = -1;
    int m_slave =
        -1; ///< held open so that the line stays up while the device is closed, and to see what is pending
};

/// A test with the controller's line at "/dev/ttymxc1" (the process-wide `uart` is connected to it) and the
/// console at "/dev/ttymxc0", in a private mount namespace. Skipped with the reason where that can not be
/// had.
class ControllerLine : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    PseudoLine& controller() { return *m_controller; }
    PseudoLine& console() { return *m_console; }

private:
    PseudoLine* m_controller = nullptr;
    PseudoLine* m_console = nullptr;
};
