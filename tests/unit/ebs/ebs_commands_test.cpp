// The framed commands of the EBS functions, byte for byte, on sources whose tables the test fills.
#include "commands/uart_command.h"
#include "kit/handlertest.h"
#include "measure/ethernetmeasurement.h"
#include "media/gstimpl.h"
#include "media/gstsource.h"
#include "media/pciesource.h"
#include "mediatest.h"
#include "support/privatemachine.h"
#include "system/mydata.h"

namespace {

/// A source without stream: the test hands its pipeline the sections that a scan would find.
class TableSource : public gstsource
{
public:
    explicit TableSource(bool* deleted = nullptr)
        : m_deleted(deleted)
    {
        impl = new gstImpl(idleSource());
    }
    ~TableSource() override
    {
        delete impl;
        if (m_deleted)
            *m_deleted = true;
    }

    /// Program numbers 100, 101, ... on the PIDs 256, 257, ...
    void receivePat(unsigned programs)
    {
        GPtrArray* entries = gst_mpegts_pat_new();
        for (unsigned i = 0; i < programs; ++i) {
            GstMpegtsPatProgram* program = gst_mpegts_pat_program_new();
            program->program_number = static_cast<guint16>(100 + i);
            program->network_or_program_map_PID = static_cast<guint16>(256 + i);
            g_ptr_array_add(entries, program);
        }
        impl->newPatSectionReceived(packetized(gst_mpegts_section_from_pat(entries, 1)));
    }

    /// Services 100, 101, ... of this transport stream.
    void receiveSdt(unsigned services)
    {
        GstMpegtsSDT* sdt = gst_mpegts_sdt_new();
        sdt->actual_ts = TRUE;
        sdt->transport_stream_id = 1;
        for (unsigned i = 0; i < services; ++i) {
            GstMpegtsSDTService* service = gst_mpegts_sdt_service_new();
            service->service_id = static_cast<guint16>(100 + i);
            g_ptr_array_add(sdt->services, service);
        }
        impl->newSdtSectionReceived(packetized(gst_mpegts_section_from_sdt(sdt)));
    }

private:
    static GstMpegtsSection* packetized(GstMpegtsSection* section)
    {
        gsize size = 0;
        gst_mpegts_section_packetize(section, &size);
        return section;
    }

    bool* m_deleted;
};

class EbsCommands : public HandlerTest
{
protected:
    void prepare() override
    {
        ASSERT_EQ(privatemachine::coverWithEmpty("/home"), "");
        log.forget();
    }

    RecordedPrograms programs;
    LogCapture log;
};

/// A source that plays, with its decoder in the test's hand.
class EbsInfo : public EbsCommands
{
protected:
    void prepare() override
    {
        EbsCommands::prepare();
        instance = new TableSource;
        instance->play(1);
        m_decoder = gst_bin_get_by_name(GST_BIN(m_watch.pipeline()), "decodebin1");
        log.forget();
    }

    void TearDown() override
    {
        if (m_decoder)
            gst_object_unref(m_decoder);
        EbsCommands::TearDown();
    }

    /// An elementary stream that the decoder finds.
    void find(const char* capsText)
    {
        GstPad* pad = GST_PAD(gst_object_ref_sink(gst_pad_new(nullptr, GST_PAD_SRC)));
        EXPECT_TRUE(announceStream(m_decoder, pad, capsText));
        gst_object_unref(pad);
    }

    /// A stream that the decoder has decoded.
    void decode(const char* capsText)
    {
        GstCaps* caps = gst_caps_from_string(capsText);
        exposeStream(m_decoder, "src_0", caps);
        gst_caps_unref(caps);
    }

private:
    PipelineWatch m_watch;
    GstElement* m_decoder = nullptr;
};

const std::string emptyInfo = "*32_e.DI:0000_0000_0000_0000_0000_0000_0000_0000_$";

} // namespace

TEST_F(EbsCommands, StatusBeforeAnyScanIsTheZeroFrame)
{
    Uart_StatusEBS();
    EXPECT_EQ(reply(), "*17_a.FL:02_NS:00$_DS:00");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"STAtusEBS\n", "*17_a.FL:02_NS:00$_DS:00"}));
}

TEST_F(EbsCommands, StatusWithoutAnSdtIsTheZeroFrameEvenWhenProgramsWereFound)
{
    auto* source = new TableSource;
    instance = source;
    source->receivePat(3);
    data.ebsServiceIndex = 2;
    Uart_StatusEBS();
    EXPECT_EQ(reply(), "*17_a.FL:02_NS:00$_DS:00");
}

TEST_F(EbsCommands, StatusCountsTheProgramsAndEchoesTheServiceIndex)
{
    auto* source = new TableSource;
    instance = source;
    source->receivePat(12);
    source->receiveSdt(12);
    Uart_PlayEBS("0C");
    EXPECT_EQ(reply(), "*0C_d.SX");
    EXPECT_EQ(data.programNumber, 111u); // the twelfth program
    Uart_StatusEBS();
    EXPECT_EQ(reply(), "*17_a.FL:02_NS:0c$_DS:0c");
    EXPECT_TRUE(log.contains("PLayPCIE n°0C\n"));
}

TEST_F(EbsCommands, PlayZeroPlaysTheFirstProgramAndIsEchoedAsZero)
{
    auto* source = new TableSource;
    instance = source;
    source->receivePat(2);
    source->receiveSdt(2);
    Uart_PlayEBS("01");
    EXPECT_EQ(data.programNumber, 100u);
    EXPECT_EQ(data.ebsServiceIndex, 1u);
    Uart_PlayEBS("00");
    EXPECT_EQ(data.programNumber, 100u);
    EXPECT_EQ(data.ebsServiceIndex, 0u);
    EXPECT_EQ(reply(), "*0C_d.SX*0C_d.SX");
    Uart_StatusEBS();
    EXPECT_EQ(reply(), "*17_a.FL:02_NS:02$_DS:00");
}

TEST_F(EbsCommands, PlayBeyondTheLastServiceSelectsProgramZero)
{
    auto* source = new TableSource;
    instance = source;
    source->receivePat(2);
    source->receiveSdt(2);
    Uart_PlayEBS("FF");
    EXPECT_EQ(data.programNumber, 0u);
    EXPECT_EQ(data.ebsServiceIndex, 255u);
}

TEST_F(EbsCommands, PlayOfNoNumberOrANegativeOneEndsNothing)
{
    auto* source = new TableSource;
    instance = source;
    source->receivePat(2);
    source->receiveSdt(2);
    for (const char* index : {"", "zz", "\n"}) {
        Uart_PlayEBS(index);
        EXPECT_EQ(data.ebsServiceIndex, 0u);
        EXPECT_EQ(data.programNumber, 100u);
    }
    Uart_PlayEBS("-1");
    EXPECT_EQ(data.programNumber, 0u);
    reply();
    Uart_StatusEBS();
    EXPECT_EQ(reply(),
        "*17_a.FL:02_NS:02$_DS:ffffffff"); // more digits than the frame has room for, and all of them
}

TEST_F(EbsCommands, PlayWithoutSourceTakesTheFpgaStream)
{
    Uart_PlayEBS("01");
    EXPECT_EQ(reply(), "*0C_d.SX");
    EXPECT_NE(dynamic_cast<pciesource*>(instance), nullptr);
}

TEST_F(EbsCommands, PlayKeepsASourceOfAnyKind)
{
    instance = new TableSource;
    gstsource* before = instance;
    Uart_PlayEBS("01");
    EXPECT_EQ(instance, before);
}

TEST_F(EbsCommands, ScanReplacesAnySourceByTheFpgaStreamAndIsSilent)
{
    bool deleted = false;
    instance = new TableSource(&deleted);
    Uart_ScancurEBS();
    EXPECT_TRUE(deleted);
    EXPECT_NE(dynamic_cast<pciesource*>(instance), nullptr);
    EXPECT_EQ(reply(), "");
    EXPECT_TRUE(log.contains("SCANcurPCIE\n"));
}

TEST_F(EbsCommands, ServiceNameIsMadeOfTheHexadecimalIndex)
{
    Uart_ServiceNameEBS("0A");
    EXPECT_EQ(reply(), "Service10");
    Uart_ServiceNameEBS("1F");
    EXPECT_EQ(reply(), "Service31");
    Uart_ServiceNameEBS("ff");
    EXPECT_EQ(reply(), "Service255");
    Uart_ServiceNameEBS("");
    EXPECT_EQ(reply(), "Service0");
    Uart_ServiceNameEBS("G1");
    EXPECT_EQ(reply(), "Service0");
    EXPECT_TRUE(log.contains("ServiceNameEBS\n"));
}

TEST_F(EbsCommands, InfoWithoutSourceIsTheZeroFrame)
{
    Uart_InfoEBS();
    EXPECT_EQ(reply(), emptyInfo);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"INFoEBS\n", emptyInfo}));
}

TEST_F(EbsCommands, InfoOfASourceThatDecodesNothingIsTheZeroFrame)
{
    instance = new TableSource; // its width and height are -1
    log.forget();
    Uart_InfoEBS();
    EXPECT_EQ(reply(), emptyInfo);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"INFoEBS\n", emptyInfo})); // and no caps
}

TEST_F(EbsInfo, NamesCodecsAndSizeAndLogsThePicturesStreamFirst)
{
    find("video/x-h264, width=(int)1440");
    find("audio/mpeg, mpegversion=(int)1, layer=(int)2");
    decode("video/x-raw, width=(int)1440, height=(int)1080");
    Uart_InfoEBS();
    const std::string frame = "*32_e.DI:0002_05a0_0438_0000_0004_0000_0000_0000_$";
    EXPECT_EQ(reply(), frame);
    EXPECT_EQ(log.lines(),
        (std::vector<std::string>{"INFoEBS\n", "video/x-h264, width=(int)1440",
            "audio/mpeg, mpegversion=(int)1, layer=(int)2", frame}));
}

TEST_F(EbsInfo, ASizeBeyondTheFramesFourDigitsIsTheLargestOrZero)
{
    decode("video/x-raw, width=(int)65536, height=(int)-1080");
    Uart_InfoEBS();
    EXPECT_EQ(reply(), "*32_e.DI:0000_ffff_0000_0000_0000_0000_0000_0000_$");
}

TEST_F(EbsCommands, AudioLevelIsAcknowledgedOnly)
{
    Uart_AudioLevelEBS();
    EXPECT_EQ(reply(), "*07_o.$");
    EXPECT_EQ(log.lines(), std::vector<std::string>{"AudioLevelEBS\n"});
    EXPECT_TRUE(programs.calls().empty());
}

TEST_F(EbsCommands, VersionIsTheTextLineOfTheOtherVersionCommand)
{
    Uart_VersionEBS();
    EXPECT_EQ(reply(), "SV: mx8 " TESSARY_VERSION " FPGA: bitfile not found\n");
    EXPECT_TRUE(log.contains("VERsionEBS\n"));
}
