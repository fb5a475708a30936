#include "sectionbuilder.h"

#include "client/crc32.h"

namespace tessary::test {

using client::Bytes;

namespace {

std::uint8_t low(std::size_t value)
{
    return static_cast<std::uint8_t>(value & 0xFFU);
}

void append(Bytes& target, const Bytes& more)
{
    target.insert(target.end(), more.begin(), more.end());
}

} // namespace

Bytes makeSection(std::uint8_t tableId, std::uint16_t extension, const Bytes& body, std::uint8_t number)
{
    const std::size_t length = 5 + body.size() + 4;
    Bytes bytes{tableId, low(0xB0U | length >> 8U), low(length), low(extension >> 8U), low(extension), 0xC1,
        number, number};
    append(bytes, body);
    const std::uint32_t crc = client::crc32Mpeg(bytes.data(), bytes.size());
    append(bytes, {low(crc >> 24U), low(crc >> 16U), low(crc >> 8U), low(crc)});
    return bytes;
}

Bytes makeDescriptor(std::uint8_t tag, const Bytes& payload)
{
    Bytes bytes{tag, low(payload.size())};
    append(bytes, payload);
    return bytes;
}

Bytes makeLoop(const Bytes& content)
{
    Bytes bytes{low(0xF0U | content.size() >> 8U), low(content.size())};
    append(bytes, content);
    return bytes;
}

Bytes join(std::initializer_list<Bytes> parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        append(all, part);
    return all;
}

Bytes serviceDescriptor(std::uint8_t type, const std::string& provider, const std::string& name)
{
    Bytes payload{type, low(provider.size())};
    append(payload, client::toBytes(provider));
    payload.push_back(low(name.size()));
    append(payload, client::toBytes(name));
    return makeDescriptor(0x48, payload);
}

client::Section onlySection(const Bytes& bytes)
{
    return client::splitSections(bytes).sections.at(0);
}

} // namespace tessary::test
