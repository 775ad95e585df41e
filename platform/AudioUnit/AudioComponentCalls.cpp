/* The audio-component C API: thin trampolines over the registry and the
   instance record. Nothing thrown inside crosses back into the host. */
#include "ComponentInstanceRecord.h"
#include "ComponentRegistry.h"

#include <new>

namespace {

RegisteredComponent* KnownComponent(AudioComponent component)
{
    return (component != nullptr && ComponentRegistry::Shared().IsComponent(component))
               ? reinterpret_cast<RegisteredComponent*>(component)
               : nullptr;
}

} // namespace

extern "C" {

AudioComponent AudioComponentFindNext(AudioComponent inComponent,
                                      const AudioComponentDescription* inDesc)
{
    try {
        return reinterpret_cast<AudioComponent>(ComponentRegistry::Shared().FindNext(
            reinterpret_cast<const RegisteredComponent*>(inComponent), inDesc, false));
    } catch (const std::exception&) {
        return nullptr;
    }
}

UInt32 AudioComponentCount(const AudioComponentDescription* inDesc)
{
    try {
        return ComponentRegistry::Shared().Count(inDesc);
    } catch (const std::exception&) {
        return 0;
    }
}

OSStatus AudioComponentCopyName(AudioComponent inComponent, CFStringRef* outName)
{
    RegisteredComponent* component = KnownComponent(inComponent);
    if (component == nullptr || outName == nullptr) {
        return paramErr;
    }
    *outName = (component->mName != nullptr)
                   ? static_cast<CFStringRef>(CFRetain(component->mName))
                   : CFStringCreateWithCString(kCFAllocatorDefault, "", kCFStringEncodingUTF8);
    return (*outName != nullptr) ? noErr : memFullErr;
}

OSStatus AudioComponentGetDescription(AudioComponent inComponent,
                                      AudioComponentDescription* outDesc)
{
    RegisteredComponent* component = KnownComponent(inComponent);
    if (component == nullptr || outDesc == nullptr) {
        return paramErr;
    }
    *outDesc = component->mDescription;
    return noErr;
}

OSStatus AudioComponentGetVersion(AudioComponent inComponent, UInt32* outVersion)
{
    RegisteredComponent* component = KnownComponent(inComponent);
    if (component == nullptr || outVersion == nullptr) {
        return paramErr;
    }
    *outVersion = component->mVersion;
    return noErr;
}

AudioComponent AudioComponentRegister(const AudioComponentDescription* inDesc, CFStringRef inName,
                                      UInt32 inVersion, AudioComponentFactoryFunction inFactory)
{
    if (inDesc == nullptr || inFactory == nullptr) {
        return nullptr;
    }
    return reinterpret_cast<AudioComponent>(
        ComponentRegistry::Shared().Add(*inDesc, inName, inVersion, inFactory, nullptr));
}

OSStatus AudioComponentRegisterBundle(const char* bundlePath)
{
    try {
        return ComponentRegistry::Shared().AddBundle(bundlePath);
    } catch (const std::bad_alloc&) {
        return memFullErr;
    } catch (const std::exception&) {
        return kAudioUnitErr_InvalidFile;
    }
}

OSStatus AudioComponentInstanceNew(AudioComponent inComponent, AudioComponentInstance* outInstance)
{
    if (outInstance == nullptr) {
        return paramErr;
    }
    *outInstance = nullptr;
    RegisteredComponent* component = KnownComponent(inComponent);
    if (component == nullptr) {
        return paramErr;
    }
    ComponentInstanceRecord::Style style = (component->mFactory != nullptr)
                                               ? ComponentInstanceRecord::Style::kFactory
                                               : ComponentInstanceRecord::Style::kEntryPoint;
    return ComponentInstanceRecord::Open(component, style, outInstance);
}

OSStatus AudioComponentInstanceDispose(AudioComponentInstance inInstance)
{
    if (inInstance == nullptr || !ComponentRegistry::Shared().ClaimInstance(inInstance)) {
        return paramErr;
    }
    return inInstance->Close();
}

AudioComponent AudioComponentInstanceGetComponent(AudioComponentInstance inInstance)
{
    return (inInstance != nullptr) ? reinterpret_cast<AudioComponent>(inInstance->GetComponent())
                                   : nullptr;
}

} // extern "C"
