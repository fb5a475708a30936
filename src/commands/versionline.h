#pragma once

#include <string>

/// "SV: mx8 1.4 FPGA: ...\n": the software version and the text of the FPGA's version. The reply of both
/// version commands. Main thread; reads the bitstream file.
std::string versionLine();
