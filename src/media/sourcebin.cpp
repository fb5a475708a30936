#include "media/sourcebin.h"

#include "media/owned.h"
#include "system/mydata.h"
#include "system/text.h"

#include <vector>

namespace {

constexpr int receiveBufferBytes = 30000000;
constexpr int lastUnicastField = 223;

} // namespace

GstElement* makeSourceBin(std::initializer_list<GstElement*> chain, GstElement* extractor)
{
    std::vector<GstElement*> elements(chain);
    if (extractor)
        elements.push_back(extractor);
    GstElement* bin = gst_bin_new("my_bin");
    for (GstElement* element : elements)
        gst_bin_add(GST_BIN(bin), element);
    for (std::size_t i = 1; i < elements.size(); ++i)
        gst_element_link(elements[i - 1], elements[i]);
    const Owned<GstPad> pad(gst_element_get_static_pad(elements.back(), "src"));
    if (!pad)
        return bin; // its last element is missing: a bin without output
    GstPad* ghost = gst_ghost_pad_new("src", pad.get());
    gst_pad_set_active(ghost, TRUE);
    gst_element_add_pad(bin, ghost);
    return bin;
}

StreamAddress::StreamAddress(std::string address, std::string portText)
    : text(withoutLineEnds(std::move(address)))
    , multicast(std::stoi(text) > lastUnicastField)
    , port(std::stoi(withoutLineEnds(std::move(portText))))
{
}

GstElement* makeUdpReceiver(const StreamAddress& address)
{
    GstElement* udpsrc = gst_element_factory_make("udpsrc", "udpsrc1");
    if (address.multicast) // a unicast stream is received on any local address
        g_object_set(udpsrc, "address", address.text.c_str(), nullptr);
    g_object_set(udpsrc, "port", address.port, "buffer-size", receiveBufferBytes, "do-timestamp", FALSE,
        "multicast-iface", wiredInterfaceName(data.vlan, data.vlanId).c_str(), nullptr);
    return udpsrc;
}

GstElement* makeT2miExtractor(const T2MI_Config_Struct* config, GstElement* receiver)
{
    if (!config)
        return nullptr;
    g_object_set(receiver, "do-timestamp", TRUE, nullptr);
    GstElement* t2mi = gst_element_factory_make("t2mi", "t2mi");
    g_object_set(t2mi, "pid", config->pid, "plpid", config->plpid, nullptr);
    return t2mi;
}

int copyT2miFrame(GstElement* t2mi, unsigned char* buffer)
{
    if (!t2mi || !buffer)
        return 0;
    int size = 0;
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS // the platform's property is a GValueArray, which GLib only calls old
        const GParamSpec* property = g_object_class_find_property(G_OBJECT_GET_CLASS(t2mi), "frame");
    if (!property || !g_type_is_a(property->value_type, g_value_array_get_type()))
        return 0;
    GValue value = G_VALUE_INIT;
    g_value_init(&value, property->value_type);
    g_object_get_property(G_OBJECT(t2mi), "frame", &value);
    if (const auto* frame = static_cast<const GValueArray*>(g_value_get_boxed(&value))) {
        size = static_cast<int>(frame->n_values);
        for (guint i = 0; i < frame->n_values; ++i)
            buffer[i] = g_value_get_uchar(&frame->values[i]);
    }
    g_value_unset(&value);
    G_GNUC_END_IGNORE_DEPRECATIONS
    return size;
}
