#include "client/panel/desk.h"

#include "client/panel/instrumentwatch.h"
#include "client/serverspec.h"
#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/failure.h"

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;

namespace {

[[noreturn]] void refuse(const std::string& cause, const std::string& remedy)
{
    throw Failure(ExitCode::Usage, cause, remedy);
}

std::string contents(const std::filesystem::path& path)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

/// Letters, digits and what is usual between them.
bool isWord(const std::string& text)
{
    return !text.empty() && text.front() != '-'
        && text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-")
        == std::string::npos;
}

/// Of a value that may be null or absent: as words behind an option.
void addOption(std::vector<std::string>& words, const char* option, const Json& wish, const char* key)
{
    const auto found = wish.find(key);
    if (found == wish.end() || found->is_null())
        return;
    const std::string text = found->is_string() ? found->get<std::string>() : found->dump();
    if (!text.empty())
        words.push_back(std::string(option) + "=" + text);
}

double numberOf(const Json& wish, const char* key, double least, double most)
{
    const double value = wish.at(key).get<double>();
    if (!(value >= least && value <= most))
        refuse(std::string(key) + " is out of range", "");
    return value;
}

/// "running, PID 77 (inside 9)" out of what `status` prints; empty when it has no such line.
std::string lineOf(const std::string& text, const std::string& name)
{
    const std::string start = name + ": ";
    const std::size_t at = text.rfind(start, 0) == 0 ? 0 : text.find("\n" + start);
    if (at == std::string::npos)
        return {};
    const std::size_t begin = text.find(start, at) + start.size();
    return text.substr(begin, text.find('\n', begin) - begin);
}

} // namespace

Desk::Desk(Hub& hub, Places places)
    : m_hub(hub)
    , m_places(std::move(places))
{
}

std::string Desk::steer(std::vector<std::string> words)
{
    words.insert(words.begin() + 1, {"--run-dir", m_places.folder.string()});
    words.insert(words.begin(), m_places.instrument);
    m_looked = {};
    const ProgramEnd end = Program(asRoot(words)).wait();
    if (end.status != 0)
        throw Failure(ExitCode::LocalFile, "the virtual instrument did not do it: " + end.output,
            "it needs root: start the panel as root, or let its user run " + m_places.instrument
                + " by sudo");
    return end.output;
}

bool Desk::hasHardware() const
{
    return std::filesystem::exists(m_places.folder / "fpga" / "knobs");
}

Json Desk::streams() const
{
    Json all = Json::array();
    std::error_code error;
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(m_places.streams, error)) {
        const std::string kind = entry.path().extension();
        if (kind == ".ts" || kind == ".pcap" || kind == ".pcapng")
            files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto& path : files)
        all.push_back({{"file", path.filename().string()}, {"bytes", std::filesystem::file_size(path, error)},
            {"about", ""}});
    return all;
}

Json Desk::senders()
{
    Json all = Json::array();
    for (auto& [id, sender] : m_senders) {
        Json one{{"id", id}};
        one.update(sender.told);
        one["running"] = sender.program->running();
        one["said"] = sender.program->said();
        all.push_back(one);
    }
    return all;
}

Json Desk::knobs() const
{
    if (!hasHardware())
        return {};
    Json all = Json::object();
    std::ifstream file(m_places.folder / "fpga" / "knobs");
    for (std::string line; std::getline(file, line);) {
        const std::size_t equals = line.find('=');
        if (equals != std::string::npos)
            all[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return all;
}

Json Desk::dab() const
{
    if (!hasHardware())
        return {};
    Json all{{"open_after_s", 2}, {"never_opens", false}, {"answer_after_s", 0}, {"pieces", Json::array()},
        {"die_at", 0}};
    const Json given = Json::parse(contents(m_places.folder / "io" / "dab.json"), nullptr, false);
    if (given.is_object())
        all.update(given);
    return all;
}

Json Desk::state()
{
    const std::lock_guard lock(m_mutex);
    look();
    const std::string daemon = lineOf(m_status, "daemon");
    const std::size_t pid = daemon.find("PID ");
    Json behaviours = Json::array();
    for (const auto& [program, behaviour] : m_behaviours)
        behaviours.push_back(behaviour);
    return {{"streams", streams()}, {"senders", senders()},
        {"link", {{"up", lineOf(m_status, "uplink").find("DOWN") == std::string::npos}}},
        {"daemon",
            {{"running", daemon.rfind("running", 0) == 0},
                {"pid", pid == std::string::npos ? Json() : Json(std::stoi(daemon.substr(pid + 4)))},
                {"said", daemon}}},
        {"knobs", knobs()}, {"behaviours", behaviours}, {"dab", dab()}, {"card", m_card}};
}

/// Many browsers may look at the desk.
void Desk::look()
{
    constexpr std::chrono::seconds fresh{1};
    if (std::chrono::steady_clock::now() - m_looked < fresh)
        return;
    m_status = steer({"status"});
    m_card = card();
    m_looked = std::chrono::steady_clock::now();
}

/// Size and room of the memory card, which is a file system in memory; null without one.
Json Desk::card() const
{
    const ProgramEnd end =
        Program(asRoot({m_places.instrument, "exec", "--run-dir", m_places.folder.string(), "stat",
                    "--file-system", "--format=%T %S %b %a", "/run/media/mmcblk1p1"}))
            .wait();
    std::istringstream words(end.output);
    std::string kind;
    std::uint64_t block = 0;
    std::uint64_t blocks = 0;
    std::uint64_t left = 0;
    words >> kind >> block >> blocks >> left;
    if (end.status != 0 || !words || kind != "tmpfs")
        return {};
    return {{"bytes", block * blocks}, {"free", block * left}};
}

Json Desk::startSender(const Json& wish)
{
    const std::string file = wish.at("file").get<std::string>();
    const Json known = streams();
    if (std::none_of(known.begin(), known.end(), [&](const Json& one) { return one.at("file") == file; }))
        refuse("there is no stream \"" + file + "\"", "the folder is " + m_places.streams.string());
    const auto server = client::parseServer({wish.at("url").get<std::string>()});
    if (client::carriesT2mi(server))
        refuse("a sender has no T2-MI of its own", "udp:// or rtp:// with a stream that carries T2-MI");
    std::vector<std::string> words{m_places.instrument, "exec", "--run-dir", m_places.folder.string(),
        "--sender", m_places.sender, (m_places.streams / file).string(), client::serverUrl(server),
        "--interface", "uplink"};
    if (wish.value("loop", true))
        words.emplace_back("--loop");
    if (wish.contains("bit_rate") && !wish.at("bit_rate").is_null())
        words.insert(
            words.end(), {"--bitrate", std::to_string(std::llround(numberOf(wish, "bit_rate", 1e3, 1e9)))});
    const double errors = wish.value("cc_errors_per_second", 0.0);
    if (errors > 0)
        words.insert(words.end(), {"--cc-errors-per-second", std::to_string(std::llround(errors))});
    const std::lock_guard lock(m_mutex);
    constexpr std::size_t most = 16;
    if (m_senders.size() >= most)
        refuse("there are " + std::to_string(most) + " senders already", "end one of them");
    auto program = std::make_unique<Program>(asRoot(words));
    Sender& sender = m_senders[++m_lastId];
    sender.told = {{"file", file}, {"url", client::serverUrl(server)},
        {"bit_rate", wish.value("bit_rate", Json())}, {"cc_errors_per_second", errors},
        {"since", ctl::isoTime(std::chrono::system_clock::now())}};
    sender.program = std::move(program);
    addMark(m_hub, "sender of " + file + " started");
    return {{"id", m_lastId}};
}

bool Desk::endSender(int id)
{
    const std::lock_guard lock(m_mutex);
    const auto found = m_senders.find(id);
    if (found == m_senders.end())
        return false;
    if (found->second.program->running())
        Program(asRoot({"kill", std::to_string(found->second.program->pid())})).wait();
    found->second.program->wait();
    addMark(m_hub, "sender of " + found->second.told.at("file").get<std::string>() + " ended");
    m_senders.erase(found);
    return true;
}

void Desk::setLink(const Json& wish)
{
    const bool up = wish.at("up").get<bool>();
    const std::lock_guard lock(m_mutex);
    steer({"link", up ? "up" : "down"});
    addMark(m_hub, up ? "link up" : "link down");
}

void Desk::steerDaemon(const Json& wish)
{
    const std::string action = wish.at("action").get<std::string>();
    if (action != "start" && action != "stop" && action != "kill" && action != "restart")
        refuse("\"" + action + "\" is nothing for the daemon", "start, stop, kill or restart");
    const std::lock_guard lock(m_mutex);
    steer({"daemon", action});
    addMark(m_hub, "daemon " + action);
}

void Desk::setKnobs(const Json& wish)
{
    if (!hasHardware())
        refuse("this instrument has no counterparts of its hardware", "start it with bench/hardware");
    for (const auto& [name, value] : wish.items())
        setKnob(name, value.is_string() ? value.get<std::string>() : value.dump());
}

void Desk::setKnob(const std::string& name, const std::string& value)
{
    constexpr const char* remedy = "docs/bench.md lists the knobs";
    if (!isWord(name) || value.find_first_not_of("-0123456789") != std::string::npos)
        refuse("\"" + name + "\" is no knob, or \"" + value + "\" no number", remedy);
    const std::string setting = name + "=" + value;
    std::ofstream file(m_places.folder / "fpga" / "knobs");
    file << setting << '\n' << std::flush;
    if (!file)
        refuse("the FPGA did not take " + setting, remedy);
    addMark(m_hub, setting);
}

void Desk::setBehaviour(const Json& wish)
{
    const std::string program = wish.at("program").get<std::string>();
    if (!isWord(program))
        refuse("\"" + program + "\" is no program's name", "such as smcroute");
    std::vector<std::string> words{"behave", program};
    const bool real = wish.value("real", false);
    if (real)
        words.emplace_back("--real");
    else
        for (const char* key : {"status", "delay", "stdout", "stderr", "times", "when"})
            addOption(words, (std::string("--") + key).c_str(), wish, key);
    const std::lock_guard lock(m_mutex);
    steer(words);
    if (real)
        m_behaviours.erase(program);
    else
        m_behaviours[program] = wish;
    addMark(m_hub, real ? program + " is the real one" : program + " behaves as told");
}

void Desk::setDab(const Json& wish)
{
    if (!hasHardware())
        refuse("this instrument has no DAB receiver", "start it with bench/hardware");
    const Json settings{{"open_after_s", numberOf(wish, "open_after_s", 0, 3600)},
        {"never_opens", wish.at("never_opens").get<bool>()},
        {"answer_after_s", numberOf(wish, "answer_after_s", 0, 3600)},
        {"pieces", wish.at("pieces").get<std::vector<int>>()}, {"die_at", numberOf(wish, "die_at", 0, 1e9)}};
    const std::lock_guard lock(m_mutex);
    std::ofstream file(m_places.folder / "io" / "dab.json");
    file << textOf(settings) << std::flush;
    if (!file)
        throw Failure(ExitCode::LocalFile, "cannot write dab.json", "start the panel as root");
    addMark(m_hub, "DAB receiver changed");
}

} // namespace tessary::panel
