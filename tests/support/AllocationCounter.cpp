#include "AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<long> gAllocations{0};
std::atomic<long> gReleases{0};
std::atomic<long> gAllocationsBeforeFailure{-1}; // negative: never fail

// Both kept out of line so that the compiler does not pair malloc and free
// across inlined call sites of the replaced operators (a false mismatch
// warning at -O2).
[[gnu::noinline]] void* Allocate(std::size_t inSize) noexcept
{
    long left = gAllocationsBeforeFailure.load();
    while (left >= 0) {
        if (left == 0) {
            return nullptr;
        }
        if (gAllocationsBeforeFailure.compare_exchange_weak(left, left - 1)) {
            break;
        }
    }
    void* block = std::malloc(inSize == 0 ? 1 : inSize);
    if (block != nullptr) {
        ++gAllocations;
    }
    return block;
}

[[gnu::noinline]] void Release(void* inBlock) noexcept
{
    if (inBlock != nullptr) {
        ++gReleases;
    }
    std::free(inBlock);
}

} // namespace

namespace allocationcounter {

long Allocations() noexcept
{
    return gAllocations.load();
}

long Releases() noexcept
{
    return gReleases.load();
}

void FailAllocationsAfter(long inCount) noexcept
{
    gAllocationsBeforeFailure.store(inCount < 0 ? -1 : inCount);
}

} // namespace allocationcounter

[[gnu::noinline]] void* operator new(std::size_t inSize)
{
    if (void* block = Allocate(inSize)) {
        return block;
    }
    throw std::bad_alloc();
}

[[gnu::noinline]] void* operator new[](std::size_t inSize)
{
    return operator new(inSize);
}

[[gnu::noinline]] void* operator new(std::size_t inSize, const std::nothrow_t&) noexcept
{
    return Allocate(inSize);
}

[[gnu::noinline]] void* operator new[](std::size_t inSize, const std::nothrow_t&) noexcept
{
    return Allocate(inSize);
}

[[gnu::noinline]] void operator delete(void* inBlock) noexcept
{
    Release(inBlock);
}

[[gnu::noinline]] void operator delete[](void* inBlock) noexcept
{
    Release(inBlock);
}

[[gnu::noinline]] void operator delete(void* inBlock, std::size_t) noexcept
{
    Release(inBlock);
}

[[gnu::noinline]] void operator delete[](void* inBlock, std::size_t) noexcept
{
    Release(inBlock);
}

[[gnu::noinline]] void operator delete(void* inBlock, const std::nothrow_t&) noexcept
{
    Release(inBlock);
}

[[gnu::noinline]] void operator delete[](void* inBlock, const std::nothrow_t&) noexcept
{
    Release(inBlock);
}
