#include "kit/samples.h"

#include <cstdlib>
#include <fstream>

namespace tessary::test {

namespace {

std::string samplesFolder()
{
    const char* fromEnvironment = std::getenv("TESSARY_SAMPLES");
    return fromEnvironment != nullptr && *fromEnvironment != '\0' ? fromEnvironment : TESSARY_SAMPLES;
}

} // namespace

std::optional<std::string> samplePath(const std::string& name)
{
    const std::string path = samplesFolder() + "/" + name;
    if (!std::ifstream(path).good())
        return std::nullopt;
    return path;
}

Bytes bytesOfSample(const std::string& name)
{
    return bytesOfFile(samplesFolder() + "/" + name);
}

std::string missingSample(const std::string& name)
{
    return name + " is not in " + samplesFolder()
        + "; name the folder of recorded streams with TESSARY_SAMPLES";
}

} // namespace tessary::test
