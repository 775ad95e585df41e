#include "AUDispatch.h"

#include "AUBase.h"
#include "CAException.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

namespace {

// Arguments of a component-manager call sit in the 8-byte slots after the
// instance (slot 0): pointers fill a slot, 32-bit values sit in its low 4
// bytes. Taking the low bits by value conversion keeps this endian-neutral.
template <typename T> T SlotPointer(const ComponentParameters* inParams, int inSlot)
{
    return reinterpret_cast<T>(inParams->params[inSlot]);
}

UInt32 SlotUInt32(const ComponentParameters* inParams, int inSlot)
{
    return static_cast<UInt32>(inParams->params[inSlot]);
}

Float32 SlotFloat32(const ComponentParameters* inParams, int inSlot)
{
    const UInt32 bits = SlotUInt32(inParams, inSlot);
    Float32 value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

// Property values are structures of 4- and 8-byte fields at most.
constexpr size_t kValueAlignment = 8;
// Values up to this size are copied on the stack, so that setting a small
// property from a render thread (a host toggling bypass) allocates nothing.
constexpr size_t kStackValueBytes = 256;

// True when a property value at p may be used in place as any structure.
bool Aligned(const void* p)
{
    return reinterpret_cast<uintptr_t>(p) % kValueAlignment == 0;
}

} // namespace

OSStatus AUDispatch::CurrentExceptionStatus() noexcept
{
    try {
        throw;
    } catch (const CAXException& e) {
        return e.GetError();
    } catch (const std::bad_alloc&) {
        return memFullErr;
    } catch (OSStatus status) {
        return status;
    } catch (OSErr status) {
        return status;
    } catch (...) {
        return -1;
    }
}

OSStatus AUDispatch::OpenFailureStatus() noexcept
{
    const OSStatus status = CurrentExceptionStatus();
    return status == noErr ? -1 : status;
}

OSStatus AUDispatch::GetPropertyInfo(AUBase& inUnit, AudioUnitPropertyID inID,
                                     AudioUnitScope inScope, AudioUnitElement inElement,
                                     UInt32* outDataSize, Boolean* outWritable)
{
    UInt32 dataSize = 0;
    bool writable = false;
    const OSStatus result =
        inUnit.DispatchGetPropertyInfo(inID, inScope, inElement, dataSize, writable);
    if (outDataSize != nullptr) {
        *outDataSize = dataSize;
    }
    if (outWritable != nullptr) {
        *outWritable = writable;
    }
    return result;
}

OSStatus AUDispatch::GetProperty(AUBase& inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, void* outData, UInt32* ioDataSize)
{
    if (ioDataSize == nullptr) {
        return paramErr;
    }
    UInt32 actualSize = 0;
    bool writable = false;
    if (outData == nullptr) {
        const OSStatus result =
            inUnit.DispatchGetPropertyInfo(inID, inScope, inElement, actualSize, writable);
        *ioDataSize = actualSize;
        return result;
    }
    const UInt32 requestedSize = *ioDataSize;
    if (requestedSize == 0) {
        return paramErr;
    }
    OSStatus result =
        inUnit.DispatchGetPropertyInfo(inID, inScope, inElement, actualSize, writable);
    if (result != noErr) {
        return result;
    }
    // The property layer writes the whole value, and works on it in place as
    // a structure, so a short or misaligned caller buffer gets a full-size
    // aligned temporary, starting with the caller's bytes (some properties
    // read their input from them), and then the first bytes of it.
    std::unique_ptr<char[]> temporary;
    void* destination = outData;
    if (requestedSize < actualSize || !Aligned(outData)) {
        temporary.reset(new char[std::max(actualSize, requestedSize)]());
        std::memcpy(temporary.get(), outData, std::min(actualSize, requestedSize));
        destination = temporary.get();
    }
    result = inUnit.DispatchGetProperty(inID, inScope, inElement, destination);
    if (result != noErr) {
        *ioDataSize = 0;
        return result;
    }
    if (temporary) {
        std::memcpy(outData, temporary.get(), std::min(actualSize, requestedSize));
    }
    if (requestedSize >= actualSize) {
        *ioDataSize = actualSize;
    }
    return noErr;
}

OSStatus AUDispatch::SetProperty(AUBase& inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                                 AudioUnitElement inElement, const void* inData, UInt32 inDataSize)
{
    if (inData != nullptr && inDataSize != 0) {
        // The property layer reads structures in place: a misaligned value is
        // read from an aligned copy.
        alignas(kValueAlignment) char small[kStackValueBytes];
        std::unique_ptr<char[]> copy;
        if (!Aligned(inData)) {
            char* aligned = small;
            if (inDataSize > sizeof small) {
                copy.reset(new char[inDataSize]);
                aligned = copy.get();
            }
            std::memcpy(aligned, inData, inDataSize);
            inData = aligned;
        }
        return inUnit.DispatchSetProperty(inID, inScope, inElement, inData, inDataSize);
    }
    if (inData == nullptr && inDataSize == 0) {
        return inUnit.DispatchRemovePropertyValue(inID, inScope, inElement);
    }
    return paramErr;
}

OSStatus AUDispatch::Render(AUBase& inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                            const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                            UInt32 inNumberFrames, AudioBufferList* ioData)
{
    if (inTimeStamp == nullptr || ioData == nullptr) {
        return paramErr;
    }
    AudioUnitRenderActionFlags localFlags = 0;
    if (ioActionFlags == nullptr) {
        ioActionFlags = &localFlags;
    }
    return inUnit.DoRender(*ioActionFlags, *inTimeStamp, inOutputBusNumber, inNumberFrames,
                           *ioData);
}

OSStatus AUBase::ComponentEntryDispatch(ComponentParameters* params, AUBase* This)
{
    if (params == nullptr || This == nullptr) {
        return paramErr;
    }
    switch (params->what) {
    case kComponentCanDoSelect:
        switch (GetSelectorForCanDo(params)) {
        case kAudioUnitInitializeSelect:
        case kAudioUnitUninitializeSelect:
        case kAudioUnitGetPropertyInfoSelect:
        case kAudioUnitGetPropertySelect:
        case kAudioUnitSetPropertySelect:
        case kAudioUnitGetParameterSelect:
        case kAudioUnitSetParameterSelect:
        case kAudioUnitResetSelect:
        case kAudioUnitAddPropertyListenerSelect:
        case kAudioUnitRenderSelect:
        case kAudioUnitAddRenderNotifySelect:
        case kAudioUnitRemoveRenderNotifySelect:
        case kAudioUnitScheduleParametersSelect:
        case kAudioUnitRemovePropertyListenerWithUserDataSelect:
            return 1;
        default:
            return ComponentBase::ComponentEntryDispatch(params, This);
        }
    case kAudioUnitInitializeSelect:
        return This->DoInitialize();
    case kAudioUnitUninitializeSelect:
        This->DoCleanup();
        return noErr;
    case kAudioUnitGetPropertyInfoSelect:
        return AUDispatch::GetPropertyInfo(*This, SlotUInt32(params, 1), SlotUInt32(params, 2),
                                           SlotUInt32(params, 3), SlotPointer<UInt32*>(params, 4),
                                           SlotPointer<Boolean*>(params, 5));
    case kAudioUnitGetPropertySelect:
        return AUDispatch::GetProperty(*This, SlotUInt32(params, 1), SlotUInt32(params, 2),
                                       SlotUInt32(params, 3), SlotPointer<void*>(params, 4),
                                       SlotPointer<UInt32*>(params, 5));
    case kAudioUnitSetPropertySelect:
        return AUDispatch::SetProperty(*This, SlotUInt32(params, 1), SlotUInt32(params, 2),
                                       SlotUInt32(params, 3), SlotPointer<const void*>(params, 4),
                                       SlotUInt32(params, 5));
    case kAudioUnitGetParameterSelect: {
        auto* outValue = SlotPointer<AudioUnitParameterValue*>(params, 4);
        if (outValue == nullptr) {
            return paramErr;
        }
        return This->GetParameter(SlotUInt32(params, 1), SlotUInt32(params, 2),
                                  SlotUInt32(params, 3), *outValue);
    }
    case kAudioUnitSetParameterSelect:
        return This->SetParameter(SlotUInt32(params, 1), SlotUInt32(params, 2),
                                  SlotUInt32(params, 3), SlotFloat32(params, 4),
                                  SlotUInt32(params, 5));
    case kAudioUnitResetSelect:
        This->ResetRenderTime();
        return This->Reset(SlotUInt32(params, 1), SlotUInt32(params, 2));
    case kAudioUnitAddPropertyListenerSelect:
        return This->AddPropertyListener(SlotUInt32(params, 1),
                                         SlotPointer<AudioUnitPropertyListenerProc>(params, 2),
                                         SlotPointer<void*>(params, 3));
    case kAudioUnitRenderSelect:
        return AUDispatch::Render(*This, SlotPointer<AudioUnitRenderActionFlags*>(params, 1),
                                  SlotPointer<const AudioTimeStamp*>(params, 2),
                                  SlotUInt32(params, 3), SlotUInt32(params, 4),
                                  SlotPointer<AudioBufferList*>(params, 5));
    case kAudioUnitAddRenderNotifySelect:
        return This->SetRenderNotification(SlotPointer<AURenderCallback>(params, 1),
                                           SlotPointer<void*>(params, 2));
    case kAudioUnitRemoveRenderNotifySelect:
        return This->RemoveRenderNotification(SlotPointer<AURenderCallback>(params, 1),
                                              SlotPointer<void*>(params, 2));
    case kAudioUnitScheduleParametersSelect:
        return This->ScheduleParameter(SlotPointer<const AudioUnitParameterEvent*>(params, 1),
                                       SlotUInt32(params, 2));
    case kAudioUnitRemovePropertyListenerWithUserDataSelect:
        return This->RemovePropertyListener(SlotUInt32(params, 1),
                                            SlotPointer<AudioUnitPropertyListenerProc>(params, 2),
                                            SlotPointer<void*>(params, 3), true);
    default:
        return ComponentBase::ComponentEntryDispatch(params, This);
    }
}

OSStatus CMgr_AudioUnitBaseRender(void* inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                                  const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                                  UInt32 inNumberFrames, AudioBufferList* ioData)
{
    AUBase* This = static_cast<AUBase*>(inUnit);
    if (This == nullptr) {
        return paramErr;
    }
    try {
        return AUDispatch::Render(*This, ioActionFlags, inTimeStamp, inOutputBusNumber,
                                  inNumberFrames, ioData);
    } catch (...) {
        return AUDispatch::CurrentExceptionStatus();
    }
}

OSStatus CMgr_AudioUnitBaseGetParameter(void* inUnit, AudioUnitParameterID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        AudioUnitParameterValue* outValue)
{
    AUBase* This = static_cast<AUBase*>(inUnit);
    if (This == nullptr || outValue == nullptr) {
        return paramErr;
    }
    try {
        return This->GetParameter(inID, inScope, inElement, *outValue);
    } catch (...) {
        return AUDispatch::CurrentExceptionStatus();
    }
}

OSStatus CMgr_AudioUnitBaseSetParameter(void* inUnit, AudioUnitParameterID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        AudioUnitParameterValue inValue,
                                        UInt32 inBufferOffsetInFrames)
{
    AUBase* This = static_cast<AUBase*>(inUnit);
    if (This == nullptr) {
        return paramErr;
    }
    try {
        return This->SetParameter(inID, inScope, inElement, inValue, inBufferOffsetInFrames);
    } catch (...) {
        return AUDispatch::CurrentExceptionStatus();
    }
}
