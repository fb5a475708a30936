#include "madesections.h"

namespace madesections {

namespace {

std::uint8_t low(std::size_t value)
{
    return static_cast<std::uint8_t>(value & 0xFFU);
}

void append16(Bytes& target, std::size_t value)
{
    target.push_back(low(value >> 8U));
    target.push_back(low(value));
}

/// CRC_32 of ISO/IEC 13818-1 annex A, bit by bit.
std::uint32_t crc32(const Bytes& bytes)
{
    std::uint32_t crc = 0xFFFFFFFFU;
    for (const std::uint8_t byte : bytes) {
        for (int bit = 7; bit >= 0; --bit) {
            const bool carry = (((crc >> 31U) ^ (byte >> bit)) & 1U) != 0;
            crc = (crc << 1U) ^ (carry ? 0x04C11DB7U : 0U);
        }
    }
    return crc;
}

std::uint16_t pidOf(std::uint8_t tableId)
{
    switch (tableId) {
    case 0x00:
        return 0x0000;
    case 0x40:
    case 0x41:
        return 0x0010;
    case 0x42:
    case 0x46:
        return 0x0011;
    case 0x4E:
        return 0x0012;
    default:
        return 0x1000;
    }
}

} // namespace

Bytes section(std::uint8_t tableId, std::uint16_t extension, const Bytes& body, std::uint8_t number,
    std::uint8_t lastNumber, std::uint8_t version)
{
    const std::size_t length = 5 + body.size() + 4;
    Bytes bytes;
    bytes.reserve(3 + length);
    for (const std::uint8_t byte : {tableId, low(0xB0U | length >> 8U), low(length), low(extension >> 8U),
             low(extension), low(0xC1U | static_cast<unsigned>(version) << 1U), number, lastNumber})
        bytes.push_back(byte);
    bytes.insert(bytes.end(), body.begin(), body.end());
    const std::uint32_t crc = crc32(bytes);
    append16(bytes, crc >> 16U);
    append16(bytes, crc & 0xFFFFU);
    return bytes;
}

Bytes pat(const std::vector<std::uint16_t>& programs, std::uint8_t version)
{
    Bytes body;
    std::size_t pid = 0x100;
    for (const std::uint16_t program : programs) {
        append16(body, program);
        append16(body, 0xE000U | pid++);
    }
    return section(0x00, 1, body, 0, 0, version);
}

Bytes pmt(std::uint16_t program, std::uint16_t pid, std::uint8_t version)
{
    Bytes body;
    append16(body, 0xE000U | pid); // PCR_PID
    append16(body, 0xF000U); // program_info_length
    body.push_back(0x1B); // H.264
    append16(body, 0xE000U | pid);
    append16(body, 0xF000U); // ES_info_length
    return section(0x02, program, body, 0, 0, version);
}

Bytes sdt(
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
        body.push_back(0x80); // a private descriptor
        body.push_back(low(filler - 2));
        body.resize(body.size() + filler - 2, 0x55);
        filler = 0;
    }
    return section(tableId, 1, body, number, number);
}

Bytes nit(std::uint8_t number, const std::string& name, std::uint8_t tableId)
{
    Bytes body;
    append16(body, 0xF000U | (2 + name.size()));
    body.push_back(0x40); // network_name_descriptor
    body.push_back(low(name.size()));
    body.insert(body.end(), name.begin(), name.end());
    append16(body, 0xF000U); // transport_stream_loop_length
    return section(tableId, 1, body, number, 1);
}

Bytes damaged(Bytes section)
{
    section.back() ^= 0xFFU;
    return section;
}

GstMpegtsSection* delivered(const Bytes& bytes)
{
    auto* copy = static_cast<guint8*>(g_memdup2(bytes.data(), bytes.size()));
    return gst_mpegts_section_new(pidOf(bytes.front()), copy, bytes.size());
}

void post(GstElement* pipeline, const Bytes& bytes)
{
    GstMpegtsSection* sent = delivered(bytes);
    gst_element_post_message(pipeline, gst_message_new_mpegts_section(GST_OBJECT(pipeline), sent));
    gst_mpegts_section_unref(sent);
}

} // namespace madesections
