#pragma once

#include "client/serialline.h"
#include "python/_tessary/turn.h"

#include <memory>
#include <string>

namespace tessary::python {

/// A serial line as a Python object: client::SerialLine, one thread at a time.
class Line
{
public:
    explicit Line(const std::string& path);

    const std::string& path() const { return m_path; }
    bool isOpen() const { return m_line != nullptr; }
    void close();

    /// Runs `work(client::SerialLine&)` without the GIL. Throws LineError when the line is closed, and closes it when it
    /// hung up.
    template <typename Work> auto use(Work&& work)
    {
        return m_turn.take([&] {
            try {
                return work(opened());
            } catch (const client::LineError& error) {
                if (error.kind() == client::LineError::Kind::HungUp)
                    m_line.reset();
                throw;
            }
        });
    }

private:
    client::SerialLine& opened();

    std::string m_path;
    Turn m_turn;
    std::unique_ptr<client::SerialLine> m_line;
};

client::Milliseconds milliseconds(double seconds);

} // namespace tessary::python
