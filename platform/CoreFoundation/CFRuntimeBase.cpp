#include "CFRuntimeBase.h"

#include <cassert>
#include <climits>
#include <cstdio>

void CFRuntimeBase::retain() const
{
    if (!mImmortal) {
        mRetainCount.fetch_add(1, std::memory_order_relaxed);
    }
}

void CFRuntimeBase::release() const
{
    if (mImmortal) {
        return;
    }
    const CFIndex before = mRetainCount.fetch_sub(1, std::memory_order_acq_rel);
    assert(before > 0 && "released more often than retained");
    if (before == 1) {
        delete this;
    }
}

bool CFRuntimeBase::retainIfAlive() const
{
    if (mImmortal) {
        return true;
    }
    CFIndex count = mRetainCount.load(std::memory_order_relaxed);
    while (count > 0) {
        if (mRetainCount.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel)) {
            return true;
        }
    }
    return false;
}

CFIndex CFRuntimeBase::retainCount() const
{
    return mImmortal ? LONG_MAX : mRetainCount.load(std::memory_order_relaxed);
}

CFHashCode CFRuntimeBase::hash() const
{
    return static_cast<CFHashCode>(reinterpret_cast<uintptr_t>(this) >> 4);
}

std::string CFRuntimeBase::description() const
{
    char text[64];
    std::snprintf(text, sizeof text, "<object %p type %lu>", static_cast<const void*>(this),
                  mTypeID);
    return text;
}

std::string CFRuntimeUTF8(CFStringRef string)
{
    // A string's description is its UTF-8 form (lone surrogates as U+FFFD).
    return CFGetTypeID(string) == CFStringGetTypeID()
               ? static_cast<const CFRuntimeBase*>(static_cast<const void*>(string))->description()
               : std::string();
}

std::string CFRuntimeIndent(const std::string& text)
{
    std::string out;
    for (char c : text) {
        out += c;
        if (c == '\n') {
            out += "    ";
        }
    }
    return out;
}

CFStringRef CFRuntimeCreateString(const std::string& utf8)
{
    return CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                                   static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8, false);
}
