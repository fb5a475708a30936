#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

namespace tessary::panel {

/// What a virtual instrument plays, as it comes: follows the WAV file that its sound card writes. Used from one thread.
class Sound
{
public:
    struct Format
    {
        int rate = 48000; ///< Hz
        int channels = 2;
    };

    /// `file`: the instrument's io/sound.wav. Begins with what is played now.
    explicit Sound(std::filesystem::path file);

    /// Nothing without sound of 16 bits.
    const std::optional<Format>& format() const { return m_format; }

    /// Samples of 16 bits, least significant byte first, one of each channel in turn, that have come since; waits at most
    /// `patience`. No value when the sound began anew: it may be of another format.
    std::optional<std::string> next(std::chrono::milliseconds patience);

private:
    void open();

    std::filesystem::path m_path;
    std::ifstream m_file;
    std::optional<Format> m_format;
    std::uintmax_t m_read = 0; ///< bytes of the file
    std::size_t m_frame = 4; ///< bytes
};

} // namespace tessary::panel
