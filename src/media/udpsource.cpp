#include "media/udpsource.h"

#include "media/gstimpl.h"
#include "media/sourcebin.h"

#include <QtDebug>

udpsource::udpsource(std::string address, std::string port, T2MI_Config_Struct* config)
{
    qDebug("------------------udpsource constr ------------------");
    udpsrc = makeUdpReceiver(StreamAddress(std::move(address), std::move(port)));
    t2mi = makeT2miExtractor(config, udpsrc);
    bin = makeSourceBin({udpsrc}, t2mi);
    impl = new gstImpl(bin);
}

udpsource::~udpsource()
{
    qDebug("------------------udpsource Destruct ------------------");
    delete impl;
}

int udpsource::GetT2MIFrame(unsigned char* buffer)
{
    return copyT2miFrame(t2mi, buffer);
}
