// Property traffic: the input is decoded into AudioUnitGetProperty,
// SetProperty and GetPropertyInfo calls with any identifier, scope, element,
// size and data (short, long, null, misaligned), interleaved with initialize,
// uninitialize and renders of random sizes. Data is copied into buffers of
// exactly the given size, so any read or write past it is caught.
//
// A host passes real objects where a property holds one (a callback, a
// string, a state, a unit to connect to): for those the data carries a valid
// pointer chosen by the input, or none, never raw input bytes. Objects the
// unit hands out are released, except through a buffer too short to hold
// them, which this target never asks for.
#include "FuzzSupport.h"

namespace {

constexpr AudioUnitPropertyID kKnown[] = {
    kAudioUnitProperty_ClassInfo,
    kAudioUnitProperty_MakeConnection,
    kAudioUnitProperty_SampleRate,
    kAudioUnitProperty_ParameterList,
    kAudioUnitProperty_ParameterInfo,
    kAudioUnitProperty_FastDispatch,
    kAudioUnitProperty_CPULoad,
    kAudioUnitProperty_StreamFormat,
    kAudioUnitProperty_ElementCount,
    kAudioUnitProperty_Latency,
    kAudioUnitProperty_SupportedNumChannels,
    kAudioUnitProperty_MaximumFramesPerSlice,
    kAudioUnitProperty_SetExternalBuffer,
    kAudioUnitProperty_ParameterValueStrings,
    kAudioUnitProperty_GetUIComponentList,
    kAudioUnitProperty_AudioChannelLayout,
    kAudioUnitProperty_TailTime,
    kAudioUnitProperty_BypassEffect,
    kAudioUnitProperty_LastRenderError,
    kAudioUnitProperty_SetRenderCallback,
    kAudioUnitProperty_FactoryPresets,
    kAudioUnitProperty_ContextName,
    kAudioUnitProperty_RenderQuality,
    kAudioUnitProperty_HostCallbacks,
    kAudioUnitProperty_InPlaceProcessing,
    kAudioUnitProperty_ElementName,
    kAudioUnitProperty_CocoaUI,
    kAudioUnitProperty_SupportedChannelLayoutTags,
    kAudioUnitProperty_ParameterIDName,
    kAudioUnitProperty_ParameterClumpName,
    kAudioUnitProperty_PresentPreset,
    kAudioUnitProperty_OfflineRender,
    kAudioUnitProperty_IconLocation,
    kAudioUnitProperty_PresentationLatency,
    kAudioUnitProperty_ShouldAllocateBuffer,
    kAudioUnitProperty_ParameterHistoryInfo,
    3014, // the last rendered sample time
};

// Properties whose value holds a pointer the unit follows or keeps.
bool HoldsPointer(AudioUnitPropertyID id)
{
    switch (id) {
    case kAudioUnitProperty_ClassInfo:
    case kAudioUnitProperty_MakeConnection:
    case kAudioUnitProperty_SetExternalBuffer:
    case kAudioUnitProperty_SetRenderCallback:
    case kAudioUnitProperty_ContextName:
    case kAudioUnitProperty_HostCallbacks:
    case kAudioUnitProperty_ElementName:
    case kAudioUnitProperty_PresentPreset:
    case kAudioUnitProperty_ParameterIDName:
    case kAudioUnitProperty_ParameterClumpName:
    case kAudioUnitProperty_ParameterValueStrings:
    case kAudioUnitProperty_FactoryPresets:
    case kAudioUnitProperty_CocoaUI:
    case kAudioUnitProperty_IconLocation:
    case kAudioUnitProperty_ParameterInfo:
        return true;
    default:
        return false;
    }
}

OSStatus HostBeatAndTempo(void*, Float64* beat, Float64* tempo)
{
    if (beat != nullptr) {
        *beat = 1.0;
    }
    if (tempo != nullptr) {
        *tempo = 120.0;
    }
    return noErr;
}

// Objects a set call can point at; they outlive every unit of one input.
struct Objects
{
    CFStringRef name = CFSTR("fuzz");
    CFNumberRef number;
    CFPropertyListRef state = nullptr;
    AudioUnit source = nullptr;
    alignas(16) float external[4096];

    explicit Objects(AudioUnit unit)
    {
        const SInt32 value = 7;
        number = CFNumberCreate(kCFAllocatorDefault, kCFNumberSInt32Type, &value);
        UInt32 size = sizeof state;
        AudioUnitGetProperty(unit, kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global, 0, &state,
                             &size);
    }
    ~Objects()
    {
        if (source != nullptr) {
            AudioComponentInstanceDispose(source);
        }
        fuzz::Release(state);
        CFRelease(number);
    }
    AudioUnit Source()
    {
        if (source == nullptr) {
            source = fuzz::OpenUnit(false);
        }
        return source;
    }
};

// The data of a set call: raw input bytes, or for a property that holds a
// pointer a well-formed value with a valid pointer (or null) in it.
std::vector<uint8_t> SetData(fuzz::Input& in, AudioUnitPropertyID id, Objects& objects)
{
    std::vector<uint8_t> data = in.bytes(in.below(96));
    if (id == kAudioUnitProperty_MaximumFramesPerSlice && data.size() == sizeof(UInt32)) {
        // Slices of up to 65536 frames: the unit sizes its buffers for the
        // largest, and beyond that a run only measures the machine's memory.
        UInt32 frames;
        std::memcpy(&frames, data.data(), sizeof frames);
        frames %= 65537;
        std::memcpy(data.data(), &frames, sizeof frames);
    }
    if (!HoldsPointer(id)) {
        return data;
    }
    const auto as = [](const auto& value) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&value);
        return std::vector<uint8_t>(bytes, bytes + sizeof value);
    };
    const auto object = [&]() -> CFTypeRef {
        switch (in.below(4)) {
        case 0:
            return objects.name;
        case 1:
            return objects.number;
        case 2:
            return objects.state;
        default:
            return nullptr;
        }
    };
    switch (id) {
    case kAudioUnitProperty_ClassInfo:
    case kAudioUnitProperty_ElementName:
        return as(object());
    case kAudioUnitProperty_ContextName:
        return as(in.flag() ? objects.name : nullptr);
    case kAudioUnitProperty_MakeConnection:
        return as(
            AudioUnitConnection{in.flag() ? objects.Source() : nullptr, in.below(3), in.below(3)});
    case kAudioUnitProperty_SetExternalBuffer:
        return as(AudioUnitExternalBuffer{reinterpret_cast<Byte*>(objects.external),
                                          in.below(sizeof objects.external + 1)});
    case kAudioUnitProperty_SetRenderCallback:
        return as(AURenderCallbackStruct{in.flag() ? fuzz::FeedSignal : nullptr, nullptr});
    case kAudioUnitProperty_HostCallbacks: {
        HostCallbackInfo info{};
        info.beatAndTempoProc = in.flag() ? HostBeatAndTempo : nullptr;
        std::vector<uint8_t> bytes = as(info);
        bytes.resize(in.below(sizeof info + 1));
        return bytes;
    }
    case kAudioUnitProperty_PresentPreset:
        return as(
            AUPreset{static_cast<SInt32>(in.below(20)) - 2, in.flag() ? objects.name : nullptr});
    default:
        return as(static_cast<CFTypeRef>(nullptr));
    }
}

// Releases what a get call handed out in a buffer of its full size.
void ReleaseHandedOut(AudioUnitPropertyID id, const uint8_t* data, UInt32 size)
{
    const auto load = [&](size_t offset) {
        CFTypeRef object = nullptr;
        if (offset + sizeof object <= size) {
            std::memcpy(&object, data + offset, sizeof object);
        }
        return object;
    };
    switch (id) {
    case kAudioUnitProperty_ClassInfo:
    case kAudioUnitProperty_FactoryPresets:
    case kAudioUnitProperty_ParameterValueStrings:
    case kAudioUnitProperty_ContextName:
    case kAudioUnitProperty_ElementName:
    case kAudioUnitProperty_IconLocation:
        fuzz::Release(load(0));
        break;
    case kAudioUnitProperty_PresentPreset:
        fuzz::Release(load(offsetof(AUPreset, presetName)));
        break;
    case kAudioUnitProperty_ParameterIDName:
    case kAudioUnitProperty_ParameterClumpName:
        fuzz::Release(load(offsetof(AudioUnitParameterNameInfo, outName)));
        break;
    case kAudioUnitProperty_ParameterInfo: {
        AudioUnitParameterInfo info{};
        if (size >= sizeof info) {
            std::memcpy(&info, data, sizeof info);
            if ((info.flags & kAudioUnitParameterFlag_CFNameRelease) != 0) {
                fuzz::Release(info.cfNameString);
            }
        }
        break;
    }
    default:
        break;
    }
}

void GetProperty(fuzz::Input& in, AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                 AudioUnitElement element)
{
    UInt32 actual = 0;
    if (AudioUnitGetPropertyInfo(unit, id, scope, element, &actual, nullptr) != noErr) {
        actual = 0;
    }
    switch (in.below(4)) {
    case 0: { // a size query
        UInt32 size = in.u16();
        AudioUnitGetProperty(unit, id, scope, element, nullptr, &size);
        return;
    }
    case 1: // no size at all
        AudioUnitGetProperty(unit, id, scope, element, nullptr, nullptr);
        return;
    default:
        break;
    }
    // A buffer of any size, its first bytes from the input (the in-out
    // properties read them), at an odd address when the input says so.
    UInt32 size = in.flag() || actual == 0 ? in.below(128) : actual;
    if (size < actual && HoldsPointer(id)) {
        size = actual;
    }
    const size_t shift = in.flag() ? 1 : 0;
    std::unique_ptr<uint8_t[]> storage(new uint8_t[std::max<size_t>(size + shift, 1)]());
    uint8_t* data = storage.get() + shift;
    const std::vector<uint8_t> given = in.bytes(size);
    std::copy(given.begin(), given.end(), data);
    UInt32 ioSize = size;
    if (AudioUnitGetProperty(unit, id, scope, element, data, &ioSize) == noErr && ioSize <= size) {
        ReleaseHandedOut(id, data, ioSize);
    }
}

void SetProperty(fuzz::Input& in, AudioUnit unit, AudioUnitPropertyID id, AudioUnitScope scope,
                 AudioUnitElement element, Objects& objects)
{
    switch (in.below(5)) {
    case 0: // removal
        AudioUnitSetProperty(unit, id, scope, element, nullptr, 0);
        return;
    case 1: // null data with a size
        AudioUnitSetProperty(unit, id, scope, element, nullptr, in.below(64) + 1);
        return;
    default:
        break;
    }
    std::vector<uint8_t> data = SetData(in, id, objects);
    if (data.empty()) {
        AudioUnitSetProperty(unit, id, scope, element, data.data(), 0);
        return;
    }
    const size_t shift = in.flag() ? 1 : 0; // an odd address
    std::unique_ptr<uint8_t[]> exact(new uint8_t[data.size() + shift]);
    std::memcpy(exact.get() + shift, data.data(), data.size());
    AudioUnitSetProperty(unit, id, scope, element, exact.get() + shift,
                         static_cast<UInt32>(data.size()));
}

void Render(fuzz::Input& in, AudioUnit unit, Float64& sampleTime)
{
    AudioStreamBasicDescription format{};
    UInt32 size = sizeof format;
    if (AudioUnitGetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0,
                             &format, &size) != noErr) {
        return;
    }
    UInt32 maxFrames = 0;
    size = sizeof maxFrames;
    AudioUnitGetProperty(unit, kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0,
                         &maxFrames, &size);
    const UInt32 frames = in.below(std::min<UInt32>(maxFrames, 8192) + 2);
    const bool interleaved = (format.mFormatFlags & kAudioFormatFlagIsNonInterleaved) == 0;
    const UInt32 buffers = std::min<UInt32>(interleaved ? 1 : format.mChannelsPerFrame, 64);
    const UInt64 bytes = static_cast<UInt64>(frames) * format.mBytesPerFrame;
    if (bytes > (1u << 22)) {
        return;
    }
    fuzz::Buffers list(buffers, static_cast<UInt32>(bytes), in.flag());
    AudioTimeStamp stamp{};
    stamp.mSampleTime = sampleTime;
    stamp.mFlags = kAudioTimeStampSampleTimeValid;
    AudioUnitRenderActionFlags flags = 0;
    AudioUnitRender(unit, &flags, &stamp, in.below(2), frames, list.list());
    sampleTime += frames;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::Input in(data, size);
    const bool entryStyle = in.flag();
    const AudioUnit unit = fuzz::OpenUnit(entryStyle);
    {
        Objects objects(unit);
        Float64 sampleTime = 0.0;
        for (int step = 0; step < 64 && !in.empty(); ++step) {
            const uint8_t op = in.byte() % 8;
            if (op >= 5) {
                switch (op) {
                case 5:
                    AudioUnitInitialize(unit);
                    break;
                case 6:
                    AudioUnitUninitialize(unit);
                    break;
                default:
                    Render(in, unit, sampleTime);
                    break;
                }
                continue;
            }
            const AudioUnitPropertyID id = in.flag() ? in.pick(kKnown) : in.u32();
            const AudioUnitScope scope = in.flag() ? in.below(5) : in.u32();
            const AudioUnitElement element = in.flag() ? in.below(3) : in.u32();
            switch (op) {
            case 0:
            case 1:
                GetProperty(in, unit, id, scope, element);
                break;
            case 2:
            case 3:
                SetProperty(in, unit, id, scope, element, objects);
                break;
            default: {
                UInt32 infoSize = 0;
                Boolean writable = false;
                AudioUnitGetPropertyInfo(unit, id, scope, element, in.flag() ? &infoSize : nullptr,
                                         in.flag() ? &writable : nullptr);
                break;
            }
            }
        }
        // Whatever came before, the unit still answers and renders.
        AudioUnitParameterValue value = 0.0f;
        if (AudioUnitGetParameter(unit, 0, kAudioUnitScope_Global, 0, &value) != noErr) {
            std::abort();
        }
        fuzz::CloseUnit(unit, entryStyle);
    }
    return 0;
}
