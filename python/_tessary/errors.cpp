// The library's errors become those of tessary.errors, with cause and remedy.
#include "client/answererror.h"
#include "client/lineerror.h"
#include "client/usageerror.h"
#include "python/_tessary/bindings.h"

#include <string>

namespace tessary::python {

using namespace client;

namespace {

const char* classOf(LineError::Kind kind)
{
    switch (kind) {
    case LineError::Kind::CannotOpen:
    case LineError::Kind::NotATerminal:
        return "NoInstrumentError";
    case LineError::Kind::HungUp:
        return "HungUpError";
    case LineError::Kind::TimedOut:
        return "TimedOutError";
    case LineError::Kind::Stopped:
    case LineError::Kind::Failed:
        break;
    }
    return "TessaryError";
}

void raise(const char* name, const std::string& cause, const std::string& remedy)
{
    const py::object type = py::module_::import("tessary.errors").attr(name);
    PyErr_SetObject(type.ptr(), type(cause, remedy).ptr());
}

void translate(std::exception_ptr pending)
{
    try {
        if (pending)
            std::rethrow_exception(pending);
    } catch (const LineError& error) {
        raise(classOf(error.kind()), error.cause(), error.remedy());
    } catch (const AnswerError& error) {
        raise("BadAnswerError", error.what(), AnswerError::remedy);
    } catch (const UsageError& error) {
        raise("UsageError", error.what(), error.remedy());
    } catch (const std::invalid_argument& error) {
        raise("UsageError", error.what(), "");
    }
}

} // namespace

void bindErrors()
{
    py::register_exception_translator(&translate);
}

} // namespace tessary::python
