#pragma once

#include <pybind11/pybind11.h>

namespace tessary::python {

namespace py = pybind11;

// What the module is made of, each in its own source file.
void bindErrors();
void bindLine(py::module_& module);
void bindTables(py::module_& module);
void bindMeasurement(py::module_& module);
void bindT2mi(py::module_& module);
void bindReports(py::module_& module);
void bindController(py::module_& module);

} // namespace tessary::python
