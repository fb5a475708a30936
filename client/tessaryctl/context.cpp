#include "client/tessaryctl/context.h"

#include "client/tessaryctl/clocktime.h"
#include "client/tessaryctl/interrupt.h"

#include <cmath>
#include <cstdlib>
#include <iostream>
#include <nlohmann/json.hpp>

namespace tessary::ctl {

using client::Milliseconds;

namespace {

Json stamped(const Json& value)
{
    Json document{{"time", isoTime(std::chrono::system_clock::now())}};
    document.update(value);
    return document;
}

} // namespace

std::string defaultPort()
{
    const char* port = std::getenv("TESSARY_PORT");
    return port != nullptr && *port != '\0' ? port : "/run/tessary-instrument/controller";
}

client::Controller& Session::open(const std::string& port, Milliseconds timeout)
{
    if (m_line == nullptr || m_line->path() != port) {
        close();
        m_line = std::make_unique<client::SerialLine>(port);
        m_line->lock();
        m_line->tap(m_tap);
        m_line->stopWhen(&InterruptGuard::stopsWaiting);
        m_memory = std::make_unique<InstrumentMemory>(port);
    }
    m_controller =
        std::make_unique<client::Controller>(*m_line, client::Patience::of(timeout), m_memory.get());
    return *m_controller;
}

void Session::close()
{
    m_controller.reset();
    m_line.reset();
}

Milliseconds Context::timeout(double usualSeconds) const
{
    const double seconds = options.timeoutSeconds > 0 ? options.timeoutSeconds : usualSeconds;
    return Milliseconds(std::lround(seconds * 1000));
}

client::Controller& Context::controller(double usualSeconds)
{
    return m_session.open(options.port.empty() ? defaultPort() : options.port, timeout(usualSeconds));
}

client::SerialLine& Context::line(double usualSeconds)
{
    controller(usualSeconds);
    return m_session.line();
}

void Context::print(const Json& value)
{
    const int indent = m_lines ? -1 : 2;
    out() << stamped(value).dump(indent, ' ', false, Json::error_handler_t::replace) << std::endl;
}

void Context::printLine(const Json& value)
{
    m_lines = true;
    print(value);
}

std::ostream& Context::out() const
{
    return m_host != nullptr ? m_host->out : std::cout;
}

void Context::note(const std::string& text) const
{
    if (m_host != nullptr)
        return m_host->note(text);
    std::cout.flush();
    std::cerr << text << std::endl;
}

} // namespace tessary::ctl
