// The two exported entry functions of a unit's bundle and what stands behind
// them.
//
// Why: a bundle exports exactly one component entry point and one factory.
// The entry point receives every component-manager call as a parameter block:
// ComponentEntryPoint<Impl> builds the unit on the open selector and routes
// all other selectors to AUBase::ComponentEntryDispatch. The factory hands
// out an instance record (see AudioComponentPlugInInstance) whose Lookup
// returns one small method per audio-unit selector; the host calls those
// methods directly with the record as `self`. Both paths build the unit under
// the process-wide open mutex and convert every exception into a status.
//
// A unit's bundle defines its two exports with one line at file scope:
//     AU_EXPORT_COMPONENT_ENTRIES(MyUnit, MyUnitEntry, MyUnitFactory)
// which defines, with C linkage and default visibility,
//     OSStatus MyUnitEntry(ComponentParameters* params, MyUnit* obj);
//     AudioComponentPlugInInterface* MyUnitFactory(const AudioComponentDescription*);
#ifndef AUPLUGINDISPATCH_H
#define AUPLUGINDISPATCH_H

#include "AUBase.h"
#include "AUDispatch.h"
#include "ComponentBase.h"

#include <cassert>
#include <cstdlib>
#include <new>

// Maps the fourteen audio-unit selectors (1-7, 9, 10, 14-18) to the methods of
// an instance record; every other selector gives null. Each method takes the
// record as `self` followed by the platform call's arguments, works on the
// unit stored in the record, and converts exceptions into statuses. A null
// `self` gives paramErr. [any]
class AUBaseLookup
{
public:
    static AudioComponentMethod Lookup(SInt16 inSelector);
};

// The factory and in-place construction of unit class Impl inside an instance
// record. Impl must derive (singly) from AUBase and be constructible from the
// host's instance handle.
template <class Lookup, class Impl> class APFactory
{
public:
    // Builds Impl in `memory` (null memory gives null). May throw. [control]
    static void* Construct(void* memory, AudioComponentInstance inInstance)
    {
        if (memory == nullptr) {
            return nullptr;
        }
        ComponentBase* object = new (memory) Impl(inInstance);
        // The methods find the unit at the start of the record's storage.
        assert(static_cast<void*>(object) == memory);
        return object;
    }

    // Runs Impl's destructor in place; the memory stays with the record.
    // [control]
    static void Destruct(void* memory) { static_cast<Impl*>(memory)->~Impl(); }

    // A fresh instance record, owned by the host until its Close frees it (or
    // until a failed Open does). Null when the record cannot be allocated: the
    // host sees that as a failed instantiation. The description is not read.
    // [control]
    static AudioComponentPlugInInterface* Factory(const AudioComponentDescription* inDescription)
    {
        (void)inDescription;
        static_assert(alignof(Impl) <= 16, "malloc alignment holds the unit");
        void* memory = std::malloc(kInstanceStorageOffset + sizeof(Impl));
        if (memory == nullptr) {
            return nullptr;
        }
        auto* record = static_cast<AudioComponentPlugInInstance*>(memory);
        record->mPlugInInterface.Open = ComponentBase::AP_Open;
        record->mPlugInInterface.Close = ComponentBase::AP_Close;
        record->mPlugInInterface.Lookup = Lookup::Lookup;
        record->mPlugInInterface.reserved = nullptr;
        record->mConstruct = Construct;
        record->mDestruct = Destruct;
        record->mPad[0] = nullptr;
        record->mPad[1] = nullptr;
        return &record->mPlugInInterface;
    }
};

// The component-manager entry of unit class Impl. `obj` is the instance
// storage the component manager keeps (null before open). The open selector
// builds Impl on the heap, runs PostConstructor and stores the object as the
// instance storage; a failure destroys the object and returns the converted
// status. Every other selector goes to AUBase::ComponentEntryDispatch. A null
// parameter block gives paramErr. [control], and [render] for the render
// selector.
template <class Impl> class ComponentEntryPoint
{
public:
    static OSStatus Dispatch(ComponentParameters* params, Impl* obj)
    {
        if (params == nullptr) {
            return paramErr;
        }
        if (params->what == kComponentOpenSelect) {
            return Open(params);
        }
        try {
            return Impl::ComponentEntryDispatch(params, obj);
        } catch (...) {
            return AUDispatch::CurrentExceptionStatus();
        }
    }

private:
    static OSStatus Open(ComponentParameters* params)
    {
        ComponentInitLocker locker(ComponentBase::kComponentMgrInstance);
        auto instance = reinterpret_cast<ComponentInstance>(params->params[0]);
        Impl* object = nullptr;
        try {
            object = new Impl(reinterpret_cast<AudioComponentInstance>(instance));
            object->PostConstructor();
        } catch (...) {
            delete object;
            return AUDispatch::OpenFailureStatus();
        }
        CMgr_SetComponentInstanceStorage(instance, reinterpret_cast<char**>(object));
        return noErr;
    }
};

#define AU_EXPORT_COMPONENT_ENTRIES(Class, EntryName, FactoryName)                                 \
    extern "C" __attribute__((visibility("default"))) OSStatus EntryName(                          \
        ComponentParameters* params, Class* obj)                                                   \
    {                                                                                              \
        return ComponentEntryPoint<Class>::Dispatch(params, obj);                                  \
    }                                                                                              \
    extern "C" __attribute__((visibility("default"))) AudioComponentPlugInInterface* FactoryName(  \
        const AudioComponentDescription* inDescription)                                            \
    {                                                                                              \
        return APFactory<AUBaseLookup, Class>::Factory(inDescription);                             \
    }

#endif
