// Playback: the decode branch, the decodebin callbacks on GStreamer's streaming threads, and stop.
#include "media/gstimpl.h"

#include "media/demuxguard.h"
#include "media/playchain.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <QtDebug>

namespace {

/// Answers of decodebin's "autoplug-select" (its enumeration is not in a public header).
enum AutoplugSelect { autoplugTry = 0, autoplugSkip = 2 };

constexpr guint decodebinBytes = 100000000;
constexpr gint64 maxLatenessNs = 200000000;
constexpr guint64 audioQueueTimeNs = 100000000000;
constexpr guint audioQueueBuffers = 1000;

bool contains(const gchar* text, const char* part)
{
    return std::strstr(text, part) != nullptr;
}

/// Name of the first structure; empty for caps without one (ANY, EMPTY, none yet).
const gchar* firstStructureName(const GstCaps* caps)
{
    if (!caps || gst_caps_get_size(caps) == 0)
        return "";
    return gst_structure_get_name(gst_caps_get_structure(caps, 0));
}

/// Decimal value of a structure's field into `out`; a field that is absent leaves it.
void readDecimal(const GstStructure* structure, const gchar* field, std::atomic<int>& out)
{
    const GValue* value = gst_structure_get_value(structure, field);
    const Owned<gchar> text(value ? gst_value_serialize(value) : nullptr);
    if (text)
        out = static_cast<int>(std::strtol(text.get(), nullptr, 10));
}

/// The chain of these handles; empty when one of them does not exist.
PlayChain chainOf(std::initializer_list<GstElement*> elements)
{
    const bool complete = std::find(elements.begin(), elements.end(), nullptr) == elements.end();
    return complete ? PlayChain(elements) : PlayChain();
}

} // namespace

int gstImpl::play(int programNumber)
{
    qDebug() << "------------------gstImpl play prog number=" << programNumber << "------------------";
    beginMode();
    m_programNumber = programNumber;
    if (!m_pDecodebin && !m_pVideoqueue && !m_pKmssink && !m_pAudioqueue && !m_pAudioconvert && !m_pAlsasink)
        createPlayBranch();
    return startPipeline();
}

void gstImpl::restart()
{
    qDebug("------------------gstImpl restart ------------------");
    play(m_programNumber);
}

void gstImpl::createPlayElements()
{
    m_pDecodebin = gst_element_factory_make("decodebin", "decodebin1");
    m_pVideoqueue = gst_element_factory_make("queue", "queueVideo");
    m_pKmssink = gst_element_factory_make("kmssink", "kmssink1");
    m_pAudioqueue = gst_element_factory_make("queue", "queueAudio");
    m_pAudioconvert = gst_element_factory_make("audioconvert", "audioconvert1");
    m_pAlsasink = gst_element_factory_make("alsasink", "alsasink1");
    g_object_set(m_pDecodebin, "max-size-buffers", 0u, "max-size-bytes", decodebinBytes, "max-size-time",
        guint64(0), nullptr);
    g_object_set(m_pKmssink.load(), "max-lateness", maxLatenessNs, "display-ratio", 0, nullptr);
    g_object_set(m_pAudioqueue.load(), "max-size-time", audioQueueTimeNs, "max-size-buffers",
        audioQueueBuffers, nullptr);
    g_signal_connect(m_pDecodebin, "autoplug-select", G_CALLBACK(cb_autoplug_select_decodebin), this);
    g_signal_connect(m_pDecodebin, "pad-added", G_CALLBACK(cb_new_pad_decodebin), this);
    g_signal_connect(m_pDecodebin, "element-added", G_CALLBACK(cb_element_added_decodebin), this);
    g_signal_connect(m_pDecodebin, "autoplug-continue", G_CALLBACK(cb_new_stream_decodebin), this);
    g_signal_connect(m_pDecodebin, "no-more-pads", G_CALLBACK(cb_no_more_pads_decodebin), this);
    m_playoutDelay.beginSound(m_pAlsasink);
}

void gstImpl::createPlayBranch()
{
    createPlayElements();
    unlinkOtherBranches(); // so that the decode branch takes the tee's first request pad
    for (GstElement* element : {m_pDecodebin, m_pVideoqueue.load(), m_pKmssink.load(), m_pAudioqueue.load(),
             m_pAudioconvert.load(), m_pAlsasink.load()})
        gst_bin_add(GST_BIN(m_pPipeline), element);
    gst_element_link(m_pTee, m_pDecodebin);
    gst_element_link(m_pVideoqueue, m_pKmssink);
    gst_element_link_many(m_pAudioqueue.load(), m_pAudioconvert.load(), m_pAlsasink.load(), nullptr);
    linkOtherBranches();
}

void gstImpl::unlinkOtherBranches()
{
    if (m_pQueueTsParse)
        gst_element_unlink_many(m_pTee, m_pQueueTsParse, m_pTsParse, m_pFakesink, nullptr);
    if (m_pQueueRec)
        gst_element_unlink_many(m_pTee, m_pQueueRec, m_pFilesink, nullptr);
    if (m_pQueuePciesink)
        gst_element_unlink_many(m_pTee, m_pQueuePciesink, m_pPciesink, nullptr);
}

void gstImpl::linkOtherBranches()
{
    if (m_pQueueTsParse)
        gst_element_link_many(m_pTee, m_pQueueTsParse, m_pTsParse, m_pFakesink, nullptr);
    if (m_pQueueRec)
        gst_element_link_many(m_pTee, m_pQueueRec, m_pFilesink, nullptr);
    if (m_pQueuePciesink)
        gst_element_link_many(m_pTee, m_pQueuePciesink, m_pPciesink, nullptr);
}

std::vector<GstElement*> gstImpl::videoChain() const
{
    return chainOf({m_pVideoqueue, m_pKmssink});
}

std::vector<GstElement*> gstImpl::audioChain() const
{
    return chainOf({m_pAudioqueue, m_pAudioconvert, m_pAlsasink});
}

void gstImpl::bringChainsBack()
{
    bringBack(videoChain());
    bringBack(audioChain());
}

/// `element` is a plain or an atomic handle.
template <typename Handle> void gstImpl::removeElement(Handle& element)
{
    if (element)
        gst_bin_remove(GST_BIN(m_pPipeline), element); // drops the pipeline's reference, the last one
    element = nullptr;
}

void gstImpl::stop()
{
    if (m_state == 0)
        return;
    qDebug("------------------gstImpl stop ------------------");
    gst_element_set_state(m_pPipeline, GST_STATE_NULL);
    bringChainsBack();
    removeElement(m_pQueueTsParse);
    removeElement(m_pTsParse);
    removeElement(m_pFakesink);
    removeElement(m_pDecodebin);
    removeElement(m_pVideoqueue);
    removeElement(m_pKmssink);
    removeElement(m_pAudioqueue);
    removeElement(m_pAudioconvert);
    removeElement(m_pAlsasink);
    removeElement(m_pQueueRec);
    removeElement(m_pFilesink);
    removeElement(m_pQueuePciesink);
    removeElement(m_pPciesink);
    m_state = 0;
}

void gstImpl::status(std::string* out)
{
    if (out)
        *out = m_state == 1 ? "running" : "stopped";
}

int gstImpl::getVideoDecodedWidth()
{
    return m_videoWidth;
}

int gstImpl::getVideoDecodedHeight()
{
    return m_videoHeight;
}

GstCaps* gstImpl::getVideoDecodedCaps()
{
    return m_videoCaps;
}

GstCaps* gstImpl::getAudioDecodedCaps()
{
    return m_audioCaps;
}

gint gstImpl::cb_autoplug_select_decodebin(GstBin*, GstPad*, GstCaps*, GstElementFactory* factory, void*)
{
    const gchar* name = GST_OBJECT_NAME(factory);
    g_print("Factory-select: %s\n", name);
    const bool skipped =
        contains(name, "aiurdemux") || contains(name, "h264parse") || contains(name, "h265parse");
    return skipped ? autoplugSkip : autoplugTry;
}

void gstImpl::cb_element_added_decodebin(GstBin*, GstElement* element, void* data)
{
    auto* self = static_cast<gstImpl*>(data);
    const Owned<gchar> name(gst_element_get_name(element));
    g_print("DECODBIN element-added: %s\r\n", name.get());
    if (contains(name.get(), "aiurdemux") || contains(name.get(), "tsdemux")) {
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(element), "program-number"))
            g_object_set(element, "program-number", self->m_programNumber.load(), nullptr);
        if (contains(name.get(), "tsdemux"))
            DemuxGuard::watch(element);
        self->m_playoutDelay.watch(element);
    } else if (contains(name.get(), "multiqueue")) {
        self->m_pMultiqueue = element;
    }
}

gboolean gstImpl::cb_new_stream_decodebin(GstBin*, GstPad* pad, GstCaps* caps, void* data)
{
    auto* self = static_cast<gstImpl*>(data);
    g_print("DECODEBIN new stream: pad name=%s (address=%d); caps string=%s (address=%d)\n",
        Owned<gchar>(gst_pad_get_name(pad)).get(), GPOINTER_TO_INT(pad),
        Owned<gchar>(gst_caps_to_string(caps)).get(), GPOINTER_TO_INT(caps));

    const gchar* name = firstStructureName(caps);
    if (contains(name, "video/mpegts") || contains(name, "video/x-matroska") || contains(name, "video/x-raw")
        || contains(name, "audio/x-raw"))
        return TRUE;
    if (contains(name, "video/")) {
        self->takeCaps(self->m_videoCaps, self->m_videoCapsPad, pad, caps);
        return TRUE;
    }
    // No decoder for AC-4; what else there is, is not played.
    if (contains(name, "audio/x-ac4") || !contains(name, "audio/"))
        return FALSE;
    self->takeCaps(self->m_audioCaps, self->m_audioCapsPad, pad, caps);
    return TRUE;
}

/// The first pad of its kind is the one that is reported; the same pad may come again with better caps.
void gstImpl::takeCaps(
    std::atomic<GstCaps*>& field, std::atomic<GstPad*>& fieldPad, GstPad* pad, const GstCaps* caps)
{
    const MutexLock lock(m_capsMutex);
    if (fieldPad != nullptr && fieldPad != pad)
        return;
    m_takenCaps.emplace_back(gst_caps_copy(caps));
    field = m_takenCaps.back().get();
    fieldPad = pad;
}

gboolean gstImpl::cb_new_pad_decodebin(GstElement* element, GstPad* pad, void* data)
{
    auto* self = static_cast<gstImpl*>(data);
    const Owned<gchar> padName(gst_pad_get_name(pad));
    g_print("A new pad %s was created for %s\n", padName.get(),
        Owned<gchar>(gst_element_get_name(element)).get());
    const Owned<GstCaps> caps(gst_pad_get_current_caps(pad));
    const Owned<gchar> capsText(caps ? gst_caps_to_string(caps.get()) : g_strdup(""));
    if (contains(capsText.get(), "video") && !self->m_videoLinked) {
        rejoin(self->videoChain()); // a pad that comes later than the others
        gst_element_link(element, self->m_pVideoqueue);
        g_print("Link video %s of Decodebin with caps : %s\n", padName.get(), capsText.get());
        self->readPictureSize(caps.get());
        self->m_videoLinked = true;
    } else if (contains(capsText.get(), "audio") && !self->m_audioLinked) {
        rejoin(self->audioChain());
        gst_element_link(element, self->m_pAudioqueue);
        g_print("Link audio %s of Decodebin with caps : %s\n", padName.get(), capsText.get());
        self->m_audioLinked = true;
    }
    return TRUE;
}

void gstImpl::cb_no_more_pads_decodebin(GstElement*, void* data)
{
    const auto* self = static_cast<gstImpl*>(data);
    for (const PlayChain& chain : {self->videoChain(), self->audioChain()}) {
        if (!chain.empty() && !isFed(chain))
            setAside(chain);
    }
}

void gstImpl::readPictureSize(const GstCaps* caps)
{
    if (gst_caps_get_size(caps) == 0)
        return;
    const GstStructure* structure = gst_caps_get_structure(caps, 0);
    readDecimal(structure, "width", m_videoWidth);
    readDecimal(structure, "height", m_videoHeight);
}
