#pragma once

#include "kit/bytes.h"

#include <optional>
#include <string>

/// The recorded broadcast streams: in the folder that the environment names by TESSARY_SAMPLES, else in the
/// build's.
namespace tessary::test {

/// Path of a recorded stream, or nothing where the folder does not hold it.
std::optional<std::string> samplePath(const std::string& name);

/// All of it; empty where there is none.
Bytes bytesOfSample(const std::string& name);

/// Why a test that needs `name` is skipped.
std::string missingSample(const std::string& name);

} // namespace tessary::test
