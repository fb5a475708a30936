// The arrival records of the last 1024 frames: their order, their storage, and their reader beside the
// callback.
#include "measurementfixture.h"
#include "support/allocations.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <thread>

namespace {

constexpr std::size_t maxRecords = 1024;

bool eventually(const std::atomic<int>& number)
{
    for (int i = 0; i < 30000 && number == 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return number != 0;
}

/// Time stamps that belong to frames one after another, from `first` on.
testing::AssertionResult follow(
    const std::vector<pcap_measured_value_struct>& kept, std::size_t count, std::int64_t first)
{
    if (kept.size() != count)
        return testing::AssertionFailure() << kept.size() << " records, not " << count;
    for (std::size_t n = 0; n < count; ++n) {
        if (kept[n].timestamp != first + static_cast<std::int64_t>(n))
            return testing::AssertionFailure() << "record " << n << " is that of frame " << kept[n].timestamp;
    }
    return testing::AssertionSuccess();
}

bool inOrder(const std::vector<pcap_measured_value_struct>& kept)
{
    const auto notLater = [](const auto& one, const auto& next) { return next.timestamp <= one.timestamp; };
    return std::adjacent_find(kept.begin(), kept.end(), notLater) == kept.end();
}

class Records : public Measurement
{
protected:
    /// Frames whose time stamps count on, in µs, from `from` to `to`.
    void receiveFrames(int from, int to)
    {
        for (int i = from; i <= to; ++i)
            receive(sevenPackets, i);
    }
};

} // namespace

TEST_F(Records, OfTheLast1024FramesStandInTheirOrder)
{
    const auto storage = [this] {
        const MutexLock lock(measurement.bufferMutex);
        return measurement.buffer->data();
    };
    const auto* const before = storage();
    int received = 0;
    for (const int frames :
        {1, 2, 1023, 1024, 1025, 1026, 1500, 2047, 2048, 2049, 3072, 5000, 10240, 10241}) {
        receiveFrames(received + 1, frames);
        received = frames;
        const int kept = std::min(frames, 1024);
        EXPECT_TRUE(follow(records(), static_cast<std::size_t>(kept), frames - kept + 1)) << frames;
    }
    EXPECT_EQ(storage(), before);
    const MutexLock lock(measurement.bufferMutex);
    EXPECT_EQ(measurement.buffer->size(), maxRecords);
    EXPECT_EQ(measurement.buffer->capacity(), maxRecords);
}

TEST_F(Records, AreKeptWithoutMemoryFromTheHeap)
{
    std::atomic<int> taken{0};
    const allocations::Counting counting(taken);
    const auto none = records();
    const int byTheReader = taken;
    receiveFrames(1, 3000);
    const int withTheFrames = taken;
    EXPECT_GT(byTheReader, 0); // the count counts
    EXPECT_EQ(withTheFrames, byTheReader);
}

TEST_F(Records, StayWhenTheyAreRead)
{
    receive(sevenPackets, 1'000'000);
    receive(sevenPackets, 1'001'002);
    EXPECT_EQ(records().size(), 2u);
    const auto again = records();
    ASSERT_EQ(again.size(), 2u);
    EXPECT_EQ(again[1].interArrival, 1002);
}

TEST_F(Records, OfAFrameIsDroppedWhileAReaderHoldsTheLockAndTheResultsStillCount)
{
    {
        const MutexLock reader(measurement.bufferMutex);
        std::thread capture([this] { receive(sevenPackets, 1'000'000'000); });
        capture.join(); // would hang if the callback waited
    }
    EXPECT_TRUE(records().empty());
    EXPECT_EQ(values()[5], 7);
    receive(sevenPackets, 1'000'001'000);
    EXPECT_EQ(records().size(), 1u);
}

TEST_F(Records, ThatWereDroppedLeaveNoGapInTheStorage)
{
    receiveFrames(1, 1500);
    {
        const MutexLock reader(measurement.bufferMutex);
        std::thread capture([this] { receiveFrames(1501, 1600); });
        capture.join();
    }
    receiveFrames(1601, 1700);
    const auto kept = records();
    ASSERT_EQ(kept.size(), maxRecords);
    EXPECT_TRUE(inOrder(kept));
    EXPECT_EQ(kept.front().timestamp, 1500 - (1024 - 100) + 1);
    EXPECT_EQ(kept[1024 - 101].timestamp, 1500);
    EXPECT_EQ(kept[1024 - 100].timestamp, 1601);
    EXPECT_EQ(kept.back().timestamp, 1700);
}

// Nobody waits while memory is looked for: what the reader needs, it has before it takes the lock.
TEST_F(Records, AreReadWithoutMemoryFromTheHeapUnderTheLock)
{
    receiveFrames(1, 1500);
    std::atomic<int> taken{0};
    std::vector<pcap_measured_value_struct> out;
    std::unique_lock<BriefMutex> lock(measurement.bufferMutex);
    std::thread reader([&] {
        const allocations::Counting counting(taken);
        measurement.getBuffer(&out);
    });
    const bool before = eventually(taken);
    lock.unlock();
    reader.join();
    EXPECT_TRUE(before);
    EXPECT_EQ(taken, 1);
    EXPECT_TRUE(follow(out, maxRecords, 1500 - 1024 + 1));
}

TEST_F(Records, AreReadWhileTheyAreOverwritten)
{
    std::atomic<bool> enough{false};
    std::thread capture([&] {
        for (int i = 1; i <= 3000 || !enough; ++i)
            receive(sevenPackets, 1'000'000'000 + std::int64_t{i} * 1000);
    });
    std::size_t most = 0;
    std::int64_t newest = 0; // of the records that were there when the last ones of them had gone
    for (int reads = 0, replaced = 0; reads < 200 || replaced < 3; ++reads) {
        const auto seen = records();
        EXPECT_GE(seen.size(), most);
        most = seen.size();
        EXPECT_TRUE(inOrder(seen));
        EXPECT_TRUE(std::all_of(seen.begin(), seen.end(),
            [](const auto& record) { return record.bufferAfter == record.bufferBefore + 10'864; }));
        if (most == maxRecords && seen.front().timestamp > newest) {
            newest = seen.back().timestamp;
            ++replaced;
        }
        EXPECT_EQ(values().back(), 10);
    }
    enough = true;
    capture.join();
    EXPECT_EQ(values()[1], 10'864'000);
}
