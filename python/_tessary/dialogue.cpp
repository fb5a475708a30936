#include "python/_tessary/dialogue.h"

#include <algorithm>

namespace tessary::python {

using namespace client;

Dialogue::Dialogue(std::shared_ptr<Line> line, double timeout)
    : m_line(std::move(line))
    , m_timeout(timeout)
{
}

void Dialogue::carriedOut(std::string_view /*command*/, bool /*surely*/) { }

void Dialogue::greeted()
{
    ++m_startsSeen;
}

Controller& Dialogue::controllerOn(SerialLine& line, double seconds)
{
    if (!m_controller.has_value() || m_seconds != seconds) {
        m_controller.emplace(line, Patience::of(milliseconds(seconds)), this);
        m_seconds = seconds;
    }
    return *m_controller;
}

} // namespace tessary::python
