#pragma once

#include <stdexcept>
#include <string>
#include <utility>

namespace tessary::client {

/// What a person wrote (a stream server, an address) can not be taken as it stands. Nothing was sent.
class UsageError : public std::invalid_argument
{
public:
    /// `remedy`: how to write it.
    UsageError(const std::string& cause, std::string remedy)
        : std::invalid_argument(cause)
        , m_remedy(std::move(remedy))
    {
    }

    const std::string& remedy() const { return m_remedy; }

private:
    std::string m_remedy;
};

} // namespace tessary::client
