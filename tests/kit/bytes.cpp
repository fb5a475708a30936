#include "kit/bytes.h"

#include <fstream>
#include <iterator>

namespace tessary::test {

std::uint8_t lowByte(std::uint64_t value)
{
    return static_cast<std::uint8_t>(value & 0xFFU);
}

void append(Bytes& target, const Bytes& more)
{
    target.insert(target.end(), more.begin(), more.end());
}

void append16(Bytes& target, std::uint64_t value)
{
    append(target, {lowByte(value >> 8U), lowByte(value)});
}

void append32(Bytes& target, std::uint64_t value)
{
    append16(target, value >> 16U);
    append16(target, value);
}

Bytes join(const std::vector<Bytes>& parts)
{
    Bytes all;
    for (const Bytes& part : parts)
        append(all, part);
    return all;
}

Bytes fromHex(const std::string& hex)
{
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(lowByte(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

Bytes bytesOfFile(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::string& path, const Bytes& bytes)
{
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

} // namespace tessary::test
