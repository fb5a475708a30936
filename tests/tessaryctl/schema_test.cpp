#include "client/tessaryctl/schemas.h"

#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <nlohmann/json.hpp>

using namespace tessary::ctl;

namespace {

/// The part of docs/json.md below a heading.
std::string sectionOf(const std::string& page, const std::string& heading)
{
    const std::size_t begin = page.find("\n### " + heading + "\n");
    if (begin == std::string::npos)
        return {};
    return page.substr(begin, page.find("\n##", begin + 4) - begin);
}

void collectKeys(const Json& schema, const Json& value, std::vector<std::string>& keys)
{
    if (value.contains("$ref")) {
        const std::string reference = value["$ref"];
        collectKeys(schema, schema.at(Json::json_pointer(reference.substr(1))), keys);
    }
    for (const char* part : {"oneOf", "properties"}) {
        if (!value.contains(part))
            continue;
        for (const auto& [key, member] : value[part].items()) {
            if (part == std::string("properties"))
                keys.push_back(key);
            collectKeys(schema, member, keys);
        }
    }
    if (value.contains("items"))
        collectKeys(schema, value["items"], keys);
}

/// Objects that allow keys which they do not name.
int openObjects(const Json& value)
{
    int count = value.is_object() && value.value("type", Json()) == "object"
        && value.value("additionalProperties", Json(true)) != false;
    for (const auto& [key, member] : value.items()) {
        if (member.is_structured())
            count += openObjects(member);
    }
    return count;
}

TEST(Schemas, AreStrictAndWholeInThemselves)
{
    ASSERT_FALSE(schemaNames().empty());
    for (const std::string& name : schemaNames()) {
        const Json schema = schemaOf(name).value();
        EXPECT_EQ(openObjects(schema), 0) << name;
        EXPECT_EQ(schema.dump().find(".json#/"), std::string::npos) << name;
        EXPECT_TRUE(schema["required"].dump().find("\"time\"") != std::string::npos) << name;
    }
    EXPECT_FALSE(schemaOf("nosuch").has_value());
    EXPECT_FALSE(schemaOf("common").has_value());
}

TEST(Schemas, EveryKeyIsDocumented)
{
    std::ifstream file(TESSARY_SOURCE_DIR "/docs/json.md");
    const std::string page{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    for (const std::string& name : schemaNames()) {
        const std::string section = sectionOf(page, name);
        ASSERT_FALSE(section.empty()) << name;
        const Json schema = schemaOf(name).value();
        std::vector<std::string> keys;
        collectKeys(schema, schema, keys);
        for (const std::string& key : keys)
            EXPECT_TRUE(key == "time" || section.find("`" + key + "`") != std::string::npos
                || section.find("." + key + "`") != std::string::npos)
                << name << ": " << key;
    }
}

} // namespace
