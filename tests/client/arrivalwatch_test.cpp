#include "client/arrivalwatch.h"

#include <gtest/gtest.h>
#include <numeric>
#include <random>

using namespace tessary::client;

namespace {

using Times = std::vector<std::int64_t>;

constexpr std::size_t kept = 1024;

/// The instrument's record: frames come, the last 1024 are told.
class Record
{
public:
    void add(const Times& times)
    {
        m_times.insert(m_times.end(), times.begin(), times.end());
        for (const std::int64_t time : times)
            m_now += std::chrono::microseconds(time);
        if (m_times.size() > kept)
            m_times.erase(m_times.begin(), m_times.end() - kept);
    }

    Times readBy(ArrivalWatch& watch) const { return watch.add(m_times, m_now); }

private:
    Times m_times;
    ArrivalWatch::Clock::time_point m_now{std::chrono::seconds(1000)};
};

Times someTimes(std::size_t count, std::mt19937& random, int spread)
{
    Times times(count);
    for (auto& time : times)
        time = 1000 + static_cast<int>(random() % static_cast<unsigned>(spread));
    return times;
}

TEST(ArrivalWatch, TellsEachFrameOnce)
{
    for (const int spread : {1, 2, 60, 5000}) { // also when all times are the same
        std::mt19937 random(3);
        Record record;
        ArrivalWatch watch;
        for (const std::size_t count : {10, 700, 900, 0, 1, 1023, 950, 300}) {
            const Times fresh = someTimes(count, random, spread);
            record.add(fresh);
            EXPECT_EQ(record.readBy(watch), fresh) << spread << ", " << count;
        }
    }
}

TEST(ArrivalWatch, OfMoreThanAreKeptItTellsThoseThatAreLeft)
{
    std::mt19937 random(4);
    Record record;
    ArrivalWatch watch;
    record.add(someTimes(1000, random, 5000));
    record.readBy(watch);
    const Times many = someTimes(3000, random, 5000);
    record.add(many);
    EXPECT_EQ(record.readBy(watch), Times(many.end() - kept, many.end()));
}

TEST(ArrivalWatch, AfterForgettingAllAreNew)
{
    std::mt19937 random(5);
    Record record;
    ArrivalWatch watch;
    record.add(someTimes(500, random, 5000));
    record.readBy(watch);
    watch.forget();
    EXPECT_EQ(record.readBy(watch).size(), 500U);
}

} // namespace
