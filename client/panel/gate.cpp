#include "client/panel/gate.h"

#include <algorithm>
#include <utility>

namespace tessary::panel {

Gate::Gate(GateSettings settings)
    : m_settings(std::move(settings))
{
}

std::optional<Refusal> Gate::check(const Asking& asking) const
{
    if (auto refusal = checkOrigin(asking))
        return refusal;
    if (auto refusal = checkToken(asking))
        return refusal;
    return checkBody(asking);
}

/// A name that a foreign page has made point here ("DNS rebinding") is not one of these.
bool Gate::isOwnHost(const std::string& host) const
{
    if (!m_settings.local)
        return true; // the token is bound to the name that the browser knows
    const std::string port = ":" + std::to_string(m_settings.port);
    for (const char* name : {"127.0.0.1", "localhost", "[::1]"}) {
        if (host == name + port || (m_settings.port == 80 && host == name))
            return true;
    }
    return false;
}

std::optional<Refusal> Gate::checkOrigin(const Asking& asking) const
{
    if (!isOwnHost(asking.host))
        return Refusal{403, "the panel is not called \"" + asking.host + "\"",
            "use http://127.0.0.1:" + std::to_string(m_settings.port)};
    const bool ownOrigin = asking.origin.empty() || asking.origin == "http://" + asking.host
        || asking.origin == "https://" + asking.host;
    if (!ownOrigin || asking.fetchSite == "cross-site" || asking.fetchSite == "same-site")
        if (asking.path != "/" || asking.method != "GET") // a link to the page is nobody's harm
            return Refusal{403, "another site's page asks for this", "use the panel's own page"};
    const bool changes = asking.method != "GET" && asking.method != "HEAD";
    const bool form = asking.contentType.rfind("application/x-www-form-urlencoded", 0) == 0
        || asking.contentType.rfind("multipart/form-data", 0) == 0;
    if (changes && form)
        return Refusal{415, "a form is no request of the panel's", "send JSON"};
    return std::nullopt;
}

std::string Gate::tokenIn(const std::string& cookies)
{
    const std::string start = std::string(cookieName) + "=";
    for (std::size_t at = 0; at < cookies.size();) {
        const std::size_t end = std::min(cookies.find(';', at), cookies.size());
        if (cookies.compare(at, start.size(), start) == 0)
            return cookies.substr(at + start.size(), end - at - start.size());
        at = cookies.find_first_not_of("; ", end);
    }
    return {};
}

bool Gate::isToken(const std::string& text) const
{
    unsigned difference = text.size() == m_settings.token.size() ? 0 : 1;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char right = m_settings.token.empty() ? '\0' : m_settings.token[i % m_settings.token.size()];
        difference |=
            static_cast<unsigned>(static_cast<unsigned char>(text[i]) ^ static_cast<unsigned char>(right));
    }
    return difference == 0;
}

std::optional<Refusal> Gate::checkToken(const Asking& asking) const
{
    if (!needsToken() || (asking.path == "/" && asking.method == "GET"))
        return std::nullopt; // the page itself asks for it
    static const std::string bearer = "Bearer ";
    const bool given = asking.authorization.rfind(bearer, 0) == 0;
    if (given ? isToken(asking.authorization.substr(bearer.size())) : isToken(tokenIn(asking.cookie)))
        return std::nullopt;
    if (asking.path.rfind("/app/", 0) == 0 || asking.path.rfind("/lib/", 0) == 0)
        return std::nullopt; // the page's own files tell nothing of the instrument
    return Refusal{401, "the token is missing or wrong",
        "open /?token=TOKEN, or send the header \"Authorization: Bearer TOKEN\""};
}

std::optional<Refusal> Gate::checkBody(const Asking& asking) const
{
    if (asking.method == "GET" || asking.method == "HEAD")
        return std::nullopt;
    if (!asking.contentEncoding.empty() && asking.contentEncoding != "identity")
        return Refusal{415, "the request is packed, and may unpack to anything", "send it as it is"};
    const bool upload = asking.path == uploadPath;
    if (!asking.contentLength.has_value())
        return asking.method == "DELETE"
            ? std::nullopt
            : std::optional(Refusal{411, "the request does not tell its length", "send Content-Length"});
    const std::uint64_t most = upload ? m_settings.mostUploadBytes : m_settings.mostBytes;
    if (*asking.contentLength > most)
        return Refusal{413, "the request has more than " + std::to_string(most) + " bytes",
            upload ? "tessary-panel --upload-limit allows more" : "send less"};
    return std::nullopt;
}

} // namespace tessary::panel
