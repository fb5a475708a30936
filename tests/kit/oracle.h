#pragma once

#include "kit/samples.h"

#include <QJsonObject>
#include <string>
#include <vector>

namespace tessary::test {

/// What the independent reader beside the samples says of a stream, as its JSON report for that file.
/// Throws std::runtime_error when the reader fails.
QJsonObject oracleReport(const std::string& file);

/// One distinct section that the reader found, in order of first appearance.
struct OracleSection
{
    int tableId = 0;
    int extension = 0;
    int number = 0;
    Bytes bytes;
    QJsonObject decoded;
};

/// The sections with right CRC_32 and current_next_indicator 1 of one table.
std::vector<OracleSection> oracleSections(const QJsonObject& report, int tableId);

} // namespace tessary::test
