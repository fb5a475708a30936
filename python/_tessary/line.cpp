#include "python/_tessary/line.h"

#include "client/lineerror.h"
#include "python/_tessary/bindings.h"

#include <algorithm>
#include <cmath>

namespace tessary::python {

using client::LineError;
using client::SerialLine;

client::Milliseconds milliseconds(double seconds)
{
    constexpr double most = 1e9; // 31 years
    return client::Milliseconds(std::llround(std::clamp(seconds, 0.0, most) * 1000));
}

Line::Line(const std::string& path)
    : m_path(path)
    , m_line(std::make_unique<SerialLine>(path))
{
    m_line->stopWhen([this] { return m_turn.isInterrupted(); });
}

void Line::close()
{
    m_turn.take([this] { m_line.reset(); });
}

SerialLine& Line::opened()
{
    if (m_line == nullptr)
        throw LineError(LineError::Kind::HungUp,
            "the line on port " + m_path + " is closed; open the port again when the instrument is back");
    return *m_line;
}

void bindLine(py::module_& module)
{
    py::class_<Line, std::shared_ptr<Line>>(module, "Line")
        .def(py::init<const std::string&>(), py::arg("path"))
        .def_property_readonly("path", &Line::path)
        .def_property_readonly("is_open", &Line::isOpen)
        .def("close", &Line::close)
        .def("lock", [](Line& line) { line.use([](SerialLine& open) { open.lock(); }); })
        .def(
            "write",
            [](Line& line, const std::string& data, double timeout) {
                line.use([&](SerialLine& open) { open.write(data, milliseconds(timeout)); });
            },
            py::arg("data"), py::arg("timeout") = 10.0)
        .def("drain", [](Line& line) { line.use([](SerialLine& open) { open.drain(); }); })
        .def(
            "read_some",
            [](Line& line, double timeout) {
                return py::bytes(
                    line.use([&](SerialLine& open) { return open.readSome(milliseconds(timeout)); }));
            },
            py::arg("timeout"))
        .def(
            "read_line",
            [](Line& line, double timeout) {
                return py::bytes(
                    line.use([&](SerialLine& open) { return open.readLine(milliseconds(timeout)); }));
            },
            py::arg("timeout"))
        .def(
            "read_exactly",
            [](Line& line, std::size_t count, double timeout) {
                return py::bytes(line.use(
                    [&](SerialLine& open) { return open.readExactly(count, milliseconds(timeout)); }));
            },
            py::arg("count"), py::arg("timeout"))
        .def(
            "read_until_silence",
            [](Line& line, double first, double quiet) {
                return py::bytes(line.use([&](SerialLine& open) {
                    return open.readUntilSilence(milliseconds(first), milliseconds(quiet));
                }));
            },
            py::arg("first"), py::arg("quiet"))
        .def("discard_input", [](Line& line) {
            return py::bytes(line.use([](SerialLine& open) { return open.discardInput(); }));
        });
}

} // namespace tessary::python
