#pragma once

#include "client/psi/streamkind.h"
#include "client/psi/tables.h"

#include <vector>

namespace tessary::python {

/// One stream of a program with what it is, which only the whole program tells.
struct ElementaryStream
{
    client::ProgramMap::Stream stream;
    client::StreamKind kind;
};

std::vector<ElementaryStream> elementaryStreamsOf(const client::ProgramMap& program);

} // namespace tessary::python
