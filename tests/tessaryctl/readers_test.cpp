#include "kit/oracle.h"
#include "otherreaders.h"
#include "toolsuite.h"

#include <optional>
#include <ostream>
#include <QFile>

namespace {

using namespace tessary::test;

/// A stream, recorded or made.
struct GivenStream
{
    const char* label;
    const char* file;
    const char* server = "udp://239.0.0.1:1234";
    const char* inner = nullptr; ///< file of the stream inside T2-MI, where it carries that
};

std::optional<QString> pathOf(const char* name)
{
    const QString made = madeStream(name);
    if (QFile::exists(made))
        return made;
    const auto recorded = samplePath(name);
    return recorded.has_value() ? std::optional(QString::fromStdString(*recorded)) : std::nullopt;
}

std::ostream& operator<<(std::ostream& out, const GivenStream& stream)
{
    return out << stream.file;
}

// Twelve streams: what scan and info tell in JSON is as their schemas say (ToolSuite::tool looks), and as two
// independent readers of the files say.
class ToolScan : public ToolSuite, public testing::WithParamInterface<GivenStream>
{
protected:
    void SetUp() override { restartDaemon(); }

    /// The file as it is sent over and over: of a short one a table that stands before its PAT counts, too.
    static QString asSent(const QString& path)
    {
        constexpr qint64 isShort = 100'000; // bytes
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        if (file.size() > isShort)
            return path;
        const QByteArray once = file.readAll();
        QFile twice(instrument().path("twice.ts"));
        EXPECT_TRUE(twice.open(QIODevice::WriteOnly) && twice.write(once + once) == 2 * once.size());
        return twice.fileName();
    }
};

TEST_P(ToolScan, ServicesPidsAndNetworkAreThoseOfOtherReaders)
{
    const auto sent = pathOf(GetParam().file);
    const auto read = pathOf(GetParam().inner != nullptr ? GetParam().inner : GetParam().file);
    if (!samplePath("oracle.py").has_value() || !sent.has_value() || !read.has_value())
        GTEST_SKIP() << missingSample(GetParam().file);
    const QString passes = asSent(*read);
    const QJsonObject report = oracleReport(passes.toStdString());
    const RunningStream stream = sendStream(*sent, {"--bitrate", "20M"});
    // What a stream does not carry would be waited for.
    const QString wait =
        oracleSections(report, 0x40).empty() || oracleSections(report, 0x42).empty() ? "4" : "12";
    const QJsonObject scan = toolJson({"scan", GetParam().server, "--wait", wait});
    expectAsTheOracleSays(scan, report);
    expectAsFfprobeSays(scan, passes);
    QJsonObject info = toolJson({"info"});
    info["programs"] = scan["programs"]; // playing alone tells them
    expectAsTheOracleSays(info, report);
    expectNamesInText(tool({"info"}).output, report);
}

INSTANTIATE_TEST_SUITE_P(Streams, ToolScan,
    testing::Values( //
        GivenStream{"DvbT", "rai-dvbt-mux.ts"}, GivenStream{"DvbT2", "ard-dvbt2-hbbtv.ts"},
        GivenStream{"Chinese", "cts-taiwan-si.ts"}, GivenStream{"Errors", "franceinfo-cc.ts"},
        GivenStream{"NulInNames", "ac4.ts"}, GivenStream{"Packets204", "isdbt-204-b.ts"},
        GivenStream{"NoNetwork", "h262_mpeg_audio.ts"},
        GivenStream{
            "T2mi", "t2mi-plp102.ts", "udp+t2mi://239.0.0.1:1234?pid=64&plp=102", "t2mi-plp102.inner.ts"},
        GivenStream{"Demo", "demo.ts"}, GivenStream{"Services", "services.ts"},
        GivenStream{"HevcEac3", "h265-eac3.ts"},
        GivenStream{"DemoT2mi", "demo-t2mi.ts", "udp+t2mi://239.0.0.1:1234?pid=4096&plp=1", "demo.ts"}),
    [](const auto& given) { return std::string(given.param.label); });

} // namespace
