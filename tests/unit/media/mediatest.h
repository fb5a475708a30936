#pragma once

#include "media/mpegts.h"
#include "support/ttyfixture.h"

#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <vector>

class gstImpl;

/// Collects what is printed on standard output with g_print() while the object lives. Any thread may print.
class PrintCapture
{
public:
    PrintCapture();
    ~PrintCapture();
    PrintCapture(const PrintCapture&) = delete;
    PrintCapture& operator=(const PrintCapture&) = delete;

    std::string text() const;
    /// How often `part` was printed.
    int count(const std::string& part) const;
    /// True once `part` was printed `times` times; false when that does not happen in time.
    bool waitFor(const std::string& part, int times = 1, int timeoutMs = patienceMs) const;
    void forget();

    /// The thread that prints exactly `line` is held up in doing so until release(), as by a standard output
    /// that nobody reads.
    void holdAt(const std::string& line);
    bool waitUntilHeld() const;
    void release();
};

/// Finds the daemon's pipelines from outside and notes the order in which elements are added to them, while
/// the object lives.
class PipelineWatch
{
public:
    PipelineWatch();
    ~PipelineWatch();
    PipelineWatch(const PipelineWatch&) = delete;
    PipelineWatch& operator=(const PipelineWatch&) = delete;

    /// The newest pipeline, borrowed; null when it is gone.
    GstElement* pipeline() const;
    /// Names of the elements added so far, in order.
    std::vector<std::string> added() const;

private:
    gulong m_hook;
};

/// A source bin "my_bin" that never delivers anything.
GstElement* idleSource();

/// Test around one gstImpl. What a test starts, TearDown ends.
class MediaTest : public ::testing::Test
{
protected:
    MediaTest();
    ~MediaTest() override;

    /// Makes the object (around idleSource() unless told otherwise).
    gstImpl& make(GstElement* source = idleSource());
    gstImpl& object() { return *m_object; }
    /// Deletes the object.
    void destroy();

    GstElement* pipeline() const { return watch.pipeline(); }
    /// The element of this name in the pipeline or below, borrowed; null when there is none.
    GstElement* element(const char* name) const;
    /// Names of the elements directly in the pipeline, sorted.
    std::vector<std::string> elements() const;
    /// Name of the element that the (only) src pad of the named element is linked to; empty when it is not
    /// linked.
    std::string next(const char* name) const;
    /// Names of the elements behind the tee's pads, in the pads' order; "-" for a pad without a link.
    std::vector<std::string> teeBranches() const;
    std::string status();
    /// True when the pipeline comes to the state in time.
    bool reaches(GstState state) const;

    LogCapture log;
    PrintCapture prints;
    PipelineWatch watch;

private:
    std::unique_ptr<gstImpl> m_object;
};

/// Announces a stream to the daemon as decodebin does before it decodes it; tells whether decoding goes on.
bool announceStream(GstElement* decoder, GstPad* pad, const char* capsText);

/// Adds a pad to the decoder as it does with a decoded stream. Null leaves the pad without caps.
void exposeStream(GstElement* decoder, const char* padName, GstCaps* caps);

/// Value of a property as text, as GStreamer serialises it.
std::string propertyText(GstElement* element, const char* name);

/// Name of the factory that made the element.
std::string factoryName(GstElement* element);

/// A fresh file name in a folder that goes with the object.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    std::string file(const std::string& name) const { return m_path + "/" + name; }

private:
    std::string m_path;
};
