// The version text: the build time-stamp of the bitstream file, or why there is none.
#include "bench.h"
#include "support/testfiles.h"

#include <QString>

namespace {

const std::string start("\xFF\xFF\xFF\xFF\xAA\x99\x55\x66", 8);
const std::string versionPattern("\x30\x01\xA0\x01", 4);

class FpgaVersion : public FpgaBench
{
protected:
    std::string version() { return fpga.GetFpgaVersion().toStdString(); }

    /// The version of a file with these bytes.
    std::string versionOf(const std::string& bytes)
    {
        writeFile(bitfilePath, bytes);
        return version();
    }
};

} // namespace

TEST_F(FpgaVersion, WithoutFileItSaysSo)
{
    EXPECT_EQ(version(), "bitfile not found");
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(FpgaVersion, AnEmptyFileIsNamed)
{
    EXPECT_EQ(versionOf(""), "bitfile empty");
}

TEST_F(FpgaVersion, AFileWithoutStartPatternIsNamed)
{
    makeBitfile("--no-sync");
    EXPECT_EQ(version(), "start pattern not found in bitfile");
    EXPECT_EQ(versionOf("x"), "start pattern not found in bitfile");
}

TEST_F(FpgaVersion, AStartPatternAtTheVeryBeginningDoesNotCount)
{
    makeBitfile("--no-header");
    EXPECT_EQ(version(), "start pattern not found in bitfile");
}

TEST_F(FpgaVersion, AFileWithoutTimeStampIsNamed)
{
    makeBitfile("--no-stamp");
    EXPECT_EQ(version(), "version not found in bitfile");
    const std::string offset = std::to_string(readFile(bitfilePath).find(start));
    EXPECT_EQ(log.lines(), std::vector<std::string>{"FPGA start firmware pattern found at " + offset});
}

TEST_F(FpgaVersion, ATimeStampBehindTheFirst2048BytesIsNotSeen)
{
    makeBitfile("--words-before-stamp 600");
    EXPECT_EQ(version(), "version not found in bitfile");
}

TEST_F(FpgaVersion, ATimeStampCutAtByte2048IsNotSeen)
{
    const std::string stamp("\x2A\xAA\x4D\x2F", 4);
    const auto withStampEndingAt = [&](std::size_t end) {
        const std::string filler(end - 1 - start.size() - versionPattern.size() - stamp.size(), 'x');
        return "h" + start + filler + versionPattern + stamp;
    };
    EXPECT_EQ(versionOf(withStampEndingAt(2048)), "5/5/2021 4:52:47 done=NOK"); // just inside
    for (std::size_t missing = 1; missing <= 4; ++missing)
        EXPECT_EQ(versionOf(withStampEndingAt(2048 + missing)), "version not found in bitfile") << missing;
}

TEST_F(FpgaVersion, AVersionPatternBeforeTheStartPatternDoesNotCount)
{
    EXPECT_EQ(versionOf("h" + versionPattern + "1234" + start), "version not found in bitfile");
}

TEST_F(FpgaVersion, TheTimeStampIsSplitIntoItsFields)
{
    makeBitfile("--stamp 0x2AAA4D2F");
    EXPECT_EQ(version(), "5/5/2021 4:52:47 done=NOK");
    EXPECT_EQ(log.lines().back(), "FPGA : 5/5/2021 4:52:47 done=NOK");
    EXPECT_EQ(log.lines().size(), 3u);
    EXPECT_EQ(log.lines()[1].substr(0, 22), "FPGA version found at ");
}

TEST_F(FpgaVersion, NumbersHaveNoLeadingZerosAndAllBitsCount)
{
    EXPECT_EQ(versionOf("h" + start + versionPattern + std::string(4, '\0')), "0/0/200 0:0:0 done=NOK");
    EXPECT_EQ(
        versionOf("h" + start + versionPattern + std::string(4, '\xFF')), "31/15/2063 31:63:63 done=NOK");
}

TEST_F(FpgaVersion, TheDoneTextFollowsTheLoad)
{
    makeBitfile();
    EXPECT_EQ(version(), "5/5/2021 4:52:47 done=NOK");
    EXPECT_TRUE(fpga.programFpga());
    EXPECT_EQ(version(), "5/5/2021 4:52:47 done=OK");
    setKnob("configured=0\n");
    setKnob("spi-fail=1\n");
    EXPECT_FALSE(fpga.programFpga());
    EXPECT_EQ(version(), "5/5/2021 4:52:47 done=NOK");
    setKnob("configured=1\n");
    EXPECT_TRUE(fpga.programFpga());
    EXPECT_EQ(version(), "5/5/2021 4:52:47 done=OK");
}
