#pragma once

#include "kit/bytes.h"

#include <QString>
#include <vector>

namespace tessary::test {

/// A section, or a T2-MI packet, of at most 183 bytes on its PID.
struct CarriedSection
{
    int pid = 0;
    Bytes section;
};

/// Writes a transport stream of nothing but these sections, over and over, one in each packet.
void writeTableStream(const QString& path, const std::vector<CarriedSection>& sections);

} // namespace tessary::test
