#include "jsoncontract.h"

#include "toolsuite.h"

#include <algorithm>
#include <map>
#include <valijson/adapters/qtjson_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

namespace tessary::test {

namespace {

using Adapter = valijson::adapters::QtJsonAdapter;

QStringList schemaNames()
{
    static const QStringList names =
        QString::fromUtf8(runCommand(toolPath(), {"schema"}).output).split('\n', Qt::SkipEmptyParts);
    return names;
}

const valijson::Schema& schemaOf(const QString& name)
{
    static std::map<QString, valijson::Schema> schemas;
    const auto [found, added] = schemas.try_emplace(name);
    if (added) {
        const QByteArray text = runCommand(toolPath(), {"schema", name}).output;
        const QJsonValue value = QJsonDocument::fromJson(text).object();
        EXPECT_TRUE(value.toObject().contains("$schema")) << name.toStdString() << ": " << text.constData();
        valijson::SchemaParser().populateSchema(Adapter(value), found->second);
    }
    return found->second;
}

/// The document that the sub-command among `arguments` prints.
QString documentOf(const QStringList& arguments)
{
    const QStringList names = schemaNames();
    const auto isCommand = [&](const QString& word) {
        return !word.startsWith('-') && std::any_of(names.begin(), names.end(), [&](const QString& name) {
            return name == word || name.startsWith(word + "-");
        });
    };
    const auto command = std::find_if(arguments.begin(), arguments.end(), isCommand);
    if (command == arguments.end())
        return "overview";
    for (const char* option : {"--watch", "--survey", "--leave"}) {
        if (arguments.contains(option))
            return *command + QString(option).mid(1);
    }
    const QString longer = std::next(command) != arguments.end() ? *command + "-" + *std::next(command) : "";
    return names.contains(longer) ? longer : *command;
}

void expectValid(const QString& name, const QJsonObject& document)
{
    const QJsonValue value = document;
    valijson::ValidationResults findings;
    valijson::Validator(valijson::Validator::kStrongTypes)
        .validate(schemaOf(name), Adapter(value), &findings);
    for (valijson::ValidationResults::Error finding; findings.popError(finding);) {
        std::string place;
        for (const std::string& step : finding.context)
            place += step;
        ADD_FAILURE() << name.toStdString() << " " << place << ": " << finding.description << "\n"
                      << QJsonDocument(document).toJson().constData();
    }
}

/// One document, or one a line.
std::vector<QJsonObject> documentsIn(const QByteArray& output)
{
    QJsonParseError error{};
    const QJsonDocument whole = QJsonDocument::fromJson(output, &error);
    if (error.error == QJsonParseError::NoError)
        return {whole.object()};
    std::vector<QJsonObject> documents;
    for (const QByteArray& line : output.trimmed().split('\n')) {
        documents.push_back(QJsonDocument::fromJson(line, &error).object());
        EXPECT_EQ(error.error, QJsonParseError::NoError) << output.constData();
    }
    return documents;
}

QString kindOf(int status)
{
    static const std::map<int, QString> kinds{{1, "internal"}, {2, "usage"}, {3, "no-instrument"},
        {4, "timed-out"}, {5, "hung-up"}, {6, "nothing"}, {7, "no-link"}, {8, "bad-answer"},
        {9, "local-file"}, {10, "card-full"}, {11, "would-destroy"}, {12, "command-failed"},
        {130, "interrupted"}, {20, "update-not-started"}, {21, "update-refused"}, {22, "update-bytes-lost"},
        {23, "update-restarted"}, {24, "update-unconfirmed"}, {30, "limit-crossed"}};
    const auto found = kinds.find(status);
    return found != kinds.end() ? found->second : "none";
}

} // namespace

void expectContract(const QStringList& arguments, const CommandResult& result)
{
    SCOPED_TRACE(arguments.join(' ').toStdString());
    const auto documents = documentsIn(result.output);
    ASSERT_FALSE(documents.empty());
    const bool failed = result.status != 0;
    const QString name = documentOf(arguments);
    for (auto document = documents.begin(); document != documents.end(); ++document)
        expectValid(failed && std::next(document) == documents.end() ? "error" : name, *document);
    const QString kind = documents.back()["error"]["kind"].toString();
    EXPECT_EQ(kind, failed ? kindOf(result.status) : QString());
}

} // namespace tessary::test
