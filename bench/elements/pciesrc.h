#pragma once

#include <gst/base/gstpushsrc.h>
#include <gst/gst.h>

G_BEGIN_DECLS

/// "pciesrc": live source that plays a file or a FIFO as the FPGA's transport stream. Properties: "location"
/// (path; while nothing is there the source waits, as without signal), "loop" (start a regular file again at
/// its end), "bitrate" (bit/s of a regular file; 0: what its program clock references tell), and the base
/// class's "blocksize" (bytes of a buffer) and "do-timestamp". A FIFO is delivered as its bytes come; it has
/// no end. Buffers carry their time of arrival in any case.
#define INSTRUMENT_TYPE_PCIE_SRC (instrument_pcie_src_get_type())
G_DECLARE_FINAL_TYPE(InstrumentPcieSrc, instrument_pcie_src, INSTRUMENT, PCIE_SRC, GstPushSrc)

G_END_DECLS
