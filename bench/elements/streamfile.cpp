#include "streamfile.h"

#include "streampace.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr std::int64_t kRetryUs = 100000; // between two looks for a file that is not there
constexpr std::int64_t kGatherUs = 20000; // how long a FIFO's block is gathered
constexpr std::size_t kRateProbeBytes = 16U << 20U; // enough for seconds of the fastest multiplex

} // namespace

StreamFile::StreamFile()
    : m_poll(gst_poll_new(TRUE))
{
}

StreamFile::~StreamFile()
{
    close();
    gst_poll_free(m_poll);
}

void StreamFile::setPlace(const std::string& path, bool repeat)
{
    close();
    m_path = path;
    m_repeat = repeat;
}

void StreamFile::setFlushing(bool flushing)
{
    gst_poll_set_flushing(m_poll, flushing ? TRUE : FALSE);
}

void StreamFile::close()
{
    if (m_fd < 0)
        return;
    if (m_isFifo)
        gst_poll_remove_fd(m_poll, &m_pollFd);
    ::close(m_fd);
    m_fd = -1;
}

bool StreamFile::open()
{
    struct stat info = {};
    if (::stat(m_path.c_str(), &info) != 0)
        return false;
    m_isFifo = S_ISFIFO(info.st_mode);
    if (!m_isFifo && !S_ISREG(info.st_mode))
        return false;
    // Being a writer as well keeps a FIFO open when its last writer leaves: the stream pauses, it does not
    // end.
    const int mode = m_isFifo ? O_RDWR | O_NONBLOCK : O_RDONLY;
    m_fd = ::open(m_path.c_str(), mode | O_CLOEXEC);
    if (m_fd < 0)
        return false;
    m_device = info.st_dev;
    m_inode = info.st_ino;
    m_bytesThisRound = 0;
    m_restarted = true;
    if (m_isFifo) {
        gst_poll_fd_init(&m_pollFd);
        m_pollFd.fd = m_fd;
        gst_poll_add_fd(m_poll, &m_pollFd);
        gst_poll_fd_ctl_read(m_poll, &m_pollFd, TRUE);
    }
    return true;
}

bool StreamFile::isReplaced() const
{
    struct stat info = {};
    return ::stat(m_path.c_str(), &info) != 0 || info.st_dev != m_device || info.st_ino != m_inode;
}

bool StreamFile::waitUntil(std::int64_t us)
{
    // The FIFO's descriptor must not end a wait for a time: it is left out meanwhile.
    if (m_fd >= 0 && m_isFifo)
        gst_poll_fd_ctl_read(m_poll, &m_pollFd, FALSE);
    bool undisturbed = true;
    for (std::int64_t left = us - g_get_monotonic_time(); undisturbed && left > 0;
         left = us - g_get_monotonic_time()) {
        const auto timeout = static_cast<GstClockTime>(left) * GST_USECOND;
        undisturbed = gst_poll_wait(m_poll, timeout) >= 0 || errno == EINTR || errno == EAGAIN;
    }
    if (m_fd >= 0 && m_isFifo)
        gst_poll_fd_ctl_read(m_poll, &m_pollFd, TRUE);
    return undisturbed;
}

// Waits for a byte in the FIFO up to the time `us`. False: broken off.
bool StreamFile::waitForByte(std::int64_t us)
{
    const std::int64_t left = us - g_get_monotonic_time();
    if (left <= 0)
        return true;
    return gst_poll_wait(m_poll, static_cast<GstClockTime>(left) * GST_USECOND) >= 0 || errno == EINTR
        || errno == EAGAIN;
}

StreamFile::Result StreamFile::read(std::uint8_t* data, std::size_t size)
{
    for (;;) {
        if (m_fd >= 0 && isReplaced())
            close();
        if (m_fd < 0 && !open()) {
            if (!waitUntil(g_get_monotonic_time() + kRetryUs))
                return {Status::Flushing, 0, false};
            continue;
        }
        Result result = m_isFifo ? readFifo(data, size) : readFile(data, size);
        if (result.status == Status::Data && result.bytes == 0)
            continue; // nothing yet
        if (result.status == Status::Data) {
            m_bytesThisRound += result.bytes;
            result.restarted = m_restarted;
            m_restarted = false;
        }
        return result;
    }
}

StreamFile::Result StreamFile::readFile(std::uint8_t* data, std::size_t size)
{
    const ssize_t got = ::read(m_fd, data, size);
    if (got < 0)
        return {errno == EINTR ? Status::Data : Status::Error, 0, false};
    if (got > 0)
        return {Status::Data, static_cast<std::size_t>(got), false};
    const bool wasEmpty = m_bytesThisRound == 0;
    if (!m_repeat && !wasEmpty)
        return {Status::End, 0, false};
    if (wasEmpty && !waitUntil(g_get_monotonic_time() + kRetryUs))
        return {Status::Flushing, 0, false};
    ::lseek(m_fd, 0, SEEK_SET);
    m_bytesThisRound = 0;
    m_restarted = true;
    return {Status::Data, 0, false};
}

StreamFile::Result StreamFile::readFifo(std::uint8_t* data, std::size_t size)
{
    // Woken now and then to notice that the FIFO itself was replaced.
    if (!waitForByte(g_get_monotonic_time() + 5 * kRetryUs))
        return {Status::Flushing, 0, false};
    std::size_t filled = 0;
    std::int64_t until = 0;
    while (filled < size) {
        const ssize_t got = ::read(m_fd, data + filled, size - filled);
        if (got < 0 && errno != EAGAIN && errno != EINTR)
            return {Status::Error, 0, false};
        if (got > 0 && filled == 0)
            until = g_get_monotonic_time() + kGatherUs;
        filled += got > 0 ? static_cast<std::size_t>(got) : 0;
        if (filled == 0 || filled == size || g_get_monotonic_time() >= until)
            break;
        if (!waitForByte(until))
            break; // what came is still delivered; the next read is broken off
    }
    return {Status::Data, filled, false};
}

std::uint64_t StreamFile::tellBitRate() const
{
    if (m_fd < 0 || m_isFifo)
        return 0;
    // Pages of its own, given back at once: from the C library's heap, each streaming thread's arena would
    // keep so much.
    const int flags = MAP_PRIVATE | MAP_ANONYMOUS;
    void* const probe = ::mmap(nullptr, kRateProbeBytes, PROT_READ | PROT_WRITE, flags, -1, 0);
    if (probe == MAP_FAILED)
        return 0;
    const ssize_t got = ::pread(m_fd, probe, kRateProbeBytes, 0);
    const auto* const bytes = static_cast<const std::uint8_t*>(probe);
    const std::uint64_t rate = got > 0 ? bitRateFromPcr(bytes, static_cast<std::size_t>(got)) : 0;
    ::munmap(probe, kRateProbeBytes);
    return rate;
}
