#pragma once

#include <gst/video/video.h>

#include <cstdint>
#include <string>

/// What the display shows, in numbers. `state` is "waiting" (no picture yet), "showing" or "stopped".
struct DisplayReport
{
    std::uint64_t frames = 0; ///< pictures shown since the start
    std::uint64_t dropped = 0; ///< pictures thrown away for being late since the start
    int width = 0; ///< pixels
    int height = 0; ///< pixels
    /// Monotonic time of the first picture, which may stand still yet; 0 before.
    std::int64_t firstPictureNs = 0;
    /// Monotonic time of the second picture, from which on it moves; 0 before.
    std::int64_t movingNs = 0;
    const char* state = "waiting";
};

/// Keeps the display's picture and report where a person or a test can look at them. Files appear whole: each
/// is written beside its place and renamed. The functions return an errno value, 0 for success. Not
/// thread-safe.
class DisplayWriter
{
public:
    DisplayWriter() = default;
    ~DisplayWriter();
    DisplayWriter(const DisplayWriter&) = delete;
    DisplayWriter& operator=(const DisplayWriter&) = delete;

    /// Sets the format of the pictures to come.
    void setFormat(const GstVideoInfo& info);

    /// Writes a picture as binary PPM of eight bits a colour. `buffer` is borrowed.
    int writePicture(const std::string& path, GstBuffer* buffer);

    /// Writes the report as one JSON object.
    static int writeReport(const std::string& path, const DisplayReport& report);

private:
    GstVideoInfo m_input = {};
    GstVideoInfo m_output = {};
    GstVideoConverter* m_converter = nullptr; // owned
    bool m_hasFormat = false;
};
