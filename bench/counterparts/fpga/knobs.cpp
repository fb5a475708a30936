#include "knobs.h"

#include <cstdlib>

bool Knobs::set(const std::string& line)
{
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos)
        return false;
    const std::string name = line.substr(0, equals);
    const long long value = std::strtoll(line.c_str() + equals + 1, nullptr, 10);
    if (name == "spi-fail")
        failingTransfer = static_cast<int>(value);
    else if (name == "configured")
        configured = static_cast<int>(value);
    else if (name == "done-stuck")
        doneStuckLow = value != 0;
    else if (name == "export-rate")
        exportRate = value;
    else if (name == "export-fails")
        exportFails = value != 0;
    else if (name == "export-absent")
        exportAbsent = value != 0;
    else
        return false;
    return true;
}

std::string Knobs::text() const
{
    return "spi-fail=" + std::to_string(failingTransfer) + "\nconfigured=" + std::to_string(configured)
        + "\ndone-stuck=" + std::to_string(doneStuckLow) + "\nexport-rate=" + std::to_string(exportRate)
        + "\nexport-fails=" + std::to_string(exportFails) + "\nexport-absent=" + std::to_string(exportAbsent)
        + "\n";
}
