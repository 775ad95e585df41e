/*
 * Free helpers shared by the plug-in engines of this family: zero-filled
 * heap blocks for delay lines and tables, and the level-to-ratio conversion
 * used for the dry and wet gains.
 *
 * Blocks come from the global operator new (nothrow form), so a failed
 * allocation shows up as a null pointer instead of an exception, and tests
 * that replace the global allocation functions see every block an engine
 * takes.
 */
#ifndef PLUGHELPERS_H
#define PLUGHELPERS_H

// A block of `size` bytes, all zero, owned by the caller until PlugMemFree.
// Null when the heap refuses or `size` is negative (then nothing is filled).
// Allocates: never on the render thread. [control]
void* PlugMemAllocZeroInit(long long size);

// Returns a block from PlugMemAllocZeroInit to the heap; null is ignored. [control]
void PlugMemFree(void* p);

// Linear amplitude ratio of a level in tenths of a decibel: 10^(tenths / 200),
// or exactly 0.0 when the level is at or below `floorDb` (whole decibels). [any]
double PlugGetRatioFromdB(long tenthsOfDb, long floorDb);

#endif
