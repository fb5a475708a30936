#include "client/tessaryctl/streamreport.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>

namespace {

using namespace tessary;
using client::ProgramMap;

std::string textOf(const ProgramMap& program)
{
    std::ostringstream out;
    ctl::printProgram(out, program, "");
    return out.str();
}

ProgramMap programWithPcr(std::uint16_t pcrPid)
{
    ProgramMap program;
    program.programNumber = 1;
    program.pcrPid = pcrPid;
    program.streams.push_back({0x1B, 0x101, {}});
    return program;
}

TEST(StreamReport, SaysWhereThePcrIs)
{
    EXPECT_NE(textOf(programWithPcr(0x101)).find("H.264 video, PCR"), std::string::npos);
    const std::string apart = textOf(programWithPcr(0x1F0));
    EXPECT_NE(apart.find("496"), std::string::npos);
    EXPECT_NE(apart.find("  PCR\n"), std::string::npos);
    EXPECT_EQ(ctl::jsonOf(programWithPcr(0x1F0))["pcr_pid"], 0x1F0);
}

// ISO/IEC 13818-1, 2.4.4.9: PCR_PID 0x1FFF is none.
TEST(StreamReport, KnowsAProgramWithoutPcr)
{
    const std::string text = textOf(programWithPcr(0x1FFF));
    EXPECT_NE(text.find("no PCR\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("8191"), std::string::npos) << text;
    EXPECT_TRUE(ctl::jsonOf(programWithPcr(0x1FFF))["pcr_pid"].is_null());
}

} // namespace
