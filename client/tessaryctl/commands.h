#pragma once

#include <CLI/App.hpp>
#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>
#include <string>

namespace tessary::ctl {

class Context;

/// Each adds its sub-command to `app`. The sub-command runs when the arguments have been parsed, and reports
/// what it can not do as Failure, LineError or AnswerError. `context` must outlive `app`.
void addVersion(CLI::App& app, Context& context);
void addStatus(CLI::App& app, Context& context);
void addServer(CLI::App& app, Context& context);
void addScan(CLI::App& app, Context& context);
void addInfo(CLI::App& app, Context& context);
void addPlay(CLI::App& app, Context& context);
void addSendTs(CLI::App& app, Context& context);
void addMeasure(CLI::App& app, Context& context);
void addIat(CLI::App& app, Context& context);
void addLog(CLI::App& app, Context& context);
void addReport(CLI::App& app, Context& context);
void addView(CLI::App& app, Context& context);
void addInterface(CLI::App& app, Context& context);
void addPing(CLI::App& app, Context& context);
void addRecord(CLI::App& app, Context& context);
void addExport(CLI::App& app, Context& context);
void addUpdate(CLI::App& app, Context& context);
void addDab(CLI::App& app, Context& context);
void addT2miFrame(CLI::App& app, Context& context);
void addEbs(CLI::App& app, Context& context);
void addCommand(CLI::App& app, Context& context);
void addRaw(CLI::App& app, Context& context);
void addSchema(CLI::App& app, Context& context);

/// A check for a number from `least` to `most`, which does not crowd the help.
template <typename Number> CLI::Validator between(Number least, Number most)
{
    return CLI::Range(least, most).description("");
}

/// A sub-command with the options that all share (--port, --timeout, --json).
CLI::App* addSubcommand(
    CLI::App& app, Context& context, const std::string& name, const std::string& description);

} // namespace tessary::ctl
