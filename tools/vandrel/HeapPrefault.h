// Start-up help for a short-lived program on a machine where page faults are
// dear: the heap's next pages are made present in one system call, so that
// the buffers of a run (file pieces, the codec library's, the plug-in's delay
// line and tables) are not each paid for with a fault when first written.
// A fault costs some microseconds, a dozen or more on virtual machines, and a
// stereo run writes about a hundred fresh heap pages.
#pragma once

#include <cstddef>

// Populates the next `bytes` of the heap and keeps them for the allocations
// that follow: blocks up to twice that size come from the heap instead of
// mappings of their own, and freed memory stays instead of going back to the
// kernel. Returns whether the pages were populated; false (nothing else
// changed but those two settings) where the kernel cannot (before 5.14) or
// the allocator is not the C library's. Call before allocating the buffers
// it is meant for, while no other thread runs. [control]
bool prefaultHeap(std::size_t bytes);
