/*
 * Object library: base types and the reference-counting core.
 *
 * Every object (string, number, boolean, data, array, dictionary, URL,
 * bundle, error) is an opaque, reference-counted value shared by the plug-in
 * and every host through one shared library, so objects cross the plug-in
 * boundary with one type registry and one retain count.
 *
 * Ownership follows one rule: a function whose name contains Create or Copy
 * returns an owned reference (+1) that the caller must CFRelease; every other
 * function (Get...) returns a borrowed reference that stays valid as long as
 * the object it came from. Retain and release are atomic and may be called
 * from any thread; an object must not be mutated while another thread reads
 * it. Constant strings (CFSTR) and the two booleans are immortal: retain and
 * release do nothing to them.
 *
 * Thread tags: [any] any thread; [control] host control threads. A function
 * without a tag is [any]. Nothing here is [render]: creating or releasing
 * objects may allocate and take locks.
 */
#ifndef CFBASE_H
#define CFBASE_H

#include <MacTypes.h>
#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define CF_EXTERN_C_BEGIN extern "C" {
#define CF_EXTERN_C_END }
#else
#define CF_EXTERN_C_BEGIN
#define CF_EXTERN_C_END
#endif

/* Marks the library's public functions and constants as exported. */
#define CF_EXPORT extern __attribute__((visibility("default")))
#define CF_INLINE static inline

#ifdef __cplusplus
#define CF_STATIC_ASSERT(condition, message) static_assert(condition, message)
#else
#define CF_STATIC_ASSERT(condition, message) _Static_assert(condition, message)
#endif

CF_EXTERN_C_BEGIN

typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef unsigned long CFHashCode;
typedef signed long CFIndex;

typedef const void* CFTypeRef;
/* Any property-list object: string, number, boolean, data, array, dictionary. */
typedef CFTypeRef CFPropertyListRef;

typedef const struct __CFString* CFStringRef;
typedef struct __CFString* CFMutableStringRef;
typedef const struct __CFAllocator* CFAllocatorRef;

/* Only the default allocator exists; it is NULL, and every Create accepts it. */
CF_EXPORT const CFAllocatorRef kCFAllocatorDefault;

typedef struct
{
    CFIndex location;
    CFIndex length;
} CFRange;

CF_STATIC_ASSERT(sizeof(CFRange) == 16 && offsetof(CFRange, length) == 8, "CFRange layout");

CF_INLINE CFRange CFRangeMake(CFIndex loc, CFIndex len)
{
    CFRange range;
    range.location = loc;
    range.length = len;
    return range;
}

typedef CFIndex CFComparisonResult;
enum
{
    kCFCompareLessThan = -1L,
    kCFCompareEqualTo = 0,
    kCFCompareGreaterThan = 1
};

enum
{
    kCFNotFound = -1
};

/* Adds one reference and returns cf (NULL stays NULL). [any] */
CF_EXPORT CFTypeRef CFRetain(CFTypeRef cf);

/* Drops one reference; the last one destroys the object. NULL is ignored. [any] */
CF_EXPORT void CFRelease(CFTypeRef cf);

/* Current number of references; immortal objects report a very large count
 * (LONG_MAX). 0 for NULL. [any] */
CF_EXPORT CFIndex CFGetRetainCount(CFTypeRef cf);

/* The object's type identifier, to compare with the ...GetTypeID() of each
 * type. 0 for NULL. [any] */
CF_EXPORT CFTypeID CFGetTypeID(CFTypeRef cf);

/* True when both objects are of comparable type and hold equal values
 * (numbers compare by value across their types). [any] */
CF_EXPORT Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2);

/* Hash consistent with CFEqual. [any] */
CF_EXPORT CFHashCode CFHash(CFTypeRef cf);

/* Owned human-readable description of any object (as "%@" prints it). [any] */
CF_EXPORT CFStringRef CFCopyDescription(CFTypeRef cf);

/* Owned name of a type identifier ("CFString", ...); NULL if unknown. [any] */
CF_EXPORT CFStringRef CFCopyTypeIDDescription(CFTypeID type_id);

/* Writes the object's description to standard error (debugging aid). [control] */
CF_EXPORT void CFShow(CFTypeRef obj);

CF_EXTERN_C_END

#endif /* CFBASE_H */
