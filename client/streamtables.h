#pragma once

#include "client/psi/tables.h"

#include <string>

namespace tessary::client {

/// The services of all SDT sections in an answer to "streaminfo?". The daemon may have collected a section
/// more than once; a service counts once, as its newest section says.
struct ServiceTable
{
    ServiceDescription services;
    bool complete = false; ///< every section up to last_section_number is there
};

/// The same of the NIT sections in an answer to "getnit?".
struct NetworkTable
{
    NetworkInformation network;
    bool complete = false;
};

/// These throw AnswerError when the bytes are no chain of whole sections with right CRC_32, or do not decode.
ServiceTable readServices(const Bytes& sections);
NetworkTable readNetwork(const Bytes& sections);
ProgramMap readProgram(const Bytes& section);

} // namespace tessary::client
