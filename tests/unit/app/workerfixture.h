#pragma once

#include "app/worker.h"
#include "support/privatemachine.h"
#include "support/ttyfixture.h"

#include <memory>

/// A started Worker on a private machine: own /dev, /sys, /home and network, recorded programs, the
/// controller's end of the line in the test's hand. Each cycle is driven by the test.
class StartedWorker : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Sends a burst and runs one poll cycle. Returns what the controller got.
    std::string cycle(const std::string& burst);

    Worker& worker() { return *m_worker; }
    PseudoLine& controller() { return *m_controller; }
    RecordedPrograms& programs() { return *m_programs; }
    LogCapture& log() { return m_log; }

private:
    LogCapture m_log;
    std::unique_ptr<PseudoLine> m_controller;
    std::unique_ptr<RecordedPrograms> m_programs;
    std::unique_ptr<Worker> m_worker;
};
