#pragma once

#include "client/panel/hub.h"
#include "client/psi/bytes.h"

#include <string>

namespace tessary::panel {

/// {"hex", "decoded"}: the bytes of a table and a tree of {name, value, offset, length, children} that tells what they
/// mean, offset and length in bytes. What does not fit is shown as bytes.
Json treeOfSections(const client::Bytes& sections);
Json treeOfT2mi(const client::Bytes& packet);

} // namespace tessary::panel
