#include "kit/oracle.h"

#include <cstdio>
#include <memory>
#include <QByteArray>
#include <QJsonArray>
#include <QJsonDocument>
#include <stdexcept>

namespace tessary::test {

namespace {

QByteArray outputOf(const std::string& command)
{
    const auto closePipe = [](std::FILE* pipe) { ::pclose(pipe); };
    const std::unique_ptr<std::FILE, decltype(closePipe)> pipe(::popen(command.c_str(), "r"), closePipe);
    if (pipe == nullptr)
        throw std::runtime_error("cannot start: " + command);
    QByteArray output;
    char chunk[65536];
    while (const std::size_t count = std::fread(chunk, 1, sizeof chunk, pipe.get()))
        output.append(chunk, static_cast<int>(count));
    return output;
}

} // namespace

QJsonObject oracleReport(const std::string& file)
{
    const QByteArray output =
        outputOf("/usr/bin/python3 '" + samplePath("oracle.py").value_or("oracle.py") + "' '" + file + "'");
    const QJsonObject reports = QJsonDocument::fromJson(output).object();
    if (reports.isEmpty())
        throw std::runtime_error("oracle.py gave no report for " + file);
    return reports.begin().value().toObject();
}

std::vector<OracleSection> oracleSections(const QJsonObject& report, int tableId)
{
    std::vector<OracleSection> found;
    for (const auto& value : report["sections"].toArray()) {
        const QJsonObject entry = value.toObject();
        const int id = entry["table_id"].toString().toInt(nullptr, 16);
        if (id != tableId || !entry["crc_ok"].toBool() || entry["current"].toInt(1) != 1)
            continue;
        const QByteArray bytes = QByteArray::fromHex(entry["hex"].toString().toLatin1());
        found.push_back({id, entry["tid_ext"].toInt(), entry["section"].toInt(),
            Bytes(bytes.begin(), bytes.end()), entry["decoded"].toObject()});
    }
    return found;
}

} // namespace tessary::test
