#include "app/startup.h"

#include "commands/reply.h"
#include "link/serialport.h"
#include "measure/ethernetmeasurement.h"
#include "media/mpegts.h"
#include "system/mydata.h"
#include "system/network.h"
#include "system/shell.h"
#include "system/system_config.h"

#include <unistd.h>

namespace {

void setDefaults()
{
    data.serverAddress = "239.0.0.1";
    data.serverPort = "1234";
    data.dhcp = true;
    data.vlan = false;
    data.serverProtocol = protocolUdp;
    data.programNumber = 0;
    data.vlanId = "100";
}

/// Keeps the enumeration classes for the life of the process: the bus-message code finds their value names by
/// them.
void keepMpegTsEnumerations()
{
    const GType types[] = {
        GST_TYPE_MPEGTS_SECTION_TYPE,
        GST_TYPE_MPEGTS_SECTION_TABLE_ID,
        GST_TYPE_MPEGTS_RUNNING_STATUS,
        GST_TYPE_MPEGTS_DESCRIPTOR_TYPE,
        GST_TYPE_MPEGTS_DVB_DESCRIPTOR_TYPE,
        GST_TYPE_MPEGTS_ATSC_DESCRIPTOR_TYPE,
        GST_TYPE_MPEGTS_ISDB_DESCRIPTOR_TYPE,
        GST_TYPE_MPEGTS_MISC_DESCRIPTOR_TYPE,
        GST_TYPE_MPEGTS_ISO639_AUDIO_TYPE,
        GST_TYPE_MPEGTS_DVB_SERVICE_TYPE,
        GST_TYPE_MPEGTS_DVB_TELETEXT_TYPE,
        GST_TYPE_MPEGTS_STREAM_TYPE,
        GST_TYPE_MPEGTS_SECTION_DVB_TABLE_ID,
        GST_TYPE_MPEGTS_SECTION_ATSC_TABLE_ID,
        GST_TYPE_MPEGTS_SECTION_SCTE_TABLE_ID,
        GST_TYPE_MPEGTS_MODULATION_TYPE,
        GST_TYPE_MPEGTS_DVB_CODE_RATE,
        GST_TYPE_MPEGTS_CABLE_OUTER_FEC_SCHEME,
        GST_TYPE_MPEGTS_TERRESTRIAL_TRANSMISSION_MODE,
        GST_TYPE_MPEGTS_TERRESTRIAL_GUARD_INTERVAL,
        GST_TYPE_MPEGTS_TERRESTRIAL_HIERARCHY,
        GST_TYPE_MPEGTS_DVB_LINKAGE_TYPE,
        GST_TYPE_MPEGTS_DVB_LINKAGE_HAND_OVER_TYPE,
        GST_TYPE_MPEGTS_COMPONENT_STREAM_CONTENT,
        GST_TYPE_MPEGTS_CONTENT_NIBBLE_HI,
    };
    for (const GType type : types)
        g_type_class_ref(type);
}

} // namespace

void prepareInstrument()
{
    systconf.UpdateBootPartition();
    runShell("nmcli networking on");
    setDefaults();
    net.SetDHCP(data.vlan, data.vlanId);
    uart.SerialPortConnect();
    reply("HELLO !\r\n"); // the controller may send commands from now on
    systconf.SetAlsaVolume();
    ethMes = new ETHERNETMeasurement; // lives for the whole process
    gst_init(nullptr, nullptr);
    gst_mpegts_initialize();
    keepMpegTsEnumerations();
    const bool configured = systconf.programFpga();
    usleep(5000);
    if (configured)
        systconf.pcieRescan();
}
