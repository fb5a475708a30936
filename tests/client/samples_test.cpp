#include "client/psi/sections.h"
#include "client/psi/tables.h"
#include "kit/oracle.h"

#include <gtest/gtest.h>
#include <QJsonArray>

using namespace tessary::client;
using namespace tessary::test;

namespace {

// Each recorded stream's sections are decoded here and by the independent reader; both must say the same.

class RecordedStream : public testing::TestWithParam<const char*>
{
protected:
    void SetUp() override
    {
        const auto path = samplePath(GetParam());
        if (!path.has_value())
            GTEST_SKIP() << missingSample(GetParam());
        m_report = oracleReport(*path);
    }

    QJsonObject m_report;
};

Section asSection(const OracleSection& expected)
{
    const SplitResult split = splitSections(expected.bytes);
    EXPECT_TRUE(split.whole()) << split.problem;
    return split.sections.at(0);
}

TEST_P(RecordedStream, HasThePatThatTheReaderFinds)
{
    const auto expected = oracleSections(m_report, 0x00);
    ASSERT_FALSE(expected.empty());
    for (const OracleSection& section : expected) {
        const auto pat = decodePat(asSection(section));
        ASSERT_TRUE(pat.has_value());
        EXPECT_EQ(pat->transportStreamId, section.decoded["ts_id"].toInt());
        QJsonArray programs;
        for (const auto& program : pat->programs) {
            if (program.number != 0)
                programs.append(QJsonArray{program.number, program.pid});
        }
        EXPECT_EQ(programs, section.decoded["programs"].toArray());
    }
}

TEST_P(RecordedStream, HasThePmtsThatTheReaderFinds)
{
    const auto expected = oracleSections(m_report, 0x02);
    ASSERT_FALSE(expected.empty());
    for (const OracleSection& section : expected) {
        const auto pmt = decodePmt(asSection(section));
        ASSERT_TRUE(pmt.has_value());
        EXPECT_EQ(pmt->programNumber, section.decoded["program"].toInt());
        EXPECT_EQ(pmt->pcrPid, section.decoded["pcr_pid"].toInt());
        const QJsonArray streams = section.decoded["streams"].toArray();
        ASSERT_EQ(pmt->streams.size(), static_cast<std::size_t>(streams.size()));
        for (int i = 0; i < streams.size(); ++i) {
            const QJsonObject stream = streams[i].toObject();
            const auto& found = pmt->streams[static_cast<std::size_t>(i)];
            EXPECT_EQ(found.pid, stream["pid"].toInt());
            EXPECT_EQ(found.type, stream["stream_type"].toString().toInt(nullptr, 16));
            EXPECT_EQ(
                found.descriptors.size(), static_cast<std::size_t>(stream["descriptors"].toArray().size()));
        }
    }
}

TEST_P(RecordedStream, HasTheNetworkThatTheReaderFinds)
{
    const auto expected = oracleSections(m_report, 0x40);
    ASSERT_FALSE(expected.empty());
    for (const OracleSection& section : expected) {
        const auto nit = decodeNit(asSection(section));
        ASSERT_TRUE(nit.has_value());
        EXPECT_EQ(nit->networkId, section.decoded["network_id"].toInt());
        EXPECT_EQ(nit->networkName, section.decoded["network_name"].toString().toStdString());
        EXPECT_EQ(nit->transportStreams.size(),
            static_cast<std::size_t>(section.decoded["transport_streams"].toArray().size()));
    }
}

TEST_P(RecordedStream, HasTheServicesThatTheReaderFindsToTheCharacter)
{
    const auto expected = oracleSections(m_report, 0x42);
    ASSERT_FALSE(expected.empty());
    for (const OracleSection& section : expected) {
        const auto sdt = decodeSdt(asSection(section));
        ASSERT_TRUE(sdt.has_value());
        const QJsonArray services = section.decoded["services"].toArray();
        ASSERT_EQ(sdt->services.size(), static_cast<std::size_t>(services.size()));
        for (int i = 0; i < services.size(); ++i) {
            const QJsonObject service = services[i].toObject();
            const auto& found = sdt->services[static_cast<std::size_t>(i)];
            EXPECT_EQ(found.id, service["service_id"].toInt());
            EXPECT_EQ(found.name, service["name"].toString().toStdString());
            EXPECT_EQ(found.provider, service["provider"].toString().toStdString());
            EXPECT_EQ(found.type, service["service_type"].toString("0").toInt(nullptr, 16));
            EXPECT_EQ(found.runningStatus, service["running_status"].toInt());
            EXPECT_EQ(found.scrambled, service["free_ca"].toInt() == 1);
        }
    }
}

std::string nameOf(const testing::TestParamInfo<const char*>& info)
{
    std::string name;
    for (const char c : std::string(info.param)) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0)
            name.push_back(c);
    }
    return name;
}

INSTANTIATE_TEST_SUITE_P(Samples, RecordedStream,
    testing::Values("rai-dvbt-mux.ts", "ard-dvbt2-hbbtv.ts", "cts-taiwan-si.ts"), nameOf);

} // namespace
