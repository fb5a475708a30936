#include "allocations.h"

#include <cerrno>
#include <cstdlib>
#include <malloc.h>
#include <new>

namespace {

std::atomic<bool> clearErrno{false};
std::atomic<std::ptrdiff_t> held{0};
std::atomic<std::ptrdiff_t> heldAtMost{0};
std::ptrdiff_t heldAtReset = 0;
thread_local std::atomic<int>* blocksTaken = nullptr;

void count(void* block)
{
    if (blocksTaken)
        ++*blocksTaken;
    const auto bytes = static_cast<std::ptrdiff_t>(malloc_usable_size(block));
    const std::ptrdiff_t now = held += bytes;
    std::ptrdiff_t most = heldAtMost;
    while (now > most && !heldAtMost.compare_exchange_weak(most, now)) { }
}

} // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    void* block = std::malloc(size > 0 ? size : 1);
    if (!block)
        return nullptr;
    count(block);
    if (clearErrno)
        errno = 0;
    return block;
}

void* operator new(std::size_t size)
{
    void* block = operator new(size, std::nothrow);
    if (!block)
        throw std::bad_alloc();
    return block;
}

void operator delete(void* block) noexcept
{
    if (block)
        held -= static_cast<std::ptrdiff_t>(malloc_usable_size(block));
    std::free(block);
}

void operator delete(void* block, std::size_t) noexcept
{
    operator delete(block);
}

namespace allocations {

ErrnoClearing::ErrnoClearing()
{
    clearErrno = true;
}

ErrnoClearing::~ErrnoClearing()
{
    clearErrno = false;
}

Counting::Counting(std::atomic<int>& blocks)
{
    blocksTaken = &blocks;
}

Counting::~Counting()
{
    blocksTaken = nullptr;
}

std::size_t peak()
{
    return static_cast<std::size_t>(heldAtMost - heldAtReset);
}

void resetPeak()
{
    heldAtReset = held;
    heldAtMost = heldAtReset;
}

} // namespace allocations
