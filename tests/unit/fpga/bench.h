#pragma once

#include "support/privatemachine.h"
#include "support/ttyfixture.h"
#include "system/system_config.h"

#include <gtest/gtest.h>
#include <string>
#include <sys/types.h>
#include <vector>

constexpr const char* bitfilePath = "/home/ondrak/Tessary/Tessary.bit";

/// A machine with an FPGA of its own: the bench's counterpart serves the GPIO files, the SPI device and the
/// PCI files; the folder of the bitstream file is empty. Skipped with the reason where that can not be had.
class FpgaBench : public ::testing::Test
{
protected:
    void SetUp() override;
    void TearDown() override;

    /// Makes the bitstream file with these options of bench/counterparts/make-bitfile.
    static void makeBitfile(const std::string& options = "");
    /// "spi-fail=3": see the counterpart.
    static void setKnob(const std::string& knob);
    /// The FPGA's notes of one kind ("gpio", "spi", "pci"), without their times.
    static std::vector<std::string> notes(const std::string& what);
    /// What the FPGA took over SPI since its program line was low.
    static std::string receivedBitstream();

    system_config fpga;
    LogCapture log;

private:
    pid_t m_counterpart = -1;
};
