/*
 * Strings: immutable or mutable sequences of UTF-16 code units. Lengths and
 * indices count UTF-16 units (a character outside the basic plane counts 2).
 *
 * CFSTR("literal") yields an immortal constant string (never freed, retain
 * and release do nothing); equal literals share one object. In C it is a
 * call, so it cannot initialise a file-scope static; C++ has no such limit.
 */
#ifndef CFSTRING_H
#define CFSTRING_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef UInt32 CFStringEncoding;
enum
{
    kCFStringEncodingMacRoman = 0,
    kCFStringEncodingASCII = 0x0600,
    kCFStringEncodingISOLatin1 = 0x0201,
    kCFStringEncodingUTF8 = 0x08000100,
    kCFStringEncodingUnicode = 0x0100,
    kCFStringEncodingUTF16 = 0x0100,
    kCFStringEncodingUTF16BE = 0x10000100,
    kCFStringEncodingUTF16LE = 0x14000100
};
#define kCFStringEncodingInvalidId ((CFStringEncoding)0xffffffffU)

typedef CFOptionFlags CFStringCompareFlags;
enum
{
    kCFCompareCaseInsensitive = 1,
    kCFCompareBackwards = 4,
    kCFCompareAnchored = 8,
    kCFCompareNonliteral = 16,
    kCFCompareLocalized = 32,
    kCFCompareNumerically = 64
};

/* Immortal constant string for a UTF-8 literal; interned. [any] */
CF_EXPORT CFStringRef __CFStringMakeConstantString(const char* cStr);
#define CFSTR(cStr) __CFStringMakeConstantString("" cStr "")

CF_EXPORT CFTypeID CFStringGetTypeID(void);

/* Owned string from a NUL-terminated C string in encoding (UTF-8, ASCII,
 * ISO Latin-1; Mac Roman for 7-bit text only). NULL when cStr is NULL or not
 * valid in that encoding. [any] */
CF_EXPORT CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                                CFStringEncoding encoding);

/* Owned string from numBytes bytes in encoding (also UTF-16 with or without
 * a byte-order mark when isExternalRepresentation). NULL when invalid. [any] */
CF_EXPORT CFStringRef CFStringCreateWithBytes(CFAllocatorRef alloc, const UInt8* bytes,
                                              CFIndex numBytes, CFStringEncoding encoding,
                                              Boolean isExternalRepresentation);

/* Owned string of numChars UTF-16 units. [any] */
CF_EXPORT CFStringRef CFStringCreateWithCharacters(CFAllocatorRef alloc, const UniChar* chars,
                                                   CFIndex numChars);

/* Owned immutable copy (the same object, retained, when already immutable). [any] */
CF_EXPORT CFStringRef CFStringCreateCopy(CFAllocatorRef alloc, CFStringRef theString);

/* Owned string formatted like printf; "%@" inserts an object's description.
 * formatOptions is ignored. NULL when the result is not valid UTF-8. [any] */
CF_EXPORT CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFTypeRef formatOptions,
                                               CFStringRef format, ...);
CF_EXPORT CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef alloc,
                                                           CFTypeRef formatOptions,
                                                           CFStringRef format, va_list arguments);

/* Owned empty mutable string; maxLength is a hint. [any] */
CF_EXPORT CFMutableStringRef CFStringCreateMutable(CFAllocatorRef alloc, CFIndex maxLength);
/* Owned mutable copy of theString (maxLength is a hint). [any] */
CF_EXPORT CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef alloc, CFIndex maxLength,
                                                       CFStringRef theString);
/* Appends to a mutable string; ignored for immutable strings. [any] */
CF_EXPORT void CFStringAppend(CFMutableStringRef theString, CFStringRef appendedString);
CF_EXPORT void CFStringAppendCString(CFMutableStringRef theString, const char* cStr,
                                     CFStringEncoding encoding);

/* Number of UTF-16 units. [any] */
CF_EXPORT CFIndex CFStringGetLength(CFStringRef theString);
/* UTF-16 unit at idx (0 when out of range). [any] */
CF_EXPORT UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx);
/* Copies the UTF-16 units of range (which must lie inside the string). [any] */
CF_EXPORT void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer);

/* Writes the string NUL-terminated into buffer. False when the buffer (size
 * in bytes, terminator included) is too small or a character cannot be
 * represented; buffer then holds an empty string. [any] */
CF_EXPORT Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                                     CFStringEncoding encoding);

/* Borrowed pointer to the string's own NUL-terminated bytes when it has them
 * in that encoding at no cost, else NULL (callers then use CFStringGetCString).
 * Valid until the string is released or mutated. [any] */
CF_EXPORT const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding);

/* Most bytes that length UTF-16 units can need in encoding (no terminator). [any] */
CF_EXPORT CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding);

/* Orders two strings by UTF-16 units (case folded with kCFCompareCaseInsensitive,
 * digit runs by value with kCFCompareNumerically). [any] */
CF_EXPORT CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                             CFStringCompareFlags compareOptions);

CF_EXPORT Boolean CFStringHasPrefix(CFStringRef theString, CFStringRef prefix);
CF_EXPORT Boolean CFStringHasSuffix(CFStringRef theString, CFStringRef suffix);

/* Leading decimal integer (after spaces, optional sign); 0 when none. [any] */
CF_EXPORT SInt32 CFStringGetIntValue(CFStringRef str);
/* Leading decimal floating-point value; 0.0 when none. [any] */
CF_EXPORT double CFStringGetDoubleValue(CFStringRef str);

CF_EXTERN_C_END

#endif /* CFSTRING_H */
