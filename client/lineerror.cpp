#include "client/lineerror.h"

namespace tessary::client {

LineError::LineError(Kind kind, const std::string& text)
    : std::runtime_error(text)
    , m_kind(kind)
{
}

} // namespace tessary::client
