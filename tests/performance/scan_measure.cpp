// The daemon's own scan, as its handlers start it: scan-measure file PATH PROGRAMS, scan-measure udp ADDRESS
// PORT PROGRAMS. What a scan has found shows in what it prints.
#include "kit/gstreamer.h"
#include "media/filesource.h"
#include "media/udpsource.h"
#include "sectionclock.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <QCoreApplication>
#include <string>
#include <unistd.h>

namespace {

constexpr int longestMs = 60000;

SectionClock sections;

void keepQuiet(QtMsgType, const QMessageLogContext&, const QString&) { }

void hear(const gchar* text)
{
    unsigned program = 0;
    if (std::sscanf(text, "new PMT received program_number :%u", &program) == 1)
        sections.pmt(program);
    else if (std::strncmp(text, "new PAT", 7) == 0)
        sections.pat();
    else if (std::strncmp(text, "new SDT", 7) == 0)
        sections.sdt();
    else if (std::strncmp(text, "EOS", 3) == 0)
        sections.endOfStream();
}

/// Plug-ins are loaded, as they are in a daemon that has scanned before.
void loadPlugins()
{
    for (const char* name : {"filesrc", "udpsrc", "queue", "tee", "tsparse", "fakesink"}) {
        if (GstElement* element = gst_element_factory_make(name, nullptr))
            gst_object_unref(gst_object_ref_sink(element));
    }
}

} // namespace

int main(int argc, char** argv)
{
    const bool file = argc == 4 && std::strcmp(argv[1], "file") == 0;
    const bool udp = argc == 5 && std::strcmp(argv[1], "udp") == 0;
    if (!file && !udp) {
        std::fputs("usage: scan-measure file PATH PROGRAMS | udp ADDRESS PORT PROGRAMS\n", stderr);
        return 2;
    }
    QCoreApplication application(argc, argv);
    qInstallMessageHandler(keepQuiet);
    tessary::test::startGStreamer();
    g_set_print_handler(hear);
    loadPlugins();
    sections.begin(static_cast<unsigned>(std::atoi(argv[argc - 1])));
    std::unique_ptr<gstsource> source;
    if (file)
        source = std::make_unique<filesource>(argv[2]);
    else
        source = std::make_unique<udpsource>(argv[2], argv[3], nullptr);
    source->scanStream();
    for (int i = 0; i < longestMs && !(file ? sections.ended() : sections.complete()); ++i)
        usleep(1000);
    sections.print();
    std::fflush(stdout);
    _exit(sections.complete() ? 0 : 1); // taking the source down is not what is measured
}
