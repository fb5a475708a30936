#pragma once

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

/// The folder of recorded broadcast streams: the environment's TESSARY_SAMPLES, else the one known to the
/// build.
inline std::string samplesFolder()
{
    const char* folder = std::getenv("TESSARY_SAMPLES");
    return folder != nullptr ? folder : TESSARY_SAMPLES;
}

/// A whole file; empty if it is not there.
inline std::vector<std::uint8_t> readFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A recorded stream; empty if it is not there.
inline std::vector<std::uint8_t> readSample(const std::string& name)
{
    return readFile(samplesFolder() + "/" + name);
}
