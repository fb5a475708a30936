// GetFpgaVersion: a bitstream file of any bytes.
//
// Input: the file. An empty input stands for no file at all.
#include "support/input.h"
#include "support/quiet.h"
#include "system/system_config.h"

#include <cstdio>
#include <QString>
#include <regex>
#include <unistd.h>

namespace {

constexpr const char* bitfile = "/home/ondrak/Tessary/Tessary.bit";

void store(const std::uint8_t* bytes, std::size_t size)
{
    std::FILE* file = std::fopen(bitfile, "w");
    FUZZ_REQUIRE(file != nullptr && std::fwrite(bytes, 1, size, file) == size);
    FUZZ_REQUIRE(std::fclose(file) == 0);
}

/// One of the reasons, or a time-stamp with the flag behind it; nothing else may reach the controller's line.
bool isKnown(const std::string& text)
{
    for (const char* reason : {"bitfile not found", "bitfile empty", "start pattern not found in bitfile",
             "version not found in bitfile"}) {
        if (text == reason)
            return true;
    }
    static const std::regex timeStamp(R"(\d{1,2}/\d{1,2}/20\d{1,2} \d{1,2}:\d{1,2}:\d{1,2} done=N?OK)");
    return std::regex_match(text, timeStamp);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    startQuietly();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    if (size == 0)
        unlink(bitfile);
    else
        store(bytes, size);
    FUZZ_REQUIRE(isKnown(systconf.GetFpgaVersion().toStdString()));
    return 0;
}
