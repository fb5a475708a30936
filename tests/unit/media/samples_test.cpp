// Recorded broadcast streams, scanned as files: the tables equal what an independent reader finds.
#include "sourcetest.h"

#include "media/filesource.h"
#include "oracle.h"

#include <map>

namespace {

using tessary::test::OracleSection;
using Bytes = std::vector<std::uint8_t>;

class Samples : public SourceTest, public ::testing::WithParamInterface<const char*>
{
protected:
    void SetUp() override
    {
        const auto path = tessary::test::samplePath(GetParam());
        if (!path)
            GTEST_SKIP() << tessary::test::missingSample(GetParam());
        m_report = tessary::test::oracleReport(*path);
        hold(new filesource(*path));
        source().scanStream();
        ASSERT_TRUE(prints.waitFor("EOS\n", 1, 30000));
        ASSERT_TRUE(reaches(GST_STATE_NULL));
    }

    std::vector<OracleSection> expected(int tableId) const
    {
        return tessary::test::oracleSections(m_report, tableId);
    }

private:
    QJsonObject m_report;
};

void append(Bytes& all, const Bytes& more)
{
    all.insert(all.end(), more.begin(), more.end());
}

/// The last PAT whose length differs from the one before.
Bytes patByLength(const std::vector<OracleSection>& sections)
{
    Bytes kept;
    for (const OracleSection& section : sections) {
        if (section.bytes.size() != kept.size())
            kept = section.bytes;
    }
    return kept;
}

/// All SDT sections one after another, but for one that is as long as all before it together.
Bytes sdtAccumulated(const std::vector<OracleSection>& sections)
{
    Bytes all;
    for (const OracleSection& section : sections) {
        if (section.bytes.size() != all.size())
            append(all, section.bytes);
    }
    return all;
}

/// The first section of each number, in the order of the numbers, as far as they follow without a gap from 0.
Bytes nitInOrder(const std::vector<OracleSection>& sections)
{
    std::map<int, Bytes> firsts;
    for (const OracleSection& section : sections)
        firsts.emplace(section.number, section.bytes);
    Bytes all;
    for (const auto& [number, bytes] : firsts) {
        if (number < static_cast<int>(firsts.size()))
            append(all, bytes);
    }
    return all;
}

TEST_P(Samples, PatEqualsTheStreams)
{
    ASSERT_FALSE(expected(0x00).empty());
    EXPECT_EQ(*source().getPAT(), patByLength(expected(0x00)));
}

TEST_P(Samples, SdtEqualsTheStreams)
{
    ASSERT_FALSE(expected(0x42).empty());
    Bytes tagged{'<', 'S', 'D', 'T', '>'};
    append(tagged, sdtAccumulated(expected(0x42)));
    ASSERT_NE(source().getStreamInformation(), nullptr);
    EXPECT_EQ(*source().getStreamInformation(), tagged);
}

TEST_P(Samples, NitEqualsTheStreams)
{
    ASSERT_FALSE(expected(0x40).empty());
    EXPECT_EQ(*source().getNIT(), nitInOrder(expected(0x40)));
}

TEST_P(Samples, EachProgramsPmtEqualsTheStreams)
{
    std::map<int, Bytes> firsts; // the first PMT of a program is kept
    for (const OracleSection& section : expected(0x02))
        firsts.emplace(section.extension, section.bytes);
    ASSERT_FALSE(firsts.empty());
    for (const auto& [program, bytes] : firsts) {
        source().play(program);
        source().stop();
        ASSERT_NE(source().getPMT(), nullptr) << "program " << program;
        EXPECT_EQ(*source().getPMT(), bytes) << "program " << program;
    }
}

INSTANTIATE_TEST_SUITE_P(Recorded, Samples,
    ::testing::Values("rai-dvbt-mux.ts", "ard-dvbt2-hbbtv.ts", "cts-taiwan-si.ts", "pat-change.ts"),
    [](const auto& sample) {
        std::string name = sample.param;
        for (char& c : name)
            c = c == '-' || c == '.' ? '_' : c;
        return name;
    });

} // namespace
