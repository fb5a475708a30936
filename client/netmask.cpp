#include "client/netmask.h"

#include "client/usageerror.h"

#include <arpa/inet.h>
#include <array>
#include <charconv>
#include <cstdint>

namespace tessary::client {

namespace {

[[noreturn]] void refuse(const std::string& what)
{
    throw UsageError(what, "write 192.168.1.20 255.255.255.0, or 192.168.1.20/24 in one");
}

std::uint32_t dottedDecimal(const std::string& text, const char* what)
{
    in_addr address{};
    if (::inet_pton(AF_INET, text.c_str(), &address) != 1)
        refuse(std::string(what) + " \"" + text + "\" is not written like 192.168.1.20");
    return ntohl(address.s_addr);
}

std::string textOf(std::uint32_t address)
{
    const in_addr network{htonl(address)};
    std::array<char, INET_ADDRSTRLEN> text{};
    ::inet_ntop(AF_INET, &network, text.data(), text.size());
    return text.data();
}

std::uint32_t ofLength(const std::string& text)
{
    unsigned length = 0;
    const char* const end = text.data() + text.size();
    const auto [next, error] = std::from_chars(text.data(), end, length);
    if (error != std::errc() || next != end || length < 1 || length > 32)
        refuse("mask length \"" + text + "\" is no number from 1 to 32");
    return ~std::uint32_t{0} << (32 - length);
}

std::uint32_t maskOf(const std::string& text)
{
    if (text.find('.') == std::string::npos)
        return ofLength(text[0] == '/' ? text.substr(1) : text);
    const std::uint32_t mask = dottedDecimal(text, "mask");
    const std::uint32_t hosts = ~mask;
    if ((hosts & (hosts + 1)) != 0)
        refuse("mask \"" + text + "\" has holes: its ones have to come before its zeros");
    if (mask == 0)
        refuse("mask \"" + text + "\" has no ones");
    return mask;
}

} // namespace

InterfaceAddress parseAddressAndMask(const std::string& address, const std::string& mask)
{
    const std::size_t slash = address.find('/');
    const std::string behind = slash != std::string::npos ? address.substr(slash + 1) : "";
    if (!behind.empty() && !mask.empty())
        refuse("the mask is given twice, as \"/" + behind + "\" and as \"" + mask + "\"");
    const std::string& given = mask.empty() ? behind : mask;
    if (given.empty())
        refuse("no mask: a static address needs one");
    return {textOf(dottedDecimal(address.substr(0, slash), "address")), textOf(maskOf(given))};
}

bool isMiscounted(const std::string& mask)
{
    const std::uint32_t bits = maskOf(mask);
    for (unsigned shift = 0; shift < 32; shift += 8) {
        const std::uint32_t octet = bits >> shift & 0xFFU;
        if (octet != 0 && octet != 0xFFU && octet != 0xFEU)
            return true;
    }
    return false;
}

} // namespace tessary::client
