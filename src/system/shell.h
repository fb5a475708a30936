#pragma once

#include <string>

/// Runs a command line exactly as written through the standard `system` call and waits for its end. Returns
/// the wait status, which most callers do not look at. Main thread only.
int runShell(const std::string& commandLine);
