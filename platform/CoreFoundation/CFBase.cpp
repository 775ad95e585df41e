// The reference-counting core shared by every type.
#include "CFRuntimeBase.h"

#include <cstdio>

const CFAllocatorRef kCFAllocatorDefault = nullptr;

namespace {

const CFRuntimeBase* object(CFTypeRef cf)
{
    return static_cast<const CFRuntimeBase*>(cf);
}

} // namespace

CFTypeRef CFRetain(CFTypeRef cf)
{
    if (cf != nullptr) {
        object(cf)->retain();
    }
    return cf;
}

void CFRelease(CFTypeRef cf)
{
    if (cf != nullptr) {
        object(cf)->release();
    }
}

CFIndex CFGetRetainCount(CFTypeRef cf)
{
    return cf != nullptr ? object(cf)->retainCount() : 0;
}

CFTypeID CFGetTypeID(CFTypeRef cf)
{
    return cf != nullptr ? object(cf)->typeID() : 0;
}

Boolean CFEqual(CFTypeRef cf1, CFTypeRef cf2)
{
    if (cf1 == cf2) {
        return true;
    }
    if (cf1 == nullptr || cf2 == nullptr) {
        return false;
    }
    const CFRuntimeBase* a = object(cf1);
    const CFRuntimeBase* b = object(cf2);
    return a->typeID() == b->typeID() && a->equals(*b);
}

CFHashCode CFHash(CFTypeRef cf)
{
    return cf != nullptr ? object(cf)->hash() : 0;
}

CFStringRef CFCopyDescription(CFTypeRef cf)
{
    if (cf == nullptr) {
        return nullptr;
    }
    return CFRuntimeCreateString(object(cf)->description());
}

CFStringRef CFCopyTypeIDDescription(CFTypeID type_id)
{
    static const char* const kNames[kCFRuntimeTypeIDCount] = {
        nullptr,   "CFString",     "CFNumber", "CFBoolean", "CFData",
        "CFArray", "CFDictionary", "CFURL",    "CFBundle",  "CFError"};
    if (type_id == 0 || type_id >= kCFRuntimeTypeIDCount) {
        return nullptr;
    }
    return CFRuntimeCreateString(kNames[type_id]);
}

void CFShow(CFTypeRef obj)
{
    const std::string text = obj != nullptr ? object(obj)->description() : std::string("(null)");
    std::fprintf(stderr, "%s\n", text.c_str());
}
