#include "client/panel/treebuilder.h"

#include "client/tessaryctl/terminal.h"

#include <algorithm>
#include <sstream>

namespace tessary::panel {

namespace {

std::string numberText(std::uint32_t value)
{
    std::ostringstream text;
    text << value << " (0x" << std::hex << value << ')';
    return text.str();
}

} // namespace

TreeBuilder::TreeBuilder(const client::Bytes& bytes, std::size_t begin, std::size_t end)
    : m_bytes(bytes)
    , m_at(std::min(begin, bytes.size()))
    , m_end(std::clamp(end, m_at, bytes.size()))
{
}

Json TreeBuilder::node(const std::string& name, const Json& value, std::size_t offset, std::size_t length)
{
    return {{"name", name}, {"value", value}, {"offset", offset}, {"length", length},
        {"children", Json::array()}};
}

std::size_t TreeBuilder::within(std::size_t size) const
{
    return std::min(size, left());
}

std::uint32_t TreeBuilder::peek(std::size_t size) const
{
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < size; ++i)
        value = value << 8U | (i < left() ? m_bytes[m_at + i] : 0U);
    return value;
}

std::uint32_t TreeBuilder::number(Json& nodes, const char* name, std::size_t size, unsigned bits)
{
    return number(nodes, name, size, bits, nullptr);
}

std::uint32_t TreeBuilder::number(
    Json& nodes, const char* name, std::size_t size, unsigned bits, std::string (*meaning)(std::uint32_t))
{
    const std::uint32_t mask = bits >= 32 ? 0xFFFFFFFFU : (1U << bits) - 1;
    const std::uint32_t value = peek(size) & mask;
    const std::string said = meaning != nullptr ? ", " + meaning(value) : std::string();
    nodes.push_back(node(name, numberText(value) + said, m_at, within(size)));
    m_at += within(size);
    return value;
}

void TreeBuilder::bits(Json& nodes, const char* name, const Json& value) const
{
    nodes.push_back(node(name, value, m_at, within(1)));
}

void TreeBuilder::bytes(Json& nodes, const char* name, std::size_t size)
{
    const auto begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at);
    const std::string raw(begin, begin + static_cast<std::ptrdiff_t>(within(size)));
    text(nodes, name, size, ctl::hexText(raw));
}

void TreeBuilder::text(Json& nodes, const char* name, std::size_t size, const std::string& text)
{
    nodes.push_back(node(name, text, m_at, within(size)));
    m_at += within(size);
}

TreeBuilder TreeBuilder::part(std::size_t size)
{
    const std::size_t begin = m_at;
    m_at += within(size);
    return {m_bytes, begin, m_at};
}

} // namespace tessary::panel
