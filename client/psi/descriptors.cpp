#include "client/psi/descriptors.h"

#include "client/psi/servicetext.h"

#define GST_USE_UNSTABLE_API // the MPEG-TS library is marked so, but has kept its interface since 1.4
#include <cstring>
#include <gst/mpegts/mpegts.h>

namespace tessary::client {

namespace {

/// service_type as the stream carries it: all 256 values, of which the library's enumeration names some.
std::uint8_t octetOf(const GstMpegtsDVBServiceType& type)
{
    unsigned value = 0;
    static_assert(sizeof value == sizeof type);
    std::memcpy(&value, &type, sizeof value);
    return static_cast<std::uint8_t>(value);
}

const GstMpegtsDescriptor* find(GPtrArray* list, guint8 tag)
{
    return list != nullptr ? gst_mpegts_find_descriptor(list, tag) : nullptr;
}

constexpr std::size_t descriptorHeader = 2; // descriptor_tag and descriptor_length

} // namespace

std::vector<Descriptor> copyDescriptors(const GPtrArray* list)
{
    std::vector<Descriptor> copies;
    for (guint i = 0; list != nullptr && i < list->len; ++i) {
        const auto* descriptor = static_cast<const GstMpegtsDescriptor*>(g_ptr_array_index(list, i));
        const guint8* payload = descriptor->data + descriptorHeader;
        copies.push_back({descriptor->tag, Bytes(payload, payload + descriptor->length)});
    }
    return copies;
}

std::string networkName(GPtrArray* list, std::uint16_t networkId)
{
    const GstMpegtsDescriptor* descriptor = find(list, GST_MTS_DESC_DVB_NETWORK_NAME);
    if (descriptor == nullptr)
        return {};
    return servicesText(descriptor->data + descriptorHeader, descriptor->length, networkId);
}

std::vector<NetworkInformation::ListedService> listedServices(GPtrArray* list)
{
    std::vector<NetworkInformation::ListedService> services;
    GPtrArray* items = nullptr;
    const GstMpegtsDescriptor* descriptor = find(list, GST_MTS_DESC_DVB_SERVICE_LIST);
    if (descriptor == nullptr || !gst_mpegts_descriptor_parse_dvb_service_list(descriptor, &items))
        return services;
    for (guint i = 0; i < items->len; ++i) {
        const auto* item = static_cast<const GstMpegtsDVBServiceListItem*>(g_ptr_array_index(items, i));
        services.push_back({item->service_id, octetOf(item->type)});
    }
    g_ptr_array_unref(items);
    return services;
}

void readServiceDescriptor(
    GPtrArray* list, std::uint16_t originalNetworkId, ServiceDescription::Service& service)
{
    const GstMpegtsDescriptor* descriptor = find(list, GST_MTS_DESC_DVB_SERVICE);
    if (descriptor == nullptr)
        return;
    // ETSI EN 300 468, 6.2.33: service_type, and two texts with their lengths in front, which have to end
    // inside.
    const guint8* data = descriptor->data + descriptorHeader;
    const std::size_t end = descriptor->length;
    constexpr std::size_t provider = 1;
    if (provider >= end)
        return;
    const std::size_t name = provider + 1 + data[provider];
    if (name >= end || name + 1 + data[name] > end)
        return;
    service.type = data[0];
    service.provider = servicesText(data + provider + 1, data[provider], originalNetworkId);
    service.name = servicesText(data + name + 1, data[name], originalNetworkId);
}

} // namespace tessary::client
