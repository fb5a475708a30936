#include "media/rtpsource.h"

#include "media/gstimpl.h"
#include "media/owned.h"
#include "media/sourcebin.h"

#include <QtDebug>

rtpsource::rtpsource(std::string address, std::string port, T2MI_Config_Struct* config)
{
    qDebug("------------------rtpsource constr ------------------");
    udpsrc = makeUdpReceiver(StreamAddress(std::move(address), std::move(port)));
    const Owned<GstCaps> caps(gst_caps_new_simple("application/x-rtp", "media", G_TYPE_STRING, "video",
        "clock-rate", G_TYPE_INT, 90000, "encoding-name", G_TYPE_STRING, "MP2T-ES", nullptr));
    g_object_set(udpsrc, "caps", caps.get(), nullptr);
    rtpdepay = gst_element_factory_make("rtpmp2tdepay", "rtpmp2tdepay1");
    t2mi = makeT2miExtractor(config, udpsrc);
    bin = makeSourceBin({udpsrc, rtpdepay}, t2mi);
    impl = new gstImpl(bin);
}

rtpsource::~rtpsource()
{
    qDebug("------------------rtpsource Destruct ------------------");
    delete impl;
}

int rtpsource::GetT2MIFrame(unsigned char* buffer)
{
    return copyT2miFrame(t2mi, buffer);
}
