/*
 * Data: immutable or growable byte buffers.
 */
#ifndef CFDATA_H
#define CFDATA_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFData* CFDataRef;
typedef struct __CFData* CFMutableDataRef;

CF_EXPORT CFTypeID CFDataGetTypeID(void);

/* Owned copy of length bytes (bytes may be NULL when length is 0). [any] */
CF_EXPORT CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
/* Owned immutable copy. [any] */
CF_EXPORT CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef theData);
/* Owned empty mutable data; capacity is a hint (0: unlimited). [any] */
CF_EXPORT CFMutableDataRef CFDataCreateMutable(CFAllocatorRef allocator, CFIndex capacity);
/* Owned mutable copy. [any] */
CF_EXPORT CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                   CFDataRef theData);

CF_EXPORT CFIndex CFDataGetLength(CFDataRef theData);
/* Borrowed pointer to the bytes; valid until the data is released or grows. [any] */
CF_EXPORT const UInt8* CFDataGetBytePtr(CFDataRef theData);
/* Writable pointer for mutable data, NULL for immutable data. [any] */
CF_EXPORT UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData);
/* Copies the bytes of range (which must lie inside the data). [any] */
CF_EXPORT void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer);

/* Mutators; ignored for immutable data. New bytes are zero. [any] */
CF_EXPORT void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length);
CF_EXPORT void CFDataSetLength(CFMutableDataRef theData, CFIndex length);
CF_EXPORT void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength);

CF_EXTERN_C_END

#endif /* CFDATA_H */
