#include "otherreaders.h"

#include "kit/oracle.h"
#include "toolsuite.h"

#include <algorithm>
#include <map>
#include <set>

namespace tessary::test {

namespace {

// Each reader's words are brought into the same form: services are [id, name, provider], programs
// [number, PCR, [[PID, stream type], ...]], transport streams of the network [id, original network, services,
// deliveries].

constexpr int noPcr = 0x1FFF;

/// Without the control characters that some names carry, and that nobody can read.
QString readable(const QJsonValue& text)
{
    QString kept;
    for (const QChar character : text.toString()) {
        if (character.unicode() >= 0x20 && (character.unicode() < 0x80 || character.unicode() >= 0xA0))
            kept += character;
    }
    return kept;
}

QJsonArray sorted(const QJsonArray& array)
{
    std::vector<QJsonValue> values = elements(array);
    std::sort(values.begin(), values.end(), [](const QJsonValue& a, const QJsonValue& b) {
        return a.toArray()[0].toInt() < b.toArray()[0].toInt();
    });
    QJsonArray result;
    for (const QJsonValue& value : values)
        result.append(value);
    return result;
}

QJsonArray servicesOfTool(const QJsonObject& scan)
{
    QJsonArray services;
    for (const QJsonValue& service : elements(scan["services"]))
        services.append(QJsonArray{service["service_id"], service["name"], service["provider"]});
    return services;
}

QJsonArray servicesOfOracle(const QJsonObject& report)
{
    QJsonArray services;
    for (const OracleSection& section : oracleSections(report, 0x42)) {
        for (const QJsonValue& service : elements(section.decoded["services"]))
            services.append(
                QJsonArray{service["service_id"], readable(service["name"]), readable(service["provider"])});
    }
    return services;
}

QJsonArray programsOfTool(const QJsonObject& scan)
{
    QJsonArray programs;
    for (const QJsonValue& program : elements(scan["programs"])) {
        QJsonArray streams;
        for (const QJsonValue& stream : elements(program["streams"]))
            streams.append(QJsonArray{stream["pid"], stream["type"]});
        programs.append(QJsonArray{program["program"], program["pcr_pid"].toInt(noPcr), streams});
    }
    return sorted(programs);
}

QJsonArray programsOfOracle(const QJsonObject& report)
{
    QJsonArray programs;
    for (const OracleSection& section : oracleSections(report, 0x02)) {
        QJsonArray streams;
        for (const QJsonValue& stream : elements(section.decoded["streams"]))
            streams.append(QJsonArray{stream["pid"], stream["stream_type"].toString().toInt(nullptr, 16)});
        programs.append(QJsonArray{section.decoded["program"], section.decoded["pcr_pid"], streams});
    }
    return sorted(programs);
}

/// A number of so many bytes.
double numberAt(const QByteArray& bytes, int at, int count)
{
    return static_cast<double>(bytes.mid(at, count).toHex().toULongLong(nullptr, 16));
}

/// Hz, of the T2 delivery system descriptor (ETSI EN 300 468, 6.4.6.3), each once.
QJsonArray cellFrequencies(const QByteArray& descriptor)
{
    constexpr int cells = 6; // first byte behind extension, PLP, system and the two bytes of flags
    const bool frequencySlicing = (descriptor[5] & 1) != 0;
    EXPECT_FALSE(frequencySlicing) << "not expected in these streams";
    QJsonArray frequencies;
    for (int at = cells; at + 7 <= descriptor.size();) {
        const QJsonValue hertz = numberAt(descriptor, at + 2, 4) * 10;
        if (!frequencies.contains(hertz))
            frequencies.append(hertz);
        at += 7 + static_cast<unsigned char>(descriptor[at + 6]);
    }
    return frequencies;
}

/// What the delivery system descriptors say that the given streams carry.
QJsonArray deliveriesOfOracle(const QJsonValue& descriptors)
{
    QJsonArray deliveries;
    for (const QJsonValue& descriptor : elements(descriptors)) {
        const int tag = descriptor["tag"].toString().toInt(nullptr, 16);
        const QByteArray data = QByteArray::fromHex(descriptor["data"].toString().toLatin1());
        if (tag == 0x5A)
            deliveries.append(QJsonArray{"DVB-T", QJsonArray{numberAt(data, 0, 4) * 10}});
        else if (tag == 0x7F && data.startsWith(4))
            deliveries.append(QJsonArray{"DVB-T2", cellFrequencies(data)});
        EXPECT_FALSE(tag == 0x43 || tag == 0x44 || tag == 0x79) << "no recorded stream had it";
    }
    return deliveries;
}

/// Pairs of service_id and service_type of the service_list_descriptor.
QJsonArray listOfOracle(const QJsonValue& descriptors)
{
    QJsonArray services;
    for (const QJsonValue& descriptor : elements(descriptors)) {
        const QByteArray data = QByteArray::fromHex(descriptor["data"].toString().toLatin1());
        if (descriptor["tag"].toString() != "0x41")
            continue;
        for (int at = 0; at + 3 <= data.size(); at += 3)
            services.append(QJsonArray{numberAt(data, at, 2), numberAt(data, at + 2, 1)});
    }
    return services;
}

QJsonValue networkOfOracle(const QJsonObject& report)
{
    const auto sections = oracleSections(report, 0x40);
    if (sections.empty())
        return {};
    QJsonArray streams;
    for (const OracleSection& section : sections) {
        for (const QJsonValue& stream : elements(section.decoded["transport_streams"]))
            streams.append(QJsonArray{stream["ts_id"], stream["onid"], listOfOracle(stream["descriptors"]),
                deliveriesOfOracle(stream["descriptors"])});
    }
    const QJsonObject& first = sections.front().decoded;
    return QJsonArray{first["network_id"], readable(first["network_name"]), streams};
}

QJsonValue networkOfTool(const QJsonValue& network)
{
    if (network.isNull())
        return {};
    QJsonArray streams;
    for (const QJsonValue& stream : elements(network["transport_streams"])) {
        QJsonArray services;
        for (const QJsonValue& service : elements(stream["services"]))
            services.append(QJsonArray{service["service_id"], service["type"]});
        QJsonArray deliveries;
        for (const QJsonValue& delivery : elements(stream["delivery"]))
            deliveries.append(QJsonArray{delivery["system"], delivery["frequencies_hz"]});
        streams.append(
            QJsonArray{stream["transport_stream_id"], stream["original_network_id"], services, deliveries});
    }
    return QJsonArray{network["network_id"], network["name"], streams};
}

/// For the failure's text, and to compare what may be an array or nothing.
std::string textOf(const QJsonValue& value)
{
    return QJsonDocument(QJsonArray{value}).toJson(QJsonDocument::Compact).toStdString();
}

/// What a stream is: its stream_type, or instead of it, as ffprobe has it, the format_identifier of its
/// registration descriptor (ISO/IEC 13818-1, 2.6.8).
std::set<QString> tagsOf(const QJsonValue& stream)
{
    std::set<QString> tags{QString("0x%1").arg(stream["type"].toInt(), 4, 16, QChar('0'))};
    for (const QJsonValue& descriptor : elements(stream["descriptors"])) {
        QByteArray identifier = QByteArray::fromHex(descriptor["data"].toString().toLatin1()).left(4);
        std::reverse(identifier.begin(), identifier.end());
        if (descriptor["tag"].toInt() == 0x05)
            tags.insert("0x" + identifier.toHex());
    }
    return tags;
}

void expectStreamsAsFfprobeSays(const QJsonValue& program, const QJsonValue& probed)
{
    std::map<int, QString> found; // PID, codec tag
    for (const QJsonValue& stream : elements(probed["streams"]))
        found[stream["id"].toString().toInt(nullptr, 16)] = stream["codec_tag"].toString();
    EXPECT_EQ(program["pcr_pid"].toInt(noPcr), probed["pcr_pid"].toInt());
    EXPECT_EQ(elements(program["streams"]).size(), found.size());
    for (const QJsonValue& stream : elements(program["streams"])) {
        const int pid = stream["pid"].toInt();
        EXPECT_EQ(tagsOf(stream).count(found[pid]), 1U)
            << "PID " << pid << ": " << found[pid].toStdString() << " is none of " << textOf(stream);
    }
}

} // namespace

void expectAsTheOracleSays(const QJsonObject& scan, const QJsonObject& report)
{
    EXPECT_EQ(textOf(servicesOfTool(scan)), textOf(servicesOfOracle(report)));
    EXPECT_EQ(textOf(programsOfTool(scan)), textOf(programsOfOracle(report)));
    EXPECT_EQ(textOf(networkOfTool(scan["network"])), textOf(networkOfOracle(report)));
}

void expectAsFfprobeSays(const QJsonObject& scan, const QString& file)
{
    const CommandResult probe = runCommand("ffprobe", {"-v", "quiet", "-show_programs", "-of", "json", file});
    std::map<int, QJsonValue> probed;
    for (const QJsonValue& program : elements(QJsonDocument::fromJson(probe.output)["programs"]))
        probed[program["program_num"].toInt()] = program;
    ASSERT_FALSE(probed.empty()) << probe.errors.constData();
    for (const QJsonValue& program : elements(scan["programs"])) {
        SCOPED_TRACE(program["program"].toInt());
        expectStreamsAsFfprobeSays(program, probed[program["program"].toInt()]);
    }
    for (const QJsonValue& service : elements(scan["services"])) {
        const QJsonValue tags = probed[service["service_id"].toInt()]["tags"];
        EXPECT_EQ(service["name"].toString(), tags["service_name"].toString());
        EXPECT_EQ(service["provider"].toString(), tags["service_provider"].toString());
    }
}

void expectNamesInText(const QByteArray& text, const QJsonObject& report)
{
    for (const QJsonValue& service : servicesOfOracle(report))
        EXPECT_TRUE(text.contains(service[1].toString().toUtf8())) << text.constData();
}

} // namespace tessary::test
