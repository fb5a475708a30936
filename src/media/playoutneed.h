#pragma once

#include <array>
#include <cstdint>
#include <optional>

/// How long picture and sound of a live stream have to be held back, out of how far they come ahead of their
/// time stamps. Times in ns. Not thread-safe.
///
/// A stream that keeps to the buffer model of ISO/IEC 13818-1 sends all data ahead of their time:
/// television's sound by some 50 ms, its pictures by up to a second. Pictures and sound need some time on
/// their way out; what the stream is ahead by does not have to be waited for once more. A stream that is late
/// against its own clock needs more than can be foreseen: it gets what GStreamer's elements ask for, which is
/// most of a second.
///
/// A stream of which all data stay behind even of that began long after its program was chosen, or came back
/// after a pause with a clock of its own that knows nothing of it. None of it would ever be seen or heard:
/// it is held back by as much as it is behind.
class PlayoutNeed
{
public:
    enum class Media { picture, sound };

    /// Data left the demultiplexer `lead` ahead of their time; negative when they were late. `playing`: what
    /// is held back can not be changed any more without being seen and heard. True when held() has changed.
    bool note(Media media, std::int64_t lead, bool playing);

    /// How long to hold back; nothing: as long as the elements ask for.
    std::optional<std::int64_t> held() const { return m_held; }

private:
    /// How often in a row data of a kind came too late, and what they needed.
    struct Behind
    {
        bool isThere = false; ///< data of the kind came since the last change
        int count = 0;
        std::int64_t need = 0;
    };

    bool giveUp();
    bool noteBehind(std::size_t kind, std::int64_t need);

    std::optional<std::int64_t> m_held;
    std::array<int, 2> m_late{}; ///< how often in a row, by Media
    std::array<Behind, 2> m_behind{}; ///< by Media, since m_gaveUp
    bool m_gaveUp = false; ///< for good
};
