#pragma once

#include "media/gstsource.h"

/// The stream of the instrument's FPGA front end over PCIe as source.
class pciesource : public gstsource
{
public:
    pciesource();
    ~pciesource() override;

private:
    GstElement* pciesrc; ///< borrowed from the bin
    GstElement* bin; ///< borrowed from the pipeline
};
