#include "media/filesource.h"

#include "media/gstimpl.h"
#include "media/sourcebin.h"

#include <QtDebug>

filesource::filesource(std::string location)
{
    qDebug("------------------filesource constr ------------------");
    filesrc = gst_element_factory_make("filesrc", "filesrc1");
    g_object_set(filesrc, "location", location.c_str(), "blocksize", tsBlockBytes, nullptr);
    bin = makeSourceBin({filesrc});
    impl = new gstImpl(bin);
}

filesource::~filesource()
{
    qDebug("------------------filesource Destruct ------------------");
    delete impl;
}
