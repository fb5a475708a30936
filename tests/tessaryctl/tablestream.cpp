#include "tablestream.h"

#include "kit/packets.h"

#include <gtest/gtest.h>
#include <map>
#include <QFile>

namespace tessary::test {

void writeTableStream(const QString& path, const std::vector<CarriedSection>& sections)
{
    constexpr int repetitions = 400;
    QFile file(path);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    std::map<int, unsigned> counters; // continuity_counter of each PID
    for (int i = 0; i < repetitions; ++i) {
        for (const CarriedSection& carried : sections) {
            const Bytes bytes =
                packetsOf(static_cast<unsigned>(carried.pid), carried.section, counters[carried.pid]);
            EXPECT_EQ(bytes.size(), packetBytes);
            file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<qint64>(bytes.size()));
        }
    }
}

} // namespace tessary::test
