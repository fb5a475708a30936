#pragma once

#include <atomic>
#include <cstddef>

/// What the program allocates with operator new. A test program that lists allocations.cpp among its sources
/// has its own operators, which serve the libraries, too.
namespace allocations {

/// While the object lives, every allocation leaves 0 in errno, as any successful call may.
class ErrnoClearing
{
public:
    ErrnoClearing();
    ~ErrnoClearing();
    ErrnoClearing(const ErrnoClearing&) = delete;
    ErrnoClearing& operator=(const ErrnoClearing&) = delete;
};

/// While the object lives, counts the blocks that its thread takes.
class Counting
{
public:
    explicit Counting(std::atomic<int>& blocks);
    ~Counting();
    Counting(const Counting&) = delete;
    Counting& operator=(const Counting&) = delete;
};

/// Bytes that were held at most since resetPeak(), beyond what was held then. All threads together.
std::size_t peak();
void resetPeak();

} // namespace allocations
