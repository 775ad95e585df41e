// Dictionaries map keys to values through a hash table whose hashing and
// equality come from the key callbacks given at creation (copied into the
// dictionary), so one key can never be held twice.
#include "CFRuntimeBase.h"

#include <cstdio>
#include <unordered_map>
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

const CFDictionaryKeyCallBacks kNoKeyCallBacks = {0, nullptr, nullptr, nullptr, nullptr, nullptr};
const CFDictionaryValueCallBacks kNoValueCallBacks = {0, nullptr, nullptr, nullptr, nullptr};

struct KeyHash
{
    CFDictionaryHashCallBack mHash;
    size_t operator()(const void* key) const
    {
        return mHash != nullptr ? mHash(key)
                                : static_cast<size_t>(reinterpret_cast<uintptr_t>(key) >> 4);
    }
};

struct KeyEqual
{
    CFDictionaryEqualCallBack mEqual;
    bool operator()(const void* a, const void* b) const
    {
        return a == b || (mEqual != nullptr && mEqual(a, b));
    }
};

std::string describe(CFDictionaryCopyDescriptionCallBack copyDescription, const void* value)
{
    if (copyDescription == nullptr) {
        char pointer[32];
        std::snprintf(pointer, sizeof pointer, "<%p>", value);
        return pointer;
    }
    CFStringRef described = copyDescription(value);
    std::string text = CFRuntimeUTF8(described);
    CFRelease(described);
    return text;
}

} // namespace

const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks = {
    0, retainType, releaseType, CFCopyDescription, CFEqual, CFHash};
const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks = {0, retainType, releaseType,
                                                                    CFCopyDescription, CFEqual};

struct __CFDictionary final : CFRuntimeBase
{
    using Table = std::unordered_map<const void*, const void*, KeyHash, KeyEqual>;

    __CFDictionary(const CFDictionaryKeyCallBacks* keyCallBacks,
                   const CFDictionaryValueCallBacks* valueCallBacks, bool isMutable,
                   size_t capacity)
        : CFRuntimeBase(kCFRuntimeTypeIDDictionary, false),
          mKeyCallBacks(keyCallBacks != nullptr ? *keyCallBacks : kNoKeyCallBacks),
          mValueCallBacks(valueCallBacks != nullptr ? *valueCallBacks : kNoValueCallBacks),
          mTable(capacity, KeyHash{mKeyCallBacks.hash}, KeyEqual{mKeyCallBacks.equal}),
          mMutable(isMutable)
    {
    }
    ~__CFDictionary() override { clear(); }

    void add(const void* key, const void* value);
    void set(const void* key, const void* value);
    void replaceValue(Table::iterator entry, const void* value);
    void remove(const void* key);
    void clear();

    bool equals(const CFRuntimeBase& other) const override;
    CFHashCode hash() const override { return mTable.size(); }
    std::string description() const override;

    const CFDictionaryKeyCallBacks mKeyCallBacks;
    const CFDictionaryValueCallBacks mValueCallBacks;
    Table mTable;
    const bool mMutable;
};

void __CFDictionary::add(const void* key, const void* value)
{
    if (mTable.find(key) != mTable.end()) {
        return;
    }
    const void* retainedKey =
        mKeyCallBacks.retain != nullptr ? mKeyCallBacks.retain(nullptr, key) : key;
    const void* retainedValue =
        mValueCallBacks.retain != nullptr ? mValueCallBacks.retain(nullptr, value) : value;
    mTable.emplace(retainedKey, retainedValue);
}

void __CFDictionary::set(const void* key, const void* value)
{
    auto entry = mTable.find(key);
    if (entry == mTable.end()) {
        add(key, value);
    } else {
        replaceValue(entry, value);
    }
}

void __CFDictionary::replaceValue(Table::iterator entry, const void* value)
{
    // Retain the new value before releasing the old one: they may be the same.
    const void* retained =
        mValueCallBacks.retain != nullptr ? mValueCallBacks.retain(nullptr, value) : value;
    const void* old = entry->second;
    entry->second = retained;
    if (mValueCallBacks.release != nullptr) {
        mValueCallBacks.release(nullptr, old);
    }
}

void __CFDictionary::remove(const void* key)
{
    auto entry = mTable.find(key);
    if (entry == mTable.end()) {
        return;
    }
    const void* oldKey = entry->first;
    const void* oldValue = entry->second;
    mTable.erase(entry);
    if (mKeyCallBacks.release != nullptr) {
        mKeyCallBacks.release(nullptr, oldKey);
    }
    if (mValueCallBacks.release != nullptr) {
        mValueCallBacks.release(nullptr, oldValue);
    }
}

void __CFDictionary::clear()
{
    // Releasing may run arbitrary code (the last release of a value), so the
    // table is emptied before any release.
    Table old(0, KeyHash{mKeyCallBacks.hash}, KeyEqual{mKeyCallBacks.equal});
    old.swap(mTable);
    for (const auto& entry : old) {
        if (mKeyCallBacks.release != nullptr) {
            mKeyCallBacks.release(nullptr, entry.first);
        }
        if (mValueCallBacks.release != nullptr) {
            mValueCallBacks.release(nullptr, entry.second);
        }
    }
}

bool __CFDictionary::equals(const CFRuntimeBase& other) const
{
    const auto& dict = static_cast<const __CFDictionary&>(other);
    if (dict.mTable.size() != mTable.size()) {
        return false;
    }
    for (const auto& entry : mTable) {
        auto found = dict.mTable.find(entry.first);
        if (found == dict.mTable.end()) {
            return false;
        }
        if (found->second != entry.second &&
            (mValueCallBacks.equal == nullptr ||
             !mValueCallBacks.equal(entry.second, found->second))) {
            return false;
        }
    }
    return true;
}

std::string __CFDictionary::description() const
{
    std::string text = "{\n";
    for (const auto& entry : mTable) {
        text += "    " + describe(mKeyCallBacks.copyDescription, entry.first) + " = " +
                CFRuntimeIndent(describe(mValueCallBacks.copyDescription, entry.second)) + ";\n";
    }
    return text + "}";
}

namespace {

__CFDictionary* asDictionary(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFDictionary>(cf, kCFRuntimeTypeIDDictionary);
}

__CFDictionary* asMutableDictionary(CFTypeRef cf)
{
    __CFDictionary* dict = asDictionary(cf);
    return dict != nullptr && dict->mMutable ? dict : nullptr;
}

__CFDictionary* copyDictionary(const __CFDictionary& source, bool isMutable)
{
    auto* dict = new __CFDictionary(&source.mKeyCallBacks, &source.mValueCallBacks, isMutable,
                                    source.mTable.size());
    for (const auto& entry : source.mTable) {
        dict->add(entry.first, entry.second);
    }
    return dict;
}

} // namespace

CFTypeID CFDictionaryGetTypeID(void)
{
    return kCFRuntimeTypeIDDictionary;
}

CFDictionaryRef CFDictionaryCreate(CFAllocatorRef, const void** keys, const void** values,
                                   CFIndex numValues, const CFDictionaryKeyCallBacks* keyCallBacks,
                                   const CFDictionaryValueCallBacks* valueCallBacks)
{
    if (numValues < 0 || ((keys == nullptr || values == nullptr) && numValues > 0)) {
        return nullptr;
    }
    auto* dict =
        new __CFDictionary(keyCallBacks, valueCallBacks, false, static_cast<size_t>(numValues));
    for (CFIndex i = 0; i < numValues; ++i) {
        dict->set(keys[i], values[i]);
    }
    return dict;
}

CFDictionaryRef CFDictionaryCreateCopy(CFAllocatorRef, CFDictionaryRef theDict)
{
    const __CFDictionary* dict = asDictionary(theDict);
    return dict != nullptr ? copyDictionary(*dict, false) : nullptr;
}

CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks)
{
    return new __CFDictionary(keyCallBacks, valueCallBacks, true,
                              capacity > 0 ? static_cast<size_t>(capacity) : 0);
}

CFMutableDictionaryRef CFDictionaryCreateMutableCopy(CFAllocatorRef, CFIndex,
                                                     CFDictionaryRef theDict)
{
    const __CFDictionary* dict = asDictionary(theDict);
    return dict != nullptr ? copyDictionary(*dict, true) : nullptr;
}

CFIndex CFDictionaryGetCount(CFDictionaryRef theDict)
{
    const __CFDictionary* dict = asDictionary(theDict);
    return dict != nullptr ? static_cast<CFIndex>(dict->mTable.size()) : 0;
}

Boolean CFDictionaryGetValueIfPresent(CFDictionaryRef theDict, const void* key, const void** value)
{
    const __CFDictionary* dict = asDictionary(theDict);
    if (dict == nullptr) {
        return false;
    }
    auto found = dict->mTable.find(key);
    if (found == dict->mTable.end()) {
        return false;
    }
    if (value != nullptr) {
        *value = found->second;
    }
    return true;
}

const void* CFDictionaryGetValue(CFDictionaryRef theDict, const void* key)
{
    const void* value = nullptr;
    return CFDictionaryGetValueIfPresent(theDict, key, &value) ? value : nullptr;
}

Boolean CFDictionaryContainsKey(CFDictionaryRef theDict, const void* key)
{
    return CFDictionaryGetValueIfPresent(theDict, key, nullptr);
}

Boolean CFDictionaryContainsValue(CFDictionaryRef theDict, const void* value)
{
    const __CFDictionary* dict = asDictionary(theDict);
    if (dict == nullptr) {
        return false;
    }
    for (const auto& entry : dict->mTable) {
        if (entry.second == value || (dict->mValueCallBacks.equal != nullptr &&
                                      dict->mValueCallBacks.equal(entry.second, value))) {
            return true;
        }
    }
    return false;
}

void CFDictionaryGetKeysAndValues(CFDictionaryRef theDict, const void** keys, const void** values)
{
    const __CFDictionary* dict = asDictionary(theDict);
    if (dict == nullptr) {
        return;
    }
    size_t i = 0;
    for (const auto& entry : dict->mTable) {
        if (keys != nullptr) {
            keys[i] = entry.first;
        }
        if (values != nullptr) {
            values[i] = entry.second;
        }
        ++i;
    }
}

void CFDictionaryApplyFunction(CFDictionaryRef theDict, CFDictionaryApplierFunction applier,
                               void* context)
{
    const __CFDictionary* dict = asDictionary(theDict);
    if (dict == nullptr || applier == nullptr) {
        return;
    }
    for (const auto& entry : dict->mTable) {
        applier(entry.first, entry.second, context);
    }
}

void CFDictionaryAddValue(CFMutableDictionaryRef theDict, const void* key, const void* value)
{
    if (__CFDictionary* dict = asMutableDictionary(theDict)) {
        dict->add(key, value);
    }
}

void CFDictionarySetValue(CFMutableDictionaryRef theDict, const void* key, const void* value)
{
    if (__CFDictionary* dict = asMutableDictionary(theDict)) {
        dict->set(key, value);
    }
}

void CFDictionaryReplaceValue(CFMutableDictionaryRef theDict, const void* key, const void* value)
{
    __CFDictionary* dict = asMutableDictionary(theDict);
    if (dict == nullptr) {
        return;
    }
    auto entry = dict->mTable.find(key);
    if (entry != dict->mTable.end()) {
        dict->replaceValue(entry, value);
    }
}

void CFDictionaryRemoveValue(CFMutableDictionaryRef theDict, const void* key)
{
    if (__CFDictionary* dict = asMutableDictionary(theDict)) {
        dict->remove(key);
    }
}

void CFDictionaryRemoveAllValues(CFMutableDictionaryRef theDict)
{
    if (__CFDictionary* dict = asMutableDictionary(theDict)) {
        dict->clear();
    }
}
