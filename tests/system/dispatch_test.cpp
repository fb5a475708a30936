#include "systemsuite.h"

#include <algorithm>

namespace {

using namespace tessary;
using namespace tessary::test;
using namespace std::string_literals;

// The real line, poll and answers under load; how a burst is split and matched is a unit test's.

class Dispatch : public SystemSuite
{
protected:
    static int linesIn(const std::string& text)
    {
        return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    }
};

TEST_F(Dispatch, BurstsThatFollowEachOtherAreEachDispatched)
{
    constexpr int bursts = 300;
    for (int i = 0; i < bursts; ++i)
        line().write("version?\n");
    EXPECT_EQ(linesIn(line().finish()), bursts);
}

TEST_F(Dispatch, ManyCommandsInOneBurstAreAnsweredInTheirOrder)
{
    std::string burst;
    for (int i = 0; i < 20; ++i)
        burst += i % 2 == 0 ? "version?\n\0"s : "videostatus?\n\0"s;
    burst += "version?\n";
    controller().scan();
    const std::string answer = line().ask(burst);
    EXPECT_EQ(linesIn(answer), 11) << answer;
    std::size_t at = 0;
    for (int i = 0; i < 10; ++i) {
        at = answer.find("\nrunning", at);
        ASSERT_NE(at, std::string::npos) << "status " << i << " is missing or out of order: " << answer;
        ++at;
    }
}

} // namespace
