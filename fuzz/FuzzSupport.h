// Shared pieces of the fuzz targets: a fuzz input read as a stream of choices,
// the built plug-in opened through the runtime as a host opens it, and audio
// buffers sized exactly (so that the address sanitizer sees any overrun).
#pragma once

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>
#include <CoreServices/CoreServices.h>

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace fuzz {

constexpr OSType kType = 0x61756678;         // 'aufx'
constexpr OSType kSubtype = 0x566E6472;      // 'Vndr'
constexpr OSType kManufacturer = 0x5664726C; // 'Vdrl'
constexpr AudioUnitParameterID kParameterCount = 7;

// The input as a sequence of choices; once it is used up every read gives 0,
// so that any prefix of an input is itself a complete input.
class Input
{
public:
    Input(const uint8_t* data, size_t size) : mData(data), mSize(size) {}

    bool empty() const { return mPosition >= mSize; }
    uint8_t byte() { return empty() ? 0 : mData[mPosition++]; }
    uint32_t u32()
    {
        uint32_t value = 0;
        for (int i = 0; i < 4; ++i) {
            value = (value << 8) | byte();
        }
        return value;
    }
    uint16_t u16() { return static_cast<uint16_t>((byte() << 8) | byte()); }
    // A value in [0, count), count > 0.
    uint32_t below(uint32_t count) { return (count <= 256 ? byte() : u32()) % count; }
    bool flag() { return (byte() & 1) != 0; }
    float f32()
    {
        const uint32_t bits = u32();
        float value;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    // Up to `count` bytes, fewer when the input ends first.
    std::vector<uint8_t> bytes(size_t count)
    {
        count = std::min(count, mSize - std::min(mPosition, mSize));
        std::vector<uint8_t> result(mData + mPosition, mData + mPosition + count);
        mPosition += count;
        return result;
    }
    template <typename T, size_t N> T pick(const T (&table)[N]) { return table[below(N)]; }

private:
    const uint8_t* mData;
    size_t mSize;
    size_t mPosition = 0;
};

// Makes the bundle this build assembled known to the runtime, once, with no
// installed copy taking part; the plug-in's component.
inline AudioComponent Component()
{
    static const AudioComponent component = [] {
        setenv("HOME", VANDREL_BUNDLE_DIR "/no-such-home", 1);
        unsetenv("AU_COMPONENT_PATH");
        if (AudioComponentRegisterBundle(VANDREL_BUNDLE_DIR) != noErr) {
            std::abort();
        }
        const AudioComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
        const AudioComponent found = AudioComponentFindNext(nullptr, &desc);
        if (found == nullptr) {
            std::abort();
        }
        return found;
    }();
    return component;
}

// An instance opened the factory way (AudioComponentInstanceNew) or the
// component-manager way (OpenAComponent); aborts when the unit refuses to open.
inline AudioUnit OpenUnit(bool entryStyle)
{
    AudioUnit unit = nullptr;
    const AudioComponent component = Component();
    if (entryStyle) {
        ComponentDescription desc{kType, kSubtype, kManufacturer, 0, 0};
        ComponentInstance instance = nullptr;
        if (OpenAComponent(FindNextComponent(nullptr, &desc), &instance) != noErr) {
            std::abort();
        }
        unit = reinterpret_cast<AudioUnit>(instance);
    } else if (AudioComponentInstanceNew(component, &unit) != noErr) {
        std::abort();
    }
    return unit;
}

inline void CloseUnit(AudioUnit unit, bool entryStyle)
{
    if (entryStyle) {
        CloseComponent(reinterpret_cast<ComponentInstance>(unit));
    } else {
        AudioComponentInstanceDispose(unit);
    }
}

// 32-bit float, non-interleaved: the format the unit works in.
inline AudioStreamBasicDescription FloatFormat(UInt32 channels, Float64 rate)
{
    AudioStreamBasicDescription format{};
    FillOutASBDForLPCM(format, rate, channels, 32, 32, true, false, true);
    return format;
}

// A buffer list of `buffers` buffers of exactly `bytes` bytes each, or with
// null data pointers (the unit then supplies its own).
class Buffers
{
public:
    Buffers(UInt32 buffers, UInt32 bytes, bool withData)
        : mList(offsetof(AudioBufferList, mBuffers) + sizeof(AudioBuffer) * std::max(1u, buffers))
    {
        list()->mNumberBuffers = buffers;
        for (UInt32 i = 0; i < buffers; ++i) {
            float* data = nullptr;
            if (withData) {
                mData.emplace_back(new float[bytes / 4 + 1]);
                data = mData.back().get();
                std::memset(data, 0, bytes);
            }
            list()->mBuffers[i] = AudioBuffer{1, bytes, data};
        }
    }
    AudioBufferList* list() { return reinterpret_cast<AudioBufferList*>(mList.data()); }

private:
    std::vector<unsigned char> mList;
    std::vector<std::unique_ptr<float[]>> mData;
};

// An input callback that fills every buffer with a fixed tone plus an impulse.
inline OSStatus FeedSignal(void*, AudioUnitRenderActionFlags*, const AudioTimeStamp* stamp, UInt32,
                           UInt32 frames, AudioBufferList* data)
{
    const double start = stamp->mSampleTime;
    for (UInt32 b = 0; b < data->mNumberBuffers; ++b) {
        auto* samples = static_cast<float*>(data->mBuffers[b].mData);
        if (samples == nullptr) {
            continue;
        }
        const UInt32 count = std::min<UInt32>(frames, data->mBuffers[b].mDataByteSize / 4);
        for (UInt32 i = 0; i < count; ++i) {
            samples[i] = i == 0 ? 1.0f : 0.5f * static_cast<float>(std::sin(0.01 * (start + i)));
        }
    }
    return noErr;
}

// Releases an object the unit handed out, if there is one.
inline void Release(CFTypeRef object)
{
    if (object != nullptr) {
        CFRelease(object);
    }
}

} // namespace fuzz
