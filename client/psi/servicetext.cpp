#include "client/psi/servicetext.h"

#include "client/psi/aribtext.h"
#include "client/psi/bytes.h"
#include "client/psi/mpegtslibrary.h"

#define GST_USE_UNSTABLE_API // the MPEG-TS library is marked so, but has kept its interface since 1.4
#include <gst/mpegts/mpegts.h>
#include <memory>

namespace tessary::client {

namespace {

struct Text
{
    const std::uint8_t* first;
    std::size_t length;
};

/// GLib's strings, and what they become when they are null.
std::string taken(gchar* text, const std::string& otherwise = {})
{
    const std::unique_ptr<gchar, decltype(&g_free)> holder(text, &g_free);
    return text != nullptr ? text : otherwise;
}

/// Broadcasting satellites and terrestrial stations of Japan (ARIB TR-B14 and TR-B15).
bool isJapanese(std::uint16_t network)
{
    return network == 0x0004 || network == 0x0006 || network == 0x0007
        || (network >= 0x7880 && network <= 0x7FEF);
}

/// A first byte that neither is a character nor names a table (ETSI EN 300 468, A.2, table A.3).
bool isStray(std::uint8_t code)
{
    return code == 0x00 || (code >= 0x0C && code <= 0x0F) || (code >= 0x16 && code <= 0x1E);
}

/// C0 and C1, which are no characters of ISO 8859.
bool isControl(std::uint8_t code)
{
    return (code & 0x7FU) < 0x20 || code == 0x7F;
}

std::string latinText(Text text)
{
    std::string letters;
    for (std::size_t i = 0; i < text.length; ++i) {
        if (!isControl(text.first[i]))
            letters.push_back(static_cast<char>(text.first[i]));
    }
    return taken(g_convert(letters.data(), static_cast<gssize>(letters.size()), "UTF-8", "ISO-8859-15",
        nullptr, nullptr, nullptr));
}

/// A text that begins with 0x10 names its character table in the two bytes behind it. The library's text
/// function believes that they are there.
bool namesItsTable(Text text)
{
    constexpr std::size_t tableBytes = 3;
    return text.first[0] != 0x10 || text.length >= tableBytes;
}

/// Emphasis and the like, in C1 and where two-byte tables have it (ETSI EN 300 468, A.1); a new line becomes
/// a blank.
std::string withoutControls(const std::string& text)
{
    constexpr gunichar newLine = 0x8A;
    std::string left;
    for (const gchar* at = text.c_str(); *at != '\0'; at = g_utf8_next_char(at)) {
        const gunichar c = g_utf8_get_char(at);
        const gunichar control = c >= 0xE080 && c <= 0xE09F ? c - 0xE000 : c;
        if (control == '\n' || control == newLine)
            left += ' ';
        else if (control >= 0x20 && (control < 0x7F || control > 0x9F))
            left.append(at, static_cast<std::size_t>(g_utf8_next_char(at) - at));
    }
    return left;
}

/// By the library, which takes texts out of descriptors only. Of a text that does not convert it reads up to
/// two bytes more than there are: nothing may stand there that would be shown.
std::string dvbText(Text text)
{
    constexpr std::size_t header = 2;
    constexpr std::size_t behind = 2;
    constexpr std::size_t longest = 255;
    if (!namesItsTable(text) || text.length > longest)
        return {};
    initialiseMpegTsLibrary();
    Bytes data{GST_MTS_DESC_DVB_NETWORK_NAME, static_cast<std::uint8_t>(text.length)};
    data.insert(data.end(), text.first, text.first + text.length);
    data.resize(header + text.length + behind);
    GstMpegtsDescriptor descriptor{};
    descriptor.tag = data[0];
    descriptor.length = data[1];
    descriptor.data = data.data();
    gchar* name = nullptr;
    if (!gst_mpegts_descriptor_parse_dvb_network_name(&descriptor, &name))
        return {};
    return withoutControls(taken(name));
}

std::string folded(const std::string& name)
{
    std::string text = taken(g_utf8_normalize(name.c_str(), -1, G_NORMALIZE_ALL_COMPOSE), name);
    text = taken(g_strstrip(g_strdup(text.c_str())));
    // Folding may take composed characters apart.
    if (g_utf8_validate(text.c_str(), -1, nullptr) == FALSE)
        return text;
    text = taken(g_utf8_casefold(text.c_str(), -1));
    return taken(g_utf8_normalize(text.c_str(), -1, G_NORMALIZE_ALL_COMPOSE), text);
}

} // namespace

std::string servicesText(const std::uint8_t* text, std::size_t length, std::uint16_t network)
{
    if (length == 0)
        return {};
    if (isJapanese(network))
        return aribText(text, length);
    return isStray(text[0]) ? latinText({text, length}) : dvbText({text, length});
}

bool sameName(const std::string& one, const std::string& other)
{
    return folded(one) == folded(other);
}

} // namespace tessary::client
