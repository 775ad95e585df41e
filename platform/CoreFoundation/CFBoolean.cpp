// The two booleans are immortal singletons, so comparing pointers compares
// values.
#include "CFRuntimeBase.h"

struct __CFBoolean final : CFRuntimeBase
{
    explicit __CFBoolean(bool value) : CFRuntimeBase(kCFRuntimeTypeIDBoolean, true), mValue(value)
    {
    }

    CFHashCode hash() const override { return mValue ? 1 : 0; }
    std::string description() const override { return mValue ? "true" : "false"; }

    const bool mValue;
};

// Allocated once and never destroyed, so that objects released during other
// libraries' static destruction may still refer to them.
const CFBooleanRef kCFBooleanTrue = new __CFBoolean(true);
const CFBooleanRef kCFBooleanFalse = new __CFBoolean(false);

CFTypeID CFBooleanGetTypeID(void)
{
    return kCFRuntimeTypeIDBoolean;
}

Boolean CFBooleanGetValue(CFBooleanRef boolean)
{
    const __CFBoolean* value = CFRuntimeBase::cast<__CFBoolean>(boolean, kCFRuntimeTypeIDBoolean);
    return value != nullptr && value->mValue;
}
