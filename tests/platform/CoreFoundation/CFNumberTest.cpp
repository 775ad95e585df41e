// Numbers: conversions between types (exactness and truncation), and
// equality by value across types.
#include <CoreFoundation/CoreFoundation.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <ostream>

namespace {

struct Conversion
{
    CFNumberType mFrom;
    double mReal;    // source value when mFrom is a real type
    SInt64 mInteger; // source value when mFrom is an integer type
    CFNumberType mTo;
    double mExpected; // converted value, compared exactly
    bool mExact;
};

std::ostream& operator<<(std::ostream& out, const Conversion& c)
{
    return out << "type " << c.mFrom << " (" << c.mReal << "/" << c.mInteger << ") -> type "
               << c.mTo;
}

CFNumberRef makeNumber(const Conversion& c)
{
    const SInt8 i8 = static_cast<SInt8>(c.mInteger);
    const SInt16 i16 = static_cast<SInt16>(c.mInteger);
    const SInt32 i32 = static_cast<SInt32>(c.mInteger);
    const SInt64 i64 = c.mInteger;
    const Float32 f32 = static_cast<Float32>(c.mReal);
    const Float64 f64 = c.mReal;
    switch (c.mFrom) {
    case kCFNumberSInt8Type:
        return CFNumberCreate(kCFAllocatorDefault, c.mFrom, &i8);
    case kCFNumberSInt16Type:
        return CFNumberCreate(kCFAllocatorDefault, c.mFrom, &i16);
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return CFNumberCreate(kCFAllocatorDefault, c.mFrom, &i32);
    case kCFNumberSInt64Type:
        return CFNumberCreate(kCFAllocatorDefault, c.mFrom, &i64);
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return CFNumberCreate(kCFAllocatorDefault, c.mFrom, &f32);
    default:
        return CFNumberCreate(kCFAllocatorDefault, c.mFrom, &f64);
    }
}

// Reads number as type to and widens the result to double for comparison.
bool readAs(CFNumberRef number, CFNumberType to, double& out)
{
    union {
        SInt8 i8;
        SInt16 i16;
        SInt32 i32;
        SInt64 i64;
        Float32 f32;
        Float64 f64;
    } value;
    value.i64 = 0x5A5A5A5A5A5A5A5A;
    const bool exact = CFNumberGetValue(number, to, &value);
    switch (to) {
    case kCFNumberSInt8Type:
        out = value.i8;
        break;
    case kCFNumberSInt16Type:
        out = value.i16;
        break;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        out = value.i32;
        break;
    case kCFNumberSInt64Type:
        out = static_cast<double>(value.i64);
        break;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        out = value.f32;
        break;
    default:
        out = value.f64;
        break;
    }
    return exact;
}

class CFNumberConversionTest : public ::testing::TestWithParam<Conversion>
{
};

} // namespace

TEST_P(CFNumberConversionTest, ConvertsLikeTheRules)
{
    const Conversion& c = GetParam();
    CFNumberRef number = makeNumber(c);
    ASSERT_NE(nullptr, number);
    double value = 0.0;
    EXPECT_EQ(c.mExact, readAs(number, c.mTo, value));
    EXPECT_EQ(c.mExpected, value);
    CFRelease(number);
}

INSTANTIATE_TEST_SUITE_P(
    Sweep, CFNumberConversionTest,
    ::testing::Values(
        // Reals to integers: cut toward zero, lossy when a fraction is dropped.
        Conversion{kCFNumberFloat64Type, 3.5, 0, kCFNumberSInt32Type, 3.0, false},
        Conversion{kCFNumberFloat32Type, -3.5, 0, kCFNumberSInt32Type, -3.0, false},
        Conversion{kCFNumberDoubleType, 3.0, 0, kCFNumberIntType, 3.0, true},
        Conversion{kCFNumberFloat64Type, -0.75, 0, kCFNumberSInt64Type, 0.0, false},
        // Out of the integer range: clamped and lossy.
        Conversion{kCFNumberFloat64Type, 1e20, 0, kCFNumberSInt32Type, 2147483647.0, false},
        Conversion{kCFNumberFloat64Type, -1e20, 0, kCFNumberSInt16Type, -32768.0, false},
        Conversion{kCFNumberFloat64Type, NAN, 0, kCFNumberSInt32Type, 0.0, false},
        // Integers to narrower integers keep the low bits.
        Conversion{kCFNumberSInt32Type, 0, 300, kCFNumberSInt8Type, 44.0, false},
        Conversion{kCFNumberSInt64Type, 0, (SInt64(1) << 40) + 5, kCFNumberSInt32Type, 5.0, false},
        Conversion{kCFNumberSInt32Type, 0, -70000, kCFNumberSInt16Type, -4464.0, false},
        Conversion{kCFNumberSInt16Type, 0, -129, kCFNumberSInt8Type, 127.0, false},
        Conversion{kCFNumberSInt8Type, 0, -5, kCFNumberSInt64Type, -5.0, true},
        Conversion{kCFNumberIntType, 0, 127, kCFNumberSInt8Type, 127.0, true},
        // Integers to reals: exact unless precision is lost.
        Conversion{kCFNumberSInt32Type, 0, 7, kCFNumberDoubleType, 7.0, true},
        Conversion{kCFNumberSInt32Type, 0, 16777217, kCFNumberFloat32Type, 16777216.0, false},
        Conversion{kCFNumberSInt64Type, 0, (SInt64(1) << 53) + 1, kCFNumberFloat64Type,
                   9007199254740992.0, false},
        // Reals to reals.
        Conversion{kCFNumberFloat32Type, 0.1, 0, kCFNumberFloat64Type, static_cast<double>(0.1f),
                   true},
        Conversion{kCFNumberFloat64Type, 0.1, 0, kCFNumberFloat32Type, static_cast<double>(0.1f),
                   false},
        Conversion{kCFNumberFloat64Type, 0.5, 0, kCFNumberFloatType, 0.5, true},
        Conversion{kCFNumberFloat64Type, 1e300, 0, kCFNumberFloat32Type, INFINITY, false}));

TEST(CFNumberTest, CanonicalTypes)
{
    const int i = 1;
    const long l = 2;
    const float f = 3.0f;
    const double d = 4.0;
    CFNumberRef numbers[] = {CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &i),
                             CFNumberCreate(kCFAllocatorDefault, kCFNumberLongType, &l),
                             CFNumberCreate(kCFAllocatorDefault, kCFNumberFloatType, &f),
                             CFNumberCreate(kCFAllocatorDefault, kCFNumberDoubleType, &d)};
    EXPECT_EQ(kCFNumberSInt32Type, CFNumberGetType(numbers[0]));
    EXPECT_EQ(kCFNumberSInt64Type, CFNumberGetType(numbers[1]));
    EXPECT_EQ(kCFNumberFloat32Type, CFNumberGetType(numbers[2]));
    EXPECT_EQ(kCFNumberFloat64Type, CFNumberGetType(numbers[3]));
    EXPECT_EQ(4, CFNumberGetByteSize(numbers[0]));
    EXPECT_FALSE(CFNumberIsFloatType(numbers[1]));
    EXPECT_TRUE(CFNumberIsFloatType(numbers[2]));
    for (CFNumberRef number : numbers) {
        CFRelease(number);
    }
    EXPECT_EQ(nullptr, CFNumberCreate(kCFAllocatorDefault, 99, &i));
    EXPECT_EQ(nullptr, CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, nullptr));
}

TEST(CFNumberTest, EqualityComparesValuesAcrossTypes)
{
    const SInt32 three = 3;
    const Float64 threeReal = 3.0;
    const Float64 threeAndHalf = 3.5;
    const Float32 tenthFloat = 0.1f;
    const Float64 tenthDouble = 0.1;
    const SInt64 huge = INT64_MAX;
    const Float64 twoTo63 = 9223372036854775808.0;
    CFNumberRef a = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &three);
    CFNumberRef b = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &threeReal);
    CFNumberRef c = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &threeAndHalf);
    CFNumberRef d = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat32Type, &tenthFloat);
    CFNumberRef e = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &tenthDouble);
    CFNumberRef f = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt64Type, &huge);
    CFNumberRef g = CFNumberCreate(kCFAllocatorDefault, kCFNumberFloat64Type, &twoTo63);

    EXPECT_TRUE(CFEqual(a, b));
    EXPECT_EQ(CFHash(a), CFHash(b));
    EXPECT_FALSE(CFEqual(a, c));
    EXPECT_EQ(kCFCompareLessThan, CFNumberCompare(a, c, nullptr));
    EXPECT_EQ(kCFCompareGreaterThan, CFNumberCompare(c, b, nullptr));
    EXPECT_FALSE(CFEqual(d, e)); // 0.1f is not 0.1
    // INT64_MAX must not equal 2^63 although both round to the same double.
    EXPECT_FALSE(CFEqual(f, g));
    EXPECT_EQ(kCFCompareLessThan, CFNumberCompare(f, g, nullptr));

    // Equal numbers are one dictionary key.
    CFMutableDictionaryRef dict = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFDictionarySetValue(dict, a, CFSTR("int"));
    CFDictionarySetValue(dict, b, CFSTR("real"));
    EXPECT_EQ(1, CFDictionaryGetCount(dict));
    EXPECT_EQ(CFSTR("real"), CFDictionaryGetValue(dict, a));
    CFRelease(dict);

    for (CFNumberRef number : {a, b, c, d, e, f, g}) {
        CFRelease(number);
    }
}
