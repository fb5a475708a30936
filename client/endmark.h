#pragma once

#include <string>

namespace tessary::client {

/// A question that marks the end of what was asked before it. The daemon makes the name of a service from
/// nothing but the index in the question, so each mark has an answer of its own: what the daemon has sent
/// before that answer belongs to earlier commands, and it has carried them all out.
class EndMark
{
public:
    /// The next one; the numbers begin anywhere, so that the mark of an earlier process is another one.
    static EndMark next();

    /// "\0!0C_L_IX:7F\n": the NUL parts it from the command that it follows in the same burst.
    std::string question() const;
    /// "Service127".
    std::string answer() const;

private:
    explicit EndMark(int number)
        : m_number(number)
    {
    }

    int m_number; ///< two hexadecimal digits in the question, always three decimal ones in the answer
};

} // namespace tessary::client
