#include "client/tessaryctl/schemas.h"

#include "client/tessaryctl/schemafiles.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

namespace {

constexpr const char* commonName = "common"; // definitions that several share; no document of its own

Json parsed(const std::string& name)
{
    const auto found = std::find_if(std::begin(schemaFiles), std::end(schemaFiles),
        [&](const SchemaFile& file) { return name == file.name; });
    return found != std::end(schemaFiles) ? Json::parse(found->text) : Json();
}

/// References to common definitions become references into the schema itself, which gets these definitions.
void bringHome(Json& value, const Json& common, Json& definitions)
{
    static const std::string path = "#/definitions/";
    for (auto& [key, member] : value.items()) {
        if (member.is_structured())
            bringHome(member, common, definitions);
        if (key != "$ref")
            continue;
        const std::string reference = member;
        member = reference.substr(reference.find('#'));
        const std::string rest = reference.substr(reference.find(path) + path.size());
        const std::string name = rest.substr(0, rest.find('/'));
        if (definitions.contains(name))
            continue;
        Json definition = common.at(name);
        bringHome(definition, common, definitions);
        definitions[name] = std::move(definition);
    }
}

} // namespace

std::vector<std::string> schemaNames()
{
    std::vector<std::string> names;
    for (const SchemaFile& file : schemaFiles) {
        if (file.name != std::string(commonName))
            names.emplace_back(file.name);
    }
    return names;
}

std::optional<Json> schemaOf(const std::string& name)
{
    Json schema = name != commonName ? parsed(name) : Json();
    if (schema.is_null())
        return std::nullopt;
    Json definitions = Json::object();
    bringHome(schema, parsed(commonName)["definitions"], definitions);
    schema["definitions"] = std::move(definitions);
    return schema;
}

} // namespace tessary::ctl
