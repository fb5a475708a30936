#pragma once

#include <gst/base/gstbasesink.h>
#include <gst/gst.h>

G_BEGIN_DECLS

/// "pciesink": writes the stream meant for the FPGA to a file, buffer by buffer, as it comes ("sync" is off).
/// Property: "location" (path; emptied at each start).
#define INSTRUMENT_TYPE_PCIE_SINK (instrument_pcie_sink_get_type())
G_DECLARE_FINAL_TYPE(InstrumentPcieSink, instrument_pcie_sink, INSTRUMENT, PCIE_SINK, GstBaseSink)

G_END_DECLS
