#pragma once

#include "../client/farend.h"
#include "../tessaryctl/ownstatefolder.h"
#include "client/panel/panel.h"

#include <atomic>
#include <filesystem>
#include <functional>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessary::test {

using panel::Json;

/// An instrument on a pseudo terminal that knows the questions which the panel asks on its own, and measures a stream.
class StandIn
{
public:
    StandIn();
    ~StandIn();
    StandIn(const StandIn&) = delete;
    StandIn& operator=(const StandIn&) = delete;

    std::string path() const { return m_link; }
    /// What came, in this order.
    std::vector<std::string> heard() const;
    bool hasHeard(const std::string& text) const;
    /// Keeps it from answering; what comes meanwhile is answered when it goes on.
    std::atomic<bool> silent{false};
    /// A command that is not answered before this is false.
    std::atomic<bool> holdsScan{false};
    std::atomic<bool> damaged{false}; ///< answers nonsense
    std::atomic<bool> linked{true}; ///< its Ethernet
    std::atomic<int> recordingBytes{42};
    void hangUp();
    void greet() { m_far->pty.send("\rHELLO !\r\n"); }

private:
    std::string answer(const std::string& text);

    mutable std::mutex m_mutex;
    std::vector<std::string> m_heard;
    std::int32_t m_rate = 1000000;
    /// To the pseudo terminal, whose name is soon another test's when it has hung up.
    std::filesystem::path m_link;
    std::unique_ptr<FarEnd> m_far; ///< the last one: its thread uses the others
};

/// The panel on such an instrument, and a browser.
class PanelOnStandIn
{
public:
    explicit PanelOnStandIn(panel::Options options = {});

    StandIn& instrument() { return m_instrument; }
    panel::Panel& panel() { return *m_panel; }
    httplib::Client browser() const;

    Json get(const std::string& path) const;
    /// A command line, carried out.
    Json run(const std::vector<std::string>& words) const;
    httplib::Result post(const std::string& path, const Json& body) const;
    /// Until the topic's value satisfies; false after a long time.
    bool waitFor(const std::string& topic, const std::function<bool(const Json&)>& satisfied) const;

private:
    StateFolder m_state;
    StandIn m_instrument;
    std::unique_ptr<panel::Panel> m_panel;
};

/// False after a long time.
bool waitUntil(const std::function<bool()>& come);

} // namespace tessary::test
