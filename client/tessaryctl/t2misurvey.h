#pragma once

#include "client/controller.h"
#include "client/psi/t2mipacket.h"

#include <map>
#include <optional>
#include <set>
#include <string>

namespace tessary::ctl {

/// What T2-MI packets are on the PID of the stream server, as far as samples of the last packet show.
struct T2miSurvey
{
    std::map<int, int> packets; ///< samples of each packet_type
    std::map<int, int> frames; ///< of baseband frames: samples of each PLP
    std::set<int> streamIds;
    int wrong = 0; ///< samples with a wrong CRC-32, which are in none of the others
    std::optional<client::T2Signalling> signalling; ///< L1, which names all PLPs

    bool empty() const { return packets.empty() && wrong == 0; }
    /// All that were seen, by L1 or in a baseband frame.
    std::set<int> plps() const;
};

/// Asks for the last packet over and over for so many seconds; with `enough`, only until L1 was among them.
T2miSurvey surveyT2mi(client::Controller& controller, double seconds, bool enough);

/// "102, 103".
std::string textOf(const std::set<int>& plps);

} // namespace tessary::ctl
