#include "standins.h"

#include "media/mpegts.h"

#include <optional>

namespace {

enum Property { propertyNone, propertyDisplayRatio, propertyPid, propertyPlpId, propertyFrame };

std::string fpgaFile = "/dev/null";
std::optional<std::vector<std::uint8_t>> t2miFrame;

/// The elements keep their few values as data on the object: the base types' own instance layouts are not
/// public.
void setNumber(GObject* object, guint, const GValue* value, GParamSpec* spec)
{
    g_object_set_data(object, spec->name, GINT_TO_POINTER(g_value_get_int(value)));
}

void putFrame(GValue* value)
{
    if (!t2miFrame)
        return;
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GValueArray* array = g_value_array_new(static_cast<guint>(t2miFrame->size()));
    for (const std::uint8_t byte : *t2miFrame) {
        GValue item = G_VALUE_INIT;
        g_value_init(&item, G_TYPE_UCHAR);
        g_value_set_uchar(&item, byte);
        g_value_array_append(array, &item);
    }
    G_GNUC_END_IGNORE_DEPRECATIONS
    g_value_take_boxed(value, array);
}

void getValue(GObject* object, guint id, GValue* value, GParamSpec* spec)
{
    if (id == propertyFrame)
        putFrame(value);
    else
        g_value_set_int(value, GPOINTER_TO_INT(g_object_get_data(object, spec->name)));
}

void addNumber(GObjectClass* type, guint id, const char* name)
{
    g_object_class_install_property(
        type, id, g_param_spec_int(name, name, name, G_MININT, G_MAXINT, 0, G_PARAM_READWRITE));
}

void initKmssinkClass(gpointer type, gpointer)
{
    auto* objectClass = static_cast<GObjectClass*>(type);
    objectClass->set_property = setNumber;
    objectClass->get_property = getValue;
    addNumber(objectClass, propertyDisplayRatio, "display-ratio");
}

void initKmssink(GTypeInstance* instance, gpointer)
{
    g_object_set_data(
        G_OBJECT(instance), "display-ratio", GINT_TO_POINTER(7)); // so that setting it to 0 can be seen
}

void initT2miClass(gpointer type, gpointer)
{
    auto* objectClass = static_cast<GObjectClass*>(type);
    objectClass->set_property = setNumber;
    objectClass->get_property = getValue;
    addNumber(objectClass, propertyPid, "pid");
    addNumber(objectClass, propertyPlpId, "plpid");
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    GParamSpec* item = g_param_spec_uchar("byte", "byte", "byte", 0, 255, 0, G_PARAM_READABLE);
    GParamSpec* frame =
        g_param_spec_value_array("frame", "frame", "last T2-MI frame", item, G_PARAM_READABLE);
    G_GNUC_END_IGNORE_DEPRECATIONS
    g_object_class_install_property(objectClass, propertyFrame, frame);
}

void initPciesrc(GTypeInstance* instance, gpointer)
{
    g_object_set(instance, "do-timestamp", TRUE, nullptr);
}

void initPciesink(GTypeInstance* instance, gpointer)
{
    g_object_set(instance, "location", fpgaFile.c_str(), nullptr);
}

void addElement(const char* name, const char* typeName, const char* base, GClassInitFunc initClass,
    GInstanceInitFunc init)
{
    GstElementFactory* found = gst_element_factory_find(base);
    GstPluginFeature* loaded = gst_plugin_feature_load(GST_PLUGIN_FEATURE(found));
    GTypeQuery query;
    g_type_query(gst_element_factory_get_element_type(GST_ELEMENT_FACTORY(loaded)), &query);
    const GType type = g_type_register_static_simple(query.type, typeName, query.class_size, initClass,
        query.instance_size, init, static_cast<GTypeFlags>(0));
    gst_element_register(nullptr, name, GST_RANK_NONE, type);
    gst_object_unref(loaded);
    gst_object_unref(found);
}

} // namespace

namespace standins {

void add()
{
    addElement("kmssink", "StandInKmssink", "fakesink", initKmssinkClass, initKmssink);
    addElement("alsasink", "StandInAlsasink", "fakesink", nullptr, nullptr);
    addElement("pciesrc", "StandInPciesrc", "fakesrc", nullptr, initPciesrc);
    addElement("pciesink", "StandInPciesink", "filesink", nullptr, initPciesink);
    addElement("t2mi", "StandInT2mi", "identity", initT2miClass, nullptr);
    addElement("aiurdemux", "StandInAiurdemux", "identity", nullptr, nullptr);
}

void setFpgaFile(const std::string& path)
{
    fpgaFile = path;
}

void setT2miFrame(const std::vector<std::uint8_t>& frame)
{
    t2miFrame = frame;
}

void forgetT2miFrame()
{
    t2miFrame.reset();
}

} // namespace standins
