// Linked into a test program, this piece replaces the global operator new and
// delete (every replaceable form but the aligned ones) so that the program can
// count heap calls around code that must not make any, such as renders. The
// replacements are exported from the program, so code in the shared libraries
// and bundles it loads pairs its allocations with the same functions. Tests
// read the counters before and after the code under test and compare.
#ifndef ALLOCATIONCOUNTER_H
#define ALLOCATIONCOUNTER_H

namespace allocationcounter {

// Calls of any operator new that returned a block, since the program started. [any]
long Allocations() noexcept;

// Calls of any operator delete with a non-null block, since the program started. [any]
long Releases() noexcept;

// Lets inCount more allocations succeed, then makes every following one fail
// (operator new throws std::bad_alloc, the nothrow forms return null) until
// called again; a negative inCount never fails. Failed calls are not counted. [any]
void FailAllocationsAfter(long inCount) noexcept;

} // namespace allocationcounter

#endif
