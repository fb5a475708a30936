#pragma once

#include "media/gstsource.h"

/// A transport stream in RTP (RFC 2250) as source, optionally the one inside T2-MI.
class rtpsource : public gstsource
{
public:
    /// As udpsource.
    rtpsource(std::string address, std::string port, T2MI_Config_Struct* config);
    ~rtpsource() override;

    /// As udpsource.
    int GetT2MIFrame(unsigned char* buffer);

private:
    GstElement* udpsrc = nullptr; ///< borrowed from the bin
    GstElement* rtpdepay = nullptr; ///< borrowed from the bin
    GstElement* t2mi = nullptr; ///< borrowed from the bin; null without T2-MI
    GstElement* bin = nullptr; ///< borrowed from the pipeline
};
