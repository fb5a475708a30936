// Construction and destruction: the fixed head of the pipeline and the bus thread.
#include "media/gstimpl.h"

#include "media/gstmsghandler.h"

#include <QtDebug>
#include <QThread>

namespace {

constexpr guint headQueueBytes = 20000000;
constexpr unsigned long endWaitMs = 5000;

void releaseUnused(GstElement* element)
{
    if (element)
        gst_object_unref(gst_object_ref_sink(element));
}

} // namespace

gstImpl::gstImpl(GstElement* source)
    : QObject(nullptr)
    , m_pSource(source)
{
    qDebug("------------------gstImpl Constr ------------------");
    if (createHead())
        startBusThread();
}

bool gstImpl::createHead()
{
    qDebug("------------------gstImpl createPipeline ------------------");
    m_pPipeline = gst_pipeline_new("Gstreamer player");
    m_pQueue1 = gst_element_factory_make("queue", "queue1");
    if (m_pQueue1) {
        // Bytes are the only limit: a transport stream's buffers carry no duration.
        g_object_set(m_pQueue1, "max-size-buffers", 0u, "max-size-bytes", headQueueBytes, "max-size-time",
            guint64(0), nullptr);
    }
    m_pTee = gst_element_factory_make("tee", "tee");
    if (!m_pPipeline || !m_pSource || !m_pQueue1 || !m_pTee) {
        qDebug("Failed to create gstreamer element.");
        releaseUnused(m_pSource);
        releaseUnused(m_pQueue1);
        releaseUnused(m_pTee);
        m_pSource = m_pQueue1 = m_pTee = nullptr;
        return false;
    }
    gst_bin_add_many(GST_BIN(m_pPipeline), m_pSource, m_pQueue1, m_pTee, nullptr);
    gst_element_link_many(m_pSource, m_pQueue1, m_pTee, nullptr);
    return true;
}

void gstImpl::startBusThread()
{
    m_pThread = new QThread;
    m_pMsgHandler = new gstmsgHandler(m_pPipeline);
    m_pMsgHandler->moveToThread(m_pThread);
    connect(m_pThread, SIGNAL(started()), m_pMsgHandler, SLOT(doWork()));
    leaveRestToThread();
    // Direct: the slots run inside the bus loop, on its thread.
    connect(m_pMsgHandler, SIGNAL(newPatSection(GstMpegtsSection*)), this,
        SLOT(newPatSectionReceived(GstMpegtsSection*)), Qt::DirectConnection);
    connect(m_pMsgHandler, SIGNAL(newSdtSection(GstMpegtsSection*)), this,
        SLOT(newSdtSectionReceived(GstMpegtsSection*)), Qt::DirectConnection);
    connect(m_pMsgHandler, SIGNAL(newNitSection(GstMpegtsSection*)), this,
        SLOT(newNitSectionReceived(GstMpegtsSection*)), Qt::DirectConnection);
    connect(m_pMsgHandler, SIGNAL(newPmtSection(GstMpegtsSection*)), this,
        SLOT(newPmtSectionReceived(GstMpegtsSection*)), Qt::DirectConnection);
    connect(m_pMsgHandler, SIGNAL(signalEndOfStream()), this, SLOT(slotEndOfStream()), Qt::DirectConnection);
    m_pThread->start(QThread::InheritPriority);
}

gstImpl::~gstImpl()
{
    if (m_state != 0)
        stop();
    qDebug("------------------gstImpl Destruct ------------------");
    clearPIDFilter();
    endBusThread();
    bringChainsBack();
    resetDecodeState();
    if (m_pPipeline)
        gst_object_unref(m_pPipeline);
}

/// For a bus thread that is still held up when the wait for it is over: it keeps what it may yet touch, and
/// takes it along when it ends. (Deleting a QThread that runs would end the whole process.)
void gstImpl::leaveRestToThread()
{
    m_oneHasLetGo = std::make_shared<std::atomic<bool>>(false);
    connect(
        m_pThread, &QThread::finished, m_pMsgHandler,
        [oneHasLetGo = m_oneHasLetGo, thread = m_pThread, handler = m_pMsgHandler, pipeline = m_pPipeline] {
            if (!oneHasLetGo->exchange(true))
                return;
            gst_object_unref(pipeline);
            handler->deleteLater();
            thread->deleteLater();
        },
        Qt::DirectConnection);
}

void gstImpl::endBusThread()
{
    if (!m_pThread)
        return;
    m_pThread->requestInterruption();
    m_pMsgHandler->wake();
    // Waited for and not asked: a thread calls itself finished before it has run its last deferred deletions.
    bool ended = m_pThread->wait(endWaitMs);
    if (!ended) {
        m_pMsgHandler->disconnect(this);
        gst_object_ref(m_pPipeline);
        ended = m_oneHasLetGo->exchange(true);
        if (ended) { // in the last moment
            m_pThread->wait();
            gst_object_unref(m_pPipeline);
        }
    }
    if (ended) {
        delete m_pMsgHandler;
        delete m_pThread;
    }
    m_pMsgHandler = nullptr;
    m_pThread = nullptr;
}

void gstImpl::slotEndOfStream()
{
    m_state = 0;
}
