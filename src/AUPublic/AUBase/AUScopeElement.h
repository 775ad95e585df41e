// Elements and scopes: where a unit keeps its parameter values, buses and bus
// names.
//
// Why: every parameter, bus and bus name of a unit lives in an element, and
// every element belongs to one of the unit's scopes (global, input, output,
// group). A scope owns its elements and creates them through the unit's
// CreateElement, so that a unit decides which element class each scope gets
// (input and output scopes get IO elements with a stream format and buffers).
//
// An element stores its parameters either sparsely (an ordered map keyed by
// parameter ID, the default) or densely (an array indexed by ID, chosen once
// with UseIndexedParameters). The dense form keeps every parameter read on the
// render thread a plain array access; the map exists for units whose IDs are
// sparse. Each parameter is a ParameterMapEvent whose first value is the
// current value, so a scheduled ramp and a plain value share one record.
//
// Parameter values are single 32-bit floats written on control threads and
// read on the render thread without a lock: each access is one aligned store
// or load.
#ifndef AUSCOPEELEMENT_H
#define AUSCOPEELEMENT_H

#include <AudioUnit/AudioUnit.h>
#include <CoreFoundation/CoreFoundation.h>

#include <map>
#include <vector>

class AUBase;
class AUIOElement;

// One stored parameter: the current value, or the last scheduled event that
// wrote it (immediate or a linear ramp within the current slice). 24 bytes.
class ParameterMapEvent
{
public:
    // Immediate, every frame field 0, value 0.0. [any]
    ParameterMapEvent();
    // Immediate, offset and durations 0, both values inValue. [any]
    explicit ParameterMapEvent(AudioUnitParameterValue inValue);

    // Sets a plain value: immediate, both values inValue; the frame fields keep
    // what they held. [any]
    void SetValue(AudioUnitParameterValue inValue);

    // Fills the record from a scheduled event applied to the slice that starts
    // inSliceOffsetInBuffer frames into the render and lasts
    // inSliceDurationFrames. An immediate event spans the whole slice at offset
    // 0; any other type is taken as a ramp, its offset rebased to the slice
    // (negative when the ramp began in an earlier slice). [render]
    void SetScheduledEvent(const AudioUnitParameterEvent& inEvent, UInt32 inSliceOffsetInBuffer,
                           UInt32 inSliceDurationFrames);

    // The current value (a ramp's start value while a ramp is stored). [any]
    AudioUnitParameterValue GetValue() const { return mValue1; }

    // The fields of the last value or event written (offset relative to its
    // slice, durations in frames). [any]
    AUParameterEventType GetEventType() const { return mEventType; }
    SInt32 GetBufferOffset() const { return mBufferOffset; }
    UInt32 GetDurationInFrames() const { return mDurationInFrames; }
    AudioUnitParameterValue GetStartValue() const { return mValue1; }
    AudioUnitParameterValue GetEndValue() const { return mValue2; }
    UInt32 GetSliceDurationFrames() const { return mSliceDurationFrames; }

private:
    AUParameterEventType mEventType;
    SInt32 mBufferOffset;
    UInt32 mDurationInFrames;
    AudioUnitParameterValue mValue1;
    AudioUnitParameterValue mValue2;
    UInt32 mSliceDurationFrames;
};

// A parameter container: one bus, the global element, or a group element.
// Owned by its scope; knows its unit only to read the initialized flag.
class AUElement
{
public:
    // Empty sparse storage, no name. [control]
    explicit AUElement(AUBase* inAudioUnit);

    AUElement(const AUElement&) = delete;
    AUElement& operator=(const AUElement&) = delete;

    // Virtual operations, in this slot order: destructors,
    // GetNumberOfParameters, GetParameterList, UseIndexedParameters,
    // AsIOElement.

    // Releases the name. [control]
    virtual ~AUElement();
    // Number of stored parameters (array length when indexed). [any]
    virtual UInt32 GetNumberOfParameters();
    // Writes GetNumberOfParameters() IDs to outList (0..n-1 when indexed, the
    // map's keys in ascending order otherwise); the caller provides the room.
    // [control]
    virtual void GetParameterList(AudioUnitParameterID* outList);
    // Switches to dense storage for good and sizes it to inNumberOfParameters
    // records (existing ones kept, new ones default, surplus dropped). The map
    // is left as it is and no longer consulted. [control]
    virtual void UseIndexedParameters(int inNumberOfParameters);
    // This element as an IO element (bus), or null for a plain element. [any]
    virtual AUIOElement* AsIOElement();

    // Current value of parameter inID; throws kAudioUnitErr_InvalidParameter
    // (-10878) when the element does not store it. [any]
    AudioUnitParameterValue GetParameter(AudioUnitParameterID inID) const
    {
        // Dense storage, read at every render and every slice, is inline.
        if (mUseIndexedParameters && inID < mIndexedParameters.size()) {
            return mIndexedParameters[inID].GetValue();
        }
        return GetParameterEvent(inID).GetValue();
    }
    // The whole stored record of inID (value and last scheduled event); throws
    // -10878 when missing. [any]
    const ParameterMapEvent& GetParameterEvent(AudioUnitParameterID inID) const;

    // Sets a plain value. Indexed: an ID past the array throws -10878. Sparse:
    // an existing record is updated; a new ID is created only while the unit is
    // uninitialized (or inOkWhenInitialized), otherwise silently ignored.
    // [any: no allocation for an existing record]
    void SetParameter(AudioUnitParameterID inID, AudioUnitParameterValue inValue,
                      bool inOkWhenInitialized = false);
    // Writes a scheduled event into the record of inID (see
    // ParameterMapEvent::SetScheduledEvent), with the same storage rules and
    // errors as SetParameter. [render: the framework never creates records here
    // on an initialized unit, so nothing is allocated]
    void SetScheduledEvent(AudioUnitParameterID inID, const AudioUnitParameterEvent& inEvent,
                           UInt32 inSliceOffsetInBuffer, UInt32 inSliceDurationFrames,
                           bool inOkWhenInitialized = false);

    // The element's name; null when none. Borrowed: the element keeps its
    // reference. [control]
    CFStringRef GetName() const { return mElementName; }
    // Replaces the name (null allowed); retains the new one, releases the old.
    // [control]
    void SetName(CFStringRef inName);
    // True when the element has a name. [control]
    bool HasName() const { return mElementName != nullptr; }

    // Appends the parameter count and the (ID, value bits) entries to inData,
    // each a big-endian 32-bit word. [control]
    void SaveState(CFMutableDataRef inData);
    // Reads a count and that many entries at inState and sets each parameter as
    // SetParameter(id, value, false) does; returns the pointer past the last
    // entry. The caller has checked that the count and entries lie inside its
    // data. Throws -10878 for an ID past an indexed array. [control]
    const UInt8* RestoreState(const UInt8* inState);

    // The owning unit; borrowed. [any]
    AUBase* GetAudioUnit() const { return mAudioUnit; }

private:
    // The stored record of inID, or null for a sparse element without it;
    // throws -10878 for an ID past an indexed array.
    const ParameterMapEvent* FindParameter(AudioUnitParameterID inID) const;
    ParameterMapEvent* FindParameter(AudioUnitParameterID inID);
    bool MayCreateParameter(bool inOkWhenInitialized) const;

    AUBase* mAudioUnit;
    std::map<AudioUnitParameterID, ParameterMapEvent> mParameters;
    bool mUseIndexedParameters;
    std::vector<ParameterMapEvent> mIndexedParameters;
    CFStringRef mElementName;
};

// The elements of one scope of a unit, indexed from 0 with no gaps. Owns them.
class AUScope
{
public:
    // Element indices above this are never created from saved names: a saved
    // state names elements of scopes that hold a few buses, and a larger index
    // would make a restore allocate without bound.
    static constexpr UInt32 kMaxRestoredElements = 1024;

    // No creator, global scope identifier, no elements. [control]
    AUScope();
    // Destroys every element in index order. [control]
    ~AUScope();

    AUScope(const AUScope&) = delete;
    AUScope& operator=(const AUScope&) = delete;

    // Sets who creates the elements and which scope this is, then creates
    // inNumElements elements (throws as SetNumberOfElements). [control]
    void Initialize(AUBase* inCreator, AudioUnitScope inScope, UInt32 inNumElements);

    // Elements in the scope. [any]
    UInt32 GetNumberOfElements() const { return static_cast<UInt32>(mElements.size()); }
    // Element inElement, or null past the end. Borrowed. [any]
    AUElement* GetElement(UInt32 inElement) const
    {
        return inElement < mElements.size() ? mElements[inElement] : nullptr;
    }
    // As GetElement, but a missing element throws kAudioUnitErr_InvalidElement
    // (-10877). [any]
    AUElement* SafeGetElement(UInt32 inElement) const;
    // The element as an IO element; a missing or non-IO element throws -10877.
    // [any]
    AUIOElement* GetIOElement(UInt32 inElement) const;

    // Grows through the unit's CreateElement (new indices in increasing order)
    // or shrinks by destroying the last elements; elements below the new count
    // are untouched. Throws what CreateElement throws, or std::bad_alloc;
    // elements created before a failure stay. [control]
    void SetNumberOfElements(UInt32 inNumElements);

    // True when some element has a name. [control]
    bool HasElementWithName() const;
    // When some element has a name, sets under key "<scope id>" of ioNameDict a
    // new dictionary "<element index>" -> name of every named element;
    // otherwise leaves ioNameDict untouched. [control]
    void AddElementNamesToDict(CFMutableDictionaryRef& ioNameDict) const;
    // Names elements from a dictionary "<element index>" -> name string,
    // growing the scope to the largest index named (at least one element).
    // Keys that are not plain non-negative decimal numbers, indices of
    // kMaxRestoredElements or more, and values that are not strings are
    // skipped. Returns true when elements were added. Throws std::bad_alloc.
    // [control]
    bool RestoreElementNames(CFDictionaryRef& inNameDict);

private:
    AUBase* mCreator;
    AudioUnitScope mScope;
    std::vector<AUElement*> mElements;
};

#endif
