#include "mediatest.h"

#include "media/gstimpl.h"
#include "mediaenvironment.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>

namespace {

[[maybe_unused]] const bool environmentKnown = mediaenvironment::prepare();

// One set of states for the process: GLib's print handler takes no user data, and a thread may print late.
std::mutex printMutex;
std::condition_variable printChanged;
std::string printed;
std::string holdLine;
bool held = false;
GPrintFunc earlierPrint = nullptr;

std::mutex watchMutex;
GWeakRef watchedPipeline;
std::vector<std::string> watchedNames;

int occurrences(const std::string& text, const std::string& part)
{
    int found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++found;
    return found;
}

void collectPrint(const gchar* text)
{
    std::unique_lock<std::mutex> lock(printMutex);
    printed += text;
    if (!holdLine.empty() && holdLine == text) {
        held = true;
        printChanged.notify_all();
        printChanged.wait(lock, [] { return holdLine.empty(); });
        held = false;
    }
    printChanged.notify_all();
}

/// Emission hook of every bin's "element-added".
gboolean noteAddition(GSignalInvocationHint*, guint, const GValue* values, gpointer)
{
    auto* bin = static_cast<GstElement*>(g_value_get_object(&values[0]));
    auto* added = static_cast<GstElement*>(g_value_get_object(&values[1]));
    if (GST_IS_PIPELINE(bin) && std::strcmp(GST_OBJECT_NAME(bin), "Gstreamer player") == 0) {
        const std::lock_guard<std::mutex> lock(watchMutex);
        g_weak_ref_set(&watchedPipeline, bin);
        watchedNames.emplace_back(GST_OBJECT_NAME(added));
    }
    return TRUE;
}

} // namespace

PrintCapture::PrintCapture()
{
    forget();
    earlierPrint = g_set_print_handler(collectPrint);
}

PrintCapture::~PrintCapture()
{
    release();
    g_set_print_handler(earlierPrint);
}

std::string PrintCapture::text() const
{
    const std::lock_guard<std::mutex> lock(printMutex);
    return printed;
}

int PrintCapture::count(const std::string& part) const
{
    return occurrences(text(), part);
}

bool PrintCapture::waitFor(const std::string& part, int times, int timeoutMs) const
{
    std::unique_lock<std::mutex> lock(printMutex);
    return printChanged.wait_for(
        lock, std::chrono::milliseconds(timeoutMs), [&] { return occurrences(printed, part) >= times; });
}

void PrintCapture::forget()
{
    const std::lock_guard<std::mutex> lock(printMutex);
    printed.clear();
}

void PrintCapture::holdAt(const std::string& line)
{
    const std::lock_guard<std::mutex> lock(printMutex);
    holdLine = line;
}

bool PrintCapture::waitUntilHeld() const
{
    std::unique_lock<std::mutex> lock(printMutex);
    return printChanged.wait_for(lock, std::chrono::milliseconds(patienceMs), [] { return held; });
}

void PrintCapture::release()
{
    const std::lock_guard<std::mutex> lock(printMutex);
    holdLine.clear();
    printChanged.notify_all();
}

PipelineWatch::PipelineWatch()
{
    const std::lock_guard<std::mutex> lock(watchMutex);
    watchedNames.clear();
    g_weak_ref_init(&watchedPipeline, nullptr);
    g_type_class_unref(g_type_class_ref(GST_TYPE_BIN)); // so that the signal is known
    m_hook = g_signal_add_emission_hook(
        g_signal_lookup("element-added", GST_TYPE_BIN), 0, noteAddition, nullptr, nullptr);
}

PipelineWatch::~PipelineWatch()
{
    g_signal_remove_emission_hook(g_signal_lookup("element-added", GST_TYPE_BIN), m_hook);
    const std::lock_guard<std::mutex> lock(watchMutex);
    g_weak_ref_clear(&watchedPipeline);
}

GstElement* PipelineWatch::pipeline() const
{
    const std::lock_guard<std::mutex> lock(watchMutex);
    auto* found = static_cast<GstElement*>(g_weak_ref_get(&watchedPipeline));
    if (found)
        gst_object_unref(found); // its owner keeps it
    return found;
}

std::vector<std::string> PipelineWatch::added() const
{
    const std::lock_guard<std::mutex> lock(watchMutex);
    return watchedNames;
}

GstElement* idleSource()
{
    GstElement* bin = gst_bin_new("my_bin");
    GstElement* queue = gst_element_factory_make("queue", "idle");
    gst_bin_add(GST_BIN(bin), queue);
    GstPad* pad = gst_element_get_static_pad(queue, "src");
    gst_element_add_pad(bin, gst_ghost_pad_new("src", pad));
    gst_object_unref(pad);
    return bin;
}

MediaTest::MediaTest() = default;

MediaTest::~MediaTest()
{
    prints.release();
    destroy();
}

gstImpl& MediaTest::make(GstElement* source)
{
    m_object = std::make_unique<gstImpl>(source);
    return *m_object;
}

void MediaTest::destroy()
{
    m_object.reset();
}

GstElement* MediaTest::element(const char* name) const
{
    GstElement* found = pipeline() ? gst_bin_get_by_name(GST_BIN(pipeline()), name) : nullptr;
    if (found)
        gst_object_unref(found); // the pipeline keeps it
    return found;
}

std::vector<std::string> MediaTest::elements() const
{
    std::vector<std::string> names;
    for (GList* item = GST_BIN_CHILDREN(pipeline()); item; item = item->next)
        names.emplace_back(GST_OBJECT_NAME(item->data));
    std::sort(names.begin(), names.end());
    return names;
}

namespace {

std::string peerName(GstPad* pad)
{
    GstPad* peer = gst_pad_get_peer(pad);
    if (!peer)
        return "-";
    GstElement* parent = gst_pad_get_parent_element(peer);
    std::string name = GST_OBJECT_NAME(parent);
    gst_object_unref(parent);
    gst_object_unref(peer);
    return name;
}

} // namespace

std::string MediaTest::next(const char* name) const
{
    GstElement* from = element(name);
    if (!from || !from->srcpads)
        return {};
    const std::string peer = peerName(GST_PAD(from->srcpads->data));
    return peer == "-" ? std::string() : peer;
}

std::vector<std::string> MediaTest::teeBranches() const
{
    std::vector<std::string> names;
    for (GList* item = element("tee")->srcpads; item; item = item->next)
        names.push_back(peerName(GST_PAD(item->data)));
    return names;
}

std::string MediaTest::status()
{
    std::string text;
    m_object->status(&text);
    return text;
}

bool MediaTest::reaches(GstState state) const
{
    return eventually([&] {
        GstState current = GST_STATE_VOID_PENDING;
        gst_element_get_state(pipeline(), &current, nullptr, 0);
        return current == state;
    });
}

bool announceStream(GstElement* decoder, GstPad* pad, const char* capsText)
{
    GstCaps* caps = gst_caps_from_string(capsText);
    gboolean answer = FALSE;
    g_signal_emit_by_name(decoder, "autoplug-continue", pad, caps, &answer);
    gst_caps_unref(caps);
    return answer != FALSE;
}

void exposeStream(GstElement* decoder, const char* padName, GstCaps* caps)
{
    GstPad* pad = gst_pad_new(padName, GST_PAD_SRC);
    gst_pad_set_active(pad, TRUE);
    gst_pad_push_event(pad, gst_event_new_stream_start(padName));
    if (caps)
        gst_pad_push_event(pad, gst_event_new_caps(caps));
    gst_element_add_pad(decoder, pad);
}

std::string propertyText(GstElement* element, const char* name)
{
    const GParamSpec* property = g_object_class_find_property(G_OBJECT_GET_CLASS(element), name);
    if (!property)
        return "no such property";
    GValue value = G_VALUE_INIT;
    g_value_init(&value, property->value_type);
    g_object_get_property(G_OBJECT(element), name, &value);
    gchar* text = G_VALUE_HOLDS_STRING(&value) ? g_value_dup_string(&value) : gst_value_serialize(&value);
    std::string result = text ? text : "";
    g_free(text);
    g_value_unset(&value);
    return result;
}

std::string factoryName(GstElement* element)
{
    return GST_OBJECT_NAME(gst_element_get_factory(element));
}

ScratchFolder::ScratchFolder()
{
    char name[] = "/tmp/tessary-media-XXXXXX";
    m_path = mkdtemp(name);
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}
