// What can stand next on a command line, for the shells' completion and the tool's own.
#include "client/tessaryctl/appnames.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/memory.h"
#include "client/tessaryctl/program.h"

#include <algorithm>
#include <map>

namespace tessary::ctl {

namespace {

using Words = std::vector<std::string>;

/// What an option takes, where that is one of few words.
Words valuesOf(const std::string& option)
{
    static const std::map<std::string, Words> values{{"--source", {"ip", "fpga", "recording"}}};
    const auto found = values.find(option);
    return found != values.end() ? found->second : Words();
}

/// The port that the words name.
std::string portIn(const Words& words)
{
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (words[i] == "-p" || words[i] == "--port")
            return words[i + 1];
    }
    return defaultPort();
}

/// What stands behind the sub-command's name: those below it, the server or the services of last time.
Words argumentsOf(const CLI::App& app, const Words& words)
{
    Words names = subcommandNames(app);
    const InstrumentMemory memory(portIn(words));
    if (app.get_name() == "play")
        names = memory.services();
    else if (app.get_option_no_throw("server") != nullptr && memory.server().has_value())
        names.push_back(memory.server()->url);
    return names;
}

} // namespace

Words completionsOf(const Words& words)
{
    Session session;
    Context context(session);
    const auto parser = makeParser(context);
    const CLI::App* app = parser.get();
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        const CLI::App* child = subcommandOf(*app, words[i]);
        app = child != nullptr ? child : app;
    }
    const std::string last = words.empty() ? "" : words.back();
    Words all = words.size() > 1 ? valuesOf(words[words.size() - 2]) : Words();
    if (all.empty())
        all = last.rfind('-', 0) == 0 ? optionNames(*app) : argumentsOf(*app, words);
    all.erase(std::remove_if(all.begin(), all.end(),
                  [&](const std::string& word) { return word.compare(0, last.size(), last) != 0; }),
        all.end());
    return all;
}

} // namespace tessary::ctl
