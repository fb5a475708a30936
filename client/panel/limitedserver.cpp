#include "client/panel/limitedserver.h"

#include "client/panel/answers.h"
#include "client/panel/connections.h"
#include "client/panel/requeststream.h"

#include <functional>
#include <sys/socket.h>
#include <type_traits>
#include <unistd.h>

namespace tessary::panel {

namespace {

/// For what the library never gets to see; false, as of a request that was not served.
bool turnAway(RequestStream& stream, const char* phrase, const Refusal& refusal)
{
    const std::string body = textOf(errorOf(refusal));
    stream.write("HTTP/1.1 " + std::to_string(refusal.status) + " " + phrase
        + "\r\nConnection: close\r\nContent-Type: application/json\r\nContent-Length: "
        + std::to_string(body.size()) + "\r\n\r\n" + body);
    return false;
}

using SetUp = std::function<void(httplib::Request&)>;

/// `request` is process_request() of the library, which asks the stream for the addresses or, in later versions, is given
/// them.
template <typename Request>
bool process(Request request, httplib::Server& server, httplib::Stream& stream, const SetUp& setUp)
{
    bool closed = false;
    if constexpr (std::is_invocable_v<Request, httplib::Server&, httplib::Stream&, bool, bool&,
                      const SetUp&>) {
        return std::invoke(request, server, stream, true, closed, setUp);
    } else {
        std::string remote, local;
        int remotePort = 0, localPort = 0;
        stream.get_remote_ip_and_port(remote, remotePort);
        stream.get_local_ip_and_port(local, localPort);
        return std::invoke(
            request, server, stream, remote, remotePort, local, localPort, true, closed, setUp);
    }
}

} // namespace

std::optional<std::uint64_t> contentLengthOf(const httplib::Request& request)
{
    const std::string length = request.get_header_value("Content-Length");
    const bool number =
        !length.empty() && length.size() < 19 && length.find_first_not_of("0123456789") == std::string::npos;
    if (!number || request.has_header("Transfer-Encoding"))
        return std::nullopt;
    return std::stoull(length);
}

LimitedServer::LimitedServer(const RequestLimits& limits)
    : m_limits(limits)
{
    new_task_queue = [] { return new Connections; };
}

void LimitedServer::letMoreWait()
{
    ::listen(svr_sock_, SOMAXCONN);
}

void LimitedServer::end()
{
    m_ends = true;
    stop();
}

bool LimitedServer::process_and_close_socket(int socket)
{
    RequestStream stream(socket, m_limits, m_ends);
    bool served = false;
    if (m_open.fetch_add(1) < m_limits.connections) {
        served = serve(stream);
        stream.finish();
    } else {
        turnAway(stream, "Service Unavailable", {503, "the panel has too many connections", "close some"});
    }
    m_open.fetch_sub(1);
    ::close(socket);
    return served;
}

bool LimitedServer::serve(RequestStream& stream)
{
    switch (stream.awaitHead()) {
    case RequestStream::Head::None:
        return false;
    case RequestStream::Head::Late:
        return turnAway(
            stream, "Request Timeout", {408, "the request did not come in time", "send it at once"});
    case RequestStream::Head::TooLarge:
        return turnAway(
            stream, "Request Header Fields Too Large", {431, "the request's head is too large", "send less"});
    case RequestStream::Head::Whole:
        break;
    }
    const SetUp setUp = [&stream](const httplib::Request& request) {
        stream.expectBody(contentLengthOf(request).value_or(0));
    };
    return process(&LimitedServer::process_request, *this, stream, setUp);
}

} // namespace tessary::panel
