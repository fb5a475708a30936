#include "lines.h"

#include <cerrno>
#include <cstdlib>

int Lines::parse(const std::string& number)
{
    char* end = nullptr;
    const long line = std::strtol(number.c_str(), &end, 10);
    const bool known = line == done || line == program;
    return known && (*end == '\0' || *end == '\n') ? static_cast<int>(line) : -EINVAL;
}

int Lines::exportLine(const std::string& number)
{
    const int line = parse(number);
    if (line < 0)
        return line;
    return m_outputs.emplace(line, false).second ? 0 : -EBUSY;
}

int Lines::unexportLine(const std::string& number)
{
    const int line = parse(number);
    if (line < 0)
        return line;
    return m_outputs.erase(line) ? 0 : -EINVAL;
}

int Lines::setDirection(int line, const std::string& direction)
{
    const auto found = m_outputs.find(line);
    if (found == m_outputs.end())
        return -ENODEV;
    const std::string word = direction.substr(0, direction.find('\n'));
    if (word != "in" && word != "out")
        return -EINVAL;
    found->second = word == "out";
    return 0;
}

bool Lines::isOutput(int line) const
{
    const auto found = m_outputs.find(line);
    return found != m_outputs.end() && found->second;
}
