// Common base of every object of the library: the type identifier, the
// atomic reference count and the virtual hooks behind CFEqual, CFHash and
// CFCopyDescription. Each public opaque struct (__CFString, __CFArray, ...)
// derives from it, so a CFTypeRef always points at a CFRuntimeBase.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <string>
#include <vector>

// Fixed type identifiers; 0 is never a valid type.
enum : CFTypeID
{
    kCFRuntimeTypeIDString = 1,
    kCFRuntimeTypeIDNumber,
    kCFRuntimeTypeIDBoolean,
    kCFRuntimeTypeIDData,
    kCFRuntimeTypeIDArray,
    kCFRuntimeTypeIDDictionary,
    kCFRuntimeTypeIDURL,
    kCFRuntimeTypeIDBundle,
    kCFRuntimeTypeIDError,
    kCFRuntimeTypeIDCount
};

class CFRuntimeBase
{
public:
    CFRuntimeBase(const CFRuntimeBase&) = delete;
    CFRuntimeBase& operator=(const CFRuntimeBase&) = delete;
    virtual ~CFRuntimeBase() = default;

    CFTypeID typeID() const { return mTypeID; }
    bool isImmortal() const { return mImmortal; }

    void retain() const;
    // Drops one reference and destroys the object when it was the last.
    void release() const;
    // Adds a reference only while the object is alive (count above zero);
    // lets a registry of weak references hand out objects safely.
    bool retainIfAlive() const;
    CFIndex retainCount() const;

    // Called only with an object of the same type identifier.
    virtual bool equals(const CFRuntimeBase& other) const { return this == &other; }
    virtual CFHashCode hash() const;
    virtual std::string description() const;

    // The object behind cf when it has type typeID, else nullptr.
    template <class T> static T* cast(CFTypeRef cf, CFTypeID typeID)
    {
        auto* base = static_cast<CFRuntimeBase*>(const_cast<void*>(cf));
        return base != nullptr && base->mTypeID == typeID ? static_cast<T*>(base) : nullptr;
    }

protected:
    CFRuntimeBase(CFTypeID typeID, bool immortal) : mTypeID(typeID), mImmortal(immortal) {}

private:
    const CFTypeID mTypeID;
    const bool mImmortal;
    mutable std::atomic<CFIndex> mRetainCount{1};
};

// UTF-8 bytes of a string ("" for NULL or a non-string); shared by the sources that need a
// C++ string of a path, key or format.
std::string CFRuntimeUTF8(CFStringRef string);

// text with every line after the first indented by four spaces, for
// descriptions nested in a container's description.
std::string CFRuntimeIndent(const std::string& text);

// Owned string from UTF-8 bytes (invalid sequences make NULL).
CFStringRef CFRuntimeCreateString(const std::string& utf8);

// Owned error with code and description, in the property-list domain.
CFErrorRef CFRuntimeCreateError(CFIndex code, const std::string& description);

// Owned immutable dictionary parsed from property-list bytes (XML or binary),
// or NULL when the bytes do not hold one.
CFDictionaryRef CFRuntimeCreateDictionaryFromPropertyList(const std::vector<UInt8>& bytes);
