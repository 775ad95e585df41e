// Numbers hold either a 64-bit integer or a double, tagged with the
// canonical type they were created as. Conversions on the way out follow C
// casts with two safety rules: an integer too wide for the target keeps its
// low bits, and a real outside the target's range is clamped to it instead
// of invoking undefined behaviour. Either case, like any real with a
// fraction, reports a lossy conversion.
#include "CFRuntimeBase.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

constexpr double kTwoTo63 = 9223372036854775808.0;

CFNumberType canonicalType(CFNumberType type)
{
    switch (type) {
    case kCFNumberSInt8Type:
    case kCFNumberCharType:
        return kCFNumberSInt8Type;
    case kCFNumberSInt16Type:
    case kCFNumberShortType:
        return kCFNumberSInt16Type;
    case kCFNumberSInt32Type:
    case kCFNumberIntType:
        return kCFNumberSInt32Type;
    case kCFNumberSInt64Type:
    case kCFNumberLongType:
    case kCFNumberLongLongType:
    case kCFNumberCFIndexType:
    case kCFNumberNSIntegerType:
        return kCFNumberSInt64Type;
    case kCFNumberFloat32Type:
    case kCFNumberFloatType:
        return kCFNumberFloat32Type;
    case kCFNumberFloat64Type:
    case kCFNumberDoubleType:
    case kCFNumberCGFloatType:
        return kCFNumberFloat64Type;
    default:
        return 0;
    }
}

CFIndex byteSize(CFNumberType canonical)
{
    switch (canonical) {
    case kCFNumberSInt8Type:
        return 1;
    case kCFNumberSInt16Type:
        return 2;
    case kCFNumberSInt32Type:
    case kCFNumberFloat32Type:
        return 4;
    default:
        return 8;
    }
}

bool isFloatType(CFNumberType canonical)
{
    return canonical == kCFNumberFloat32Type || canonical == kCFNumberFloat64Type;
}

template <class T> T readValue(const void* valuePtr)
{
    T value;
    std::memcpy(&value, valuePtr, sizeof value);
    return value;
}

template <class T> void writeValue(void* valuePtr, T value)
{
    std::memcpy(valuePtr, &value, sizeof value);
}

// Integer of width T from a 64-bit integer: low bits, exact when in range.
template <class T> bool integerFromInteger(SInt64 value, void* valuePtr)
{
    const auto narrowed = static_cast<T>(static_cast<UInt64>(value));
    writeValue(valuePtr, narrowed);
    return static_cast<SInt64>(narrowed) == value;
}

// Integer of width T from a real: cut toward zero, clamped, NaN gives 0.
template <class T> bool integerFromReal(double value, void* valuePtr)
{
    if (std::isnan(value)) {
        writeValue(valuePtr, T(0));
        return false;
    }
    const double cut = std::trunc(value);
    const double lowest = static_cast<double>(std::numeric_limits<T>::min());
    T result;
    if (cut < lowest) {
        result = std::numeric_limits<T>::min();
    } else if (cut >= -lowest) {
        result = std::numeric_limits<T>::max();
    } else {
        result = static_cast<T>(cut);
    }
    writeValue(valuePtr, result);
    return static_cast<double>(result) == value;
}

// A real as a 64-bit integer when it is one exactly.
bool realIsInteger(double value, SInt64& integer)
{
    if (std::isnan(value) || value != std::trunc(value) || value < -kTwoTo63 || value >= kTwoTo63) {
        return false;
    }
    integer = static_cast<SInt64>(value);
    return true;
}

CFHashCode hashInteger(SInt64 value)
{
    return static_cast<CFHashCode>(value) * 0x9E3779B97F4A7C15UL;
}

} // namespace

struct __CFNumber final : CFRuntimeBase
{
    __CFNumber(CFNumberType canonical, SInt64 integer, double real)
        : CFRuntimeBase(kCFRuntimeTypeIDNumber, false), mType(canonical), mInteger(integer),
          mReal(real)
    {
    }

    bool isFloat() const { return isFloatType(mType); }
    int compare(const __CFNumber& other) const;

    bool equals(const CFRuntimeBase& other) const override
    {
        return compare(static_cast<const __CFNumber&>(other)) == 0;
    }
    CFHashCode hash() const override;
    std::string description() const override;

    const CFNumberType mType;
    const SInt64 mInteger;
    const double mReal;
};

namespace {

int sign(double difference)
{
    return difference < 0 ? -1 : difference > 0 ? 1 : 0;
}

// Orders an integer against a real without rounding either; NaN sorts first
// and equals itself.
int compareIntegerToReal(SInt64 integer, double real)
{
    if (std::isnan(real)) {
        return 1;
    }
    if (real >= kTwoTo63) {
        return -1;
    }
    if (real < -kTwoTo63) {
        return 1;
    }
    const double cut = std::trunc(real);
    const auto whole = static_cast<SInt64>(cut);
    if (integer != whole) {
        return integer < whole ? -1 : 1;
    }
    return -sign(real - cut);
}

__CFNumber* asNumber(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFNumber>(cf, kCFRuntimeTypeIDNumber);
}

} // namespace

int __CFNumber::compare(const __CFNumber& other) const
{
    if (!isFloat() && !other.isFloat()) {
        return mInteger < other.mInteger ? -1 : mInteger > other.mInteger ? 1 : 0;
    }
    if (isFloat() && other.isFloat()) {
        if (std::isnan(mReal) || std::isnan(other.mReal)) {
            return std::isnan(mReal) == std::isnan(other.mReal) ? 0 : std::isnan(mReal) ? -1 : 1;
        }
        return sign(mReal - other.mReal);
    }
    return isFloat() ? -compareIntegerToReal(other.mInteger, mReal)
                     : compareIntegerToReal(mInteger, other.mReal);
}

CFHashCode __CFNumber::hash() const
{
    if (!isFloat()) {
        return hashInteger(mInteger);
    }
    SInt64 integer = 0;
    if (realIsInteger(mReal, integer)) {
        return hashInteger(integer);
    }
    if (std::isnan(mReal)) {
        return 0x7FF8;
    }
    UInt64 bits;
    std::memcpy(&bits, &mReal, sizeof bits);
    return static_cast<CFHashCode>(bits);
}

std::string __CFNumber::description() const
{
    char text[40];
    if (isFloat()) {
        std::snprintf(text, sizeof text, "%.17g", mReal);
    } else {
        std::snprintf(text, sizeof text, "%lld", static_cast<long long>(mInteger));
    }
    return text;
}

CFTypeID CFNumberGetTypeID(void)
{
    return kCFRuntimeTypeIDNumber;
}

CFNumberRef CFNumberCreate(CFAllocatorRef, CFNumberType theType, const void* valuePtr)
{
    const CFNumberType canonical = canonicalType(theType);
    if (canonical == 0 || valuePtr == nullptr) {
        return nullptr;
    }
    switch (canonical) {
    case kCFNumberSInt8Type:
        return new __CFNumber(canonical, readValue<SInt8>(valuePtr), 0.0);
    case kCFNumberSInt16Type:
        return new __CFNumber(canonical, readValue<SInt16>(valuePtr), 0.0);
    case kCFNumberSInt32Type:
        return new __CFNumber(canonical, readValue<SInt32>(valuePtr), 0.0);
    case kCFNumberSInt64Type:
        return new __CFNumber(canonical, readValue<SInt64>(valuePtr), 0.0);
    case kCFNumberFloat32Type:
        return new __CFNumber(canonical, 0, readValue<Float32>(valuePtr));
    default:
        return new __CFNumber(canonical, 0, readValue<Float64>(valuePtr));
    }
}

CFNumberType CFNumberGetType(CFNumberRef number)
{
    const __CFNumber* value = asNumber(number);
    return value != nullptr ? value->mType : 0;
}

CFIndex CFNumberGetByteSize(CFNumberRef number)
{
    const __CFNumber* value = asNumber(number);
    return value != nullptr ? byteSize(value->mType) : 0;
}

Boolean CFNumberIsFloatType(CFNumberRef number)
{
    const __CFNumber* value = asNumber(number);
    return value != nullptr && value->isFloat();
}

Boolean CFNumberGetValue(CFNumberRef number, CFNumberType theType, void* valuePtr)
{
    const __CFNumber* value = asNumber(number);
    const CFNumberType target = canonicalType(theType);
    if (value == nullptr || target == 0 || valuePtr == nullptr) {
        return false;
    }
    if (!value->isFloat()) {
        const SInt64 integer = value->mInteger;
        switch (target) {
        case kCFNumberSInt8Type:
            return integerFromInteger<SInt8>(integer, valuePtr);
        case kCFNumberSInt16Type:
            return integerFromInteger<SInt16>(integer, valuePtr);
        case kCFNumberSInt32Type:
            return integerFromInteger<SInt32>(integer, valuePtr);
        case kCFNumberSInt64Type:
            return integerFromInteger<SInt64>(integer, valuePtr);
        case kCFNumberFloat32Type: {
            const auto real = static_cast<Float32>(integer);
            writeValue(valuePtr, real);
            return compareIntegerToReal(integer, real) == 0;
        }
        default: {
            const auto real = static_cast<Float64>(integer);
            writeValue(valuePtr, real);
            return compareIntegerToReal(integer, real) == 0;
        }
        }
    }
    const double real = value->mReal;
    switch (target) {
    case kCFNumberSInt8Type:
        return integerFromReal<SInt8>(real, valuePtr);
    case kCFNumberSInt16Type:
        return integerFromReal<SInt16>(real, valuePtr);
    case kCFNumberSInt32Type:
        return integerFromReal<SInt32>(real, valuePtr);
    case kCFNumberSInt64Type:
        return integerFromReal<SInt64>(real, valuePtr);
    case kCFNumberFloat32Type: {
        // Beyond the float range the IEEE result (an infinity) is written
        // without a narrowing cast, which would be undefined there.
        const double largest = std::numeric_limits<Float32>::max();
        const Float32 narrowed = std::isfinite(real) && std::fabs(real) > largest
                                     ? std::copysign(std::numeric_limits<Float32>::infinity(),
                                                     static_cast<Float32>(sign(real)))
                                     : static_cast<Float32>(real);
        writeValue(valuePtr, narrowed);
        return static_cast<double>(narrowed) == real || std::isnan(real);
    }
    default:
        writeValue(valuePtr, real);
        return true;
    }
}

CFComparisonResult CFNumberCompare(CFNumberRef number, CFNumberRef otherNumber, void*)
{
    const __CFNumber* first = asNumber(number);
    const __CFNumber* second = asNumber(otherNumber);
    if (first == nullptr || second == nullptr) {
        return first == second    ? kCFCompareEqualTo
               : first == nullptr ? kCFCompareLessThan
                                  : kCFCompareGreaterThan;
    }
    return first->compare(*second);
}
