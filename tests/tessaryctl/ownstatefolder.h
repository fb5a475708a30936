#pragma once

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>

namespace tessary::test {

/// What the tool remembers goes into a folder of the test's own, which ends with the object.
class StateFolder
{
public:
    StateFolder()
    {
        std::string form = "/tmp/tessaryctl-state-XXXXXX";
        if (::mkdtemp(form.data()) == nullptr)
            throw std::runtime_error("no folder " + form);
        m_path = form;
        ::setenv("XDG_STATE_HOME", form.c_str(), 1);
    }
    ~StateFolder() { std::filesystem::remove_all(m_path); }
    StateFolder(const StateFolder&) = delete;
    StateFolder& operator=(const StateFolder&) = delete;

    std::filesystem::path file(const char* name) const { return m_path / "tessaryctl" / name; }

private:
    std::filesystem::path m_path;
};

} // namespace tessary::test
