#pragma once

#include <gst/gst.h>

G_BEGIN_DECLS

/// "t2mi": takes the transport stream of one PLP out of T2-MI (ETSI TS 102 773). Pads "sink" and "src".
/// Properties: "pid" and "plpid" (int, settable at any time), "frame" (read-only value array of unsigned
/// chars: the newest whole T2-MI packet from header to CRC, empty before the first one; the reader owns the
/// array it gets).
#define INSTRUMENT_TYPE_T2MI (instrument_t2mi_get_type())
G_DECLARE_FINAL_TYPE(InstrumentT2Mi, instrument_t2mi, INSTRUMENT, T2MI, GstElement)

G_END_DECLS
