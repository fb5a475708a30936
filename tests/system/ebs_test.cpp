#include "hardwaresuite.h"

#include "demo/judge.h"

#include <ostream>
#include <QFile>

namespace {

using namespace tessary;
using namespace tessary::test;

// One stream after another at the FPGA's input; scanned, its first service played.
// Stream                                | decoder information
// MPEG-2 720x576, MPEG-1 layer 2        | 1, 02d0, 0240, 4
// H.264 1280x720, AAC                   | 2, 0500, 02d0, 1
// H.264 1280x720, AC-3                  | 2, 0500, 02d0, 2
// H.265 1920x1080, E-AC-3               | 15, 0780, 0438, 7
// MPEG-4 Visual 720x576, MPEG-1 layer 3 | 3, 02d0, 0240, 5
// VP9, which has a number too, is not among them: a transport stream has no stream type for it.

struct Case
{
    const char* file;
    int programs;
    const char* frame;
};

std::ostream& operator<<(std::ostream& out, const Case& value)
{
    return out << value.file;
}

class Ebs : public HardwareSuite
{
protected:
    void SetUp() override
    {
        HardwareSuite::SetUp();
        QFile::remove(instrument().sharedFile("fpga-in.ts"));
        startDaemon();
    }

    static void putStream(const QString& file)
    {
        ASSERT_TRUE(QFile::copy(madeStream(file), instrument().sharedFile("fpga-in.ts")))
            << "make the streams: bench/streams/make-streams build/streams";
    }

    /// Scans until the status frame names this many programs.
    bool scan(const std::string& status)
    {
        EXPECT_EQ(ask("!07_S_&\n"), "");
        return waitUntil([&] { return ask("!07_A_&\n") == status; });
    }

    /// Asks until the decoder information is this frame; returns the last answer.
    std::string information(const std::string& expected)
    {
        std::string frame;
        waitUntil([&] { return (frame = ask("!07_E_&\n")) == expected; });
        return frame;
    }
};

class EbsStream : public Ebs, public testing::WithParamInterface<Case>
{
};

} // namespace

TEST_P(EbsStream, IsScannedPlayedAndDescribed)
{
    putStream(GetParam().file);
    const std::string programs = "0" + std::to_string(GetParam().programs);
    EXPECT_TRUE(scan("*17_a.FL:02_NS:" + programs + "$_DS:00"));
    EXPECT_EQ(ask("!0C_D_IX:01\n"), "*0C_d.SX");
    EXPECT_EQ(information(GetParam().frame), GetParam().frame);
    EXPECT_EQ(ask("!07_A_&\n"), "*17_a.FL:02_NS:" + programs + "$_DS:01");
    EXPECT_EQ(ask("videostatus?\n"), "running");
    ask("PVR_stop\n");
}

INSTANTIATE_TEST_SUITE_P(Streams, EbsStream,
    testing::Values(Case{"demo.ts", 3, "*32_e.DI:0001_02d0_0240_0000_0004_0000_0000_0000_$"},
        Case{"h264-aac.ts", 1, "*32_e.DI:0002_0500_02d0_0000_0001_0000_0000_0000_$"},
        Case{"h264-ac3.ts", 1, "*32_e.DI:0002_0500_02d0_0000_0002_0000_0000_0000_$"},
        Case{"h265-eac3.ts", 1, "*32_e.DI:000f_0780_0438_0000_0007_0000_0000_0000_$"},
        Case{"mpeg4-mp3.ts", 1, "*32_e.DI:0003_02d0_0240_0000_0005_0000_0000_0000_$"}));

TEST_F(Ebs, EachProgramOfTheDemoIsPlayedAndDescribedByItsIndex)
{
    struct Program
    {
        const char* index;
        observe::Rgb colour;
    };
    const Program programs[] = {
        {"03", {0x00, 0x00, 0xFF}}, {"02", {0x00, 0xC0, 0x00}}, {"00", {0xFF, 0x00, 0x00}}};
    // Each play begins with zeros, so the frame is that of the program just chosen; the colour tells which.
    const std::string frame = "*32_e.DI:0001_02d0_0240_0000_0004_0000_0000_0000_$";
    putStream("demo.ts");
    EXPECT_TRUE(scan("*17_a.FL:02_NS:03$_DS:00"));
    for (const Program& program : programs) {
        SCOPED_TRACE(program.index);
        EXPECT_EQ(ask("!0C_D_IX:" + std::string(program.index) + "\n"), "*0C_d.SX");
        EXPECT_EQ(ask("!07_A_&\n"), "*17_a.FL:02_NS:03$_DS:" + std::string(program.index));
        EXPECT_EQ(information(frame), frame);
        const std::string display = instrument().sharedFile("display.ppm").toStdString();
        observe::Judgement seen;
        EXPECT_TRUE(waitUntil([&] { return (seen = observe::judgePicture(display, program.colour)).right; }))
            << seen.words;
    }
}

TEST_F(Ebs, TheByteBehindTheIndexEndsTheFrameWhateverItIs)
{
    const std::string versionLine = "SV: mx8 " TESSARY_VERSION " FPGA: 5/5/2021 4:52:47 done=OK\n";
    putStream("demo.ts");
    EXPECT_TRUE(scan("*17_a.FL:02_NS:03$_DS:00"));
    EXPECT_EQ(ask("!0C_D_IX:05\r\n"), "*0C_d.SX"); // the LF behind the CR is a text of its own
    EXPECT_EQ(ask("!07_A_&\n"), "*17_a.FL:02_NS:03$_DS:05");
    EXPECT_EQ(ask("!0C_D_IX:02Xversion?\n"), "*0C_d.SX" + versionLine);
    EXPECT_EQ(ask("!07_A_&\n"), "*17_a.FL:02_NS:03$_DS:02");
    EXPECT_EQ(ask("!0C_L_IX:05\r\n"), "Service5");
    EXPECT_EQ(ask("!0C_L_IX:05Xversion?\n"), "Service5" + versionLine);
    EXPECT_EQ(ask("!07_A_&\n"), "*17_a.FL:02_NS:03$_DS:02"); // a name is asked for, nothing is chosen
}

TEST_F(Ebs, TheIndexIsTwoCharactersWhateverFollows)
{
    EXPECT_EQ(ask("!0C_L_IX:1F\n"), "Service31");
    EXPECT_EQ(ask("!0C_L_IX:1F\r\n"), "Service31"); // the CR is written over, the LF is a text of its own
    EXPECT_EQ(ask("!0C_L_IX:0AXversion?\n"),
        "Service10SV: mx8 " TESSARY_VERSION " FPGA: 5/5/2021 4:52:47 done=OK\n");
    EXPECT_EQ(ask("!0C_L_IX:\n"), "Service0");
    line().write("!0C_L_IX:");
    EXPECT_EQ(line().readExactly(8, BurstLine::patience), "Service0");
}
