#include "ComponentBase.h"

#include "AUDispatch.h"

#include <dlfcn.h>

#include <cstdlib>

// The run-time look-ups open the platform's frameworks on the desktop and the
// audio-unit runtime library (which carries both the component manager and
// the audio-component functions) elsewhere. Nothing else differs.
#ifdef __APPLE__
static const char* const kCoreServicesLibraryPath =
    "/System/Library/Frameworks/CoreServices.framework/CoreServices";
static const char* const kAudioUnitLibraryPath =
    "/System/Library/Frameworks/AudioUnit.framework/AudioUnit";
#else
static const char* const kCoreServicesLibraryPath = "libAudioUnit.so";
static const char* const kAudioUnitLibraryPath = "libAudioUnit.so";
#endif

UInt32 ComponentBase::sNewInstanceType = ComponentBase::kComponentMgrInstance;

pthread_mutex_t ComponentInitLocker::sComponentOpenMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_once_t ComponentInitLocker::sOnce = PTHREAD_ONCE_INIT;

namespace {

using GetComponentInstanceStorageProc = Handle (*)(ComponentInstance);
using SetComponentInstanceStorageProc = void (*)(ComponentInstance, Handle);
using GetComponentInfoProc = OSErr (*)(Component, ComponentDescription*, Handle, Handle, Handle);
using AudioComponentInstanceGetComponentProc = AudioComponent (*)(AudioComponentInstance);
using AudioComponentGetDescriptionProc = OSStatus (*)(AudioComponent, AudioComponentDescription*);

GetComponentInstanceStorageProc sGetComponentInstanceStorageProc = nullptr;
SetComponentInstanceStorageProc sSetComponentInstanceStorageProc = nullptr;
GetComponentInfoProc sGetComponentInfoProc = nullptr;

AudioComponentInstanceGetComponentProc sAudioComponentInstanceGetComponentProc = nullptr;
AudioComponentGetDescriptionProc sAudioComponentGetDescriptionProc = nullptr;

template <typename Proc> Proc LookUp(void* inLibrary, const char* inName)
{
    return reinterpret_cast<Proc>(dlsym(inLibrary, inName));
}

// The library handles stay open for the life of the process: the looked-up
// functions are used until exit.
bool LoadComponentManagerProcs()
{
    void* library = dlopen(kCoreServicesLibraryPath, RTLD_LAZY);
    if (library == nullptr) {
        return false;
    }
    sGetComponentInstanceStorageProc =
        LookUp<GetComponentInstanceStorageProc>(library, "GetComponentInstanceStorage");
    sGetComponentInfoProc = LookUp<GetComponentInfoProc>(library, "GetComponentInfo");
    sSetComponentInstanceStorageProc =
        LookUp<SetComponentInstanceStorageProc>(library, "SetComponentInstanceStorage");
    return true;
}

bool LoadAudioComponentProcs()
{
    void* library = dlopen(kAudioUnitLibraryPath, RTLD_LAZY);
    if (library == nullptr) {
        return false;
    }
    sAudioComponentInstanceGetComponentProc = LookUp<AudioComponentInstanceGetComponentProc>(
        library, "AudioComponentInstanceGetComponent");
    if (sAudioComponentInstanceGetComponentProc != nullptr) {
        sAudioComponentGetDescriptionProc =
            LookUp<AudioComponentGetDescriptionProc>(library, "AudioComponentGetDescription");
    }
    return true;
}

} // namespace

// Each look-up is tried once per process, successful or not. A function-local
// static makes the single attempt safe when two host threads race to it.
void CSInit()
{
    static const bool sDoCSLoad = LoadComponentManagerProcs();
    (void)sDoCSLoad;
}

char** CMgr_GetComponentInstanceStorage(ComponentInstance inInstance)
{
    CSInit();
    if (sGetComponentInstanceStorageProc == nullptr) {
        return nullptr;
    }
    return sGetComponentInstanceStorageProc(inInstance);
}

void CMgr_SetComponentInstanceStorage(ComponentInstance inInstance, char** inStorage)
{
    CSInit();
    if (sSetComponentInstanceStorageProc != nullptr) {
        sSetComponentInstanceStorageProc(inInstance, inStorage);
    }
}

ComponentInitLocker::ComponentInitLocker(UInt32 inNewInstanceType)
{
    pthread_once(&sOnce, InitComponentInitLocker);
    pthread_mutex_lock(&sComponentOpenMutex);
    mPreviousInstanceType = ComponentBase::sNewInstanceType;
    ComponentBase::sNewInstanceType = inNewInstanceType;
}

ComponentInitLocker::~ComponentInitLocker()
{
    ComponentBase::sNewInstanceType = mPreviousInstanceType;
    pthread_mutex_unlock(&sComponentOpenMutex);
}

// Recursive, so that a unit whose construction opens another unit (or asks
// for the lock again) does not deadlock its own thread.
void ComponentInitLocker::InitComponentInitLocker()
{
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    pthread_mutex_init(&sComponentOpenMutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
}

ComponentBase::ComponentBase(AudioComponentInstance inInstance)
    : mComponentInstance(inInstance), mInstanceType(sNewInstanceType)
{
}

ComponentBase::~ComponentBase() = default;

void ComponentBase::PostConstructor() {}

void ComponentBase::PreDestructor() {}

OSStatus ComponentBase::Version()
{
    return 1;
}

// A failed open leaves nothing behind: an object whose construction or
// PostConstructor threw is destroyed and the whole record is freed, so the host
// gets only the status. The object is never PreDestructed, since it never
// became usable.
OSStatus ComponentBase::AP_Open(void* self, AudioComponentInstance inInstance)
{
    if (self == nullptr) {
        return paramErr;
    }
    auto* record = static_cast<AudioComponentPlugInInstance*>(self);
    void* storage = AudioComponentPlugInInstanceStorage(self);
    OSStatus result = noErr;
    {
        ComponentInitLocker locker(kAudioComponentInstance);
        ComponentBase* object = nullptr;
        try {
            object = static_cast<ComponentBase*>(record->mConstruct(storage, inInstance));
            object->PostConstructor();
        } catch (...) {
            result = AUDispatch::OpenFailureStatus();
            if (object != nullptr) {
                record->mDestruct(storage);
            }
        }
    }
    if (result != noErr) {
        std::free(record);
    }
    return result;
}

OSStatus ComponentBase::AP_Close(void* self)
{
    if (self == nullptr) {
        return paramErr;
    }
    auto* record = static_cast<AudioComponentPlugInInstance*>(self);
    void* storage = AudioComponentPlugInInstanceStorage(self);
    try {
        static_cast<ComponentBase*>(storage)->PreDestructor();
        record->mDestruct(storage);
    } catch (...) {
        return AUDispatch::CurrentExceptionStatus();
    }
    std::free(record);
    return noErr;
}

SInt16 ComponentBase::GetSelectorForCanDo(ComponentParameters* params)
{
    if (params->what != kComponentCanDoSelect) {
        return 0;
    }
    return static_cast<SInt16>(static_cast<UInt16>(params->params[1]));
}

OSStatus ComponentBase::ComponentEntryDispatch(ComponentParameters* params, ComponentBase* This)
{
    if (params == nullptr || This == nullptr) {
        return paramErr;
    }
    switch (params->what) {
    case kComponentVersionSelect:
        return This->Version();
    case kComponentCanDoSelect:
        switch (GetSelectorForCanDo(params)) {
        case kComponentOpenSelect:
        case kComponentCloseSelect:
        case kComponentCanDoSelect:
        case kComponentVersionSelect:
            return 1;
        default:
            return 0;
        }
    case kComponentCloseSelect:
        This->PreDestructor();
        delete This;
        return noErr;
    default:
        return badComponentSelector;
    }
}

AudioComponentDescription ComponentBase::GetComponentDescription() const
{
    AudioComponentDescription description = {};
    if (mInstanceType == kAudioComponentInstance) {
        static const bool doneInit = LoadAudioComponentProcs();
        (void)doneInit;
        if (sAudioComponentInstanceGetComponentProc != nullptr &&
            sAudioComponentGetDescriptionProc != nullptr) {
            AudioComponent component = sAudioComponentInstanceGetComponentProc(mComponentInstance);
            if (component == nullptr ||
                sAudioComponentGetDescriptionProc(component, &description) != noErr) {
                return AudioComponentDescription{};
            }
            return description;
        }
    }
    CSInit();
    if (sGetComponentInfoProc == nullptr) {
        return description;
    }
    ComponentDescription info = {};
    if (sGetComponentInfoProc(reinterpret_cast<Component>(mComponentInstance), &info, nullptr,
                              nullptr, nullptr) != noErr) {
        return description;
    }
    static_assert(sizeof(ComponentDescription) == sizeof(AudioComponentDescription),
                  "both descriptions are five 32-bit words");
    description.componentType = info.componentType;
    description.componentSubType = info.componentSubType;
    description.componentManufacturer = info.componentManufacturer;
    description.componentFlags = info.componentFlags;
    description.componentFlagsMask = info.componentFlagsMask;
    return description;
}
