#include "records.h"

#include <functional>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace tessary::test {

namespace {

void forEachLine(const QString& path, const std::function<void(const QJsonObject&)>& take)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine();
        if (line.endsWith('\n'))
            take(QJsonDocument::fromJson(line).object());
    }
}

std::int64_t timeOf(const QJsonObject& entry)
{
    return static_cast<std::int64_t>(entry["t"].toDouble());
}

LineEntry lineEntryOf(const QJsonObject& entry)
{
    return {timeOf(entry), entry["dir"].toString() == "from_daemon",
        QByteArray::fromHex(entry["hex"].toString().toLatin1())};
}

} // namespace

QString RecordedCommand::text() const
{
    const int option = arguments.indexOf("-c");
    if (kind == "shell" && option >= 0 && option + 1 < arguments.size())
        return arguments[option + 1];
    return arguments.join(' ');
}

std::vector<RecordedCommand> readCommands(const QString& path)
{
    std::vector<RecordedCommand> commands;
    forEachLine(path, [&](const QJsonObject& entry) {
        RecordedCommand command;
        command.time = timeOf(entry);
        command.parent = entry["parent"].toString();
        command.folder = entry["cwd"].toString();
        command.kind = entry["kind"].toString();
        for (const auto& argument : entry["argv"].toArray())
            command.arguments.append(argument.toString());
        commands.push_back(command);
    });
    return commands;
}

LineEntry readLineEntry(const QByteArray& line)
{
    return lineEntryOf(QJsonDocument::fromJson(line).object());
}

std::vector<LineEntry> readLineLog(const QString& path)
{
    std::vector<LineEntry> entries;
    forEachLine(path, [&](const QJsonObject& entry) { entries.push_back(lineEntryOf(entry)); });
    return entries;
}

} // namespace tessary::test
