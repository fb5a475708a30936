#pragma once

#include "client/panel/hub.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>

namespace tessary::panel {

/// A picture of eight bits a colour as JPEG. `ppm`: a binary PPM. Empty when it is none.
std::string jpegOf(const std::string& ppm, int quality);

/// What the virtual instrument's display shows, read from the files that it leaves. Each picture is read and packed once,
/// however many look. May be used from any thread.
class Display
{
public:
    /// `folder`: the instrument's io/.
    explicit Display(std::filesystem::path folder)
        : m_folder(std::move(folder))
    {
    }
    ~Display();
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    struct Picture
    {
        std::uint64_t number = 0; ///< another one with each picture; 0: none yet
        std::shared_ptr<const std::string> jpeg;
    };

    /// The picture at the moment. While it is asked for, the instrument writes its pictures oftener.
    Picture now();
    /// Lets it write them as seldom as usual, when nobody has asked for some time.
    void rest();
    /// {"width", "height", "pictures_per_second", "frames", "dropped", "state"}; null where not known.
    Json report();

private:
    std::filesystem::path mark() const { return m_folder / "display.watched"; }

    std::filesystem::path m_folder;
    std::mutex m_mutex;
    std::chrono::steady_clock::time_point m_asked{}; ///< for a picture
    bool m_watched = false;
    std::filesystem::file_time_type m_written{};
    Picture m_picture;

    std::chrono::steady_clock::time_point m_counted{}; ///< when m_frames was read
    std::uint64_t m_frames = 0;
    Json m_rate; ///< pictures a second between the last two counts
};

} // namespace tessary::panel
