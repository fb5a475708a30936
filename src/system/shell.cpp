#include "system/shell.h"

#include <cstdlib>

int runShell(const std::string& commandLine)
{
    return std::system(commandLine.c_str());
}
