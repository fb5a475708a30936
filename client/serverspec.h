#pragma once

#include "client/controller.h"

#include <string>
#include <vector>

namespace tessary::client {

/// A stream server as a person writes it: "udp://239.0.0.1:1234", "rtp+t2mi://239.0.0.2:5000?pid=4096&plp=0",
/// or in words, "udp 239.0.0.1 1234", "rtp+t2mi 239.0.0.2 5000 4096 0". PID and PLP may be hexadecimal
/// ("0x1000"), and the address may have an "@" in front, as players take it. Throws UsageError that says
/// what is wrong.
StreamServer parseServer(const std::vector<std::string>& words);

/// The first of these forms.
std::string serverUrl(const StreamServer& server);

bool carriesT2mi(const StreamServer& server);

} // namespace tessary::client
