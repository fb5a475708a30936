#pragma once

#include "client/panel/commandline.h"
#include "client/panel/requestlimits.h"

#include <cstdint>
#include <optional>
#include <string>

namespace tessary::panel {

/// What the panel is started with.
struct Options
{
    std::string port; ///< of the instrument
    std::string listen = "127.0.0.1:8080"; ///< IPv4 address and port; port 0: any that is free
    std::string tokenFile; ///< its first line is the token
    std::string history = ":memory:"; ///< file, or this for none
    std::string page; ///< folder of the page's files
    std::string description; ///< file of the API's description, OpenAPI
    std::string dygraphs; ///< folder of dygraphs' files
    std::string instrument; ///< what steers the virtual instrument, bench/instrument
    std::string sender; ///< what sends streams to it, tessary-send
    std::string streams; ///< folder of streams to send
    std::uint64_t uploadLimit = 64; ///< MiB
    Allowed allowed;
    RequestLimits limits; ///< as they are, without an option

    std::string address() const; ///< of `listen`
    int httpPort() const;
    bool isLocal() const; ///< listens on this machine alone
};

/// Reads the command line; a status to end with when there is nothing more to do. Throws Failure Usage.
std::optional<int> parseOptions(int argc, char** argv, Options& options);

} // namespace tessary::panel
