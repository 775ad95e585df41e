/*
 * One open instance of a component, whichever way it was opened. The same
 * record is the ComponentInstance of the Component Manager and the
 * AudioComponentInstance / AudioUnit of the audio-component API, so a host
 * may pass an instance opened one way to the calls of the other.
 *
 * Two styles:
 * - Factory: the component's factory made a plug-in instance record; calls go
 *   to the methods its Lookup handed out, as method(record, args...). The
 *   methods are looked up once, at open, so that routing a call later is a
 *   table read.
 * - Entry point: calls go to the component's entry function as a parameter
 *   block (slot 0 the instance, then the arguments, 32-bit values in the low
 *   4 bytes of their 8-byte slot) together with the instance's storage word.
 *
 * Routing allocates nothing and takes no lock, so the calls a host makes on
 * its audio thread stay real-time safe.
 */
#ifndef AUDIOUNIT_COMPONENTINSTANCERECORD_H
#define AUDIOUNIT_COMPONENTINSTANCERECORD_H

#include <AudioUnit/AudioUnit.h>

#include <cstring>
#include <type_traits>

struct RegisteredComponent;

struct ComponentInstanceRecord
{
public:
    enum class Style
    {
        kFactory,
        kEntryPoint
    };

    /* Opens an instance of component in the given style (the component must
       have the function that style needs). On success *outInstance owns the
       plug-in's instance; on failure it is null and the plug-in's status (or
       memFullErr when the runtime or the factory cannot allocate) comes back.
       [control] */
    static OSStatus Open(RegisteredComponent* component, Style style,
                         ComponentInstanceRecord** outInstance);

    /* Closes the plug-in's instance and deletes this record; returns the
       plug-in's close status. [control] */
    OSStatus Close();

    /* Routes one audio-unit call, given as its selector and the host call's
       arguments after the instance. badComponentSelector when the plug-in
       does not answer the selector. [render] */
    template <typename... Args> OSStatus Call(SInt16 selector, Args... args)
    {
        if (mStyle == Style::kFactory) {
            AudioComponentMethod method = MethodFor(selector);
            if (method == nullptr) {
                return badComponentSelector;
            }
            using Method = OSStatus (*)(void*, Args...);
            return reinterpret_cast<Method>(method)(mPlugIn, args...);
        }
        return CallEntry(selector, args...);
    }

    RegisteredComponent* GetComponent() const { return mComponent; }
    Handle GetStorage() const { return mStorage; }
    void SetStorage(Handle storage) { mStorage = storage; }

private:
    /* Highest audio-unit selector whose method is looked up at open. */
    static constexpr SInt16 kMaxSelector = kAudioUnitRemovePropertyListenerWithUserDataSelect;

    ComponentInstanceRecord(RegisteredComponent* component, Style style);

    AudioComponentMethod MethodFor(SInt16 selector) const
    {
        return (selector >= 0 && selector <= kMaxSelector) ? mMethods[selector] : nullptr;
    }

    template <typename... Args> OSStatus CallEntry(SInt16 selector, Args... args)
    {
        constexpr unsigned kSlots = 1 + sizeof...(Args);
        alignas(ComponentParameters) unsigned char
            block[offsetof(ComponentParameters, params) + 8 * kSlots];
        std::memset(block, 0, sizeof(block));
        ComponentParameters* params = reinterpret_cast<ComponentParameters*>(block);
        params->what = selector;
        params->paramSize = static_cast<UInt8>(8 * sizeof...(Args));
        unsigned slot = 0;
        PutSlot(block, slot++, this);
        (PutSlot(block, slot++, args), ...);
        return EntryCall(params);
    }

    /* Stores one argument in slot index: pointers fill the slot, 32-bit
       values take its low 4 bytes (the first 4 on this little-endian
       machine), the rest stays zero. */
    template <typename T> static void PutSlot(unsigned char* block, unsigned index, T value)
    {
        static_assert(std::is_trivially_copyable<T>::value && (sizeof(T) == 4 || sizeof(T) == 8),
                      "slot arguments are 32-bit values or pointers");
        static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__,
                      "the low bytes of a slot come first in memory");
        std::memcpy(block + offsetof(ComponentParameters, params) + 8 * index, &value, sizeof(T));
    }

    OSStatus EntryCall(ComponentParameters* params);
    OSStatus OpenFactory();
    OSStatus OpenEntryPoint();

    RegisteredComponent* mComponent;
    Style mStyle;
    AudioComponentPlugInInterface* mPlugIn = nullptr;
    Handle mStorage = nullptr;
    AudioComponentMethod mMethods[kMaxSelector + 1] = {};
};

#endif /* AUDIOUNIT_COMPONENTINSTANCERECORD_H */
