#include "display.h"
#include "pciesink.h"
#include "pciesrc.h"
#include "t2mi.h"
#include "vpudec.h"

#include <gst/gst.h>

static gboolean registerElements(GstPlugin* plugin)
{
    // Above every software decoder: the module's decoder is the one that autoplugging takes.
    constexpr guint decoderRank = GST_RANK_PRIMARY + 64;
    return gst_element_register(plugin, "pciesrc", GST_RANK_NONE, INSTRUMENT_TYPE_PCIE_SRC) != FALSE
        && gst_element_register(plugin, "pciesink", GST_RANK_NONE, INSTRUMENT_TYPE_PCIE_SINK) != FALSE
        && registerDisplay(plugin)
        && gst_element_register(plugin, "t2mi", GST_RANK_NONE, INSTRUMENT_TYPE_T2MI) != FALSE
        && gst_element_register(plugin, "vpudec", decoderRank, INSTRUMENT_TYPE_VPU_DEC) != FALSE;
}

#define PACKAGE "tessary"
GST_PLUGIN_DEFINE(GST_VERSION_MAJOR, GST_VERSION_MINOR, INSTRUMENT_PLUGIN_NAME,
    "Elements of the broadcast measuring instrument", registerElements, INSTRUMENT_VERSION, "Proprietary",
    "Tessary", "urn:tessary")
