#include "client/tessaryctl/viewterminal.h"

#include "client/tessaryctl/failure.h"

#include <cstdlib>
#include <unistd.h>

#define NCURSES_NOMACROS // its short names are those of others as well
#define NCURSES_WIDECHAR 1
#include <ncurses.h>

namespace tessary::ctl {

namespace {

enum Pair : short { TitlePair = 1, GoodPair, BadPair, HeadingPair };

/// The program has the screen from here on. The terminal itself is asked for its size at each change of it.
bool start()
{
    const char* kind = std::getenv("TERM");
    return kind != nullptr && *kind != '\0' && ::newterm(nullptr, stdout, stdin) != nullptr;
}

ViewKey keyOf(int code)
{
    switch (code) {
    case KEY_UP:
    case 'k':
        return ViewKey::Up;
    case KEY_DOWN:
    case 'j':
        return ViewKey::Down;
    case KEY_PPAGE:
        return ViewKey::PageUp;
    case KEY_NPAGE:
        return ViewKey::PageDown;
    case KEY_HOME:
        return ViewKey::First;
    case KEY_END:
        return ViewKey::Last;
    case KEY_RIGHT:
        return ViewKey::Open;
    case KEY_LEFT:
        return ViewKey::Close;
    case KEY_ENTER:
    case '\r':
    case '\n':
    case ' ':
        return ViewKey::Toggle;
    case 's':
        return ViewKey::Scan;
    case 'p':
        return ViewKey::Play;
    case 'm':
        return ViewKey::Measure;
    case 'r':
        return ViewKey::Record;
    case '?':
    case 'h':
        return ViewKey::Help;
    case 'y':
        return ViewKey::Yes;
    case 'q':
        return ViewKey::Quit;
    default:
        return ViewKey::Other;
    }
}

} // namespace

ViewTerminal::ViewTerminal()
{
    if (::isatty(STDIN_FILENO) == 0 || ::isatty(STDOUT_FILENO) == 0)
        throw Failure(ExitCode::Usage, "the full-screen view needs a terminal",
            "for scripts: tessaryctl --json scan, tessaryctl measure --watch --json, tessaryctl log");
    if (!start())
        throw Failure(ExitCode::Usage, "the kind of this terminal (TERM) is not known",
            "set TERM to what it is, such as TERM=vt100");
    ::cbreak();
    ::noecho();
    ::nonl();
    ::keypad(stdscr, true);
    ::set_escdelay(50);
    ::curs_set(0);
    const char* noColour = std::getenv("NO_COLOR");
    m_colours = ::has_colors() && (noColour == nullptr || *noColour == '\0');
    if (!m_colours)
        return;
    ::start_color();
    ::use_default_colors();
    ::init_pair(TitlePair, COLOR_WHITE, COLOR_BLUE);
    ::init_pair(GoodPair, COLOR_GREEN, -1);
    ::init_pair(BadPair, COLOR_RED, -1);
    ::init_pair(HeadingPair, COLOR_CYAN, -1);
}

ViewTerminal::~ViewTerminal()
{
    ::werase(stdscr); // a terminal with a single screen would keep it
    ::wrefresh(stdscr);
    ::curs_set(1);
    ::endwin();
}

std::size_t ViewTerminal::width() const
{
    return static_cast<std::size_t>(::getmaxx(stdscr));
}

std::size_t ViewTerminal::height() const
{
    return static_cast<std::size_t>(::getmaxy(stdscr));
}

/// What colour tells is told by words as well; without colour some of it stands out all the same.
unsigned ViewTerminal::attributesOf(ViewStyle style) const
{
    const auto colour = [this](
                            short pair) { return m_colours ? static_cast<unsigned>(COLOR_PAIR(pair)) : 0U; };
    switch (style) {
    case ViewStyle::Title:
        return m_colours ? colour(TitlePair) | A_BOLD : A_REVERSE;
    case ViewStyle::Heading:
        return colour(HeadingPair) | A_BOLD;
    case ViewStyle::Selected:
        return A_REVERSE;
    case ViewStyle::Good:
        return colour(GoodPair);
    case ViewStyle::Bad:
        return colour(BadPair) | A_BOLD;
    case ViewStyle::Plain:
    case ViewStyle::Soft:
        break;
    }
    return A_NORMAL;
}

void ViewTerminal::draw(const std::vector<ViewPiece>& pieces)
{
    ::werase(stdscr);
    for (const ViewPiece& piece : pieces) {
        ::wattrset(stdscr, static_cast<int>(attributesOf(piece.style)));
        ::mvwaddstr(stdscr, static_cast<int>(piece.row), static_cast<int>(piece.column), piece.text.c_str());
    }
    ::wattrset(stdscr, A_NORMAL);
    ::wrefresh(stdscr);
}

std::optional<ViewKey> ViewTerminal::key(std::chrono::milliseconds timeout)
{
    ::wtimeout(stdscr, static_cast<int>(timeout.count()));
    const int code = ::wgetch(stdscr);
    if (code == ERR || code == KEY_RESIZE)
        return std::nullopt;
    return keyOf(code);
}

} // namespace tessary::ctl
