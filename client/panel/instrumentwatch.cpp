#include "client/panel/instrumentwatch.h"

#include "client/panel/commandline.h"
#include "client/serverspec.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/jsonvalue.h"
#include "client/tessaryctl/reading.h"

namespace tessary::panel {

using namespace client;
using Clock = std::chrono::steady_clock;
using ctl::ExitCode;
using ctl::Failure;
using ctl::MeasurementLog;

namespace {

// A silent instrument is shown within two seconds: a question each second, and no longer a wait for its answer.
constexpr double patience = 0.9; // s
constexpr Milliseconds pollInterval{1000};
constexpr Milliseconds retryInterval{500};
constexpr std::chrono::seconds interfaceInterval{10}; // three programs run on the instrument for it
constexpr int mostStillSizes = 10; // of a recording that goes on: one each second
constexpr std::size_t bins = 40;
constexpr std::size_t marksKept = 200;

const char* wordOf(PeriodWatch::State state)
{
    switch (state) {
    case PeriodWatch::State::Absent:
        return "absent";
    case PeriodWatch::State::Settling:
        return "settling";
    case PeriodWatch::State::Valid:
        break;
    }
    return "valid";
}

std::string now()
{
    return ctl::isoTime(std::chrono::system_clock::now());
}

Json histogramJson(const std::vector<std::int64_t>& times)
{
    Json histogram = Json::array();
    for (const auto& bin : histogramOf(times, bins))
        histogram.push_back(
            {{"from_us", bin.from}, {"to_us", bin.to}, {"count", bin.count}, {"outliers", bin.outliers}});
    return histogram;
}

bool isOfTheLine(ExitCode code)
{
    return code == ExitCode::NoInstrument || code == ExitCode::TimedOut || code == ExitCode::HungUp
        || code == ExitCode::BadAnswer || code == ExitCode::Internal || code == ExitCode::Interrupted;
}

Json withoutTime(Json value)
{
    if (value.is_object())
        value.erase("time");
    return value;
}

} // namespace

void addMark(Hub& hub, const std::string& text)
{
    hub.append("marks", Json::array({{{"time", now()}, {"text", text}}}), marksKept);
}

InstrumentWatch::InstrumentWatch(
    Hub& hub, History& history, ctl::Session& session, std::string port, bool virtualOne)
    : m_hub(hub)
    , m_history(history)
    , m_session(session)
    , m_port(std::move(port))
    , m_context(session)
    , m_instrument{{"version", nullptr}, {"software", nullptr}, {"fpga", nullptr}, {"server", nullptr},
          {"server_time", nullptr}, {"interface", nullptr}, {"player", nullptr}, {"starts_seen", 0},
          {"virtual", virtualOne}}
{
    m_context.options.port = m_port;
    m_hub.set("instrument", m_instrument);
    m_hub.set("stream", nullptr);
    m_hub.set("play", nullptr);
    measure(false);
    setRecording(false);
}

Controller& InstrumentWatch::controller()
{
    if (m_controller == nullptr)
        m_controller = &m_context.controller(patience);
    return *m_controller;
}

std::chrono::milliseconds InstrumentWatch::pause() const
{
    return m_controller == nullptr ? retryInterval : m_measuring ? ctl::readingInterval : pollInterval;
}

/// A question as a command line, so that its JSON is the tool's own; null when the instrument has nothing of it.
Json InstrumentWatch::ask(const std::vector<std::string>& words)
{
    std::vector<std::string> line = words;
    line.insert(line.end(), {"--timeout", "0.9"});
    m_controller = nullptr;
    const Outcome outcome =
        runCommandLine(m_session, m_port, line, [](const std::string&, std::optional<double>) {});
    if (outcome.status == 0)
        return outcome.result;
    const auto code = static_cast<ExitCode>(outcome.status);
    if (isOfTheLine(code)) {
        const Json& error = outcome.result.at("error");
        throw Failure(code, error.at("cause").get<std::string>(), error.at("remedy").get<std::string>());
    }
    return {};
}

void InstrumentWatch::poll()
{
    if (!m_known)
        lookAround();
    const auto moment = Clock::now();
    if (moment >= m_interfaceDue)
        askInterface();
    if (moment >= m_playerDue)
        pollPlayer();
    if (m_measuring)
        pollMeasurement();
    noticeStarts();
}

void InstrumentWatch::lookAround()
{
    const Json version = ask({"version"});
    m_instrument["version"] = version.at("software");
    m_instrument["software"] = version.at("software");
    m_instrument["fpga"] = {{"built", version.at("fpga_built")},
        {"configured", version.at("fpga_configured")}, {"problem", version.at("fpga_problem")}};
    m_hub.set("stream", ask({"info"}));
    m_interfaceDue = {};
    m_playerDue = {};
    m_known = true;
    tellInstrument();
}

void InstrumentWatch::noticeStarts()
{
    const int starts = m_session.memory().startsSeen();
    if (starts == m_starts)
        return;
    m_starts = starts;
    m_known = false;
    m_instrument["starts_seen"] = m_instrument["starts_seen"].get<int>() + 1;
    m_hub.set("play", nullptr);
    setRecording(false);
    addMark(m_hub, "the instrument has started");
    tellInstrument();
}

void InstrumentWatch::askInterface()
{
    m_instrument["interface"] =
        withoutTime(ask({"interface", "status"})); // else each answer would be another one
    m_interfaceDue = Clock::now() + interfaceInterval;
    tellInstrument();
}

void InstrumentWatch::tellInstrument()
{
    if (m_known) // else there is no memory of this port yet
        m_instrument.update(ctl::jsonOfServer(m_session.memory()));
    m_hub.set("instrument", m_instrument);
}

void InstrumentWatch::pollPlayer()
{
    m_instrument["player"] = controller().playerStatus();
    tellInstrument();
    noteRecordingSize(controller().recordingSize());
    m_playerDue = Clock::now() + pollInterval;
}

void InstrumentWatch::setRecording(bool recording)
{
    m_recording = recording;
    m_recordingBytes.reset(); // what has grown until now grew before
    m_stillSizes = 0;
    tellRecorder();
}

/// The instrument does not tell whether it records, but the recording grows: also one that was begun before the panel was
/// there. It ends by itself when the card is full.
void InstrumentWatch::noteRecordingSize(std::uint64_t bytes)
{
    const bool grows = m_recordingBytes.has_value() && bytes > *m_recordingBytes;
    m_stillSizes = grows ? 0 : m_stillSizes + 1;
    if (grows || m_stillSizes > mostStillSizes)
        m_recording = grows;
    m_recordingBytes = bytes;
    tellRecorder();
}

void InstrumentWatch::tellRecorder()
{
    const Json known = m_hub.valueOf("recorder");
    const Json bytes = m_recordingBytes.has_value() ? Json(*m_recordingBytes)
        : known.is_null()                           ? Json()
                                                    : known.at("bytes");
    m_hub.set("recorder", {{"recording", m_recording}, {"bytes", bytes}});
}

void InstrumentWatch::measure(bool on)
{
    if (on != m_measuring && !on)
        endLog("the measurement was ended");
    m_measuring = on;
    m_measurement = {};
    m_hub.set("measurement",
        {{"time", now()}, {"measuring", on}, {"state", "absent"}, {"link", nullptr}, {"figures", nullptr},
            {"since_start", nullptr}, {"inter_arrival", nullptr}});
    m_hub.set("arrivals", nullptr);
    if (!on)
        return;
    m_hub.set("play", nullptr); // measuring stops playing
    startLog();
}

void InstrumentWatch::startLog()
{
    ctl::LogSettings settings;
    if (m_known && m_session.memory().server().has_value())
        settings.server = parseServer({m_session.memory().server()->url});
    m_log = std::make_unique<MeasurementLog>(
        settings, [this](const ctl::LogEntry& entry) { m_history.add(entry); });
    m_log->start(MeasurementLog::Moment::now(), std::nullopt);
}

void InstrumentWatch::endLog(const std::string& reason)
{
    if (m_log != nullptr)
        m_log->end(MeasurementLog::Moment::now(), reason);
    m_log.reset();
}

void InstrumentWatch::serverChanged()
{
    tellInstrument();
    if (m_measuring)
        measure(true);
}

void InstrumentWatch::pollMeasurement()
{
    const auto news = m_measurement.read(controller());
    if (m_hub.valueOf("measurement").at("link") == false)
        m_interfaceDue = {}; // it has one again
    const auto wall = std::chrono::system_clock::now();
    if (m_log->add(news.reading, wall) && news.times.has_value())
        m_log->addArrivals(*news.times, Clock::now());
    const Json before = m_hub.valueOf("measurement");
    const bool present = news.state != PeriodWatch::State::Absent;
    m_hub.set("measurement",
        {{"time", news.times.has_value() || !present ? Json(now()) : before.at("time")}, {"measuring", true},
            {"state", wordOf(news.state)}, {"link", true}, {"figures", ctl::jsonOf(news.reading.figures)},
            {"since_start", ctl::jsonOf(news.total)},
            {"inter_arrival",
                news.times.has_value() ? ctl::jsonOf(statisticsOf(news.newTimes))
                                       : before.at("inter_arrival")}});
    if (news.times.has_value())
        tellArrivals(news);
}

void InstrumentWatch::tellArrivals(const ctl::MeasurementPoll::News& news)
{
    m_hub.set("arrivals",
        {{"time", now()}, {"times_us", news.newTimes}, {"histogram", histogramJson(*news.times)},
            {"inter_arrival", ctl::jsonOf(statisticsOf(news.newTimes))}});
}

void InstrumentWatch::lost(const Failure& failure)
{
    if (!m_measuring)
        return;
    const bool link = failure.code() != ExitCode::NoLink;
    m_log->lost(link ? MeasurementLog::Loss::Answer : MeasurementLog::Loss::Link,
        MeasurementLog::Moment::now(), failure.what());
    m_measurement = {};
    if (!link && m_hub.valueOf("measurement").at("link") != false)
        m_interfaceDue = {}; // it is told at once that the link is gone
    m_hub.set("measurement",
        {{"time", now()}, {"measuring", true}, {"state", "absent"}, {"link", link ? Json() : Json(false)},
            {"figures", nullptr}, {"since_start", nullptr}, {"inter_arrival", nullptr}});
}

} // namespace tessary::panel
