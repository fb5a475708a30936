#include <gtest/gtest.h>

#include "continuity_rewriter.h"
#include "test_packets.h"

namespace tessary::sender {
namespace {

using namespace tessary::test;

unsigned counterAfter(ContinuityRewriter& rewriter, Bytes bytes, bool breakHere = false)
{
    rewriter.process(bytes.data(), breakHere);
    return bytes[3] & 15U;
}

TEST(ContinuityRewriter, TheFirstPassIsLeftAsItIs)
{
    ContinuityRewriter rewriter;
    for (const unsigned counter : {4U, 5U, 5U, 9U, 10U}) // with a duplicate and a gap of the file's own
        EXPECT_EQ(counterAfter(rewriter, packet(100, counter)), counter);
}

// file:  pass 1  4 5 6   pass 2  4 5 6   pass 3  4
// sent:          4 5 6           7 8 9          10
TEST(ContinuityRewriter, CountersGoOnOverTheSeam)
{
    ContinuityRewriter rewriter;
    unsigned expected = 4;
    for (int pass = 0; pass < 12; ++pass, rewriter.startPass()) {
        for (const unsigned counter : {4U, 5U, 6U})
            EXPECT_EQ(counterAfter(rewriter, packet(100, counter)), expected++ & 15U);
    }
}

TEST(ContinuityRewriter, PidsHaveOffsetsOfTheirOwn)
{
    ContinuityRewriter rewriter;
    counterAfter(rewriter, packet(100, 3));
    counterAfter(rewriter, packet(200, 9));
    rewriter.startPass();
    EXPECT_EQ(counterAfter(rewriter, packet(200, 9)), 10U);
    EXPECT_EQ(counterAfter(rewriter, packet(100, 3)), 4U);
}

TEST(ContinuityRewriter, APassThatBeginsWithoutPayloadRepeatsTheCounter)
{
    ContinuityRewriter rewriter;
    counterAfter(rewriter, packet(100, 3));
    rewriter.startPass();
    EXPECT_EQ(counterAfter(rewriter, packetWithoutPayload(100, 2)), 3U);
    EXPECT_EQ(counterAfter(rewriter, packet(100, 3)), 4U);
}

TEST(ContinuityRewriter, TheFilesOwnErrorsStayInEachPass)
{
    ContinuityRewriter rewriter;
    Bytes sent;
    for (int pass = 0; pass < 3; ++pass, rewriter.startPass()) {
        for (const unsigned counter : {0U, 1U, 3U, 4U}) {
            Bytes bytes = packet(100, counter);
            rewriter.process(bytes.data(), false);
            sent.insert(sent.end(), bytes.begin(), bytes.end());
        }
    }
    EXPECT_EQ(strictErrors(sent), 3U);
}

TEST(ContinuityRewriter, ABreakIsExactlyOneError)
{
    ContinuityRewriter rewriter;
    Bytes sent;
    unsigned broken = 0;
    for (unsigned i = 0; i < 100; ++i) {
        Bytes bytes = packet(100, i);
        broken += rewriter.process(bytes.data(), i % 10 == 5) ? 1 : 0;
        sent.insert(sent.end(), bytes.begin(), bytes.end());
    }
    EXPECT_EQ(broken, 10U);
    EXPECT_EQ(strictErrors(sent), 10U);
}

TEST(ContinuityRewriter, NoBreakWhereACheckWouldNotFindExactlyOneError)
{
    ContinuityRewriter rewriter;
    Bytes first = packet(100, 0);
    EXPECT_FALSE(rewriter.process(first.data(), true)) << "first of its PID";
    Bytes empty = packetWithoutPayload(100, 0);
    EXPECT_FALSE(rewriter.process(empty.data(), true)) << "no payload";
    Bytes marked = packetWithFlags(100, 1, 0x80);
    EXPECT_FALSE(rewriter.process(marked.data(), true)) << "discontinuity indicator";
    Bytes duplicate = packet(100, 1);
    EXPECT_FALSE(rewriter.process(duplicate.data(), true)) << "an error of the file";
    Bytes stuffing = packet(0x1FFF, 2);
    EXPECT_FALSE(rewriter.process(stuffing.data(), true)) << "null packet";
    Bytes right = packet(100, 2);
    EXPECT_TRUE(rewriter.process(right.data(), true));
    EXPECT_EQ(right[3] & 15U, 3U);
}

TEST(ContinuityRewriter, NullPacketsKeepTheirBytes)
{
    ContinuityRewriter rewriter;
    for (int pass = 0; pass < 3; ++pass, rewriter.startPass()) {
        Bytes bytes = packet(0x1FFF, 7);
        rewriter.process(bytes.data(), false);
        EXPECT_EQ(bytes, packet(0x1FFF, 7));
    }
}

} // namespace
} // namespace tessary::sender
