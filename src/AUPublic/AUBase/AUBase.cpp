#include "AUBase.h"

#include "AUDispatch.h"
#include "AUInputElement.h"
#include "AUOutputElement.h"
#include "CAAudioChannelLayout.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#if defined(__x86_64__) || defined(__i386__)
#include <xmmintrin.h>
#endif

static_assert(sizeof(HostCallbackInfo) == 40, "host-callback block is 40 bytes");
static_assert(sizeof(AUBase::RenderCallback) == 16, "render notification is two pointers");

namespace {

// Sample time of the last render: a property of its own, named by its four
// characters 'lrst'.
constexpr AudioUnitPropertyID kLastRenderedSampleTimeProperty = 0x6C727374;

// Host data may be unaligned: property values are moved with memcpy.
template <class T> T Load(const void* inData)
{
    T value;
    std::memcpy(&value, inData, sizeof(T));
    return value;
}

template <class T> void Store(void* outData, const T& inValue)
{
    std::memcpy(outData, &inValue, sizeof(T));
}

struct CFReleaser
{
    void operator()(CFTypeRef inObject) const
    {
        if (inObject != nullptr) {
            CFRelease(inObject);
        }
    }
};

// Owns one reference to a Core Foundation object until released or reset.
template <class Ref> using CFHolder = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

template <class Ref> CFHolder<Ref> CheckCreated(Ref inObject)
{
    if (inObject == nullptr) {
        throw std::bad_alloc();
    }
    return CFHolder<Ref>(inObject);
}

void SetNumber(CFMutableDictionaryRef ioDict, CFStringRef inKey, CFNumberType inType,
               const void* inValue)
{
    CFHolder<CFNumberRef> number =
        CheckCreated(CFNumberCreate(kCFAllocatorDefault, inType, inValue));
    CFDictionarySetValue(ioDict, inKey, number.get());
}

bool IsOfType(CFTypeRef inObject, CFTypeID inType)
{
    return inObject != nullptr && CFGetTypeID(inObject) == inType;
}

UInt32 ReadBigEndian32(const UInt8* inBytes)
{
    return (static_cast<UInt32>(inBytes[0]) << 24) | (static_cast<UInt32>(inBytes[1]) << 16) |
           (static_cast<UInt32>(inBytes[2]) << 8) | static_cast<UInt32>(inBytes[3]);
}

void AppendBigEndian32(CFMutableDataRef ioData, UInt32 inValue)
{
    const UInt8 bytes[4] = {static_cast<UInt8>(inValue >> 24), static_cast<UInt8>(inValue >> 16),
                            static_cast<UInt8>(inValue >> 8), static_cast<UInt8>(inValue)};
    CFDataAppendBytes(ioData, bytes, 4);
}

// The frame offset of an event: the first word of its values, whichever
// variant it holds.
SInt32 EventOffset(const AudioUnitParameterEvent& inEvent)
{
    SInt32 offset;
    std::memcpy(&offset, &inEvent.eventValues, sizeof(offset));
    return offset;
}

// True for a ramp that began and ended by frame inStart (0 or later): it
// neither ends a slice from inStart on nor touches one.
bool RampOverBy(const AudioUnitParameterEvent& inEvent, SInt32 inStart)
{
    const SInt32 offset = EventOffset(inEvent);
    return inEvent.eventType == kParameterEvent_Ramped && offset <= inStart &&
           static_cast<UInt32>(offset) + inEvent.eventValues.ramp.durationInFrames <=
               static_cast<UInt32>(inStart);
}

// True for a ramp from frame 0 on whose end lies past 2^32 frames: taken
// modulo 2^32, as the slicing takes it, that end can fall before the ramp's
// start and end an earlier slice. No host sends one.
bool RampEndWraps(const AudioUnitParameterEvent& inEvent)
{
    const SInt32 offset = EventOffset(inEvent);
    return inEvent.eventType == kParameterEvent_Ramped && offset >= 0 &&
           static_cast<std::uint64_t>(offset) + inEvent.eventValues.ramp.durationInFrames >
               UINT32_MAX;
}

// Switches on flush-to-zero and denormals-are-zero for one render and gives
// the caller's control word back on every exit. Denormal samples in recursive
// filters would otherwise slow the render down by orders of magnitude.
class DenormalFlushScope
{
public:
#if defined(__x86_64__) || defined(__i386__)
    DenormalFlushScope() : mSaved(_mm_getcsr())
    {
        _mm_setcsr(mSaved | kFlushBits);
    }
    ~DenormalFlushScope()
    {
        _mm_setcsr(mSaved);
    }

private:
    static constexpr unsigned int kFlushBits = 0x8040; // FTZ (bit 15) and DAZ (bit 6)
    unsigned int mSaved;
#elif defined(__aarch64__)
    DenormalFlushScope()
    {
        __asm__ __volatile__("mrs %0, fpcr" : "=r"(mSaved));
        const unsigned long flushed = mSaved | kFlushBit;
        __asm__ __volatile__("msr fpcr, %0" : : "r"(flushed));
    }
    ~DenormalFlushScope()
    {
        __asm__ __volatile__("msr fpcr, %0" : : "r"(mSaved));
    }

private:
    static constexpr unsigned long kFlushBit = 1UL << 24; // FZ
    unsigned long mSaved;
#endif
public:
    DenormalFlushScope(const DenormalFlushScope&) = delete;
    DenormalFlushScope& operator=(const DenormalFlushScope&) = delete;
};

} // namespace

// ---- Process-wide key strings ---------------------------------------------

CFStringRef AUBase::kVersionString = nullptr;
CFStringRef AUBase::kTypeString = nullptr;
CFStringRef AUBase::kSubtypeString = nullptr;
CFStringRef AUBase::kManufacturerString = nullptr;
CFStringRef AUBase::kDataString = nullptr;
CFStringRef AUBase::kNameString = nullptr;
CFStringRef AUBase::kRenderQualityString = nullptr;
CFStringRef AUBase::kCPULoadString = nullptr;
CFStringRef AUBase::kElementNameString = nullptr;
CFStringRef AUBase::kPartString = nullptr;
CFStringRef AUBase::kUntitledString = nullptr;
bool AUBase::sAUBaseCFStringsInitialized = false;

// Runs inside construction, which the entry layer serializes with its
// process-wide open mutex; the strings are constants that are never freed.
void AUBase::InitializeCFStrings()
{
    if (sAUBaseCFStringsInitialized) {
        return;
    }
    kVersionString = CFSTR(kAUPresetVersionKey);
    kTypeString = CFSTR(kAUPresetTypeKey);
    kSubtypeString = CFSTR(kAUPresetSubtypeKey);
    kManufacturerString = CFSTR(kAUPresetManufacturerKey);
    kDataString = CFSTR(kAUPresetDataKey);
    kNameString = CFSTR(kAUPresetNameKey);
    kRenderQualityString = CFSTR(kAUPresetRenderQualityKey);
    kCPULoadString = CFSTR(kAUPresetCPULoadKey);
    kElementNameString = CFSTR(kAUPresetElementNameKey);
    kPartString = CFSTR(kAUPresetPartKey);
    kUntitledString = CFSTR("Untitled");
    sAUBaseCFStringsInitialized = true;
}

// ---- Construction and lifecycle --------------------------------------------

AUBase::AUBase(AudioComponentInstance inInstance, UInt32 inNumInputElements,
               UInt32 inNumOutputElements, UInt32 inNumGroupElements)
    : ComponentBase(inInstance), mElementsCreated(false), mInitialized(false),
      mHasBegunInitializing(false), mInitNumInputEls(inNumInputElements),
      mInitNumOutputEls(inNumOutputElements), mInitNumGroupEls(inNumGroupElements),
      mRenderCallbacksTouched(false), mCurrentRenderTime(), mMaxFramesPerSlice(0),
      mLastRenderError(noErr), mCurrentPreset(), mBuffersAllocated(false), mHostCallbackInfo(),
      mContextName(nullptr)
{
    ResetRenderTime();
    InitializeCFStrings();
    SetMaxFramesPerSlice(kDefaultMaxFramesPerSlice);
    mScopes[kAudioUnitScope_Global].Initialize(this, kAudioUnitScope_Global, 1);
    mParamList.reserve(kParamListReserve);
    mCurrentPreset.presetNumber = -1;
    mCurrentPreset.presetName = kUntitledString;
    CFRetain(mCurrentPreset.presetName);
}

AUBase::~AUBase()
{
    if (mCurrentPreset.presetName != nullptr) {
        CFRelease(mCurrentPreset.presetName);
    }
    if (mContextName != nullptr) {
        CFRelease(mContextName);
    }
    // The members then go in reverse order: the listener and event lists, the
    // render-notification nodes, and the scopes group, output, input, global.
}

void AUBase::PostConstructor()
{
    CreateElements();
}

void AUBase::PreDestructor()
{
    DoCleanup();
}

void AUBase::CreateElements()
{
    if (mElementsCreated) {
        return;
    }
    mScopes[kAudioUnitScope_Input].Initialize(this, kAudioUnitScope_Input, mInitNumInputEls);
    mScopes[kAudioUnitScope_Output].Initialize(this, kAudioUnitScope_Output, mInitNumOutputEls);
    mScopes[kAudioUnitScope_Group].Initialize(this, kAudioUnitScope_Group, mInitNumGroupEls);
    CreateExtendedElements();
    mElementsCreated = true;
}

void AUBase::CreateExtendedElements() {}

OSStatus AUBase::DoInitialize()
{
    if (mInitialized) {
        return noErr;
    }
    const OSStatus result = Initialize();
    if (result != noErr) {
        return result;
    }
    mHasBegunInitializing = true;
    try {
        ReallocateBuffers();
    } catch (...) {
        // The unit stays uninitialized: undo what Initialize set up.
        mHasBegunInitializing = false;
        Cleanup();
        throw;
    }
    // A sequentially consistent store is a full barrier: every buffer written
    // above is visible to a render that sees the flag.
    mInitialized.store(true, std::memory_order_seq_cst);
    return noErr;
}

OSStatus AUBase::Initialize()
{
    return noErr;
}

void AUBase::DoCleanup()
{
    if (mInitialized) {
        Cleanup();
    }
    ResetRenderTime();
    mInitialized = false;
    mHasBegunInitializing = false;
}

void AUBase::Cleanup() {}

OSStatus AUBase::Reset(AudioUnitScope, AudioUnitElement)
{
    ResetRenderTime();
    return noErr;
}

void AUBase::ResetRenderTime()
{
    std::memset(&mCurrentRenderTime, 0, sizeof(mCurrentRenderTime));
    mCurrentRenderTime.mSampleTime = kNoLastRenderedSampleTime;
}

// ---- Fixed answers ------------------------------------------------------------

OSStatus AUBase::GetPropertyInfo(AudioUnitPropertyID, AudioUnitScope, AudioUnitElement, UInt32&,
                                 bool&)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::GetProperty(AudioUnitPropertyID, AudioUnitScope, AudioUnitElement, void*)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::SetProperty(AudioUnitPropertyID, AudioUnitScope, AudioUnitElement, const void*,
                             UInt32)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::RemovePropertyValue(AudioUnitPropertyID, AudioUnitScope, AudioUnitElement)
{
    return kAudioUnitErr_InvalidPropertyValue;
}

OSStatus AUBase::ProcessBufferLists(AudioUnitRenderActionFlags&, const AudioBufferList&,
                                    AudioBufferList&, UInt32)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::ProcessMultipleBufferLists(AudioUnitRenderActionFlags&, UInt32, UInt32,
                                            const AudioBufferList**, UInt32, AudioBufferList**)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::ComplexRender(AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32, UInt32,
                               UInt32*, AudioBufferList&)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::Render(AudioUnitRenderActionFlags&, const AudioTimeStamp&, UInt32)
{
    return noErr;
}

bool AUBase::BusCountWritable(AudioUnitScope)
{
    return false;
}

OSStatus AUBase::GetParameterInfo(AudioUnitScope, AudioUnitParameterID, AudioUnitParameterInfo&)
{
    return kAudioUnitErr_InvalidParameter;
}

OSStatus AUBase::GetParameterHistoryInfo(AudioUnitScope, AudioUnitParameterID, Float32&, Float32&)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::GetParameterValueStrings(AudioUnitScope, AudioUnitParameterID, CFArrayRef*)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::CopyClumpName(AudioUnitScope, UInt32, UInt32, CFStringRef*)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::GetPresets(CFArrayRef*) const
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus AUBase::NewFactoryPresetSet(const AUPreset&)
{
    return kAudioUnitErr_InvalidProperty;
}

int AUBase::GetNumCustomUIComponents()
{
    return 0;
}

void AUBase::GetUIComponentDescs(ComponentDescription*) {}

CFURLRef AUBase::CopyIconLocation()
{
    return nullptr;
}

Float64 AUBase::GetLatency()
{
    return 0.0;
}

Float64 AUBase::GetTailTime()
{
    return 0.0;
}

bool AUBase::SupportsTail()
{
    return false;
}

UInt32 AUBase::SupportedNumChannels(const AUChannelInfo**)
{
    return 0;
}

AUScope* AUBase::GetScopeExtended(AudioUnitScope)
{
    return nullptr;
}

OSStatus AUBase::Start()
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::Stop()
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::PrepareInstrument(UInt32)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::ReleaseInstrument(UInt32)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::MIDIEvent(UInt32, UInt32, UInt32, UInt32)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::SysEx(const UInt8*, UInt32)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::StartNote(UInt32, UInt32, UInt32*, UInt32, const Float32*)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::StopNote(UInt32, UInt32, UInt32)
{
    return kAudio_UnimplementedError;
}

OSStatus AUBase::ProcessScheduledSlice(void*, UInt32, UInt32, UInt32)
{
    return noErr;
}

// ---- Scopes, elements, buses ------------------------------------------------

AUScope& AUBase::GetScope(AudioUnitScope inScope)
{
    if (inScope <= kAudioUnitScope_Group) {
        return mScopes[inScope];
    }
    AUScope* extended = GetScopeExtended(inScope);
    if (extended == nullptr) {
        throw static_cast<OSStatus>(kAudioUnitErr_InvalidScope);
    }
    return *extended;
}

AUElement* AUBase::GetElement(AudioUnitScope inScope, AudioUnitElement inElement)
{
    return GetScope(inScope).GetElement(inElement);
}

AUElement* AUBase::SafeGetElement(AudioUnitScope inScope, AudioUnitElement inElement)
{
    return GetScope(inScope).SafeGetElement(inElement);
}

AUIOElement* AUBase::GetIOElement(AudioUnitScope inScope, AudioUnitElement inElement)
{
    return GetScope(inScope).GetIOElement(inElement);
}

// Input and output scopes hold only the elements CreateElement makes for them.
AUInputElement* AUBase::GetInput(AudioUnitElement inElement)
{
    return static_cast<AUInputElement*>(Inputs().GetIOElement(inElement));
}

AUOutputElement* AUBase::GetOutput(AudioUnitElement inElement)
{
    return static_cast<AUOutputElement*>(Outputs().GetIOElement(inElement));
}

AUElement* AUBase::CreateElement(AudioUnitScope inScope, AudioUnitElement)
{
    switch (inScope) {
    case kAudioUnitScope_Global:
    case kAudioUnitScope_Group:
    case kAudioUnitScope_Part:
        return new AUElement(this);
    case kAudioUnitScope_Input:
        return new AUInputElement(this);
    case kAudioUnitScope_Output:
        return new AUOutputElement(this);
    default:
        throw static_cast<OSStatus>(kAudioUnitErr_InvalidScope);
    }
}

OSStatus AUBase::SetBusCount(AudioUnitScope inScope, UInt32 inCount)
{
    if (mInitialized) {
        return kAudioUnitErr_Initialized;
    }
    GetScope(inScope).SetNumberOfElements(inCount);
    return noErr;
}

bool AUBase::ValidFormat(AudioUnitScope, AudioUnitElement,
                         const CAStreamBasicDescription& inNewFormat)
{
    return inNewFormat.mFormatID == kAudioFormatLinearPCM && inNewFormat.mFramesPerPacket == 1 &&
           inNewFormat.mBytesPerPacket == inNewFormat.mBytesPerFrame &&
           (inNewFormat.mFormatFlags & kAudioFormatFlagIsFloat) != 0 &&
           (inNewFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) != 0 &&
           (inNewFormat.mFormatFlags & kAudioFormatFlagIsBigEndian) == 0 &&
           inNewFormat.mBitsPerChannel == 32 && inNewFormat.mBytesPerPacket == 4;
}

// The bus whose format a stream-format call addresses: the global scope means
// output 0.
static AUIOElement* StreamFormatElement(AUBase& inUnit, AudioUnitScope inScope,
                                        AudioUnitElement inElement)
{
    switch (inScope) {
    case kAudioUnitScope_Global:
        return inUnit.GetIOElement(kAudioUnitScope_Output, 0);
    case kAudioUnitScope_Input:
    case kAudioUnitScope_Output:
        return inUnit.GetIOElement(inScope, inElement);
    default:
        throw static_cast<OSStatus>(kAudioUnitErr_InvalidScope);
    }
}

const CAStreamBasicDescription& AUBase::GetStreamFormat(AudioUnitScope inScope,
                                                        AudioUnitElement inElement)
{
    return StreamFormatElement(*this, inScope, inElement)->GetStreamFormat();
}

OSStatus AUBase::ChangeStreamFormat(AudioUnitScope inScope, AudioUnitElement inElement,
                                    const CAStreamBasicDescription&,
                                    const CAStreamBasicDescription& inNewFormat)
{
    StreamFormatElement(*this, inScope, inElement)->SetStreamFormat(inNewFormat);
    PropertyChanged(kAudioUnitProperty_StreamFormat, inScope, inElement);
    return noErr;
}

void AUBase::ReallocateBuffers()
{
    CreateElements();
    const UInt32 outputs = Outputs().GetNumberOfElements();
    for (UInt32 i = 0; i < outputs; ++i) {
        GetOutput(i)->AllocateBuffer();
    }
    const UInt32 inputs = Inputs().GetNumberOfElements();
    for (UInt32 i = 0; i < inputs; ++i) {
        GetInput(i)->AllocateBuffer();
    }
    mBuffersAllocated = true;
}

void AUBase::SetMaxFramesPerSlice(UInt32 inFrames)
{
    mMaxFramesPerSlice = inFrames;
    if (mBuffersAllocated) {
        ReallocateBuffers();
    }
    PropertyChanged(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0);
}

OSStatus AUBase::CanSetMaxFrames() const
{
    return mInitialized ? static_cast<OSStatus>(kAudioUnitErr_Initialized) : noErr;
}

UInt32 AUBase::GetChannelLayoutTags(AudioUnitScope inScope, AudioUnitElement inElement,
                                    AudioChannelLayoutTag* outLayoutTags)
{
    return GetIOElement(inScope, inElement)->GetChannelLayoutTags(outLayoutTags);
}

UInt32 AUBase::GetAudioChannelLayout(AudioUnitScope inScope, AudioUnitElement inElement,
                                     AudioChannelLayout* outLayoutPtr, bool& outWritable)
{
    return GetIOElement(inScope, inElement)->GetAudioChannelLayout(outLayoutPtr, outWritable);
}

OSStatus AUBase::SetAudioChannelLayout(AudioUnitScope inScope, AudioUnitElement inElement,
                                       const AudioChannelLayout* inLayout)
{
    AUIOElement* bus = GetIOElement(inScope, inElement);
    if (inLayout == nullptr) {
        return paramErr;
    }
    if (CAAudioChannelLayout::NumberChannels(*inLayout) !=
        bus->GetStreamFormat().mChannelsPerFrame) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    const UInt32 count = GetChannelLayoutTags(inScope, inElement, nullptr);
    if (count == 0) {
        return kAudioUnitErr_InvalidProperty;
    }
    std::vector<AudioChannelLayoutTag> tags(count);
    GetChannelLayoutTags(inScope, inElement, tags.data());
    for (AudioChannelLayoutTag tag : tags) {
        if (tag == inLayout->mChannelLayoutTag ||
            tag == kAudioChannelLayoutTag_UseChannelDescriptions) {
            return bus->SetAudioChannelLayout(*inLayout);
        }
    }
    return kAudioUnitErr_InvalidPropertyValue;
}

OSStatus AUBase::RemoveAudioChannelLayout(AudioUnitScope inScope, AudioUnitElement inElement)
{
    AUIOElement* bus = GetIOElement(inScope, inElement);
    bool writable = false;
    if (bus->GetAudioChannelLayout(nullptr, writable) > 0) {
        return bus->RemoveAudioChannelLayout();
    }
    return noErr;
}

OSStatus AUBase::GetParameterList(AudioUnitScope inScope, AudioUnitParameterID* outParameterList,
                                  UInt32& outNumParameters)
{
    AUScope& scope = GetScope(inScope);
    AUElement* largest = nullptr;
    UInt32 largestCount = 0;
    const UInt32 elements = scope.GetNumberOfElements();
    for (UInt32 i = 0; i < elements; ++i) {
        AUElement* element = scope.GetElement(i);
        const UInt32 count = element->GetNumberOfParameters();
        if (count > largestCount) {
            largest = element;
            largestCount = count;
        }
    }
    if (outParameterList != nullptr && largest != nullptr) {
        largest->GetParameterList(outParameterList);
    }
    outNumParameters = largestCount;
    return noErr;
}

// ---- Parameters and scheduled events ------------------------------------------

OSStatus AUBase::GetParameter(AudioUnitParameterID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, AudioUnitParameterValue& outValue)
{
    outValue = SafeGetElement(inScope, inElement)->GetParameter(inID);
    return noErr;
}

OSStatus AUBase::SetParameter(AudioUnitParameterID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, AudioUnitParameterValue inValue, UInt32)
{
    SafeGetElement(inScope, inElement)->SetParameter(inID, inValue, false);
    return noErr;
}

OSStatus AUBase::ScheduleParameter(const AudioUnitParameterEvent* inParameterEvent,
                                   UInt32 inNumEvents)
{
    for (UInt32 i = 0; i < inNumEvents; ++i) {
        const AudioUnitParameterEvent& event = inParameterEvent[i];
        if (event.eventType == kParameterEvent_Immediate) {
            SetParameter(event.parameter, event.scope, event.element,
                         event.eventValues.immediate.value,
                         event.eventValues.immediate.bufferOffset);
        }
        mParamList.push_back(event);
    }
    return noErr;
}

bool AUBase::SortParameterEventList(const AudioUnitParameterEvent& a,
                                    const AudioUnitParameterEvent& b)
{
    return EventOffset(a) < EventOffset(b);
}

OSStatus AUBase::ProcessForScheduledParams(ParameterEventList& ioParamList,
                                           UInt32 inFramesToProcess, void* inUserData)
{
    std::sort(ioParamList.begin(), ioParamList.end(), SortParameterEventList);

    const SInt32 total = static_cast<SInt32>(inFramesToProcess);
    if (total <= 0) {
        return noErr;
    }
    SInt32 start = 0;
    SInt32 remaining = total;
    // Events before `first` are ramps over by the start of the slice under
    // way, so a ramp sent as many short pieces is not scanned again at every
    // slice. An immediate event stops the prefix: it applies to every later
    // slice.
    auto first = ioParamList.begin();
    const auto eventsEnd = ioParamList.end();
    // Without a ramp whose end wraps, the first event at or after a slice's
    // end ends the search for that end.
    const bool wrappingRamp = std::any_of(first, eventsEnd, RampEndWraps);
    while (remaining > 0) {
        while (first != eventsEnd && RampOverBy(*first, start)) {
            ++first;
        }
        // The slice ends at the first event offset after its start, or earlier
        // at the end of a ramp that lies before that offset.
        SInt32 end = total;
        for (auto it = first; it != eventsEnd; ++it) {
            const AudioUnitParameterEvent& event = *it;
            const SInt32 offset = EventOffset(event);
            if (start < offset && offset < end) {
                end = offset;
                break;
            }
            if (offset >= end && !wrappingRamp) {
                break;
            }
            if (event.eventType == kParameterEvent_Ramped) {
                const SInt32 rampEnd = static_cast<SInt32>(static_cast<UInt32>(offset) +
                                                           event.eventValues.ramp.durationInFrames);
                if (start < rampEnd && rampEnd < end) {
                    end = rampEnd;
                }
            }
        }
        const UInt32 sliceFrames = static_cast<UInt32>(end - start);

        // Applied in time order, so the latest event for a parameter wins. The
        // list is sorted by offset, and no event at or after the slice's end
        // touches it.
        for (auto it = first; it != eventsEnd; ++it) {
            const AudioUnitParameterEvent& event = *it;
            const SInt32 offset = EventOffset(event);
            if (offset >= end) {
                break;
            }
            bool inSlice;
            if (event.eventType == kParameterEvent_Ramped) {
                // The ramp starts before the slice's end (signed, above); its
                // end is compared unsigned.
                const UInt32 rampEnd =
                    static_cast<UInt32>(offset) + event.eventValues.ramp.durationInFrames;
                inSlice = rampEnd > static_cast<UInt32>(start);
            } else {
                inSlice = static_cast<UInt32>(offset) <= static_cast<UInt32>(start);
            }
            if (!inSlice) {
                continue;
            }
            AUElement* element = GetScope(event.scope).GetElement(event.element);
            if (element != nullptr) {
                element->SetScheduledEvent(event.parameter, event, static_cast<UInt32>(start),
                                           sliceFrames, false);
            }
        }

        const OSStatus result = ProcessScheduledSlice(inUserData, static_cast<UInt32>(start),
                                                      sliceFrames, inFramesToProcess);
        if (result != noErr) {
            return result;
        }
        remaining -= static_cast<SInt32>(sliceFrames);
        start = end;
    }
    return noErr;
}

// ---- Listeners and notifications -----------------------------------------------

OSStatus AUBase::AddPropertyListener(AudioUnitPropertyID inID, AudioUnitPropertyListenerProc inProc,
                                     void* inRefCon)
{
    if (mPropertyListeners.empty() && mPropertyListeners.capacity() < kPropertyListenersReserve) {
        mPropertyListeners.reserve(kPropertyListenersReserve);
    }
    mPropertyListeners.push_back(PropertyListener{inID, inProc, inRefCon});
    return noErr;
}

OSStatus AUBase::RemovePropertyListener(AudioUnitPropertyID inID,
                                        AudioUnitPropertyListenerProc inProc, void* inRefCon,
                                        bool inRefConSpecified)
{
    for (size_t i = mPropertyListeners.size(); i-- > 0;) {
        const PropertyListener& listener = mPropertyListeners[i];
        if (listener.propertyID == inID && listener.listenerProc == inProc &&
            (!inRefConSpecified || listener.listenerRefCon == inRefCon)) {
            mPropertyListeners.erase(mPropertyListeners.begin() + static_cast<std::ptrdiff_t>(i));
        }
    }
    return noErr;
}

void AUBase::PropertyChanged(AudioUnitPropertyID inID, AudioUnitScope inScope,
                             AudioUnitElement inElement)
{
    // Indexed, and each registration copied before its call, so that a
    // listener may add or remove registrations while being notified.
    for (size_t i = 0; i < mPropertyListeners.size(); ++i) {
        const PropertyListener listener = mPropertyListeners[i];
        if (listener.propertyID == inID) {
            listener.listenerProc(listener.listenerRefCon, GetComponentInstance(), inID, inScope,
                                  inElement);
        }
    }
}

OSStatus AUBase::SetRenderNotification(AURenderCallback inProc, void* inRefCon)
{
    if (inProc == nullptr) {
        return paramErr;
    }
    mRenderCallbacks.deferAdd(RenderCallback{inProc, inRefCon});
    mRenderCallbacksTouched.store(true, std::memory_order_release);
    return noErr;
}

OSStatus AUBase::RemoveRenderNotification(AURenderCallback inProc, void* inRefCon)
{
    mRenderCallbacks.deferRemove(RenderCallback{inProc, inRefCon});
    return noErr;
}

// ---- Connections -----------------------------------------------------------------

OSStatus AUBase::SetConnection(const AudioUnitConnection& inConnection)
{
    AUInputElement* input = GetInput(inConnection.destInputNumber);
    if (inConnection.sourceAudioUnit != nullptr) {
        CAStreamBasicDescription sourceFormat;
        UInt32 size = sizeof(AudioStreamBasicDescription);
        OSStatus result = AudioUnitGetProperty(
            inConnection.sourceAudioUnit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output,
            inConnection.sourceOutputNumber, &sourceFormat, &size);
        if (result != noErr) {
            return result;
        }
        result = DispatchSetProperty(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input,
                                     inConnection.destInputNumber, &sourceFormat,
                                     sizeof(AudioStreamBasicDescription));
        if (result != noErr) {
            return result;
        }
    }
    input->SetConnection(inConnection);
    PropertyChanged(kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input,
                    inConnection.destInputNumber);
    return noErr;
}

OSStatus AUBase::SetInputCallback(UInt32 inPropertyID, AudioUnitElement inElement,
                                  AURenderCallback inProc, void* inRefCon)
{
    GetInput(inElement)->SetInputCallback(inProc, inRefCon);
    PropertyChanged(inPropertyID, kAudioUnitScope_Input, inElement);
    return noErr;
}

// ---- Render pipeline -------------------------------------------------------------

void AUBase::RecordRenderError(OSStatus inError)
{
    if (mLastRenderError == noErr) {
        mLastRenderError = inError;
        PropertyChanged(kAudioUnitProperty_LastRenderError, kAudioUnitScope_Global, 0);
    }
}

void AUBase::CallRenderNotifications(AudioUnitRenderActionFlags inFlags,
                                     const AudioTimeStamp& inTimeStamp, UInt32 inBusNumber,
                                     UInt32 inFramesToProcess, AudioBufferList& ioData)
{
    AudioUnitRenderActionFlags flags = inFlags;
    for (const RenderCallback& callback : mRenderCallbacks) {
        callback.mRenderNotify(callback.mRenderNotifyRefCon, &flags, &inTimeStamp, inBusNumber,
                               inFramesToProcess, &ioData);
    }
}

// The request checks return their status instead of throwing it: a thrown
// exception is allocated on the heap, and a host may keep sending a request
// that breaks the contract.
OSStatus AUBase::CheckRenderRequest(UInt32 inBusNumber, UInt32 inFramesToProcess,
                                    AudioBufferList& ioData, AUOutputElement*& outOutput)
{
    AUElement* element = Outputs().GetElement(inBusNumber);
    if (element == nullptr || element->AsIOElement() == nullptr) {
        return kAudioUnitErr_InvalidElement;
    }
    outOutput = static_cast<AUOutputElement*>(element);
    const CAStreamBasicDescription& format = outOutput->GetStreamFormat();
    if (ioData.mNumberBuffers != format.StreamCount()) {
        return paramErr;
    }
    const UInt32 expectedBytes = inFramesToProcess * format.mBytesPerFrame;
    for (UInt32 i = 0; i < ioData.mNumberBuffers; ++i) {
        AudioBuffer& buffer = ioData.mBuffers[i];
        if (buffer.mData != nullptr) {
            if (buffer.mDataByteSize < expectedBytes) {
                return paramErr;
            }
            buffer.mDataByteSize = expectedBytes;
        }
    }
    return noErr;
}

OSStatus AUBase::DoRender(AudioUnitRenderActionFlags& ioActionFlags,
                          const AudioTimeStamp& inTimeStamp, UInt32 inBusNumber,
                          UInt32 inFramesToProcess, AudioBufferList& ioData)
{
    const DenormalFlushScope flushDenormals;
    OSStatus error = noErr;
    AUOutputElement* output = nullptr;
    if (!mInitialized) {
        error = kAudioUnitErr_Uninitialized;
    } else if (inFramesToProcess > mMaxFramesPerSlice) {
        error = kAudioUnitErr_TooManyFramesToProcess;
    } else {
        error = CheckRenderRequest(inBusNumber, inFramesToProcess, ioData, output);
    }
    if (error == noErr) {
        try {
            const bool notify = mRenderCallbacksTouched.load(std::memory_order_acquire);
            if (notify) {
                mRenderCallbacks.update();
                CallRenderNotifications(ioActionFlags | kAudioUnitRenderAction_PreRender,
                                        inTimeStamp, inBusNumber, inFramesToProcess, ioData);
            }

            const OSStatus result = DoRenderBus(ioActionFlags, inTimeStamp, inBusNumber, output,
                                                inFramesToProcess, ioData);

            AudioUnitRenderActionFlags postFlags =
                ioActionFlags | kAudioUnitRenderAction_PostRender;
            if (result != noErr) {
                RecordRenderError(result);
                postFlags |= kAudioUnitRenderAction_PostRenderError;
            }
            if (notify) {
                CallRenderNotifications(postFlags, inTimeStamp, inBusNumber, inFramesToProcess,
                                        ioData);
            }
            // Scheduled events belong to this one render call.
            mParamList.clear();
            return result;
        } catch (OSStatus status) {
            if (status == noErr) {
                return noErr;
            }
            error = status;
        } catch (...) {
            error = -1;
        }
    }
    RecordRenderError(error);
    return error;
}

OSStatus AUBase::DoRenderBus(AudioUnitRenderActionFlags& ioActionFlags,
                             const AudioTimeStamp& inTimeStamp, UInt32 inBusNumber,
                             AUOutputElement* theOutput, UInt32 inNumberFrames,
                             AudioBufferList& ioData)
{
    const bool hostBuffers = ioData.mNumberBuffers > 0 && ioData.mBuffers[0].mData != nullptr;
    if (hostBuffers && (!theOutput->WillAllocateBuffer() || Outputs().GetNumberOfElements() < 2)) {
        theOutput->GetBufferList().UseCallerList(ioData);
    } else {
        theOutput->PrepareIOBuffer(inNumberFrames);
    }
    const OSStatus result = RenderBus(ioActionFlags, inTimeStamp, inBusNumber, inNumberFrames);
    if (result != noErr) {
        return result;
    }
    if (!hostBuffers) {
        theOutput->GetBufferList().CopyPointersTo(ioData);
    } else {
        theOutput->GetBufferList().CopyContentsTo(ioData);
        theOutput->GetBufferList().Invalidate();
    }
    return noErr;
}

OSStatus AUBase::RenderBus(AudioUnitRenderActionFlags& ioActionFlags,
                           const AudioTimeStamp& inTimeStamp, UInt32, UInt32 inNumberFrames)
{
    if (inTimeStamp.mSampleTime == mCurrentRenderTime.mSampleTime) {
        return noErr;
    }
    mCurrentRenderTime = inTimeStamp;
    return Render(ioActionFlags, inTimeStamp, inNumberFrames);
}

// ---- Property dispatch -----------------------------------------------------------

OSStatus AUBase::CheckElement(AudioUnitScope inScope, AudioUnitElement inElement)
{
    if (GetScope(inScope).GetElement(inElement) == nullptr) {
        return kAudioUnitErr_InvalidElement;
    }
    return noErr;
}

bool AUBase::IsStreamFormatWritable(AudioUnitScope inScope, AudioUnitElement inElement)
{
    switch (inScope) {
    case kAudioUnitScope_Global:
        return StreamFormatWritable(kAudioUnitScope_Output, 0);
    case kAudioUnitScope_Output:
        return StreamFormatWritable(kAudioUnitScope_Output, inElement);
    case kAudioUnitScope_Input:
        // A connected input takes its format from its source.
        if (GetInput(inElement)->GetSourceKind() == AUInputElement::kSourceConnection) {
            return false;
        }
        return StreamFormatWritable(kAudioUnitScope_Input, inElement);
    default:
        return false;
    }
}

OSStatus AUBase::DispatchGetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                         AudioUnitElement inElement, UInt32& outDataSize,
                                         bool& outWritable)
{
    OSStatus result = noErr;
    bool checkElement = true;
    switch (inID) {
    case kAudioUnitProperty_ClassInfo:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(CFPropertyListRef);
        outWritable = true;
        break;
    case kAudioUnitProperty_MakeConnection:
        if (inScope != kAudioUnitScope_Global && inScope != kAudioUnitScope_Input) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(AudioUnitConnection);
        outWritable = true;
        break;
    case kAudioUnitProperty_SampleRate:
        outDataSize = sizeof(Float64);
        outWritable = IsStreamFormatWritable(inScope, inElement);
        break;
    case kAudioUnitProperty_ParameterList: {
        UInt32 count = 0;
        result = GetParameterList(inScope, nullptr, count);
        outDataSize = count * sizeof(AudioUnitParameterID);
        outWritable = false;
        checkElement = false;
        break;
    }
    case kAudioUnitProperty_ParameterInfo:
        outDataSize = sizeof(AudioUnitParameterInfo);
        outWritable = false;
        checkElement = false;
        break;
    case kAudioUnitProperty_FastDispatch:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        if (GetInstanceType() != kComponentMgrInstance) {
            return kAudioUnitErr_InvalidProperty;
        }
        outDataSize = sizeof(void*);
        outWritable = false;
        checkElement = false;
        break;
    case kAudioUnitProperty_StreamFormat:
        outDataSize = sizeof(AudioStreamBasicDescription);
        outWritable = IsStreamFormatWritable(inScope, inElement);
        break;
    case kAudioUnitProperty_ElementCount:
        outDataSize = sizeof(UInt32);
        outWritable = BusCountWritable(inScope);
        checkElement = false;
        break;
    case kAudioUnitProperty_Latency:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(Float64);
        outWritable = false;
        break;
    case kAudioUnitProperty_SupportedNumChannels: {
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        const UInt32 count = SupportedNumChannels(nullptr);
        if (count == 0) {
            return kAudioUnitErr_InvalidProperty;
        }
        outDataSize = count * sizeof(AUChannelInfo);
        outWritable = false;
        break;
    }
    case kAudioUnitProperty_MaximumFramesPerSlice:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(UInt32);
        outWritable = true;
        break;
    case kAudioUnitProperty_ParameterValueStrings:
        result = GetParameterValueStrings(inScope, inElement, nullptr);
        if (result == noErr) {
            outDataSize = sizeof(CFArrayRef);
            outWritable = false;
        }
        checkElement = false;
        break;
    case kAudioUnitProperty_GetUIComponentList: {
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        const int count = GetNumCustomUIComponents();
        if (count <= 0) {
            return kAudioUnitErr_InvalidProperty;
        }
        outDataSize = static_cast<UInt32>(count) * sizeof(ComponentDescription);
        outWritable = false;
        break;
    }
    case kAudioUnitProperty_AudioChannelLayout: {
        outWritable = false;
        outDataSize = GetAudioChannelLayout(inScope, inElement, nullptr, outWritable);
        if (outDataSize == 0) {
            result = GetChannelLayoutTags(inScope, inElement, nullptr) > 0
                         ? kAudioUnitErr_InvalidPropertyValue
                         : kAudioUnitErr_InvalidProperty;
        }
        checkElement = false;
        break;
    }
    case kAudioUnitProperty_TailTime:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        if (!SupportsTail()) {
            return kAudioUnitErr_InvalidProperty;
        }
        outDataSize = sizeof(Float64);
        outWritable = false;
        break;
    case kAudioUnitProperty_LastRenderError:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(OSStatus);
        outWritable = false;
        break;
    case kAudioUnitProperty_SetRenderCallback:
        if (inScope != kAudioUnitScope_Global && inScope != kAudioUnitScope_Input) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(AURenderCallbackStruct);
        outWritable = true;
        break;
    case kAudioUnitProperty_FactoryPresets:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        result = GetPresets(nullptr);
        if (result == noErr) {
            outDataSize = sizeof(CFArrayRef);
            outWritable = false;
        }
        break;
    case kAudioUnitProperty_ContextName:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(CFStringRef);
        outWritable = true;
        break;
    case kAudioUnitProperty_HostCallbacks:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(HostCallbackInfo);
        outWritable = true;
        break;
    case kAudioUnitProperty_ElementName:
        outDataSize = sizeof(CFStringRef);
        outWritable = true;
        break;
    case kAudioUnitProperty_SupportedChannelLayoutTags: {
        const UInt32 count = GetChannelLayoutTags(inScope, inElement, nullptr);
        if (count == 0) {
            return kAudioUnitErr_InvalidProperty;
        }
        outDataSize = count * sizeof(AudioChannelLayoutTag);
        outWritable = false;
        checkElement = false;
        break;
    }
    case kAudioUnitProperty_ParameterClumpName:
        outDataSize = sizeof(AudioUnitParameterNameInfo);
        outWritable = false;
        break;
    case kAudioUnitProperty_PresentPreset:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(AUPreset);
        outWritable = true;
        break;
    case kAudioUnitProperty_IconLocation: {
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        CFURLRef icon = CopyIconLocation();
        if (icon == nullptr) {
            return kAudioUnitErr_InvalidProperty;
        }
        CFRelease(icon);
        outDataSize = sizeof(CFURLRef);
        outWritable = false;
        break;
    }
    case kAudioUnitProperty_ShouldAllocateBuffer:
        if (inScope != kAudioUnitScope_Input && inScope != kAudioUnitScope_Output) {
            return kAudioUnitErr_InvalidScope;
        }
        outDataSize = sizeof(UInt32);
        outWritable = true;
        break;
    case kAudioUnitProperty_ParameterHistoryInfo:
        outDataSize = sizeof(AudioUnitParameterHistoryInfo);
        outWritable = false;
        checkElement = false;
        break;
    case kLastRenderedSampleTimeProperty:
        outDataSize = sizeof(Float64);
        outWritable = false;
        break;
    default:
        result = GetPropertyInfo(inID, inScope, inElement, outDataSize, outWritable);
        checkElement = false;
        break;
    }
    if (result == noErr && checkElement) {
        result = CheckElement(inScope, inElement);
    }
    return result;
}

OSStatus AUBase::DispatchGetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                     AudioUnitElement inElement, void* outData)
{
    switch (inID) {
    case kAudioUnitProperty_ClassInfo: {
        Store<CFPropertyListRef>(outData, nullptr);
        CFPropertyListRef state = nullptr;
        const OSStatus result = SaveState(&state);
        Store(outData, state);
        return result;
    }
    case kAudioUnitProperty_SampleRate:
        Store<Float64>(outData, GetStreamFormat(inScope, inElement).mSampleRate);
        return noErr;
    case kAudioUnitProperty_ParameterList: {
        UInt32 count = 0;
        return GetParameterList(inScope, static_cast<AudioUnitParameterID*>(outData), count);
    }
    case kAudioUnitProperty_ParameterInfo:
        return GetParameterInfo(inScope, inElement, *static_cast<AudioUnitParameterInfo*>(outData));
    case kAudioUnitProperty_FastDispatch: {
        if (GetInstanceType() != kComponentMgrInstance) {
            return kAudioUnitErr_InvalidProperty;
        }
        switch (inElement) {
        case kAudioUnitRenderSelect:
            Store(outData, &CMgr_AudioUnitBaseRender);
            return noErr;
        case kAudioUnitSetParameterSelect:
            Store(outData, &CMgr_AudioUnitBaseSetParameter);
            return noErr;
        case kAudioUnitGetParameterSelect:
            Store(outData, &CMgr_AudioUnitBaseGetParameter);
            return noErr;
        default:
            return GetProperty(inID, inScope, inElement, outData);
        }
    }
    case kAudioUnitProperty_StreamFormat:
        std::memcpy(outData, &GetStreamFormat(inScope, inElement),
                    sizeof(AudioStreamBasicDescription));
        return noErr;
    case kAudioUnitProperty_ElementCount:
        Store<UInt32>(outData, GetScope(inScope).GetNumberOfElements());
        return noErr;
    case kAudioUnitProperty_Latency:
        Store<Float64>(outData, GetLatency());
        return noErr;
    case kAudioUnitProperty_SupportedNumChannels: {
        const AUChannelInfo* table = nullptr;
        const UInt32 count = SupportedNumChannels(&table);
        if (count > 0 && table != nullptr) {
            std::memcpy(outData, table, count * sizeof(AUChannelInfo));
        }
        return noErr;
    }
    case kAudioUnitProperty_MaximumFramesPerSlice:
        Store<UInt32>(outData, mMaxFramesPerSlice);
        return noErr;
    case kAudioUnitProperty_ParameterValueStrings:
        return GetParameterValueStrings(inScope, inElement, static_cast<CFArrayRef*>(outData));
    case kAudioUnitProperty_GetUIComponentList:
        GetUIComponentDescs(static_cast<ComponentDescription*>(outData));
        return noErr;
    case kAudioUnitProperty_AudioChannelLayout: {
        bool writable = false;
        const UInt32 size = GetAudioChannelLayout(
            inScope, inElement, static_cast<AudioChannelLayout*>(outData), writable);
        return size > 0 ? noErr : static_cast<OSStatus>(kAudioUnitErr_InvalidProperty);
    }
    case kAudioUnitProperty_TailTime:
        if (!SupportsTail()) {
            return kAudioUnitErr_InvalidProperty;
        }
        Store<Float64>(outData, GetTailTime());
        return noErr;
    case kAudioUnitProperty_LastRenderError:
        Store<OSStatus>(outData, mLastRenderError);
        mLastRenderError = noErr;
        return noErr;
    case kAudioUnitProperty_FactoryPresets: {
        Store<CFArrayRef>(outData, nullptr);
        CFArrayRef presets = nullptr;
        const OSStatus result = GetPresets(&presets);
        Store(outData, presets);
        return result;
    }
    case kAudioUnitProperty_ContextName:
        if (mContextName == nullptr) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        CFRetain(mContextName);
        Store(outData, mContextName);
        return noErr;
    case kAudioUnitProperty_HostCallbacks:
        Store(outData, mHostCallbackInfo);
        return noErr;
    case kAudioUnitProperty_ElementName: {
        CFStringRef name = SafeGetElement(inScope, inElement)->GetName();
        if (name == nullptr) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        CFRetain(name);
        Store(outData, name);
        return noErr;
    }
    case kAudioUnitProperty_SupportedChannelLayoutTags:
        return GetChannelLayoutTags(inScope, inElement,
                                    static_cast<AudioChannelLayoutTag*>(outData)) > 0
                   ? noErr
                   : static_cast<OSStatus>(kAudioUnitErr_InvalidProperty);
    case kAudioUnitProperty_ParameterClumpName: {
        AudioUnitParameterNameInfo clump = Load<AudioUnitParameterNameInfo>(outData);
        if (clump.inID == kAudioUnitClumpID_System) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const OSStatus result =
            CopyClumpName(inScope, static_cast<UInt32>(clump.inID),
                          static_cast<UInt32>(clump.inDesiredLength), &clump.outName);
        if (result == kAudioUnitErr_InvalidProperty) {
            return GetProperty(inID, inScope, inElement, outData);
        }
        Store(outData, clump);
        return result;
    }
    case kAudioUnitProperty_PresentPreset: {
        AUPreset preset = mCurrentPreset;
        if (preset.presetName != nullptr) {
            CFRetain(preset.presetName);
        }
        Store(outData, preset);
        return noErr;
    }
    case kAudioUnitProperty_IconLocation: {
        CFURLRef icon = CopyIconLocation();
        if (icon == nullptr) {
            return kAudioUnitErr_InvalidProperty;
        }
        Store(outData, icon);
        return noErr;
    }
    case kAudioUnitProperty_ShouldAllocateBuffer:
        Store<UInt32>(outData, GetIOElement(inScope, inElement)->WillAllocateBuffer() ? 1 : 0);
        return noErr;
    case kAudioUnitProperty_ParameterHistoryInfo: {
        AudioUnitParameterHistoryInfo info = Load<AudioUnitParameterHistoryInfo>(outData);
        const OSStatus result = GetParameterHistoryInfo(inScope, inElement, info.updatesPerSecond,
                                                        info.historyDurationInSeconds);
        Store(outData, info);
        return result;
    }
    case kLastRenderedSampleTimeProperty:
        Store<Float64>(outData, mCurrentRenderTime.mSampleTime);
        return noErr;
    default:
        return GetProperty(inID, inScope, inElement, outData);
    }
}

OSStatus AUBase::SetStreamFormatProperty(AudioUnitScope inScope, AudioUnitElement inElement,
                                         const CAStreamBasicDescription& inNewFormat)
{
    if (!ValidFormat(inScope, inElement, inNewFormat)) {
        return kAudioUnitErr_FormatNotSupported;
    }
    const CAStreamBasicDescription current = GetStreamFormat(inScope, inElement);
    if (current.IsEqual(inNewFormat, false)) {
        return noErr;
    }
    if (!IsStreamFormatWritable(inScope, inElement)) {
        return kAudioUnitErr_PropertyNotWritable;
    }
    return ChangeStreamFormat(inScope, inElement, current, inNewFormat);
}

OSStatus AUBase::SetPresentPreset(AudioUnitScope inScope, AudioUnitElement inElement,
                                  const void* inData, UInt32 inDataSize)
{
    if (inDataSize != sizeof(AUPreset)) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    if (inScope != kAudioUnitScope_Global) {
        return kAudioUnitErr_InvalidScope;
    }
    const AUPreset preset = Load<AUPreset>(inData);
    if (preset.presetNumber < 0) {
        if (preset.presetName == nullptr) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        CFRetain(preset.presetName);
        if (mCurrentPreset.presetName != nullptr) {
            CFRelease(mCurrentPreset.presetName);
        }
        mCurrentPreset = preset;
        PropertyChanged(kAudioUnitProperty_PresentPreset, inScope, inElement);
        return noErr;
    }
    const OSStatus result = NewFactoryPresetSet(preset);
    if (result == noErr) {
        PropertyChanged(kAudioUnitProperty_PresentPreset, inScope, inElement);
    }
    return result;
}

void AUBase::SetHostCallbacks(const void* inData, UInt32 inDataSize)
{
    const UInt32 count = std::min<UInt32>(inDataSize, sizeof(HostCallbackInfo));
    const bool changed = std::memcmp(&mHostCallbackInfo, inData, count) != 0;
    std::memset(&mHostCallbackInfo, 0, sizeof(mHostCallbackInfo));
    std::memcpy(&mHostCallbackInfo, inData, count);
    if (changed) {
        PropertyChanged(kAudioUnitProperty_HostCallbacks, kAudioUnitScope_Global, 0);
    }
}

OSStatus AUBase::DispatchSetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                     AudioUnitElement inElement, const void* inData,
                                     UInt32 inDataSize)
{
    switch (inID) {
    case kAudioUnitProperty_ClassInfo:
        if (inDataSize != sizeof(CFPropertyListRef)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        return RestoreState(Load<CFPropertyListRef>(inData));
    case kAudioUnitProperty_MakeConnection:
        if (inDataSize < sizeof(AudioUnitConnection)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        return SetConnection(Load<AudioUnitConnection>(inData));
    case kAudioUnitProperty_SampleRate: {
        if (inDataSize != sizeof(Float64)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const OSStatus check = CheckElement(inScope, inElement);
        if (check != noErr) {
            return check;
        }
        CAStreamBasicDescription format = GetStreamFormat(inScope, inElement);
        format.mSampleRate = Load<Float64>(inData);
        return SetStreamFormatProperty(inScope, inElement, format);
    }
    case kAudioUnitProperty_StreamFormat: {
        constexpr UInt32 kComparedBytes = offsetof(AudioStreamBasicDescription, mReserved);
        if (inDataSize < kComparedBytes) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const OSStatus check = CheckElement(inScope, inElement);
        if (check != noErr) {
            return check;
        }
        AudioStreamBasicDescription given = {};
        std::memcpy(&given, inData, kComparedBytes);
        return SetStreamFormatProperty(inScope, inElement, CAStreamBasicDescription(given));
    }
    case kAudioUnitProperty_ElementCount: {
        if (inDataSize != sizeof(UInt32)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        if (!BusCountWritable(inScope)) {
            return kAudioUnitErr_PropertyNotWritable;
        }
        const OSStatus result = SetBusCount(inScope, Load<UInt32>(inData));
        if (result == noErr) {
            PropertyChanged(inID, inScope, inElement);
        }
        return result;
    }
    case kAudioUnitProperty_MaximumFramesPerSlice: {
        if (inDataSize != sizeof(UInt32)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const OSStatus result = CanSetMaxFrames();
        if (result != noErr) {
            return result;
        }
        SetMaxFramesPerSlice(Load<UInt32>(inData));
        return noErr;
    }
    case kAudioUnitProperty_SetExternalBuffer: {
        if (inDataSize < sizeof(AudioUnitExternalBuffer)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        if (!mInitialized) {
            return kAudioUnitErr_Uninitialized;
        }
        const AudioUnitExternalBuffer buffer = Load<AudioUnitExternalBuffer>(inData);
        if (reinterpret_cast<uintptr_t>(buffer.buffer) % 16 != 0) {
            return paramErr;
        }
        AUIOElement* bus = inScope == kAudioUnitScope_Input
                               ? static_cast<AUIOElement*>(GetInput(inElement))
                               : static_cast<AUIOElement*>(GetOutput(inElement));
        bus->UseExternalBuffer(buffer);
        return noErr;
    }
    case kAudioUnitProperty_AudioChannelLayout: {
        constexpr UInt32 kHeaderBytes = offsetof(AudioChannelLayout, mChannelDescriptions);
        if (inDataSize < kHeaderBytes) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const UInt32 descriptions =
            Load<UInt32>(static_cast<const UInt8*>(inData) +
                         offsetof(AudioChannelLayout, mNumberChannelDescriptions));
        if (static_cast<UInt64>(inDataSize) <
            kHeaderBytes + static_cast<UInt64>(descriptions) * sizeof(AudioChannelDescription)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const OSStatus result = SetAudioChannelLayout(
            inScope, inElement, static_cast<const AudioChannelLayout*>(inData));
        if (result == noErr) {
            PropertyChanged(inID, inScope, inElement);
        }
        return result;
    }
    case kAudioUnitProperty_SetRenderCallback: {
        if (inDataSize < sizeof(AURenderCallbackStruct)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        const AURenderCallbackStruct callback = Load<AURenderCallbackStruct>(inData);
        return SetInputCallback(kAudioUnitProperty_SetRenderCallback, inElement, callback.inputProc,
                                callback.inputProcRefCon);
    }
    case kAudioUnitProperty_ContextName: {
        if (inDataSize != sizeof(CFStringRef)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        CFStringRef name = Load<CFStringRef>(inData);
        if (name != nullptr) {
            CFRetain(name);
        }
        if (mContextName != nullptr) {
            CFRelease(mContextName);
        }
        mContextName = name;
        PropertyChanged(inID, inScope, inElement);
        return noErr;
    }
    case kAudioUnitProperty_HostCallbacks:
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        SetHostCallbacks(inData, inDataSize);
        return noErr;
    case kAudioUnitProperty_ElementName: {
        const OSStatus check = CheckElement(inScope, inElement);
        if (check != noErr) {
            return check;
        }
        if (inDataSize != sizeof(CFStringRef)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        CFStringRef name = Load<CFStringRef>(inData);
        // The name is handed out again as a string: refuse anything else.
        if (name != nullptr && CFGetTypeID(name) != CFStringGetTypeID()) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        GetElement(inScope, inElement)->SetName(name);
        PropertyChanged(inID, inScope, inElement);
        return noErr;
    }
    case kAudioUnitProperty_PresentPreset:
        return SetPresentPreset(inScope, inElement, inData, inDataSize);
    case kAudioUnitProperty_ShouldAllocateBuffer: {
        if (inScope != kAudioUnitScope_Input && inScope != kAudioUnitScope_Output) {
            return kAudioUnitErr_InvalidScope;
        }
        const OSStatus check = CheckElement(inScope, inElement);
        if (check != noErr) {
            return check;
        }
        if (inDataSize != sizeof(UInt32)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        if (mInitialized) {
            return kAudioUnitErr_Initialized;
        }
        GetIOElement(inScope, inElement)->SetWillAllocateBuffer(Load<UInt32>(inData) != 0);
        return noErr;
    }
    default: {
        const OSStatus result = SetProperty(inID, inScope, inElement, inData, inDataSize);
        if (result == noErr) {
            PropertyChanged(inID, inScope, inElement);
        }
        return result;
    }
    }
}

OSStatus AUBase::DispatchRemovePropertyValue(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                             AudioUnitElement inElement)
{
    switch (inID) {
    case kAudioUnitProperty_HostCallbacks: {
        if (inScope != kAudioUnitScope_Global) {
            return kAudioUnitErr_InvalidScope;
        }
        static const HostCallbackInfo kCleared = {};
        if (std::memcmp(&mHostCallbackInfo, &kCleared, sizeof(HostCallbackInfo)) != 0) {
            mHostCallbackInfo = kCleared;
            PropertyChanged(inID, inScope, inElement);
        }
        return noErr;
    }
    case kAudioUnitProperty_ContextName:
        if (mContextName != nullptr) {
            CFRelease(mContextName);
            mContextName = nullptr;
        }
        return noErr;
    case kAudioUnitProperty_AudioChannelLayout: {
        const OSStatus result = RemoveAudioChannelLayout(inScope, inElement);
        if (result == noErr) {
            PropertyChanged(inID, inScope, inElement);
        }
        return result;
    }
    default:
        return RemovePropertyValue(inID, inScope, inElement);
    }
}

// ---- State -------------------------------------------------------------------------

OSStatus AUBase::SaveState(CFPropertyListRef* outData)
{
    const AudioComponentDescription desc = GetComponentDescription();
    CFHolder<CFMutableDictionaryRef> dict = CheckCreated(CFDictionaryCreateMutable(
        kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));

    const SInt32 version = 0;
    const SInt32 type = static_cast<SInt32>(desc.componentType);
    const SInt32 subtype = static_cast<SInt32>(desc.componentSubType);
    const SInt32 manufacturer = static_cast<SInt32>(desc.componentManufacturer);
    SetNumber(dict.get(), kVersionString, kCFNumberSInt32Type, &version);
    SetNumber(dict.get(), kTypeString, kCFNumberSInt32Type, &type);
    SetNumber(dict.get(), kSubtypeString, kCFNumberSInt32Type, &subtype);
    SetNumber(dict.get(), kManufacturerString, kCFNumberSInt32Type, &manufacturer);

    CFHolder<CFMutableDataRef> data = CheckCreated(CFDataCreateMutable(kCFAllocatorDefault, 0));
    for (AudioUnitScope scope = kAudioUnitScope_Global; scope <= kAudioUnitScope_Output; ++scope) {
        AUScope& theScope = mScopes[scope];
        const UInt32 elements = theScope.GetNumberOfElements();
        for (UInt32 i = 0; i < elements; ++i) {
            AUElement* element = theScope.GetElement(i);
            if (element->GetNumberOfParameters() > 0) {
                AppendBigEndian32(data.get(), scope);
                AppendBigEndian32(data.get(), i);
                element->SaveState(data.get());
            }
        }
    }
    CFDictionarySetValue(dict.get(), kDataString, data.get());

    if (mCurrentPreset.presetName != nullptr) {
        CFDictionarySetValue(dict.get(), kNameString, mCurrentPreset.presetName);
    }

    UInt32 renderQuality = 0;
    if (GetProperty(kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0, &renderQuality) ==
        noErr) {
        const SInt32 quality = static_cast<SInt32>(renderQuality);
        SetNumber(dict.get(), kRenderQualityString, kCFNumberSInt32Type, &quality);
    }
    Float32 cpuLoad = 0.0f;
    if (GetProperty(kAudioUnitProperty_CPULoad, kAudioUnitScope_Global, 0, &cpuLoad) == noErr) {
        SetNumber(dict.get(), kCPULoadString, kCFNumberFloatType, &cpuLoad);
    }

    bool anyNamed = false;
    for (const AUScope& scope : mScopes) {
        anyNamed = anyNamed || scope.HasElementWithName();
    }
    if (anyNamed) {
        CFHolder<CFMutableDictionaryRef> names = CheckCreated(
            CFDictionaryCreateMutable(kCFAllocatorDefault, 0, &kCFTypeDictionaryKeyCallBacks,
                                      &kCFTypeDictionaryValueCallBacks));
        CFMutableDictionaryRef namesRef = names.get();
        for (const AUScope& scope : mScopes) {
            scope.AddElementNamesToDict(namesRef);
        }
        CFDictionarySetValue(dict.get(), kElementNameString, names.get());
    }

    *outData = dict.release();
    return noErr;
}

// A saved state is checked completely before any of it is applied, so that a
// refused state leaves the unit as it was. Beyond the identity checks
// (version 0, same subtype and manufacturer, no "part"), every value read must
// have its type: numbers for "version", "subtype", "manufacturer",
// "render-quality" and "cpu-load", data for "data", a string for "name", and
// for "element-name" a dictionary of dictionaries whose names are strings
// (element names are handed out again as strings). The parameter blob must be a
// whole number of records: each header (scope, element, count) and each
// record's entries lie inside the data, so applying it never reads past the
// end. Any failure is kAudioUnitErr_InvalidPropertyValue.
OSStatus AUBase::ValidateState(CFDictionaryRef inDict, const AudioComponentDescription& inDesc)
{
    const auto numberEquals = [inDict](CFStringRef inKey, SInt32 inExpected) {
        CFTypeRef value = CFDictionaryGetValue(inDict, inKey);
        SInt32 number = 0;
        return IsOfType(value, CFNumberGetTypeID()) &&
               CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &number) &&
               number == inExpected;
    };
    const auto absentOrOfType = [inDict](CFStringRef inKey, CFTypeID inType) {
        CFTypeRef value = CFDictionaryGetValue(inDict, inKey);
        return value == nullptr || CFGetTypeID(value) == inType;
    };

    if (CFDictionaryContainsKey(inDict, kPartString) || !numberEquals(kVersionString, 0) ||
        !numberEquals(kSubtypeString, static_cast<SInt32>(inDesc.componentSubType)) ||
        !numberEquals(kManufacturerString, static_cast<SInt32>(inDesc.componentManufacturer)) ||
        !absentOrOfType(kDataString, CFDataGetTypeID()) ||
        !absentOrOfType(kNameString, CFStringGetTypeID()) ||
        !absentOrOfType(kRenderQualityString, CFNumberGetTypeID()) ||
        !absentOrOfType(kCPULoadString, CFNumberGetTypeID()) ||
        !absentOrOfType(kElementNameString, CFDictionaryGetTypeID())) {
        return kAudioUnitErr_InvalidPropertyValue;
    }

    if (CFTypeRef names = CFDictionaryGetValue(inDict, kElementNameString)) {
        const CFDictionaryRef namesDict = static_cast<CFDictionaryRef>(names);
        const CFIndex count = CFDictionaryGetCount(namesDict);
        std::vector<const void*> values(static_cast<size_t>(count));
        if (count > 0) {
            CFDictionaryGetKeysAndValues(namesDict, nullptr, values.data());
        }
        for (const void* value : values) {
            if (!IsOfType(value, CFDictionaryGetTypeID())) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            const CFDictionaryRef scopeNames = static_cast<CFDictionaryRef>(value);
            const CFIndex nameCount = CFDictionaryGetCount(scopeNames);
            std::vector<const void*> elementNames(static_cast<size_t>(nameCount));
            if (nameCount > 0) {
                CFDictionaryGetKeysAndValues(scopeNames, nullptr, elementNames.data());
            }
            for (const void* name : elementNames) {
                if (!IsOfType(name, CFStringGetTypeID())) {
                    return kAudioUnitErr_InvalidPropertyValue;
                }
            }
        }
    }

    if (CFTypeRef data = CFDictionaryGetValue(inDict, kDataString)) {
        const CFDataRef blob = static_cast<CFDataRef>(data);
        const UInt8* bytes = CFDataGetBytePtr(blob);
        const size_t length = static_cast<size_t>(CFDataGetLength(blob));
        constexpr size_t kHeaderBytes = 12; // scope, element, count
        constexpr size_t kEntryBytes = 8;   // parameter ID, value bits
        size_t position = 0;
        while (position < length) {
            if (length - position < kHeaderBytes) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            const size_t entries = ReadBigEndian32(bytes + position + 8);
            const size_t room = length - position - kHeaderBytes;
            if (entries > room / kEntryBytes) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            position += kHeaderBytes + entries * kEntryBytes;
        }
    }
    return noErr;
}

void AUBase::RestoreParameterBlob(CFDataRef inData)
{
    const UInt8* p = CFDataGetBytePtr(inData);
    const UInt8* end = p + CFDataGetLength(inData);
    while (p < end) {
        const AudioUnitScope scope = ReadBigEndian32(p);
        const AudioUnitElement elementIndex = ReadBigEndian32(p + 4);
        AUElement* element = GetScope(scope).GetElement(elementIndex);
        if (element == nullptr) {
            // A record for an element this unit does not have ends the walk.
            break;
        }
        p = element->RestoreState(p + 8);
    }
}

OSStatus AUBase::RestoreState(CFPropertyListRef inPlist)
{
    if (!IsOfType(inPlist, CFDictionaryGetTypeID())) {
        return kAudioUnitErr_InvalidPropertyValue;
    }
    const CFDictionaryRef dict = static_cast<CFDictionaryRef>(inPlist);
    const AudioComponentDescription desc = GetComponentDescription();
    const OSStatus valid = ValidateState(dict, desc);
    if (valid != noErr) {
        return valid;
    }

    if (CFTypeRef data = CFDictionaryGetValue(dict, kDataString)) {
        RestoreParameterBlob(static_cast<CFDataRef>(data));
    }

    CFStringRef name = static_cast<CFStringRef>(CFDictionaryGetValue(dict, kNameString));
    if (name == nullptr) {
        name = kUntitledString;
    }
    CFRetain(name);
    if (mCurrentPreset.presetName != nullptr) {
        CFRelease(mCurrentPreset.presetName);
    }
    mCurrentPreset.presetNumber = -1;
    mCurrentPreset.presetName = name;
    PropertyChanged(kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0);

    if (CFTypeRef quality = CFDictionaryGetValue(dict, kRenderQualityString)) {
        SInt32 value = 0;
        CFNumberGetValue(static_cast<CFNumberRef>(quality), kCFNumberSInt32Type, &value);
        if (SetProperty(kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0, &value,
                        sizeof(value)) == noErr) {
            PropertyChanged(kAudioUnitProperty_RenderQuality, kAudioUnitScope_Global, 0);
        }
    }
    if (CFTypeRef load = CFDictionaryGetValue(dict, kCPULoadString)) {
        Float32 value = 0.0f;
        CFNumberGetValue(static_cast<CFNumberRef>(load), kCFNumberFloatType, &value);
        if (SetProperty(kAudioUnitProperty_CPULoad, kAudioUnitScope_Global, 0, &value,
                        sizeof(value)) == noErr) {
            PropertyChanged(kAudioUnitProperty_CPULoad, kAudioUnitScope_Global, 0);
        }
    }

    if (CFTypeRef names = CFDictionaryGetValue(dict, kElementNameString)) {
        const CFDictionaryRef namesDict = static_cast<CFDictionaryRef>(names);
        for (AudioUnitScope scope = kAudioUnitScope_Global; scope <= kAudioUnitScope_Group;
             ++scope) {
            char text[16];
            std::snprintf(text, sizeof(text), "%d", static_cast<int>(scope));
            CFHolder<CFStringRef> key = CheckCreated(
                CFStringCreateWithCString(kCFAllocatorDefault, text, kCFStringEncodingASCII));
            CFDictionaryRef scopeNames =
                static_cast<CFDictionaryRef>(CFDictionaryGetValue(namesDict, key.get()));
            if (scopeNames != nullptr && mScopes[scope].RestoreElementNames(scopeNames)) {
                PropertyChanged(kAudioUnitProperty_ElementCount, scope, 0);
            }
        }
    }
    return noErr;
}

bool AUBase::SetAFactoryPresetAsCurrent(const AUPreset& inPreset)
{
    if (inPreset.presetNumber < 0 || inPreset.presetName == nullptr) {
        return false;
    }
    CFRetain(inPreset.presetName);
    if (mCurrentPreset.presetName != nullptr) {
        CFRelease(mCurrentPreset.presetName);
    }
    mCurrentPreset = inPreset;
    return true;
}
