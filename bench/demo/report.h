#pragma once

#include "client/tables.h"

#include <iosfwd>
#include <vector>

namespace tessary::demo {

/// What the SDT sections in the answer to "streaminfo?" say, each service once. Throws std::runtime_error
/// when a section is damaged or none is there.
client::ServiceDescription readServices(const client::Bytes& sections);

/// The same for "getnit?".
client::NetworkInformation readNetwork(const client::Bytes& sections);

/// The same for "getpmt?".
client::ProgramMap readProgram(const client::Bytes& section);

void printServices(std::ostream& out, const client::ServiceDescription& services);
void printNetwork(std::ostream& out, const client::NetworkInformation& network);
void printProgram(std::ostream& out, const client::ProgramMap& program);

} // namespace tessary::demo
