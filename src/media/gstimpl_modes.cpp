// What all modes share, and the modes without decoding: record, send to the FPGA, scan.
#include "media/gstimpl.h"

#include <QtDebug>

void gstImpl::beginMode()
{
    gst_element_set_state(m_pPipeline, GST_STATE_NULL);
    bringChainsBack();
    m_playoutDelay.reset(m_pPipeline);
    m_state = 1;
}

int gstImpl::startPipeline()
{
    resetDecodeState();
    return gst_element_set_state(m_pPipeline, GST_STATE_PLAYING);
}

void gstImpl::resetDecodeState()
{
    m_videoLinked = false;
    m_audioLinked = false;
    m_videoWidth = -1;
    m_videoHeight = -1;
    m_videoCaps = nullptr;
    m_videoCapsPad = nullptr;
    m_audioCaps = nullptr;
    m_audioCapsPad = nullptr;
    // Called with the pipeline stopped, on the thread of the only reader: nobody holds a taken caps any more.
    const MutexLock lock(m_capsMutex);
    m_takenCaps.clear();
}

void gstImpl::record(std::string location)
{
    qDebug("------------------gstImpl record ------------------");
    beginMode();
    if (!m_pQueueRec && !m_pFilesink) {
        m_pQueueRec = gst_element_factory_make("queue", "queueRecord");
        m_pFilesink = gst_element_factory_make("filesink", "filesink1");
        // Unbounded: a slow card must not lose packets of the other branches.
        g_object_set(
            m_pQueueRec, "max-size-buffers", 0u, "max-size-bytes", 0u, "max-size-time", guint64(0), nullptr);
        gst_bin_add(GST_BIN(m_pPipeline), m_pQueueRec);
        gst_bin_add(GST_BIN(m_pPipeline), m_pFilesink);
        gst_element_link_many(m_pTee, m_pQueueRec, m_pFilesink, nullptr);
    }
    g_object_set(m_pFilesink, "location", location.c_str(), nullptr);
    startPipeline();
}

int gstImpl::sendStream()
{
    qDebug("------------------gstImpl sendTSstream ------------------");
    beginMode();
    if (!m_pQueuePciesink && !m_pPciesink) {
        m_pQueuePciesink = gst_element_factory_make("queue", "queuePciesink");
        m_pPciesink = gst_element_factory_make("pciesink", "pciesink1");
        gst_bin_add(GST_BIN(m_pPipeline), m_pQueuePciesink);
        gst_bin_add(GST_BIN(m_pPipeline), m_pPciesink);
        gst_element_link_many(m_pTee, m_pQueuePciesink, m_pPciesink, nullptr);
    }
    return startPipeline();
}

int gstImpl::scan()
{
    qDebug("------------------gstImpl scan ------------------");
    beginMode();
    clearPIDFilter();
    if (!m_pQueueTsParse && !m_pTsParse && !m_pFakesink) {
        m_pQueueTsParse = gst_element_factory_make("queue", "queueTsParse");
        m_pTsParse = gst_element_factory_make("tsparse", "tsparse");
        m_pFakesink = gst_element_factory_make("fakesink", "fakesink");
        g_object_set(m_pQueueTsParse, "max-size-buffers", 0u, "max-size-bytes", 0u, "max-size-time",
            guint64(0), nullptr);
        g_object_set(m_pFakesink, "async", FALSE, nullptr);
        gst_bin_add(GST_BIN(m_pPipeline), m_pQueueTsParse);
        gst_bin_add(GST_BIN(m_pPipeline), m_pTsParse);
        gst_bin_add(GST_BIN(m_pPipeline), m_pFakesink);
        gst_element_link_many(m_pTee, m_pQueueTsParse, m_pTsParse, m_pFakesink, nullptr);
    }
    return startPipeline();
}

void gstImpl::debugdotfile(std::string name)
{
    qDebug("------------------gstImpl debugdotfile ------------------");
    gst_debug_bin_to_dot_file(GST_BIN(m_pPipeline), GST_DEBUG_GRAPH_SHOW_ALL, name.c_str());
}
