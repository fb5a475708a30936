#pragma once

#include <stdexcept>

namespace tessary::client {

/// An answer came whole and in time, but is not what the protocol says (damaged, or of another daemon). The
/// text says what was expected and what came.
class AnswerError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;

    static constexpr const char* remedy = "ask again; if it stays so, look at the line's speed and wiring, "
                                          "and whether another program uses the "
                                          "port";
};

} // namespace tessary::client
