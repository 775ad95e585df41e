#include "HeapPrefault.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <malloc.h>
#include <sys/mman.h>
#include <unistd.h>

bool prefaultHeap(std::size_t bytes)
{
    const long pageSize = sysconf(_SC_PAGESIZE);
    if (bytes == 0 || bytes > INT_MAX / 2 || pageSize <= 0)
        return false;
    // Both settings are needed: the block below would otherwise get a mapping
    // of its own, and freeing it would hand the pages back.
    const int limit = static_cast<int>(2 * bytes);
    if (mallopt(M_MMAP_THRESHOLD, limit) == 0 || mallopt(M_TRIM_THRESHOLD, limit) == 0)
        return false;
    void* const block = std::malloc(bytes);
    if (block == nullptr)
        return false;
    const auto page = static_cast<std::uintptr_t>(pageSize);
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (address + page - 1) & ~(page - 1);
    const std::uintptr_t end = (address + bytes) & ~(page - 1);
    const bool populated = end > first && madvise(reinterpret_cast<void*>(first), end - first,
                                                  MADV_POPULATE_WRITE) == 0;
    std::free(block);
    return populated;
}
