#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

/// Bytes put together by hand, most significant first, as streams carry them.
namespace tessary::test {

using Bytes = std::vector<std::uint8_t>;

/// The lowest eight bits.
std::uint8_t lowByte(std::uint64_t value);

void append(Bytes& target, const Bytes& more);
void append16(Bytes& target, std::uint64_t value);
void append32(Bytes& target, std::uint64_t value);

/// The parts one after another.
Bytes join(const std::vector<Bytes>& parts);

/// The bytes of "00ff47".
Bytes fromHex(const std::string& hex);

/// A whole file; empty when it is not there.
Bytes bytesOfFile(const std::string& path);
/// Writes a file anew.
void writeBytes(const std::string& path, const Bytes& bytes);

} // namespace tessary::test
