// A small unit for the unit-base tests, with host-side helpers. One input and
// one output bus (by default), three indexed global parameters (10, 20, 30),
// and hooks that record what the framework asked of them. Its render writes
// b + 1 into output buffer b, can fail in the ways a real one does, and slices
// the scheduled events, noting each slice without allocating (up to 64).
// Opened for a host instance it also counts its lives and teardowns, can be
// told to fail while opening, and throws on request.
#ifndef AUBASETESTUNIT_H
#define AUBASETESTUNIT_H

#include "AUBase.h"
#include "AUInputElement.h"
#include "AUOutputElement.h"
#include "ParameterEvents.h"
#include "ThrownStatus.h"

#include <functional>
#include <memory>
#include <new>
#include <ostream>
#include <tuple>
#include <vector>

// Setting this global-scope property runs AUBaseTestUnit::sThrow.
constexpr AudioUnitPropertyID kThrowProperty = 0x74687277; // 'thrw'

class AUBaseTestUnit : public AUBase
{
public:
    static constexpr UInt32 kNumParameters = 3;

    // Process-wide controls and counters of units opened for host instances.
    static inline bool sThrowInConstructor = false;
    static inline bool sThrowInPostConstructor = false;
    static inline int sLiveObjects = 0;
    static inline int sPreDestructorCalls = 0;
    static inline AUBaseTestUnit* sLastOpened = nullptr;
    static inline std::function<void()> sThrow;

    // The global element exists from construction on; the buses appear with
    // PostConstructor (see OpenUnit).
    explicit AUBaseTestUnit(UInt32 inInputs = 1, UInt32 inOutputs = 1, UInt32 inGroups = 0)
        : AUBase(nullptr, inInputs, inOutputs, inGroups)
    {
        SetUpParameters();
    }

    // As the entry layer constructs a unit for a host instance.
    explicit AUBaseTestUnit(AudioComponentInstance inInstance) : AUBase(inInstance, 1, 1, 0)
    {
        if (sThrowInConstructor) {
            throw static_cast<OSStatus>(kAudioUnitErr_FailedInitialization);
        }
        SetUpParameters();
        ++sLiveObjects;
        sLastOpened = this;
        mCounted = true;
    }

    ~AUBaseTestUnit() override { sLiveObjects -= mCounted ? 1 : 0; }

    void PostConstructor() override
    {
        AUBase::PostConstructor();
        if (mCounted && sThrowInPostConstructor) {
            throw std::bad_alloc();
        }
    }

    void PreDestructor() override
    {
        ++sPreDestructorCalls;
        AUBase::PreDestructor();
    }

    bool StreamFormatWritable(AudioUnitScope, AudioUnitElement) override
    {
        return !IsInitialized();
    }

    OSStatus Initialize() override
    {
        ++mInitializeCalls;
        return noErr;
    }

    void Cleanup() override { ++mCleanupCalls; }

    OSStatus SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, const void* inData, UInt32 inDataSize) override
    {
        if (inID != kThrowProperty) {
            return AUBase::SetProperty(inID, inScope, inElement, inData, inDataSize);
        }
        sThrow();
        return noErr;
    }

    enum class Failure
    {
        kNone,
        kThrowStatus, // kAudioUnitErr_NoConnection
        kThrowZero,
        kThrowOther
    };

    OSStatus Render(AudioUnitRenderActionFlags&, const AudioTimeStamp&,
                    UInt32 inNumberFrames) override
    {
        ++mRenderCalls;
        switch (mFailure) {
        case Failure::kThrowStatus:
            throw static_cast<OSStatus>(kAudioUnitErr_NoConnection);
        case Failure::kThrowZero:
            throw static_cast<OSStatus>(noErr);
        case Failure::kThrowOther:
            throw 2.5;
        case Failure::kNone:
            break;
        }
        if (!mParamList.empty()) {
            ProcessForScheduledParams(mParamList, inNumberFrames, nullptr);
        }
        AudioBufferList& out = GetOutput(0)->GetBufferList().GetPreparedList();
        for (UInt32 b = 0; b < out.mNumberBuffers; ++b) {
            for (UInt32 i = 0; i < inNumberFrames; ++i) {
                static_cast<float*>(out.mBuffers[b].mData)[i] = static_cast<float>(b + 1);
            }
        }
        return mRenderResult;
    }

    // One slice as the unit saw it: start, length, and the stored record of
    // parameters 0 and 1 at that time.
    struct Slice
    {
        UInt32 start;
        UInt32 frames;
        ParameterMapEvent param0;
        ParameterMapEvent param1;
    };

    OSStatus ProcessScheduledSlice(void* inUserData, UInt32 inStart, UInt32 inFrames,
                                   UInt32 inTotal) override
    {
        mSliceUserData = inUserData;
        mSliceTotal = inTotal;
        if (mSlices.size() < mSlices.capacity()) {
            mSlices.push_back(Slice{inStart, inFrames, Globals()->GetParameterEvent(0),
                                    Globals()->GetParameterEvent(1)});
        }
        return mSlices.size() == mFailingSlice ? mSliceResult : noErr;
    }

    void SetUpParameters()
    {
        mSlices.reserve(64);
        Globals()->UseIndexedParameters(kNumParameters);
        for (UInt32 id = 0; id < kNumParameters; ++id) {
            Globals()->SetParameter(id, 10.0f * static_cast<float>(id + 1));
        }
    }

    ParameterEventList& PendingEvents() { return mParamList; }
    const AUPreset& CurrentPreset() const { return mCurrentPreset; }
    OSStatus LastRenderError() const { return mLastRenderError; }

    bool mCounted = false;
    int mInitializeCalls = 0;
    int mCleanupCalls = 0;
    int mRenderCalls = 0;
    OSStatus mRenderResult = noErr;
    Failure mFailure = Failure::kNone;
    std::vector<Slice> mSlices;
    size_t mFailingSlice = 0;
    OSStatus mSliceResult = noErr;
    void* mSliceUserData = nullptr;
    UInt32 mSliceTotal = 0;
};

// Constructs a unit and runs its second construction phase, as the entry
// layer does when a host opens an instance.
template <class Unit = AUBaseTestUnit, class... Args> std::unique_ptr<Unit> OpenUnit(Args... inArgs)
{
    std::unique_ptr<Unit> unit(new Unit(inArgs...));
    unit->PostConstructor();
    return unit;
}

enum class OpenStyle
{
    kFactory,   // AudioComponentInstanceNew: the factory's instance record
    kEntryPoint // OpenAComponent: the component entry point
};

// Names the style in test names and failure messages.
inline void PrintTo(OpenStyle inStyle, std::ostream* os)
{
    *os << (inStyle == OpenStyle::kFactory ? "Factory" : "EntryPoint");
}

// Registers a unit's two exported functions with the runtime under one
// description.
inline void RegisterBothStyles(ComponentDescription& ioDescription,
                               AudioComponentFactoryFunction inFactory, void* inEntry)
{
    AudioComponentRegister(reinterpret_cast<AudioComponentDescription*>(&ioDescription), nullptr, 1,
                           inFactory);
    RegisterComponent(&ioDescription, reinterpret_cast<ComponentRoutineUPP>(inEntry), 0, nullptr,
                      nullptr, nullptr);
}

// Opens the registered component in one style; *outUnit is null on failure.
inline OSStatus OpenInStyle(ComponentDescription& ioDescription, OpenStyle inStyle,
                            AudioUnit* outUnit)
{
    *outUnit = nullptr;
    if (inStyle == OpenStyle::kEntryPoint) {
        return OpenAComponent(FindNextComponent(nullptr, &ioDescription), outUnit);
    }
    return AudioComponentInstanceNew(
        AudioComponentFindNext(nullptr,
                               reinterpret_cast<AudioComponentDescription*>(&ioDescription)),
        outUnit);
}

inline AudioTimeStamp TimeAt(Float64 inSampleTime)
{
    AudioTimeStamp time{};
    time.mSampleTime = inSampleTime;
    time.mFlags = kAudioTimeStampSampleTimeValid;
    return time;
}

// The flags each render notification saw.
struct NotifyLog
{
    std::vector<AudioUnitRenderActionFlags> mFlags;

    static OSStatus Hear(void* inRefCon, AudioUnitRenderActionFlags* ioActionFlags,
                         const AudioTimeStamp*, UInt32, UInt32, AudioBufferList*)
    {
        static_cast<NotifyLog*>(inRefCon)->mFlags.push_back(*ioActionFlags);
        return noErr;
    }
};

// Records every property-change notification it hears.
struct ListenerLog
{
    using Call = std::tuple<AudioUnitPropertyID, AudioUnitScope, AudioUnitElement>;
    std::vector<Call> mCalls;

    static void Hear(void* inRefCon, AudioUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                     AudioUnitElement inElement)
    {
        static_cast<ListenerLog*>(inRefCon)->mCalls.emplace_back(inID, inScope, inElement);
    }

    size_t CountOf(AudioUnitPropertyID inID) const
    {
        size_t count = 0;
        for (const auto& call : mCalls) {
            count += std::get<0>(call) == inID ? 1 : 0;
        }
        return count;
    }
};

#endif
