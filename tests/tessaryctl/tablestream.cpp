#include "tablestream.h"

#include <gtest/gtest.h>
#include <map>
#include <QFile>

namespace tessary::test {

using client::Bytes;

namespace {

Bytes packetOf(const CarriedSection& carried, int counter)
{
    constexpr std::size_t packetSize = 188;
    Bytes bytes{0x47, static_cast<std::uint8_t>(0x40 | carried.pid >> 8),
        static_cast<std::uint8_t>(carried.pid), static_cast<std::uint8_t>(0x10 | (counter & 0x0F)), 0x00};
    bytes.insert(bytes.end(), carried.section.begin(), carried.section.end());
    EXPECT_LE(bytes.size(), packetSize);
    bytes.resize(packetSize, 0xFF);
    return bytes;
}

} // namespace

void writeTableStream(const QString& path, const std::vector<CarriedSection>& sections)
{
    constexpr int repetitions = 400;
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    std::map<int, int> counters; // continuity_counter of each PID
    for (int i = 0; i < repetitions; ++i) {
        for (const CarriedSection& carried : sections) {
            const Bytes bytes = packetOf(carried, counters[carried.pid]++);
            file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(bytes.size()));
        }
    }
}

} // namespace tessary::test
