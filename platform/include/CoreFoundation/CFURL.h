/*
 * URLs: file-system locations only. A URL keeps the path it was made from
 * (without a trailing slash) and, for a relative path, the working directory
 * at creation so that it can be resolved to an absolute path later.
 */
#ifndef CFURL_H
#define CFURL_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef CFIndex CFURLPathStyle;
enum
{
    kCFURLPOSIXPathStyle = 0
};

typedef const struct __CFURL* CFURLRef;

CF_EXPORT CFTypeID CFURLGetTypeID(void);

/* Owned URL for a POSIX path; NULL for another style or an empty path. [any] */
CF_EXPORT CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef filePath,
                                                 CFURLPathStyle pathStyle, Boolean isDirectory);
/* Owned URL from bufLen UTF-8 bytes of a path. [any] */
CF_EXPORT CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator,
                                                           const UInt8* buffer, CFIndex bufLen,
                                                           Boolean isDirectory);
/* Owned URL of url's path with one more component. [any] */
CF_EXPORT CFURLRef CFURLCreateCopyAppendingPathComponent(CFAllocatorRef allocator, CFURLRef url,
                                                         CFStringRef pathComponent,
                                                         Boolean isDirectory);

/* Owned path string as made (relative stays relative); NULL for another style. [any] */
CF_EXPORT CFStringRef CFURLCopyFileSystemPath(CFURLRef anURL, CFURLPathStyle pathStyle);
/* Owned last path component ("" for "/"). [any] */
CF_EXPORT CFStringRef CFURLCopyLastPathComponent(CFURLRef url);
/* Writes the NUL-terminated UTF-8 path (absolute when resolveAgainstBase);
 * false when it does not fit in maxBufLen bytes. [any] */
CF_EXPORT Boolean CFURLGetFileSystemRepresentation(CFURLRef url, Boolean resolveAgainstBase,
                                                   UInt8* buffer, CFIndex maxBufLen);
/* True when the URL was made as a directory. [any] */
CF_EXPORT Boolean CFURLHasDirectoryPath(CFURLRef anURL);

CF_EXTERN_C_END

#endif /* CFURL_H */
