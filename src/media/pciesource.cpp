#include "media/pciesource.h"

#include "media/gstimpl.h"
#include "media/sourcebin.h"

#include <QtDebug>

pciesource::pciesource()
{
    qDebug("------------------pciesource Construct ------------------");
    pciesrc = gst_element_factory_make("pciesrc", "my_pciesrc");
    g_object_set(pciesrc, "do-timestamp", FALSE, "blocksize", tsBlockBytes, nullptr);
    bin = makeSourceBin({pciesrc});
    impl = new gstImpl(bin);
}

pciesource::~pciesource()
{
    qDebug("------------------pciesource Destruct ------------------");
    delete impl;
}
