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

template <typename T> CFNumberRef number(CFNumberType type, T value)
{
    return CFNumberCreate(kCFAllocatorDefault, type, &value);
}

CFNumberRef makeNumber(const Conversion& c)
{
    switch (c.mFrom) {
    case kCFNumberSInt8Type:
        return number(c.mFrom, static_cast<SInt8>(c.mInteger));
    case kCFNumberSInt16Type:
        return number(c.mFrom, static_cast<SInt16>(c.mInteger));
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return number(c.mFrom, static_cast<SInt32>(c.mInteger));
    case kCFNumberSInt64Type:
        return number(c.mFrom, c.mInteger);
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return number(c.mFrom, static_cast<Float32>(c.mReal));
    default:
        return number(c.mFrom, c.mReal);
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
    CFNumberRef numbers[] = {number(kCFNumberIntType, i), number(kCFNumberLongType, 2L),
                             number(kCFNumberFloatType, 3.0f), number(kCFNumberDoubleType, 4.0)};
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
    CFNumberRef a = number(kCFNumberSInt32Type, SInt32(3));
    CFNumberRef b = number(kCFNumberFloat64Type, 3.0);
    CFNumberRef c = number(kCFNumberFloat64Type, 3.5);
    CFNumberRef d = number(kCFNumberFloat32Type, 0.1f);
    CFNumberRef e = number(kCFNumberFloat64Type, 0.1);
    CFNumberRef f = number(kCFNumberSInt64Type, SInt64(INT64_MAX));
    CFNumberRef g = number(kCFNumberFloat64Type, 9223372036854775808.0);

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
