#include "Lv2Wrapper.h"

#include "PluginLocator.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/log/logger.h>
#include <lv2/options/options.h>
#include <lv2/urid/urid.h>

#include <dlfcn.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <memory>
#include <string>

namespace {

// The worker's one request: take the unit out of bypass.
constexpr uint32_t kLeaveBypass = 1;

LV2_Descriptor gDescriptors[2];

// The folder this library was loaded from: the bundle, which holds the unit's
// component bundle too. [control]
std::string wrapperFolder()
{
    Dl_info info{};
    if (dladdr(gDescriptors, &info) == 0 || info.dli_fname == nullptr)
        return ".";
    const std::string path(info.dli_fname);
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

// The host's bufsz:maxBlockLength when it gives one (an atom:Int of at least
// 1), within kLargestMaxFrames; otherwise kDefaultMaxFrames. [control]
unsigned maxFramesFrom(const LV2_Options_Option* options, LV2_URID_Map* map)
{
    if (options == nullptr || map == nullptr)
        return Lv2Wrapper::kDefaultMaxFrames;
    const LV2_URID key = map->map(map->handle, LV2_BUF_SIZE__maxBlockLength);
    const LV2_URID intType = map->map(map->handle, LV2_ATOM__Int);
    for (; options->key != 0 || options->value != nullptr; ++options) {
        if (options->key != key || options->type != intType || options->size != sizeof(int32_t))
            continue;
        const int32_t frames = *static_cast<const int32_t*>(options->value);
        if (frames >= 1)
            return std::min(static_cast<unsigned>(frames), Lv2Wrapper::kLargestMaxFrames);
    }
    return Lv2Wrapper::kDefaultMaxFrames;
}

// Runs a control-thread step; the one place where its failure (a refusal of
// the unit, a failed allocation) ends, instead of escaping into the host.
// Returns whether it succeeded; `message` gets the reason otherwise.
template <typename Step> bool succeeded(Step&& step, std::string* message = nullptr) noexcept
{
    try {
        step();
        return true;
    } catch (const std::exception& error) {
        if (message != nullptr)
            *message = error.what();
    } catch (...) {
    }
    return false;
}

} // namespace

float Lv2Wrapper::Control::kept(float value) const
{
    if (std::isnan(value))
        return defaultValue;
    return std::min(std::max(value, minimum), maximum);
}

Lv2Wrapper::Lv2Wrapper(unsigned channels, double sampleRate, unsigned maxFrames,
                       LV2_Worker_Schedule* schedule)
    : mHost(PluginLocator::find(wrapperFolder() + "/" + Lv2Ports::kComponentBundle)),
      mPorts(0, channels), mChannels(channels), mSampleRate(sampleRate), mMaxFrames(maxFrames),
      mSchedule(schedule)
{
    for (const ParameterDescription& parameter : mHost.parameters())
        mControls.push_back(Control{parameter.id, parameter.minValue, parameter.maxValue,
                                    parameter.defaultValue, mHost.parameter(parameter.id),
                                    nullptr});
    mPorts = Lv2Ports(static_cast<unsigned>(mControls.size()), channels);
    mHost.prepare(sampleRate, channels, maxFrames);
}

LV2_Handle Lv2Wrapper::instantiate(const LV2_Descriptor* descriptor, double sampleRate, const char*,
                                   const LV2_Feature* const* features)
{
    LV2_URID_Map* map = nullptr;
    LV2_Log_Log* log = nullptr;
    const LV2_Options_Option* options = nullptr;
    LV2_Worker_Schedule* schedule = nullptr;
    for (const LV2_Feature* const* feature = features; feature && *feature; ++feature) {
        const char* uri = (*feature)->URI;
        void* data = (*feature)->data;
        if (std::strcmp(uri, LV2_URID__map) == 0)
            map = static_cast<LV2_URID_Map*>(data);
        else if (std::strcmp(uri, LV2_LOG__log) == 0)
            log = static_cast<LV2_Log_Log*>(data);
        else if (std::strcmp(uri, LV2_OPTIONS__options) == 0)
            options = static_cast<const LV2_Options_Option*>(data);
        else if (std::strcmp(uri, LV2_WORKER__schedule) == 0)
            schedule = static_cast<LV2_Worker_Schedule*>(data);
    }
    const unsigned channels = Lv2Ports::channelsFor(descriptor->URI);
    std::unique_ptr<Lv2Wrapper> wrapper;
    std::string message = "out of memory";
    if (succeeded(
            [&] {
                wrapper.reset(
                    new Lv2Wrapper(channels, sampleRate, maxFramesFrom(options, map), schedule));
            },
            &message))
        return wrapper.release();
    LV2_Log_Logger logger;
    lv2_log_logger_init(&logger, map, log);
    lv2_log_error(&logger, "%s: %s\n", descriptor->URI, message.c_str());
    return nullptr;
}

void Lv2Wrapper::connect(uint32_t port, void* data)
{
    if (port < mControls.size())
        mControls[port].port = static_cast<const float*>(data);
    else if (port == mPorts.enabled())
        mEnabled = static_cast<const float*>(data);
    else if (port == mPorts.latency())
        mLatency = static_cast<float*>(data);
    for (unsigned c = 0; c < mChannels; ++c) {
        if (port == mPorts.audioIn(c))
            mIn[c] = static_cast<const float*>(data);
        else if (port == mPorts.audioOut(c))
            mOut[c] = static_cast<float*>(data);
    }
}

void Lv2Wrapper::activate()
{
    // The unit starts its stream with the controls the host has set by now,
    // so that the set-up work they cause is done here rather than in run.
    const bool bypass = mEnabled != nullptr && *mEnabled < 0.5f;
    const bool started = succeeded([&] {
        mHost.setBypass(bypass);
        mHost.reset();
        for (Control& control : mControls) {
            if (control.port == nullptr)
                continue;
            control.sent = control.kept(*control.port);
            mHost.setParameter(control.id, control.sent);
        }
        mLatencyFrames = static_cast<float>(std::lround(mHost.latencySeconds() * mSampleRate));
        // Bypassed, the unit sets up its stream when the worker takes it out.
        if (!bypass)
            mHost.start();
    });
    mMode = !started ? Mode::kFailed : bypass ? Mode::kBypassed : Mode::kProcessing;
}

void Lv2Wrapper::deactivate()
{
    // Frees the unit's stream; the next activate starts it from silence.
    if (!succeeded([&] { mHost.reset(); }))
        mMode = Mode::kFailed;
}

void Lv2Wrapper::applyControls()
{
    for (Control& control : mControls) {
        if (control.port == nullptr)
            continue;
        const float value = control.kept(*control.port);
        if (value != control.sent && mHost.trySetParameter(control.id, value) == noErr)
            control.sent = value;
    }
}

void Lv2Wrapper::followBypass()
{
    // A missing or NaN switch means enabled, as the port's default.
    const bool bypass = mEnabled != nullptr && *mEnabled < 0.5f;
    if (bypass && mMode == Mode::kProcessing) {
        if (mHost.trySetBypass(true) == noErr)
            mMode = Mode::kBypassed;
    } else if (!bypass && mMode == Mode::kBypassed) {
        if (mSchedule != nullptr) {
            // Set first: a host may do the job, and even answer, at once.
            mMode = Mode::kResuming;
            if (mSchedule->schedule_work(mSchedule->handle, sizeof(kLeaveBypass), &kLeaveBypass) !=
                LV2_WORKER_SUCCESS)
                mMode = Mode::kBypassed;
        } else if (mHost.trySetBypass(false) == noErr) {
            mMode = Mode::kProcessing;
        }
    }
}

void Lv2Wrapper::passThrough(uint32_t frames)
{
    for (unsigned c = 0; c < mChannels; ++c)
        if (mOut[c] != mIn[c])
            std::memcpy(mOut[c], mIn[c], frames * sizeof(float));
}

void Lv2Wrapper::run(uint32_t frames)
{
    if (mLatency != nullptr)
        *mLatency = mLatencyFrames;
    if (mMode == Mode::kFailed) {
        for (unsigned c = 0; c < mChannels; ++c)
            std::fill_n(mOut[c], frames, 0.0f);
        return;
    }
    if (mMode != Mode::kResuming) {
        applyControls();
        followBypass();
    }
    // The unit reads its input from the output buffers, so that it never
    // writes into the host's inputs, whether or not they are the outputs.
    passThrough(frames);
    if (mMode == Mode::kResuming)
        return;
    float* slice[Lv2Ports::kMaxChannels] = {};
    for (uint32_t done = 0; done < frames;) {
        const unsigned length = std::min(frames - done, mMaxFrames);
        for (unsigned c = 0; c < mChannels; ++c)
            slice[c] = mOut[c] + done;
        if (mHost.render(slice, slice, length) != noErr)
            for (unsigned c = 0; c < mChannels; ++c)
                std::fill_n(slice[c], length, 0.0f);
        done += length;
    }
}

LV2_Worker_Status Lv2Wrapper::work(LV2_Handle handle, LV2_Worker_Respond_Function respond,
                                   LV2_Worker_Respond_Handle respondHandle, uint32_t size,
                                   const void* data)
{
    if (size != sizeof(kLeaveBypass) || std::memcmp(data, &kLeaveBypass, size) != 0)
        return LV2_WORKER_ERR_UNKNOWN;
    auto* self = static_cast<Lv2Wrapper*>(handle);
    OSStatus status = self->mHost.trySetBypass(false);
    if (status == noErr)
        status = self->mHost.start();
    return respond(respondHandle, sizeof(status), &status);
}

LV2_Worker_Status Lv2Wrapper::workResponse(LV2_Handle handle, uint32_t size, const void* data)
{
    auto* self = static_cast<Lv2Wrapper*>(handle);
    OSStatus status = noErr;
    if (size != sizeof(status))
        return LV2_WORKER_ERR_UNKNOWN;
    std::memcpy(&status, data, sizeof(status));
    // activate may have settled the mode since the request.
    if (self->mMode == Mode::kResuming)
        self->mMode = status == noErr ? Mode::kProcessing : Mode::kFailed;
    return LV2_WORKER_SUCCESS;
}

const void* Lv2Wrapper::extensionData(const char* uri)
{
    static const LV2_Worker_Interface kWorker{&Lv2Wrapper::work, &Lv2Wrapper::workResponse,
                                              nullptr};
    return std::strcmp(uri, LV2_WORKER__interface) == 0 ? &kWorker : nullptr;
}

const LV2_Descriptor* Lv2Wrapper::descriptor(uint32_t index)
{
    static const bool filled = [] {
        const char* const uris[2] = {Lv2Ports::kMonoUri, Lv2Ports::kStereoUri};
        for (int i = 0; i < 2; ++i)
            gDescriptors[i] = LV2_Descriptor{
                uris[i],
                &Lv2Wrapper::instantiate,
                [](LV2_Handle handle, uint32_t port, void* data) {
                    static_cast<Lv2Wrapper*>(handle)->connect(port, data);
                },
                [](LV2_Handle handle) { static_cast<Lv2Wrapper*>(handle)->activate(); },
                [](LV2_Handle handle, uint32_t frames) {
                    static_cast<Lv2Wrapper*>(handle)->run(frames);
                },
                [](LV2_Handle handle) { static_cast<Lv2Wrapper*>(handle)->deactivate(); },
                [](LV2_Handle handle) { delete static_cast<Lv2Wrapper*>(handle); },
                &Lv2Wrapper::extensionData};
        return true;
    }();
    (void)filled;
    return index < 2 ? &gDescriptors[index] : nullptr;
}

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index)
{
    return Lv2Wrapper::descriptor(index);
}
