/*
 * Dictionaries: unordered maps from keys to values, one value per key.
 *
 * The key callbacks decide retaining, equality and hashing of keys
 * (kCFTypeDictionaryKeyCallBacks: retain, release, CFEqual, CFHash); the
 * value callbacks decide retaining of values (kCFTypeDictionaryValueCallBacks).
 * NULL callbacks (or NULL fields) mean no retain, no release, pointer
 * identity and a pointer hash. Setting a value for a key that is already
 * present replaces the value (the old one is released) and keeps the key
 * object that was stored first.
 */
#ifndef CFDICTIONARY_H
#define CFDICTIONARY_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const void* (*CFDictionaryRetainCallBack)(CFAllocatorRef allocator, const void* value);
typedef void (*CFDictionaryReleaseCallBack)(CFAllocatorRef allocator, const void* value);
typedef CFStringRef (*CFDictionaryCopyDescriptionCallBack)(const void* value);
typedef Boolean (*CFDictionaryEqualCallBack)(const void* value1, const void* value2);
typedef CFHashCode (*CFDictionaryHashCallBack)(const void* value);

typedef struct
{
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
    CFDictionaryHashCallBack hash;
} CFDictionaryKeyCallBacks;
CF_STATIC_ASSERT(sizeof(CFDictionaryKeyCallBacks) == 48 &&
                     offsetof(CFDictionaryKeyCallBacks, hash) == 40,
                 "CFDictionaryKeyCallBacks layout");

typedef struct
{
    CFIndex version;
    CFDictionaryRetainCallBack retain;
    CFDictionaryReleaseCallBack release;
    CFDictionaryCopyDescriptionCallBack copyDescription;
    CFDictionaryEqualCallBack equal;
} CFDictionaryValueCallBacks;
CF_STATIC_ASSERT(sizeof(CFDictionaryValueCallBacks) == 40 &&
                     offsetof(CFDictionaryValueCallBacks, equal) == 32,
                 "CFDictionaryValueCallBacks layout");

CF_EXPORT const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
CF_EXPORT const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;

typedef void (*CFDictionaryApplierFunction)(const void* key, const void* value, void* context);

typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;

CF_EXPORT CFTypeID CFDictionaryGetTypeID(void);

/* Owned immutable dictionary of numValues pairs; a later duplicate key
 * replaces the earlier pair's value. [any] */
CF_EXPORT CFDictionaryRef CFDictionaryCreate(CFAllocatorRef allocator, const void** keys,
                                             const void** values, CFIndex numValues,
                                             const CFDictionaryKeyCallBacks* keyCallBacks,
                                             const CFDictionaryValueCallBacks* valueCallBacks);
/* Owned immutable copy with the same callbacks. [any] */
CF_EXPORT CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef allocator, CFDictionaryRef theDict);
/* Owned empty mutable dictionary; capacity is a hint (0: unlimited). [any] */
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutable(
    CFAllocatorRef allocator, CFIndex capacity, const CFDictionaryKeyCallBacks* keyCallBacks,
    const CFDictionaryValueCallBacks* valueCallBacks);
/* Owned mutable copy with the same callbacks. [any] */
CF_EXPORT CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef allocator,
                                                               CFIndex capacity,
                                                               CFDictionaryRef theDict);

CF_EXPORT CFIndex CFDictionaryGetCount(CFDictionaryRef theDict);
/* Borrowed value for key, NULL when absent. [any] */
CF_EXPORT const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key);
/* True when key is present; stores the borrowed value in *value (if not NULL). [any] */
CF_EXPORT Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key,
                                                const void** value);
CF_EXPORT Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key);
CF_EXPORT Boolean CFDictionaryContainsValue(CFDictionaryRef theDict, const void* value);
/* Fills keys and values (each may be NULL, else room for the count) with
 * borrowed references, pair by pair in the same order. [any] */
CF_EXPORT void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys,
                                            const void** values);
CF_EXPORT void CFDictionaryApplyFunction(CFDictionaryRef theDict,
                                         CFDictionaryApplierFunction applier, void* context);

/* Mutators; ignored for immutable dictionaries. [any] */
/* Adds the pair only when key is absent. */
CF_EXPORT void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void* key,
                                    const void* value);
/* Adds the pair or replaces the value of an equal key. */
CF_EXPORT void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key,
                                    const void* value);
/* Replaces the value only when key is present. */
CF_EXPORT void CFDictionaryReplaceValue(CFMutableDictionaryRef theDict, const void* key,
                                        const void* value);
CF_EXPORT void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key);
CF_EXPORT void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict);

CF_EXTERN_C_END

#endif /* CFDICTIONARY_H */
