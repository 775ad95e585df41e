// A unit for the entry-layer tests: it counts its lives and teardown calls,
// can be told to fail while it is being opened, throws any kind of exception
// on request through a private property, and registers itself with the
// audio-unit runtime in both hosting styles (entry point and factory), as a
// bundle would, so the tests can drive it through the host API.
#ifndef DISPATCHTESTUNIT_H
#define DISPATCHTESTUNIT_H

#include "AUBase.h"
#include "AUPluginDispatch.h"
#include "CAException.h"

#include <AudioUnit/AudioUnit.h>
#include <CoreServices/CoreServices.h>

#include <new>
#include <stdexcept>

// Setting this global-scope property (a u32 kind) throws; see ThrowKind.
constexpr AudioUnitPropertyID kThrowProperty = 0x74687277; // 'thrw'

enum ThrowKind : UInt32
{
    kThrowCAXException, // status -1234
    kThrowBadAlloc,
    kThrowOSStatus,       // -10878
    kThrowOSErr,          // -32767 as a 16-bit value
    kThrowPositiveStatus, // 5
    kThrowCAException,    // status -99, not passed on
    kThrowStdException,
    kThrowKindCount
};

inline OSStatus ExpectedStatus(ThrowKind inKind)
{
    switch (inKind) {
    case kThrowCAXException:
        return -1234;
    case kThrowBadAlloc:
        return memFullErr;
    case kThrowOSStatus:
        return kAudioUnitErr_InvalidParameter;
    case kThrowOSErr:
        return -32767;
    case kThrowPositiveStatus:
        return 5;
    default:
        return -1;
    }
}

class DispatchTestUnit : public AUBase
{
public:
    // Process-wide test controls and counters (tests run on one thread).
    static inline bool sThrowInConstructor = false;
    static inline bool sThrowInPostConstructor = false;
    static inline int sLiveObjects = 0;
    static inline int sPreDestructorCalls = 0;
    static inline UInt32 sTypeSeenByConstructor = 99;
    static inline DispatchTestUnit* sLastConstructed = nullptr;

    explicit DispatchTestUnit(AudioComponentInstance inInstance) : AUBase(inInstance, 1, 1, 0)
    {
        sTypeSeenByConstructor = sNewInstanceType;
        if (sThrowInConstructor) {
            throw static_cast<OSStatus>(kAudioUnitErr_FailedInitialization);
        }
        ++sLiveObjects;
        sLastConstructed = this;
    }

    ~DispatchTestUnit() override
    {
        --sLiveObjects;
        if (sLastConstructed == this) {
            sLastConstructed = nullptr;
        }
    }

    void PostConstructor() override
    {
        AUBase::PostConstructor();
        Globals()->UseIndexedParameters(2);
        if (sThrowInPostConstructor) {
            throw std::bad_alloc();
        }
    }

    void PreDestructor() override
    {
        ++sPreDestructorCalls;
        AUBase::PreDestructor();
    }

    bool StreamFormatWritable(AudioUnitScope, AudioUnitElement) override { return !mInitialized; }

    // Counts resets; chains to AUBase (which resets the render time) only
    // when mChainReset is set.
    OSStatus Reset(AudioUnitScope inScope, AudioUnitElement inElement) override
    {
        ++mResetCalls;
        return mChainReset ? AUBase::Reset(inScope, inElement) : OSStatus(noErr);
    }

    OSStatus GetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                             AudioUnitElement inElement, UInt32& outDataSize,
                             bool& outWritable) override
    {
        if (inID == kThrowProperty) {
            outDataSize = sizeof(UInt32);
            outWritable = true;
            return noErr;
        }
        return AUBase::GetPropertyInfo(inID, inScope, inElement, outDataSize, outWritable);
    }

    OSStatus SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, const void* inData, UInt32 inDataSize) override
    {
        if (inID != kThrowProperty) {
            return AUBase::SetProperty(inID, inScope, inElement, inData, inDataSize);
        }
        switch (*static_cast<const UInt32*>(inData)) {
        case kThrowCAXException:
            throw CAXException("test operation", -1234);
        case kThrowBadAlloc:
            throw std::bad_alloc();
        case kThrowOSStatus:
            throw static_cast<OSStatus>(kAudioUnitErr_InvalidParameter);
        case kThrowOSErr:
            throw static_cast<OSErr>(-32767);
        case kThrowPositiveStatus:
            throw static_cast<OSStatus>(5);
        case kThrowCAException:
            throw CAException(-99);
        default:
            throw std::runtime_error("unrelated");
        }
    }

    OSStatus LastRenderErrorForTest() const { return mLastRenderError; }

    int mResetCalls = 0;
    bool mChainReset = true;
};

constexpr OSType kDispatchTestSubtype = 0x64737074;      // 'dspt'
constexpr OSType kDispatchTestManufacturer = 0x56645473; // 'VdTs'

enum class OpenStyle
{
    kFactory,
    kEntryPoint
};

inline const char* StyleName(OpenStyle inStyle)
{
    return inStyle == OpenStyle::kFactory ? "Factory" : "EntryPoint";
}

// Defined in each test program with AU_EXPORT_COMPONENT_ENTRIES.
extern "C" OSStatus DispatchTestEntry(ComponentParameters* params, DispatchTestUnit* obj);
extern "C" AudioComponentPlugInInterface*
DispatchTestFactory(const AudioComponentDescription* inDescription);

// Registers the unit with the runtime once per process, in both styles; the
// factory first, so that AudioComponentFindNext finds it before the entry
// point (which FindNextComponent finds).
inline void RegisterDispatchTestUnit()
{
    static const bool sRegistered = [] {
        AudioComponentDescription factoryDescription = {kAudioUnitType_Effect, kDispatchTestSubtype,
                                                        kDispatchTestManufacturer, 0, 0};
        AudioComponentRegister(&factoryDescription, nullptr, 1, DispatchTestFactory);
        ComponentDescription entryDescription = {kAudioUnitType_Effect, kDispatchTestSubtype,
                                                 kDispatchTestManufacturer, 0, 0};
        RegisterComponent(&entryDescription,
                          reinterpret_cast<ComponentRoutineUPP>(DispatchTestEntry), 0, nullptr,
                          nullptr, nullptr);
        return true;
    }();
    (void)sRegistered;
}

// Opens the unit in one style through the runtime; null on failure.
inline AudioUnit OpenDispatchTestUnit(OpenStyle inStyle, OSStatus* outStatus = nullptr)
{
    RegisterDispatchTestUnit();
    AudioUnit unit = nullptr;
    OSStatus status = invalidComponentID;
    if (inStyle == OpenStyle::kEntryPoint) {
        ComponentDescription description = {kAudioUnitType_Effect, kDispatchTestSubtype,
                                            kDispatchTestManufacturer, 0, 0};
        if (Component component = FindNextComponent(nullptr, &description)) {
            status = OpenAComponent(component, &unit);
        }
    } else {
        AudioComponentDescription description = {kAudioUnitType_Effect, kDispatchTestSubtype,
                                                 kDispatchTestManufacturer, 0, 0};
        if (AudioComponent component = AudioComponentFindNext(nullptr, &description)) {
            status = AudioComponentInstanceNew(component, &unit);
        }
    }
    if (outStatus != nullptr) {
        *outStatus = status;
    }
    return unit;
}

#endif
