#include "client/psi/delivery.h"

#include "client/psi/sections.h"
#include "kit/oracle.h"

#include <gtest/gtest.h>

namespace {

using namespace tessary::client;
using namespace tessary::test;

/// What the first transport stream of a recording's NIT tells, with the sections as the independent reader
/// finds them; the expected values below are those of tshark's dissector and of the networks' frequencies.
std::optional<NetworkInformation::TransportStream> recorded(const char* sample)
{
    const auto path = samplePath(sample);
    if (!path.has_value())
        return std::nullopt;
    const auto sections = oracleSections(oracleReport(*path), 0x40);
    const auto nit = decodeNit(splitSections(sections.at(0).bytes).sections.at(0));
    return nit.value().transportStreams.at(0);
}

Delivery only(const std::vector<Descriptor>& descriptors)
{
    const auto deliveries = deliveriesOf(descriptors);
    EXPECT_EQ(deliveries.size(), 1U);
    return deliveries.empty() ? Delivery{} : deliveries.front();
}

TEST(DeliveriesOf, ReadsARecordedTerrestrialMultiplex)
{
    const auto stream = recorded("rai-dvbt-mux.ts");
    if (!stream.has_value())
        GTEST_SKIP() << missingSample("rai-dvbt-mux.ts");
    EXPECT_EQ(textOf(only(stream->descriptors)),
        "DVB-T, 498 MHz, 64-QAM, bandwidth 8 MHz, code rate 3/4, guard interval 1/4, 8k");
    const auto channels = logicalChannelsOf(stream->descriptors);
    ASSERT_EQ(channels.size(), 8U);
    EXPECT_EQ(channels[0].serviceId, 3401);
    EXPECT_EQ(channels[0].number, 1);
    EXPECT_TRUE(channels[0].visible);
    EXPECT_EQ(channels[1].serviceId, 3410);
    EXPECT_EQ(channels[1].number, 100);
    EXPECT_EQ(channels[7].number, 703);
}

TEST(DeliveriesOf, ReadsARecordedMultiplexWithFrequencyList)
{
    const auto stream = recorded("cts-taiwan-si.ts");
    if (!stream.has_value())
        GTEST_SKIP() << missingSample("cts-taiwan-si.ts");
    EXPECT_EQ(textOf(only(stream->descriptors)),
        "DVB-T, 593 MHz, 64-QAM, bandwidth 6 MHz, code rate 2/3, guard interval 1/4, 8k");
    EXPECT_TRUE(logicalChannelsOf(stream->descriptors).empty());
}

TEST(DeliveriesOf, ReadsARecordedT2Multiplex)
{
    const auto stream = recorded("ard-dvbt2-hbbtv.ts");
    if (!stream.has_value())
        GTEST_SKIP() << missingSample("ard-dvbt2-hbbtv.ts");
    const Delivery delivery = only(stream->descriptors);
    EXPECT_EQ(delivery.system, "DVB-T2");
    EXPECT_EQ(delivery.plpId, 0);
    EXPECT_EQ(delivery.systemId, 111);
    EXPECT_EQ(delivery.bandwidth, 8000000U);
    EXPECT_EQ(delivery.guardInterval, "19/128");
    EXPECT_EQ(delivery.transmissionMode, "16k");
    // One for each cell, as the Bavarian transmitters have it; two cells share one.
    EXPECT_EQ(delivery.frequencies,
        (std::vector<std::uint64_t>{
            682000000, 474000000, 626000000, 546000000, 650000000, 482000000, 538000000, 674000000}));
}

// ETSI EN 300 468, 6.2.13.2: 11.75725 GHz is 0x01175725, 27.5 Msymbol/s 0x0275000, 19.2° 0x0192.
TEST(DeliveriesOf, ReadsSatellites)
{
    const Descriptor first{0x43, {0x01, 0x17, 0x57, 0x25, 0x01, 0x92, 0x81, 0x02, 0x75, 0x00, 0x03}};
    EXPECT_EQ(textOf(only({first})),
        "DVB-S, 11757.25 MHz, horizontal, 19.2° east, QPSK, 27.5 Msymbol/s, code rate 3/4");
    const Descriptor second{0x43, {0x01, 0x08, 0x32, 0x00, 0x00, 0x50, 0x2E, 0x02, 0x20, 0x00, 0x02}};
    EXPECT_EQ(textOf(only({second})),
        "DVB-S2, 10832 MHz, vertical, 5.0° west, 8PSK, 22 Msymbol/s, code rate 2/3, roll-off 0.25");
    EXPECT_EQ(only({second, {0x79, {0x40, 0x05}}}).inputStream, 5);
    EXPECT_EQ(only({{0x79, {0xC0, 0x00, 0x00, 0x01, 0x07}}, first}).inputStream, 7);
    EXPECT_EQ(only({{0x79, {0x00}}, first}).system, "DVB-S2");
}

// ETSI EN 300 468, 6.2.13.1: 312 MHz is 0x03120000, 6.875 Msymbol/s 0x0068750.
TEST(DeliveriesOf, ReadsCable)
{
    const Descriptor cable{0x44, {0x03, 0x12, 0x00, 0x00, 0xFF, 0xF2, 0x05, 0x00, 0x68, 0x75, 0x0F}};
    EXPECT_EQ(textOf(only({cable})), "DVB-C, 312 MHz, 256-QAM, 6.875 Msymbol/s, code rate none");
    EXPECT_EQ(only({cable, {0x62, {0xFE, 0x03, 0x12, 0x00, 0x00, 0x03, 0x20, 0x00, 0x00}}}).frequencies,
        (std::vector<std::uint64_t>{312000000, 320000000}));
}

TEST(DeliveriesOf, ReadsHierarchicalModulation)
{
    const Descriptor terrestrial{0x5A, {0x02, 0xF7, 0xE3, 0x40, 0x1F, 0x88, 0x22, 0xFF, 0xFF, 0xFF, 0xFF}};
    EXPECT_EQ(only({terrestrial}).codeRate, "1/2, 2/3");
}

TEST(DeliveriesOf, ReadsIsdbTerrestrialWhereTheTagIsNobodysOwn)
{
    // 473 1/7 MHz is 3312 sevenths.
    const Descriptor isdb{0xFA, {0x00, 0x0A, 0x0C, 0xF0}};
    EXPECT_EQ(textOf(only({isdb})), "ISDB-T, 473.142857 MHz, guard interval 1/8, mode 3 (8k)");
    EXPECT_TRUE(deliveriesOf({{0x5F, {0x00, 0x00, 0x00, 0x28}}, isdb}).empty());
}

TEST(DeliveriesOf, PassesOverWhatIsTooShort)
{
    for (const std::uint8_t tag : Bytes{0x43, 0x44, 0x5A, 0xFA}) {
        EXPECT_TRUE(deliveriesOf({{tag, {}}}).empty());
        EXPECT_TRUE(deliveriesOf({{tag, {1, 2, 3}}}).empty());
    }
    EXPECT_TRUE(deliveriesOf({{0x7F, {0x04}}, {0x62, {}}, {0x62, {3}}, {0x79, {}}, {0x79, {0xFF}}}).empty());
    const Delivery cut = only({{0x7F, {0x04, 0x01, 0x00, 0x02, 0x03, 0xB3, 0x31, 0x13, 0xFF}}});
    EXPECT_TRUE(cut.frequencies.empty());
}

TEST(LogicalChannelsOf, GoesByThePrivateDataSpecifier)
{
    const Descriptor channels{0x83, {0x00, 0x01, 0xFC, 0x05, 0x00, 0x02, 0x7C, 0x06}};
    const auto with = [&](std::initializer_list<std::uint8_t> specifier) {
        return logicalChannelsOf({{0x5F, specifier}, channels});
    };
    const auto eacem = with({0, 0, 0, 0x28});
    ASSERT_EQ(eacem.size(), 2U);
    EXPECT_EQ(eacem[0].number, 5);
    EXPECT_TRUE(eacem[0].visible);
    EXPECT_EQ(eacem[1].number, 6);
    EXPECT_FALSE(eacem[1].visible);
    EXPECT_EQ(with({0, 0, 0, 0x29}).at(1).number, 0x3C06); // NorDig: 14 bits
    EXPECT_TRUE(with({0, 0, 0x23, 0x3A}).at(1).visible); // the United Kingdom has no flag
    EXPECT_EQ(with({0, 0, 0x32, 0x00}).at(1).number, 6);
    EXPECT_TRUE(with({0, 0, 0, 0x05}).empty()); // somebody else's descriptor
}

TEST(LogicalChannelsOf, ReadsListsAndHighDefinition)
{
    const Descriptor specifier{0x5F, {0, 0, 0, 0x29}};
    const Descriptor lists{0x87,
        {1, 2, 'F', 'I', 'f', 'i', 'n', 4, 0x00, 0x11, 0xFC, 0x07, 2, 0, 's', 'w', 'e', 4, 0x00, 0x12, 0xFC,
            0x08}};
    const auto channels = logicalChannelsOf({specifier, lists});
    ASSERT_EQ(channels.size(), 2U);
    EXPECT_EQ(channels[0].serviceId, 0x11);
    EXPECT_EQ(channels[0].number, 7);
    EXPECT_EQ(channels[1].number, 8);
    EXPECT_TRUE(logicalChannelsOf({specifier, {0x87, {1, 200, 'F'}}}).empty());
    EXPECT_TRUE(logicalChannelsOf({specifier, {0x87, {1, 0, 'f', 'i', 'n', 99}}}).empty());
    const auto simulcast = logicalChannelsOf({{0x5F, {0, 0, 0, 0x28}}, {0x88, {0x00, 0x11, 0xFC, 0x65}}});
    ASSERT_EQ(simulcast.size(), 1U);
    EXPECT_TRUE(simulcast[0].simulcast);
    EXPECT_EQ(simulcast[0].number, 101);
}

} // namespace
