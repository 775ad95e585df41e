#include "HeapPrefault.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sys/mman.h>
#include <sys/resource.h>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VANDREL_OWN_ALLOCATOR 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VANDREL_OWN_ALLOCATOR 1
#endif

namespace {

long minorFaults()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_minflt;
}

TEST(HeapPrefaultTest, BlocksHandedOutAfterwardsAreWrittenWithoutPageFaults)
{
#ifdef VANDREL_OWN_ALLOCATOR
    GTEST_SKIP() << "the sanitizer's allocator takes no settings";
#endif
    // Kernels before 5.14 reject the advice whatever the range.
    alignas(4096) static char page[4096];
    if (madvise(page, 0, MADV_POPULATE_WRITE) != 0)
        GTEST_SKIP() << "the kernel cannot populate pages";
    ASSERT_TRUE(prefaultHeap(1u << 20));
    // 512 KiB in blocks of the sizes a run asks for, among them one above
    // the allocator's usual limit for heap blocks: 128 fresh pages otherwise.
    const std::size_t sizes[] = {32u << 10, 200u << 10, 64u << 10, 104u << 10, 112u << 10};
    void* blocks[5] = {};
    const long before = minorFaults();
    for (int i = 0; i < 5; ++i) {
        blocks[i] = std::malloc(sizes[i]);
        ASSERT_NE(blocks[i], nullptr);
        std::memset(blocks[i], 1, sizes[i]);
    }
    const long faults = minorFaults() - before;
    for (void* block : blocks)
        std::free(block);
    EXPECT_LT(faults, 8);
}

} // namespace
