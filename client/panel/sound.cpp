#include "client/panel/sound.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <thread>

namespace tessary::panel {

namespace {

constexpr std::size_t headSize = 44; // of a WAV file as ALSA writes it

unsigned valueAt(const std::array<char, headSize>& head, std::size_t at, std::size_t size)
{
    unsigned value = 0;
    for (std::size_t i = size; i-- > 0;)
        value = value << 8U | static_cast<unsigned char>(head.at(at + i));
    return value;
}

} // namespace

Sound::Sound(std::filesystem::path file)
    : m_path(std::move(file))
{
    open();
}

void Sound::open()
{
    m_file = std::ifstream(m_path, std::ios::binary);
    std::array<char, headSize> head{};
    if (!m_file.read(head.data(), headSize) || std::string(head.data(), 4) != "RIFF"
        || valueAt(head, 34, 2) != 16)
        return;
    const Format told{static_cast<int>(valueAt(head, 24, 4)), static_cast<int>(valueAt(head, 22, 2))};
    if (told.rate <= 0 || told.channels <= 0)
        return;
    m_format = told;
    m_frame = std::size_t{2} * static_cast<std::size_t>(told.channels);
    std::error_code error;
    const std::uintmax_t size = std::max<std::uintmax_t>(std::filesystem::file_size(m_path, error), headSize);
    m_read = error ? headSize : size - (size - headSize) % m_frame;
}

std::optional<std::string> Sound::next(std::chrono::milliseconds patience)
{
    constexpr std::chrono::milliseconds step{20};
    constexpr std::uintmax_t most = 64 * 1024;
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        std::error_code error;
        const std::uintmax_t size = std::filesystem::file_size(m_path, error);
        if (error || size < m_read || !m_format.has_value())
            return std::nullopt;
        std::uintmax_t fresh = std::min(size - m_read, most);
        fresh -= fresh % m_frame;
        if (fresh > 0) {
            std::string samples(static_cast<std::size_t>(fresh), '\0');
            m_file.clear();
            m_file.seekg(static_cast<std::streamoff>(m_read));
            if (!m_file.read(samples.data(), static_cast<std::streamsize>(fresh)))
                return std::nullopt;
            m_read += fresh;
            return samples;
        }
        if (std::chrono::steady_clock::now() >= end)
            return std::string();
        std::this_thread::sleep_for(step);
    }
}

} // namespace tessary::panel
