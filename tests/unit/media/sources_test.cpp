// The four stream sources: elements, properties, ghost pad, forwarding.
#include "sourcetest.h"

#include "kit/gstreamer.h"
#include "kit/sections.h"
#include "media/filesource.h"
#include "media/pciesource.h"
#include "media/rtpsource.h"
#include "media/udpsource.h"
#include "system/mydata.h"

#include <functional>
#include <stdexcept>

namespace {

using namespace tessary::test;

using Names = std::vector<std::string>;

/// GStreamer knows no element of this name while the object lives.
class WithoutElement
{
public:
    explicit WithoutElement(const char* name)
        : m_feature(gst_registry_lookup_feature(gst_registry_get(), name))
    {
        EXPECT_NE(m_feature, nullptr) << name;
        gst_registry_remove_feature(gst_registry_get(), m_feature);
    }
    ~WithoutElement() { gst_registry_add_feature(gst_registry_get(), m_feature); }
    WithoutElement(const WithoutElement&) = delete;
    WithoutElement& operator=(const WithoutElement&) = delete;

private:
    GstPluginFeature* m_feature; ///< the look-up's reference, which the registry takes over again
};

class Sources : public SourceTest
{
protected:
    ~Sources() override
    {
        data.vlan = false;
        data.vlanId.clear();
    }

    std::string receiver(const char* property) const { return propertyText(element("udpsrc1"), property); }
};

TEST_F(Sources, AFileIsReadInBlocksOfOneHundredPackets)
{
    ScratchFolder folder;
    hold(new filesource(folder.file("record.ts")));
    EXPECT_EQ(factoryName(element("filesrc1")), "filesrc");
    EXPECT_EQ(propertyText(element("filesrc1"), "location"), folder.file("record.ts"));
    EXPECT_EQ(propertyText(element("filesrc1"), "blocksize"), "18800");
    EXPECT_EQ(childrenOfBin(), Names{"filesrc1"});
    EXPECT_EQ(ghostPadOwner(), "filesrc1");
}

TEST_F(Sources, TheFpgaIsReadInBlocksWithoutTimestamps)
{
    hold(new pciesource);
    EXPECT_EQ(factoryName(element("my_pciesrc")), "pciesrc");
    EXPECT_EQ(propertyText(element("my_pciesrc"), "do-timestamp"), "false");
    EXPECT_EQ(propertyText(element("my_pciesrc"), "blocksize"), "18800");
    EXPECT_EQ(childrenOfBin(), Names{"my_pciesrc"});
    EXPECT_EQ(ghostPadOwner(), "my_pciesrc");
}

TEST_F(Sources, UdpReceiverIsSetUpForTheWiredInterface)
{
    hold(new udpsource("239.1.2.3", "5004", nullptr));
    EXPECT_EQ(factoryName(element("udpsrc1")), "udpsrc");
    EXPECT_EQ(receiver("address"), "239.1.2.3");
    EXPECT_EQ(receiver("port"), "5004");
    EXPECT_EQ(receiver("buffer-size"), "30000000");
    EXPECT_EQ(receiver("multicast-iface"), "eth0");
    EXPECT_EQ(receiver("do-timestamp"), "false");
    EXPECT_EQ(childrenOfBin(), Names{"udpsrc1"});
    EXPECT_EQ(ghostPadOwner(), "udpsrc1");
}

TEST_F(Sources, RtpReceiverIsFollowedByTheDepayloader)
{
    hold(new rtpsource("239.1.2.3", "5004", nullptr));
    EXPECT_EQ(receiver("address"), "239.1.2.3");
    EXPECT_EQ(receiver("port"), "5004");
    EXPECT_EQ(receiver("buffer-size"), "30000000");
    EXPECT_EQ(receiver("multicast-iface"), "eth0");
    EXPECT_EQ(receiver("do-timestamp"), "false");
    GstCaps* caps = nullptr;
    g_object_get(element("udpsrc1"), "caps", &caps, nullptr);
    GstCaps* expected = gst_caps_from_string(
        "application/x-rtp, media=(string)video, clock-rate=(int)90000, encoding-name=(string)MP2T-ES");
    EXPECT_TRUE(gst_caps_is_strictly_equal(caps, expected));
    gst_caps_unref(expected);
    gst_caps_unref(caps);
    EXPECT_EQ(factoryName(element("rtpmp2tdepay1")), "rtpmp2tdepay");
    EXPECT_EQ(childrenOfBin(), (Names{"rtpmp2tdepay1", "udpsrc1"}));
    EXPECT_EQ(next("udpsrc1"), "rtpmp2tdepay1");
    EXPECT_EQ(ghostPadOwner(), "rtpmp2tdepay1");
}

TEST_F(Sources, OnlyAMulticastGroupSetsTheAddress)
{
    const struct
    {
        const char* address;
        const char* set;
    } cases[] = {{"224.0.0.1", "224.0.0.1"}, {"239.255.255.255", "239.255.255.255"},
        {"223.255.255.255", "0.0.0.0"}, {"192.168.1.10", "0.0.0.0"}, {"0.0.0.0", "0.0.0.0"}};
    for (const auto& one : cases) {
        hold(new udpsource(one.address, "1234", nullptr));
        EXPECT_EQ(receiver("address"), one.set) << "UDP " << one.address;
        hold(new rtpsource(one.address, "1234", nullptr));
        EXPECT_EQ(receiver("address"), one.set) << "RTP " << one.address;
    }
}

TEST_F(Sources, LineEndsInAddressAndPortAreLeftOut)
{
    hold(new udpsource("239.0.0.1\r\n", "1234\r\n", nullptr));
    EXPECT_EQ(receiver("address"), "239.0.0.1");
    EXPECT_EQ(receiver("port"), "1234");
    hold(new rtpsource("\n2\r39.0.0.2\n\n", "\r12\n35", nullptr)); // wherever they stand
    EXPECT_EQ(receiver("address"), "239.0.0.2");
    EXPECT_EQ(receiver("port"), "1235");
}

TEST_F(Sources, TheVlanFlagMovesReceptionToTheSubInterface)
{
    data.vlan = true;
    data.vlanId = "100";
    hold(new udpsource("239.0.0.1", "1234", nullptr));
    EXPECT_EQ(receiver("multicast-iface"), "eth0.100");
    hold(new rtpsource("239.0.0.1", "1234", nullptr));
    EXPECT_EQ(receiver("multicast-iface"), "eth0.100");
    data.vlan = false; // the id stays in the settings
    hold(new udpsource("239.0.0.1", "1234", nullptr));
    EXPECT_EQ(receiver("multicast-iface"), "eth0");
}

TEST_F(Sources, T2miBehindUdpTakesTheStreamOver)
{
    T2MI_Config_Struct config{0x40, 102};
    hold(new udpsource("239.0.0.1", "1234", &config));
    EXPECT_EQ(receiver("do-timestamp"), "true");
    EXPECT_EQ(factoryName(element("t2mi")), "t2mi");
    EXPECT_EQ(propertyText(element("t2mi"), "pid"), "64");
    EXPECT_EQ(propertyText(element("t2mi"), "plpid"), "102");
    EXPECT_EQ(childrenOfBin(), (Names{"t2mi", "udpsrc1"}));
    EXPECT_EQ(next("udpsrc1"), "t2mi");
    EXPECT_EQ(ghostPadOwner(), "t2mi");
}

TEST_F(Sources, T2miBehindRtpTakesTheStreamOver)
{
    T2MI_Config_Struct config{4096, 0};
    hold(new rtpsource("239.0.0.1", "1234", &config));
    EXPECT_EQ(receiver("do-timestamp"), "true");
    EXPECT_EQ(propertyText(element("t2mi"), "pid"), "4096");
    EXPECT_EQ(propertyText(element("t2mi"), "plpid"), "0");
    EXPECT_EQ(childrenOfBin(), (Names{"rtpmp2tdepay1", "t2mi", "udpsrc1"}));
    EXPECT_EQ(next("udpsrc1"), "rtpmp2tdepay1");
    EXPECT_EQ(next("rtpmp2tdepay1"), "t2mi");
    EXPECT_EQ(ghostPadOwner(), "t2mi");
}

TEST_F(Sources, AddressOrPortThatIsNoNumberThrows)
{
    EXPECT_THROW(udpsource("camera.example", "1234", nullptr), std::invalid_argument);
    EXPECT_THROW(rtpsource("", "1234", nullptr), std::invalid_argument);
    EXPECT_THROW(udpsource("239.0.0.1", "high", nullptr), std::invalid_argument);
    EXPECT_THROW(rtpsource("239.0.0.1", "\r\n", nullptr), std::invalid_argument);
    EXPECT_THROW(udpsource("99999999999.1", "1234", nullptr), std::out_of_range);
    EXPECT_EQ(pipeline(), nullptr); // nothing was built around them
}

TEST_F(Sources, EachKindLogsItsMakingAndItsEnd)
{
    T2MI_Config_Struct config{64, 0};
    const struct
    {
        const char* made;
        const char* ended;
        gstsource* source;
    } cases[] = {
        {"filesource constr", "filesource Destruct", new filesource("/dev/null")},
        {"pciesource Construct", "pciesource Destruct", new pciesource},
        {"udpsource constr", "udpsource Destruct", new udpsource("239.0.0.1", "1", nullptr)},
        {"rtpsource constr", "rtpsource Destruct", new rtpsource("239.0.0.1", "1", &config)},
    };
    const auto banner = [](const std::string& text) {
        return "------------------" + text + " ------------------";
    };
    Names expected;
    for (const auto& one : cases) {
        expected.push_back(banner(one.made));
        expected.push_back(banner("gstImpl Constr"));
        expected.push_back(banner("gstImpl createPipeline"));
    }
    EXPECT_EQ(log.lines(), expected);
    for (const auto& one : cases) {
        log.forget();
        delete one.source; // through the base: the derived object ends
        EXPECT_EQ(log.lines(), (Names{banner(one.ended), banner("gstImpl Destruct")}));
    }
}

TEST_F(Sources, BuildingOneStartsNothing)
{
    hold(new udpsource("239.0.0.1", "1234", nullptr));
    EXPECT_EQ(GST_STATE(pipeline()), GST_STATE_NULL);
    EXPECT_EQ(next("my_bin"), "queue1");
    std::string text;
    source().status(&text);
    EXPECT_EQ(text, "stopped");
}

TEST_F(Sources, WithoutThePlatformElementASourceExistsAndDeliversNothing)
{
    const WithoutElement missing("pciesrc");
    hold(new pciesource);
    EXPECT_TRUE(childrenOfBin().empty());
    source().scanStream();
    source().stop();
}

TEST_F(Sources, WithoutTheDepayloaderNoRtpGetsOut)
{
    const WithoutElement missing("rtpmp2tdepay");
    hold(new rtpsource("239.0.0.1", "1234", nullptr));
    EXPECT_EQ(childrenOfBin(), Names{"udpsrc1"});
    EXPECT_EQ(element("my_bin")->numpads, 0);
}

TEST_F(Sources, WithoutTheDepayloaderTheExtractorGetsNothing)
{
    const WithoutElement missing("rtpmp2tdepay");
    T2MI_Config_Struct config{64, 0};
    hold(new rtpsource("239.0.0.1", "1234", &config));
    EXPECT_EQ(childrenOfBin(), (Names{"t2mi", "udpsrc1"}));
    EXPECT_EQ(next("udpsrc1"), "");
    EXPECT_EQ(ghostPadOwner(), "t2mi");
}

TEST_F(Sources, WithoutTheExtractorTheReceiversStreamGetsOut) // as if T2-MI had not been asked for
{
    const WithoutElement missing("t2mi");
    T2MI_Config_Struct config{64, 0};
    hold(new udpsource("239.0.0.1", "1234", &config));
    EXPECT_EQ(ghostPadOwner(), "udpsrc1");
    EXPECT_EQ(receiver("do-timestamp"), "true");
    hold(new rtpsource("239.0.0.1", "1234", &config));
    EXPECT_EQ(next("udpsrc1"), "rtpmp2tdepay1");
    EXPECT_EQ(ghostPadOwner(), "rtpmp2tdepay1");
}

TEST_F(Sources, WhateverElementIsMissingEveryCommandIsSurvived)
{
    const ScratchFolder folder;
    T2MI_Config_Struct config{64, 0};
    using Maker = std::function<gstsource*()>;
    const Maker makers[] = {[]() -> gstsource* { return new filesource("/dev/null"); },
        []() -> gstsource* { return new pciesource; },
        [&config]() -> gstsource* { return new udpsource("239.0.0.1", "1234", &config); },
        [&config]() -> gstsource* { return new rtpsource("239.0.0.1", "1234", &config); }};
    for (const char* name : {"filesrc", "pciesrc", "udpsrc", "rtpmp2tdepay", "t2mi"}) {
        const WithoutElement missing(name);
        for (const Maker& make : makers) {
            hold(make());
            source().scanStream();
            source().play(1);
            source().recordStream(folder.file("record.ts"));
            source().sendStream();
            std::string text;
            source().status(&text);
            EXPECT_EQ(text, "running") << name;
            source().stop();
        }
    }
}

TEST_F(Sources, OperationsReachThePipeline)
{
    ScratchFolder folder;
    hold(new filesource(folder.file("absent.ts")));
    log.forget();
    source().play(12);
    source().scanStream();
    source().recordStream(folder.file("copy.ts"));
    source().sendStream();
    source().debugdotfile("sources-test");
    std::string text;
    source().status(&text);
    EXPECT_EQ(text, "running");
    source().status(nullptr);
    source().stop();
    source().status(&text);
    EXPECT_EQ(text, "stopped");
    EXPECT_EQ(log.lines(),
        (Names{"------------------gstImpl play prog number= 12 ------------------",
            "------------------gstImpl scan ------------------",
            "------------------gstImpl record ------------------",
            "------------------gstImpl sendTSstream ------------------",
            "------------------gstImpl debugdotfile ------------------",
            "------------------gstImpl stop ------------------"}));
    EXPECT_EQ(source().getVideoDecodedWidth(), -1);
    EXPECT_EQ(source().getVideoDecodedHeight(), -1);
    EXPECT_EQ(source().getVideoDecodedCaps(), nullptr);
    EXPECT_EQ(source().getAudioDecodedCaps(), nullptr);
}

TEST_F(Sources, TablesAreThoseOfThePipeline)
{
    hold(new filesource("/dev/null"));
    postSection(pipeline(), makePat({0, 7, 9}));
    postSection(pipeline(), makeNit(0, "net"));
    postSection(pipeline(), makePmt(9));
    ASSERT_TRUE(prints.waitFor("program_number :9\r\n"));
    EXPECT_EQ(*source().getPAT(), makePat({0, 7, 9}));
    EXPECT_EQ(*source().getNIT(), makeNit(0, "net"));
    EXPECT_EQ(source().getTotalNumberOfProgramsFound(), 2);
    EXPECT_EQ(source().getProgramNumber(1), 9);
    EXPECT_EQ(source().getPMT(), nullptr);
    source().play(9);
    EXPECT_EQ(*source().getPMT(), makePmt(9));
}

TEST_F(Sources, StreamInformationIsTheTaggedSdt)
{
    hold(new filesource("/dev/null"));
    EXPECT_EQ(source().getStreamInformation(), nullptr); // no SDT was received
    const Bytes sdt = makeSdt({1, 2}, 90);
    postSection(pipeline(), sdt);
    ASSERT_TRUE(prints.waitFor("new SDT received\n"));
    Bytes expected{'<', 'S', 'D', 'T', '>'};
    expected.insert(expected.end(), sdt.begin(), sdt.end());
    ASSERT_NE(source().getStreamInformation(), nullptr);
    EXPECT_EQ(*source().getStreamInformation(), expected); // the second call does not accumulate
    EXPECT_EQ(source().getStreamInformation()->size(), 95U);
}

} // namespace
