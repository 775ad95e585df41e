#include "AUScopeElement.h"

#include "AUBase.h"

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>

namespace {

void AppendBigEndian32(CFMutableDataRef inData, UInt32 inValue)
{
    const UInt8 bytes[4] = {static_cast<UInt8>(inValue >> 24), static_cast<UInt8>(inValue >> 16),
                            static_cast<UInt8>(inValue >> 8), static_cast<UInt8>(inValue)};
    CFDataAppendBytes(inData, bytes, 4);
}

UInt32 ReadBigEndian32(const UInt8* inBytes)
{
    return (static_cast<UInt32>(inBytes[0]) << 24) | (static_cast<UInt32>(inBytes[1]) << 16) |
           (static_cast<UInt32>(inBytes[2]) << 8) | static_cast<UInt32>(inBytes[3]);
}

// A dictionary key naming a scope or an element: the number in decimal.
CFStringRef CreateIndexKey(int inIndex)
{
    char text[32];
    std::snprintf(text, sizeof(text), "%d", inIndex);
    return CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingASCII);
}

// Parses a key written by CreateIndexKey. Accepts only plain decimal digits
// (no sign, no spaces, no other text) whose value is below inLimit.
bool ParseIndexKey(CFTypeRef inKey, UInt32 inLimit, UInt32& outIndex)
{
    if (inKey == nullptr || CFGetTypeID(inKey) != CFStringGetTypeID()) {
        return false;
    }
    char text[32];
    if (!CFStringGetCString(static_cast<CFStringRef>(inKey), text, sizeof(text),
                            kCFStringEncodingASCII) ||
        text[0] == '\0') {
        return false;
    }
    UInt32 value = 0;
    for (const char* p = text; *p != '\0'; ++p) {
        if (*p < '0' || *p > '9') {
            return false;
        }
        value = value * 10 + static_cast<UInt32>(*p - '0');
        if (value >= inLimit) {
            return false;
        }
    }
    outIndex = value;
    return true;
}

} // namespace

// ---- ParameterMapEvent -----------------------------------------------------

ParameterMapEvent::ParameterMapEvent()
    : mEventType(kParameterEvent_Immediate), mBufferOffset(0), mDurationInFrames(0), mValue1(0.0f),
      mValue2(0.0f), mSliceDurationFrames(0)
{
    // The record's layout is fixed: six 32-bit fields in declaration order.
    static_assert(sizeof(ParameterMapEvent) == 24, "six 32-bit fields");
    static_assert(offsetof(ParameterMapEvent, mBufferOffset) == 4, "offset at 4");
    static_assert(offsetof(ParameterMapEvent, mDurationInFrames) == 8, "duration at 8");
    static_assert(offsetof(ParameterMapEvent, mValue1) == 12, "value 1 at 12");
    static_assert(offsetof(ParameterMapEvent, mValue2) == 16, "value 2 at 16");
    static_assert(offsetof(ParameterMapEvent, mSliceDurationFrames) == 20, "slice at 20");
}

ParameterMapEvent::ParameterMapEvent(AudioUnitParameterValue inValue)
    : mEventType(kParameterEvent_Immediate), mBufferOffset(0), mDurationInFrames(0),
      mValue1(inValue), mValue2(inValue), mSliceDurationFrames(0)
{
}

void ParameterMapEvent::SetValue(AudioUnitParameterValue inValue)
{
    mEventType = kParameterEvent_Immediate;
    mValue1 = inValue;
    mValue2 = inValue;
}

void ParameterMapEvent::SetScheduledEvent(const AudioUnitParameterEvent& inEvent,
                                          UInt32 inSliceOffsetInBuffer,
                                          UInt32 inSliceDurationFrames)
{
    mEventType = inEvent.eventType;
    mSliceDurationFrames = inSliceDurationFrames;
    if (inEvent.eventType == kParameterEvent_Immediate) {
        mBufferOffset = 0;
        mDurationInFrames = inSliceDurationFrames;
        mValue1 = inEvent.eventValues.immediate.value;
        mValue2 = mValue1;
    } else {
        mBufferOffset =
            static_cast<SInt32>(static_cast<UInt32>(inEvent.eventValues.ramp.startBufferOffset) -
                                inSliceOffsetInBuffer);
        mDurationInFrames = inEvent.eventValues.ramp.durationInFrames;
        mValue1 = inEvent.eventValues.ramp.startValue;
        mValue2 = inEvent.eventValues.ramp.endValue;
    }
}

// ---- AUElement -------------------------------------------------------------

AUElement::AUElement(AUBase* inAudioUnit)
    : mAudioUnit(inAudioUnit), mUseIndexedParameters(false), mElementName(nullptr)
{
}

AUElement::~AUElement()
{
    if (mElementName != nullptr) {
        CFRelease(mElementName);
    }
}

UInt32 AUElement::GetNumberOfParameters()
{
    if (mUseIndexedParameters) {
        return static_cast<UInt32>(mIndexedParameters.size());
    }
    return static_cast<UInt32>(mParameters.size());
}

void AUElement::GetParameterList(AudioUnitParameterID* outList)
{
    if (mUseIndexedParameters) {
        const UInt32 count = static_cast<UInt32>(mIndexedParameters.size());
        for (UInt32 i = 0; i < count; ++i) {
            outList[i] = i;
        }
    } else {
        for (const auto& entry : mParameters) {
            *outList++ = entry.first;
        }
    }
}

void AUElement::UseIndexedParameters(int inNumberOfParameters)
{
    mIndexedParameters.resize(inNumberOfParameters > 0 ? static_cast<size_t>(inNumberOfParameters)
                                                       : 0);
    mUseIndexedParameters = true;
}

AUIOElement* AUElement::AsIOElement()
{
    return nullptr;
}

const ParameterMapEvent* AUElement::FindParameter(AudioUnitParameterID inID) const
{
    if (mUseIndexedParameters) {
        if (inID >= mIndexedParameters.size()) {
            throw static_cast<OSStatus>(kAudioUnitErr_InvalidParameter);
        }
        return &mIndexedParameters[inID];
    }
    const auto found = mParameters.find(inID);
    return found == mParameters.end() ? nullptr : &found->second;
}

ParameterMapEvent* AUElement::FindParameter(AudioUnitParameterID inID)
{
    return const_cast<ParameterMapEvent*>(static_cast<const AUElement*>(this)->FindParameter(inID));
}

bool AUElement::MayCreateParameter(bool inOkWhenInitialized) const
{
    return inOkWhenInitialized || !mAudioUnit->IsInitialized();
}

const ParameterMapEvent& AUElement::GetParameterEvent(AudioUnitParameterID inID) const
{
    const ParameterMapEvent* event = FindParameter(inID);
    if (event == nullptr) {
        throw static_cast<OSStatus>(kAudioUnitErr_InvalidParameter);
    }
    return *event;
}

void AUElement::SetParameter(AudioUnitParameterID inID, AudioUnitParameterValue inValue,
                             bool inOkWhenInitialized)
{
    if (ParameterMapEvent* event = FindParameter(inID)) {
        event->SetValue(inValue);
    } else if (MayCreateParameter(inOkWhenInitialized)) {
        mParameters.emplace(inID, ParameterMapEvent(inValue));
    }
}

void AUElement::SetScheduledEvent(AudioUnitParameterID inID, const AudioUnitParameterEvent& inEvent,
                                  UInt32 inSliceOffsetInBuffer, UInt32 inSliceDurationFrames,
                                  bool inOkWhenInitialized)
{
    if (ParameterMapEvent* event = FindParameter(inID)) {
        event->SetScheduledEvent(inEvent, inSliceOffsetInBuffer, inSliceDurationFrames);
    } else if (MayCreateParameter(inOkWhenInitialized)) {
        ParameterMapEvent created;
        created.SetScheduledEvent(inEvent, inSliceOffsetInBuffer, inSliceDurationFrames);
        mParameters.emplace(inID, created);
    }
}

void AUElement::SetName(CFStringRef inName)
{
    if (inName != nullptr) {
        CFRetain(inName);
    }
    if (mElementName != nullptr) {
        CFRelease(mElementName);
    }
    mElementName = inName;
}

void AUElement::SaveState(CFMutableDataRef inData)
{
    const auto appendEntry = [inData](AudioUnitParameterID inID, AudioUnitParameterValue inValue) {
        UInt32 bits;
        std::memcpy(&bits, &inValue, sizeof(bits));
        AppendBigEndian32(inData, inID);
        AppendBigEndian32(inData, bits);
    };
    AppendBigEndian32(inData, GetNumberOfParameters());
    if (mUseIndexedParameters) {
        const UInt32 count = static_cast<UInt32>(mIndexedParameters.size());
        for (UInt32 i = 0; i < count; ++i) {
            appendEntry(i, mIndexedParameters[i].GetValue());
        }
    } else {
        for (const auto& entry : mParameters) {
            appendEntry(entry.first, entry.second.GetValue());
        }
    }
}

const UInt8* AUElement::RestoreState(const UInt8* inState)
{
    const UInt32 count = ReadBigEndian32(inState);
    const UInt8* p = inState + 4;
    for (UInt32 i = 0; i < count; ++i, p += 8) {
        const AudioUnitParameterID id = ReadBigEndian32(p);
        const UInt32 bits = ReadBigEndian32(p + 4);
        AudioUnitParameterValue value;
        std::memcpy(&value, &bits, sizeof(value));
        SetParameter(id, value, false);
    }
    return p;
}

// ---- AUScope ---------------------------------------------------------------

AUScope::AUScope() : mCreator(nullptr), mScope(kAudioUnitScope_Global) {}

AUScope::~AUScope()
{
    for (AUElement* element : mElements) {
        delete element;
    }
}

void AUScope::Initialize(AUBase* inCreator, AudioUnitScope inScope, UInt32 inNumElements)
{
    mCreator = inCreator;
    mScope = inScope;
    SetNumberOfElements(inNumElements);
}

AUElement* AUScope::SafeGetElement(UInt32 inElement) const
{
    AUElement* element = GetElement(inElement);
    if (element == nullptr) {
        throw static_cast<OSStatus>(kAudioUnitErr_InvalidElement);
    }
    return element;
}

AUIOElement* AUScope::GetIOElement(UInt32 inElement) const
{
    AUIOElement* element = SafeGetElement(inElement)->AsIOElement();
    if (element == nullptr) {
        throw static_cast<OSStatus>(kAudioUnitErr_InvalidElement);
    }
    return element;
}

void AUScope::SetNumberOfElements(UInt32 inNumElements)
{
    if (inNumElements > mElements.size()) {
        mElements.reserve(inNumElements);
        for (UInt32 i = static_cast<UInt32>(mElements.size()); i < inNumElements; ++i) {
            // Room was reserved above, so push_back cannot throw after the
            // element exists.
            mElements.push_back(mCreator->CreateElement(mScope, i));
        }
    } else {
        while (mElements.size() > inNumElements) {
            AUElement* last = mElements.back();
            mElements.pop_back();
            delete last;
        }
    }
}

bool AUScope::HasElementWithName() const
{
    for (const AUElement* element : mElements) {
        if (element->HasName()) {
            return true;
        }
    }
    return false;
}

void AUScope::AddElementNamesToDict(CFMutableDictionaryRef& ioNameDict) const
{
    if (!HasElementWithName()) {
        return;
    }
    CFMutableDictionaryRef names = CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
    if (names == nullptr) {
        throw std::bad_alloc();
    }
    for (size_t i = 0; i < mElements.size(); ++i) {
        if (mElements[i]->HasName()) {
            CFStringRef key = CreateIndexKey(static_cast<int>(i));
            CFDictionarySetValue(names, key, mElements[i]->GetName());
            CFRelease(key);
        }
    }
    CFStringRef scopeKey = CreateIndexKey(static_cast<int>(mScope));
    CFDictionarySetValue(ioNameDict, scopeKey, names);
    CFRelease(scopeKey);
    CFRelease(names);
}

bool AUScope::RestoreElementNames(CFDictionaryRef& inNameDict)
{
    const CFIndex count = CFDictionaryGetCount(inNameDict);
    std::vector<const void*> keys(static_cast<size_t>(count));
    std::vector<const void*> values(static_cast<size_t>(count));
    if (count > 0) {
        CFDictionaryGetKeysAndValues(inNameDict, keys.data(), values.data());
    }

    UInt32 largest = 0;
    for (CFIndex i = 0; i < count; ++i) {
        UInt32 index;
        if (ParseIndexKey(keys[i], kMaxRestoredElements, index) && index > largest) {
            largest = index;
        }
    }

    bool added = false;
    if (largest >= GetNumberOfElements()) {
        SetNumberOfElements(largest + 1);
        added = true;
    }

    for (CFIndex i = 0; i < count; ++i) {
        UInt32 index;
        if (ParseIndexKey(keys[i], kMaxRestoredElements, index) && values[i] != nullptr &&
            CFGetTypeID(values[i]) == CFStringGetTypeID()) {
            mElements[index]->SetName(static_cast<CFStringRef>(values[i]));
        }
    }
    return added;
}
