#include "client/tessaryctl/memory.h"

#include "client/serverspec.h"
#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/statefolder.h"
#include "client/usageerror.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unistd.h>

namespace tessary::ctl {

// Not in the unnamed namespace, where the library would not find it.
NLOHMANN_JSON_SERIALIZE_ENUM(InstrumentMemory::Source,
    {{InstrumentMemory::Source::Unknown, "unknown"}, {InstrumentMemory::Source::None, "none"},
        {InstrumentMemory::Source::Ip, "ip"}, {InstrumentMemory::Source::Fpga, "fpga"},
        {InstrumentMemory::Source::Recording, "recording"}})

namespace {

using Source = InstrumentMemory::Source;
namespace request = client::request;

constexpr const char* serverAfterStart = "udp://239.0.0.1:1234";

std::filesystem::path memoryFile()
{
    const auto folder = stateFolder();
    return folder.empty() ? folder : folder / "instruments.json";
}

/// All ports' memories, the newest last; empty when there are none, or none that can be read.
Json readAll()
{
    std::ifstream file(memoryFile());
    Json all = Json::parse(file, nullptr, false);
    return all.is_object() ? all : Json::object();
}

/// A crash in the middle leaves the file of before. What can not be written is not remembered.
void writeAll(const Json& all)
{
    const auto path = memoryFile();
    if (path.empty())
        return;
    std::error_code failed;
    std::filesystem::create_directories(path.parent_path(), failed);
    const std::filesystem::path fresh = path.string() + "." + std::to_string(::getpid());
    std::ofstream file(fresh);
    file << all.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    file.close();
    if (file.good())
        std::filesystem::rename(fresh, path, failed);
    else
        std::filesystem::remove(fresh, failed);
}

bool beginsWith(std::string_view text, std::string_view beginning)
{
    return text.substr(0, beginning.size()) == beginning;
}

/// The source after `command`; nothing when it leaves the source as it is.
std::optional<Source> sourceAfter(std::string_view command, Source before)
{
    struct Row
    {
        const char* word;
        Source source;
        bool onlyWithout; ///< keeps a source that there is
    };
    static const Row rows[] = {{request::scan.word, Source::Ip, false},
        {request::ebsScan.word, Source::Fpga, false}, {request::scanRecording.word, Source::Recording, false},
        {request::stopRecording.word, Source::None, false},
        {request::exportRecording.word, Source::None, false}, {request::play.word, Source::Ip, true},
        {request::sendStream.word, Source::Ip, true}, {request::ebsPlay.word, Source::Fpga, true},
        {request::record.word, Source::Fpga, true}, {request::startDab.word, Source::Unknown, false},
        {request::stopDab.word, Source::Unknown, false}};
    for (const Row& row : rows) {
        if (beginsWith(command, row.word))
            return row.onlyWithout && before != Source::None ? before : row.source;
    }
    return std::nullopt;
}

} // namespace

InstrumentMemory::InstrumentMemory(std::string port)
    : m_port(std::move(port))
{
    load();
}

void InstrumentMemory::load()
{
    const Json all = readAll();
    const auto found = all.find(m_port);
    if (found == all.end())
        return;
    try {
        if (found->contains("server"))
            m_server =
                Server{found->at("server"), found->at("server_time"), found->value("group_left", false)};
        m_source = found->value("source", Source::Unknown);
        m_services = found->value("services", std::vector<std::string>());
    } catch (const Json::exception&) { // a file that something else wrote
        m_server.reset();
    }
}

void InstrumentMemory::save() const
{
    constexpr std::size_t mostPorts = 32;
    Json all = readAll();
    all.erase(m_port);
    while (all.size() >= mostPorts)
        all.erase(all.begin());
    all[m_port] = {{"source", m_source}, {"services", m_services}};
    if (m_server.has_value())
        all[m_port].update(Json{
            {"server", m_server->url}, {"server_time", m_server->time}, {"group_left", m_server->groupLeft}});
    writeAll(all);
}

void InstrumentMemory::setServices(std::vector<std::string> names)
{
    if (names == m_services)
        return;
    m_services = std::move(names);
    save();
}

void InstrumentMemory::setServer(std::string_view argument)
{
    std::istringstream text{std::string(argument)};
    std::vector<std::string> words;
    for (std::string word; text >> word;)
        words.push_back(word);
    m_server.reset();
    try {
        m_server = Server{
            client::serverUrl(client::parseServer(words)), isoTime(std::chrono::system_clock::now()), false};
    } catch (const client::UsageError&) { // typed by hand: what the instrument made of it is not known
    }
}

void InstrumentMemory::leftGroup(const std::string& group)
{
    if (!m_server.has_value() || client::parseServer({m_server->url}).address != group)
        return;
    m_server->groupLeft = true;
    save();
}

void InstrumentMemory::setSource(std::string_view command, bool surely)
{
    const auto after = sourceAfter(command, m_source);
    if (!after.has_value())
        return;
    const Source known = surely ? *after : Source::Unknown;
    if (known != std::exchange(m_source, known))
        save();
}

void InstrumentMemory::carriedOut(std::string_view command, bool surely)
{
    const std::string_view word = request::setServer.word;
    if (!beginsWith(command, word))
        return setSource(command, surely);
    if (surely)
        setServer(command.substr(word.size()));
    else
        m_server.reset();
    save();
}

void InstrumentMemory::greeted()
{
    ++m_startsSeen;
    m_server = Server{serverAfterStart, isoTime(std::chrono::system_clock::now()), false};
    m_source = Source::None;
    save();
}

} // namespace tessary::ctl
