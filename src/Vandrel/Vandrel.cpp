#include "Vandrel.h"

#include "AUInputElement.h"
#include "AUOutputElement.h"
#include "AUPluginDispatch.h"

#include <sys/resource.h>

#include <algorithm>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <emmintrin.h>
#include <limits>
#include <vector>

static_assert(Vandrel::kMaxChannels == CVandrelEngine::kMaxChannels,
              "the render's channel arrays match the engine's");

namespace {

constexpr UInt32 kVandrelVersion = 0x00010000; // 1.0.0

// Process settings made when the bundle is loaded.
constexpr rlim_t kOpenFilesSoftLimit = 7168;

// Output rates from here up do not fit the engine's whole-hertz rate.
constexpr Float64 kMaxSampleRate = 2147483648.0;

constexpr UInt32 kParamInfoFlags =
    kAudioUnitParameterFlag_IsReadable | kAudioUnitParameterFlag_IsWritable;

// Name, unit, range and default of each parameter, by parameter ID.
struct ParameterSpec
{
    AudioUnitParameterUnit unit;
    AudioUnitParameterValue minValue;
    AudioUnitParameterValue maxValue;
    AudioUnitParameterValue defaultValue;
};

constexpr ParameterSpec kParameterSpecs[kNumParams] = {
    {kAudioUnitParameterUnit_Decibels, -80.0f, 12.0f, -80.0f},
    {kAudioUnitParameterUnit_Decibels, -80.0f, 12.0f, 0.0f},
    {kAudioUnitParameterUnit_Indexed, 0.0f, 2.0f, 0.0f},
    {kAudioUnitParameterUnit_Hertz, 0.001f, 20.0f, 10.0f},
    {kAudioUnitParameterUnit_Percent, 1.0f, 100.0f, 10.0f},
    {kAudioUnitParameterUnit_Hertz, 100.0f, 5000.0f, 100.0f},
    {kAudioUnitParameterUnit_Percent, 1.0f, 100.0f, 1.0f},
};

// The order in which construction writes the defaults.
constexpr AudioUnitParameterID kDefaultsOrder[kNumParams] = {
    kParam_DryOut,          kParam_WetOut,    kParam_Effect,    kParam_ModulationRate,
    kParam_ModulationDepth, kParam_Resonance, kParam_CenterFreq};

// Parameter names: the English names until the bundle's "Localizable" table
// replaces them, once per process. The replacements are never released.
CFStringRef kParamName_DryOut = CFSTR("Dry out");
CFStringRef kParamName_WetOut = CFSTR("Wet out");
CFStringRef kParamName_Effect = CFSTR("Effect");
CFStringRef kParamName_ModulationRate = CFSTR("Modulation rate");
CFStringRef kParamName_ModulationDepth = CFSTR("Modulation depth");
CFStringRef kParamName_CenterFreq = CFSTR("Center frequency");
CFStringRef kParamName_Resonance = CFSTR("Resonance");

// The name variables in the order the localization walks them.
CFStringRef* const gTableLocalizeStr[kNumParams] = {
    &kParamName_DryOut,         &kParamName_WetOut,          &kParamName_Effect,
    &kParamName_ModulationRate, &kParamName_ModulationDepth, &kParamName_Resonance,
    &kParamName_CenterFreq};

// The name variable of each parameter, by parameter ID.
CFStringRef* const gParamNameByID[kNumParams] = {
    &kParamName_DryOut,         &kParamName_WetOut,          &kParamName_Effect,
    &kParamName_ModulationRate, &kParamName_ModulationDepth, &kParamName_CenterFreq,
    &kParamName_Resonance};

// Factory presets: numbers 0..14 with their (possibly localized) names,
// filled at load; owned by the plug-in for the life of the process.
AUPreset kPresets[kNumPresets];

// Each preset's seven values, by parameter ID.
constexpr AudioUnitParameterValue kPresetValues[kNumPresets][kNumParams] = {
    {-80.0f, 0.0f, 0.0f, 10.0f, 10.0f, 100.0f, 1.0f},   // Default
    {-5.0f, -6.0f, 0.0f, 1.0f, 85.0f, 100.0f, 1.0f},    // Flange - 1 Hz
    {-6.0f, -6.0f, 0.0f, 5.0f, 50.0f, 100.0f, 1.0f},    // Flange - fast
    {-3.0f, -2.0f, 0.0f, 0.1f, 100.0f, 100.0f, 1.0f},   // Flange - slow 1
    {-2.5f, -2.5f, 0.0f, 0.5f, 85.0f, 100.0f, 1.0f},    // Flange - slow 2
    {-80.0f, 0.0f, 1.0f, 0.5f, 50.0f, 1000.0f, 50.0f},  // Phaser 1
    {-80.0f, 0.0f, 1.0f, 4.5f, 50.0f, 1000.0f, 50.0f},  // Phaser 2
    {-80.0f, 0.0f, 1.0f, 10.0f, 50.0f, 2000.0f, 40.0f}, // Phaser 3
    {-80.0f, 0.0f, 2.0f, 1.0f, 50.0f, 1000.0f, 50.0f},  // Wah-Wah 1
    {-80.0f, 0.0f, 2.0f, 2.0f, 50.0f, 1000.0f, 80.0f},  // Wah-Wah 2
    {-15.0f, 0.0f, 2.0f, 0.2f, 50.0f, 500.0f, 100.0f},  // Wah-Wah 3
    {-80.0f, 0.0f, 2.0f, 0.5f, 70.0f, 3000.0f, 50.0f},  // Wah-Wah 4
    {-80.0f, 0.0f, 2.0f, 10.0f, 50.0f, 2000.0f, 50.0f}, // Wah-Wah 5
    {-5.0f, -5.0f, 0.0f, 20.0f, 85.0f, 100.0f, 1.0f},   // Warble 1
    {-5.0f, -5.0f, 0.0f, 20.0f, 20.0f, 100.0f, 1.0f},   // Warble 2
};

// Set once the names have been localized; only touched during construction,
// which the component-open mutex serializes.
bool sLocalized = false;

// What loading the bundle does, before any instance exists: raise the soft
// open-file limit (the hard limit stays; failure is ignored), select the UTF-8
// character type, and fill the preset table.
struct LoadTimeSetup
{
    LoadTimeSetup()
    {
        rlimit limits;
        if (getrlimit(RLIMIT_NOFILE, &limits) == 0) {
            limits.rlim_cur = kOpenFilesSoftLimit;
            (void)setrlimit(RLIMIT_NOFILE, &limits);
        }
        (void)setlocale(LC_CTYPE, "UTF-8");

        const CFStringRef names[kNumPresets] = {
            CFSTR("Default"),         CFSTR("Flange - 1 Hz"),   CFSTR("Flange - fast"),
            CFSTR("Flange - slow 1"), CFSTR("Flange - slow 2"), CFSTR("Phaser 1"),
            CFSTR("Phaser 2"),        CFSTR("Phaser 3"),        CFSTR("Wah-Wah 1"),
            CFSTR("Wah-Wah 2"),       CFSTR("Wah-Wah 3"),       CFSTR("Wah-Wah 4"),
            CFSTR("Wah-Wah 5"),       CFSTR("Warble 1"),        CFSTR("Warble 2")};
        for (int i = 0; i < kNumPresets; ++i) {
            kPresets[i].presetNumber = i;
            kPresets[i].presetName = names[i];
        }
    }
};
const LoadTimeSetup gLoadTimeSetup;

// Replaces the preset and parameter names by their entries in the bundle's
// "Localizable" table (the English name is both key and fallback). Runs at
// most once per process; retried at the next construction while the bundle
// cannot be found.
void LocalizeNamesOnce()
{
    if (sLocalized) {
        return;
    }
    CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR(kVandrelBundleIdentifier));
    if (bundle == nullptr) {
        return;
    }
    for (AUPreset& preset : kPresets) {
        preset.presetName = CFBundleCopyLocalizedString(bundle, preset.presetName,
                                                        preset.presetName, CFSTR("Localizable"));
    }
    for (CFStringRef* name : gTableLocalizeStr) {
        *name = CFBundleCopyLocalizedString(bundle, *name, *name, CFSTR("Localizable"));
    }
    sLocalized = true;
}

// Truncation toward zero to 64 bits. Values are not clamped to their ranges,
// so a host can store NaN or huge values; those saturate (NaN gives 0) rather
// than leave the conversion undefined and build-dependent.
std::int64_t TruncatedToInt64(double inValue)
{
    // The processor's truncation answers NaN and values beyond the range
    // with the lowest value, which alone needs a second look.
    const std::int64_t truncated = _mm_cvttsd_si64(_mm_set_sd(inValue));
    if (truncated != std::numeric_limits<std::int64_t>::min()) {
        return truncated;
    }
    if (std::isnan(inValue)) {
        return 0;
    }
    return inValue > 0.0 ? std::numeric_limits<std::int64_t>::max() : truncated;
}

// Truncation toward zero of a value widened to double and scaled.
std::int64_t Scaled(AudioUnitParameterValue inValue, double inScale)
{
    return TruncatedToInt64(static_cast<double>(inValue) * inScale);
}

// Restores the buffer records of a render's lists when the sliced path
// returns (or throws): the slices advanced them through the frames.
class BufferListRestorer
{
public:
    BufferListRestorer(AudioBufferList& ioList, UInt32 inByteSize)
        : mList(ioList), mByteSize(inByteSize)
    {
        const UInt32 count = std::min<UInt32>(mList.mNumberBuffers, Vandrel::kMaxChannels);
        for (UInt32 i = 0; i < count; ++i) {
            mData[i] = mList.mBuffers[i].mData;
        }
    }
    ~BufferListRestorer()
    {
        const UInt32 count = std::min<UInt32>(mList.mNumberBuffers, Vandrel::kMaxChannels);
        for (UInt32 i = 0; i < count; ++i) {
            mList.mBuffers[i].mData = mData[i];
            mList.mBuffers[i].mDataByteSize = mList.mBuffers[i].mNumberChannels * mByteSize;
        }
    }
    BufferListRestorer(const BufferListRestorer&) = delete;
    BufferListRestorer& operator=(const BufferListRestorer&) = delete;

private:
    AudioBufferList& mList;
    UInt32 mByteSize;
    void* mData[Vandrel::kMaxChannels] = {};
};

} // namespace

Vandrel::Vandrel(AudioComponentInstance inComponentInstance)
    : AUEffectBase(inComponentInstance, true), mOutputElement(nullptr), mInputElement(nullptr),
      mOutBytesPerFrame(0), mOutChannels(0), mSampleRateHz(0), mNeedsBegin(true),
      mLatencySeconds(0.0), mEngineProps(), mCycleEvents(nullptr), mCycleEventCount(0),
      mCycleStarted(0), mTouchedParams(0), mValuesBeforeEvents()
{
    CreateElements();
    AUElement* globals = Globals();
    globals->UseIndexedParameters(kNumParams);
    for (AudioUnitParameterID id : kDefaultsOrder) {
        globals->SetParameter(id, kParameterSpecs[id].defaultValue, false);
    }
    LocalizeNamesOnce();
}

Vandrel::~Vandrel() = default;

OSStatus Vandrel::Version()
{
    return static_cast<OSStatus>(kVandrelVersion);
}

OSStatus Vandrel::Initialize()
{
    // The render gathers channel pointers in arrays of kMaxChannels and the
    // engine keeps per-channel state for as many: wider formats are refused
    // before anything is built. The engine takes the rate in whole hertz, so
    // a rate that is not a positive 32-bit number of hertz is refused too.
    const Float64 rate = GetStreamFormat(kAudioUnitScope_Output, 0).mSampleRate;
    if (GetStreamFormat(kAudioUnitScope_Output, 0).mChannelsPerFrame > kMaxChannels ||
        GetStreamFormat(kAudioUnitScope_Input, 0).mChannelsPerFrame > kMaxChannels ||
        !(rate >= 1.0 && rate < kMaxSampleRate)) {
        return kAudioUnitErr_FormatNotSupported;
    }
    const OSStatus result = AUEffectBase::Initialize();
    if (result != noErr) {
        return result;
    }
    Globals()->UseIndexedParameters(kNumParams);
    PropertyChanged(kAudioUnitProperty_ParameterList, kAudioUnitScope_Global, 0);

    mOutputElement = GetOutput(0);
    mInputElement = GetInput(0);
    const CAStreamBasicDescription& format = GetStreamFormat(kAudioUnitScope_Output, 0);
    mOutBytesPerFrame = format.mBytesPerFrame;
    mOutChannels = format.mChannelsPerFrame;
    mSampleRateHz = static_cast<SInt32>(format.mSampleRate);
    mNeedsBegin = true;
    updateEngineParams();
    return noErr;
}

OSStatus Vandrel::Reset(AudioUnitScope inScope, AudioUnitElement inElement)
{
    mEngine.TransformEnd();
    mNeedsBegin = true;
    return AUEffectBase::Reset(inScope, inElement);
}

OSStatus Vandrel::GetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                  AudioUnitElement inElement, UInt32& outDataSize,
                                  bool& outWritable)
{
    if (inScope == kAudioUnitScope_Global && inID == kAudioUnitProperty_CocoaUI) {
        outDataSize = sizeof(AudioUnitCocoaViewInfo);
        outWritable = false;
        return noErr;
    }
    return AUEffectBase::GetPropertyInfo(inID, inScope, inElement, outDataSize, outWritable);
}

OSStatus Vandrel::GetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, void* outData)
{
    if (inScope == kAudioUnitScope_Global && inID == kAudioUnitProperty_CocoaUI) {
        CFBundleRef bundle = CFBundleGetBundleWithIdentifier(CFSTR(kVandrelBundleIdentifier));
        if (bundle == nullptr) {
            return fnfErr;
        }
        CFURLRef viewBundle = CFBundleCopyResourceURL(bundle, CFSTR("VandrelCocoaViewFactory"),
                                                      CFSTR("bundle"), nullptr);
        if (viewBundle == nullptr) {
            return fnfErr;
        }
        CFStringRef className = CFStringCreateWithCString(
            kCFAllocatorDefault, "VandrelCocoaViewFactory", kCFStringEncodingUTF8);
        auto* info = static_cast<AudioUnitCocoaViewInfo*>(outData);
        info->mCocoaAUViewBundleLocation = viewBundle;
        info->mCocoaAUViewClass[0] = className;
        return noErr;
    }
    return AUEffectBase::GetProperty(inID, inScope, inElement, outData);
}

OSStatus Vandrel::SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                              AudioUnitElement inElement, const void* inData, UInt32 inDataSize)
{
    if (inScope == kAudioUnitScope_Global && inID == kAudioUnitProperty_Latency) {
        if (inDataSize != sizeof(Float64)) {
            return kAudioUnitErr_InvalidPropertyValue;
        }
        std::memcpy(&mLatencySeconds, inData, sizeof(Float64));
        return noErr;
    }
    return AUEffectBase::SetProperty(inID, inScope, inElement, inData, inDataSize);
}

OSStatus Vandrel::Render(AudioUnitRenderActionFlags& ioActionFlags,
                         const AudioTimeStamp& inTimeStamp, UInt32 inNumberFrames)
{
    auto* input = static_cast<AUInputElement*>(Inputs().GetElement(0));
    if (input == nullptr || !input->HasSource()) {
        return kAudioUnitErr_NoConnection;
    }
    OSStatus result = mInputElement->PullInput(ioActionFlags, inTimeStamp, 0, inNumberFrames);
    if (result != noErr) {
        return result;
    }
    if (ProcessesInPlace() && mOutputElement->WillAllocateBuffer()) {
        mOutputElement->GetBufferList().UseCallerList(
            mInputElement->GetBufferList().GetPreparedList());
    }

    if (ShouldBypassEffect()) {
        if (!ProcessesInPlace()) {
            mInputElement->GetBufferList().CopyContentsTo(
                mOutputElement->GetBufferList().GetPreparedList());
        }
    } else {
        const bool scheduled = !mParamList.empty();
        if (scheduled) {
            // The engine starts this render with the values in force at its
            // first frame, which the events may have changed only later on.
            AudioUnitParameterValue values[kNumParams];
            bool ramping = false;
            mCycleEvents = mParamList.data();
            mCycleEventCount = static_cast<UInt32>(mParamList.size());
            mCycleStarted = 0;
            // Parameters without events keep their stored values through the
            // render: read once here rather than at every step of a ramp.
            const AUElement& globals = *Globals();
            for (AudioUnitParameterID id = 0; id < kNumParams; ++id) {
                if ((mTouchedParams & (1u << id)) == 0) {
                    mValuesBeforeEvents[id] = globals.GetParameter(id);
                }
            }
            ValuesInForceAt(0, false, values, ramping);
            MapParameters(values, mEngineProps);
        } else {
            updateEngineParams();
        }
        if (mNeedsBegin) {
            mEngine.TransformBegin(static_cast<int>(mOutChannels), mSampleRateHz, mEngineProps);
            mNeedsBegin = false;
        } else {
            mEngine.TransformCookProperties(mEngineProps, TRANSFORM_CONTINUE);
        }

        AudioBufferList& inputList = mInputElement->GetBufferList().GetPreparedList();
        AudioBufferList& outputList = mOutputElement->GetBufferList().GetPreparedList();
        if (scheduled) {
            const UInt32 channelBytes = inNumberFrames * mOutBytesPerFrame;
            {
                BufferListRestorer restoreInput(inputList, channelBytes);
                BufferListRestorer restoreOutput(outputList, channelBytes);
                SliceProcessRecord record{&ioActionFlags, &inputList, &outputList};
                result = ProcessForScheduledParams(mParamList, inNumberFrames, &record);
            }
            mCycleEvents = nullptr;
            mCycleEventCount = 0;
            mTouchedParams = 0;
        } else {
            ioActionFlags |= kAudioUnitRenderAction_OutputIsSilence;
            const UInt32 channels = static_cast<UInt32>(mKernelList.size());
            float* channelData[kMaxChannels];
            for (UInt32 i = 0; i < channels; ++i) {
                if (!ProcessesInPlace() && inNumberFrames != 0) {
                    std::memcpy(outputList.mBuffers[i].mData, inputList.mBuffers[i].mData,
                                inNumberFrames * sizeof(Float32));
                }
                channelData[i] = static_cast<float*>(outputList.mBuffers[i].mData);
            }
            unsigned int frames = inNumberFrames;
            mEngine.TransformFloat(TRANSFORM_CONTINUE, channelData, channels, frames, false);
        }
        // Processed output is never reported as silence: the effects ring on
        // after their input stops.
        ioActionFlags &= ~kAudioUnitRenderAction_OutputIsSilence;
    }

    if ((ioActionFlags & kAudioUnitRenderAction_OutputIsSilence) != 0 && !ProcessesInPlace()) {
        AudioBufferList& outputList = mOutputElement->GetBufferList().GetPreparedList();
        for (UInt32 i = 0; i < outputList.mNumberBuffers; ++i) {
            std::memset(outputList.mBuffers[i].mData, 0, outputList.mBuffers[i].mDataByteSize);
        }
    }
    return result;
}

OSStatus Vandrel::ProcessScheduledSlice(void* inUserData, UInt32 inStartFrameInBuffer,
                                        UInt32 inSliceFramesToProcess, UInt32 inTotalBufferFrames)
{
    const auto& record = *static_cast<const SliceProcessRecord*>(inUserData);
    AudioBufferList& inputList = *record.mInputBufferList;
    AudioBufferList& outputList = *record.mOutputBufferList;
    const UInt32 channels = static_cast<UInt32>(mKernelList.size());

    // The lists point at this slice's first frame: earlier slices advanced them.
    float* channelData[kMaxChannels];
    for (UInt32 i = 0; i < channels; ++i) {
        if (!ProcessesInPlace()) {
            std::memcpy(outputList.mBuffers[i].mData, inputList.mBuffers[i].mData,
                        inSliceFramesToProcess * sizeof(Float32));
        }
        channelData[i] = static_cast<float*>(outputList.mBuffers[i].mData);
    }

    UInt32 done = 0;
    while (done < inSliceFramesToProcess) {
        const UInt32 frame = inStartFrameInBuffer + done;
        AudioUnitParameterValue values[kNumParams];
        bool ramping = false;
        ValuesInForceAt(frame, true, values, ramping);
        const UInt32 left = inSliceFramesToProcess - done;
        const UInt32 step = ramping ? std::min(left, kRampStepFrames) : left;
        // The render cooked the values of frame 0 before slicing began.
        if (frame != 0) {
            MapParameters(values, mEngineProps);
            mEngine.TransformCookProperties(mEngineProps, TRANSFORM_CONTINUE);
        }
        float* stepData[kMaxChannels];
        for (UInt32 i = 0; i < channels; ++i) {
            stepData[i] = channelData[i] + done;
        }
        unsigned int frames = step;
        mEngine.TransformFloat(TRANSFORM_CONTINUE, stepData, channels, frames, false);
        done += step;
    }
    return AUEffectBase::ProcessScheduledSlice(inUserData, inStartFrameInBuffer,
                                               inSliceFramesToProcess, inTotalBufferFrames);
}

namespace {

// The value that `event` gives its parameter at inFrame, at or after the
// event's start, and whether a ramp is then under way.
AudioUnitParameterValue ValueOfEventAt(const AudioUnitParameterEvent& event, UInt32 inFrame,
                                       bool& outRampUnderWay)
{
    if (event.eventType == kParameterEvent_Immediate) {
        outRampUnderWay = false;
        return event.eventValues.immediate.value;
    }
    const auto& ramp = event.eventValues.ramp;
    const std::int64_t elapsed =
        static_cast<std::int64_t>(inFrame) - std::int64_t{ramp.startBufferOffset};
    if (elapsed >= static_cast<std::int64_t>(ramp.durationInFrames)) {
        outRampUnderWay = false;
        return ramp.endValue;
    }
    const double fraction =
        static_cast<double>(elapsed) / static_cast<double>(ramp.durationInFrames);
    outRampUnderWay = true;
    return static_cast<AudioUnitParameterValue>(ramp.startValue +
                                                (ramp.endValue - ramp.startValue) * fraction);
}

bool IsEventFor(const AudioUnitParameterEvent& event, AudioUnitParameterID id)
{
    return event.scope == kAudioUnitScope_Global && event.element == 0 && event.parameter == id;
}

} // namespace

void Vandrel::ValuesInForceAt(UInt32 inFrame, bool inSorted,
                              AudioUnitParameterValue (&outValues)[kNumParams], bool& outRamping)
{
    outRamping = false;
    // In a list sorted by start, the events started by inFrame come first.
    UInt32 started = mCycleEventCount;
    if (inSorted) {
        auto startsBy = [this, inFrame](UInt32 e) {
            return mCycleEvents[e].eventValues.ramp.startBufferOffset <=
                   static_cast<std::int64_t>(inFrame);
        };
        // An earlier frame than the last look-up's (its last counted event
        // starts after it) counts again from the first event.
        if (mCycleStarted > 0 && !startsBy(mCycleStarted - 1)) {
            mCycleStarted = 0;
        }
        while (mCycleStarted < mCycleEventCount && startsBy(mCycleStarted)) {
            ++mCycleStarted;
        }
        started = mCycleStarted;
    }
    std::memcpy(outValues, mValuesBeforeEvents, sizeof outValues);
    for (UInt32 touched = mTouchedParams; touched != 0; touched &= touched - 1) {
        const auto id = static_cast<AudioUnitParameterID>(__builtin_ctz(touched));
        // The latest event started by inFrame wins; among events that start
        // at the same frame, the later one in the list, as in the framework's
        // own records.
        bool rampUnderWay = false;
        if (inSorted) {
            for (UInt32 e = started; e-- > 0;) {
                if (IsEventFor(mCycleEvents[e], id)) {
                    outValues[id] = ValueOfEventAt(mCycleEvents[e], inFrame, rampUnderWay);
                    break;
                }
            }
        } else {
            std::int64_t latestStart = INT64_MIN;
            for (UInt32 e = 0; e < mCycleEventCount; ++e) {
                const AudioUnitParameterEvent& event = mCycleEvents[e];
                const std::int64_t start = event.eventValues.ramp.startBufferOffset;
                if (!IsEventFor(event, id) || start > static_cast<std::int64_t>(inFrame) ||
                    start < latestStart) {
                    continue;
                }
                latestStart = start;
                outValues[id] = ValueOfEventAt(event, inFrame, rampUnderWay);
            }
        }
        outRamping = outRamping || rampUnderWay;
    }
}

OSStatus Vandrel::ScheduleParameter(const AudioUnitParameterEvent* inParameterEvent,
                                    UInt32 inNumEvents)
{
    // An empty list means the previous cycle is over (every render empties it).
    if (mParamList.empty()) {
        mTouchedParams = 0;
    }
    AUElement* globals = Globals();
    for (UInt32 e = 0; e < inNumEvents; ++e) {
        const AudioUnitParameterEvent& event = inParameterEvent[e];
        if (event.scope == kAudioUnitScope_Global && event.element == 0 &&
            event.parameter < kNumParams && (mTouchedParams & (1u << event.parameter)) == 0) {
            mValuesBeforeEvents[event.parameter] = globals->GetParameter(event.parameter);
            mTouchedParams |= 1u << event.parameter;
        }
    }
    return AUEffectBase::ScheduleParameter(inParameterEvent, inNumEvents);
}

OSStatus Vandrel::GetParameterInfo(AudioUnitScope inScope, AudioUnitParameterID inParameterID,
                                   AudioUnitParameterInfo& outParameterInfo)
{
    outParameterInfo.flags = kParamInfoFlags;
    if (inScope != kAudioUnitScope_Global) {
        return noErr;
    }
    if (inParameterID >= kNumParams) {
        return kAudioUnitErr_InvalidParameter;
    }
    const CFStringRef name = *gParamNameByID[inParameterID];
    outParameterInfo.cfNameString = name;
    outParameterInfo.flags = kParamInfoFlags | kAudioUnitParameterFlag_HasCFNameString;
    CopyParameterName(name, outParameterInfo.name);
    const ParameterSpec& row = kParameterSpecs[inParameterID];
    outParameterInfo.minValue = row.minValue;
    outParameterInfo.maxValue = row.maxValue;
    outParameterInfo.defaultValue = row.defaultValue;
    outParameterInfo.unit = row.unit;
    return noErr;
}

void Vandrel::CopyParameterName(CFStringRef inName, char (&outField)[52])
{
    if (CFStringGetCString(inName, outField, sizeof(outField), kCFStringEncodingUTF8)) {
        return;
    }
    // Too long for the field: convert in full, then keep the longest prefix of
    // whole characters that leaves room for the terminating zero.
    const CFIndex capacity =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(inName), kCFStringEncodingUTF8) + 1;
    std::vector<char> full(static_cast<std::size_t>(capacity), '\0');
    std::size_t keep = 0;
    if (CFStringGetCString(inName, full.data(), capacity, kCFStringEncodingUTF8)) {
        keep = std::min(std::strlen(full.data()), sizeof(outField) - 1);
        // Back off over UTF-8 continuation bytes (10xxxxxx) so that the cut
        // falls before the start of a character.
        if (keep < std::strlen(full.data())) {
            while (keep > 0 && (static_cast<unsigned char>(full[keep]) & 0xC0) == 0x80) {
                --keep;
            }
        }
    }
    std::memcpy(outField, full.data(), keep);
    outField[keep] = '\0';
}

OSStatus Vandrel::GetParameterValueStrings(AudioUnitScope, AudioUnitParameterID, CFArrayRef*)
{
    return kAudioUnitErr_InvalidProperty;
}

OSStatus Vandrel::GetPresets(CFArrayRef* outData) const
{
    if (outData == nullptr) {
        return noErr;
    }
    CFMutableArrayRef presets = CFArrayCreateMutable(kCFAllocatorDefault, kNumPresets, nullptr);
    for (const AUPreset& preset : kPresets) {
        CFArrayAppendValue(presets, &preset);
    }
    *outData = presets;
    return noErr;
}

OSStatus Vandrel::NewFactoryPresetSet(const AUPreset& inNewFactoryPreset)
{
    OSStatus result = kAudioUnitErr_InvalidPropertyValue;
    for (int i = 0; i < kNumPresets; ++i) {
        if (kPresets[i].presetNumber != inNewFactoryPreset.presetNumber) {
            continue;
        }
        AUElement* globals = Globals();
        for (AudioUnitParameterID id = 0; id < kNumParams; ++id) {
            globals->SetParameter(id, kPresetValues[i][id], false);
        }
        (void)SetAFactoryPresetAsCurrent(kPresets[i]);
        updateEngineParams();
        result = noErr;
    }
    return result;
}

Float64 Vandrel::GetLatency()
{
    updateEngineParams();
    return mLatencySeconds;
}

bool Vandrel::SupportsTail()
{
    return false;
}

AUKernelBase* Vandrel::NewKernel()
{
    return new VandrelKernel(this);
}

void Vandrel::updateEngineParams()
{
    const AUElement& globals = *Globals();
    AudioUnitParameterValue values[kNumParams];
    for (AudioUnitParameterID id = 0; id < kNumParams; ++id) {
        values[id] = globals.GetParameter(id);
    }
    MapParameters(values, mEngineProps);
}

void Vandrel::MapParameters(const AudioUnitParameterValue (&inValues)[kNumParams],
                            _transform_props& ioProps)
{
    // The values of the previous mapping in this process, shared by every
    // instance; they serve only to set the change bits.
    static _transform_props prvEngineProps{};

    ioProps.lDryOut = Scaled(inValues[kParam_DryOut], 10.0);
    ioProps.lWetOut = Scaled(inValues[kParam_WetOut], 10.0);
    const AudioUnitParameterValue effect = inValues[kParam_Effect];
    ioProps.lEffect =
        effect < 1.0f ? kEffect_Flange : (effect < 2.0f ? kEffect_Phaser : kEffect_WahWah);
    ioProps.lModRate = Scaled(inValues[kParam_ModulationRate], 1000.0);
    ioProps.lModDepth = TruncatedToInt64(inValues[kParam_ModulationDepth]);
    ioProps.lCenterFreq = TruncatedToInt64(inValues[kParam_CenterFreq]);
    ioProps.lResonance = TruncatedToInt64(inValues[kParam_Resonance]);

    auto note = [&ioProps](std::int64_t& ioPrevious, std::int64_t inNow, std::uint32_t inBit) {
        if (ioPrevious != inNow) {
            ioPrevious = inNow;
            ioProps.uChanged |= inBit;
        }
    };
    note(prvEngineProps.lDryOut, ioProps.lDryOut, kPropsChanged_Levels);
    note(prvEngineProps.lWetOut, ioProps.lWetOut, kPropsChanged_Levels);
    note(prvEngineProps.lEffect, ioProps.lEffect, kPropsChanged_Effect);
    note(prvEngineProps.lModRate, ioProps.lModRate, kPropsChanged_Effect);
    note(prvEngineProps.lModDepth, ioProps.lModDepth, kPropsChanged_Effect);
    note(prvEngineProps.lCenterFreq, ioProps.lCenterFreq, kPropsChanged_Effect);
    note(prvEngineProps.lResonance, ioProps.lResonance, kPropsChanged_Effect);
}

Vandrel::VandrelKernel::VandrelKernel(AUEffectBase* inAudioUnit) : AUKernelBase(inAudioUnit) {}

Vandrel::VandrelKernel::~VandrelKernel() = default;

void Vandrel::VandrelKernel::Reset() {}

void Vandrel::VandrelKernel::Process(const Float32*, Float32*, UInt32, UInt32, bool&) {}

AU_EXPORT_COMPONENT_ENTRIES(Vandrel, VandrelEntry, VandrelFactory)
