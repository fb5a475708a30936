// Queue diagnostics: what they log, and for which queues.
#include "kit/gstreamer.h"
#include "media/gstimpl.h"
#include "support/ttyfixture.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <memory>

namespace {

const std::string closingLine = std::string(85, '-') + "\r\n";

std::unique_ptr<gstImpl> makePipeline()
{
    tessary::test::startGStreamer();
    GstElement* silent = gst_element_factory_make("fakesrc", nullptr);
    g_object_set(silent, "num-buffers", 0, nullptr);
    return std::make_unique<gstImpl>(silent);
}

std::vector<std::string> queueLines(gstImpl& pipeline)
{
    LogCapture log;
    pipeline.debugQueueSize();
    return log.lines();
}

bool beginsWith(const std::string& text, const std::string& beginning)
{
    return text.compare(0, beginning.size(), beginning) == 0;
}

} // namespace

TEST(QueueDiagnostics, WithoutModeOnlyTheClosingLineIsWritten)
{
    const std::unique_ptr<gstImpl> pipeline = makePipeline();
    EXPECT_EQ(queueLines(*pipeline), std::vector<std::string>{closingLine});
}

TEST(QueueDiagnostics, AfterAScanOnlyItsQueueIsReported)
{
    const std::unique_ptr<gstImpl> pipeline = makePipeline();
    pipeline->scan();
    const std::vector<std::string> lines = queueLines(*pipeline);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "m_pQueueTsParse maxbuffers= 0  maxbytes= 0  maxtime= 0 ns \r\n");
    EXPECT_EQ(lines[1], "m_pQueueTsParse currentbuffers= 0  currentbytes= 0  currenttime= 0 ns \r\n");
    EXPECT_EQ(lines[2], closingLine);
}

TEST(QueueDiagnostics, QueuesAreReportedInAFixedOrder)
{
    const std::unique_ptr<gstImpl> pipeline = makePipeline();
    pipeline->sendStream();
    pipeline->record("/dev/null");
    pipeline->scan();
    const std::vector<std::string> lines = queueLines(*pipeline);
    ASSERT_EQ(lines.size(), 7u);
    EXPECT_TRUE(beginsWith(lines[0], "m_pQueueTsParse maxbuffers= ")) << lines[0];
    EXPECT_TRUE(beginsWith(lines[1], "m_pQueueTsParse currentbuffers= ")) << lines[1];
    EXPECT_TRUE(beginsWith(lines[2], "m_pQueueRec maxbuffers= ")) << lines[2];
    EXPECT_TRUE(beginsWith(lines[3], "m_pQueueRec currentbuffers= ")) << lines[3];
    EXPECT_TRUE(beginsWith(lines[4], "m_pQueuePciesink maxbuffers= ")) << lines[4];
    EXPECT_TRUE(beginsWith(lines[5], "m_pQueuePciesink currentbuffers= ")) << lines[5];
    EXPECT_EQ(lines[6], closingLine);
}

TEST(QueueDiagnostics, PlayReportsItsTwoQueuesFirst)
{
    const std::unique_ptr<gstImpl> pipeline = makePipeline();
    pipeline->play(1);
    const std::vector<std::string> lines = queueLines(*pipeline);
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_TRUE(beginsWith(lines[0], "m_pVideoqueue maxbuffers= ")) << lines[0];
    EXPECT_TRUE(beginsWith(lines[1], "m_pVideoqueue currentbuffers= ")) << lines[1];
    EXPECT_TRUE(beginsWith(lines[2], "m_pAudioqueue maxbuffers= ")) << lines[2];
    EXPECT_TRUE(beginsWith(lines[3], "m_pAudioqueue currentbuffers= ")) << lines[3];
}

TEST(QueueDiagnostics, EventsNameTheQueueOnStandardOutput)
{
    tessary::test::startGStreamer();
    GstElement* queue = gst_element_factory_make("queue", "queueVideo");
    gst_object_ref_sink(queue);
    testing::internal::CaptureStdout();
    gstImpl::cb_underrun_queue(queue, nullptr);
    gstImpl::cb_overrun_queue(queue, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
        "UNDERRUN QUEUE: queueVideo\r\nOVERRUN QUEUE: queueVideo\r\n");
    gst_object_unref(queue);
}

TEST(QueueDiagnostics, CallbacksFitTheQueuesSignals)
{
    tessary::test::startGStreamer();
    GstElement* queue = gst_element_factory_make("queue", "queueRecord");
    gst_object_ref_sink(queue);
    g_signal_connect(queue, "underrun", G_CALLBACK(gstImpl::cb_underrun_queue), nullptr);
    g_signal_connect(queue, "overrun", G_CALLBACK(gstImpl::cb_overrun_queue), nullptr);
    testing::internal::CaptureStdout();
    g_signal_emit_by_name(queue, "underrun");
    g_signal_emit_by_name(queue, "overrun");
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
        "UNDERRUN QUEUE: queueRecord\r\nOVERRUN QUEUE: queueRecord\r\n");
    gst_object_unref(queue);
}
