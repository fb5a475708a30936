#include "firstinturn.h"
#include "hardwaresuite.h"

#include "kit/packets.h"

#include <chrono>
#include <climits>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <QFile>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace tessary::test;

const QString recording = "/run/media/mmcblk1p1/record.ts";
constexpr int packetSize = packetBytes;

/// So many transport stream packets, each of which carries its own number.
QByteArray packets(quint32 first, quint32 count)
{
    QByteArray stream;
    stream.reserve(static_cast<int>(count) * packetSize);
    for (quint32 number = first; number < first + count; ++number) {
        Bytes payload;
        for (quint32 word = number * 2654435761U; payload.size() < packetBytes - 4; ++word)
            append32(payload, word);
        const Bytes made = makePacket(256, number, {payloadOnly, {}, payload});
        stream.append(reinterpret_cast<const char*>(made.data()), static_cast<int>(made.size()));
    }
    return stream;
}

class Recorder : public HardwareSuite
{
protected:
    void SetUp() override
    {
        HardwareSuite::SetUp();
        QFile::remove(instrument().sharedFile("fpga-in.ts"));
        QFile::remove(instrument().sharedFile("display.json")); // that of an earlier test
        startDaemon();
    }

    /// The recording as the host sees it, through the daemon's own root.
    static QString recordingOnHost()
    {
        return "/proc/" + QString::number(instrument().daemonPid()) + "/root" + recording;
    }

    static qint64 recordedBytes() { return QFile(recordingOnHost()).size(); }

    /// Until all but what is still being collected for a write has reached the file.
    static void waitUntilRecorded(qint64 bytes)
    {
        constexpr qint64 collected = 65536;
        EXPECT_TRUE(waitUntil([&] { return recordedBytes() > bytes - collected; }))
            << recordedBytes() << " of " << bytes << " bytes";
        EXPECT_TRUE(instrument().waitUntilDaemonRests());
    }

    static void putRecording(const QByteArray& bytes) { writeContent(recordingOnHost(), bytes); }

    /// Exports and waits for the end. Nothing but the acknowledgement comes.
    void exportRecording() { EXPECT_EQ(ask("PVR_export\n"), "PVR_export_ok\n"); }
};

/// The FPGA's stream as a pipe that the test fills.
class FpgaStream
{
public:
    explicit FpgaStream(const QString& path)
    {
        ::mkfifo(path.toUtf8().constData(), 0600);
        m_fd = ::open(path.toUtf8().constData(), O_RDWR | O_CLOEXEC);
        ::fcntl(m_fd, F_SETPIPE_SZ, 1 << 20);
    }
    ~FpgaStream() { ::close(m_fd); }
    FpgaStream(const FpgaStream&) = delete;
    FpgaStream& operator=(const FpgaStream&) = delete;

    /// False when nobody has taken anything for ten seconds.
    bool write(const QByteArray& bytes) const
    {
        pollfd room{m_fd, POLLOUT, 0};
        for (int done = 0; done < bytes.size();) {
            if (::poll(&room, 1, 10000) != 1)
                return false;
            const int piece = std::min(bytes.size() - done, PIPE_BUF);
            const ssize_t n = ::write(m_fd, bytes.constData() + done, static_cast<std::size_t>(piece));
            if (n <= 0)
                return false;
            done += static_cast<int>(n);
        }
        return true;
    }

private:
    int m_fd;
};

constexpr int piecesPerSecond = 100;
constexpr quint32 packetsPerPiece = 100000000 / 8 / piecesPerSecond / packetSize;

/// Hands out numbered packets at 100 Mbit/s for `seconds`, in pieces of 10 ms. Returns how many were taken.
quint32 sendPaced(const FpgaStream& stream, int seconds)
{
    const auto begin = std::chrono::steady_clock::now();
    quint32 sent = 0;
    for (int piece = 0; piece < seconds * piecesPerSecond; ++piece) {
        if (!stream.write(packets(sent, packetsPerPiece)))
            break;
        sent += packetsPerPiece;
        std::this_thread::sleep_until(begin + std::chrono::milliseconds(10) * (piece + 1));
    }
    return sent;
}

/// True when a file holds exactly these numbered packets; compares piece by piece.
bool holdsPackets(const QString& path, quint32 count)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || file.size() != qint64{count} * packetSize)
        return false;
    constexpr quint32 piece = 10000;
    for (quint32 first = 0; first < count; first += piece) {
        const quint32 now = std::min(piece, count - first);
        if (file.read(qint64{now} * packetSize) != packets(first, now))
            return false;
    }
    return true;
}

} // namespace

TEST_F(Recorder, AnFpgaStreamOf100MbitIsRecordedWithoutLoss)
{
    const FpgaStream stream(instrument().sharedFile("fpga-in.ts"));
    EXPECT_EQ(ask("PVR_record\n"), "");
    const int seconds = Instrument::daemonIsSlow() ? 3 : 30;
    const double before = instrument().daemonResources().processorSeconds;
    const quint32 sent = sendPaced(stream, seconds);
    EXPECT_EQ(sent, packetsPerPiece * piecesPerSecond * static_cast<quint32>(seconds));
    waitUntilRecorded(qint64{sent} * packetSize);
    // The pipe makes the stream wait for a recorder that does not get its turn; one that had it all the time
    // would follow.
    const double used = instrument().daemonResources().processorSeconds - before;
    std::cout << used << " s of processor time for " << seconds << " s of stream\n";
    EXPECT_LT(used, Instrument::daemonIsSlow() ? 100 : 0.5 * seconds);
    EXPECT_EQ(ask("PVR_stop\n"), "");
    EXPECT_TRUE(holdsPackets(recordingOnHost(), sent));
    EXPECT_EQ(ask("PVR_reclist\n"), "reclist file:" + std::to_string(qint64{sent} * packetSize) + " Bytes");
}

TEST_F(Recorder, AnIpStreamOf100MbitIsRecordedWithoutLoss)
{
    const quint32 count = (Instrument::daemonIsSlow() ? 3 : 30) * (100000000 / 8 / packetSize) / 7 * 7;
    const QString file = instrument().path("numbered.ts");
    writeContent(file, packets(0, count));
    const std::string address = instrument().ethernetAddress().toStdString();
    ask("server=UDP " + address + " 5040\n");
    ask("scancur\n");
    EXPECT_EQ(ask("PVR_record\n"), "");
    const FirstInTurn first(instrument().daemonPid());
    RunningStream stream = instrument().send({file, QString::fromStdString("udp://" + address + ":5040"),
        "--bitrate", "100M", "--interface", "uplink"});
    ASSERT_TRUE(stream.waitUntilSent()) << stream.errors().constData();
    waitUntilRecorded(qint64{count} * packetSize);
    ask("PVR_stop\n");
    EXPECT_TRUE(holdsPackets(recordingOnHost(), count));
    QFile::remove(file);
}

TEST_F(Recorder, AnIpStreamIsRecordedWhileItIsPlayed)
{
    constexpr int datagrams = 8000; // 17 s of the demo
    const QByteArray demo = contentOf(madeStream("demo.ts"));
    ASSERT_FALSE(demo.isEmpty()) << "make the streams: bench/streams/make-streams build/streams";
    const std::string address = instrument().ethernetAddress().toStdString();
    ask("server=UDP " + address + " 5040\n");
    ask("play=1\n");
    RunningStream stream =
        instrument().send({madeStream("demo.ts"), QString::fromStdString("udp://" + address + ":5040"),
            "--count", QString::number(datagrams), "--interface", "uplink"});
    EXPECT_TRUE(waitUntil([] { return instrument().framesShown() > 0; }));
    EXPECT_EQ(ask("PVR_record\n"), "");
    EXPECT_EQ(ask("videostatus?\n"), "running");
    ASSERT_TRUE(stream.waitUntilSent()) << stream.errors().constData();
    EXPECT_TRUE(instrument().waitUntilDaemonRests());
    ask("PVR_stop\n");
    const QByteArray recorded = contentOf(recordingOnHost());
    EXPECT_GT(recorded.size(), 1000000);
    // From some datagram on to the last one that was sent, without a gap.
    EXPECT_TRUE(demo.left(datagrams * 7 * packetSize).endsWith(recorded));
    EXPECT_EQ(recorded.size() % packetSize, 0);
}

TEST_F(Recorder, ARecordingIsScannedAndPlayed)
{
    const QByteArray demo = contentOf(madeStream("demo.ts"));
    ASSERT_FALSE(demo.isEmpty()) << "make the streams: bench/streams/make-streams build/streams";
    putRecording(demo);
    EXPECT_EQ(ask("PVR_scan\n"), "");
    EXPECT_TRUE(waitUntil([this] { return ask("streaminfo?\n").substr(0, 5) == "<SDT>"; }));
    EXPECT_EQ(ask("play=2\n"), "");
    EXPECT_EQ(ask("videostatus?\n"), "running");
    EXPECT_TRUE(waitUntil([] { return instrument().framesShown() > 0; }));
    ask("PVR_stop\n");
}

TEST_F(Recorder, ExportsOfAllSizesArriveByteForByte)
{
    for (const int size : {0, 1, 1024, 2500}) {
        SCOPED_TRACE(size);
        const QByteArray bytes = packets(7, 20).left(size);
        putRecording(bytes);
        exportRecording();
        EXPECT_EQ(hardwareFile("export.bin"), bytes);
    }
    QList<int> blocks; // the empty one is not passed on by FUSE
    for (const QByteArray& note : notes("export"))
        blocks << note.mid(9).split(',').first().toInt();
    EXPECT_EQ(blocks, (QList<int>{1, 1024, 1024, 1024, 452}));
}

TEST_F(Recorder, AFiftyMegabyteExportArrivesByteForByte)
{
    const quint32 count = 50000000 / packetSize;
    putRecording(packets(0, count));
    exportRecording();
    EXPECT_TRUE(holdsPackets(instrument().path("hardware/export.bin"), count));
    EXPECT_TRUE(logged("Export remaining="));
}

TEST_F(Recorder, ASlowDeviceGetsEverything)
{
    setKnob("export-rate=100000");
    const QByteArray bytes = packets(0, 1500); // 282 kB: the device's buffer is full after a fraction of it
    putRecording(bytes);
    exportRecording();
    EXPECT_EQ(hardwareFile("export.bin"), bytes);
    EXPECT_FALSE(log().contains("TIMEOUT"));
}

TEST_F(Recorder, ADeviceThatFailsOrIsAbsentEndsTheExportQuietly)
{
    putRecording(packets(0, 100));
    setKnob("export-fails=1");
    exportRecording();
    EXPECT_TRUE(hardwareFile("export.bin").isEmpty());
    setKnob("export-fails=0");
    setKnob("export-absent=1");
    exportRecording();
    EXPECT_FALSE(log().contains("TIMEOUT"));
    EXPECT_FALSE(log().contains("ERROR Uart_Export"));
}

TEST_F(Recorder, AFullCardKeepsWhatFittedAndRecordsAgainOnceThereIsRoom)
{
    instrument().shell("dd if=/dev/zero of=/run/media/mmcblk1p1/filler bs=1M count=590 2>&1");
    const FpgaStream stream(instrument().sharedFile("fpga-in.ts"));
    ask("PVR_record\n");
    sendPaced(stream, 3); // 37 MB into the room of some 10 MB
    const qint64 kept = recordedBytes();
    EXPECT_GT(kept, 1000000);
    EXPECT_LT(kept, 37000000);
    EXPECT_EQ(contentOf(recordingOnHost()),
        packets(0, static_cast<quint32>(kept / packetSize + 1)).left(static_cast<int>(kept)));
    ask("PVR_stop\n");

    instrument().shell("rm /run/media/mmcblk1p1/filler");
    ask("PVR_record\n");
    sendPaced(stream, 2);
    EXPECT_TRUE(waitUntil([] { return recordedBytes() > 20000000; })) << recordedBytes();
    ask("PVR_stop\n");
}
