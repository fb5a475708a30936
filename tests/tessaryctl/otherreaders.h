#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>

namespace tessary::test {

// What the tool says of a stream against what independent readers find in the file that is sent.

/// "scan --json" or "info --json" after a scan, and the report of the reader beside the recorded streams:
/// services, programs with PIDs and stream types, network with delivery systems, frequencies and services.
void expectAsTheOracleSays(const QJsonObject& scan, const QJsonObject& report);

/// The same and ffprobe's reading of the file: names, PCR, PIDs and stream types. It is silent about
/// networks, and of programs without PMT it does not know the streams.
void expectAsFfprobeSays(const QJsonObject& scan, const QString& file);

/// The services of the report are named in the text, to the character.
void expectNamesInText(const QByteArray& text, const QJsonObject& report);

} // namespace tessary::test
