/*
 * Arrays: ordered sequences of pointer-sized values.
 *
 * The callbacks given at creation decide what the array does with its
 * values: kCFTypeArrayCallBacks retains values on insertion, releases them on
 * removal and destruction, and compares with CFEqual; NULL callbacks (or NULL
 * fields) mean no retain, no release and pointer identity. The callbacks
 * structure is copied.
 */
#ifndef CFARRAY_H
#define CFARRAY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFArrayRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFArrayReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFArrayCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFArrayEqualCallBack)(const void* value1, const void* value2);

typedef struct
{
    CFIndex version;
    CFArrayRetainCallBack retain;
    CFArrayReleaseCallBack release;
    CFArrayCopyDescriptionCallBack copyDescription;
    CFArrayEqualCallBack equal;
} CFArrayCallBacks;
CF_STATIC_ASSERT(sizeof(CFArrayCallBacks) == 40 && offsetof(CFArrayCallBacks, equal) == 32,
                 "CFArrayCallBacks layout");

CF_EXPORT const CFArrayCallBacks kCFTypeArrayCallBacks;

typedef void (*CFArrayApplierFunction)(const void* value, void* context);

typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;

CF_EXPORT CFTypeID CFArrayGetTypeID(void);

/* Owned immutable array of numValues values (retained per the callbacks). [any] */
CF_EXPORT CFArrayRef CFArrayCreate(CFAllocatorRef allocator, const void** values, CFIndex numValues,
                                   const CFArrayCallBacks* callBacks);
/* Owned immutable copy with the same callbacks. [any] */
CF_EXPORT CFArrayRef CFArrayCreateCopy(CFAllocatorRef allocator, CFArrayRef theArray);
/* Owned empty mutable array; capacity is a hint (0: unlimited). [any] */
CF_EXPORT CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFArrayCallBacks* callBacks);
/* Owned mutable copy with the same callbacks. [any] */
CF_EXPORT CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef allocator, CFIndex capacity,
                                                     CFArrayRef theArray);

CF_EXPORT CFIndex CFArrayGetCount(CFArrayRef theArray);
/* Borrowed value at idx; NULL when idx is out of range. [any] */
CF_EXPORT const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx);
/* Copies the values of range (which must lie inside the array), borrowed. [any] */
CF_EXPORT void CFArrayGetValues(CFArrayRef theArray, CFRange range, const void** values);
CF_EXPORT Boolean CFArrayContainsValue(CFArrayRef theArray, CFRange range, const void* value);
/* First index in range holding an equal value, or kCFNotFound. [any] */
CF_EXPORT CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef theArray, CFRange range,
                                              const void* value);
CF_EXPORT void CFArrayApplyFunction(CFArrayRef theArray, CFRange range,
                                    CFArrayApplierFunction applier, void* context);

/* Mutators; ignored for immutable arrays and out-of-range indices. [any] */
CF_EXPORT void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value);
CF_EXPORT void CFArrayInsertValueAtIndex(CFMutableArrayRef theArray, CFIndex idx,
                                         const void* value);
/* Replaces the value at idx (idx == count appends). */
CF_EXPORT void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value);
CF_EXPORT void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx);
CF_EXPORT void CFArrayRemoveAllValues(CFMutableArrayRef theArray);

CF_EXTERN_C_END

#endif /* CFARRAY_H */
