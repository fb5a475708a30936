#include "client/panel/panel.h"

#include "client/tessaryctl/failure.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace tessary::panel {

using ctl::ExitCode;
using ctl::Failure;

namespace {

std::string tokenOf(const Options& options)
{
    if (options.tokenFile.empty())
        return {};
    std::ifstream file(options.tokenFile);
    std::string token;
    std::getline(file, token);
    constexpr std::size_t shortest = 8;
    if (token.size() < shortest || token.find_first_of(" ;,\t\"\\") != std::string::npos)
        throw Failure(ExitCode::LocalFile, options.tokenFile + " holds no token",
            "its first line must have 8 characters or more, without blanks, commas, semicolons and quotation "
            "marks");
    return token;
}

/// A folder of this run alone; empty when packages are not taken.
std::string uploadFolder(const Options& options)
{
    if (!options.allowed.update)
        return {};
    std::string folder = (std::filesystem::temp_directory_path() / "tessary-panel.XXXXXX").string();
    if (::mkdtemp(folder.data()) == nullptr)
        throw Failure(ExitCode::LocalFile, "cannot make a folder for packages in " + folder, "set TMPDIR");
    return folder;
}

/// What a virtual instrument calls its port, which need not be there yet; what it tells lies beside it.
bool isVirtual(const std::string& port)
{
    const std::filesystem::path path(port);
    return path.filename() == "controller" || std::filesystem::exists(path.parent_path() / "line.log");
}

WebSettings webSettings(const Options& options, const std::string& uploads)
{
    WebSettings settings;
    settings.address = options.address();
    settings.port = options.httpPort();
    settings.page = options.page;
    settings.description = options.description;
    settings.dygraphs = options.dygraphs;
    settings.uploads = uploads;
    settings.allowed = options.allowed;
    settings.limits = options.limits;
    settings.gate.local = options.isLocal();
    settings.gate.token = tokenOf(options);
    settings.gate.mostUploadBytes = options.uploadLimit * 1024 * 1024;
    return settings;
}

} // namespace

Panel::Panel(const Options& options)
    : m_address(options.address())
    , m_jobs(m_hub)
    , m_history(options.history)
    , m_lineLog(m_hub)
    , m_uploads(uploadFolder(options))
{
    const WebSettings settings = webSettings(options, m_uploads);
    m_hub.set("panel",
        {{"version", TESSARY_VERSION},
            {"allows", {{"command", options.allowed.command}, {"update", options.allowed.update}}},
            {"upload_limit_bytes", settings.gate.mostUploadBytes}});
    if (isVirtual(options.port))
        setUpVirtualInstrument(options);
    m_worker = std::make_unique<Worker>(
        Worker::Parts{m_hub, m_jobs, m_history, m_lineLog, m_metrics}, options.port, m_desk != nullptr);
    const std::filesystem::path folder = std::filesystem::path(options.port).parent_path();
    m_server = std::make_unique<WebServer>(WebServer::Parts{m_hub, m_jobs, *m_worker, m_history, m_metrics,
                                               m_desk.get(), m_display.get(), folder / "io" / "sound.wav"},
        settings);
    m_ticker = std::make_unique<Ticker>([this] { tick(); });
}

void Panel::setUpVirtualInstrument(const Options& options)
{
    const std::filesystem::path folder = std::filesystem::path(options.port).parent_path();
    m_desk = std::make_unique<Desk>(
        m_hub, Desk::Places{folder, options.instrument, options.sender, options.streams});
    m_display = std::make_unique<Display>(folder / "io");
    m_logs = std::make_unique<InstrumentLogs>(m_hub, folder);
}

void Panel::tick()
{
    m_lineLog.flush();
    if (m_logs != nullptr)
        m_logs->follow();
    if (m_display != nullptr)
        m_display->rest();
}

Panel::~Panel()
{
    m_ticker.reset();
    m_server.reset();
    m_worker.reset();
    std::error_code ignored;
    if (!m_uploads.empty())
        std::filesystem::remove_all(m_uploads, ignored);
}

std::string Panel::address() const
{
    return m_address + ":" + std::to_string(m_server->port());
}

} // namespace tessary::panel
