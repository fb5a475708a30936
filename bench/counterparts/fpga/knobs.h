#pragma once

#include <cstdint>
#include <string>

/// Faults that a test or a person gives the FPGA: one "name=value" a line written to the file "knobs", which
/// reads back as all of them. No locking.
struct Knobs
{
    int failingTransfer =
        0; ///< "spi-fail": this SPI transfer since the program pulse fails, counted from 1; 0 none
    int configured =
        -1; ///< "configured": 1 or 0 sets the done line once when it is written; -1 as it came about
    bool doneStuckLow = false; ///< "done-stuck": the done line never rises
    std::int64_t exportRate = -1; ///< "export-rate": bytes per second; 0 stalls, -1 without limit
    bool exportFails = false; ///< "export-fails": every write to the stream device fails
    bool exportAbsent = false; ///< "export-absent": the stream device can not be opened

    /// Takes one "name=value"; false when it is none.
    bool set(const std::string& line);
    std::string text() const;
};
