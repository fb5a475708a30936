#include "standin.h"

#include <algorithm>
#include <array>
#include <thread>
#include <unistd.h>

namespace tessary::test {

namespace {

std::string bytesOf(const std::array<std::int32_t, 7>& values)
{
    std::string bytes;
    for (const std::int32_t value : values) {
        for (int shift = 0; shift < 32; shift += 8)
            bytes.push_back(static_cast<char>((static_cast<std::uint32_t>(value) >> shift) & 0xFFU));
    }
    return bytes;
}

} // namespace

StandIn::StandIn()
    : m_far(std::make_unique<FarEnd>([this](const std::string& text) { return answer(text); }))
{
    const std::filesystem::path terminal = m_far->pty.path();
    m_link = std::filesystem::temp_directory_path()
        / ("stand-in-" + std::to_string(::getpid()) + "-" + terminal.filename().string());
    std::filesystem::remove(m_link); // of a test that was killed
    std::filesystem::create_symlink(terminal, m_link);
}

StandIn::~StandIn()
{
    hangUp();
}

void StandIn::hangUp()
{
    std::filesystem::remove(m_link);
    m_far.reset();
}

std::vector<std::string> StandIn::heard() const
{
    const std::lock_guard lock(m_mutex);
    return m_heard;
}

bool StandIn::hasHeard(const std::string& text) const
{
    const auto all = heard();
    return std::find(all.begin(), all.end(), text) != all.end();
}

std::string StandIn::answer(const std::string& text)
{
    while (silent)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    {
        const std::lock_guard lock(m_mutex);
        m_heard.push_back(text);
    }
    while (holdsScan && text == "scancur")
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (text == "version?")
        return damaged ? "SV nonsense\n" : "SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=OK\n";
    if (text == "PVR_reclist")
        return damaged ? "reclist nonsense" : "reclist file:" + std::to_string(recordingBytes) + " Bytes";
    if (text == "getethernetmes?") {
        m_rate += 1; // the figures of each period differ
        return linked ? bytesOf({1, m_rate, 7, 0, 188, 7, 10}) : "not connected\n";
    }
    if (text == "getiat?")
        return linked ? "900;1000;1100;1000;" : "not connected\n";
    if (text == "interface?")
        return linked ? "10.0.0.5 255.255.255.0\n" : "not connected\n";
    if (text == "videostatus?")
        return "running";
    return {};
}

PanelOnStandIn::PanelOnStandIn(panel::Options options)
{
    options.port = m_instrument.path();
    if (options.listen == panel::Options().listen)
        options.listen = "127.0.0.1:0";
    if (options.page.empty())
        options.page = TESSARY_SOURCE_DIR "/client/panel/www";
    m_panel = std::make_unique<panel::Panel>(options);
}

httplib::Client PanelOnStandIn::browser() const
{
    const std::string address = m_panel->address();
    httplib::Client client("127.0.0.1", std::stoi(address.substr(address.rfind(':') + 1)));
    client.set_read_timeout(60);
    return client;
}

Json PanelOnStandIn::get(const std::string& path) const
{
    const auto result = browser().Get(path.c_str());
    return result ? Json::parse(result->body, nullptr, false) : Json();
}

httplib::Result PanelOnStandIn::post(const std::string& path, const Json& body) const
{
    return browser().Post(path.c_str(), body.dump(), "application/json");
}

Json PanelOnStandIn::run(const std::vector<std::string>& words) const
{
    const auto result = post("/api/run?wait=1", {{"words", words}});
    return result ? Json::parse(result->body, nullptr, false) : Json();
}

bool PanelOnStandIn::waitFor(
    const std::string& topic, const std::function<bool(const Json&)>& satisfied) const
{
    return waitUntil([&] {
        const Json state = get("/api/state");
        return state.contains(topic) && satisfied(state.at(topic));
    });
}

bool waitUntil(const std::function<bool()>& come)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (std::chrono::steady_clock::now() < end) {
        if (come())
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

} // namespace tessary::test
