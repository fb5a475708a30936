#include "client/panel/display.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <jpeglib.h>
#include <optional>
#include <sstream>

namespace tessary::panel {

using Clock = std::chrono::steady_clock;

namespace {

constexpr int quality = 80;

std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

struct Pixels
{
    unsigned width = 0;
    unsigned height = 0;
    const unsigned char* rgb = nullptr;
};

/// Nothing unless the file is whole.
std::optional<Pixels> pixelsOf(const std::string& ppm)
{
    constexpr unsigned most = 16384;
    std::istringstream head(ppm.substr(0, 64));
    std::string magic;
    Pixels pixels;
    int greatest = 0;
    head >> magic >> pixels.width >> pixels.height >> greatest;
    if (!head || magic != "P6" || greatest != 255 || pixels.width == 0 || pixels.height == 0
        || pixels.width > most || pixels.height > most)
        return std::nullopt;
    const std::size_t begin = static_cast<std::size_t>(head.tellg()) + 1;
    const std::size_t size = std::size_t{3} * pixels.width * pixels.height;
    if (ppm.size() < begin + size)
        return std::nullopt;
    pixels.rgb = reinterpret_cast<const unsigned char*>(ppm.data()) + begin;
    return pixels;
}

} // namespace

std::string jpegOf(const std::string& ppm, int jpegQuality)
{
    const auto pixels = pixelsOf(ppm);
    if (!pixels.has_value())
        return {};
    jpeg_compress_struct state{};
    jpeg_error_mgr errors{};
    state.err = ::jpeg_std_error(&errors);
    ::jpeg_create_compress(&state);
    unsigned char* bytes = nullptr;
    unsigned long size = 0; // the library's type
    ::jpeg_mem_dest(&state, &bytes, &size);
    state.image_width = pixels->width;
    state.image_height = pixels->height;
    state.input_components = 3;
    state.in_color_space = JCS_RGB;
    ::jpeg_set_defaults(&state);
    ::jpeg_set_quality(&state, jpegQuality, TRUE);
    ::jpeg_start_compress(&state, TRUE);
    while (state.next_scanline < state.image_height) {
        const std::size_t offset = std::size_t{3} * pixels->width * state.next_scanline;
        JSAMPROW row = const_cast<unsigned char*>(pixels->rgb + offset); // NOLINT: the library only reads
        ::jpeg_write_scanlines(&state, &row, 1);
    }
    ::jpeg_finish_compress(&state);
    ::jpeg_destroy_compress(&state);
    std::string jpeg(reinterpret_cast<const char*>(bytes), size);
    std::free(bytes); // NOLINT: the library allocated it so
    return jpeg;
}

Display::~Display()
{
    std::error_code ignored;
    if (m_watched)
        std::filesystem::remove(mark(), ignored);
}

void Display::rest()
{
    constexpr std::chrono::seconds idle{3};
    const std::lock_guard lock(m_mutex);
    if (!m_watched || Clock::now() - m_asked < idle)
        return;
    m_watched = false;
    std::error_code ignored;
    std::filesystem::remove(mark(), ignored);
}

Display::Picture Display::now()
{
    const std::lock_guard lock(m_mutex);
    m_asked = Clock::now();
    if (!m_watched)
        std::ofstream(mark()).close();
    m_watched = true;
    const auto path = m_folder / "display.ppm";
    std::error_code error;
    const auto written = std::filesystem::last_write_time(path, error);
    if (error || written == m_written)
        return m_picture;
    const std::string jpeg = jpegOf(contents(path), quality);
    if (jpeg.empty())
        return m_picture;
    m_written = written;
    m_picture = {m_picture.number + 1, std::make_shared<const std::string>(jpeg)};
    return m_picture;
}

Json Display::report()
{
    const std::lock_guard lock(m_mutex);
    Json report{{"width", nullptr}, {"height", nullptr}, {"pictures_per_second", nullptr}};
    const Json told = Json::parse(contents(m_folder / "display.json"), nullptr, false);
    if (!told.is_object())
        return report;
    const auto frames = told.value("frames", std::uint64_t{0});
    const auto moment = Clock::now();
    const double seconds = std::chrono::duration<double>(moment - m_counted).count();
    if (seconds >= 1) {
        constexpr double oldest = 30; // s
        const bool known = seconds < oldest && frames >= m_frames;
        m_rate =
            known ? Json(std::round(static_cast<double>(frames - m_frames) / seconds * 10) / 10) : Json();
        m_counted = moment;
        m_frames = frames;
    }
    report.update(told);
    report["pictures_per_second"] = m_rate;
    return report;
}

} // namespace tessary::panel
