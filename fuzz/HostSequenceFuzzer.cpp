// Host call sequences: the input is decoded into what a host does with a
// unit: formats (1 to 40 channels, odd rates), the maximum slice, initialize
// and uninitialize, renders of 0 to max+1 frames, parameter sets and
// scheduled events (immediate and ramps, any offsets and durations, unknown
// parameters), presets, bypass and in-place toggles, reset, a connection
// from a second instance, render notifications. The unit is opened through
// the factory and driven through the AudioUnit calls, or opened through the
// component manager and driven with hand-built parameter blocks passed
// straight to the bundle's entry function.
#include "FuzzSupport.h"

#include <dlfcn.h>

#if defined(__clang__)
#define NO_FUNCTION_TYPE_CHECK __attribute__((no_sanitize("function")))
#else
#define NO_FUNCTION_TYPE_CHECK
#endif

namespace {

// One call's parameter block: the instance, then up to six argument slots.
struct Block
{
    UInt8 flags = 0;
    UInt8 paramSize = 0;
    SInt16 what = 0;
    UInt32 padding = 0;
    long params[7] = {};
};

long Slot(UInt32 value)
{
    return static_cast<long>(value);
}
long Slot(Float32 value)
{
    UInt32 bits;
    std::memcpy(&bits, &value, sizeof bits);
    return static_cast<long>(bits);
}
template <typename T> long Slot(T* pointer)
{
    return reinterpret_cast<long>(pointer);
}

// The unit's calls, made either way.
class Host
{
public:
    explicit Host(bool entryStyle) : mEntryStyle(entryStyle), mUnit(fuzz::OpenUnit(entryStyle))
    {
        if (entryStyle) {
            static const ComponentRoutineUPP entry = [] {
                void* binary =
                    dlopen(VANDREL_BUNDLE_DIR "/Contents/Linux/Vandrel", RTLD_NOW | RTLD_NOLOAD);
                void* symbol = binary != nullptr ? dlsym(binary, "VandrelEntry") : nullptr;
                if (symbol == nullptr) {
                    std::abort();
                }
                return reinterpret_cast<ComponentRoutineUPP>(symbol);
            }();
            mEntry = entry;
            mStorage = GetComponentInstanceStorage(reinterpret_cast<ComponentInstance>(mUnit));
        }
    }
    ~Host() { fuzz::CloseUnit(mUnit, mEntryStyle); }
    AudioUnit unit() const { return mUnit; }

    OSStatus Initialize()
    {
        return mEntry ? Call(kAudioUnitInitializeSelect) : AudioUnitInitialize(mUnit);
    }
    OSStatus Uninitialize()
    {
        return mEntry ? Call(kAudioUnitUninitializeSelect) : AudioUnitUninitialize(mUnit);
    }
    OSStatus Set(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element,
                 const void* data, UInt32 size)
    {
        return mEntry ? Call(kAudioUnitSetPropertySelect, id, scope, element, data, size)
                      : AudioUnitSetProperty(mUnit, id, scope, element, data, size);
    }
    OSStatus Get(AudioUnitPropertyID id, AudioUnitScope scope, AudioUnitElement element, void* data,
                 UInt32* size)
    {
        return mEntry ? Call(kAudioUnitGetPropertySelect, id, scope, element, data, size)
                      : AudioUnitGetProperty(mUnit, id, scope, element, data, size);
    }
    OSStatus SetParameter(AudioUnitParameterID id, AudioUnitScope scope, AudioUnitElement element,
                          AudioUnitParameterValue value, UInt32 offset)
    {
        return mEntry ? Call(kAudioUnitSetParameterSelect, id, scope, element, value, offset)
                      : AudioUnitSetParameter(mUnit, id, scope, element, value, offset);
    }
    OSStatus GetParameter(AudioUnitParameterID id, AudioUnitParameterValue* value)
    {
        return mEntry ? Call(kAudioUnitGetParameterSelect, id, UInt32{kAudioUnitScope_Global},
                             UInt32{0}, value)
                      : AudioUnitGetParameter(mUnit, id, kAudioUnitScope_Global, 0, value);
    }
    OSStatus Schedule(const AudioUnitParameterEvent* events, UInt32 count)
    {
        return mEntry ? Call(kAudioUnitScheduleParametersSelect, events, count)
                      : AudioUnitScheduleParameters(mUnit, events, count);
    }
    OSStatus Reset()
    {
        return mEntry ? Call(kAudioUnitResetSelect, UInt32{kAudioUnitScope_Global}, UInt32{0})
                      : AudioUnitReset(mUnit, kAudioUnitScope_Global, 0);
    }
    OSStatus AddNotify(AURenderCallback proc, void* refCon)
    {
        return mEntry ? Call(kAudioUnitAddRenderNotifySelect, proc, refCon)
                      : AudioUnitAddRenderNotify(mUnit, proc, refCon);
    }
    OSStatus RemoveNotify(AURenderCallback proc, void* refCon)
    {
        return mEntry ? Call(kAudioUnitRemoveRenderNotifySelect, proc, refCon)
                      : AudioUnitRemoveRenderNotify(mUnit, proc, refCon);
    }
    OSStatus Render(AudioUnitRenderActionFlags* flags, const AudioTimeStamp* stamp, UInt32 bus,
                    UInt32 frames, AudioBufferList* data)
    {
        return mEntry ? Call(kAudioUnitRenderSelect, flags, stamp, bus, frames, data)
                      : AudioUnitRender(mUnit, flags, stamp, bus, frames, data);
    }

private:
    // The entry is declared with the unit's own class for its storage word.
    template <typename... Args> NO_FUNCTION_TYPE_CHECK OSStatus Call(SInt16 selector, Args... args)
    {
        Block block;
        block.what = selector;
        block.paramSize = static_cast<UInt8>(8 * sizeof...(args));
        block.params[0] = reinterpret_cast<long>(mUnit);
        int slot = 1;
        ((block.params[slot++] = Slot(args)), ...);
        return mEntry(reinterpret_cast<ComponentParameters*>(&block), mStorage);
    }

    bool mEntryStyle;
    AudioUnit mUnit;
    ComponentRoutineUPP mEntry = nullptr;
    Handle mStorage = nullptr;
};

OSStatus CountNotification(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*, UInt32,
                           UInt32, AudioBufferList*)
{
    ++*static_cast<int*>(refCon);
    return noErr;
}

constexpr Float64 kRates[] = {44100.0, 48000.0, 8000.0,  96000.0, 192000.0, 11025.0,
                              1.0,     22.5,    12345.6, 0.0,     -44100.0, 1e9};
constexpr UInt32 kMaxFrames[] = {512, 1, 64, 4096, 4097, 0, 1156, 8192};
constexpr AudioUnitParameterValue kValues[] = {0.0f,  -80.0f, 12.0f,   1.0f, 2.0f,  0.1f,
                                               20.0f, 100.0f, 5000.0f, 3.0f, -1.0f, 1e30f};

void SetFormat(fuzz::Input& in, Host& host)
{
    const UInt32 channels = in.below(40) + 1;
    Float64 rate = in.pick(kRates);
    if (in.below(8) == 0) {
        const uint64_t bits = (static_cast<uint64_t>(in.u32()) << 32) | in.u32();
        std::memcpy(&rate, &bits, sizeof rate);
    }
    const AudioStreamBasicDescription format = fuzz::FloatFormat(channels, rate);
    const UInt32 scopes = in.below(3);
    if (scopes != 1) {
        host.Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0, &format, sizeof format);
    }
    if (scopes != 0) {
        host.Set(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, &format,
                 sizeof format);
    }
}

void Schedule(fuzz::Input& in, Host& host)
{
    AudioUnitParameterEvent events[4] = {};
    const UInt32 count = in.below(4) + 1;
    for (UInt32 i = 0; i < count; ++i) {
        AudioUnitParameterEvent& event = events[i];
        event.scope = in.below(8) == 0 ? in.below(5) : UInt32{kAudioUnitScope_Global};
        event.element = in.below(8) == 0 ? 1 : 0;
        event.parameter = in.below(9);
        event.eventType = in.flag() ? kParameterEvent_Ramped : kParameterEvent_Immediate;
        if (event.eventType == kParameterEvent_Ramped) {
            event.eventValues.ramp.startBufferOffset = static_cast<SInt32>(in.u16()) - 1024;
            event.eventValues.ramp.durationInFrames = in.flag() ? in.u16() : in.u32();
            event.eventValues.ramp.startValue = in.pick(kValues);
            event.eventValues.ramp.endValue = in.flag() ? in.pick(kValues) : in.f32();
        } else {
            event.eventValues.immediate.bufferOffset = in.flag() ? in.u16() : in.u32();
            event.eventValues.immediate.value = in.flag() ? in.pick(kValues) : in.f32();
        }
    }
    host.Schedule(events, count);
}

void Render(fuzz::Input& in, Host& host, Float64& sampleTime)
{
    AudioStreamBasicDescription format{};
    UInt32 size = sizeof format;
    UInt32 maxFrames = 0;
    UInt32 maxSize = sizeof maxFrames;
    if (host.Get(kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0, &format, &size) !=
            noErr ||
        host.Get(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, &maxFrames,
                 &maxSize) != noErr) {
        std::abort();
    }
    const UInt32 frames = in.below(std::min<UInt32>(maxFrames, 8192) + 2);
    UInt32 buffers = format.mChannelsPerFrame;
    if (in.below(16) == 0) {
        buffers = in.below(42);
    }
    fuzz::Buffers list(buffers, frames * 4, in.below(4) != 0);
    AudioTimeStamp stamp{};
    stamp.mSampleTime = sampleTime;
    stamp.mFlags = kAudioTimeStampSampleTimeValid;
    AudioUnitRenderActionFlags flags = 0;
    host.Render(in.flag() ? &flags : nullptr, &stamp, in.below(8) == 0 ? 1 : 0, frames,
                list.list());
    sampleTime += in.below(8) == 0 ? -static_cast<Float64>(frames) : frames;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::Input in(data, size);
    int notifications = 0;
    // The source of a connection outlives the unit it feeds.
    std::unique_ptr<Host> source;
    Host host(in.flag());
    Float64 sampleTime = 0.0;
    for (int step = 0; step < 48 && !in.empty(); ++step) {
        switch (in.below(16)) {
        case 0:
            SetFormat(in, host);
            break;
        case 1: {
            const UInt32 frames = in.flag() ? in.pick(kMaxFrames) : in.u16();
            host.Set(kAudioUnitProperty_MaximumFramesPerSlice, kAudioUnitScope_Global, 0, &frames,
                     sizeof frames);
            break;
        }
        case 2:
            host.Initialize();
            break;
        case 3:
            host.Uninitialize();
            break;
        case 4:
        case 5:
        case 6:
            Render(in, host, sampleTime);
            break;
        case 7: {
            const AudioUnitParameterID id = in.below(9);
            const AudioUnitParameterValue value = in.flag() ? in.pick(kValues) : in.f32();
            host.SetParameter(id, in.below(8) == 0 ? in.below(5) : UInt32{kAudioUnitScope_Global},
                              in.below(8) == 0 ? 1 : 0, value, in.flag() ? 0 : in.u16());
            break;
        }
        case 8:
            Schedule(in, host);
            break;
        case 9: {
            const AUPreset preset{static_cast<SInt32>(in.below(18)) - 1,
                                  in.flag() ? CFSTR("Mine") : nullptr};
            host.Set(kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0, &preset,
                     sizeof preset);
            break;
        }
        case 10: {
            const UInt32 on = in.below(3);
            host.Set(in.flag() ? kAudioUnitProperty_BypassEffect
                               : kAudioUnitProperty_InPlaceProcessing,
                     kAudioUnitScope_Global, 0, &on, sizeof on);
            break;
        }
        case 11:
            host.Reset();
            break;
        case 12: {
            if (!source) {
                source = std::make_unique<Host>(in.flag());
                SetFormat(in, *source);
                const AURenderCallbackStruct feed{fuzz::FeedSignal, nullptr};
                source->Set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, &feed,
                            sizeof feed);
                source->Initialize();
            }
            const AudioUnitConnection connection{in.flag() ? source->unit() : nullptr,
                                                 in.below(8) == 0 ? 1u : 0u, 0};
            host.Set(kAudioUnitProperty_MakeConnection, kAudioUnitScope_Input, 0, &connection,
                     sizeof connection);
            break;
        }
        case 13:
            if (in.flag()) {
                host.AddNotify(CountNotification, &notifications);
            } else {
                host.RemoveNotify(CountNotification, &notifications);
            }
            break;
        case 14: {
            const AURenderCallbackStruct feed{in.flag() ? fuzz::FeedSignal : nullptr, nullptr};
            host.Set(kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0, &feed,
                     sizeof feed);
            break;
        }
        default:
            for (AudioUnitParameterID id = 0; id < fuzz::kParameterCount; ++id) {
                AudioUnitParameterValue value = 0.0f;
                if (host.GetParameter(id, &value) != noErr) {
                    std::abort(); // every parameter answers in every state
                }
            }
            break;
        }
    }
    return 0;
}
