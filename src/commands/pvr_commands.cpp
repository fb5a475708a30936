// The recorder: one recording on the removable card, made of whatever the current source delivers.
#include "commands/reply.h"
#include "commands/sourceselection.h"
#include "commands/uart_command.h"
#include "media/filesource.h"
#include "media/pciesource.h"
#include "system/descriptor.h"

#include <fcntl.h>
#include <QByteArray>
#include <QFile>
#include <QString>
#include <QtDebug>
#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr const char* recordingPath = "/run/media/mmcblk1p1/record.ts";
constexpr const char* exportDevicePath = "/dev/xillybus_write_8"; ///< write side of the FPGA's stream driver
constexpr qint64 exportBlockBytes = 1024;
constexpr int blockTimeoutSeconds = 6;
constexpr int blocksPerProgressLine = 100;

QString recording()
{
    return QString::fromLatin1(recordingPath);
}

/// As `select`: 1 writable, 0 timed out, -1 failed.
int waitUntilWritable(int device)
{
    if (device >= FD_SETSIZE)
        return -1; // the set has no room for such a number
    fd_set set;
    FD_ZERO(&set);
    FD_SET(device, &set);
    timeval timeout = {blockTimeoutSeconds, 0};
    return select(device + 1, nullptr, &set, nullptr, &timeout);
}

/// Waits for the device and hands it one block. False when the transfer is over before its end.
bool exportBlock(int device, const QByteArray& block)
{
    const int writable = waitUntilWritable(device);
    if (writable == -1) {
        qDebug("ERROR Uart_Export");
        return false;
    }
    if (writable == 0) {
        qDebug("TIMEOUT Uart_Export");
        return false;
    }
    // One write whose result is not looked at: what the device does not take is lost, the stream goes on.
    [[maybe_unused]] const ssize_t written =
        write(device, block.constData(), static_cast<std::size_t>(block.size()));
    return true;
}

void exportBlocks(QFile& file, int device)
{
    qint64 remaining = file.size();
    for (int blockCount = 0;; ++blockCount) {
        const QByteArray block = file.read(exportBlockBytes);
        if (block.isEmpty() && remaining > 0) {
            qDebug("Export: the recording can not be read any further; check the card");
            return;
        }
        if (!exportBlock(device, block))
            return;
        remaining -= block.size();
        if (blockCount % blocksPerProgressLine == 0)
            qDebug("Export remaining=%lld", remaining);
        if (remaining < 1)
            return;
    }
}

} // namespace

void Uart_PVR_Record()
{
    qDebug("Uart_PVR_Record\n");
    if (!instance)
        instance = new pciesource;
    instance->recordStream(recordingPath);
}

void Uart_PVR_Scan()
{
    qDebug("Uart_PVR_Scan");
    discardMeasurementAndSource();
    instance = new filesource(recordingPath);
    instance->scanStream();
}

void Uart_PVR_Stop()
{
    qDebug("Uart_PVR_Stop");
    discardMeasurementAndSource();
}

void Uart_PVR_Reclist()
{
    qDebug("Uart_PVR_reclist");
    QFile file(recording());
    const qint64 bytes = file.open(QIODevice::ReadOnly) ? file.size() : 0;
    reply("reclist file:" + std::to_string(bytes) + " Bytes");
}

void Uart_PVR_Export()
{
    qDebug("Uart_PVR_Export");
    discardMeasurementAndSource();
    reply("PVR_export_ok\n"); // at once: the controller is told that the export began, not how it ended
    QFile file(recording());
    if (!file.open(QIODevice::ReadOnly))
        return;
    const Descriptor device(open(exportDevicePath, O_WRONLY | O_CLOEXEC));
    if (!device.isOpen())
        return;
    exportBlocks(file, device.get());
    sleep(1); // the driver sends out what it holds
}
