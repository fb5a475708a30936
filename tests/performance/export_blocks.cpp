// The least that an export can do as the daemon does it: read a block, wait until the device takes one, write
// it. export-blocks RECORDING DEVICE
#include "probe.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

namespace {

constexpr std::size_t blockBytes = 1024;

bool waitUntilWritable(int device)
{
    fd_set set;
    FD_ZERO(&set);
    FD_SET(device, &set);
    timeval timeout = {6, 0};
    return select(device + 1, nullptr, &set, nullptr, &timeout) == 1;
}

} // namespace

int main(int argc, char** argv)
{
    std::FILE* recording = argc == 3 ? std::fopen(argv[1], "rbe") : nullptr;
    const int device = argc == 3 ? open(argv[2], O_WRONLY | O_CLOEXEC) : -1;
    if (!recording || device < 0) {
        std::fputs("export-blocks: usage: export-blocks RECORDING DEVICE (both must be there)\n", stderr);
        return 1;
    }
    const double begin = nowMs();
    char block[blockBytes];
    std::size_t bytes = 0;
    for (std::size_t count = 0; (count = std::fread(block, 1, blockBytes, recording)) > 0; bytes += count) {
        if (!waitUntilWritable(device) || write(device, block, count) < 0) {
            std::fputs("export-blocks: the device does not take it\n", stderr);
            return 1;
        }
    }
    std::printf("{\"seconds\": %.6f, \"bytes\": %zu}\n", (nowMs() - begin) / 1000, bytes);
    std::fclose(recording);
    close(device);
    return 0;
}
