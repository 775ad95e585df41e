// Byte buffers. Mutable data grows without limit; the capacity given at
// creation only reserves room.
#include "CFRuntimeBase.h"

#include <cstdio>
#include <cstring>
#include <vector>

struct __CFData final : CFRuntimeBase
{
    __CFData(std::vector<UInt8> bytes, bool isMutable)
        : CFRuntimeBase(kCFRuntimeTypeIDData, false), mBytes(std::move(bytes)), mMutable(isMutable)
    {
    }

    bool equals(const CFRuntimeBase& other) const override
    {
        return mBytes == static_cast<const __CFData&>(other).mBytes;
    }
    CFHashCode hash() const override
    {
        CFHashCode value = 14695981039346656037UL;
        for (UInt8 byte : mBytes) {
            value = (value ^ byte) * 1099511628211UL;
        }
        return value;
    }
    std::string description() const override
    {
        std::string text = "<";
        char hex[3];
        for (size_t i = 0; i < mBytes.size(); ++i) {
            std::snprintf(hex, sizeof hex, "%02x", mBytes[i]);
            text += hex;
            if (i % 4 == 3 && i + 1 < mBytes.size()) {
                text += ' ';
            }
        }
        return text + ">";
    }

    std::vector<UInt8> mBytes;
    const bool mMutable;
};

namespace {

__CFData* asData(CFTypeRef cf)
{
    return CFRuntimeBase::cast<__CFData>(cf, kCFRuntimeTypeIDData);
}

__CFData* asMutableData(CFTypeRef cf)
{
    __CFData* data = asData(cf);
    return data != nullptr && data->mMutable ? data : nullptr;
}

bool validRange(const __CFData& data, CFRange range)
{
    return range.location >= 0 && range.length >= 0 &&
           static_cast<size_t>(range.location) + static_cast<size_t>(range.length) <=
               data.mBytes.size();
}

} // namespace

CFTypeID CFDataGetTypeID(void)
{
    return kCFRuntimeTypeIDData;
}

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length)
{
    if (length < 0 || (bytes == nullptr && length > 0)) {
        return nullptr;
    }
    return new __CFData(
        length > 0 ? std::vector<UInt8>(bytes, bytes + length) : std::vector<UInt8>(), false);
}

CFDataRef CFDataCreateCopy(CFAllocatorRef, CFDataRef theData)
{
    const __CFData* data = asData(theData);
    if (data == nullptr) {
        return nullptr;
    }
    if (!data->mMutable) {
        CFRetain(data);
        return data;
    }
    return new __CFData(data->mBytes, false);
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef, CFIndex capacity)
{
    std::vector<UInt8> bytes;
    bytes.reserve(capacity > 0 ? static_cast<size_t>(capacity) : 0);
    return new __CFData(std::move(bytes), true);
}

CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef, CFIndex, CFDataRef theData)
{
    const __CFData* data = asData(theData);
    return new __CFData(data != nullptr ? data->mBytes : std::vector<UInt8>(), true);
}

CFIndex CFDataGetLength(CFDataRef theData)
{
    const __CFData* data = asData(theData);
    return data != nullptr ? static_cast<CFIndex>(data->mBytes.size()) : 0;
}

const UInt8* CFDataGetBytePtr(CFDataRef theData)
{
    const __CFData* data = asData(theData);
    return data != nullptr ? data->mBytes.data() : nullptr;
}

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef theData)
{
    __CFData* data = asMutableData(theData);
    return data != nullptr ? data->mBytes.data() : nullptr;
}

void CFDataGetBytes(CFDataRef theData, CFRange range, UInt8* buffer)
{
    const __CFData* data = asData(theData);
    if (data != nullptr && buffer != nullptr && validRange(*data, range) && range.length > 0) {
        std::memcpy(buffer, data->mBytes.data() + range.location,
                    static_cast<size_t>(range.length));
    }
}

void CFDataAppendBytes(CFMutableDataRef theData, const UInt8* bytes, CFIndex length)
{
    __CFData* data = asMutableData(theData);
    if (data != nullptr && bytes != nullptr && length > 0) {
        // Copy first: the bytes may come from this very buffer.
        const std::vector<UInt8> chunk(bytes, bytes + length);
        data->mBytes.insert(data->mBytes.end(), chunk.begin(), chunk.end());
    }
}

void CFDataSetLength(CFMutableDataRef theData, CFIndex length)
{
    __CFData* data = asMutableData(theData);
    if (data != nullptr && length >= 0) {
        data->mBytes.resize(static_cast<size_t>(length), 0);
    }
}

void CFDataIncreaseLength(CFMutableDataRef theData, CFIndex extraLength)
{
    __CFData* data = asMutableData(theData);
    if (data != nullptr && extraLength > 0) {
        data->mBytes.resize(data->mBytes.size() + static_cast<size_t>(extraLength), 0);
    }
}
