#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace tessary::panel {

/// A text file that another program writes on: tells its new lines. It may become shorter, or another file of its name.
class FollowedFile
{
public:
    explicit FollowedFile(std::filesystem::path path)
        : m_path(std::move(path))
    {
    }

    /// Whole lines that have come since; of a long file at first only the last.
    std::vector<std::string> newLines();

private:
    std::filesystem::path m_path;
    std::uintmax_t m_read = 0; ///< bytes
    bool m_begun = false;
    std::string m_rest; ///< a line that has no end yet
};

} // namespace tessary::panel
