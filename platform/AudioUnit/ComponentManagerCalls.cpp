/* The Component Manager C API over the same registry and instance records as
   the audio-component API. */
#include "ComponentInstanceRecord.h"
#include "ComponentRegistry.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace {

/* Pascal strings: a length byte, then at most 255 bytes. */
constexpr size_t kMaxPascalLength = 255;

CFStringRef CreateNameFromPascal(Handle name)
{
    if (name == nullptr || *name == nullptr) {
        return nullptr;
    }
    const UInt8* bytes = reinterpret_cast<const UInt8*>(*name);
    return CFStringCreateWithBytes(kCFAllocatorDefault, bytes + 1, bytes[0], kCFStringEncodingUTF8,
                                   false);
}

void WritePascalName(CFStringRef name, Handle out)
{
    UInt8* bytes = reinterpret_cast<UInt8*>(*out);
    bytes[0] = 0;
    if (name == nullptr) {
        return;
    }
    char text[4 * kMaxPascalLength + 1];
    const char* source =
        CFStringGetCString(name, text, sizeof(text), kCFStringEncodingUTF8) ? text : "";
    size_t length = std::min(std::strlen(source), kMaxPascalLength);
    bytes[0] = static_cast<UInt8>(length);
    std::memcpy(bytes + 1, source, length);
}

AudioComponentDescription ToAudioDescription(const ComponentDescription& description)
{
    AudioComponentDescription result;
    static_assert(sizeof(result) == sizeof(description),
                  "both descriptions are five 32-bit fields");
    std::memcpy(&result, &description, sizeof(result));
    return result;
}

} // namespace

extern "C" {

Component FindNextComponent(Component aComponent, ComponentDescription* looking)
{
    try {
        AudioComponentDescription search = {};
        if (looking != nullptr) {
            search = ToAudioDescription(*looking);
        }
        return reinterpret_cast<Component>(ComponentRegistry::Shared().FindNext(
            reinterpret_cast<const RegisteredComponent*>(aComponent),
            looking != nullptr ? &search : nullptr, true));
    } catch (const std::exception&) {
        return nullptr;
    }
}

Component RegisterComponent(ComponentDescription* cd, ComponentRoutineUPP componentEntryPoint,
                            SInt16 /*global*/, Handle componentName, Handle /*componentInfo*/,
                            Handle /*componentIcon*/)
{
    if (cd == nullptr || componentEntryPoint == nullptr) {
        return nullptr;
    }
    CFStringRef name = CreateNameFromPascal(componentName);
    RegisteredComponent* component = ComponentRegistry::Shared().Add(
        ToAudioDescription(*cd), name, 0, nullptr, componentEntryPoint);
    if (name != nullptr) {
        CFRelease(name);
    }
    return reinterpret_cast<Component>(component);
}

OSErr OpenAComponent(Component aComponent, ComponentInstance* ci)
{
    if (ci == nullptr) {
        return paramErr;
    }
    *ci = nullptr;
    if (aComponent == nullptr) {
        return paramErr;
    }
    if (!ComponentRegistry::Shared().IsComponent(aComponent)) {
        return invalidComponentID;
    }
    RegisteredComponent* component = reinterpret_cast<RegisteredComponent*>(aComponent);
    if (component->mEntry == nullptr) {
        return invalidComponentID;
    }
    return static_cast<OSErr>(
        ComponentInstanceRecord::Open(component, ComponentInstanceRecord::Style::kEntryPoint, ci));
}

OSErr CloseComponent(ComponentInstance aComponentInstance)
{
    if (aComponentInstance == nullptr ||
        !ComponentRegistry::Shared().ClaimInstance(aComponentInstance)) {
        return paramErr;
    }
    return static_cast<OSErr>(aComponentInstance->Close());
}

Handle GetComponentInstanceStorage(ComponentInstance aComponentInstance)
{
    return (aComponentInstance != nullptr) ? aComponentInstance->GetStorage() : nullptr;
}

void SetComponentInstanceStorage(ComponentInstance aComponentInstance, Handle theStorage)
{
    if (aComponentInstance != nullptr) {
        aComponentInstance->SetStorage(theStorage);
    }
}

OSErr GetComponentInfo(Component aComponent, ComponentDescription* cd, Handle componentName,
                       Handle /*componentInfo*/, Handle /*componentIcon*/)
{
    ComponentRegistry& registry = ComponentRegistry::Shared();
    const RegisteredComponent* component = nullptr;
    if (aComponent != nullptr) {
        if (registry.IsComponent(aComponent)) {
            component = reinterpret_cast<const RegisteredComponent*>(aComponent);
        } else if (registry.IsInstance(aComponent)) {
            component = reinterpret_cast<ComponentInstance>(aComponent)->GetComponent();
        }
    }
    if (component == nullptr) {
        return invalidComponentID;
    }
    if (cd != nullptr) {
        std::memcpy(cd, &component->mDescription, sizeof(*cd));
    }
    if (componentName != nullptr && *componentName != nullptr) {
        WritePascalName(component->mName, componentName);
    }
    return noErr;
}

} // extern "C"
