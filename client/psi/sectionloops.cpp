#include "client/psi/sectionloops.h"

namespace tessary::client {

namespace {

constexpr std::size_t longHeader = 8; // table_id to last_section_number
constexpr std::size_t crcSize = 4;
constexpr std::size_t programSize = 4; // of a PAT
constexpr std::size_t lengthSize = 2; // reserved bits and a 12-bit length

/// A part of a section: the bytes from `begin` up to, not including, `end`.
struct Range
{
    std::size_t begin;
    std::size_t end;

    std::size_t size() const { return end - begin; }
};

/// Takes a loop's length and the loop itself off the front of `range`. False when they do not fit.
bool takeLoop(const Bytes& bytes, Range& range, Range& loop)
{
    if (range.size() < lengthSize)
        return false;
    const std::size_t length = (bytes[range.begin] & 0x0FU) << 8U | bytes[range.begin + 1];
    range.begin += lengthSize;
    if (range.size() < length)
        return false;
    loop = {range.begin, range.begin + length};
    range.begin = loop.end;
    return true;
}

bool descriptorsFit(const Bytes& bytes, Range range)
{
    constexpr std::size_t header = 2; // descriptor_tag and descriptor_length
    while (range.size() > 0) {
        if (range.size() < header || range.size() - header < bytes[range.begin + 1])
            return false;
        range.begin += header + bytes[range.begin + 1];
    }
    return true;
}

/// Entries that begin with `fixedSize` bytes and end with a loop of descriptors.
bool entriesFit(const Bytes& bytes, Range range, std::size_t fixedSize)
{
    while (range.size() > 0) {
        if (range.size() < fixedSize)
            return false;
        range.begin += fixedSize;
        Range descriptors{};
        if (!takeLoop(bytes, range, descriptors) || !descriptorsFit(bytes, descriptors))
            return false;
    }
    return true;
}

bool programMapFits(const Bytes& bytes, Range body)
{
    constexpr std::size_t pcrPid = 2;
    constexpr std::size_t streamFixed = 3; // stream_type and elementary_PID
    if (body.size() < pcrPid)
        return false;
    body.begin += pcrPid;
    Range program{};
    return takeLoop(bytes, body, program) && descriptorsFit(bytes, program)
        && entriesFit(bytes, body, streamFixed);
}

bool networkFits(const Bytes& bytes, Range body)
{
    constexpr std::size_t transportStreamFixed = 4; // transport_stream_id and original_network_id
    Range network{};
    Range streams{};
    return takeLoop(bytes, body, network) && descriptorsFit(bytes, network) && takeLoop(bytes, body, streams)
        && entriesFit(bytes, streams, transportStreamFixed);
}

bool servicesFit(const Bytes& bytes, Range body)
{
    constexpr std::size_t originalNetwork = 3; // original_network_id and a reserved byte
    constexpr std::size_t serviceFixed = 3; // service_id and the EIT flags
    if (body.size() < originalNetwork)
        return false;
    body.begin += originalNetwork;
    return entriesFit(bytes, body, serviceFixed);
}

} // namespace

bool loopsFit(const Section& section)
{
    const Bytes& bytes = section.bytes;
    if (bytes.size() < longHeader + crcSize)
        return false;
    const Range body{longHeader, bytes.size() - crcSize};
    switch (section.tableId()) {
    case 0x00:
        return body.size() % programSize == 0;
    case 0x02:
        return programMapFits(bytes, body);
    case 0x40:
    case 0x41:
        return networkFits(bytes, body);
    case 0x42:
    case 0x46:
        return servicesFit(bytes, body);
    default:
        return false;
    }
}

} // namespace tessary::client
