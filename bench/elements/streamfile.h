#pragma once

#include <gst/gst.h>

#include <cstddef>
#include <cstdint>
#include <string>

/// The place where the FPGA's stream comes from: a regular file, read again and again if wanted, or a FIFO.
/// While the place is empty (no such file, FIFO without bytes) a read waits, as at an input without signal. A
/// file that is replaced or removed while it is read is noticed. read() and waitUntil() belong to one thread;
/// setFlushing() may be called from any.
class StreamFile
{
public:
    enum class Status {
        Data, ///< bytes were read
        Flushing, ///< the wait was broken off by setFlushing(true)
        End, ///< a regular file ended and is not to be repeated
        Error ///< reading failed; errno tells why
    };

    struct Result
    {
        Status status = Status::Error;
        std::size_t bytes = 0;
        bool restarted = false; ///< these bytes do not continue the earlier ones
    };

    StreamFile();
    ~StreamFile();
    StreamFile(const StreamFile&) = delete;
    StreamFile& operator=(const StreamFile&) = delete;

    /// Sets the path and whether a regular file starts again at its end. Closes what was open.
    void setPlace(const std::string& path, bool repeat);

    /// Breaks off every wait, now and until called with false.
    void setFlushing(bool flushing);

    /// Waits for bytes and reads up to `size`. A FIFO gives what came within 20 ms of its first byte.
    Result read(std::uint8_t* data, std::size_t size);

    /// Waits until g_get_monotonic_time() reaches `us`. False: broken off.
    bool waitUntil(std::int64_t us);

    /// Bit rate in bit/s that the open regular file's clock references tell; 0 for a FIFO or if it tells
    /// none.
    std::uint64_t tellBitRate() const;

    /// Whether the open place is a FIFO, whose writer sets the pace.
    bool isFifo() const { return m_isFifo; }

    void close();

private:
    bool open();
    bool isReplaced() const;
    Result readFile(std::uint8_t* data, std::size_t size);
    Result readFifo(std::uint8_t* data, std::size_t size);
    bool waitForByte(std::int64_t us);

    std::string m_path;
    bool m_repeat = true;
    int m_fd = -1;
    bool m_isFifo = false;
    std::uint64_t m_device = 0;
    std::uint64_t m_inode = 0;
    std::size_t m_bytesThisRound = 0;
    bool m_restarted = true;
    GstPoll* m_poll; // owned
    GstPollFD m_pollFd = GST_POLL_FD_INIT;
};
