#include "commands/versionline.h"

#include "system/system_config.h"
#include "system/version.h"

#include <QString>

std::string versionLine()
{
    // Grown as needed: the FPGA's text has no length of its own.
    return std::string("SV: mx8 ") + softwareVersion
        + " FPGA: " + systconf.GetFpgaVersion().toUtf8().toStdString() + "\n";
}
