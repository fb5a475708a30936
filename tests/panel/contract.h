#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace tessary::test {

/// The API's description, OpenAPI.
const nlohmann::json& apiDescription();

/// The value is what the description says of this schema.
void expectValid(const std::string& schemaName, const nlohmann::ordered_json& told);

} // namespace tessary::test
