// The T2-MI extractor against a recorded stream, and against damaged input.
#include "kit/packets.h"
#include "kit/samples.h"
#include "kit/t2mi.h"

#include "t2mi/crc.h"
#include "t2mi/extractor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

using namespace tessary;
using namespace tessary::test;

namespace {

// Of the recording: its PID, its PLP, and how much of the inner stream the other extractor left out at its
// start.
constexpr int kSamplePid = 64;
constexpr int kSamplePlp = 102;
constexpr std::size_t kInnerPackets = 8826;
constexpr std::size_t kPacketsBeforeReference = 434;

Bytes extractInChunks(const Bytes& stream, std::size_t chunk, t2mi::Extractor& extractor)
{
    Bytes out;
    for (std::size_t at = 0; at < stream.size(); at += chunk)
        extractor.push(stream.data() + at, std::min(chunk, stream.size() - at), out);
    return out;
}

} // namespace

TEST(RecordedT2Mi, HoldsTheReferenceStreamFromItsStartToTheEnd)
{
    const Bytes outer = bytesOfSample("t2mi-plp102.ts");
    const Bytes reference = bytesOfSample("t2mi-plp102.inner.ts");
    if (outer.empty() || reference.empty())
        GTEST_SKIP() << missingSample("t2mi-plp102.ts");
    t2mi::Extractor extractor(kSamplePid, kSamplePlp);
    const Bytes inner = extractInChunks(outer, 7 * 188, extractor);
    ASSERT_EQ(inner.size(), kInnerPackets * 188);
    ASSERT_EQ(reference.size(), (kInnerPackets - kPacketsBeforeReference) * 188);
    EXPECT_TRUE(
        std::equal(reference.begin(), reference.end(), inner.begin() + kPacketsBeforeReference * 188));
    EXPECT_EQ(extractor.t2miCounters().packets, 396U);
    EXPECT_EQ(extractor.t2miCounters().crcErrors, 0U);
    EXPECT_EQ(extractor.t2miCounters().countErrors, 0U);
    EXPECT_EQ(extractor.basebandCounters().frames, 345U);
    EXPECT_EQ(extractor.basebandCounters().syncErrors, 0U);
    for (std::size_t at = 0; at < inner.size(); at += 188)
        ASSERT_EQ(inner[at], 0x47);
}

TEST(RecordedT2Mi, GivesTheSameInChunksOfAnySize)
{
    const Bytes outer = bytesOfSample("t2mi-plp102.ts");
    if (outer.empty())
        GTEST_SKIP() << missingSample("t2mi-plp102.ts");
    t2mi::Extractor whole(kSamplePid, kSamplePlp);
    const Bytes expected = extractInChunks(outer, outer.size(), whole);
    for (const std::size_t chunk : {101U, 188U, 1000U, 4096U}) {
        t2mi::Extractor extractor(kSamplePid, kSamplePlp);
        EXPECT_EQ(extractInChunks(outer, chunk, extractor), expected) << chunk;
    }
}

TEST(RecordedT2Mi, HasNothingForAnotherPlpOrPid)
{
    const Bytes outer = bytesOfSample("t2mi-plp102.ts");
    if (outer.empty())
        GTEST_SKIP() << missingSample("t2mi-plp102.ts");
    t2mi::Extractor otherPlp(kSamplePid, kSamplePlp + 1);
    EXPECT_TRUE(extractInChunks(outer, 1316, otherPlp).empty());
    EXPECT_FALSE(otherPlp.lastPacket().empty());
    t2mi::Extractor otherPid(kSamplePid + 1, kSamplePlp);
    EXPECT_TRUE(extractInChunks(outer, 1316, otherPid).empty());
    EXPECT_TRUE(otherPid.lastPacket().empty());
}

// Bytes are changed, dropped and repeated at random places of streams of every mode, half of the time behind
// the CRC-32 so that the damage reaches the baseband frames. Whole packets must come out and no read may
// leave its buffer (the address sanitizer watches).
TEST(DamagedT2Mi, NeverGivesBrokenPackets)
{
    std::mt19937 random(20240611); // fixed: a failure can be repeated
    const auto below = [&random](std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    };
    std::vector<Bytes> packets;
    for (unsigned i = 0; i < 40; ++i)
        packets.push_back(i % 5 == 4 ? nullPacket() : userPacket(i));
    for (int round = 0; round < 1500; ++round) {
        ModeOptions options;
        options.mode = static_cast<Mode>(below(3));
        options.issyBytes = below(2) * 3;
        options.deleteNullPackets = below(2) == 1;
        auto frames = basebandFrames(packets, options, 50 + below(1500));
        if (below(2) == 0) {
            for (int i = 0; i < 6; ++i) {
                Bytes& frame = frames[below(frames.size())];
                frame[below(std::min<std::size_t>(frame.size(), 12))] = static_cast<std::uint8_t>(below(256));
                // Half of the damaged headers are made believable again.
                if (below(2) == 0)
                    frame[9] = static_cast<std::uint8_t>(t2mi::crc8(frame.data(), 9) ^ below(2));
            }
        }
        Bytes stream = join(tsPackets(t2miFrames(frames)));
        for (std::size_t i = below(12); i > 0; --i)
            stream[below(stream.size())] = static_cast<std::uint8_t>(below(256));
        if (below(3) == 0)
            stream.erase(stream.begin() + static_cast<std::ptrdiff_t>(below(stream.size() / 2)),
                stream.begin() + static_cast<std::ptrdiff_t>(stream.size() / 2));
        t2mi::Extractor extractor(kPid, kPlp);
        const Bytes out = extractInChunks(stream, 1 + below(2000), extractor);
        ASSERT_EQ(out.size() % 188, 0U);
        for (std::size_t at = 0; at < out.size(); at += 188)
            ASSERT_EQ(out[at], 0x47) << "round " << round;
        ASSERT_LE(extractor.lastPacket().size(), t2mi::kT2MiMaxPacketBytes);
    }
}

TEST(DamagedT2Mi, OutlivesPureNoise)
{
    std::mt19937 random(7);
    Bytes noise(200 * 188);
    for (std::size_t i = 0; i < noise.size(); ++i)
        noise[i] = static_cast<std::uint8_t>(random() & 0xFFU);
    for (std::size_t at = 0; at < noise.size();
         at += 188) { // in step and on the right PID: the noise gets further in
        noise[at] = 0x47;
        noise[at + 1] = static_cast<std::uint8_t>(noise[at + 1] & 0x60U);
        noise[at + 2] = kPid;
        noise[at + 3] = static_cast<std::uint8_t>((noise[at + 3] & 0x30U) | (at / 188 & 0x0FU));
    }
    t2mi::Extractor extractor(kPid, kPlp);
    EXPECT_EQ(extractInChunks(noise, 1316, extractor).size() % 188, 0U);
}
