#include "client/panel/webserver.h"

#include "client/panel/answers.h"
#include "client/panel/deskroutes.h"
#include "client/panel/limitedserver.h"
#include "client/panel/tabletree.h"
#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/signalsblocked.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <thread>

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;
using httplib::Request;
using httplib::Response;

namespace {

constexpr std::size_t longestName = 60; // of who asks

/// Everything that the page shows comes from the panel. Inline styles and scripts are none of it.
constexpr const char* contentSecurityPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; media-src 'self' "
    "blob:; "
    "font-src 'self'; connect-src 'self'; base-uri 'none'; form-action 'self'; frame-ancestors 'none'";

httplib::Headers defaultHeaders()
{
    return {{"Content-Security-Policy", contentSecurityPolicy}, {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"}, {"Cross-Origin-Resource-Policy", "same-origin"},
        {"Cross-Origin-Opener-Policy", "same-origin"}, {"Cache-Control", "no-cache"}};
}

Asking askingOf(const Request& request)
{
    Asking asking;
    asking.method = request.method;
    asking.path = request.path;
    asking.host = request.get_header_value("Host");
    asking.origin = request.get_header_value("Origin");
    asking.fetchSite = request.get_header_value("Sec-Fetch-Site");
    asking.authorization = request.get_header_value("Authorization");
    asking.cookie = request.get_header_value("Cookie");
    asking.contentType = request.get_header_value("Content-Type");
    asking.contentEncoding = request.get_header_value("Content-Encoding");
    asking.contentLength = contentLengthOf(request);
    return asking;
}

/// Who asks: a name if one is given, and from where.
std::string whoOf(const Request& request, const Json& body)
{
    const auto name = body.find("who");
    const std::string given =
        name != body.end() && name->is_string() ? name->get<std::string>().substr(0, longestName) : "";
    return given.empty() ? request.remote_addr : given + " (" + request.remote_addr + ")";
}

std::optional<std::vector<std::string>> wordsOf(const Json& body)
{
    const auto words = body.find("words");
    if (words == body.end() || !words->is_array())
        return std::nullopt;
    std::vector<std::string> all;
    for (const Json& word : *words) {
        if (!word.is_string())
            return std::nullopt;
        all.push_back(word.get<std::string>());
    }
    return all;
}

/// Seconds since 1970 of a query's parameter, ISO 8601 or a number; `usual` when it is not there.
double timeOf(const Request& request, const char* name, double usual)
{
    const std::string text = request.get_param_value(name);
    if (text.empty())
        return usual;
    if (const auto time = ctl::parseIsoTime(text))
        return ctl::secondsOf(*time);
    return std::strtod(text.c_str(), nullptr);
}

/// A name alone, and that of a package.
bool isPackageName(const std::string& name)
{
    const bool plain = !name.empty() && name.size() < 200 && name.front() != '.'
        && name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._+~-")
            == std::string::npos;
    return plain && name.size() > 4 && name.compare(name.size() - 4, 4, ".deb") == 0;
}

/// An update's package is read when its turn comes; those of long ago are not wanted any more.
void dropOldUploads(const std::string& folder)
{
    constexpr std::size_t kept = 3;
    using Entry = std::filesystem::directory_entry;
    std::error_code error;
    std::vector<Entry> all;
    for (const Entry& entry : std::filesystem::directory_iterator(folder, error))
        all.push_back(entry);
    std::sort(all.begin(), all.end(), [](const Entry& one, const Entry& other) {
        std::error_code ignored;
        return one.last_write_time(ignored) > other.last_write_time(ignored);
    });
    for (std::size_t i = kept; i < all.size(); ++i)
        std::filesystem::remove(all[i], error);
}

/// A browser that gets the events.
struct Listener
{
    using Clock = std::chrono::steady_clock;

    Hub::Place place;
    Clock::time_point beat = Clock::now(); ///< when the next one is due

    std::chrono::milliseconds untilBeat() const
    {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(beat - Clock::now());
        return std::max(left, std::chrono::milliseconds(0));
    }
    /// Every two seconds an event that changes nothing: a page that hears none knows that the panel hangs.
    std::string dueBeat()
    {
        constexpr std::chrono::milliseconds interval{2000};
        if (Clock::now() < beat)
            return {};
        beat = Clock::now() + interval;
        const Json data{{"time", ctl::isoTime(std::chrono::system_clock::now())}};
        return "event: heartbeat\ndata: " + textOf(data) + "\n\n";
    }
};

} // namespace

class WebServer::Implementation
{
public:
    Implementation(const Parts& parts, WebSettings settings);
    ~Implementation();

    int port() const { return m_settings.port; }

private:
    void setUp();
    void addFiles();
    void addState();
    void addActions();
    void addReadings();
    void addTables();
    void addVirtualInstrument();
    void listen();

    httplib::Server::HandlerResponse letIn(const Request& request, Response& response);
    void showPage(const Request& request, Response& response);
    void sendEvents(Response& response);
    void run(const Request& request, Response& response);
    void await(Response& response, int id);
    void showTable(Response& response, Job job);
    void takeUpload(const Request& request, Response& response, const httplib::ContentReader& reader);

    Parts m_parts;
    WebSettings m_settings;
    Gate m_gate;
    std::atomic<bool> m_ends{false};
    std::mutex m_upload; ///< one at a time
    LimitedServer m_server;
    std::thread m_thread;
};

WebServer::Implementation::Implementation(const Parts& parts, WebSettings settings)
    : m_parts(parts)
    , m_settings(std::move(settings))
    , m_gate(GateSettings{})
    , m_server(m_settings.limits)
{
    setUp();
    addFiles();
    addState();
    addActions();
    addReadings();
    addTables();
    addVirtualInstrument();
    listen();
}

WebServer::Implementation::~Implementation()
{
    m_ends = true;
    m_parts.hub.close();
    m_server.end();
    m_thread.join();
}

void WebServer::Implementation::setUp()
{
    m_server.set_tcp_nodelay(true);
    m_server.set_payload_max_length(m_settings.gate.mostUploadBytes);
    m_server.set_default_headers(defaultHeaders());
    m_server.set_pre_routing_handler(
        [this](const Request& request, Response& response) { return letIn(request, response); });
    m_server.set_error_handler([](const Request& request, Response& response) {
        if (!response.body.empty() || response.status < 400)
            return;
        if (response.status == 404)
            refuse(response,
                {404, "there is no " + request.method + " " + request.path + " here",
                    "docs/api.md lists what there is"});
        else
            refuse(response,
                {response.status, "the request is damaged, or did not come whole", "send it again"});
    });
    m_server.set_exception_handler([](const Request&, Response& response, std::exception_ptr thrown) {
        try {
            std::rethrow_exception(thrown);
        } catch (const NotAllowed& error) {
            refuse(response, {403, error.what(), error.remedy()});
        } catch (const Failure& error) {
            refuse(response, {error.code() == ExitCode::Usage ? 400 : 500, error.what(), error.remedy()});
        } catch (const Json::exception& error) {
            refuse(response,
                {400, std::string("the request is not what the API takes: ") + error.what(),
                    "docs/api.md tells what it takes"});
        } catch (const std::exception& error) {
            refuse(response, {500, error.what(), ""});
        }
    });
}

void WebServer::Implementation::listen()
{
    const bool any = m_settings.port == 0;
    if (any)
        m_settings.port = m_server.bind_to_any_port(m_settings.address);
    const bool bound = any ? m_settings.port > 0 : m_server.bind_to_port(m_settings.address, m_settings.port);
    if (!bound)
        throw Failure(ExitCode::LocalFile,
            "cannot listen on " + m_settings.address + ":" + std::to_string(m_settings.port) + ": "
                + std::strerror(errno),
            "end what listens there, or name another address with --listen");
    m_server.letMoreWait();
    m_settings.gate.port = m_settings.port;
    m_gate = Gate(m_settings.gate);
    const ctl::SignalsBlocked blocked;
    m_thread = std::thread([this] { m_server.listen_after_bind(); });
    while (!m_server.is_running()) // else stop() may come before its begin
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

httplib::Server::HandlerResponse WebServer::Implementation::letIn(const Request& request, Response& response)
{
    const auto refusal = m_gate.check(askingOf(request));
    if (!refusal.has_value())
        return httplib::Server::HandlerResponse::Unhandled;
    refuse(response, *refusal);
    return httplib::Server::HandlerResponse::Handled;
}

void WebServer::Implementation::addFiles()
{
    m_server.Get("/", [this](const Request& request, Response& response) { showPage(request, response); });
    m_server.set_file_extension_and_mimetype_mapping("js", "text/javascript");
    m_server.set_mount_point("/app", m_settings.page + "/app");
    const auto library = [this](const char* name, const char* type) {
        m_server.Get(std::string("/lib/") + name,
            [path = m_settings.dygraphs + "/" + name, type](
                const Request&, Response& response) { sendFile(response, path, type); });
    };
    library("dygraph.min.js", "text/javascript");
    library("dygraph.min.css", "text/css");
}

void WebServer::Implementation::showPage(const Request& request, Response& response)
{
    if (request.has_param("token")) {
        const std::string token = request.get_param_value("token");
        if (!m_gate.isToken(token))
            return refuse(response, {401, "the token is wrong", "ask the panel's operator for it"});
        response.set_header("Set-Cookie",
            std::string(Gate::cookieName) + "=" + token + "; HttpOnly; SameSite=Strict; Path=/");
        return response.set_redirect("/", 303); // the token does not stay in the address line
    }
    sendFile(response, m_settings.page + "/index.html", "text/html; charset=utf-8");
}

void WebServer::Implementation::addState()
{
    m_server.Get(
        "/api/state", [this](const Request&, Response& response) { answer(response, m_parts.hub.state()); });
    m_server.Get("/api/events", [this](const Request&, Response& response) { sendEvents(response); });
    m_server.Get("/api/openapi.json", [this](const Request&, Response& response) {
        sendFile(response, m_settings.description, "application/json");
    });
    m_server.Get("/metrics", [this](const Request&, Response& response) {
        response.set_content(m_parts.metrics.text(m_parts.hub.state()),
            "application/openmetrics-text; version=1.0.0; charset=utf-8");
    });
}

void WebServer::Implementation::sendEvents(Response& response)
{
    response.set_header("X-Accel-Buffering", "no");
    const auto listener = std::make_shared<Listener>();
    response.set_chunked_content_provider(
        "text/event-stream", [this, listener](std::size_t, httplib::DataSink& sink) {
            const auto news = m_parts.hub.await(listener->place, listener->untilBeat());
            if (!news.has_value()) {
                sink.done();
                return true;
            }
            const std::string text = *news + listener->dueBeat();
            return text.empty() || sink.write(text.data(), text.size());
        });
}

void WebServer::Implementation::addActions()
{
    m_server.Post("/api/run", [this](const Request& request, Response& response) { run(request, response); });
    m_server.Delete(R"(/api/run/(\d{1,9}))", [this](const Request& request, Response& response) {
        if (m_parts.jobs.end(std::stoi(request.matches[1])))
            return answer(response, {{"id", std::stoi(request.matches[1])}}, 202);
        refuse(response, {404, "this command has ended, or never was", ""});
    });
    m_server.Post("/api/measure", [this](const Request& request, Response& response) {
        const bool on = Json::parse(request.body).at("on").get<bool>();
        m_parts.worker.measure(on);
        answer(response, {{"on", on}}, 202);
    });
    m_server.Post(Gate::uploadPath,
        [this](const Request& request, Response& response, const httplib::ContentReader& reader) {
            takeUpload(request, response, reader);
        });
}

void WebServer::Implementation::run(const Request& request, Response& response)
{
    const Json body = Json::parse(request.body);
    const auto words = wordsOf(body);
    if (!words.has_value())
        return refuse(response,
            {400, "there are no words",
                R"(send {"words": ["scan"]}, a command line without the program's name)"});
    checkedCommand(*words, m_settings.allowed, m_settings.uploads);
    Job job;
    job.words = *words;
    job.who = whoOf(request, body);
    const auto id = m_parts.jobs.add(job);
    if (!id.has_value())
        return refuse(response, {503, "too many commands wait already", "wait until some have ended"});
    if (request.get_param_value("wait") == "1")
        return await(response, *id);
    answer(response, {{"id", *id}}, 202);
}

void WebServer::Implementation::await(Response& response, int id)
{
    const auto done = m_parts.jobs.awaitDone(id, [this] { return !m_ends; });
    if (done.has_value())
        return answer(response, *done);
    refuse(response, {503, "the panel ends", ""});
}

void WebServer::Implementation::takeUpload(
    const Request& request, Response& response, const httplib::ContentReader& reader)
{
    if (!m_settings.allowed.update || m_settings.uploads.empty())
        return refuse(response,
            {403, "updates are not allowed here",
                "the panel's operator allows it with tessary-panel --allow-update"});
    const std::string name = request.get_param_value("name");
    if (!isPackageName(name))
        return refuse(response,
            {400, "\"" + name + "\" is no name of a Debian package", "such as ?name=tessary_1.5_arm64.deb"});
    const std::unique_lock alone(m_upload, std::try_to_lock);
    if (!alone.owns_lock())
        return refuse(response, {503, "another package is being uploaded", "wait until it is there"});
    dropOldUploads(m_settings.uploads);
    const std::string path = m_settings.uploads + "/" + name;
    const std::string partial = m_settings.uploads + "/.partial-" + name;
    std::ofstream file(partial, std::ios::binary | std::ios::trunc);
    const bool taken = reader([&](const char* data, std::size_t size) {
        file.write(data, static_cast<std::streamsize>(size));
        return file.good();
    });
    file.close();
    std::error_code error;
    if (taken && file.good())
        std::filesystem::rename(partial, path, error);
    if (!taken || !file.good() || error) {
        std::filesystem::remove(partial, error);
        return refuse(
            response, {400, "the package did not come whole, or there is no room for it", "send it again"});
    }
    answer(response, {{"file", path}});
}

void WebServer::Implementation::addReadings()
{
    m_server.Get("/api/history", [this](const Request& request, Response& response) {
        const double now = ctl::secondsOf(std::chrono::system_clock::now());
        const std::string points = request.get_param_value("points");
        const int most = points.empty() ? 2000 : std::clamp(std::atoi(points.c_str()), 2, 100000);
        answer(response,
            m_parts.history.between(
                timeOf(request, "from", now - 3600), timeOf(request, "to", now + 1), most));
    });
    m_server.Get("/api/history.csv", [this](const Request& request, Response& response) {
        const double now = ctl::secondsOf(std::chrono::system_clock::now());
        response.set_header("Content-Disposition", "attachment; filename=\"history.csv\"");
        response.set_content(
            m_parts.history.csv(timeOf(request, "from", now - 24 * 3600), timeOf(request, "to", now + 1)),
            "text/csv; charset=utf-8");
    });
}

/// Asks for a table in turn with all else, and takes it apart.
void WebServer::Implementation::addTables()
{
    using Table = std::pair<const char*, Job::Task>;
    const std::vector<Table> tables{
        {"sdt", [](client::Controller& controller) { return treeOfSections(controller.streamInfo()); }},
        {"nit",
            [](client::Controller& controller) { return treeOfSections(controller.networkInformation()); }},
        {"pmt", [](client::Controller& controller) { return treeOfSections(controller.programMap()); }},
        {"t2mi", [](client::Controller& controller) { return treeOfT2mi(controller.t2miFrame()); }}};
    for (const auto& [name, task] : tables) {
        m_server.Get(std::string("/api/table/") + name,
            [this, words = std::vector<std::string>{"table", name}, task = task](
                const Request& request, Response& response) {
                Job job;
                job.words = words;
                job.task = task;
                job.who = request.remote_addr;
                showTable(response, std::move(job));
            });
    }
}

void WebServer::Implementation::showTable(Response& response, Job job)
{
    const auto id = m_parts.jobs.add(std::move(job));
    const auto done = id.has_value() ? m_parts.jobs.awaitDone(*id, [this] { return !m_ends; }) : std::nullopt;
    if (!done.has_value())
        return refuse(response, {503, "too many commands wait already, or the panel ends", "try again"});
    const Json& result = done->at("result");
    if (done->at("status") != 0)
        return answer(response, result, 502);
    if (result.at("hex").get_ref<const std::string&>().empty())
        return refuse(
            response, {404, "the instrument has no such table", "scan the stream, or play a program"});
    answer(response, result);
}

void WebServer::Implementation::addVirtualInstrument()
{
    if (m_parts.desk == nullptr)
        return addRealInstrumentRoutes(m_server);
    addDeskRoutes(m_server, *m_parts.desk);
    addDisplayRoutes(m_server, {*m_parts.display, m_parts.hub, m_ends});
    addSoundRoute(m_server, m_parts.sound, m_ends);
}

WebServer::WebServer(const Parts& parts, WebSettings settings)
    : m_implementation(std::make_unique<Implementation>(parts, std::move(settings)))
{
}

WebServer::~WebServer() = default;

int WebServer::port() const
{
    return m_implementation->port();
}

} // namespace tessary::panel
