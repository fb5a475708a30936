#include "daemonlog.h"

#include <algorithm>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

namespace tessary::test {

QByteArray sanitizerFinding(const QByteArray& log)
{
    constexpr int excerpt = 6000;
    int first = -1;
    for (const char* mark :
        {"ERROR: AddressSanitizer", "WARNING: ThreadSanitizer", "runtime error:", "ERROR: LeakSanitizer"}) {
        const int at = log.indexOf(mark);
        if (at >= 0 && (first < 0 || at < first))
            first = at;
    }
    return first < 0 ? QByteArray() : log.mid(std::max(0, first - 40), excerpt);
}

QString daemonSanitizerOptions(
    const char* variable, const QString& standard, const QString& forLibraries, const QString& sharedFolder)
{
    QString options = qEnvironmentVariable(variable, standard);
    if (!forLibraries.isEmpty() && !options.contains("suppressions="))
        options += ":suppressions=" + forLibraries;
    const QRegularExpressionMatch match = QRegularExpression("suppressions=([^:]+)").match(options);
    if (!match.hasMatch())
        return options;
    const QString file = match.captured(1);
    const QString name = QFileInfo(file).fileName();
    QFile::remove(sharedFolder + "/" + name);
    QFile::copy(file, sharedFolder + "/" + name);
    return options.replace("suppressions=" + file, "suppressions=/run/bench/" + name);
}

} // namespace tessary::test
