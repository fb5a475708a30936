#pragma once

#include "client/streamtables.h"
#include "client/tessaryctl/context.h"

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// What is known of a stream. PMTs are known only of programs that were played.
struct StreamReport
{
    std::optional<client::ServiceTable> services;
    std::vector<client::ProgramMap> programs;
    std::optional<client::NetworkTable> network;

    const client::ProgramMap* programOf(std::uint16_t serviceId) const;
    const client::ServiceDescription::Service* serviceOf(std::uint16_t id) const;
    /// Its logical channel number, when the NIT tells one for this transport stream.
    std::optional<int> channelOf(std::uint16_t serviceId) const;
    /// The first PID that is announced to carry T2-MI.
    std::optional<std::uint16_t> t2miPid() const;
    /// Numbers of the services whose PMT is not known, "501, 502"; empty when there are none.
    std::string servicesWithoutProgram() const;
};

void printReport(std::ostream& out, const StreamReport& report);
Json jsonOf(const StreamReport& report);
void printProgram(std::ostream& out, const client::ProgramMap& program, const std::string& indent);
Json jsonOf(const client::ProgramMap& program);

} // namespace tessary::ctl
