// Owner of one reference to a Core Foundation object (one that came from a
// Create or Copy call, or from a property read that hands the caller an
// object): releases it when it goes out of scope.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

template <typename T> class CFRef
{
public:
    // Takes over an owned reference (may be null). [any]
    explicit CFRef(T ref = nullptr) : mRef(ref) {}
    ~CFRef()
    {
        if (mRef != nullptr)
            CFRelease(mRef);
    }
    CFRef(CFRef&& other) noexcept : mRef(std::exchange(other.mRef, nullptr)) {}
    CFRef& operator=(CFRef&& other) noexcept
    {
        std::swap(mRef, other.mRef);
        return *this;
    }
    CFRef(const CFRef&) = delete;
    CFRef& operator=(const CFRef&) = delete;

    // Borrowed reference, valid while this owner lives. [any]
    T get() const { return mRef; }
    explicit operator bool() const { return mRef != nullptr; }

private:
    T mRef;
};
