#pragma once

#include "client/panel/gate.h"
#include "client/panel/hub.h"

#include <httplib.h>
#include <string>

namespace tessary::panel {

void answer(httplib::Response& response, const Json& value, int status = 200);
/// {"error": {"cause", "remedy"}}.
Json errorOf(const Refusal& refusal);
/// The same as an answer.
void refuse(httplib::Response& response, const Refusal& refusal);
/// A file of the page as it is.
void sendFile(httplib::Response& response, const std::string& path, const std::string& type);

} // namespace tessary::panel
