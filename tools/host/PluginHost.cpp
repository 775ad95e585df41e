#include "PluginHost.h"

#include "ToolError.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

// Names of the statuses a unit is likely to return, for messages.
std::string describeStatus(OSStatus status)
{
    struct Named
    {
        OSStatus status;
        const char* text;
    };
    static constexpr Named kNames[] = {
        {kAudioUnitErr_InvalidProperty, "property not supported"},
        {kAudioUnitErr_InvalidParameter, "unknown parameter"},
        {kAudioUnitErr_InvalidElement, "no such element"},
        {kAudioUnitErr_NoConnection, "no input connected"},
        {kAudioUnitErr_FailedInitialization, "initialization failed"},
        {kAudioUnitErr_TooManyFramesToProcess, "too many frames"},
        {kAudioUnitErr_FormatNotSupported, "format not supported"},
        {kAudioUnitErr_Uninitialized, "not initialized"},
        {kAudioUnitErr_InvalidScope, "invalid scope"},
        {kAudioUnitErr_PropertyNotWritable, "property not writable"},
        {kAudioUnitErr_InvalidPropertyValue, "value refused"},
        {kAudioUnitErr_Initialized, "already initialized"},
        {paramErr, "bad argument"},
        {memFullErr, "out of memory"},
    };
    std::string text = "status " + std::to_string(status);
    for (const Named& named : kNames)
        if (named.status == status)
            text += " (" + std::string(named.text) + ")";
    return text;
}

void check(OSStatus status, const char* what, ExitStatus exitStatus = ExitStatus::kProcessingFailed)
{
    if (status != noErr)
        throw ToolError(exitStatus, std::string("The plug-in refused to ") + what + ": " +
                                        describeStatus(status) + ".");
}

std::string toStdString(CFStringRef string)
{
    if (string == nullptr)
        return "";
    if (const char* direct = CFStringGetCStringPtr(string, kCFStringEncodingUTF8))
        return direct;
    const CFIndex capacity =
        CFStringGetMaximumSizeForEncoding(CFStringGetLength(string), kCFStringEncodingUTF8) + 1;
    std::string buffer(static_cast<size_t>(capacity), '\0');
    if (!CFStringGetCString(string, buffer.data(), capacity, kCFStringEncodingUTF8))
        return "";
    buffer.resize(std::strlen(buffer.c_str()));
    return buffer;
}

} // namespace

PluginHost::PluginHost(AudioComponent component) : mComponent(component)
{
    const OSStatus status = AudioComponentInstanceNew(component, &mUnit);
    if (status != noErr || mUnit == nullptr)
        throw ToolError(ExitStatus::kPluginUnavailable,
                        "The plug-in was found but could not be opened: " + describeStatus(status) +
                            ".");
}

PluginHost::~PluginHost()
{
    if (mInitialized)
        AudioUnitUninitialize(mUnit);
    AudioComponentInstanceDispose(mUnit);
}

std::string PluginHost::componentName() const
{
    CFStringRef name = nullptr;
    if (AudioComponentCopyName(mComponent, &name) != noErr)
        return "";
    const CFRef<CFStringRef> owner(name);
    return toStdString(name);
}

UInt32 PluginHost::componentVersion() const
{
    UInt32 version = 0;
    return AudioComponentGetVersion(mComponent, &version) == noErr ? version : 0;
}

std::vector<PresetInfo> PluginHost::factoryPresets() const
{
    std::vector<PresetInfo> presets;
    CFArrayRef array = nullptr;
    UInt32 size = sizeof(array);
    if (AudioUnitGetProperty(mUnit, kAudioUnitProperty_FactoryPresets, kAudioUnitScope_Global, 0,
                             &array, &size) != noErr ||
        array == nullptr)
        return presets;
    CFRef<CFArrayRef> owner(array);
    for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
        const auto* preset = static_cast<const AUPreset*>(CFArrayGetValueAtIndex(array, i));
        presets.push_back(PresetInfo{preset->presetNumber, toStdString(preset->presetName)});
    }
    return presets;
}

std::vector<ParameterDescription> PluginHost::parameters() const
{
    std::vector<ParameterDescription> result;
    UInt32 size = 0;
    if (AudioUnitGetPropertyInfo(mUnit, kAudioUnitProperty_ParameterList, kAudioUnitScope_Global, 0,
                                 &size, nullptr) != noErr ||
        size == 0)
        return result;
    std::vector<AudioUnitParameterID> ids(size / sizeof(AudioUnitParameterID));
    check(AudioUnitGetProperty(mUnit, kAudioUnitProperty_ParameterList, kAudioUnitScope_Global, 0,
                               ids.data(), &size),
          "list its parameters");
    ids.resize(size / sizeof(AudioUnitParameterID));
    for (AudioUnitParameterID id : ids) {
        AudioUnitParameterInfo info{};
        UInt32 infoSize = sizeof(info);
        check(AudioUnitGetProperty(mUnit, kAudioUnitProperty_ParameterInfo, kAudioUnitScope_Global,
                                   id, &info, &infoSize),
              "describe a parameter");
        ParameterDescription description{
            id, "", info.unit, info.minValue, info.maxValue, info.defaultValue, {}};
        if ((info.flags & kAudioUnitParameterFlag_HasCFNameString) != 0 &&
            info.cfNameString != nullptr) {
            description.name = toStdString(info.cfNameString);
            if ((info.flags & kAudioUnitParameterFlag_CFNameRelease) != 0)
                CFRelease(info.cfNameString);
        } else {
            description.name.assign(info.name, strnlen(info.name, sizeof(info.name)));
        }
        if (info.unit == kAudioUnitParameterUnit_Indexed) {
            CFArrayRef names = nullptr;
            UInt32 namesSize = sizeof(names);
            if (AudioUnitGetProperty(mUnit, kAudioUnitProperty_ParameterValueStrings,
                                     kAudioUnitScope_Global, id, &names, &namesSize) == noErr &&
                names != nullptr) {
                CFRef<CFArrayRef> owner(names);
                for (CFIndex i = 0; i < CFArrayGetCount(names); ++i)
                    description.valueNames.push_back(
                        toStdString(static_cast<CFStringRef>(CFArrayGetValueAtIndex(names, i))));
            }
        }
        result.push_back(std::move(description));
    }
    return result;
}

void PluginHost::selectPreset(SInt32 number)
{
    const AUPreset preset{number, nullptr};
    check(AudioUnitSetProperty(mUnit, kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0,
                               &preset, sizeof(preset)),
          ("select preset " + std::to_string(number)).c_str());
}

void PluginHost::setParameter(AudioUnitParameterID id, AudioUnitParameterValue value)
{
    check(trySetParameter(id, value), "set a parameter");
}

OSStatus PluginHost::trySetParameter(AudioUnitParameterID id, AudioUnitParameterValue value)
{
    return AudioUnitSetParameter(mUnit, id, kAudioUnitScope_Global, 0, value, 0);
}

AudioUnitParameterValue PluginHost::parameter(AudioUnitParameterID id) const
{
    AudioUnitParameterValue value = 0.0f;
    check(AudioUnitGetParameter(mUnit, id, kAudioUnitScope_Global, 0, &value), "read a parameter");
    return value;
}

void PluginHost::setBypass(bool bypass)
{
    check(trySetBypass(bypass), "switch bypass");
}

OSStatus PluginHost::trySetBypass(bool bypass)
{
    const UInt32 value = bypass ? 1 : 0;
    return AudioUnitSetProperty(mUnit, kAudioUnitProperty_BypassEffect, kAudioUnitScope_Global, 0,
                                &value, sizeof(value));
}

CFRef<CFPropertyListRef> PluginHost::copyState() const
{
    CFPropertyListRef state = nullptr;
    UInt32 size = sizeof(state);
    check(AudioUnitGetProperty(mUnit, kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global, 0,
                               &state, &size),
          "save its state");
    return CFRef<CFPropertyListRef>(state);
}

bool PluginHost::restoreState(CFPropertyListRef state, OSStatus* status)
{
    *status = AudioUnitSetProperty(mUnit, kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global, 0,
                                   &state, sizeof(state));
    return *status == noErr;
}

void PluginHost::prepare(double sampleRate, unsigned channels, unsigned maxFrames)
{
    mChannels = channels;
    AudioStreamBasicDescription format{};
    FillOutASBDForLPCM(format, sampleRate, channels, 32, 32, true, false, true);
    const std::string formatText = "take " + std::to_string(channels) + " channels at " +
                                   std::to_string(static_cast<long>(sampleRate)) + " Hz";
    for (AudioUnitScope scope : {kAudioUnitScope_Input, kAudioUnitScope_Output})
        check(AudioUnitSetProperty(mUnit, kAudioUnitProperty_StreamFormat, scope, 0, &format,
                                   sizeof(format)),
              formatText.c_str(), ExitStatus::kUnsupportedInput);
    const UInt32 maximum = maxFrames;
    check(AudioUnitSetProperty(mUnit, kAudioUnitProperty_MaximumFramesPerSlice,
                               kAudioUnitScope_Global, 0, &maximum, sizeof(maximum)),
          "take the block size");
    // The input callback hands the unit the caller's buffers rather than
    // copying them into memory of the unit's own. A unit that refuses keeps
    // its own buffers, which the callback then fills.
    const UInt32 allocate = 0;
    AudioUnitSetProperty(mUnit, kAudioUnitProperty_ShouldAllocateBuffer, kAudioUnitScope_Input, 0,
                         &allocate, sizeof(allocate));
    const AURenderCallbackStruct callback{&PluginHost::supplyInput, this};
    check(AudioUnitSetProperty(mUnit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input,
                               0, &callback, sizeof(callback)),
          "take the input callback");
    check(AudioUnitInitialize(mUnit), formatText.c_str(), ExitStatus::kUnsupportedInput);
    mInitialized = true;
    mOutputListStorage.assign(
        offsetof(AudioBufferList, mBuffers) + sizeof(AudioBuffer) * std::max(channels, 1u), 0);
}

void PluginHost::schedule(const std::vector<AudioUnitParameterEvent>& events)
{
    if (events.empty())
        return;
    check(AudioUnitScheduleParameters(mUnit, events.data(), static_cast<UInt32>(events.size())),
          "schedule automation");
}

OSStatus PluginHost::supplyInput(void* refCon, AudioUnitRenderActionFlags*, const AudioTimeStamp*,
                                 UInt32, UInt32 frames, AudioBufferList* data)
{
    auto* host = static_cast<PluginHost*>(refCon);
    const UInt32 buffers = std::min<UInt32>(data->mNumberBuffers, host->mChannels);
    for (UInt32 c = 0; c < buffers; ++c) {
        AudioBuffer& buffer = data->mBuffers[c];
        // A null buffer asks for ours; otherwise the unit wants a copy in its own.
        if (buffer.mData == nullptr)
            buffer.mData = host->mInput[c];
        else
            std::memcpy(buffer.mData, host->mInput[c], frames * sizeof(float));
        buffer.mDataByteSize = static_cast<UInt32>(frames * sizeof(float));
    }
    return noErr;
}

OSStatus PluginHost::render(float* const* in, float* const* out, unsigned frames)
{
    auto* list = reinterpret_cast<AudioBufferList*>(mOutputListStorage.data());
    list->mNumberBuffers = mChannels;
    for (unsigned c = 0; c < mChannels; ++c)
        list->mBuffers[c] = AudioBuffer{1, static_cast<UInt32>(frames * sizeof(float)), out[c]};
    AudioTimeStamp timeStamp{};
    timeStamp.mSampleTime = mSampleTime;
    timeStamp.mFlags = kAudioTimeStampSampleTimeValid;
    AudioUnitRenderActionFlags flags = 0;
    mInput = in;
    const OSStatus status = AudioUnitRender(mUnit, &flags, &timeStamp, 0, frames, list);
    mInput = nullptr;
    if (status != noErr)
        return status;
    // A unit may answer with buffers of its own instead of filling ours.
    for (unsigned c = 0; c < mChannels; ++c)
        if (list->mBuffers[c].mData != out[c])
            std::memcpy(out[c], list->mBuffers[c].mData, frames * sizeof(float));
    mSampleTime += frames;
    return noErr;
}

void PluginHost::reset()
{
    check(AudioUnitReset(mUnit, kAudioUnitScope_Global, 0), "reset");
    mSampleTime = 0.0;
}

OSStatus PluginHost::start()
{
    // A render stamped with the sample time of the previous one is taken for
    // the same cycle and skipped, so the clock moves on by one frame.
    float nowhere = 0.0f;
    const std::vector<float*> none(std::max(mChannels, 1u), &nowhere);
    const OSStatus status = render(none.data(), none.data(), 0);
    mSampleTime += 1.0;
    return status;
}

bool PluginHost::processesInPlace() const
{
    UInt32 inPlace = 0;
    UInt32 size = sizeof(inPlace);
    return AudioUnitGetProperty(mUnit, kAudioUnitProperty_InPlaceProcessing, kAudioUnitScope_Global,
                                0, &inPlace, &size) == noErr &&
           inPlace != 0;
}

Float64 PluginHost::latencySeconds() const
{
    Float64 seconds = 0.0;
    UInt32 size = sizeof(seconds);
    if (AudioUnitGetProperty(mUnit, kAudioUnitProperty_Latency, kAudioUnitScope_Global, 0, &seconds,
                             &size) != noErr)
        return 0.0;
    return seconds;
}
