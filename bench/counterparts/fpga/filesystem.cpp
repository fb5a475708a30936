// The FPGA's files, through FUSE. A file of such a file system takes any ioctl whose number says what it
// carries, so the SPI request arrives from the unmodified daemon; the bytes that the request points to are
// read out of the caller's memory.
#include "filesystem.h"

#define FUSE_USE_VERSION 35
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <fuse.h>
#include <iostream>
#include <linux/spi/spidev.h>
#include <mutex>
#include <poll.h>
#include <sys/uio.h>
#include <thread>

namespace {

Device* theDevice = nullptr;
std::mutex pollMutex;
fuse_pollhandle* waitingPoll = nullptr; ///< of the module that waits until the stream device is writable

int getAttributes(const char* path, struct stat* status, fuse_file_info*)
{
    std::memset(status, 0, sizeof *status);
    status->st_nlink = 1;
    if (theDevice->isFolder(path))
        status->st_mode = S_IFDIR | 0755;
    else if (theDevice->exists(path))
        status->st_mode = S_IFREG | 0600;
    else
        return -ENOENT;
    return 0;
}

int readFolder(
    const char* path, void* buffer, fuse_fill_dir_t fill, off_t, fuse_file_info*, fuse_readdir_flags)
{
    for (const std::string& name : theDevice->entries(path))
        fill(buffer, name.c_str(), nullptr, 0, fuse_fill_dir_flags{});
    return 0;
}

int openFile(const char* path, fuse_file_info* info)
{
    info->direct_io = 1; // every write arrives as it was made
    return theDevice->open(path);
}

int truncateFile(const char*, off_t, fuse_file_info*)
{
    return 0; // the shell's redirection asks for it
}

int readFile(const char* path, char* buffer, std::size_t size, off_t offset, fuse_file_info*)
{
    const std::string text = theDevice->text(path);
    if (offset < 0 || static_cast<std::size_t>(offset) >= text.size())
        return 0;
    return static_cast<int>(text.copy(buffer, size, static_cast<std::size_t>(offset)));
}

int writeFile(const char* path, const char* bytes, std::size_t size, off_t, fuse_file_info*)
{
    return theDevice->write(path, bytes, size);
}

/// The bytes at an address of the process that made the current request.
std::string bytesOfCaller(std::uint64_t address, std::size_t size)
{
    std::string bytes(size, '\0');
    iovec here{&bytes[0], size};
    iovec there{reinterpret_cast<void*>(address), size};
    const ssize_t count = process_vm_readv(fuse_get_context()->pid, &here, 1, &there, 1, 0);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    return bytes;
}

int control(const char* path, unsigned request, void*, fuse_file_info*, unsigned, void* argument)
{
    if (std::strcmp(path, "/spidev0.0") != 0 || request != SPI_IOC_MESSAGE(1))
        return -ENOTTY;
    spi_ioc_transfer transfer;
    std::memcpy(&transfer, argument, sizeof transfer);
    const std::string bytes = bytesOfCaller(transfer.tx_buf, transfer.len);
    if (bytes.size() != transfer.len)
        return -EFAULT;
    if (transfer.len > 4096)
        return -EMSGSIZE; // the driver's own buffer
    return theDevice->transfer(bytes, transfer.speed_hz, transfer.bits_per_word, transfer.delay_usecs,
        transfer.cs_change, transfer.tx_nbits, transfer.rx_nbits);
}

void replaceWaitingPoll(fuse_pollhandle* handle)
{
    const std::lock_guard<std::mutex> lock(pollMutex);
    if (waitingPoll)
        fuse_pollhandle_destroy(waitingPoll);
    waitingPoll = handle;
}

int pollFile(const char* path, fuse_file_info*, fuse_pollhandle* handle, unsigned* events)
{
    const bool isStream = std::strcmp(path, "/xillybus_write_8") == 0;
    const bool writable = !isStream || theDevice->streamWritable();
    *events = writable ? POLLIN | POLLOUT : POLLIN;
    if (handle)
        replaceWaitingPoll(handle);
    return 0;
}

/// Wakes the waiting module when the stream device has room again.
void watchStream(const std::atomic<bool>& ended)
{
    while (!ended) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::lock_guard<std::mutex> lock(pollMutex);
        if (waitingPoll && theDevice->streamWritable()) {
            fuse_notify_poll(waitingPoll);
            fuse_pollhandle_destroy(waitingPoll);
            waitingPoll = nullptr;
        }
    }
}

void* begin(fuse_conn_info*, fuse_config* config)
{
    // Nothing is remembered: lines come and go, and their values change by themselves.
    config->attr_timeout = 0;
    config->entry_timeout = 0;
    config->negative_timeout = 0;
    std::cout << "ready" << std::endl;
    return nullptr;
}

fuse_operations operations()
{
    fuse_operations table{};
    table.getattr = getAttributes;
    table.readdir = readFolder;
    table.open = openFile;
    table.truncate = truncateFile;
    table.read = readFile;
    table.write = writeFile;
    table.ioctl = control;
    table.poll = pollFile;
    table.init = begin;
    return table;
}

} // namespace

int serveFiles(Device& device, const char* program, const char* mountPoint)
{
    theDevice = &device;
    std::string words[] = {program, "-f", "-s", mountPoint};
    char* arguments[] = {&words[0][0], &words[1][0], &words[2][0], &words[3][0], nullptr};
    std::atomic<bool> ended{false};
    std::thread watcher([&ended] { watchStream(ended); });
    const fuse_operations table = operations();
    const int status = fuse_main(4, arguments, &table, nullptr);
    ended = true;
    watcher.join();
    replaceWaitingPoll(nullptr);
    return status;
}
