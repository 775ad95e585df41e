/*
 * Errors: what went wrong in an operation that takes a CFErrorRef* out
 * parameter. Callers may pass NULL when they do not want the error; when they
 * pass a place, a failing call stores an owned error there.
 */
#ifndef CFERROR_H
#define CFERROR_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef struct __CFError* CFErrorRef;

/* Error codes of the property-list functions. */
enum
{
    kCFPropertyListReadCorruptError = 3840,
    kCFPropertyListReadUnknownVersionError = 3841,
    kCFPropertyListWriteInvalidError = 3851
};

CF_EXPORT CFTypeID CFErrorGetTypeID(void);
/* The error's code. [any] */
CF_EXPORT CFIndex CFErrorGetCode(CFErrorRef err);
/* Borrowed domain name. [any] */
CF_EXPORT CFStringRef CFErrorGetDomain(CFErrorRef err);
/* Owned human-readable description. [any] */
CF_EXPORT CFStringRef CFErrorCopyDescription(CFErrorRef err);

CF_EXTERN_C_END

#endif /* CFERROR_H */
