// Arrays of pointer-sized values whose retaining and equality are decided by
// the callbacks given at creation (copied into the array).
#include "CFRuntimeBase.h"

#include <cstdio>
#include <vector>

namespace {

const void* retainType(CFAllocatorRef, const void* value)
{
    return CFRetain(value);
}

void releaseType(CFAllocatorRef, const void* value)
{
    CFRelease(value);
}

const CFArrayCallBacks kNoCallBacks = {0, nullptr, nullptr, nullptr, nullptr};

} // namespace

const CFArrayCallBacks kCFTypeArrayCallBacks = {0, retainType, releaseType, CFCopyDescription,
                                                CFEqual};

struct __CFArray final : CFRuntimeBase
{
    __CFArray(const CFArrayCallBacks* callBacks, bool isMutable)
        : CFRuntimeBase(kCFRuntimeTypeIDArray, false),
          mCallBacks(callBacks != nullptr ? *callBacks : kNoCallBacks), mMutable(isMutable)
    {
    }
    ~__CFArray() override
    {
        for (const void* value : mValues) {
            releaseValue(value);
        }
    }

    const void* retainValue(const void* value) const
    {
        return mCallBacks.retain != nullptr ? mCallBacks.retain(nullptr, value) : value;
    }
    void releaseValue(const void* value) const
    {
        if (mCallBacks.release != nullptr) {
            mCallBacks.release(nullptr, value);
        }
    }
    bool valuesEqual(const void* a, const void* b) const
    {
        return a == b || (mCallBacks.equal != nullptr && mCallBacks.equal(a, b));
    }
    bool validRange(CFRange range) const
    {
        return range.location >= 0 && range.length >= 0 &&
               static_cast<size_t>(range.location) + static_cast<size_t>(range.length) <=
                   mValues.size();
    }

    bool equals(const CFRuntimeBase& other) const override;
    CFHashCode hash() const override { return mValues.size(); }
    std::string description() const override;

    const CFArrayCallBacks mCallBacks;
    std::vector<const void*> mValues;
    const bool mMutable;
};

bool __CFArray::equals(const CFRuntimeBase& other) const
{
    const auto& array = static_cast<const __CFArray&>(other);
    if (array.mValues.size() != mValues.size()) {
        return false;
    }
    for (size_t i = 0; i < mValues.size(); ++i) {
        if (!valuesEqual(mValues[i], array.mValues[i])) {
            return false;
        }
    }
    return true;
}

std::string __CFArray::description() const
{
    std::string text = "(\n";
    for (size_t i = 0; i < mValues.size(); ++i) {
        std::string item;
        if (mCallBacks.copyDescription != nullptr) {
            CFStringRef described = mCallBacks.copyDescription(mValues[i]);
            item = CFRuntimeUTF8(described);
            CFRelease(described);
        } else {
            char pointer[32];
            std::snprintf(pointer, sizeof pointer, "<%p>", mValues[i]);
            item = pointer;
        }
        text += "    " + CFRuntimeIndent(item) + (i + 1 < mValues.size() ? ",\n" : "\n");
    }
    return text + ")";
}

namespace {

__CFArray* asArray(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFArray>(cf, kCFRuntimeTypeIDArray);
}

__CFArray* asMutableArray(CFTypeRef cf)
{
    __CFArray* array = asArray(cf);
    return array != nullptr && array->mMutable ? array : nullptr;
}

__CFArray* copyArray(const __CFArray& source, bool isMutable)
{
    auto* array = new __CFArray(&source.mCallBacks, isMutable);
    array->mValues.reserve(source.mValues.size());
    for (const void* value : source.mValues) {
        array->mValues.push_back(array->retainValue(value));
    }
    return array;
}

} // namespace

CFTypeID CFArrayGetTypeID(void)
{
    return kCFRuntimeTypeIDArray;
}

CFArrayRef CFArrayCreate(CFAllocatorRef, const void** values, CFIndex numValues,
                         const CFArrayCallBacks* callBacks)
{
    if (numValues < 0 || (values == nullptr && numValues > 0)) {
        return nullptr;
    }
    auto* array = new __CFArray(callBacks, false);
    array->mValues.reserve(static_cast<size_t>(numValues));
    for (CFIndex i = 0; i < numValues; ++i) {
        array->mValues.push_back(array->retainValue(values[i]));
    }
    return array;
}

CFArrayRef CFArrayCreateCopy(CFAllocatorRef, CFArrayRef theArray)
{
    const __CFArray* array = asArray(theArray);
    return array != nullptr ? copyArray(*array, false) : nullptr;
}

CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks)
{
    auto* array = new __CFArray(callBacks, true);
    array->mValues.reserve(capacity > 0 ? static_cast<size_t>(capacity) : 0);
    return array;
}

CFMutableArrayRef CFArrayCreateMutableCopy(CFAllocatorRef, CFIndex, CFArrayRef theArray)
{
    const __CFArray* array = asArray(theArray);
    return array != nullptr ? copyArray(*array, true) : nullptr;
}

CFIndex CFArrayGetCount(CFArrayRef theArray)
{
    const __CFArray* array = asArray(theArray);
    return array != nullptr ? static_cast<CFIndex>(array->mValues.size()) : 0;
}

const void* CFArrayGetValueAtIndex(CFArrayRef theArray, CFIndex idx)
{
    const __CFArray* array = asArray(theArray);
    if (array == nullptr || idx < 0 || static_cast<size_t>(idx) >= array->mValues.size()) {
        return nullptr;
    }
    return array->mValues[static_cast<size_t>(idx)];
}

void CFArrayGetValues(CFArrayRef theArray, CFRange range, const void** values)
{
    const __CFArray* array = asArray(theArray);
    if (array == nullptr || values == nullptr || !array->validRange(range)) {
        return;
    }
    for (CFIndex i = 0; i < range.length; ++i) {
        values[i] = array->mValues[static_cast<size_t>(range.location + i)];
    }
}

CFIndex CFArrayGetFirstIndexOfValue(CFArrayRef theArray, CFRange range, const void* value)
{
    const __CFArray* array = asArray(theArray);
    if (array == nullptr || !array->validRange(range)) {
        return kCFNotFound;
    }
    for (CFIndex i = range.location; i < range.location + range.length; ++i) {
        if (array->valuesEqual(array->mValues[static_cast<size_t>(i)], value)) {
            return i;
        }
    }
    return kCFNotFound;
}

Boolean CFArrayContainsValue(CFArrayRef theArray, CFRange range, const void* value)
{
    return CFArrayGetFirstIndexOfValue(theArray, range, value) != kCFNotFound;
}

void CFArrayApplyFunction(CFArrayRef theArray, CFRange range, CFArrayApplierFunction applier,
                          void* context)
{
    const __CFArray* array = asArray(theArray);
    if (array == nullptr || applier == nullptr || !array->validRange(range)) {
        return;
    }
    for (CFIndex i = range.location; i < range.location + range.length; ++i) {
        applier(array->mValues[static_cast<size_t>(i)], context);
    }
}

void CFArrayAppendValue(CFMutableArrayRef theArray, const void* value)
{
    __CFArray* array = asMutableArray(theArray);
    if (array != nullptr) {
        array->mValues.push_back(array->retainValue(value));
    }
}

void CFArrayInsertValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value)
{
    __CFArray* array = asMutableArray(theArray);
    if (array != nullptr && idx >= 0 && static_cast<size_t>(idx) <= array->mValues.size()) {
        array->mValues.insert(array->mValues.begin() + idx, array->retainValue(value));
    }
}

void CFArraySetValueAtIndex(CFMutableArrayRef theArray, CFIndex idx, const void* value)
{
    __CFArray* array = asMutableArray(theArray);
    if (array == nullptr || idx < 0 || static_cast<size_t>(idx) > array->mValues.size()) {
        return;
    }
    if (static_cast<size_t>(idx) == array->mValues.size()) {
        array->mValues.push_back(array->retainValue(value));
        return;
    }
    // Retain the new value before releasing the old one: they may be the same.
    const void* retained = array->retainValue(value);
    const void* old = array->mValues[static_cast<size_t>(idx)];
    array->mValues[static_cast<size_t>(idx)] = retained;
    array->releaseValue(old);
}

void CFArrayRemoveValueAtIndex(CFMutableArrayRef theArray, CFIndex idx)
{
    __CFArray* array = asMutableArray(theArray);
    if (array == nullptr || idx < 0 || static_cast<size_t>(idx) >= array->mValues.size()) {
        return;
    }
    const void* old = array->mValues[static_cast<size_t>(idx)];
    array->mValues.erase(array->mValues.begin() + idx);
    array->releaseValue(old);
}

void CFArrayRemoveAllValues(CFMutableArrayRef theArray)
{
    __CFArray* array = asMutableArray(theArray);
    if (array == nullptr) {
        return;
    }
    std::vector<const void*> old;
    old.swap(array->mValues);
    for (const void* value : old) {
        array->releaseValue(value);
    }
}
