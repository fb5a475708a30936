#include "client/panel/commandline.h"

#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/interrupt.h"
#include "client/tessaryctl/program.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

namespace tessary::panel {

using ctl::Context;
using ctl::Failure;

namespace {

constexpr const char* remedyForCommand = "the panel's operator allows it with tessary-panel --allow-command";
constexpr const char* remedyForUpdate = "the panel's operator allows it with tessary-panel --allow-update";

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

/// The daemon gives some arguments to its shell. These characters mean nothing to one.
bool isPlain(const std::string& text)
{
    return std::all_of(text.begin(), text.end(), [](unsigned char c) {
        return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z')
            || std::string_view(" .,:=?_-+/%@").find(static_cast<char>(c)) != std::string_view::npos;
    });
}

/// EBS commands begin with "!" and never reach a shell.
bool isEbs(const std::string& text)
{
    return text.rfind('!', 0) == 0
        && std::all_of(text.begin(), text.end(), [](char c) { return c >= ' ' && c <= '~' && c != '\\'; });
}

bool begins(const std::string& text, const char* start)
{
    return text.rfind(start, 0) == 0;
}

void checkRaw(const ctl::AskedFor& asked, const Allowed& allowed)
{
    const auto text = asked.values.find("text");
    const std::string sent = text == asked.values.end() ? "" : joined(text->second);
    if (begins(sent, "update") && !allowed.update)
        throw NotAllowed("updates are not allowed here", remedyForUpdate);
    // A ping without count never ends, and the instrument with it.
    const bool harmless = asked.values.count("hex") == 0 && !begins(sent, "command") && !begins(sent, "ping")
        && (isPlain(sent) || isEbs(sent));
    if (!harmless && !allowed.command)
        throw NotAllowed("this text might run shell commands on the instrument", remedyForCommand);
}

/// Values that the daemon gives to its shell.
void checkValues(const ctl::AskedFor& asked, const Allowed& allowed)
{
    for (const auto& [name, values] : asked.values) {
        for (const std::string& value : values) {
            if (!allowed.command && (!isPlain(value) || (name == "host" && begins(value, "-"))))
                throw NotAllowed(
                    "\"" + value + "\" might run shell commands on the instrument", remedyForCommand);
        }
    }
}

void checkUpdate(const ctl::AskedFor& asked, const Allowed& allowed, const std::string& uploads)
{
    if (!allowed.update)
        throw NotAllowed("updates are not allowed here", remedyForUpdate);
    const auto file = asked.values.find("file");
    const std::filesystem::path path = file == asked.values.end() ? "" : file->second.front();
    if (uploads.empty() || path.parent_path() != uploads || path.filename().string().rfind('.', 0) == 0)
        throw NotAllowed(
            "only a package that was uploaded here can be sent", "upload it first: POST /api/upload");
}

/// Throws Failure Usage.
ctl::AskedFor understood(const std::vector<std::string>& words)
{
    std::ostringstream nowhere;
    const ctl::Host host{nowhere, [](const std::string&) {}};
    ctl::Session session;
    Context context(session, &host);
    return ctl::understand(context, words);
}

/// The JSON that a command line printed: one object, or one a line.
Json parsed(const std::string& text)
{
    Json whole = Json::parse(text, nullptr, false);
    if (!whole.is_discarded())
        return whole;
    Json all = Json::array();
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        const Json one = Json::parse(line, nullptr, false);
        if (one.is_discarded())
            return {};
        all.push_back(one);
    }
    return all.empty() ? Json() : all;
}

} // namespace

std::string commandOf(const std::vector<std::string>& words)
{
    return understood(words).command;
}

std::string checkedCommand(
    const std::vector<std::string>& words, const Allowed& allowed, const std::string& uploads)
{
    const ctl::AskedFor asked = understood(words);
    if (asked.command == "command" && !allowed.command)
        throw NotAllowed("shell commands on the instrument are not allowed here", remedyForCommand);
    if (asked.command == "update")
        checkUpdate(asked, allowed, uploads);
    if (asked.command == "raw")
        checkRaw(asked, allowed);
    if (asked.command == "ping" || asked.command.rfind("interface", 0) == 0)
        checkValues(asked, allowed);
    return asked.command;
}

Outcome runCommandLine(ctl::Session& session, const std::string& port, const std::vector<std::string>& words,
    const ctl::ProgressListener::Hear& hear)
{
    Outcome outcome;
    std::ostringstream out;
    const ctl::Host host{out, [&](const std::string& text) { outcome.remarks.push_back(text); }};
    Context context(session, &host);
    context.options.port = port;
    context.options.json = true;
    const ctl::InterruptGuard guard(1);
    const ctl::ProgressListener listener(hear);
    outcome.status = ctl::runCommandLine(context, words);
    outcome.result = parsed(out.str());
    if (outcome.result.is_null())
        outcome.text = out.str();
    return outcome;
}

Outcome outcomeOf(const Failure& failure)
{
    Outcome outcome;
    outcome.status = static_cast<int>(failure.code());
    outcome.result = {{"error",
        {{"kind", ctl::wordOf(failure.code())}, {"cause", failure.what()}, {"remedy", failure.remedy()}}}};
    return outcome;
}

} // namespace tessary::panel
