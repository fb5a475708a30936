#include "client/panel/answers.h"

#include <fstream>
#include <iterator>

namespace tessary::panel {

void answer(httplib::Response& response, const Json& value, int status)
{
    response.status = status;
    response.set_content(textOf(value), "application/json");
}

Json errorOf(const Refusal& refusal)
{
    return {{"error", {{"cause", refusal.cause}, {"remedy", refusal.remedy}}}};
}

void refuse(httplib::Response& response, const Refusal& refusal)
{
    answer(response, errorOf(refusal), refusal.status);
}

void sendFile(httplib::Response& response, const std::string& path, const std::string& type)
{
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return refuse(response, {404, path + " is not there", "is the panel installed as a whole?"});
    response.set_content(std::string(std::istreambuf_iterator<char>(file), {}), type);
}

} // namespace tessary::panel
