#pragma once

#include <optional>
#include <string>

namespace tessary::client {

/// The answer to "version?".
struct VersionInfo
{
    std::string software; ///< "1.4"
    std::string fpga; ///< build time of the bitstream, or why it is not known
    std::optional<bool> fpgaConfigured; ///< "done=OK" or "done=NOK"; nothing when the line has neither

    /// The build time as "2021-05-05T04:52:47", in the time of where it was built, which the line does not
    /// tell; nothing when `fpga` tells why there is none.
    std::optional<std::string> fpgaBuilt() const;
};

/// Takes "SV: mx8 1.4 FPGA: 5/5/2021 4:52:47 done=OK" apart. Throws AnswerError for another text.
VersionInfo parseVersion(const std::string& line);

/// Address and mask of the wired interface, dotted decimal.
struct InterfaceAddress
{
    std::string address;
    std::string mask;
};

/// What "interface=" sets.
struct InterfaceSettings
{
    bool dhcp = true;
    std::string address; ///< for a static address
    std::string mask; ///< for a static address
    std::optional<int> vlan; ///< 1 to 4094; none switches the VLAN off
    std::string ethtoolCommand; ///< such as "ethtool -s eth0 speed 100 duplex full"; empty for none

    /// The argument: a static address stands first, the other parts follow with semicolons.
    std::string text() const;
};

} // namespace tessary::client
