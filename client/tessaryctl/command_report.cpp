// A measurement log as a page, and its summary: report.
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/logsummary.h"
#include "client/tessaryctl/reportpage.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <ostream>

namespace tessary::ctl {

namespace {

void writePage(const std::string& path, const std::string& page)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << page << std::flush;
    if (!file.good())
        throw Failure(ExitCode::LocalFile, "cannot write " + path + ": " + std::strerror(errno),
            "name a file in a folder that you may write to and that has room");
}

void report(Context& context, const std::string& path, const std::string& html)
{
    const MeasurementRecord log = readLog(path);
    const LogSummary summary = summaryOf(log);
    if (!html.empty())
        writePage(html, reportPage(log, summary, std::filesystem::path(path).filename().string()));
    if (context.json())
        return context.print(jsonOf(summary));
    context.out() << textOf(summary);
    if (!html.empty())
        context.out() << "page: " << html << '\n';
    context.out() << std::flush;
}

} // namespace

void addReport(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(app, context, "report",
        "Sum up a log of tessaryctl log, and make a page with plots of it (needs no instrument)");
    auto path = std::make_shared<std::string>();
    auto html = std::make_shared<std::string>();
    sub->add_option("log", *path, "file that tessaryctl log has written, CSV or JSON lines")
        ->required()
        ->type_name("FILE");
    sub->add_option("--html", *html, "write a page for a browser or printer, all in one file")
        ->type_name("FILE");
    sub->callback([&context, path, html] { report(context, *path, *html); });
}

} // namespace tessary::ctl
