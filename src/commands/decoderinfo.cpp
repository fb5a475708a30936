#include "commands/decoderinfo.h"

#include "media/owned.h"

#include <cstring>
#include <string>

namespace {

/// Null for null caps, something that is no caps object, and caps without a structure ("ANY", "EMPTY").
const GstStructure* firstStructure(const GstCaps* caps)
{
    if (!caps || !GST_IS_CAPS(caps) || gst_caps_get_size(caps) == 0)
        return nullptr;
    return gst_caps_get_structure(caps, 0);
}

bool nameContains(const GstStructure* structure, const char* word)
{
    return std::strstr(gst_structure_get_name(structure), word) != nullptr;
}

/// A field of the structure as text; empty when it is absent or can not be serialised. Ranges and lists
/// serialise to texts that name all their values, which is why the codes look for digits in it.
std::string fieldText(const GstStructure* structure, const char* field)
{
    const GValue* value = gst_structure_get_value(structure, field);
    const Owned<gchar> serialised(value ? gst_value_serialize(value) : nullptr);
    return serialised ? serialised.get() : "";
}

bool contains(const std::string& text, char digit)
{
    return text.find(digit) != std::string::npos;
}

unsigned mpegVideoCode(const GstStructure* structure)
{
    const std::string version = fieldText(structure, "mpegversion");
    if (version.empty())
        return 0;
    return contains(version, '4') ? 3 : 1;
}

unsigned mpegLayerCode(const GstStructure* structure)
{
    const std::string layer = fieldText(structure, "layer");
    if (layer.empty())
        return 0;
    if (contains(layer, '3'))
        return 5;
    return contains(layer, '2') ? 4 : 3;
}

unsigned mpegAudioCode(const GstStructure* structure)
{
    const std::string version = fieldText(structure, "mpegversion");
    if (contains(version, '4'))
        return 1;
    if (contains(version, '1'))
        return mpegLayerCode(structure);
    return contains(version, '2') ? 1 : 0; // MPEG-2 audio means AAC here
}

struct NamedCode
{
    const char* name;
    unsigned code;
};

template <std::size_t count>
unsigned codeByName(const GstStructure* structure, const NamedCode (&table)[count])
{
    for (const NamedCode& row : table) {
        if (nameContains(structure, row.name))
            return row.code;
    }
    return 0;
}

} // namespace

unsigned videoCode(const GstCaps* caps)
{
    static const NamedCode others[] = {
        {"video/x-h265", 15},
        {"video/x-vp9", 14},
        {"video/x-vp8", 10},
        {"video/x-vp6", 8},
        {"video/x-h264", 2},
    };
    const GstStructure* structure = firstStructure(caps);
    if (!structure)
        return 0;
    return nameContains(structure, "video/mpeg") ? mpegVideoCode(structure) : codeByName(structure, others);
}

unsigned audioCode(const GstCaps* caps)
{
    static const NamedCode others[] = {
        {"audio/x-ac3", 2},
        {"audio/x-eac3", 7},
        {"audio/x-ac4", 11},
    };
    const GstStructure* structure = firstStructure(caps);
    if (!structure)
        return 0;
    return nameContains(structure, "audio/mpeg") ? mpegAudioCode(structure) : codeByName(structure, others);
}
