#include "client/panel/followedfile.h"

#include <algorithm>

namespace tessary::panel {

std::vector<std::string> FollowedFile::newLines()
{
    constexpr std::uintmax_t most = 64 * 1024; // at once
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(m_path, error);
    if (error || size < m_read) { // begins anew
        m_read = 0;
        m_rest.clear();
        m_begun = !error;
    }
    if (error || size == m_read)
        return {};
    if (!m_begun && size > most) {
        m_read = size - most;
        m_rest = "... "; // the first line is not whole
    }
    m_begun = true;
    std::ifstream file(m_path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(m_read));
    std::string text(static_cast<std::size_t>(std::min(size - m_read, most)), '\0');
    file.read(text.data(), static_cast<std::streamsize>(text.size()));
    text.resize(static_cast<std::size_t>(std::max<std::streamsize>(file.gcount(), 0)));
    m_read += text.size();
    std::vector<std::string> lines;
    m_rest += text;
    for (std::size_t end = m_rest.find('\n'); end != std::string::npos; end = m_rest.find('\n')) {
        lines.push_back(m_rest.substr(0, end));
        m_rest.erase(0, end + 1);
    }
    return lines;
}

} // namespace tessary::panel
