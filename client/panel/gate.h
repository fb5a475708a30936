#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tessary::panel {

/// What a request says of itself before its body is read.
struct Asking
{
    std::string method;
    std::string path;
    std::string host;
    std::string origin;
    std::string fetchSite; ///< Sec-Fetch-Site
    std::string authorization;
    std::string cookie;
    std::string contentType;
    std::string contentEncoding;
    std::optional<std::uint64_t> contentLength;
};

/// Why a request is not answered.
struct Refusal
{
    int status; ///< of HTTP
    std::string cause;
    std::string remedy;
};

struct GateSettings
{
    bool local = true; ///< the panel listens on this machine alone
    int port = 8080;
    std::string token; ///< empty: none is needed
    std::uint64_t mostBytes = 64 * 1024; ///< of a body
    std::uint64_t mostUploadBytes = 64 * 1024 * 1024;
};

/// Who may ask for what.
class Gate
{
public:
    explicit Gate(GateSettings settings);

    /// Nothing for a request that is let in.
    std::optional<Refusal> check(const Asking& asking) const;
    /// Compared in the same time however much of it is right.
    bool isToken(const std::string& text) const;
    bool needsToken() const { return !m_settings.token.empty(); }
    std::uint64_t mostUploadBytes() const { return m_settings.mostUploadBytes; }

    /// The cookie's name and the value of it in a Cookie header; empty when it is not there.
    static constexpr const char* cookieName = "tessary-panel";
    static std::string tokenIn(const std::string& cookies);

    static constexpr const char* uploadPath = "/api/upload";

private:
    std::optional<Refusal> checkOrigin(const Asking& asking) const;
    std::optional<Refusal> checkToken(const Asking& asking) const;
    std::optional<Refusal> checkBody(const Asking& asking) const;
    bool isOwnHost(const std::string& host) const;

    GateSettings m_settings;
};

} // namespace tessary::panel
