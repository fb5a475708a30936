#include "kit/sections.h"

#include "kit/crc.h"

#include <algorithm>

namespace tessary::test {

Bytes makeSection(
    std::uint8_t tableId, std::uint16_t extension, const Bytes& body, const SectionNumbers& numbers)
{
    Bytes bytes{tableId, 0, 0};
    append16(bytes, extension);
    append(
        bytes, {lowByte(0xC1U | static_cast<unsigned>(numbers.version) << 1U), numbers.number, numbers.last});
    append(bytes, body);
    return soundSection(bytes);
}

Bytes soundSection(Bytes bytes)
{
    constexpr std::size_t crcBytes = 4;
    bytes.resize(std::max<std::size_t>(bytes.size(), 8));
    const std::size_t length = bytes.size() - 3 + crcBytes;
    bytes[1] = lowByte((bytes[1] & 0x40U) | 0xB0U | length >> 8U); // its private_indicator is kept
    bytes[2] = lowByte(length);
    return withCrc32(std::move(bytes));
}

Bytes damaged(Bytes section)
{
    section.back() ^= 0xFFU;
    return section;
}

Bytes makeDescriptor(std::uint8_t tag, const Bytes& payload)
{
    return join({{tag, lowByte(payload.size())}, payload});
}

Bytes makeLoop(const Bytes& content)
{
    Bytes bytes;
    append16(bytes, 0xF000U | content.size());
    append(bytes, content);
    return bytes;
}

Bytes serviceDescriptor(std::uint8_t type, const std::string& provider, const std::string& name)
{
    return makeDescriptor(0x48,
        join({{type, lowByte(provider.size())}, {provider.begin(), provider.end()}, {lowByte(name.size())},
            {name.begin(), name.end()}}));
}

Bytes makePat(const std::vector<std::uint16_t>& programs, std::uint8_t version)
{
    Bytes body;
    unsigned pid = 0x100;
    for (const std::uint16_t program : programs) {
        append16(body, program);
        append16(body, 0xE000U | pid++);
    }
    return makeSection(0x00, 1, body, {0, 0, version});
}

Bytes makePmt(std::uint16_t program, std::uint16_t pid, std::uint8_t version)
{
    Bytes body;
    append16(body, 0xE000U | pid); // PCR_PID
    append(body, makeLoop({}));
    body.push_back(0x1B); // H.264
    append16(body, 0xE000U | pid);
    append(body, makeLoop({}));
    return makeSection(0x02, program, body, {0, 0, version});
}

Bytes makeSdt(
    const std::vector<std::uint16_t>& services, std::size_t length, std::uint8_t number, std::uint8_t tableId)
{
    // header and CRC_32, original_network_id and reserved byte, five bytes a service
    std::size_t filler = length - 12 - 3 - 5 * services.size();
    Bytes body{0x00, 0x01, 0xFF};
    for (const std::uint16_t service : services) {
        append16(body, service);
        body.push_back(0xFC);
        append16(body, 0x8000U | filler);
        if (filler == 0)
            continue;
        append(body, {0x80, lowByte(filler - 2)}); // a private descriptor
        body.resize(body.size() + filler - 2, 0x55);
        filler = 0;
    }
    return makeSection(tableId, 1, body, {number, number});
}

Bytes makeNit(std::uint8_t number, const std::string& name, std::uint8_t tableId)
{
    const Bytes networkName = makeDescriptor(0x40, {name.begin(), name.end()});
    return makeSection(tableId, 1, join({makeLoop(networkName), makeLoop({})}), {number, 1});
}

} // namespace tessary::test
