// The controller's library (client/) as a Python module. The package `tessary` is what programs use; this is its base.
#include "python/_tessary/bindings.h"

PYBIND11_MODULE(_tessary, module)
{
    using namespace tessary::python;
    module.doc() =
        "The controller's library: the serial line, the commands, the decoders of what comes back.";
    bindErrors();
    bindLine(module);
    bindTables(module);
    bindMeasurement(module);
    bindT2mi(module);
    bindReports(module);
    bindController(module);
}
