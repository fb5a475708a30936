#include "client/lineerror.h"

#include <string_view>

namespace tessary::client {

namespace {

constexpr std::string_view separator = "; ";

} // namespace

LineError::LineError(Kind kind, const std::string& text)
    : std::runtime_error(text)
    , m_kind(kind)
{
}

std::string LineError::cause() const
{
    const std::string text = what();
    return text.substr(0, text.find(separator));
}

std::string LineError::remedy() const
{
    const std::string text = what();
    const std::size_t mark = text.find(separator);
    return mark != std::string::npos ? text.substr(mark + separator.size()) : "";
}

} // namespace tessary::client
