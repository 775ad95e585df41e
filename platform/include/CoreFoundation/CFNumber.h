/*
 * Numbers and booleans.
 *
 * A number keeps its value in the canonical type of the type it was created
 * with (int → SInt32, long/CFIndex → SInt64, float → Float32, double →
 * Float64). CFNumberGetValue converts to any requested type: integers out of
 * the target range are truncated to its low bits, reals are cut toward zero
 * (and clamped to the target range when out of it), and the result is false
 * whenever the value stored is not exactly the number held.
 */
#ifndef CFNUMBER_H
#define CFNUMBER_H

#include <CoreFoundation/CFBase.h>

CF_EXTERN_C_BEGIN

typedef const struct __CFBoolean* CFBooleanRef;

/* The two immortal booleans. */
CF_EXPORT const CFBooleanRef kCFBooleanTrue;
CF_EXPORT const CFBooleanRef kCFBooleanFalse;

CF_EXPORT CFTypeID CFBooleanGetTypeID(void);
/* The boolean's value (false for NULL). [any] */
CF_EXPORT Boolean CFBooleanGetValue(CFBooleanRef boolean);

typedef CFIndex CFNumberType;
enum
{
    kCFNumberSInt8Type = 1,
    kCFNumberSInt16Type = 2,
    kCFNumberSInt32Type = 3,
    kCFNumberSInt64Type = 4,
    kCFNumberFloat32Type = 5,
    kCFNumberFloat64Type = 6,
    kCFNumberCharType = 7,
    kCFNumberShortType = 8,
    kCFNumberIntType = 9,
    kCFNumberLongType = 10,
    kCFNumberLongLongType = 11,
    kCFNumberFloatType = 12,
    kCFNumberDoubleType = 13,
    kCFNumberCFIndexType = 14,
    kCFNumberNSIntegerType = 15,
    kCFNumberCGFloatType = 16,
    kCFNumberMaxType = 16
};

typedef const struct __CFNumber* CFNumberRef;

CF_EXPORT CFTypeID CFNumberGetTypeID(void);

/* Owned number read from *valuePtr of theType; NULL for an unknown type or a
 * NULL valuePtr. [any] */
CF_EXPORT CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType theType,
                                     const void* valuePtr);

/* Canonical storage type (kCFNumberSInt8Type...kCFNumberFloat64Type). [any] */
CF_EXPORT CFNumberType CFNumberGetType(CFNumberRef number);
/* Bytes of the canonical storage type. [any] */
CF_EXPORT CFIndex CFNumberGetByteSize(CFNumberRef number);
/* True when stored as Float32 or Float64. [any] */
CF_EXPORT Boolean CFNumberIsFloatType(CFNumberRef number);

/* Stores the value converted to theType in *valuePtr; true when exact
 * (see the conversion rules above), false when lossy or theType unknown. [any] */
CF_EXPORT Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr);

/* Orders two numbers by value. context is ignored. [any] */
CF_EXPORT CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber,
                                             void* context);

CF_EXTERN_C_END

#endif /* CFNUMBER_H */
