#include "displaywriter.h"

#include <cerrno>
#include <cstdio>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

int writeAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t count = ::write(fd, data, size);
        if (count < 0 && errno != EINTR)
            return errno;
        if (count > 0) {
            data += count;
            size -= static_cast<std::size_t>(count);
        }
    }
    return 0;
}

int writeAtomically(const std::string& path, const char* data, std::size_t size)
{
    const std::string beside = path + ".new";
    const int fd = ::open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return errno;
    int error = writeAll(fd, data, size);
    if (::close(fd) != 0 && error == 0)
        error = errno;
    if (error == 0 && ::rename(beside.c_str(), path.c_str()) != 0)
        error = errno;
    if (error != 0)
        ::unlink(beside.c_str());
    return error;
}

} // namespace

DisplayWriter::~DisplayWriter()
{
    if (m_converter != nullptr)
        gst_video_converter_free(m_converter);
}

void DisplayWriter::setFormat(const GstVideoInfo& info)
{
    if (m_converter != nullptr)
        gst_video_converter_free(m_converter);
    m_converter = nullptr;
    m_input = info;
    gst_video_info_set_format(&m_output, GST_VIDEO_FORMAT_RGB,
        static_cast<guint>(GST_VIDEO_INFO_WIDTH(&info)), static_cast<guint>(GST_VIDEO_INFO_HEIGHT(&info)));
    // The converter copies fields as they lie; both sides have to agree about them.
    m_output.interlace_mode = info.interlace_mode;
    m_output.fps_n = info.fps_n;
    m_output.fps_d = info.fps_d;
    m_hasFormat = true;
}

int DisplayWriter::writePicture(const std::string& path, GstBuffer* buffer)
{
    if (!m_hasFormat)
        return EINVAL;
    if (m_converter == nullptr)
        m_converter = gst_video_converter_new(&m_input, &m_output, nullptr);
    GstVideoFrame input;
    if (m_converter == nullptr || !gst_video_frame_map(&input, &m_input, buffer, GST_MAP_READ))
        return EINVAL;
    GstBuffer* converted = gst_buffer_new_allocate(nullptr, GST_VIDEO_INFO_SIZE(&m_output), nullptr);
    GstVideoFrame output;
    int error = EINVAL;
    if (gst_video_frame_map(&output, &m_output, converted, GST_MAP_READWRITE)) {
        gst_video_converter_frame(m_converter, &input, &output);
        const int width = GST_VIDEO_INFO_WIDTH(&m_output);
        const int height = GST_VIDEO_INFO_HEIGHT(&m_output);
        const std::string head = "P6\n" + std::to_string(width) + " " + std::to_string(height) + "\n255\n";
        const std::size_t rowBytes = static_cast<std::size_t>(width) * 3;
        std::vector<char> file(head.begin(), head.end());
        file.reserve(head.size() + rowBytes * static_cast<std::size_t>(height));
        const auto* pixels = static_cast<const char*>(GST_VIDEO_FRAME_PLANE_DATA(&output, 0));
        for (int row = 0; row < height; ++row) {
            const char* line =
                pixels + static_cast<std::ptrdiff_t>(row) * GST_VIDEO_FRAME_PLANE_STRIDE(&output, 0);
            file.insert(file.end(), line, line + rowBytes);
        }
        gst_video_frame_unmap(&output);
        error = writeAtomically(path, file.data(), file.size());
    }
    gst_buffer_unref(converted);
    gst_video_frame_unmap(&input);
    return error;
}

int DisplayWriter::writeReport(const std::string& path, const DisplayReport& report)
{
    char text[256];
    const int length = std::snprintf(text, sizeof text,
        "{\"frames\":%llu,\"dropped\":%llu,\"width\":%d,\"height\":%d,\"first_picture_ns\":%lld,"
        "\"moving_ns\":%lld,\"state\":\"%s\"}\n",
        static_cast<unsigned long long>(report.frames), static_cast<unsigned long long>(report.dropped),
        report.width, report.height, static_cast<long long>(report.firstPictureNs),
        static_cast<long long>(report.movingNs), report.state);
    return writeAtomically(path, text, static_cast<std::size_t>(length));
}
