#pragma once

#include "client/tessaryctl/viewmodel.h"
#include "client/tessaryctl/viewscreen.h"

#include <chrono>
#include <optional>
#include <vector>

namespace tessary::ctl {

/// The terminal as a full screen, with its keys, by ncurses; as it was before when the object ends. One at a
/// time. Without colour where the terminal has none or NO_COLOR is set.
class ViewTerminal
{
public:
    /// Throws Failure Usage when standard input or output is no terminal, or of a kind that is not known.
    ViewTerminal();
    ~ViewTerminal();
    ViewTerminal(const ViewTerminal&) = delete;
    ViewTerminal& operator=(const ViewTerminal&) = delete;

    std::size_t width() const;
    std::size_t height() const;

    void draw(const std::vector<ViewPiece>& pieces);
    /// A key, waiting for it so long; nothing when none came, or when the size has changed.
    std::optional<ViewKey> key(std::chrono::milliseconds timeout);

private:
    unsigned attributesOf(ViewStyle style) const;

    bool m_colours = false;
};

} // namespace tessary::ctl
