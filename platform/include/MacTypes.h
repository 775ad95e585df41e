/*
 * Basic scalar types and the classic status codes shared by every platform
 * header. Plain C, usable from C11 and C++17; the widths are pinned below so
 * that records built on these types keep the platform's byte layout.
 */
#ifndef MACTYPES_H
#define MACTYPES_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint8_t UInt8;
typedef int8_t SInt8;
typedef uint16_t UInt16;
typedef int16_t SInt16;
typedef uint32_t UInt32;
typedef int32_t SInt32;
typedef uint64_t UInt64;
typedef int64_t SInt64;

typedef float Float32;
typedef double Float64;

/* One byte; zero is false, anything else true. */
typedef unsigned char Boolean;

typedef UInt8 Byte;
typedef SInt8 SignedByte;
typedef char* Ptr;
typedef Ptr* Handle;

/* Status codes: 0 is success, negative values are errors. */
typedef SInt32 OSStatus;
typedef SInt16 OSErr;

/* Four ASCII characters packed big-end first ('aufx' == 0x61756678). */
typedef UInt32 FourCharCode;
typedef FourCharCode OSType;
typedef FourCharCode ResType;

typedef UInt16 UniChar;
typedef UInt32 UTF32Char;
typedef UInt16 UTF16Char;
typedef UInt8 UTF8Char;

typedef unsigned char Str255[256];
typedef unsigned char* StringPtr;
typedef const unsigned char* ConstStringPtr;

enum
{
    noErr = 0,
    fnfErr = -43,
    paramErr = -50,
    memFullErr = -108
};

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

#ifdef __cplusplus
}
#endif

#if defined(__cplusplus)
static_assert(sizeof(Boolean) == 1, "Boolean is one byte");
static_assert(sizeof(OSStatus) == 4, "OSStatus is 32-bit");
static_assert(sizeof(OSErr) == 2, "OSErr is 16-bit");
static_assert(sizeof(OSType) == 4, "OSType is 32-bit");
static_assert(sizeof(Float32) == 4 && sizeof(Float64) == 8, "IEEE float widths");
#else
_Static_assert(sizeof(Boolean) == 1, "Boolean is one byte");
_Static_assert(sizeof(OSStatus) == 4, "OSStatus is 32-bit");
_Static_assert(sizeof(OSErr) == 2, "OSErr is 16-bit");
_Static_assert(sizeof(OSType) == 4, "OSType is 32-bit");
_Static_assert(sizeof(Float32) == 4 && sizeof(Float64) == 8, "IEEE float widths");
#endif

#endif /* MACTYPES_H */
