#pragma once

#include "client/tessaryctl/context.h"

#include <optional>
#include <string>
#include <vector>

namespace tessary::ctl {

/// Names of the documents that --json prints: the sub-command's words with hyphens, "measure-watch", "error".
std::vector<std::string> schemaNames();

/// The JSON Schema (draft 7) of one of them, whole in itself; nothing for another name.
std::optional<Json> schemaOf(const std::string& name);

} // namespace tessary::ctl
