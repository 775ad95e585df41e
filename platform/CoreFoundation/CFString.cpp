// Strings keep their UTF-16 units (the unit of lengths and indices) and, in
// step with them, the UTF-8 form that C callers ask for most often, so that
// CFStringGetCStringPtr can answer without converting.
#include "CFRuntimeBase.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>

struct __CFString final : CFRuntimeBase
{
    __CFString(std::u16string units, bool isMutable, bool immortal)
        : CFRuntimeBase(kCFRuntimeTypeIDString, immortal), mMutable(isMutable)
    {
        assign(std::move(units));
    }

    void assign(std::u16string units);
    void append(const std::u16string& units);

    bool equals(const CFRuntimeBase& other) const override
    {
        return mUnits == static_cast<const __CFString&>(other).mUnits;
    }
    CFHashCode hash() const override;
    std::string description() const override { return mUTF8; }

    // Appends the UTF-8 of mUnits[start...] and updates the flags.
    void encodeFrom(size_t start);

    std::u16string mUnits;
    // UTF-8 form; lone surrogates become U+FFFD and clear mUTF8Exact.
    std::string mUTF8;
    bool mUTF8Exact = true;
    bool mASCII = true;
    bool mHasNUL = false;
    const bool mMutable;
};

namespace {

constexpr char16_t kReplacementCharacter = 0xFFFD;

bool isHighSurrogate(char32_t unit)
{
    return unit >= 0xD800 && unit <= 0xDBFF;
}
bool isLowSurrogate(char32_t unit)
{
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void appendUTF8(std::string& out, char32_t code)
{
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

void appendUTF16(std::u16string& out, char32_t code)
{
    if (code < 0x10000) {
        out += static_cast<char16_t>(code);
    } else {
        code -= 0x10000;
        out += static_cast<char16_t>(0xD800 + (code >> 10));
        out += static_cast<char16_t>(0xDC00 + (code & 0x3FF));
    }
}

// Strict UTF-8 decoding: overlong forms, encoded surrogates and values above
// U+10FFFF are rejected.
bool decodeUTF8(const UInt8* bytes, size_t length, std::u16string& out)
{
    size_t i = 0;
    while (i < length) {
        const UInt8 lead = bytes[i];
        char32_t code;
        size_t extra;
        if (lead < 0x80) {
            code = lead;
            extra = 0;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            code = lead & 0x1F;
            extra = 1;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            code = lead & 0x0F;
            extra = 2;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            code = lead & 0x07;
            extra = 3;
        } else {
            return false;
        }
        if (length - i - 1 < extra) {
            return false;
        }
        for (size_t k = 1; k <= extra; ++k) {
            const UInt8 next = bytes[i + k];
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            code = (code << 6) | (next & 0x3F);
        }
        const char32_t minimum = extra == 1 ? 0x80 : extra == 2 ? 0x800 : extra == 3 ? 0x10000 : 0;
        if (code < minimum || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
            return false;
        }
        appendUTF16(out, code);
        i += extra + 1;
    }
    return true;
}

bool decodeUTF16(const UInt8* bytes, size_t length, bool bigEndian, std::u16string& out)
{
    if (length % 2 != 0) {
        return false;
    }
    for (size_t i = 0; i < length; i += 2) {
        const unsigned hi = bigEndian ? bytes[i] : bytes[i + 1];
        const unsigned lo = bigEndian ? bytes[i + 1] : bytes[i];
        out += static_cast<char16_t>((hi << 8) | lo);
    }
    return true;
}

bool decodeBytes(const UInt8* bytes, size_t length, CFStringEncoding encoding, bool external,
                 std::u16string& out)
{
    switch (encoding) {
    case kCFStringEncodingUTF8:
        if (external && length >= 3 && bytes[0] == 0xEF && bytes[1] == 0xBB && bytes[2] == 0xBF) {
            bytes += 3;
            length -= 3;
        }
        return decodeUTF8(bytes, length, out);
    case kCFStringEncodingASCII:
    case kCFStringEncodingMacRoman:
        for (size_t i = 0; i < length; ++i) {
            if (bytes[i] >= 0x80) {
                return false;
            }
            out += static_cast<char16_t>(bytes[i]);
        }
        return true;
    case kCFStringEncodingISOLatin1:
        for (size_t i = 0; i < length; ++i) {
            out += static_cast<char16_t>(bytes[i]);
        }
        return true;
    case kCFStringEncodingUTF16: {
        // A byte-order mark decides; without one, external bytes are
        // big-endian and in-memory ones are in the machine's order.
        bool bigEndian = external || __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__;
        if (length >= 2 &&
            ((bytes[0] == 0xFE && bytes[1] == 0xFF) || (bytes[0] == 0xFF && bytes[1] == 0xFE))) {
            bigEndian = bytes[0] == 0xFE;
            bytes += 2;
            length -= 2;
        }
        return decodeUTF16(bytes, length, bigEndian, out);
    }
    case kCFStringEncodingUTF16BE:
        return decodeUTF16(bytes, length, true, out);
    case kCFStringEncodingUTF16LE:
        return decodeUTF16(bytes, length, false, out);
    default:
        return false;
    }
}

// Bytes of the string in a single-byte-per-unit or UTF-8 encoding; false when
// a unit cannot be represented.
bool encodeBytes(const __CFString& string, CFStringEncoding encoding, std::string& out)
{
    switch (encoding) {
    case kCFStringEncodingUTF8:
        out = string.mUTF8;
        return string.mUTF8Exact;
    case kCFStringEncodingASCII:
    case kCFStringEncodingMacRoman:
        out = string.mUTF8;
        return string.mASCII;
    case kCFStringEncodingISOLatin1:
        out.clear();
        for (char16_t unit : string.mUnits) {
            if (unit > 0xFF) {
                return false;
            }
            out += static_cast<char>(unit);
        }
        return true;
    default:
        return false;
    }
}

__CFString* asString(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFString>(cf, kCFRuntimeTypeIDString);
}

__CFString* asMutableString(CFTypeRef cf)
{
    __CFString* string = asString(cf);
    return string != nullptr && string->mMutable ? string : nullptr;
}

char16_t foldCase(char16_t unit)
{
    if ((unit >= u'A' && unit <= u'Z') || (unit >= 0xC0 && unit <= 0xDE && unit != 0xD7)) {
        return static_cast<char16_t>(unit + 0x20);
    }
    return unit;
}

bool isDigit(char16_t unit)
{
    return unit >= u'0' && unit <= u'9';
}

// Compares the digit runs starting at a[i] and b[j] by value and moves both
// indices past them.
int compareDigitRuns(const std::u16string& a, size_t& i, const std::u16string& b, size_t& j)
{
    while (i < a.size() && a[i] == u'0' && i + 1 < a.size() && isDigit(a[i + 1])) {
        ++i;
    }
    while (j < b.size() && b[j] == u'0' && j + 1 < b.size() && isDigit(b[j + 1])) {
        ++j;
    }
    size_t endA = i;
    size_t endB = j;
    while (endA < a.size() && isDigit(a[endA])) {
        ++endA;
    }
    while (endB < b.size() && isDigit(b[endB])) {
        ++endB;
    }
    int result = 0;
    if (endA - i != endB - j) {
        result = endA - i < endB - j ? -1 : 1;
    } else {
        const int order = a.compare(i, endA - i, b, j, endB - j);
        result = order < 0 ? -1 : order > 0 ? 1 : 0;
    }
    i = endA;
    j = endB;
    return result;
}

struct ConstantTable
{
    std::mutex mMutex;
    std::unordered_map<std::string, __CFString*> mStrings;
};

ConstantTable& constantTable()
{
    // Never destroyed: constant strings must outlive every static destructor
    // of every library that holds one.
    static ConstantTable* sTable = new ConstantTable;
    return *sTable;
}

} // namespace

void __CFString::assign(std::u16string units)
{
    mUnits = std::move(units);
    mUTF8.clear();
    mUTF8Exact = true;
    mASCII = true;
    mHasNUL = false;
    encodeFrom(0);
}

void __CFString::append(const std::u16string& units)
{
    // A low surrogate completing a pair split across the old end changes the
    // UTF-8 of the old last unit: re-encode everything then.
    if (!mUnits.empty() && !units.empty() && isHighSurrogate(mUnits.back()) &&
        isLowSurrogate(units.front())) {
        assign(mUnits + units);
        return;
    }
    const size_t start = mUnits.size();
    mUnits += units;
    encodeFrom(start);
}

void __CFString::encodeFrom(size_t start)
{
    for (size_t i = start; i < mUnits.size(); ++i) {
        const char32_t unit = mUnits[i];
        char32_t code = unit;
        if (isHighSurrogate(unit) && i + 1 < mUnits.size() && isLowSurrogate(mUnits[i + 1])) {
            code = 0x10000 + ((unit - 0xD800) << 10) + (mUnits[i + 1] - 0xDC00);
            ++i;
        } else if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
            code = kReplacementCharacter;
            mUTF8Exact = false;
        }
        mASCII = mASCII && code < 0x80;
        mHasNUL = mHasNUL || code == 0;
        appendUTF8(mUTF8, code);
    }
}

CFHashCode __CFString::hash() const
{
    CFHashCode value = 14695981039346656037UL;
    for (char16_t unit : mUnits) {
        value = (value ^ unit) * 1099511628211UL;
    }
    return value;
}

CFStringRef __CFStringMakeConstantString(const char* cStr)
{
    ConstantTable& table = constantTable();
    const std::string key = cStr != nullptr ? cStr : "";
    std::lock_guard<std::mutex> lock(table.mMutex);
    auto found = table.mStrings.find(key);
    if (found != table.mStrings.end()) {
        return found->second;
    }
    std::u16string units;
    const auto* bytes = reinterpret_cast<const UInt8*>(key.data());
    if (!decodeUTF8(bytes, key.size(), units)) {
        units.clear();
        decodeBytes(bytes, key.size(), kCFStringEncodingISOLatin1, false, units);
    }
    auto* string = new __CFString(std::move(units), false, true);
    table.mStrings.emplace(key, string);
    return string;
}

CFTypeID CFStringGetTypeID(void)
{
    return kCFRuntimeTypeIDString;
}

CFStringRef CFStringCreateWithCString(CFAllocatorRef alloc, const char* cStr,
                                      CFStringEncoding encoding)
{
    if (cStr == nullptr) {
        return nullptr;
    }
    return CFStringCreateWithBytes(alloc, reinterpret_cast<const UInt8*>(cStr),
                                   static_cast<CFIndex>(std::strlen(cStr)), encoding, false);
}

CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8* bytes, CFIndex numBytes,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation)
{
    if (numBytes < 0 || (bytes == nullptr && numBytes > 0)) {
        return nullptr;
    }
    static const UInt8 kNoBytes = 0;
    std::u16string units;
    if (!decodeBytes(bytes != nullptr ? bytes : &kNoBytes, static_cast<size_t>(numBytes), encoding,
                     isExternalRepresentation != 0, units)) {
        return nullptr;
    }
    return new __CFString(std::move(units), false, false);
}

CFStringRef CFStringCreateWithCharacters(CFAllocatorRef, const UniChar* chars, CFIndex numChars)
{
    if (numChars < 0 || (chars == nullptr && numChars > 0)) {
        return nullptr;
    }
    std::u16string units;
    if (numChars > 0) {
        units.assign(reinterpret_cast<const char16_t*>(chars), static_cast<size_t>(numChars));
    }
    return new __CFString(std::move(units), false, false);
}

CFStringRef CFStringCreateCopy(CFAllocatorRef, CFStringRef theString)
{
    const __CFString* string = asString(theString);
    if (string == nullptr) {
        return nullptr;
    }
    if (!string->mMutable) {
        CFRetain(string);
        return string;
    }
    return new __CFString(string->mUnits, false, false);
}

CFStringRef CFStringCreateWithFormat(CFAllocatorRef alloc, CFTypeRef formatOptions,
                                     CFStringRef format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    CFStringRef result =
        CFStringCreateWithFormatAndArguments(alloc, formatOptions, format, arguments);
    va_end(arguments);
    return result;
}

CFStringRef CFStringCreateWithFormatAndArguments(CFAllocatorRef, CFTypeRef, CFStringRef format,
                                                 va_list arguments)
{
    if (asString(format) == nullptr) {
        return nullptr;
    }
    const std::string pattern = CFRuntimeUTF8(format);
    std::string out;
    va_list args;
    va_copy(args, arguments);
    char buffer[512];
    size_t i = 0;
    while (i < pattern.size()) {
        if (pattern[i] != '%') {
            out += pattern[i++];
            continue;
        }
        const size_t start = i++;
        std::string directive = "%";
        while (i < pattern.size() && std::strchr("-+ #0'", pattern[i]) != nullptr) {
            directive += pattern[i++];
        }
        if (i < pattern.size() && pattern[i] == '*') {
            directive += std::to_string(va_arg(args, int));
            ++i;
        }
        while (i < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[i]))) {
            directive += pattern[i++];
        }
        if (i < pattern.size() && pattern[i] == '.') {
            directive += pattern[i++];
            if (i < pattern.size() && pattern[i] == '*') {
                directive += std::to_string(va_arg(args, int));
                ++i;
            }
            while (i < pattern.size() && std::isdigit(static_cast<unsigned char>(pattern[i]))) {
                directive += pattern[i++];
            }
        }
        std::string length;
        while (i < pattern.size() && std::strchr("hlqLzjt", pattern[i]) != nullptr) {
            length += pattern[i++] == 'q' ? std::string("ll") : pattern.substr(i - 1, 1);
        }
        if (i >= pattern.size()) {
            out += pattern.substr(start);
            break;
        }
        const char conversion = pattern[i++];
        int written = 0;
        switch (conversion) {
        case '%':
            out += '%';
            break;
        case '@': {
            CFTypeRef object = va_arg(args, CFTypeRef);
            out += object != nullptr ? static_cast<const CFRuntimeBase*>(object)->description()
                                     : std::string("(null)");
            break;
        }
        case 'd':
        case 'i':
        case 'o':
        case 'u':
        case 'x':
        case 'X':
        case 'c':
            directive += length + conversion;
            if (length == "l") {
                written =
                    std::snprintf(buffer, sizeof buffer, directive.c_str(), va_arg(args, long));
            } else if (length == "ll") {
                written = std::snprintf(buffer, sizeof buffer, directive.c_str(),
                                        va_arg(args, long long));
            } else if (length == "z") {
                written =
                    std::snprintf(buffer, sizeof buffer, directive.c_str(), va_arg(args, size_t));
            } else if (length == "j") {
                written =
                    std::snprintf(buffer, sizeof buffer, directive.c_str(), va_arg(args, intmax_t));
            } else if (length == "t") {
                written = std::snprintf(buffer, sizeof buffer, directive.c_str(),
                                        va_arg(args, ptrdiff_t));
            } else {
                written =
                    std::snprintf(buffer, sizeof buffer, directive.c_str(), va_arg(args, int));
            }
            break;
        case 'f':
        case 'F':
        case 'e':
        case 'E':
        case 'g':
        case 'G':
        case 'a':
        case 'A':
            if (length == "L") {
                directive += std::string("L") + conversion;
                written = std::snprintf(buffer, sizeof buffer, directive.c_str(),
                                        va_arg(args, long double));
            } else {
                directive += conversion;
                written =
                    std::snprintf(buffer, sizeof buffer, directive.c_str(), va_arg(args, double));
            }
            break;
        case 'p':
            directive += conversion;
            written = std::snprintf(buffer, sizeof buffer, directive.c_str(), va_arg(args, void*));
            break;
        case 's': {
            const char* text = va_arg(args, const char*);
            directive += conversion;
            const int needed =
                std::snprintf(nullptr, 0, directive.c_str(), text != nullptr ? text : "(null)");
            if (needed > 0) {
                std::string formatted(static_cast<size_t>(needed) + 1, '\0');
                std::snprintf(&formatted[0], formatted.size(), directive.c_str(),
                              text != nullptr ? text : "(null)");
                formatted.pop_back();
                out += formatted;
            }
            break;
        }
        default:
            out += pattern.substr(start, i - start);
            break;
        }
        if (written > 0) {
            out.append(buffer, std::min(static_cast<size_t>(written), sizeof buffer - 1));
        }
    }
    va_end(args);
    return CFRuntimeCreateString(out);
}

CFMutableStringRef CFStringCreateMutable(CFAllocatorRef, CFIndex)
{
    return new __CFString(std::u16string(), true, false);
}

CFMutableStringRef CFStringCreateMutableCopy(CFAllocatorRef, CFIndex, CFStringRef theString)
{
    const __CFString* string = asString(theString);
    return new __CFString(string != nullptr ? string->mUnits : std::u16string(), true, false);
}

void CFStringAppend(CFMutableStringRef theString, CFStringRef appendedString)
{
    __CFString* string = asMutableString(theString);
    const __CFString* appended = asString(appendedString);
    if (string != nullptr && appended != nullptr) {
        string->append(appended->mUnits);
    }
}

void CFStringAppendCString(CFMutableStringRef theString, const char* cStr,
                           CFStringEncoding encoding)
{
    __CFString* string = asMutableString(theString);
    std::u16string units;
    if (string != nullptr && cStr != nullptr &&
        decodeBytes(reinterpret_cast<const UInt8*>(cStr), std::strlen(cStr), encoding, false,
                    units)) {
        string->append(units);
    }
}

CFIndex CFStringGetLength(CFStringRef theString)
{
    const __CFString* string = asString(theString);
    return string != nullptr ? static_cast<CFIndex>(string->mUnits.size()) : 0;
}

UniChar CFStringGetCharacterAtIndex(CFStringRef theString, CFIndex idx)
{
    const __CFString* string = asString(theString);
    if (string == nullptr || idx < 0 || static_cast<size_t>(idx) >= string->mUnits.size()) {
        return 0;
    }
    return string->mUnits[static_cast<size_t>(idx)];
}

void CFStringGetCharacters(CFStringRef theString, CFRange range, UniChar* buffer)
{
    const __CFString* string = asString(theString);
    if (string == nullptr || buffer == nullptr || range.location < 0 || range.length < 0 ||
        static_cast<size_t>(range.location + range.length) > string->mUnits.size()) {
        return;
    }
    std::memcpy(buffer, string->mUnits.data() + range.location,
                static_cast<size_t>(range.length) * sizeof(UniChar));
}

Boolean CFStringGetCString(CFStringRef theString, char* buffer, CFIndex bufferSize,
                           CFStringEncoding encoding)
{
    if (buffer == nullptr || bufferSize <= 0) {
        return false;
    }
    buffer[0] = '\0';
    const __CFString* string = asString(theString);
    std::string bytes;
    if (string == nullptr || !encodeBytes(*string, encoding, bytes) ||
        bytes.size() + 1 > static_cast<size_t>(bufferSize)) {
        return false;
    }
    std::memcpy(buffer, bytes.c_str(), bytes.size() + 1);
    return true;
}

const char* CFStringGetCStringPtr(CFStringRef theString, CFStringEncoding encoding)
{
    const __CFString* string = asString(theString);
    if (string == nullptr || string->mHasNUL) {
        return nullptr;
    }
    const bool direct =
        encoding == kCFStringEncodingUTF8
            ? string->mUTF8Exact
            : (encoding == kCFStringEncodingASCII || encoding == kCFStringEncodingMacRoman ||
               encoding == kCFStringEncodingISOLatin1) &&
                  string->mASCII;
    return direct ? string->mUTF8.c_str() : nullptr;
}

CFIndex CFStringGetMaximumSizeForEncoding(CFIndex length, CFStringEncoding encoding)
{
    switch (encoding) {
    case kCFStringEncodingUTF8:
        return length * 3;
    case kCFStringEncodingUTF16:
    case kCFStringEncodingUTF16BE:
    case kCFStringEncodingUTF16LE:
        return length * 2;
    default:
        return length;
    }
}

CFComparisonResult CFStringCompare(CFStringRef theString1, CFStringRef theString2,
                                   CFStringCompareFlags compareOptions)
{
    const __CFString* first = asString(theString1);
    const __CFString* second = asString(theString2);
    if (first == nullptr || second == nullptr) {
        return first == second    ? kCFCompareEqualTo
               : first == nullptr ? kCFCompareLessThan
                                  : kCFCompareGreaterThan;
    }
    const bool caseless = (compareOptions & kCFCompareCaseInsensitive) != 0;
    const bool numeric = (compareOptions & kCFCompareNumerically) != 0;
    const std::u16string& a = first->mUnits;
    const std::u16string& b = second->mUnits;
    size_t i = 0;
    size_t j = 0;
    while (i < a.size() && j < b.size()) {
        if (numeric && isDigit(a[i]) && isDigit(b[j])) {
            const int order = compareDigitRuns(a, i, b, j);
            if (order != 0) {
                return order;
            }
            continue;
        }
        const char16_t x = caseless ? foldCase(a[i]) : a[i];
        const char16_t y = caseless ? foldCase(b[j]) : b[j];
        if (x != y) {
            return x < y ? kCFCompareLessThan : kCFCompareGreaterThan;
        }
        ++i;
        ++j;
    }
    if (i < a.size()) {
        return kCFCompareGreaterThan;
    }
    return j < b.size() ? kCFCompareLessThan : kCFCompareEqualTo;
}

Boolean CFStringHasPrefix(CFStringRef theString, CFStringRef prefix)
{
    const __CFString* string = asString(theString);
    const __CFString* start = asString(prefix);
    return string != nullptr && start != nullptr &&
           string->mUnits.compare(0, start->mUnits.size(), start->mUnits) == 0;
}

Boolean CFStringHasSuffix(CFStringRef theString, CFStringRef suffix)
{
    const __CFString* string = asString(theString);
    const __CFString* end = asString(suffix);
    if (string == nullptr || end == nullptr || end->mUnits.size() > string->mUnits.size()) {
        return false;
    }
    return string->mUnits.compare(string->mUnits.size() - end->mUnits.size(), end->mUnits.size(),
                                  end->mUnits) == 0;
}

SInt32 CFStringGetIntValue(CFStringRef str)
{
    const __CFString* string = asString(str);
    if (string == nullptr) {
        return 0;
    }
    const long long value = std::strtoll(string->mUTF8.c_str(), nullptr, 10);
    return value > INT32_MAX   ? INT32_MAX
           : value < INT32_MIN ? INT32_MIN
                               : static_cast<SInt32>(value);
}

double CFStringGetDoubleValue(CFStringRef str)
{
    const __CFString* string = asString(str);
    return string != nullptr ? std::strtod(string->mUTF8.c_str(), nullptr) : 0.0;
}
