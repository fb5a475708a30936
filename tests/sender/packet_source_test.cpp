#include <cstdio>
#include <gtest/gtest.h>

#include "packet_source.h"
#include "reed_solomon.h"
#include "stream_facts.h"
#include "test_packets.h"

namespace tessary::sender {
namespace {

using namespace tessary::test;

Bytes readAll(PacketSource& source, std::size_t packetSize = 188)
{
    Bytes all;
    Bytes one(packetSize);
    while (source.next(one.data()))
        all.insert(all.end(), one.begin(), one.end());
    return all;
}

Bytes withParity(const Bytes& stream, std::uint8_t firstParityByte)
{
    Bytes coded;
    for (std::size_t at = 0; at < stream.size(); at += 188) {
        coded.insert(coded.end(), &stream[at], &stream[at] + 188);
        coded.insert(coded.end(), 16, firstParityByte);
    }
    return coded;
}

class PacketSourceTest : public ::testing::Test
{
protected:
    std::string write(const Bytes& bytes) { return m_path = writeFile("source.ts", bytes); }
    void TearDown() override { std::remove(m_path.c_str()); }

private:
    std::string m_path;
};

TEST_F(PacketSourceTest, OnePassIsTheFile)
{
    const Bytes stream = smallStream(100, 1e6);
    const TsFile file(write(stream));
    PacketSource source(file, {});
    EXPECT_EQ(readAll(source), stream);
    EXPECT_EQ(source.passesBegun(), 1U);
}

TEST_F(PacketSourceTest, AnUnchangedRepetitionIsTheFileTwice)
{
    const Bytes stream = smallStream(10, 1e6);
    const TsFile file(write(stream));
    SourceSettings settings;
    settings.passes = 2;
    PacketSource source(file, settings);
    Bytes twice = stream;
    twice.insert(twice.end(), stream.begin(), stream.end());
    EXPECT_EQ(readAll(source), twice);
}

TEST_F(PacketSourceTest, ARewrittenRepetitionHasNoErrorAtTheSeam)
{
    const TsFile file(write(smallStream(101, 1e6)));
    SourceSettings settings;
    settings.passes = 5;
    settings.rewriteCounters = true;
    PacketSource source(file, settings);
    EXPECT_EQ(strictErrors(readAll(source)), 0U);
    SourceSettings plain;
    plain.passes = 5;
    PacketSource unchanged(file, plain);
    EXPECT_GT(strictErrors(readAll(unchanged)), 0U) << "the stream would join without rewriting";
}

TEST_F(PacketSourceTest, BreaksAreMadeOnTheGivenPidsUntilTheTotal)
{
    const TsFile file(write(smallStream(200, 1e6)));
    SourceSettings settings;
    settings.rewriteCounters = true;
    settings.breakablePids.set(257);
    PacketSource source(file, settings);
    source.breakCounters(4);
    const Bytes sent = readAll(source);
    EXPECT_EQ(source.errorsMade(), 4U);
    EXPECT_EQ(strictErrors(sent), 4U);
    Bytes without257;
    for (std::size_t at = 0; at < sent.size(); at += 188) {
        if (sent[at + 1] != 1 || sent[at + 2] != 1)
            without257.insert(without257.end(), &sent[at], &sent[at] + 188);
    }
    EXPECT_EQ(strictErrors(without257), 0U);
}

TEST_F(PacketSourceTest, CodedPacketsOfTheFileKeepTheirParity)
{
    const Bytes coded = withParity(smallStream(50, 1e6), 0x5A);
    const TsFile file(write(coded));
    ASSERT_EQ(file.packetSize(), 204U);
    SourceSettings settings;
    settings.packetSize = 204;
    PacketSource source(file, settings);
    EXPECT_EQ(readAll(source, 204), coded);
}

TEST_F(PacketSourceTest, ChangedCodedPacketsGetNewParity)
{
    const TsFile file(write(withParity(smallStream(3, 1e6), 0x5A)));
    SourceSettings settings;
    settings.packetSize = 204;
    settings.passes = 2;
    settings.rewriteCounters = true;
    PacketSource source(file, settings);
    const Bytes sent = readAll(source, 204);
    constexpr std::ptrdiff_t fourth = std::ptrdiff_t{3} * 204; // the first packet of the second pass
    Bytes parity(16);
    reedSolomonParity(&sent[fourth], parity.data());
    EXPECT_TRUE(std::equal(parity.begin(), parity.end(), sent.begin() + fourth + 188));
}

TEST_F(PacketSourceTest, ParityIsTakenAwayAndAddedOnDemand)
{
    const Bytes stream = smallStream(20, 1e6);
    const TsFile coded(write(withParity(stream, 0)));
    PacketSource stripped(coded, {});
    EXPECT_EQ(readAll(stripped), stream);
    const TsFile plain(write(stream));
    SourceSettings settings;
    settings.packetSize = 204;
    PacketSource source(plain, settings);
    const Bytes sent = readAll(source, 204);
    ASSERT_EQ(sent.size(), 20U * 204U);
    EXPECT_TRUE(std::equal(stream.begin(), stream.begin() + 188, sent.begin()));
    Bytes parity(16);
    reedSolomonParity(stream.data(), parity.data());
    EXPECT_TRUE(std::equal(parity.begin(), parity.end(), sent.begin() + 188));
}

TEST_F(PacketSourceTest, TheRateComesFromThePcrs)
{
    const TsFile file(write(smallStream(2000, 3'210'000)));
    const StreamFacts facts = readFacts(file);
    EXPECT_NEAR(facts.bitRateFromPcr, 3'210'000, 10);
    EXPECT_TRUE(facts.pesPids.test(256));
    EXPECT_EQ(facts.pesPids.count(), 1U);
}

TEST_F(PacketSourceTest, AClockThatJumpsDoesNotSpoilTheRate)
{
    Bytes stream = smallStream(1000, 2e6);
    const Bytes later = smallStream(1000, 2e6); // the clock starts again at 0
    stream.insert(stream.end(), later.begin(), later.end());
    const TsFile file(write(stream));
    EXPECT_NEAR(readFacts(file).bitRateFromPcr, 2e6, 10);
}

TEST_F(PacketSourceTest, NoPcrMeansNoRate)
{
    Bytes stream;
    for (unsigned i = 0; i < 20; ++i) {
        const Bytes next = packet(100, i);
        stream.insert(stream.end(), next.begin(), next.end());
    }
    const TsFile file(write(stream));
    EXPECT_EQ(readFacts(file).bitRateFromPcr, 0);
}

TEST_F(PacketSourceTest, FilesThatAreNoStreamAreRefusedWithAReason)
{
    EXPECT_THROW(TsFile{::testing::TempDir() + "tessary-no-such-file.ts"}, StreamError);
    EXPECT_THROW(TsFile{::testing::TempDir()}, StreamError);
    EXPECT_THROW(TsFile{write({})}, StreamError);
    EXPECT_THROW(TsFile{write(Bytes(1000, 0x33))}, StreamError);
    Bytes broken = smallStream(40, 1e6);
    broken[5640] = 0x48;
    try {
        const TsFile file(write(broken));
        FAIL() << "a lost sync byte was taken";
    } catch (const StreamError& error) {
        EXPECT_NE(std::string(error.what()).find("byte 5640"), std::string::npos) << error.what();
    }
}

TEST_F(PacketSourceTest, AnIncompleteLastPacketIsLeftOut)
{
    Bytes stream = smallStream(5, 1e6);
    stream.resize(stream.size() - 100);
    const TsFile file(write(stream));
    EXPECT_EQ(file.packetCount(), 4U);
    EXPECT_EQ(file.bytesLeftOver(), 88U);
}

} // namespace
} // namespace tessary::sender
