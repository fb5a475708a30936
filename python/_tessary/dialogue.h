#pragma once

#include "client/controller.h"
#include "python/_tessary/line.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace tessary::python {

/// client::Controller as a Python object, on a line of its own or one that the program has open already.
class Dialogue : public client::CommandWatcher
{
public:
    /// `timeout`: seconds to wait for an answer, and for the instrument to end what keeps it from answering.
    Dialogue(std::shared_ptr<Line> line, double timeout);

    const std::shared_ptr<Line>& line() const { return m_line; }
    double timeout() const { return m_timeout; }
    void setTimeout(double seconds) { m_timeout = seconds; }
    /// Greetings seen: the instrument's starts since the dialogue began.
    int startsSeen() const { return m_startsSeen; }

    /// Runs `work(client::Controller&)` without the GIL; waits `timeout` seconds when given.
    template <typename Work> auto ask(Work&& work, std::optional<double> timeout = std::nullopt)
    {
        const double seconds = timeout.value_or(m_timeout);
        return m_line->use([&](client::SerialLine& line) { return work(controllerOn(line, seconds)); });
    }

private:
    void carriedOut(std::string_view command, bool surely) override;
    void greeted() override;
    /// The controller keeps what it knows of the line from one command to the next, as long as the time-out stays the same.
    client::Controller& controllerOn(client::SerialLine& line, double seconds);

    std::shared_ptr<Line> m_line;
    double m_timeout;
    std::atomic<int> m_startsSeen{0}; ///< counted without the GIL
    std::optional<client::Controller> m_controller;
    double m_seconds = 0; ///< the time-out of m_controller
};

} // namespace tessary::python
