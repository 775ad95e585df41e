// Errors carry a domain, a code and a description; only the property-list
// functions make them.
#include "CFRuntimeBase.h"

struct __CFError final : CFRuntimeBase
{
    __CFError(CFIndex code, std::string text)
        : CFRuntimeBase(kCFRuntimeTypeIDError, false), mCode(code), mText(std::move(text))
    {
    }

    std::string description() const override { return mText; }

    const CFIndex mCode;
    const std::string mText;
};

namespace {

__CFError* asError(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFError>(cf, kCFRuntimeTypeIDError);
}

} // namespace

CFErrorRef CFRuntimeCreateError(CFIndex code, const std::string& description)
{
    return new __CFError(code, description);
}

CFTypeID CFErrorGetTypeID(void)
{
    return kCFRuntimeTypeIDError;
}

CFIndex CFErrorGetCode(CFErrorRef err)
{
    const __CFError* error = asError(err);
    return error != nullptr ? error->mCode : 0;
}

CFStringRef CFErrorGetDomain(CFErrorRef err)
{
    return asError(err) != nullptr ? CFSTR("PropertyList") : nullptr;
}

CFStringRef CFErrorCopyDescription(CFErrorRef err)
{
    const __CFError* error = asError(err);
    return error != nullptr ? CFRuntimeCreateString(error->mText) : nullptr;
}
