#pragma once

#include "client/lineerror.h"

#include <chrono>
#include <mutex>
#include <optional>
#include <pybind11/pybind11.h>
#include <utility>

namespace tessary::python {

namespace py = pybind11;

/// Lets one thread of the program at a time wait for the instrument, and the others run meanwhile: the GIL is released.
/// Ctrl-C, and whatever else a signal's handler raises in the main thread, ends the waiting.
class Turn
{
public:
    /// Runs `work` without the GIL and returns what it returns. Called with the GIL.
    template <typename Work> auto take(Work&& work)
    {
        const Holder holder(m_mutex);
        try {
            const py::gil_scoped_release unlocked;
            return std::forward<Work>(work)();
        } catch (const client::LineError&) {
            rethrowInterruption();
            throw;
        }
    }

    /// For SerialLine::stopWhen(): true when a signal's handler has raised. Called without the GIL.
    bool isInterrupted()
    {
        const py::gil_scoped_acquire locked;
        if (PyErr_CheckSignals() == 0)
            return false;
        m_interruption.emplace();
        return true;
    }

private:
    /// The mutex, waited for without the GIL; signals are heard meanwhile.
    class Holder
    {
    public:
        explicit Holder(std::timed_mutex& mutex)
            : m_mutex(mutex)
        {
            while (!taken()) {
                if (PyErr_CheckSignals() != 0)
                    throw py::error_already_set();
            }
        }
        ~Holder() { m_mutex.unlock(); }
        Holder(const Holder&) = delete;
        Holder& operator=(const Holder&) = delete;

    private:
        bool taken()
        {
            const py::gil_scoped_release unlocked;
            return m_mutex.try_lock_for(std::chrono::milliseconds(100));
        }

        std::timed_mutex& m_mutex;
    };

    void rethrowInterruption()
    {
        if (!m_interruption.has_value())
            return;
        py::error_already_set error = *std::move(m_interruption);
        m_interruption.reset();
        throw error;
    }

    std::timed_mutex m_mutex;
    std::optional<py::error_already_set> m_interruption;
};

} // namespace tessary::python
