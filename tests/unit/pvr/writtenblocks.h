#pragma once

#include <cstddef>
#include <string>
#include <vector>

/// The sizes of the blocks that the code writes to a device while the object lives, an empty one included, of
/// which the device itself shows nothing. (The test program is linked with write() wrapped.) One at a time.
class WrittenBlocks
{
public:
    explicit WrittenBlocks(const std::string& device);
    ~WrittenBlocks();
    WrittenBlocks(const WrittenBlocks&) = delete;
    WrittenBlocks& operator=(const WrittenBlocks&) = delete;

    const std::vector<std::size_t>& sizes() const;
};
