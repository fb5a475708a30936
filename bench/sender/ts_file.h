#pragma once

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>

namespace tessary::sender {

/// A file or stream can not be used; what() names the cause and the remedy.
class StreamError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Packet size of a byte sequence: 188 or 204 when sync bytes stand at that distance from the first byte on,
/// else 0.
std::size_t detectPacketSize(const std::uint8_t* data, std::size_t size);

/// A transport stream file, mapped into memory read-only. Owns the mapping; pointers live as long as the
/// object.
class TsFile
{
public:
    /// Opens and checks the file. Throws StreamError when it can not be read, is empty, or is no stream of
    /// 188-byte or 204-byte packets. An incomplete packet at the end is left out.
    explicit TsFile(const std::string& path);
    ~TsFile();
    TsFile(const TsFile&) = delete;
    TsFile& operator=(const TsFile&) = delete;

    std::size_t packetSize() const { return m_packetSize; } ///< bytes: 188 or 204
    std::size_t packetCount() const { return m_packetCount; } ///< whole packets, at least 1
    std::size_t bytesLeftOver() const { return m_size % m_packetSize; } ///< of an incomplete last packet
    const std::uint8_t* packet(std::size_t index) const { return m_data + index * m_packetSize; }

private:
    void map(const std::string& path);
    void checkSync(const std::string& path) const;

    const std::uint8_t* m_data = nullptr;
    std::size_t m_size = 0;
    std::size_t m_packetSize = 0;
    std::size_t m_packetCount = 0;
};

} // namespace tessary::sender
