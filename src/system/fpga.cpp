// The part of system_config that looks after the FPGA: its bitstream over SPI, its PCIe function, its
// version.
#include "system/descriptor.h"
#include "system/shell.h"
#include "system/system_config.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/spi/spidev.h>
#include <memory>
#include <QByteArray>
#include <QByteArrayMatcher>
#include <QFile>
#include <QString>
#include <QtDebug>
#include <string>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int doneGpio = 14; ///< reads '1' while the FPGA is configured
constexpr int programGpio = 101; ///< a low pulse clears the FPGA
constexpr const char* bitstreamPath = "/home/ondrak/Tessary/Tessary.bit";
constexpr const char* spiPath = "/dev/spidev0.0";
constexpr std::size_t spiChunkBytes = 4096; ///< what the SPI driver's own buffer takes
constexpr std::uint32_t spiSpeedHz = 30000000;
constexpr int headerBytes = 2048; ///< the time-stamp stands in this part of the bitstream file

void writeText(const char* path, const char* text)
{
    const Descriptor file(open(path, O_WRONLY | O_CLOEXEC));
    if (!file.isOpen())
        return; // a line that can not be driven shows in the done line
    [[maybe_unused]] const ssize_t written = write(file.get(), text, std::strlen(text));
}

/// "export" or "unexport" of a GPIO.
void writeGpioNumber(const char* path, int gpio)
{
    writeText(path, std::to_string(gpio).c_str());
}

std::string gpioFile(int gpio, const char* name)
{
    return "/sys/class/gpio/gpio" + std::to_string(gpio) + "/" + name;
}

/// First character of a GPIO's value; 0 when it can not be read.
char readGpio(int gpio)
{
    const Descriptor file(open(gpioFile(gpio, "value").c_str(), O_RDONLY | O_CLOEXEC));
    char value = 0;
    return file.isOpen() && read(file.get(), &value, 1) == 1 ? value : '\0';
}

/// High, low, high on one open descriptor: the FPGA drops its configuration and waits for a new one.
void pulseProgramLine()
{
    {
        const Descriptor file(open(gpioFile(programGpio, "value").c_str(), O_WRONLY | O_CLOEXEC));
        for (const char* level : {"1", "0", "1"}) {
            [[maybe_unused]] const ssize_t written = write(file.get(), level, 1);
            usleep(1);
        }
    }
    usleep(10000); // the FPGA clears its configuration memory
}

/// Opens the SPI device on a number other than `avoided`, which the caller still closes once more.
int openSpi(int avoided)
{
    const int fd = open(spiPath, O_RDWR | O_CLOEXEC);
    if (fd == -1 || fd != avoided)
        return fd;
    const int moved = fcntl(fd, F_DUPFD_CLOEXEC, avoided + 1);
    close(fd);
    return moved;
}

/// Clocks the bytes out; `received` is as large as `bytes`, and nothing looks into it.
void sendBitstream(int spi, const unsigned char* bytes, std::size_t size, unsigned char* received)
{
    for (std::size_t sent = 0; sent < size; sent += spiChunkBytes) {
        spi_ioc_transfer transfer; // zero means: no delay, chip select kept, one data line each way
        std::memset(&transfer, 0, sizeof transfer);
        transfer.tx_buf = reinterpret_cast<std::uintptr_t>(bytes + sent);
        transfer.rx_buf = reinterpret_cast<std::uintptr_t>(received);
        transfer.len = static_cast<std::uint32_t>(std::min(spiChunkBytes, size - sent));
        transfer.speed_hz = spiSpeedHz;
        transfer.bits_per_word = 8;
        if (ioctl(spi, SPI_IOC_MESSAGE(1), &transfer) < 1) {
            // The number is 0 whichever chunk failed. This is meant: the line is known by this text.
            qDebug("Error while programming FPGA for buffer number %d", 0);
            return;
        }
    }
}

using Buffer = std::unique_ptr<unsigned char, decltype(&std::free)>;

/// At least one byte is asked for, so that an empty file does not look like a lack of memory.
Buffer allocate(std::size_t size)
{
    return Buffer(static_cast<unsigned char*>(std::malloc(std::max<std::size_t>(size, 1))), &std::free);
}

/// Sends the bitstream file. False when there is no memory for it; a file that is missing or empty sends
/// nothing.
bool downloadBitstream()
{
    const int file = open(bitstreamPath, O_RDONLY | O_CLOEXEC);
    struct stat status = {};
    const bool sized = stat(bitstreamPath, &status) == 0 && status.st_size > 0;
    const std::size_t size = sized ? static_cast<std::size_t>(status.st_size) : 0;
    const Buffer transmit = allocate(size);
    const Buffer receive = allocate(size);
    if (!transmit || !receive) {
        close(file);
        return false;
    }
    const ssize_t count = read(file, transmit.get(), size);
    close(file);
    const int spi = openSpi(file);
    sendBitstream(spi, transmit.get(), count > 0 ? static_cast<std::size_t>(count) : 0, receive.get());
    // Closed a second time, and the SPI device left open: both are meant. The second close finds a number
    // that nobody has: the SPI device keeps off it, and nothing else opens files at this point of the
    // start-up.
    close(file);
    return true;
}

std::uint32_t bigEndian32(const QByteArray& bytes, int offset)
{
    std::uint32_t word = 0;
    for (int i = 0; i < 4; ++i)
        word = word << 8 | static_cast<unsigned char>(bytes.at(offset + i));
    return word;
}

/// Day, month, year, hour, minute and second as the FPGA tools pack them.
QString timeStampText(std::uint32_t word)
{
    return QString::asprintf("%u/%u/20%u %u:%u:%u", word >> 27, word >> 23 & 0x0F, word >> 17 & 0x3F,
        word >> 12 & 0x1F, word >> 6 & 0x3F, word & 0x3F);
}

/// The time-stamp of the bitstream file's first bytes; false, and the reason in `text`, when there is none.
bool findTimeStamp(const QByteArray& header, QString& text)
{
    static const QByteArrayMatcher startPattern(QByteArrayLiteral("\xFF\xFF\xFF\xFF\xAA\x99\x55\x66"));
    static const QByteArrayMatcher versionPattern(
        QByteArrayLiteral("\x30\x01\xA0\x01")); // writes the user-access register
    const int start = startPattern.indexIn(header, 0);
    if (start < 1) { // a real file has its text header in front
        text = QStringLiteral("start pattern not found in bitfile");
        return false;
    }
    qDebug("FPGA start firmware pattern found at %d", start);
    const int version = versionPattern.indexIn(header, start);
    if (version < 1 || version + 8 > header.size()) { // a time-stamp that is cut off is not there
        text = QStringLiteral("version not found in bitfile");
        return false;
    }
    qDebug("FPGA version found at %d", version);
    text = timeStampText(bigEndian32(header, version + 4));
    return true;
}

} // namespace

bool system_config::programFpga()
{
    writeGpioNumber("/sys/class/gpio/export", doneGpio);
    writeText(gpioFile(doneGpio, "direction").c_str(), "in");
    if (readGpio(doneGpio) == '1') {
        writeGpioNumber("/sys/class/gpio/unexport", doneGpio);
        m_fpgaConfigured = 1;
        qDebug("FPGA already programmed");
        return true;
    }
    writeGpioNumber("/sys/class/gpio/export", programGpio);
    writeText(gpioFile(programGpio, "direction").c_str(), "out");
    pulseProgramLine();
    if (!downloadBitstream())
        return false;
    m_fpgaConfigured = readGpio(doneGpio) == '1';
    writeGpioNumber("/sys/class/gpio/unexport", programGpio);
    writeGpioNumber("/sys/class/gpio/unexport", doneGpio);
    qDebug(m_fpgaConfigured ? "SUCCESS programming FPGA" : "FAILED programming FPGA");
    return m_fpgaConfigured;
}

int system_config::pcieRescan()
{
    runShell("echo 1 > /sys/bus/pci/devices/0000:01:00.0/remove"); // the FPGA's function
    runShell("echo 1 > /sys/bus/pci/devices/0000:00:00.0/remove"); // the root port
    return runShell("echo 1 > /sys/bus/pci/rescan");
}

QString system_config::GetFpgaVersion()
{
    QFile file(QString::fromLatin1(bitstreamPath));
    if (!file.open(QIODevice::ReadOnly))
        return QStringLiteral("bitfile not found");
    const QByteArray header = file.read(headerBytes);
    if (header.isEmpty())
        return QStringLiteral("bitfile empty");
    QString text;
    if (!findTimeStamp(header, text))
        return text;
    text += m_fpgaConfigured == 1 ? QStringLiteral(" done=OK") : QStringLiteral(" done=NOK");
    qDebug("FPGA : %s", qUtf8Printable(text));
    return text;
}
