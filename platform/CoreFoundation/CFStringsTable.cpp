#include "CFStringsTable.h"

#include "CFRuntimeBase.h"

#include <cstring>

namespace {

// Characters allowed in an unquoted word.
bool isWordCharacter(char16_t c)
{
    return (c >= u'a' && c <= u'z') || (c >= u'A' && c <= u'Z') || (c >= u'0' && c <= u'9') ||
           std::strchr("_$+/:.-", static_cast<char>(c < 0x80 ? c : 0)) != nullptr;
}

int hexValue(char16_t c)
{
    if (c >= u'0' && c <= u'9') {
        return c - u'0';
    }
    if (c >= u'a' && c <= u'f') {
        return c - u'a' + 10;
    }
    if (c >= u'A' && c <= u'F') {
        return c - u'A' + 10;
    }
    return -1;
}

CFStringRef createString(const std::u16string& units)
{
    return CFStringCreateWithCharacters(kCFAllocatorDefault,
                                        reinterpret_cast<const UniChar*>(units.data()),
                                        static_cast<CFIndex>(units.size()));
}

// The text's encoding from its first bytes.
CFStringEncoding detectEncoding(const std::vector<UInt8>& bytes)
{
    if (bytes.size() >= 2 &&
        ((bytes[0] == 0xFF && bytes[1] == 0xFE) || (bytes[0] == 0xFE && bytes[1] == 0xFF))) {
        return kCFStringEncodingUTF16;
    }
    if (bytes.size() >= 2 && bytes[0] != 0 && bytes[1] == 0) {
        return kCFStringEncodingUTF16LE;
    }
    if (bytes.size() >= 2 && bytes[0] == 0 && bytes[1] != 0) {
        return kCFStringEncodingUTF16BE;
    }
    return kCFStringEncodingUTF8;
}

bool startsWith(const std::vector<UInt8>& bytes, const char* prefix)
{
    const size_t length = std::strlen(prefix);
    return bytes.size() >= length && std::memcmp(bytes.data(), prefix, length) == 0;
}

} // namespace

CFDictionaryRef CFStringsTable::create(const std::vector<UInt8>& bytes)
{
    if (startsWith(bytes, "bplist") || startsWith(bytes, "<?xml") || startsWith(bytes, "<plist")) {
        return CFRuntimeCreateDictionaryFromPropertyList(bytes);
    }
    CFStringRef text =
        CFStringCreateWithBytes(kCFAllocatorDefault, bytes.data(),
                                static_cast<CFIndex>(bytes.size()), detectEncoding(bytes), true);
    if (text == nullptr) {
        return nullptr;
    }
    std::u16string units(static_cast<size_t>(CFStringGetLength(text)), u'\0');
    CFStringGetCharacters(text, CFRangeMake(0, CFStringGetLength(text)),
                          reinterpret_cast<UniChar*>(&units[0]));
    CFRelease(text);
    if (!units.empty() && units[0] == 0xFEFF) {
        units.erase(0, 1);
    }
    CFMutableDictionaryRef table = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    CFStringsTable parser(std::move(units));
    parser.readEntries(table);
    return table;
}

void CFStringsTable::skipSpaceAndComments()
{
    while (mPos < mText.size()) {
        const char16_t c = mText[mPos];
        if (c == u' ' || c == u'\t' || c == u'\r' || c == u'\n' || c == 0x2028 || c == 0x2029) {
            ++mPos;
        } else if (c == u'/' && mPos + 1 < mText.size() && mText[mPos + 1] == u'*') {
            const size_t end = mText.find(u"*/", mPos + 2);
            mPos = end == std::u16string::npos ? mText.size() : end + 2;
        } else if (c == u'/' && mPos + 1 < mText.size() && mText[mPos + 1] == u'/') {
            const size_t end = mText.find(u'\n', mPos + 2);
            mPos = end == std::u16string::npos ? mText.size() : end + 1;
        } else {
            return;
        }
    }
}

bool CFStringsTable::readString(std::u16string& out)
{
    out.clear();
    if (mPos < mText.size() && mText[mPos] == u'"') {
        ++mPos;
        return readQuoted(out);
    }
    while (mPos < mText.size() && isWordCharacter(mText[mPos])) {
        out += mText[mPos++];
    }
    return !out.empty();
}

bool CFStringsTable::readQuoted(std::u16string& out)
{
    while (mPos < mText.size()) {
        char16_t c = mText[mPos++];
        if (c == u'"') {
            return true;
        }
        if (c != u'\\') {
            out += c;
            continue;
        }
        if (mPos >= mText.size()) {
            return false;
        }
        c = mText[mPos++];
        switch (c) {
        case u'n':
            out += u'\n';
            break;
        case u't':
            out += u'\t';
            break;
        case u'r':
            out += u'\r';
            break;
        case u'a':
            out += u'\a';
            break;
        case u'b':
            out += u'\b';
            break;
        case u'f':
            out += u'\f';
            break;
        case u'v':
            out += u'\v';
            break;
        case u'U':
        case u'u': {
            // \Uxxxx: up to four hexadecimal digits of a UTF-16 unit.
            unsigned value = 0;
            int digits = 0;
            while (digits < 4 && mPos < mText.size() && hexValue(mText[mPos]) >= 0) {
                value = value * 16 + static_cast<unsigned>(hexValue(mText[mPos++]));
                ++digits;
            }
            if (digits == 0) {
                return false;
            }
            out += static_cast<char16_t>(value);
            break;
        }
        default:
            if (c >= u'0' && c <= u'7') {
                // \ooo: up to three octal digits.
                unsigned value = c - u'0';
                for (int digits = 1; digits < 3 && mPos < mText.size() && mText[mPos] >= u'0' &&
                                     mText[mPos] <= u'7';
                     ++digits) {
                    value = value * 8 + (mText[mPos++] - u'0');
                }
                out += static_cast<char16_t>(value);
            } else {
                out += c;
            }
            break;
        }
    }
    return false;
}

void CFStringsTable::readEntries(CFMutableDictionaryRef table)
{
    skipSpaceAndComments();
    const bool braced = mPos < mText.size() && mText[mPos] == u'{';
    if (braced) {
        ++mPos;
    }
    std::u16string key;
    std::u16string value;
    for (;;) {
        skipSpaceAndComments();
        if (mPos >= mText.size() || (braced && mText[mPos] == u'}')) {
            return;
        }
        if (!readString(key)) {
            return;
        }
        skipSpaceAndComments();
        value = key;
        if (mPos < mText.size() && mText[mPos] == u'=') {
            ++mPos;
            skipSpaceAndComments();
            if (!readString(value)) {
                return;
            }
            skipSpaceAndComments();
        }
        if (mPos >= mText.size() || mText[mPos] != u';') {
            return;
        }
        ++mPos;
        CFStringRef keyString = createString(key);
        CFStringRef valueString = createString(value);
        CFDictionarySetValue(table, keyString, valueString);
        CFRelease(keyString);
        CFRelease(valueString);
    }
}
