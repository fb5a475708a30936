#include "support/gstreamer.h"

#include "kit/gstreamer.h"
#include "standins.h"

#include <cstdio>
#include <cstdlib>
#include <QCoreApplication>
#include <string>

namespace {

/// Misuse of a library is a finding. (GLib's own way to end is a signal that the fuzzer does not report.)
void endOnMisuse(const gchar* domain, GLogLevelFlags level, const gchar* text, gpointer)
{
    if ((level & (G_LOG_LEVEL_ERROR | G_LOG_LEVEL_CRITICAL)) == 0)
        return;
    std::fprintf(stderr, "ERROR: %s: %s\n", domain, text);
    std::abort();
}

} // namespace

void prepareGStreamer(int& argumentCount, char** arguments)
{
    new QCoreApplication(argumentCount, arguments); // ends with the process
    setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
    setenv("GST_PLUGIN_PATH_1_0", "", 1);
    setenv("GST_REGISTRY", "/tmp/gstreamer-registry.bin", 1);
    gst_registry_fork_set_enabled(FALSE);
}

void loadElements()
{
    tessary::test::startGStreamer();
    for (const char* name :
        {"coreelements", "typefindfunctions", "udp", "rtp", "mpegtsdemux", "playback", "audioconvert"}) {
        const std::string file = std::string(GST_PLUGINS) + "/libgst" + name + ".so";
        GError* error = nullptr;
        GstPlugin* plugin = gst_plugin_load_file(file.c_str(), &error);
        if (plugin == nullptr) {
            std::fprintf(
                stderr, "%s: %s; install the packages of script/packages\n", file.c_str(), error->message);
            std::_Exit(2);
        }
        gst_object_unref(plugin);
    }
    standins::add();
    g_log_set_default_handler(endOnMisuse, nullptr);
    g_set_print_handler([](const gchar*) {});
}
