#include "allocations.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> clearErrno{false};

} // namespace

void* operator new(std::size_t size)
{
    void* block = std::malloc(size > 0 ? size : 1);
    if (!block)
        throw std::bad_alloc();
    if (clearErrno)
        errno = 0;
    return block;
}

void operator delete(void* block) noexcept
{
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

} // namespace allocations
