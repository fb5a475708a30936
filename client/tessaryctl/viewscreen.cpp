#include "client/tessaryctl/viewscreen.h"

#include "client/tessaryctl/reading.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <sstream>

namespace tessary::ctl {

using namespace client;

namespace {

using State = PeriodWatch::State;
using Style = ViewStyle;

constexpr std::size_t narrow = 72; // columns: below, the two parts stand one above the other
constexpr std::size_t panelLines = 18;

/// A part of the screen; what does not fit into it is left out.
class Area
{
public:
    Area(std::vector<ViewPiece>& pieces, std::size_t row, std::size_t column, std::size_t height,
        std::size_t width)
        : m_pieces(pieces)
        , m_row(row)
        , m_column(column)
        , m_height(height)
        , m_width(width)
    {
    }

    std::size_t height() const { return m_height; }
    std::size_t width() const { return m_width; }

    void put(std::size_t row, std::size_t column, const std::string& text, Style style = Style::Plain)
    {
        if (row >= m_height || column >= m_width || text.empty())
            return;
        m_pieces.push_back({m_row + row, m_column + column, cutToWidth(text, m_width - column), style});
    }

    /// Over the whole width.
    void fill(std::size_t row, const std::string& text, Style style)
    {
        put(row, 0, padded(text, m_width), style);
    }

private:
    std::vector<ViewPiece>& m_pieces;
    std::size_t m_row, m_column, m_height, m_width;
};

void drawTree(Area area, ViewModel& model)
{
    area.put(0, 0, "Services", Style::Heading);
    area.put(0, 10, model.streamText(), Style::Soft);
    const auto lines = model.lines();
    const std::size_t page = std::max<std::size_t>(area.height(), 2) - 1;
    model.setPage(page);
    if (lines.empty()) {
        area.put(2, 0, "nothing known of the stream yet");
        area.put(3, 0, "s scans it: services, PIDs, network", Style::Soft);
        return;
    }
    // The cursor stays in the middle while there are lines on both sides.
    const std::size_t last = lines.size() > page ? lines.size() - page : 0;
    const std::size_t first = std::min(model.cursor() > page / 2 ? model.cursor() - page / 2 : 0, last);
    for (std::size_t i = first; i < std::min(lines.size(), first + page); ++i) {
        const ViewLine& line = lines[i];
        const std::string mark = line.openable ? (line.open ? "- " : "+ ") : "  ";
        const std::string text = (i == model.cursor() ? ">" : " ")
            + std::string(static_cast<std::size_t>(line.depth) * 3, ' ') + mark + line.text
            + (line.played ? "  <playing>" : "");
        if (i == model.cursor())
            area.fill(1 + i - first, text, Style::Selected);
        else
            area.put(1 + i - first, 0, text,
                line.played           ? Style::Good
                    : line.depth == 2 ? Style::Soft
                                      : Style::Plain);
    }
}

std::string stateText(const ViewModel& model)
{
    if (!model.measuring)
        return "off, m starts it";
    if (model.unanswered)
        return "NO ANSWER";
    if (model.linkDown)
        return "NO ETHERNET LINK";
    switch (model.state) {
    case State::Absent:
        return "NO STREAM";
    case State::Settling:
        return "stream comes";
    case State::Valid:
        break;
    }
    return "stream present";
}

Style stateStyle(const ViewModel& model)
{
    if (!model.measuring)
        return Style::Soft;
    return model.unanswered || model.linkDown || model.state == State::Absent ? Style::Bad : Style::Good;
}

std::string microseconds(std::int64_t value)
{
    return microsecondsText(static_cast<double>(value));
}

/// The newest bit rates, each as a small bar.
std::string course(const std::deque<double>& rates, std::size_t width)
{
    static constexpr const char* steps[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
    const std::size_t count = std::min(rates.size(), width);
    const double most = rates.empty() ? 1 : std::max(*std::max_element(rates.begin(), rates.end()), 1.0);
    std::string text;
    for (std::size_t i = rates.size() - count; i < rates.size(); ++i)
        text += steps[std::clamp(static_cast<int>(rates[i] / most * 7.99), 0, 7)];
    return text;
}

void drawReception(Area& area, const ViewModel& model)
{
    constexpr std::size_t values = 15;
    area.put(0, 0, "Reception", Style::Heading);
    area.put(0, values, stateText(model), stateStyle(model));
    const bool valid = model.measuring && !model.unanswered && !model.linkDown && model.state == State::Valid;
    const Measurement& m = model.figures;
    const auto row = [&](std::size_t at, const char* name, const std::string& value, bool bad = false) {
        area.put(at, 0, name);
        area.put(at, values,
            valid || value.empty() ? value
                : *name == '\0'    ? ""
                                   : "-",
            bad && valid ? Style::Bad : Style::Plain);
    };
    row(1, "bit rate", bitRateText(m.bitRate));
    row(2, "delay factor", std::to_string(m.delayFactorMs) + " ms");
    row(3, "errors", std::to_string(m.continuityErrors), m.continuityErrors > 0);
    row(4, "", textOf(model.total), model.total.errors > 0);
    row(5, "datagram",
        std::to_string(m.packetsPerDatagram) + " x " + std::to_string(m.packetSize) + " bytes");
    const InterArrivalStatistics& a = model.arrivals;
    row(6, "inter-arrival", a.count == 0 ? "-" : "median " + microseconds(a.median));
    row(7, "", a.count == 0 ? "" : "99 %   " + microseconds(a.percentile99));
    row(8, "", a.count == 0 ? "" : microseconds(a.shortest) + " to " + microseconds(a.longest));
    if (!model.rates().empty())
        area.put(9, 0, course(model.rates(), area.width()), Style::Soft);
}

void drawPlaying(Area& area, std::size_t top, const ViewModel& model)
{
    area.put(top, 0, "Player", Style::Heading);
    area.put(top, 15, model.player.empty() ? "no source" : model.player,
        model.playing != 0 ? Style::Good : Style::Soft);
    if (model.playing == 0)
        return;
    const auto* service = model.serviceOf(model.playing);
    area.put(top + 1, 0,
        "program " + std::to_string(model.playing)
            + (service == nullptr ? "" : "  " + printable(service->name)));
    if (!model.presentation.has_value())
        return;
    const Presentation& p = *model.presentation;
    area.put(top + 2, 0, textOf(p));
    if (p.picture.state == Presentation::State::Decoded)
        area.put(top + 3, 0,
            p.picture.codec + ", " + std::to_string(p.width) + " x " + std::to_string(p.height)
                + (p.sound.state == Presentation::State::Decoded ? "; " + p.sound.codec : ""),
            Style::Soft);
}

void drawPanel(Area area, const ViewModel& model)
{
    constexpr std::size_t player = 11;
    constexpr std::size_t recorder = 16;
    drawReception(area, model);
    drawPlaying(area, player, model);
    area.put(recorder, 0, "Recording", Style::Heading);
    area.put(recorder, 15,
        (model.recording ? "RUNS, " : "") + byteCount(static_cast<double>(model.recordingSize)),
        model.recording ? Style::Bad : Style::Plain);
}

void drawHelp(Area area)
{
    static const std::vector<std::pair<const char*, const char*>> keys{{"Up Down", "move"},
        {"Enter", "open or close a service (PIDs) or a PID (descriptors)"}, {"Left Right", "close, open"},
        {"s", "scan the stream: services, each one's PIDs, network"}, {"p", "play the service"},
        {"m", "measure the reception, or end it (measuring stops playing)"},
        {"r", "record the stream, or end the recording"}, {"?", "this help"},
        {"q", "end; the instrument goes on"}, {"", ""},
        {"", "The instrument takes one question at a time: the line above"},
        {"", "the keys tells what it is asked. Any key goes back."}};
    area.put(0, 0, "Keys", Style::Heading);
    for (std::size_t i = 0; i < keys.size(); ++i) {
        area.put(2 + i, 2, keys[i].first, Style::Heading);
        area.put(2 + i, 15, keys[i].second);
    }
}

/// What the instrument is asked at the moment, and what there is to say: in at most three lines.
std::vector<std::string> messageLines(const ViewModel& model, std::size_t width)
{
    constexpr std::size_t most = 3;
    std::istringstream words((model.busy.empty() ? "" : model.busy + " ...   ") + printable(model.message));
    std::vector<std::string> lines(1);
    for (std::string word; words >> word;) {
        if (!lines.back().empty() && displayWidth(lines.back()) + 1 + displayWidth(word) > width)
            lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : " ") + word;
    }
    lines.resize(std::min(lines.size(), most));
    return lines;
}

} // namespace

std::vector<ViewPiece> screenOf(
    ViewModel& model, std::size_t width, std::size_t height, const std::string& clock)
{
    std::vector<ViewPiece> pieces;
    Area whole(pieces, 0, 0, height, width);
    const std::string title = " tessaryctl view   " + (model.server.empty() ? model.port : model.server);
    whole.fill(
        0, padded(title, width > clock.size() + 1 ? width - clock.size() - 1 : 0) + clock, Style::Title);
    if (height > 2)
        whole.fill(
            height - 1, " q quit  ? help  Enter open  s scan  p play  m measure  r record", Style::Title);
    if (height < 7)
        return pieces;
    const auto message = messageLines(model, width - std::min<std::size_t>(width, 2));
    for (std::size_t i = 0; i < message.size(); ++i)
        whole.put(
            height - 1 - message.size() + i, 1, message[i], model.messageIsError ? Style::Bad : Style::Plain);
    const std::size_t body = height - 3 - message.size();
    if (model.help) {
        drawHelp(Area(pieces, 2, 1, body - 1, width - std::min<std::size_t>(width, 1)));
    } else if (width >= narrow) {
        const std::size_t panel = std::clamp<std::size_t>(width * 2 / 5, 34, 70);
        drawTree(Area(pieces, 2, 0, body - 1, width - panel - 2), model);
        drawPanel(Area(pieces, 2, width - panel, body - 1, panel), model);
    } else {
        const std::size_t lower = std::min(panelLines, body * 2 / 3);
        drawTree(Area(pieces, 1, 0, body - lower, width), model);
        drawPanel(Area(pieces, 2 + body - lower, 1, lower, width - std::min<std::size_t>(width, 1)), model);
    }
    return pieces;
}

} // namespace tessary::ctl
