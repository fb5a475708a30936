#pragma once

#include "device.h"

/// Serves the device's files at the mount point until SIGTERM or SIGINT; prints "ready" once they can be
/// opened. Returns the exit status.
int serveFiles(Device& device, const char* program, const char* mountPoint);
