#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

/// "vpudec": the module's video decoder. Unlike software decoders it takes H.264 and H.265 byte streams in
/// any cut, as a demultiplexer gives them: parser and decoder sit inside, chosen by the caps. Pads "sink" and
/// "src".
#define INSTRUMENT_TYPE_VPU_DEC (instrument_vpu_dec_get_type())
G_DECLARE_FINAL_TYPE(InstrumentVpuDec, instrument_vpu_dec, INSTRUMENT, VPU_DEC, GstBin)

G_END_DECLS
