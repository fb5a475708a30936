#include "client/tessaryctl/viewworker.h"

#include "client/answererror.h"
#include "client/lineerror.h"
#include "client/psi/mpegtsnames.h"
#include "client/streamqueries.h"
#include "client/tessaryctl/card.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/reading.h"
#include "client/tessaryctl/signalsblocked.h"
#include "client/tessaryctl/terminal.h"
#include "client/tessaryctl/waiting.h"

#include <utility>

namespace tessary::ctl {

using namespace client;

namespace {

/// Of the state of the player, where nothing is measured.
constexpr std::chrono::milliseconds pollInterval{1000};

/// For the tables of a scan; the NIT is the slowest, at least every 10 s.
constexpr double tablesWait = 12; // s

constexpr const char* firstQuestion = "asking the instrument";

constexpr int noProgram = 0; // playing it shows nothing

std::string busyText(const ViewOrder& order)
{
    switch (order.kind) {
    case ViewOrder::Kind::Scan:
        return "scanning";
    case ViewOrder::Kind::Play:
        return "starting program " + std::to_string(order.program);
    case ViewOrder::Kind::StartMeasuring:
        return "starting the measurement";
    case ViewOrder::Kind::StopMeasuring:
        return "ending the measurement";
    case ViewOrder::Kind::StartRecording:
        return "starting the recording";
    case ViewOrder::Kind::StopRecording:
        return "ending the recording";
    }
    return "";
}

} // namespace

ViewWorker::ViewWorker(Context& context, std::optional<StreamServer> server)
    : m_context(context)
    , m_server(std::move(server))
{
    post([](ViewModel& model) { model.busy = firstQuestion; }); // on the first screen already
    const SignalsBlocked blocked; // signals are the screen's business
    m_thread = std::thread([this] { run(); });
}

ViewWorker::~ViewWorker()
{
    m_stop = true;
    m_wake.notify_all();
    m_thread.join();
}

void ViewWorker::give(const ViewOrder& order)
{
    const std::lock_guard lock(m_mutex);
    m_order = order;
    m_news.push_back([text = busyText(order)](ViewModel& model) { model.busy = text; });
    m_wake.notify_all();
}

std::vector<ViewWorker::News> ViewWorker::takeNews()
{
    const std::lock_guard lock(m_mutex);
    return std::exchange(m_news, {});
}

void ViewWorker::post(News news)
{
    const std::lock_guard lock(m_mutex);
    m_news.push_back(std::move(news));
}

std::optional<ViewOrder> ViewWorker::awaitOrder()
{
    std::unique_lock lock(m_mutex);
    m_wake.wait_for(
        lock, m_measuring ? readingInterval : pollInterval, [this] { return m_order.has_value() || m_stop; });
    return std::exchange(m_order, std::nullopt);
}

void ViewWorker::run()
{
    attempt(firstQuestion, [this](Controller& controller) { lookAround(controller); });
    while (!m_stop) {
        const auto order = awaitOrder();
        if (m_stop)
            return;
        if (order.has_value())
            carryOut(*order);
        else
            attempt("", [this](Controller& controller) { poll(controller); });
    }
}

void ViewWorker::attempt(const std::string& busy, const std::function<void(Controller&)>& what)
{
    if (!busy.empty())
        post([busy](ViewModel& model) { model.busy = busy; });
    try {
        connect();
        what(*m_controller);
        answered();
    } catch (const Failure& failure) { // it answers, but has nothing of what was asked for
        answered();
        const std::string remedy = failure.remedy().empty() ? "" : "; " + failure.remedy();
        post([text = failure.what() + remedy, down = failure.code() == ExitCode::NoLink](ViewModel& model) {
            model.sayError(text);
            model.linkDown = down;
        });
    } catch (const LineError& error) {
        failed(error.what());
        if (error.kind() != LineError::Kind::TimedOut) {
            m_controller = nullptr;
            m_context.closeLine();
        }
    } catch (const std::exception& error) {
        failed(error.what());
    }
    if (!busy.empty())
        post([](ViewModel& model) { model.busy.clear(); });
}

void ViewWorker::failed(const std::string& what)
{
    m_failed = true;
    post([what](ViewModel& model) {
        model.sayError(what);
        model.unanswered = true;
    });
}

/// What was said of its silence holds no longer.
void ViewWorker::answered()
{
    if (!std::exchange(m_failed, false))
        return;
    post([](ViewModel& model) {
        model.message.clear();
        model.unanswered = false;
    });
}

void ViewWorker::connect()
{
    if (m_controller != nullptr)
        return;
    m_controller = &m_context.controller();
    if (m_server.has_value())
        m_controller->setServer(*m_server);
}

void ViewWorker::carryOut(const ViewOrder& order)
{
    using Kind = ViewOrder::Kind;
    attempt(busyText(order), [&](Controller& controller) {
        switch (order.kind) {
        case Kind::Scan:
            return scan(controller);
        case Kind::Play:
            return play(controller, order.program);
        case Kind::StartMeasuring:
            setMeasuring(true);
            return pollMeasurement(controller);
        case Kind::StopMeasuring:
            return setMeasuring(false);
        case Kind::StartRecording:
            beginRecording(controller, m_context.memory().source());
            m_recording = true;
            return pollPlayer(controller);
        case Kind::StopRecording:
            controller.stopRecording();
            m_recording = false;
            m_playing.reset();
            post([](ViewModel& model) { model.playing = 0; });
            return pollPlayer(controller);
        }
    });
}

void ViewWorker::setMeasuring(bool measuring)
{
    m_measuring = measuring;
    m_measurement = {};
    if (measuring)
        m_playing.reset(); // measuring stops playing
    post([measuring](ViewModel& model) {
        model.measuring = measuring;
        model.arrivals = {};
        if (measuring)
            model.playing = 0;
    });
}

/// What is known without disturbing anything.
void ViewWorker::lookAround(Controller& controller)
{
    pollPlayer(controller);
    const std::uint64_t size = controller.recordingSize();
    post([size](ViewModel& model) { model.recordingSize = size; });
    m_services = servicesNow(controller);
    const auto network = networkNow(controller);
    const auto program = programNow(controller);
    post([services = m_services, network, program](ViewModel& model) {
        if (services.has_value())
            model.setServices(*services);
        if (network.has_value())
            model.setNetwork(*network);
        if (program.has_value())
            model.setProgram(*program);
    });
}

void ViewWorker::scan(Controller& controller)
{
    setMeasuring(false);
    m_services.reset();
    m_playing.reset();
    m_recording = false;
    controller.scan();
    post([](ViewModel& model) {
        model.forgetStream();
        model.recording = false;
    });
    awaitTables(controller);
    if (m_services.has_value())
        collectPrograms(controller, *m_services);
    else if (!m_stop)
        throw Failure(ExitCode::Nothing, "no service list came", "m tells whether the stream arrives");
    pollPlayer(controller);
}

void ViewWorker::awaitTables(Controller& controller)
{
    const Deadline deadline(tablesWait);
    std::optional<NetworkTable> network;
    const auto complete = [](const auto& table) { return table.has_value() && table->complete; };
    while (!m_stop && !deadline.isOver() && !(complete(m_services) && complete(network))) {
        if (!complete(m_services))
            m_services = servicesNow(controller);
        if (!complete(network))
            network = networkNow(controller);
        post([services = m_services, network](ViewModel& model) {
            if (services.has_value())
                model.setServices(*services);
            if (network.has_value())
                model.setNetwork(*network);
        });
        sleepABit();
    }
}

/// The daemon tells the PMT of the program played last and of no other: each is played for a moment.
void ViewWorker::collectPrograms(Controller& controller, const ServiceTable& services)
{
    for (const auto& service : services.services.services) {
        if (m_stop)
            return;
        controller.play(service.id);
        const auto program = programNow(controller);
        if (program.has_value() && program->programNumber == service.id)
            post([program](ViewModel& model) { model.setProgram(*program); });
    }
    controller.play(noProgram);
}

void ViewWorker::play(Controller& controller, int program)
{
    constexpr double programWait = 5; // s
    setMeasuring(false);
    m_playing.reset();
    controller.play(program);
    post([program](ViewModel& model) {
        model.playing = program;
        model.presentation.reset();
    });
    for (const Deadline deadline(programWait); !m_stop && !m_playing.has_value(); sleepABit()) {
        m_playing = programNow(controller);
        if (!m_playing.has_value() && deadline.isOver())
            throw Failure(ExitCode::Nothing, "program " + std::to_string(program) + " does not come in",
                "s scans the stream, m tells whether it arrives");
    }
    if (m_playing.has_value())
        post([map = *m_playing](ViewModel& model) { model.setProgram(map); });
    pollPlayer(controller);
}

void ViewWorker::poll(Controller& controller)
{
    if (m_measuring)
        pollMeasurement(controller);
    else
        pollPlayer(controller);
}

void ViewWorker::pollMeasurement(Controller& controller)
{
    const auto news = m_measurement.read(controller);
    post([news](ViewModel& model) { model.setMeasurement(news.state, news.reading.figures, news.total); });
    if (!news.times.has_value())
        return;
    const auto statistics = statisticsOf(news.newTimes);
    post([statistics](ViewModel& model) { model.arrivals = statistics; });
}

void ViewWorker::pollPlayer(Controller& controller)
{
    const std::string player = controller.playerStatus();
    const bool recording = m_recording;
    std::optional<std::uint64_t> size;
    if (recording)
        size = controller.recordingSize();
    std::optional<Presentation> presentation;
    if (m_playing.has_value()) {
        const ServiceDescription::Service* own = nullptr;
        if (m_services.has_value()) {
            for (const auto& service : m_services->services.services)
                own = service.id == m_playing->programNumber ? &service : own;
        }
        presentation = presentationOf(*m_playing, controller.ebsDecoderInfo(), own);
    }
    post([player, recording, size, presentation](ViewModel& model) {
        model.player = player;
        model.recording = recording;
        model.recordingSize = size.value_or(model.recordingSize);
        model.presentation = presentation;
    });
}

} // namespace tessary::ctl
