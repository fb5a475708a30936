/* Has GStreamer examine its plug-ins and write its registry; ends with status 0 when the platform's elements
   are among them. The virtual instrument runs it where the daemon runs under an emulator: it is for the
   daemon's architecture. */
#include <gst/gst.h>
#include <stdio.h>

int main(int argc, char** argv)
{
    gst_init(&argc, &argv);
    GstElementFactory* factory = gst_element_factory_find("pciesrc");
    if (factory == NULL) {
        fputs("the platform elements were not loaded\n", stderr);
        return 1;
    }
    gst_object_unref(factory);
    return 0;
}
