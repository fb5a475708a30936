// Queue levels and events, for tuning the queue limits at the desk. Nothing in the daemon calls or connects
// them.
#include "media/gstimpl.h"

#include <QtDebug>
#include <string>

namespace {

void logQueue(GstElement* queue, const std::string& label)
{
    if (!queue)
        return;
    guint maxBuffers = 0;
    guint maxBytes = 0;
    guint64 maxTime = 0;
    guint buffers = 0;
    guint bytes = 0;
    guint64 time = 0;
    g_object_get(queue, "max-size-buffers", &maxBuffers, "max-size-bytes", &maxBytes, "max-size-time",
        &maxTime, "current-level-buffers", &buffers, "current-level-bytes", &bytes, "current-level-time",
        &time, nullptr);
    const std::string maxLabel = label + " maxbuffers=";
    const std::string currentLabel = label + " currentbuffers=";
    qDebug() << maxLabel.c_str() << maxBuffers << " maxbytes=" << maxBytes << " maxtime=" << maxTime
             << "ns \r\n";
    qDebug() << currentLabel.c_str() << buffers << " currentbytes=" << bytes << " currenttime=" << time
             << "ns \r\n";
}

void printEvent(const char* event, GstElement* queue)
{
    g_print("%s QUEUE: %s\r\n", event, Owned<gchar>(gst_element_get_name(queue)).get());
}

} // namespace

void gstImpl::debugQueueSize()
{
    logQueue(m_pVideoqueue, "m_pVideoqueue");
    logQueue(m_pAudioqueue, "m_pAudioqueue");
    logQueue(m_pQueueTsParse, "m_pQueueTsParse");
    logQueue(m_pQueueRec, "m_pQueueRec");
    logQueue(m_pQueuePciesink, "m_pQueuePciesink");
    qDebug("%s\r\n", std::string(85, '-').c_str());
}

void gstImpl::cb_underrun_queue(GstElement* queue, void*)
{
    printEvent("UNDERRUN", queue);
}

void gstImpl::cb_overrun_queue(GstElement* queue, void*)
{
    printEvent("OVERRUN", queue);
}
