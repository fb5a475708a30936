#include "ts_file.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "ts_packet.h"

namespace tessary::sender {

std::size_t detectPacketSize(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t Looked = 16; // packets; a chance byte 0x47 does not repeat that often
    for (const std::size_t distance : {ts::PacketBytes, ts::CodedPacketBytes}) {
        std::size_t right = 0;
        std::size_t at = 0;
        for (; right < Looked && at + distance <= size && data[at] == ts::SyncByte; at += distance)
            ++right;
        if (right == Looked || (right > 0 && at + distance > size))
            return distance;
    }
    return 0;
}

TsFile::TsFile(const std::string& path)
{
    map(path);
    m_packetSize = detectPacketSize(m_data, m_size);
    if (m_packetSize == 0) {
        ::munmap(const_cast<std::uint8_t*>(m_data), m_size);
        throw StreamError(path
            + ": no transport stream of 188-byte or 204-byte packets starts here; "
              "convert the file (for example: ffmpeg -i FILE -c copy -f mpegts OUT.ts)");
    }
    m_packetCount = m_size / m_packetSize;
    try {
        checkSync(path);
    } catch (...) {
        ::munmap(const_cast<std::uint8_t*>(m_data), m_size);
        throw;
    }
}

TsFile::~TsFile()
{
    ::munmap(const_cast<std::uint8_t*>(m_data), m_size);
}

void TsFile::map(const std::string& path)
{
    const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        throw StreamError(path + ": " + std::strerror(errno) + "; give the path of a transport stream file");
    struct stat status
    {
    };
    if (::fstat(file, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0) {
        ::close(file);
        throw StreamError(path + ": empty or no regular file; give the path of a transport stream file");
    }
    m_size = static_cast<std::size_t>(status.st_size);
    void* memory = ::mmap(nullptr, m_size, PROT_READ, MAP_PRIVATE, file, 0);
    const int cause = errno;
    ::close(file);
    if (memory == MAP_FAILED)
        throw StreamError(
            path + ": can not be mapped into memory: " + std::strerror(cause) + "; use a smaller file");
    m_data = static_cast<const std::uint8_t*>(memory);
}

void TsFile::checkSync(const std::string& path) const
{
    for (std::size_t i = 0; i < m_packetCount; ++i) {
        if (packet(i)[0] != ts::SyncByte)
            throw StreamError(path + ": synchronisation is lost at byte " + std::to_string(i * m_packetSize)
                + "; cut the file there or repair it");
    }
}

} // namespace tessary::sender
