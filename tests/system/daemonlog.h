#pragma once

#include <QByteArray>
#include <QString>

namespace tessary::test {

/// What a sanitizer wrote into the daemon's log: the report's first lines, or empty when there is none.
QByteArray sanitizerFinding(const QByteArray& log);

/// Options of one sanitizer for the daemon: those of the test's own environment, else `standard`, with the
/// suppressions `forLibraries` (a file, may be empty) where they name none. Files of suppressions are copied
/// into the folder that the instrument shares with the host, because the host's folders are not seen inside.
QString daemonSanitizerOptions(
    const char* variable, const QString& standard, const QString& forLibraries, const QString& sharedFolder);

} // namespace tessary::test
