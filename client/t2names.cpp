#include "client/t2names.h"

namespace tessary::client {

std::string t2GuardInterval(std::uint64_t code)
{
    constexpr const char* names[] = {"1/32", "1/16", "1/8", "1/4", "1/128", "19/128", "19/256", ""};
    return names[code & 7U];
}

std::string t2TransmissionMode(std::uint64_t code)
{
    // The last two are S2's alone, for the guard intervals that DVB-T has not.
    constexpr const char* names[] = {"2k", "8k", "4k", "1k", "16k", "32k", "8k", "32k"};
    return names[code & 7U];
}

} // namespace tessary::client
