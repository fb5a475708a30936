#include "client/tessaryctl/viewmodel.h"

#include "client/psi/languages.h"
#include "client/psi/mpegtsnames.h"
#include "client/psi/streamkind.h"
#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <utility>

namespace tessary::ctl {

using namespace client;

namespace {

constexpr std::size_t keptRates = 300;
constexpr int wholeProgram = -1;

std::string serviceText(const ServiceDescription::Service& service)
{
    std::string text = std::to_string(service.id) + "  "
        + (service.name.empty() ? std::string("(without name)") : printable(service.name));
    if (isRadio(service.type))
        text += "  radio";
    if (service.scrambled)
        text += "  scrambled";
    return text;
}

std::string pidLine(const ProgramMap& program, const ProgramMap::Stream& stream)
{
    const std::string languages = textOf(languagesOf(stream.descriptors));
    return std::to_string(stream.pid) + "  " + kindOf(program, stream).text
        + (languages.empty() ? "" : "  " + printable(languages))
        + (stream.pid == program.pcrPid ? "  PCR" : "");
}

std::string descriptorText(const Descriptor& descriptor)
{
    const std::string data(descriptor.data.begin(), descriptor.data.end());
    const std::string tag = hexText(std::string(1, static_cast<char>(descriptor.tag)));
    return descriptorName(descriptor.tag) + " (0x" + tag + ")" + (data.empty() ? "" : "  " + hexText(data));
}

} // namespace

void ViewModel::setServices(const ServiceTable& table)
{
    m_services = table;
    moveTo(static_cast<std::ptrdiff_t>(m_cursor));
}

void ViewModel::setNetwork(const NetworkTable& table)
{
    m_network = table;
}

void ViewModel::setProgram(const ProgramMap& program)
{
    m_programs[program.programNumber] = program;
}

void ViewModel::forgetStream()
{
    m_services.reset();
    m_network.reset();
    m_programs.clear();
    m_open.clear();
    m_cursor = 0;
    playing = 0;
    presentation.reset();
}

void ViewModel::setMeasurement(
    PeriodWatch::State newState, const Measurement& newFigures, const PeriodWatch::Total& newTotal)
{
    state = newState;
    figures = newFigures;
    total = newTotal;
    linkDown = false;
    unanswered = false;
    if (total.periods < m_periods)
        m_periods = 0; // a new measurement
    if (state != PeriodWatch::State::Valid || total.periods == m_periods)
        return;
    m_periods = total.periods;
    m_rates.push_back(figures.bitRate);
    if (m_rates.size() > keptRates)
        m_rates.pop_front();
}

void ViewModel::say(const std::string& text)
{
    message = text;
    messageIsError = false;
}

void ViewModel::sayError(const std::string& text)
{
    message = text;
    messageIsError = true;
}

std::string ViewModel::streamText() const
{
    std::string text;
    if (m_services.has_value())
        text = "transport stream " + std::to_string(m_services->services.transportStreamId);
    if (m_network.has_value() && !m_network->network.networkName.empty())
        text += (text.empty() ? "" : ", ") + printable(m_network->network.networkName);
    return text;
}

const ServiceDescription::Service* ViewModel::serviceOf(int program) const
{
    if (!m_services.has_value())
        return nullptr;
    const auto& all = m_services->services.services;
    const auto found = std::find_if(all.begin(), all.end(), [&](const auto& s) { return s.id == program; });
    return found == all.end() ? nullptr : &*found;
}

std::vector<ViewLine> ViewModel::lines() const
{
    std::vector<ViewLine> all;
    const auto add = [&](int program, const std::string& text) {
        const bool known = m_programs.count(program) > 0;
        const bool open = known && m_open.count({program, wholeProgram}) > 0;
        all.push_back({0, text, program, wholeProgram, known, open, program == playing && playing != 0});
        if (open)
            addPids(all, program);
    };
    if (m_services.has_value()) {
        for (const auto& service : m_services->services.services)
            add(service.id, serviceText(service));
    }
    for (const auto& [number, program] : m_programs) { // one that the service table does not name
        if (serviceOf(number) == nullptr)
            add(number, std::to_string(number) + "  (not in the service table)");
    }
    return all;
}

void ViewModel::addPids(std::vector<ViewLine>& lines, int number) const
{
    const ProgramMap& program = m_programs.at(number);
    for (const auto& stream : program.streams) {
        const bool open = m_open.count({number, stream.pid}) > 0;
        lines.push_back(
            {1, pidLine(program, stream), number, stream.pid, !stream.descriptors.empty(), open, false});
        if (!open)
            continue;
        for (const Descriptor& descriptor : stream.descriptors)
            lines.push_back({2, descriptorText(descriptor), number, stream.pid, false, false, false});
    }
}

void ViewModel::moveTo(std::ptrdiff_t line)
{
    const auto count = static_cast<std::ptrdiff_t>(lines().size());
    m_cursor =
        static_cast<std::size_t>(std::clamp<std::ptrdiff_t>(line, 0, std::max<std::ptrdiff_t>(count - 1, 0)));
}

void ViewModel::openLine(bool open)
{
    const auto all = lines();
    if (m_cursor >= all.size())
        return;
    const ViewLine& line = all[m_cursor];
    if (open && line.openable) {
        m_open.insert({line.program, line.pid});
    } else if (open && line.depth == 0) {
        say("its PIDs are known once it has been played: press p, or s to scan");
    } else if (!open && line.openable && line.open) {
        m_open.erase({line.program, line.pid});
    } else if (!open && line.depth > 0) { // to the line that it belongs to
        std::size_t parent = m_cursor;
        while (all[parent].depth >= line.depth)
            --parent;
        m_cursor = parent;
    }
}

std::optional<ViewOrder> ViewModel::order(ViewOrder wanted)
{
    if (!busy.empty()) {
        say("wait for it: " + busy);
        return std::nullopt;
    }
    message.clear();
    return wanted;
}

std::optional<ViewOrder> ViewModel::play()
{
    const auto all = lines();
    if (m_cursor < all.size())
        return order({ViewOrder::Kind::Play, all[m_cursor].program});
    say("no service to play: press s to scan");
    return std::nullopt;
}

std::optional<ViewOrder> ViewModel::toggleMeasuring()
{
    return order({measuring ? ViewOrder::Kind::StopMeasuring : ViewOrder::Kind::StartMeasuring, 0});
}

std::optional<ViewOrder> ViewModel::toggleRecording()
{
    if (recording)
        return order({ViewOrder::Kind::StopRecording, 0});
    if (recordingSize > 0 && busy.empty()) {
        m_asksToOverwrite = true;
        say("overwrite the recording of " + byteCount(static_cast<double>(recordingSize)) + "? y: yes");
        return std::nullopt;
    }
    return order({ViewOrder::Kind::StartRecording, 0});
}

/// The keys that move about in the list, and open and close its lines; false for the others.
bool ViewModel::browse(ViewKey key)
{
    const auto line = static_cast<std::ptrdiff_t>(m_cursor);
    const auto page = static_cast<std::ptrdiff_t>(std::max<std::size_t>(m_page, 2) - 1);
    const auto all = lines();
    switch (key) {
    case ViewKey::Up:
        moveTo(line - 1);
        return true;
    case ViewKey::Down:
        moveTo(line + 1);
        return true;
    case ViewKey::PageUp:
        moveTo(line - page);
        return true;
    case ViewKey::PageDown:
        moveTo(line + page);
        return true;
    case ViewKey::First:
        moveTo(0);
        return true;
    case ViewKey::Last:
        moveTo(static_cast<std::ptrdiff_t>(all.size()));
        return true;
    case ViewKey::Open:
        openLine(true);
        return true;
    case ViewKey::Close:
        openLine(false);
        return true;
    case ViewKey::Toggle:
        openLine(m_cursor >= all.size() || !all[m_cursor].open);
        return true;
    default:
        return false;
    }
}

std::optional<ViewOrder> ViewModel::press(ViewKey key)
{
    const bool overwrite = std::exchange(m_asksToOverwrite, false);
    if (overwrite || (message.rfind("wait for it", 0) == 0 && busy.empty()))
        message.clear();
    if (help && key != ViewKey::Quit) {
        help = false;
        return std::nullopt;
    }
    if (browse(key))
        return std::nullopt;
    switch (key) {
    case ViewKey::Scan:
        return order({ViewOrder::Kind::Scan, 0});
    case ViewKey::Play:
        return play();
    case ViewKey::Measure:
        return toggleMeasuring();
    case ViewKey::Record:
        return toggleRecording();
    case ViewKey::Yes:
        if (overwrite)
            return order({ViewOrder::Kind::StartRecording, 0});
        break;
    case ViewKey::Help:
        help = true;
        break;
    case ViewKey::Quit:
        quit = true;
        break;
    default:
        break;
    }
    return std::nullopt;
}

} // namespace tessary::ctl
