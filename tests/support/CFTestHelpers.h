// Helpers for tests that build CoreFoundation objects and read them back.
#ifndef CFTESTHELPERS_H
#define CFTESTHELPERS_H

#include <CoreFoundation/CoreFoundation.h>

#include <string>

// A new string from UTF-8 text, owned by the caller.
inline CFStringRef NewCFString(const std::string& inText)
{
    return CFStringCreateWithCString(kCFAllocatorDefault, inText.c_str(), kCFStringEncodingUTF8);
}

// A new empty mutable dictionary that retains its keys and values, owned by
// the caller.
inline CFMutableDictionaryRef NewCFTypeDictionary()
{
    return CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                     &kCFTypeDictionaryValueCallBacks);
}

// The UTF-8 text of a string of up to 255 bytes, or "<not a string>" for null
// and any other object, so that a test's comparison fails with a clear value.
inline std::string ToString(CFTypeRef inString)
{
    char buffer[256] = {};
    if (inString == nullptr || CFGetTypeID(inString) != CFStringGetTypeID()) {
        return "<not a string>";
    }
    CFStringGetCString(static_cast<CFStringRef>(inString), buffer, sizeof(buffer),
                       kCFStringEncodingUTF8);
    return buffer;
}

#endif
