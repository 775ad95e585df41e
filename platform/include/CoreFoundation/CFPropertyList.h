/*
 * Property lists: serialising trees of strings, numbers (integers stay
 * integers, reals stay reals), booleans, data, arrays and dictionaries with
 * string keys. Writing produces the XML or binary format; reading accepts
 * both (and detects which one it got).
 */
#ifndef CFPROPERTYLIST_H
#define CFPROPERTYLIST_H

#include <CoreFoundation/CFBase.h>
#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFError.h>

CF_EXTERN_C_BEGIN

typedef CFOptionFlags CFPropertyListMutabilityOptions;
enum
{
    kCFPropertyListImmutable = 0,
    kCFPropertyListMutableContainers = 1,
    kCFPropertyListMutableContainersAndLeaves = 2
};

typedef CFIndex CFPropertyListFormat;
enum
{
    kCFPropertyListOpenStepFormat = 1,
    kCFPropertyListXMLFormat_v1_0 = 100,
    kCFPropertyListBinaryFormat_v1_0 = 200
};

/* Owned data holding propertyList in format (XML or binary); options is
 * unused. NULL (and an owned *error if error is not NULL) when the tree holds a
 * non-property-list object or a non-string dictionary key, or for another
 * format. [any] */
CF_EXPORT CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator,
                                             CFPropertyListRef propertyList,
                                             CFPropertyListFormat format, CFOptionFlags options,
                                             CFErrorRef* error);

/* Owned tree read from data (XML or binary); *format (if not NULL) receives
 * the format found. options: kCFPropertyListImmutable, or mutable containers
 * (and leaves). NULL (and an owned *error) when data is not a property list
 * or holds types this library lacks (dates, UIDs), and, so that hostile
 * bytes are refused in time and memory linear in their size, when containers
 * nest more than 513 levels deep, a binary list's shared objects expand to
 * more nodes than it has bytes or form a cycle, or a binary string holds a
 * NUL character. [any] */
CF_EXPORT CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                                         CFOptionFlags options,
                                                         CFPropertyListFormat* format,
                                                         CFErrorRef* error);

/* Owned deep copy with the mutability given by options. [any] */
CF_EXPORT CFPropertyListRef CFPropertyListCreateDeepCopy(CFAllocatorRef allocator,
                                                         CFPropertyListRef propertyList,
                                                         CFOptionFlags mutabilityOption);

/* True when plist is a tree that can be written in format. [any] */
CF_EXPORT Boolean CFPropertyListIsValid(CFPropertyListRef plist, CFPropertyListFormat format);

CF_EXTERN_C_END

#endif /* CFPROPERTYLIST_H */
