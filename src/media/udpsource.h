#pragma once

#include "media/gstsource.h"

/// A transport stream in UDP datagrams as source, optionally the one inside T2-MI.
class udpsource : public gstsource
{
public:
    /// `config` is read during construction only; null leaves T2-MI out. Throws std::invalid_argument or
    /// std::out_of_range when address or port does not begin with a number.
    udpsource(std::string address, std::string port, T2MI_Config_Struct* config);
    ~udpsource() override;

    /// Copies the last T2-MI frame to `buffer`, which must have room for a whole one; returns its size in
    /// bytes, or 0.
    int GetT2MIFrame(unsigned char* buffer);

private:
    GstElement* udpsrc = nullptr; ///< borrowed from the bin
    GstElement* t2mi = nullptr; ///< borrowed from the bin; null without T2-MI
    GstElement* bin = nullptr; ///< borrowed from the pipeline
};
