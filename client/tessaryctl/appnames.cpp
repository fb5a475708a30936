#include "client/tessaryctl/appnames.h"

namespace tessary::ctl {

namespace {

std::vector<const CLI::App*> childrenOf(const CLI::App& app)
{
    return app.get_subcommands([](const CLI::App*) { return true; });
}

} // namespace

std::vector<std::string> subcommandNames(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::App* child : childrenOf(app))
        names.push_back(child->get_name());
    return names;
}

std::vector<std::string> optionNames(const CLI::App& app)
{
    std::vector<std::string> names;
    for (const CLI::Option* option : app.get_options()) {
        for (const std::string& name : option->get_lnames())
            names.push_back("--" + name);
    }
    return names;
}

const CLI::App* subcommandOf(const CLI::App& app, const std::string& name)
{
    for (const CLI::App* child : childrenOf(app)) {
        if (child->get_name() == name)
            return child;
    }
    return nullptr;
}

} // namespace tessary::ctl
