#include "platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

namespace {

void loadPluginFile(const std::string& path)
{
    GError* error = nullptr;
    GstPlugin* plugin = gst_plugin_load_file(path.c_str(), &error);
    ASSERT_NE(plugin, nullptr) << error->message;
    gst_object_unref(plugin);
}

/// GStreamer with the instrument's elements and only what the tests name, away from the user's plug-in cache:
/// the start is quick, and "kmssink" means ours and not Debian's.
class Platform : public testing::Environment
{
public:
    void SetUp() override
    {
        namespace fs = std::filesystem;
        const fs::path folder = scratchFolder();
        fs::create_directory(folder / "plugins"); // stays empty
        ::setenv("GST_PLUGIN_SYSTEM_PATH_1_0", (folder / "plugins").c_str(), 1);
        ::setenv("GST_PLUGIN_PATH_1_0", "", 1);
        ::setenv("GST_REGISTRY_1_0", (folder / "registry.bin").c_str(), 1);
        ::setenv("GST_REGISTRY_FORK", "no", 1);
        ::setenv("ALSA_PLUGIN_DIR", INSTRUMENT_MODULES, 1);
        ::setenv("ALSA_CONFIG_PATH", "/usr/share/alsa/alsa.conf:" INSTRUMENT_ASOUND_CONF, 1);
        ::setenv("INSTRUMENT_SOUND", (folder / "sound.wav").c_str(), 1);
        gst_init(nullptr, nullptr);
        loadPlugins({"coreelements", "videotestsrc", "audiotestsrc", "audioconvert", "alsa"});
        loadPluginFile(INSTRUMENT_PLUGIN);
    }

    void TearDown() override
    {
        std::error_code ignored;
        std::filesystem::remove_all(scratchFolder(), ignored);
    }
};

[[maybe_unused]] const testing::Environment* const platform = testing::AddGlobalTestEnvironment(new Platform);

} // namespace

void loadPlugins(const std::vector<std::string>& names)
{
    for (const std::string& name : names)
        loadPluginFile(GST_PLUGINS_FOLDER "/libgst" + name + ".so");
}

const std::string& scratchFolder()
{
    static const std::string folder = [] {
        std::string name = (std::filesystem::temp_directory_path() / "elements-test-XXXXXX").string();
        return ::mkdtemp(name.data()) != nullptr ? name : std::string();
    }();
    return folder;
}

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

Pipeline::Pipeline(const std::string& description)
{
    GError* error = nullptr;
    m_pipeline = gst_parse_launch(description.c_str(), &error);
    EXPECT_EQ(error, nullptr) << error->message;
    g_clear_error(&error);
}

Pipeline::~Pipeline()
{
    if (m_pipeline == nullptr)
        return;
    gst_element_set_state(m_pipeline, GST_STATE_NULL);
    gst_object_unref(m_pipeline);
}

GstElement* Pipeline::element(const char* name) const
{
    GstElement* element = gst_bin_get_by_name(GST_BIN(m_pipeline), name);
    EXPECT_NE(element, nullptr) << name;
    if (element != nullptr)
        gst_object_unref(element);
    return element;
}

void Pipeline::setState(GstState state)
{
    gst_element_set_state(m_pipeline, state);
}

std::string Pipeline::waitForMessage(GstMessageType types, std::chrono::seconds limit)
{
    GstBus* bus = gst_element_get_bus(m_pipeline);
    GstMessage* message =
        gst_bus_timed_pop_filtered(bus, static_cast<GstClockTime>(limit.count()) * GST_SECOND, types);
    gst_object_unref(bus);
    std::string text = "nothing happened in time";
    if (message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS)
        text = "";
    if (message != nullptr && GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR) {
        GError* error = nullptr;
        gst_message_parse_error(message, &error, nullptr);
        text = error->message;
        g_clear_error(&error);
    }
    if (message != nullptr)
        gst_message_unref(message);
    return text;
}

std::string Pipeline::playToEnd(std::chrono::seconds limit)
{
    setState(GST_STATE_PLAYING);
    std::string text =
        waitForMessage(static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR), limit);
    setState(GST_STATE_NULL);
    return text;
}

std::string Pipeline::waitForError(std::chrono::seconds limit)
{
    return waitForMessage(GST_MESSAGE_ERROR, limit);
}

Collector::Collector(const Pipeline& pipeline, const char* fakesink)
    : m_sink(GST_ELEMENT(gst_object_ref(pipeline.element(fakesink))))
{
    g_object_set(m_sink, "signal-handoffs", TRUE, nullptr);
    const std::lock_guard<std::mutex> lock(m_mutex); // hands the members over to the streaming thread
    m_handler = g_signal_connect(m_sink, "handoff", G_CALLBACK(onHandoff), this);
}

Collector::~Collector()
{
    g_signal_handler_disconnect(m_sink, m_handler);
    gst_object_unref(m_sink);
    const std::lock_guard<std::mutex> lock(m_mutex); // and takes them back
}

void Collector::onHandoff(GstElement*, GstBuffer* buffer, GstPad*, gpointer self)
{
    auto* collector = static_cast<Collector*>(self);
    Block block;
    block.bytes.resize(gst_buffer_get_size(buffer));
    gst_buffer_extract(buffer, 0, block.bytes.data(), block.bytes.size());
    block.pts = GST_BUFFER_PTS(buffer);
    block.discont = GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_DISCONT);
    const std::lock_guard<std::mutex> lock(collector->m_mutex);
    collector->m_byteCount += block.bytes.size();
    collector->m_blocks.push_back(std::move(block));
    collector->m_changed.notify_all();
}

std::vector<Collector::Block> Collector::blocks() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_blocks;
}

std::vector<std::uint8_t> Collector::bytes() const
{
    std::vector<std::uint8_t> all;
    for (const Block& block : blocks())
        all.insert(all.end(), block.bytes.begin(), block.bytes.end());
    return all;
}

bool Collector::waitForBytes(std::size_t count, std::chrono::milliseconds limit) const
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [this, count] { return m_byteCount >= count; });
}
