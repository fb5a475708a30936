#include "contract.h"

#include <fstream>
#include <gtest/gtest.h>
#include <valijson/adapters/nlohmann_json_adapter.hpp>
#include <valijson/schema.hpp>
#include <valijson/schema_parser.hpp>
#include <valijson/validation_results.hpp>
#include <valijson/validator.hpp>

namespace tessary::test {

using Adapter = valijson::adapters::NlohmannJsonAdapter;
using Plain = nlohmann::json;

const Plain& apiDescription()
{
    static const Plain read = [] {
        std::ifstream file(TESSARY_SOURCE_DIR "/client/panel/openapi.json");
        return Plain::parse(file);
    }();
    return read;
}

void expectValid(const std::string& schemaName, const nlohmann::ordered_json& told)
{
    const Plain value = Plain::parse(told.dump(-1, ' ', false, Plain::error_handler_t::replace));
    const Plain root{
        {"$ref", "#/components/schemas/" + schemaName}, {"components", apiDescription().at("components")}};
    valijson::Schema schema;
    valijson::SchemaParser().populateSchema(Adapter(root), schema);
    valijson::ValidationResults findings;
    valijson::Validator(valijson::Validator::kStrongTypes).validate(schema, Adapter(value), &findings);
    for (valijson::ValidationResults::Error finding; findings.popError(finding);) {
        std::string place;
        for (const std::string& step : finding.context)
            place += step;
        ADD_FAILURE() << schemaName << ' ' << place << ": " << finding.description << "\n" << value.dump(1);
    }
}

} // namespace tessary::test
