// The bus loop on a thread of its own: what becomes of each kind of message, and how the loop ends.
#include "media/gstmsghandler.h"

#include "kit/gstreamer.h"
#include "kit/sections.h"
#include "mediaenvironment.h"
#include "mediatest.h"
#include "support/ttyfixture.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <poll.h>
#include <QMetaMethod>
#include <QThread>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using Names = std::vector<std::string>;
using namespace tessary::test;

/// The receiving end of the loop's signals; notes what came and on which thread.
class Receiver : public QObject
{
    Q_OBJECT
public:
    explicit Receiver(GstElement* pipeline)
        : m_pipeline(pipeline)
    {
    }

    std::atomic<int> pat{0}, sdt{0}, nit{0}, pmt{0}, endOfStream{0};
    std::atomic<int> stateAtEnd{-1};
    std::atomic<QThread*> thread{nullptr};

public Q_SLOTS:
    void takePat(GstMpegtsSection* section) { take(pat, section); }
    void takeSdt(GstMpegtsSection* section) { take(sdt, section); }
    void takeNit(GstMpegtsSection* section) { take(nit, section); }
    void takePmt(GstMpegtsSection* section) { take(pmt, section); }
    void takeEnd()
    {
        stateAtEnd = GST_STATE(m_pipeline);
        ++endOfStream;
    }

private:
    void take(std::atomic<int>& counter, GstMpegtsSection* section)
    {
        thread = QThread::currentThread();
        gst_mpegts_section_unref(section);
        ++counter;
    }

    GstElement* m_pipeline;
};

class BusLoop : public ::testing::Test
{
protected:
    BusLoop()
    {
        GstElement* source = idleSource();
        GstElement* sink = gst_element_factory_make("fakesink", nullptr);
        gst_bin_add_many(GST_BIN(pipeline), source, sink, nullptr);
        gst_element_link(source, sink);
        handler.moveToThread(&thread);
        QObject::connect(&thread, SIGNAL(started()), &handler, SLOT(doWork()));
        connect(SIGNAL(newPatSection(GstMpegtsSection*)), SLOT(takePat(GstMpegtsSection*)));
        connect(SIGNAL(newSdtSection(GstMpegtsSection*)), SLOT(takeSdt(GstMpegtsSection*)));
        connect(SIGNAL(newNitSection(GstMpegtsSection*)), SLOT(takeNit(GstMpegtsSection*)));
        connect(SIGNAL(newPmtSection(GstMpegtsSection*)), SLOT(takePmt(GstMpegtsSection*)));
        connect(SIGNAL(signalEndOfStream()), SLOT(takeEnd()));
    }

    ~BusLoop() override
    {
        thread.requestInterruption();
        thread.wait();
        gst_element_set_state(pipeline, GST_STATE_NULL);
        gst_object_unref(pipeline);
    }

    void connect(const char* signal, const char* slot)
    {
        QObject::connect(&handler, signal, &receiver, slot, Qt::DirectConnection);
    }

    void post(GstMessage* message) { gst_element_post_message(pipeline, message); }
    void postEnd() { post(gst_message_new_eos(GST_OBJECT(pipeline))); }

    /// Posts a section and tells how many references are left of it once everything was taken.
    int referencesAfter(const Bytes& bytes)
    {
        GstMpegtsSection* section = delivered(bytes);
        post(gst_message_new_mpegts_section(GST_OBJECT(pipeline), section));
        postEnd();
        waitForEnds(1);
        const int left = GST_MINI_OBJECT_REFCOUNT_VALUE(section);
        gst_mpegts_section_unref(section);
        return left;
    }

    /// Returns when the loop took `count` ends of stream and stopped the pipeline after the last.
    void waitForEnds(int count)
    {
        eventually([&] { return receiver.endOfStream >= count; });
        ASSERT_EQ(receiver.endOfStream, count);
    }

    bool reachesNull() const
    {
        return eventually([this] { return GST_STATE(pipeline) == GST_STATE_NULL; });
    }

    PrintCapture prints;
    GstElement* pipeline = gst_pipeline_new(nullptr);
    gstmsgHandler handler{pipeline};
    Receiver receiver{pipeline};
    QThread thread;
};

TEST_F(BusLoop, EachTableOfTheActualStreamHasItsSignal)
{
    thread.start();
    postSection(pipeline, makePat({1}));
    postSection(pipeline, makeSdt({1}, 60));
    postSection(pipeline, makeNit(0, "n"));
    postSection(pipeline, makePmt(1));
    postEnd();
    waitForEnds(1);
    EXPECT_EQ(receiver.pat, 1);
    EXPECT_EQ(receiver.sdt, 1);
    EXPECT_EQ(receiver.nit, 1);
    EXPECT_EQ(receiver.pmt, 1);
    EXPECT_EQ(receiver.thread, &thread); // the receiver runs inside the loop
}

TEST_F(BusLoop, AnotherNetworksNitIsReleasedWithoutASignal)
{
    thread.start();
    EXPECT_EQ(referencesAfter(makeNit(0, "other", 0x41)), 1);
    EXPECT_EQ(receiver.nit, 0);
}

TEST_F(BusLoop, AnotherStreamsSdtIsReleasedWithoutASignal)
{
    thread.start();
    EXPECT_EQ(referencesAfter(makeSdt({5}, 60, 0, 0x46)), 1);
    EXPECT_EQ(receiver.sdt, 0);
}

TEST_F(BusLoop, TablesThatNobodyNeedsAreReleasedWithoutASignal)
{
    thread.start();
    EXPECT_EQ(referencesAfter(makeSection(0x4E, 1, Bytes(6, 0))), 1); // EIT
    EXPECT_EQ(receiver.pat + receiver.sdt + receiver.nit + receiver.pmt, 0);
}

TEST_F(BusLoop, AnElementMessageWithoutASectionIsDropped)
{
    thread.start();
    post(gst_message_new_element(GST_OBJECT(pipeline), gst_structure_new_empty("something-else")));
    postEnd();
    waitForEnds(1);
    EXPECT_EQ(receiver.pat + receiver.sdt + receiver.nit + receiver.pmt, 0);
}

TEST_F(BusLoop, EndOfStreamIsPrintedAndSignalledOnceAndStopsThePipeline)
{
    thread.start();
    gst_element_set_state(pipeline, GST_STATE_READY);
    postEnd();
    waitForEnds(1);
    EXPECT_TRUE(reachesNull());
    EXPECT_EQ(prints.text(), "EOS\n");
    EXPECT_EQ(receiver.endOfStream, 1);
    EXPECT_EQ(receiver.stateAtEnd, GST_STATE_READY); // the signal comes before the pipeline stops
}

TEST_F(BusLoop, TheLoopGoesOnAfterTheEndOfAStream)
{
    thread.start();
    gst_element_set_state(pipeline, GST_STATE_READY);
    postEnd();
    waitForEnds(1);
    ASSERT_TRUE(reachesNull());
    gst_element_set_state(pipeline, GST_STATE_READY); // the next mode
    postSection(pipeline, makePat({1}));
    postEnd();
    waitForEnds(2);
    EXPECT_EQ(receiver.pat, 1);
    EXPECT_EQ(prints.text(), "EOS\nEOS\n");
    EXPECT_TRUE(thread.isRunning());
}

TEST_F(BusLoop, AnErrorStopsNothingAndIsTold)
{
    const LogCapture log;
    gst_object_set_name(GST_OBJECT(pipeline), "display");
    thread.start();
    gst_element_set_state(pipeline, GST_STATE_READY);
    GError* error = g_error_new_literal(GST_RESOURCE_ERROR, GST_RESOURCE_ERROR_OPEN_WRITE, "no such device");
    post(gst_message_new_error(GST_OBJECT(pipeline), error, "display.c(12):\nopened for writing"));
    g_error_free(error);
    postSection(pipeline, makePat({1}));
    eventually([this] { return receiver.pat > 0; });
    EXPECT_EQ(receiver.pat, 1); // what came behind the error was taken
    EXPECT_EQ(GST_STATE(pipeline), GST_STATE_READY);
    EXPECT_EQ(receiver.endOfStream, 0);
    EXPECT_EQ(prints.text(), "");
    EXPECT_TRUE(log.contains("GStreamer, display: no such device (display.c(12): opened for writing)"));
}

TEST_F(BusLoop, InterruptionWhileNoMessageArrivesEndsTheLoopWithinASecond)
{
    constexpr double atMost = 1.5; // one poll, and a little
    double shortest = patienceMs;
    for (int attempt = 0; attempt < 5 && shortest > atMost; ++attempt) { // a busy machine makes some longer
        thread.start();
        postSection(pipeline, makePat({1}));
        ASSERT_TRUE(
            eventually([&] { return receiver.pat > attempt; })); // the loop runs, and goes into its wait
        const auto start = std::chrono::steady_clock::now();
        thread.requestInterruption();
        EXPECT_TRUE(thread.wait(patienceMs)); // it ends with the loop, though nothing told it to quit
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
        shortest = std::min(shortest, seconds.count());
        EXPECT_TRUE(thread.isFinished());
    }
    EXPECT_LT(shortest, atMost);
}

TEST_F(BusLoop, WakingHasTheLoopSeeAnInterruptionAtOnce)
{
    constexpr int loops = 20;
    double seconds = 0;
    for (int i = 0; i < loops; ++i) {
        thread.start();
        postSection(pipeline, makePat({1}));
        ASSERT_TRUE(eventually([&] { return receiver.pat > i; })); // the loop runs, and goes into its wait
        const auto start = std::chrono::steady_clock::now();
        thread.requestInterruption();
        handler.wake();
        EXPECT_TRUE(thread.wait(patienceMs));
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        gst_bus_set_flushing(GST_ELEMENT_BUS(pipeline), FALSE);
    }
    EXPECT_LT(seconds, 0.5 * loops); // half of what its poll would take
}

TEST_F(BusLoop, WakingAStoppedPipelinesLoopWorksToo)
{
    gst_element_set_state(pipeline, GST_STATE_READY);
    gst_element_set_state(pipeline, GST_STATE_NULL); // its bus drops what is posted
    thread.start();
    handler.wake();
    postSection(pipeline, makePat({1}));
    eventually([this] { return receiver.pat > 0; });
    EXPECT_EQ(receiver.pat, 1);
}

TEST_F(BusLoop, TheBusIsReleasedAtTheEnd)
{
    GstBus* bus = gst_element_get_bus(pipeline);
    const int before = GST_OBJECT_REFCOUNT_VALUE(bus);
    const int pipelineBefore = GST_OBJECT_REFCOUNT_VALUE(pipeline);
    thread.start();
    thread.requestInterruption();
    thread.wait();
    EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(bus), before);
    EXPECT_EQ(GST_OBJECT_REFCOUNT_VALUE(pipeline), pipelineBefore); // borrowed: no reference is taken
    gst_object_unref(bus);
}

TEST_F(BusLoop, TheMetaObjectDeclaresTheSignalsInOrderAndTheLoop)
{
    const QMetaObject& meta = gstmsgHandler::staticMetaObject;
    Names found;
    for (int i = meta.methodOffset(); i < meta.methodCount(); ++i) {
        const bool isSignal = meta.method(i).methodType() == QMetaMethod::Signal;
        found.push_back((isSignal ? "signal " : "slot ") + meta.method(i).methodSignature().toStdString());
    }
    EXPECT_EQ(found,
        (Names{"signal newPatSection(GstMpegtsSection*)", "signal newSdtSection(GstMpegtsSection*)",
            "signal newNitSection(GstMpegtsSection*)", "signal newPmtSection(GstMpegtsSection*)",
            "signal signalEndOfStream()", "slot doWork()"}));
}

/// The console device as a plain file in the test's private /dev, so that each opening can be counted.
class BusLoopConsole : public BusLoop
{
protected:
    void SetUp() override
    {
        if (!mediaenvironment::noPrivateMachine().empty())
            GTEST_SKIP() << mediaenvironment::noPrivateMachine();
        close(open(device, O_CREAT | O_TRUNC | O_WRONLY, 0600));
        m_notes = inotify_init1(IN_NONBLOCK);
        inotify_add_watch(m_notes, device, IN_OPEN | IN_CLOSE_WRITE | IN_MODIFY);
    }

    void TearDown() override
    {
        close(m_notes);
        std::error_code ignored;
        std::filesystem::remove(device, ignored);
    }

    /// How often the device was opened and closed again since the last call.
    int visits() const
    {
        alignas(inotify_event) char buffer[16384];
        const ssize_t size = read(m_notes, buffer, sizeof buffer);
        int found = 0;
        for (ssize_t at = 0; at < size;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            found += (event->mask & IN_CLOSE_WRITE) != 0 ? 1 : 0;
            EXPECT_EQ(event->mask & IN_MODIFY, 0U); // not a byte is written
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
        return found;
    }

    void settle()
    {
        postEnd();
        waitForEnds(++m_settled);
    }

    static constexpr const char* device = "/dev/ttymxc0";

private:
    int m_notes = -1;
    int m_settled = 0;
};

TEST_F(BusLoopConsole, EachUnexpectedMessageIsOneEmptyWrite) // the text is dropped: this is meant
{
    thread.start();
    for (int i = 0; i < 3; ++i)
        post(gst_message_new_application(GST_OBJECT(pipeline), gst_structure_new_empty("unexpected")));
    settle();
    EXPECT_EQ(visits(), 3);
    EXPECT_EQ(std::filesystem::file_size(device), 0U);
}

TEST_F(BusLoopConsole, WakingTheLoopLeavesTheConsoleAlone)
{
    thread.start();
    handler.wake();
    settle();
    EXPECT_EQ(visits(), 0);
}

TEST_F(BusLoopConsole, AnErrorIsOneEmptyWriteAndItsDetailsAnother)
{
    thread.start();
    GError* error = g_error_new_literal(GST_STREAM_ERROR, GST_STREAM_ERROR_DECODE, "can not be decoded");
    post(gst_message_new_error(GST_OBJECT(pipeline), error, nullptr));
    settle();
    EXPECT_EQ(visits(), 1);
    post(gst_message_new_error(GST_OBJECT(pipeline), error, "where it happened"));
    settle();
    EXPECT_EQ(visits(), 2);
    g_error_free(error);
    EXPECT_EQ(std::filesystem::file_size(device), 0U);
}

TEST_F(BusLoopConsole, SectionsAndTheEndOfAStreamLeaveTheConsoleAlone)
{
    thread.start();
    postSection(pipeline, makePat({1}));
    postSection(pipeline, makeNit(0, "other", 0x41));
    settle();
    EXPECT_EQ(visits(), 0);
}

} // namespace

#include "busloop_test.moc"
