#include "ComponentInstanceRecord.h"

#include "ComponentRegistry.h"

#include <new>

ComponentInstanceRecord::ComponentInstanceRecord(RegisteredComponent* component, Style style)
    : mComponent(component), mStyle(style)
{
}

OSStatus ComponentInstanceRecord::Open(RegisteredComponent* component, Style style,
                                       ComponentInstanceRecord** outInstance)
{
    *outInstance = nullptr;
    ComponentInstanceRecord* instance =
        new (std::nothrow) ComponentInstanceRecord(component, style);
    if (instance == nullptr) {
        return memFullErr;
    }
    // Known before the plug-in's open runs, so that the plug-in may already
    // ask for its component's description.
    ComponentRegistry& registry = ComponentRegistry::Shared();
    if (!registry.AddInstance(instance)) {
        delete instance;
        return memFullErr;
    }
    OSStatus status =
        (style == Style::kFactory) ? instance->OpenFactory() : instance->OpenEntryPoint();
    if (status != noErr) {
        registry.ClaimInstance(instance);
        delete instance;
        return status;
    }
    *outInstance = instance;
    return noErr;
}

OSStatus ComponentInstanceRecord::OpenFactory()
{
    mPlugIn = mComponent->mFactory(&mComponent->mDescription);
    if (mPlugIn == nullptr) {
        // The factory's only way to fail is to have no memory for the record.
        return memFullErr;
    }
    // A plug-in whose open fails releases its record itself.
    OSStatus status = mPlugIn->Open(mPlugIn, this);
    if (status != noErr) {
        mPlugIn = nullptr;
        return status;
    }
    for (SInt16 selector = 0; selector <= kMaxSelector; ++selector) {
        mMethods[selector] = mPlugIn->Lookup(selector);
    }
    return noErr;
}

OSStatus ComponentInstanceRecord::OpenEntryPoint()
{
    return CallEntry(kComponentOpenSelect);
}

OSStatus ComponentInstanceRecord::Close()
{
    OSStatus status =
        (mStyle == Style::kFactory) ? mPlugIn->Close(mPlugIn) : CallEntry(kComponentCloseSelect);
    delete this;
    return status;
}

// Entry functions are declared with the plug-in's own storage type in place
// of Handle (the same single pointer), so the call's function-type check is
// off here alone.
#if defined(__clang__)
__attribute__((no_sanitize("function")))
#endif
OSStatus
ComponentInstanceRecord::EntryCall(ComponentParameters* params)
{
    return mComponent->mEntry(params, mStorage);
}
