#pragma once

#include <string>

namespace tessary::client {

/// Who has locked the file behind this descriptor (flock), as a person knows a program: "tessary-panel, PID 1234".
/// Empty when the system does not tell, as of a program in another namespace.
std::string lockHolder(int descriptor);

} // namespace tessary::client
