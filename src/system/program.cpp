#include "system/program.h"

#include <QProcess>
#include <QString>
#include <QStringList>

ProgramTexts runProgram(const std::string& commandLine)
{
    QStringList words = QProcess::splitCommand(QString::fromStdString(commandLine));
    if (words.isEmpty())
        return {};
    const QString program = words.takeFirst();
    QProcess process;
    process.start(program, words, QIODevice::ReadWrite);
    process.waitForFinished(-1);
    return {process.readAllStandardOutput().constData(), process.readAllStandardError().constData()};
}
