#include "client/psi/mpegtsnames.h"
#include "client/psi/tables.h"
#include "kit/sections.h"

#include <gtest/gtest.h>

using namespace tessary::client;
using namespace tessary::test;

namespace {

Section onlySection(const Bytes& bytes)
{
    return splitSections(bytes).sections.at(0);
}

Bytes sdtBody(const std::vector<Bytes>& services)
{
    return join({{0x20, 0x01, 0xFF}, join(services)});
}

Bytes sdtService(std::uint16_t id, const Bytes& descriptors, std::uint8_t statusBits = 0x80)
{
    Bytes loop = makeLoop(descriptors);
    loop[0] = static_cast<std::uint8_t>((loop[0] & 0x0FU) | statusBits);
    return join({{static_cast<std::uint8_t>(id >> 8U), static_cast<std::uint8_t>(id), 0xFD}, loop});
}

std::string serviceName(const std::string& asCarried)
{
    const Bytes bytes = makeSection(0x42, 1, sdtBody({sdtService(1, serviceDescriptor(1, "", asCarried))}));
    const auto sdt = decodeSdt(onlySection(bytes));
    return sdt.has_value() && sdt->services.size() == 1 ? sdt->services[0].name : "(not decoded)";
}

TEST(DecodePat, GivesProgramsInOrderWithTheNetworkPidFirst)
{
    const Bytes bytes =
        makeSection(0x00, 0x1234, {0, 0, 0xE0, 0x10, 0, 1, 0xE1, 0x00, 0x0D, 0x49, 0xFF, 0xFE});
    const auto pat = decodePat(onlySection(bytes));
    ASSERT_TRUE(pat.has_value());
    EXPECT_EQ(pat->transportStreamId, 0x1234);
    ASSERT_EQ(pat->programs.size(), 3U);
    EXPECT_EQ(pat->programs[0].number, 0);
    EXPECT_EQ(pat->programs[0].pid, 0x10);
    EXPECT_EQ(pat->programs[1].pid, 0x100);
    EXPECT_EQ(pat->programs[2].number, 3401);
    EXPECT_EQ(pat->programs[2].pid, 0x1FFE);
}

TEST(DecodePmt, GivesStreamsWithTypePidLanguageAndDescriptors)
{
    const Bytes language = makeDescriptor(0x0A, {'d', 'e', 'u', 0x00});
    const Bytes body = join({{0xE2, 0x01}, makeLoop(makeDescriptor(0x05, {'H', 'D', 'M', 'V'})),
        {0x1B, 0xE2, 0x01}, makeLoop({}), {0x0F, 0xE2, 0x02}, makeLoop(language)});
    const auto pmt = decodePmt(onlySection(makeSection(0x02, 501, body)));
    ASSERT_TRUE(pmt.has_value());
    EXPECT_EQ(pmt->programNumber, 501);
    EXPECT_EQ(pmt->pcrPid, 0x201);
    ASSERT_EQ(pmt->descriptors.size(), 1U);
    EXPECT_EQ(pmt->descriptors[0].tag, 0x05);
    EXPECT_EQ(pmt->descriptors[0].data, toBytes("HDMV"));
    ASSERT_EQ(pmt->streams.size(), 2U);
    EXPECT_EQ(pmt->streams[0].type, 0x1B);
    EXPECT_EQ(pmt->streams[0].pid, 0x201);
    ASSERT_EQ(pmt->streams[1].descriptors.size(), 1U);
    EXPECT_EQ(pmt->streams[1].descriptors[0].data, (Bytes{'d', 'e', 'u', 0}));
}

TEST(DecodeNit, GivesTheNetworksNameAndTheListedServices)
{
    const Bytes serviceList = makeDescriptor(0x41, {0x00, 0x01, 0x01, 0x00, 0x02, 0x02});
    const Bytes stream = join({{0x00, 0x07, 0x20, 0x01}, makeLoop(serviceList)});
    const Bytes body = join({makeLoop(makeDescriptor(0x40, toBytes("Desk network"))), makeLoop(stream)});
    for (const std::uint8_t tableId : {std::uint8_t{0x40}, std::uint8_t{0x41}}) {
        const auto nit = decodeNit(onlySection(makeSection(tableId, 12289, body)));
        ASSERT_TRUE(nit.has_value());
        EXPECT_EQ(nit->networkId, 12289);
        EXPECT_EQ(nit->networkName, "Desk network");
        ASSERT_EQ(nit->transportStreams.size(), 1U);
        EXPECT_EQ(nit->transportStreams[0].transportStreamId, 7);
        EXPECT_EQ(nit->transportStreams[0].originalNetworkId, 0x2001);
        ASSERT_EQ(nit->transportStreams[0].services.size(), 2U);
        EXPECT_EQ(nit->transportStreams[0].services[1].serviceId, 2);
        EXPECT_EQ(nit->transportStreams[0].services[1].type, 2);
    }
}

TEST(DecodeSdt, GivesTypeNameProviderAndStatusOfEachService)
{
    const Bytes bytes = makeSection(0x42, 7,
        sdtBody({sdtService(1, serviceDescriptor(0x19, "Desk", "Red"), 0x90), sdtService(2, {}, 0x20)}));
    const auto sdt = decodeSdt(onlySection(bytes));
    ASSERT_TRUE(sdt.has_value());
    EXPECT_EQ(sdt->transportStreamId, 7);
    EXPECT_EQ(sdt->originalNetworkId, 0x2001);
    ASSERT_EQ(sdt->services.size(), 2U);
    EXPECT_EQ(sdt->services[0].id, 1);
    EXPECT_EQ(sdt->services[0].type, 0x19);
    EXPECT_EQ(sdt->services[0].name, "Red");
    EXPECT_EQ(sdt->services[0].provider, "Desk");
    EXPECT_EQ(sdt->services[0].runningStatus, 4);
    EXPECT_TRUE(sdt->services[0].scrambled);
    EXPECT_FALSE(sdt->services[0].eitSchedule);
    EXPECT_TRUE(sdt->services[0].eitPresentFollowing);
    EXPECT_EQ(sdt->services[1].name, "");
    EXPECT_EQ(sdt->services[1].runningStatus, 1);
    EXPECT_FALSE(sdt->services[1].scrambled);
}

TEST(DecodeSdt, KeepsAServiceTypeThatNoTableNames)
{
    const Bytes bytes =
        makeSection(0x42, 7, sdtBody({sdtService(1, serviceDescriptor(0xEE, "Desk", "Red"))}));
    const auto sdt = decodeSdt(onlySection(bytes));
    ASSERT_TRUE(sdt.has_value());
    EXPECT_EQ(sdt->services.at(0).type, 0xEE);
    EXPECT_EQ(sdt->services.at(0).name, "Red");
}

TEST(DecodeSdt, LeavesOutAServiceDescriptorWhoseTextsEndBehindIt)
{
    const Bytes broken[] = {{0x01, 0x80, 'D'}, {0x01, 0x01, 'D', 0x80, 'R'}, {0x01, 0x01, 'D'}, {0x01}, {}};
    for (const Bytes& payload : broken) {
        const Bytes service = sdtService(1, makeDescriptor(0x48, payload));
        const auto sdt = decodeSdt(onlySection(makeSection(0x42, 7, sdtBody({service}))));
        ASSERT_TRUE(sdt.has_value()) << payload.size();
        ASSERT_EQ(sdt->services.size(), 1U) << payload.size();
        EXPECT_EQ(sdt->services[0].type, 0) << payload.size();
        EXPECT_EQ(sdt->services[0].name, "") << payload.size();
    }
}

TEST(DecodeSdt, LeavesOutATextThatBreaksOffInsideTheNameOfItsCharacterTable)
{
    // Behind the text stands what would complete the name of a table.
    const Bytes payload{0x01, 0x00, 0x01, 0x10, 0x00, 0x02, 'T', 'V'};
    const Bytes service = sdtService(1, makeDescriptor(0x48, payload));
    const auto sdt = decodeSdt(onlySection(makeSection(0x42, 7, sdtBody({service}))));
    ASSERT_TRUE(sdt.has_value());
    EXPECT_EQ(sdt->services.at(0).name, "");

    const Bytes network = makeDescriptor(0x40, {0x10, 0x00});
    const auto nit = decodeNit(onlySection(makeSection(0x40, 1, join({makeLoop(network), makeLoop({})}))));
    ASSERT_TRUE(nit.has_value());
    EXPECT_EQ(nit->networkName, "");
}

TEST(DecodeSdt, DecodesTheCharacterTablesOfDvbText)
{
    EXPECT_EQ(serviceName("Rai 1"), "Rai 1");
    EXPECT_EQ(serviceName("BR S\xC8"
                          "ud"),
        "BR Süd"); // ISO 6937 diacritic before its letter
    EXPECT_EQ(serviceName(std::string("\x01\xBF\xD5\xE0\xD2\xEB\xD9", 7)), "Первый"); // ISO 8859-5
    EXPECT_EQ(serviceName(std::string("\x10\x00\x02\xCC\xFC", 5)), "Ěü"); // ISO 8859-2 named by two bytes
    EXPECT_EQ(serviceName(std::string("\x11\x83\xEF\x89\x96", 5)),
        "華視"); // ISO/IEC 10646 basic multilingual plane
    EXPECT_EQ(serviceName("\x15"
                          "Caf\xC3\xA9"),
        "Café"); // UTF-8
}

TEST(Decoders, RefuseAnotherTableAWrongCrcAndABrokenBody)
{
    const Bytes pat = makeSection(0x00, 1, {0x00, 0x01, 0xF0, 0x00});
    EXPECT_FALSE(decodePmt(onlySection(pat)).has_value());
    EXPECT_FALSE(decodeNit(onlySection(pat)).has_value());
    EXPECT_FALSE(decodeSdt(onlySection(pat)).has_value());
    EXPECT_FALSE(decodePat(onlySection(makeSection(0x02, 1, {0xE1, 0x00, 0xF0, 0x00}))).has_value());
    EXPECT_FALSE(decodePat(Section{}).has_value());

    Section damaged = onlySection(pat);
    damaged.bytes[9] ^= 1U;
    damaged.crcCorrect = false;
    EXPECT_FALSE(decodePat(damaged).has_value());

    // A stream whose descriptor loop reaches beyond the section.
    const Bytes broken = makeSection(0x02, 1, {0xE1, 0x00, 0xF0, 0x00, 0x1B, 0xE1, 0x00, 0xFF, 0xFF});
    const auto pmt = decodePmt(onlySection(broken));
    EXPECT_TRUE(!pmt.has_value() || pmt->streams.empty());
}

/// The loop with its length made `more` bytes longer.
Bytes longerLoop(Bytes loop, std::uint8_t more)
{
    loop[1] = static_cast<std::uint8_t>(loop[1] + more);
    return loop;
}

TEST(Decoders, RefuseLoopsAndDescriptorsThatEndBehindWhatHoldsThem)
{
    const Bytes name = makeDescriptor(0x40, toBytes("Net1"));
    const Bytes listed = makeDescriptor(0x41, {0x00, 0x01, 0x01});
    const Bytes stream = join({{0x00, 0x01, 0x00, 0x02}, makeLoop(listed)});
    const Bytes shorter = longerLoop(makeLoop(stream), 0xFF); // one byte less than its entry has
    const Bytes bodies[] = {
        join({makeLoop(name), shorter}),
        join({makeLoop(name), longerLoop(makeLoop(stream), 1)}),
        join({longerLoop(makeLoop(name), 200), makeLoop(stream)}),
        join({makeLoop(name), makeLoop(join({{0x00, 0x01, 0x00, 0x02}, longerLoop(makeLoop(listed), 1)}))}),
        join({makeLoop({0x40, 0x05, 'N'}), makeLoop(stream)}),
        join({makeLoop(name), {0xF0}}),
    };
    for (const Bytes& body : bodies)
        EXPECT_FALSE(decodeNit(onlySection(makeSection(0x40, 1, body))).has_value());

    const Bytes service = serviceDescriptor(1, "Desk", "Red");
    EXPECT_FALSE(decodeSdt(onlySection(makeSection(0x42, 1, sdtBody({sdtService(1, {0x48, 9, 1})})))));
    EXPECT_FALSE(
        decodeSdt(onlySection(makeSection(0x42, 1, join({sdtBody({sdtService(1, service)}), {0}})))));
    EXPECT_FALSE(decodePmt(onlySection(makeSection(0x02, 1, {0xE2, 0x00, 0xF0, 0x20, 0x0A, 0x01, 'd'}))));
    EXPECT_FALSE(
        decodePmt(onlySection(makeSection(0x02, 1, {0xE2, 0x00, 0xF0, 0x00, 0x1B, 0xE2, 0x00, 0xF0, 9}))));
    EXPECT_FALSE(decodePat(onlySection(makeSection(0x00, 1, {0x00, 0x01, 0xE1}))));
}

TEST(Names, SayWhatAPersonWouldSay)
{
    EXPECT_EQ(serviceTypeName(0x02), "digital radio");
    EXPECT_EQ(serviceTypeName(0x80), "type 0x80");
}

} // namespace
