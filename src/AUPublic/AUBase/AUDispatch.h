// The C boundary of a unit: the selector-level glue shared by both hosting
// styles, the fast-dispatch entries, and the one place where exceptions turn
// into statuses.
//
// Why: deep inside the framework a failure is thrown (a bare OSStatus, an
// OSErr, std::bad_alloc, a CAXException); nothing may cross into the host.
// Every entry (component entry point, factory methods, fast-dispatch entries,
// open and close) catches everything and asks CurrentExceptionStatus for the
// status, so the conversion table exists exactly once. The property glue
// (size queries, short buffers, removal) is shared by the selector table of
// AUBase::ComponentEntryDispatch and the factory's methods.
#ifndef AUDISPATCH_H
#define AUDISPATCH_H

#include <AudioUnit/AudioUnit.h>

class AUBase;

namespace AUDispatch {

// Must be called from inside a catch handler. Rethrows the exception being
// handled and returns its status: a CAXException's own status, -108 for
// std::bad_alloc, a thrown OSStatus as is, a thrown OSErr sign-extended, and -1
// for anything else (CAException included). [any]
OSStatus CurrentExceptionStatus() noexcept;

// CurrentExceptionStatus for an exception that ended an open: an open that
// threw never succeeds, so an exception carrying noErr gives -1. [control]
OSStatus OpenFailureStatus() noexcept;

// Property info: writes the size and writability for each non-null pointer,
// whatever the result; when the property layer fails without setting them,
// the values written are 0 and false. Returns the property layer's status.
// May throw. [control]
OSStatus GetPropertyInfo(AUBase& inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                         AudioUnitElement inElement, UInt32* outDataSize, Boolean* outWritable);

// Property get: null ioDataSize -> paramErr; null outData is a size query;
// *ioDataSize 0 -> paramErr. A buffer smaller than the property gets the
// first *ioDataSize bytes (size left as asked); otherwise *ioDataSize becomes
// the property's size. A buffer at any address works. On failure *ioDataSize
// is 0. May throw. [control]
OSStatus GetProperty(AUBase& inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                     AudioUnitElement inElement, void* outData, UInt32* ioDataSize);

// Property set: data with a nonzero size (at any address) sets, null data
// with size 0 removes the value, anything else is paramErr. May throw.
// [control]
OSStatus SetProperty(AUBase& inUnit, AudioUnitPropertyID inID, AudioUnitScope inScope,
                     AudioUnitElement inElement, const void* inData, UInt32 inDataSize);

// Render: null time stamp or buffer list -> paramErr without touching the
// unit; null flags read as a local 0. Statuses as AUBase::DoRender. [render]
OSStatus Render(AUBase& inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber, UInt32 inNumberFrames,
                AudioBufferList* ioData);

} // namespace AUDispatch

// Fast-dispatch entries handed to component-manager hosts through the fast
// dispatch property. The first argument is the unit itself (the component's
// instance storage, an AUBase), typed as the platform's fast-dispatch
// procedures type it; a null unit gives paramErr. Exceptions are converted.

// Render without the selector dispatcher; see AUDispatch::Render. [render]
OSStatus CMgr_AudioUnitBaseRender(void* inUnit, AudioUnitRenderActionFlags* ioActionFlags,
                                  const AudioTimeStamp* inTimeStamp, UInt32 inOutputBusNumber,
                                  UInt32 inNumberFrames, AudioBufferList* ioData);

// A parameter's current value; null outValue -> paramErr; unknown parameter,
// scope or element give the unit's status. [render]
OSStatus CMgr_AudioUnitBaseGetParameter(void* inUnit, AudioUnitParameterID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        AudioUnitParameterValue* outValue);

// Sets a parameter, effective at the given frame offset of the next render
// where the unit supports it. [render]
OSStatus CMgr_AudioUnitBaseSetParameter(void* inUnit, AudioUnitParameterID inID,
                                        AudioUnitScope inScope, AudioUnitElement inElement,
                                        AudioUnitParameterValue inValue,
                                        UInt32 inBufferOffsetInFrames);

#endif
