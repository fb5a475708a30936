#pragma once

#include <stdexcept>

namespace tessary::client {

/// An answer came whole and in time, but is not what the protocol says (damaged, or of another daemon). The
/// text says what was expected and what came.
class AnswerError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

} // namespace tessary::client
