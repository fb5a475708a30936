#pragma once

#include "client/tessaryctl/logsummary.h"

#include <string>

namespace tessary::ctl {

/// A measurement log as a page for a browser and a printer: one HTML file with nothing beside it, no script.
/// `name` is that of the log. Its size does not grow with the log's.
std::string reportPage(const MeasurementRecord& log, const LogSummary& summary, const std::string& name);

} // namespace tessary::ctl
