// Software update: a Debian package, raw over the controller's line, with its CRC behind it.
#include "commands/crc32.h"
#include "commands/reply.h"
#include "commands/uart_command.h"
#include "link/serialport.h"
#include "system/shell.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <QtDebug>

namespace {

constexpr double imageGapSeconds = 10.0;
constexpr double crcWaitSeconds = 5.0;
constexpr int bytesPerProgressLine = 1000;
constexpr const char* packagePath = "/tmp/Tessary.deb";

/// Keeps what a shorter read leaves in it: a CRC that comes in pieces is compared with old upper bytes.
std::uint32_t receivedCrc = 0;

using Buffer = std::unique_ptr<unsigned char, decltype(&std::free)>;

/// Memory that the system can hand out now; without a limit where it does not say.
std::uint64_t availableBytes()
{
    std::ifstream report("/proc/meminfo");
    for (std::string name; report >> name; report.ignore(256, '\n')) {
        std::uint64_t kilobytes = 0;
        if (name == "MemAvailable:" && report >> kilobytes)
            return kilobytes * 1024;
    }
    return UINT64_MAX;
}

/// Null when there is no memory for the image: a negative size is more than any machine has, and a size
/// beyond what is available must not be promised by the system's overcommitment, because filling it would end
/// the daemon. Size 0 still holds the one byte that is received before the end is noticed.
Buffer allocateImage(std::int32_t size)
{
    Buffer image(nullptr, &std::free);
    if (size < 0 || static_cast<std::uint64_t>(size) > availableBytes())
        return image;
    image.reset(static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(std::max(size, 1)))));
    return image;
}

/// Takes the image byte by byte, spinning. False when the controller paused too long.
bool receiveImage(unsigned char* image, std::int32_t size)
{
    std::int32_t received = 0;
    std::time_t lastByte = std::time(nullptr);
    for (;;) {
        if (uart.SerialPortRead(reinterpret_cast<char*>(image) + received, 1) == 1) {
            ++received;
            if (received % bytesPerProgressLine == 0)
                qDebug("receivedbytes=%d\n", received);
            if (received >= size)
                return true;
            lastByte = std::time(nullptr);
        }
        if (std::difftime(std::time(nullptr), lastByte) > imageGapSeconds) {
            qDebug("Waiting bytes too long time !\n");
            return false;
        }
    }
}

/// Takes the CRC, least significant byte first, in one read. False when none came in time.
bool receiveCrc()
{
    const std::time_t start = std::time(nullptr);
    while (uart.IsInputBytesPending() == 0) {
        if (std::difftime(std::time(nullptr), start) > crcWaitSeconds) {
            qDebug("No CRC received !\n");
            return false;
        }
    }
    uart.SerialPortRead(reinterpret_cast<char*>(&receivedCrc), sizeof receivedCrc);
    return true;
}

bool crcMatches(const unsigned char* image, std::int32_t size)
{
    const unsigned calculated = FAPI_SYS_CalculateCrc32(image, static_cast<unsigned>(size), crc32Table);
    qDebug("crcread: %d\n", static_cast<int>(receivedCrc));
    qDebug("crccalc: %d\n", static_cast<int>(calculated));
    return receivedCrc == calculated;
}

/// False when the file can not be created. A package that does not fit is left to the package manager, which
/// refuses it.
bool storePackage(const unsigned char* image, std::int32_t size)
{
    std::FILE* file = std::fopen(packagePath, "w");
    if (!file)
        return false;
    std::fwrite(image, 1, static_cast<std::size_t>(size), file);
    std::fclose(file);
    return true;
}

void installPackage()
{
    if (std::FILE* status = std::fopen("/var/lib/dpkg/status", "r"))
        std::fclose(status);
    else
        runShell("sudo touch /var/lib/dpkg/status"); // the package manager refuses to start without it
    runShell("dpkg --add-architecture armhf");
    runShell("cd /tmp && sudo dpkg -i --force-all Tessary.deb");
    runShell("sync");
}

} // namespace

void Uart_Update(std::string argument)
{
    qDebug("UPDate\n");
    // Off, and left off on every way out: this is meant. The next start of the daemon switches networking on
    // again.
    runShell("nmcli networking off");
    const auto size = static_cast<std::int32_t>(std::strtol(argument.c_str(), nullptr, 10));
    reply("waiting update\n");
    const Buffer image = allocateImage(size);
    if (!image) {
        qDebug("Malloc problem!\n");
        return;
    }
    std::memset(image.get(), 0xAA, static_cast<std::size_t>(size));
    if (!receiveImage(image.get(), size) || !receiveCrc() || !crcMatches(image.get(), size))
        return;
    if (!storePackage(image.get(), size))
        return;
    installPackage();
    reply("update ok\n");
}
