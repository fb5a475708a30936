// What --json prints, as a JSON Schema: schema.
#include "client/tessaryctl/commands.h"
#include "client/tessaryctl/context.h"
#include "client/tessaryctl/failure.h"
#include "client/tessaryctl/schemas.h"

#include <nlohmann/json.hpp>
#include <ostream>

namespace tessary::ctl {

namespace {

void listSchemas(Context& context)
{
    const auto names = schemaNames();
    if (context.json())
        return context.print({{"documents", names}});
    for (const std::string& name : names)
        context.out() << name << '\n';
    context.out() << std::flush;
}

void schema(Context& context, const std::vector<std::string>& words)
{
    if (words.empty())
        return listSchemas(context);
    std::string name;
    for (const std::string& word : words)
        name += (name.empty() ? "" : "-") + word;
    const auto found = schemaOf(name);
    if (!found.has_value())
        throw Failure(ExitCode::Usage, "there is no schema \"" + name + "\"", "tessaryctl schema lists them");
    context.out() << found->dump(2) << std::endl;
}

} // namespace

void addSchema(CLI::App& app, Context& context)
{
    auto* sub = addSubcommand(
        app, context, "schema", "Print the JSON Schema of what a sub-command prints with --json");
    auto words = std::make_shared<std::vector<std::string>>();
    sub->add_option("command", *words,
           "the sub-command's words, such as measure, interface status, measure watch; none lists them")
        ->expected(0, 2);
    sub->callback([&context, words] { schema(context, *words); });
}

} // namespace tessary::ctl
