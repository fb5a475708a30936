#include "client/lockholder.h"

#include <cstdio>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace tessary::client {

namespace {

/// "08:01:1234" of proc(5), /proc/locks: device in hexadecimal, inode in decimal.
std::string placeOf(int descriptor)
{
    struct stat status
    {
    };
    if (::fstat(descriptor, &status) != 0)
        return {};
    char text[64];
    std::snprintf(text, sizeof text, "%02x:%02x:%lu", major(status.st_dev), minor(status.st_dev),
        static_cast<unsigned long>(status.st_ino));
    return text;
}

} // namespace

std::string lockHolder(int descriptor)
{
    const std::string wanted = placeOf(descriptor);
    std::ifstream locks("/proc/locks");
    for (std::string line; std::getline(locks, line);) {
        std::istringstream fields(line);
        std::string number;
        std::string kind;
        std::string advisory;
        std::string access;
        long pid = 0;
        std::string place;
        if (!(fields >> number >> kind >> advisory >> access >> pid >> place) || kind != "FLOCK"
            || place != wanted)
            continue;
        std::string name;
        std::ifstream program("/proc/" + std::to_string(pid) + "/comm");
        std::getline(program, name);
        if (pid > 0 && !name.empty())
            return name + ", PID " + std::to_string(pid);
    }
    return {};
}

} // namespace tessary::client
