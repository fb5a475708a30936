#pragma once

#include <gst/gst.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

/// How long a test waits for what must happen: it waits so long only when it fails.
constexpr std::chrono::seconds patience{60};

/// Loads GStreamer plug-ins of the system by their short names ("libav"), beside those every test has:
/// coreelements, videotestsrc, audiotestsrc, audioconvert, alsa and the instrument's own.
void loadPlugins(const std::vector<std::string>& names);

/// A folder of this test process, removed at its end.
const std::string& scratchFolder();

/// Waits until the condition holds, at most `limit`. Returns whether it does.
bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds limit = patience);

/// A pipeline written as for gst-launch, ended and released with the object.
class Pipeline
{
public:
    explicit Pipeline(const std::string& description);
    ~Pipeline();
    Pipeline(const Pipeline&) = delete;
    Pipeline& operator=(const Pipeline&) = delete;

    GstElement* get() const { return m_pipeline; }
    /// The element of that name, borrowed from the pipeline.
    GstElement* element(const char* name) const;
    void setState(GstState state);
    /// Plays until the end of the stream or an error. Returns "" for the end, else the error's or the
    /// time-out's text.
    std::string playToEnd(std::chrono::seconds limit = patience);
    /// Waits for an error message. Returns its text, "" if none comes.
    std::string waitForError(std::chrono::seconds limit = patience);

private:
    std::string waitForMessage(GstMessageType types, std::chrono::seconds limit);

    GstElement* m_pipeline = nullptr; // owned
};

/// Keeps what a fakesink gets. Safe to ask while the pipeline plays.
class Collector
{
public:
    struct Block
    {
        std::vector<std::uint8_t> bytes;
        GstClockTime pts = GST_CLOCK_TIME_NONE;
        bool discont = false;
    };

    /// Follows the fakesink of that name in the pipeline, from now on.
    explicit Collector(const Pipeline& pipeline, const char* fakesink = "out");
    ~Collector();
    Collector(const Collector&) = delete;
    Collector& operator=(const Collector&) = delete;

    std::vector<Block> blocks() const;
    std::vector<std::uint8_t> bytes() const;
    bool waitForBytes(std::size_t count, std::chrono::milliseconds limit = patience) const;

private:
    static void onHandoff(GstElement* sink, GstBuffer* buffer, GstPad* pad, gpointer self);

    GstElement* m_sink; // owned reference
    gulong m_handler;
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<Block> m_blocks; // guarded by m_mutex
    std::size_t m_byteCount = 0; // guarded by m_mutex
};
