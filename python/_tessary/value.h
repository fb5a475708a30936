#pragma once

#include "client/psi/bytes.h"

#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <string>
#include <type_traits>

namespace tessary::python {

namespace py = pybind11;

/// A struct as a Python class whose attributes can be read: with `_fields` (their names), `as_dict()` (the same all the way
/// down, for CSV and JSON) and a repr that names them.
template <typename T> class Value
{
public:
    Value(py::module_& module, const char* name)
        : m_class(module, name)
    {
        m_class.attr("__module__") = "tessary"; // where programs find it
        m_class.def("as_dict", [](const py::object& self) { return dictOf(self); });
        m_class.def("__repr__", [](const py::object& self) { return reprOf(self); });
    }

    ~Value() { m_class.attr("_fields") = py::tuple(m_fields); }
    Value(const Value&) = delete;
    Value& operator=(const Value&) = delete;

    /// A copy of the member.
    template <typename Member> Value& field(const char* name, Member T::*member)
    {
        return computed(name, [member](const T& value) -> Member { return value.*member; });
    }
    /// What a function makes of the struct.
    template <typename Function> Value& computed(const char* name, Function function)
    {
        m_fields.append(name);
        using Result = std::invoke_result_t<Function, const T&>;
        m_class.def_property_readonly(name, [function](const T& value) {
            if constexpr (std::is_same_v<Result, client::Bytes>) {
                const client::Bytes bytes = function(value);
                return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
            } else {
                return function(value);
            }
        });
        return *this;
    }

    py::class_<T>& python() { return m_class; }

private:
    static py::object plain(const py::object& value)
    {
        if (py::hasattr(value, "as_dict"))
            return value.attr("as_dict")();
        if (!py::isinstance<py::list>(value))
            return value;
        py::list result;
        for (const auto entry : value)
            result.append(plain(py::reinterpret_borrow<py::object>(entry)));
        // Some compilers hold a bare move to be redundant, others miss it.
        return py::object(std::move(result));
    }

    static py::dict dictOf(const py::object& self)
    {
        py::dict result;
        for (const auto name : self.attr("_fields"))
            result[name] = plain(self.attr(py::reinterpret_borrow<py::str>(name)));
        return result;
    }

    static py::str reprOf(const py::object& self)
    {
        py::list parts;
        for (const auto name : self.attr("_fields"))
            parts.append(py::str("{}={!r}").format(name, self.attr(py::reinterpret_borrow<py::str>(name))));
        return py::str("{}({})").format(self.get_type().attr("__name__"), py::str(", ").attr("join")(parts));
    }

    py::class_<T> m_class;
    py::list m_fields;
};

} // namespace tessary::python
