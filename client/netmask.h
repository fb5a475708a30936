#pragma once

#include "client/instrumentsettings.h"

#include <string>

namespace tessary::client {

/// Address and mask as a person writes them: ("192.168.1.20", "255.255.255.0"), ("192.168.1.20/24", ""),
/// ("192.168.1.20", "/24") or ("192.168.1.20", "24"). Both dotted decimal then. Throws UsageError for what
/// is none, for a mask with holes and for one without bits.
InterfaceAddress parseAddressAndMask(const std::string& address, const std::string& mask);

/// The instrument counts a mask's bits octet by octet and takes an octet between 0 and 255 for more than it
/// is: true for masks that have one. `mask` is dotted decimal.
bool isMiscounted(const std::string& mask);

} // namespace tessary::client
