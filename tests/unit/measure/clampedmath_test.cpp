// Arithmetic of the statistics: exact wherever the result fits, else the end of the range on its side.
#include "measure/clampedmath.h"

#include <gtest/gtest.h>

namespace {

constexpr std::int64_t highest = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t lowest = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t edges[] = {lowest, lowest + 1, lowest / 2, -3'037'000'500, -1'000'000, -7, -1, 0, 1, 7,
    999'999, 1'000'000, 3'037'000'500, highest / 1'000'000, highest / 2, highest - 1, highest};

} // namespace

TEST(ClampedMath, SumsAndDifferencesStopAtTheEndsOfTheRange)
{
    EXPECT_EQ(clampedAdd(highest - 1, 1), highest);
    EXPECT_EQ(clampedAdd(highest, 1), highest);
    EXPECT_EQ(clampedAdd(lowest, -1), lowest);
    EXPECT_EQ(clampedAdd(lowest, highest), -1);
    EXPECT_EQ(clampedSubtract(lowest + 1, 1), lowest);
    EXPECT_EQ(clampedSubtract(lowest, 1), lowest);
    EXPECT_EQ(clampedSubtract(highest, -1), highest);
    EXPECT_EQ(clampedSubtract(0, lowest), highest);
    EXPECT_EQ(clampedSubtract(-1, lowest), highest);
}

TEST(ClampedMath, QuotientsOfProductsAreTruncatedTowardsZero)
{
    EXPECT_EQ(clampedScale(300'000, 43'456, 1'000'000), 13'036);
    EXPECT_EQ(clampedScale(-300'000, 43'456, 1'000'000), -13'036);
    EXPECT_EQ(clampedScale(lowest, 1, 1'000'000), -9'223'372'036'854);
}

// A product that needs more than 64 bits, such as an hour's bits in a period that the clock made long.
TEST(ClampedMath, ProductsBeyondTheRangeAreDividedBeforeTheyAreNarrowed)
{
    EXPECT_EQ(clampedScale(36'000'000'000'000, 1'000'000, 3'600'000'000), 10'000'000'000);
    EXPECT_EQ(clampedScale(highest, 1'000'000, 1'000'000), highest);
    EXPECT_EQ(clampedScale(lowest, 1'000'000, 1'000'001), -9'223'362'813'491'962'316);
    EXPECT_EQ(clampedScale(highest, 1'000'001, 1'000'000), highest);
    EXPECT_EQ(clampedScale(lowest, 1'000'001, 1'000'000), lowest);
    EXPECT_EQ(clampedScale(lowest, lowest, 1'000'000), highest);
}

TEST(ClampedMath, IsThatOf128BitsEverywhere)
{
    for (const std::int64_t a : edges) {
        for (const std::int64_t b : edges) {
            EXPECT_EQ(clampedAdd(a, b), clampToInt64(WideInteger(a) + b)) << a << ' ' << b;
            EXPECT_EQ(clampedSubtract(a, b), clampToInt64(WideInteger(a) - b)) << a << ' ' << b;
            for (const std::int64_t divisor : edges) {
                if (divisor <= 0)
                    continue;
                EXPECT_EQ(clampedScale(a, b, divisor), clampToInt64(WideInteger(a) * b / divisor))
                    << a << ' ' << b;
            }
        }
    }
}
