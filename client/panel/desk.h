#pragma once

#include "client/panel/hub.h"
#include "client/panel/program.h"

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace tessary::panel {

/// What stands around a virtual instrument and can be turned: senders of streams, the link, the daemon, the counterparts'
/// knobs, how programs behave. May be used from any thread; what is not as it should be is a Failure.
class Desk
{
public:
    struct Places
    {
        std::filesystem::path folder; ///< the instrument's run directory
        std::string instrument; ///< the program that steers it, bench/instrument
        std::string sender; ///< tessary-send
        std::filesystem::path streams; ///< folder of streams to send
    };

    Desk(Hub& hub, Places places);

    /// What can be turned and how it stands.
    Json state();

    /// `wish`: file, url, bit_rate, cc_errors_per_second, loop. {"id": N}.
    Json startSender(const Json& wish);
    /// False when there is none of this number.
    bool endSender(int id);
    void setLink(const Json& wish);
    void steerDaemon(const Json& wish);
    void setKnobs(const Json& wish);
    void setBehaviour(const Json& wish);
    void setDab(const Json& wish);

private:
    struct Sender // NOLINT(bugprone-exception-escape): moving JSON asserts, and does not throw
    {
        Json told; ///< file, url, rate, errors, since
        std::unique_ptr<Program> program;
    };

    void setKnob(const std::string& name, const std::string& value);
    std::string steer(std::vector<std::string> words);
    void look();
    Json card() const;
    Json streams() const;
    Json senders();
    Json knobs() const;
    Json dab() const;
    bool hasHardware() const;

    Hub& m_hub;
    Places m_places;
    std::mutex m_mutex;
    std::map<int, Sender> m_senders;
    int m_lastId = 0;
    std::map<std::string, Json> m_behaviours; ///< by program, as given here

    /// What programs had to be started to know: asked anew after a second, and after each turn.
    std::string m_status;
    Json m_card;
    std::chrono::steady_clock::time_point m_looked{};
};

} // namespace tessary::panel
