#pragma once

#include "client/panel/hub.h"
#include "client/psi/bytes.h"

#include <cstdint>
#include <string>

namespace tessary::panel {

/// Goes over bytes from field to field and makes the nodes of a tree of them; never beyond its end.
class TreeBuilder
{
public:
    /// From `begin` up to, not including, `end`. `bytes` are borrowed.
    TreeBuilder(const client::Bytes& bytes, std::size_t begin, std::size_t end);

    std::size_t at() const { return m_at; }
    std::size_t left() const { return m_end - m_at; }
    /// The next `size` bytes (4 at most) as a number; 0 for what is beyond the end.
    std::uint32_t peek(std::size_t size) const;
    /// A field of whole bytes, of which `bits` lowest ones count; moves on. Returns its value.
    std::uint32_t number(Json& nodes, const char* name, std::size_t size, unsigned bits = 32);
    /// The same with a text beside the number.
    std::uint32_t number(Json& nodes, const char* name, std::size_t size, unsigned bits,
        std::string (*meaning)(std::uint32_t));
    /// Some bits of the next byte, whose value is given; stays there.
    void bits(Json& nodes, const char* name, const Json& value) const;
    /// Bytes that are shown as such, or as `text`.
    void bytes(Json& nodes, const char* name, std::size_t size);
    void text(Json& nodes, const char* name, std::size_t size, const std::string& text);
    /// The next `size` bytes for another builder; moves on.
    TreeBuilder part(std::size_t size);

    static Json node(const std::string& name, const Json& value, std::size_t offset, std::size_t length);

private:
    std::size_t within(std::size_t size) const;

    const client::Bytes& m_bytes;
    std::size_t m_at;
    std::size_t m_end;
};

} // namespace tessary::panel
