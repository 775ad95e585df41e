/*
 * AUInputElement: an input bus, fed either by another unit's output (a
 * connection) or by a host render callback, or by nothing.
 *
 * Each render of the owning unit pulls the input once (PullInput). A
 * callback fills memory the bus owns (when the bus allocates); a connected
 * unit renders into buffers of its own and hands back its pointers, so a
 * connected bus needs only a list header. A connected source is rendered
 * through its fast render entry when it offers one (asked once, when the
 * connection is made), else through the runtime's AudioUnitRender.
 *
 * The setters run on control threads, PullInput on the render thread; nothing
 * synchronizes them, so a host must not reconfigure an input during a render.
 */
#ifndef AUINPUTELEMENT_H
#define AUINPUTELEMENT_H

#include "AUIOElement.h"

class AUInputElement : public AUIOElement
{
public:
    enum EInputType : UInt32
    {
        kSourceNone = 0,
        kSourceConnection = 1,
        kSourceCallback = 2
    };

    // The status of a pull whose source left a buffer without sample memory.
    static constexpr OSStatus kPulledNoSamples = -1;

    // No source; allocates nothing. [control]
    explicit AUInputElement(AUBase* inAudioUnit);
    ~AUInputElement() override;

    // Takes the format and, when the unit is initializing or initialized,
    // resizes the bus for it. Throws std::bad_alloc. [control]
    OSStatus SetStreamFormat(const CAStreamBasicDescription& inFormat) override;
    // True only while fed by a callback: it renders into the bus's memory.
    // [any]
    bool NeedsBufferSpace() const override { return mSourceKind == kSourceCallback; }

    // Feeds the bus from inConnection's source unit and output (null source:
    // no source, buffer memory freed). Sizes the list header, and asks the
    // source for its fast render entry. Throws std::bad_alloc. [control]
    void SetConnection(const AudioUnitConnection& inConnection);
    // Feeds the bus from a host callback called with inRefCon (null proc: no
    // source, buffer memory freed). Sizes the bus's memory. Throws
    // std::bad_alloc. [control]
    void SetInputCallback(AURenderCallback inProc, void* inRefCon);

    // Whether a connection or a callback feeds the bus, and which. [any]
    bool HasSource() const { return mSourceKind != kSourceNone; }
    EInputType GetSourceKind() const { return mSourceKind; }

    // Pulls nFrames frames for time inTimeStamp from the source; inElement is
    // passed to a callback as its bus number. Afterwards the bus's buffer list
    // holds the audio as its prepared list. Returns
    // kAudioUnitErr_NoConnection without a source (also when the source went
    // away during the call), kPulledNoSamples when the source succeeded but
    // left a buffer of a nonzero pull without memory, else the source's
    // status; throws the statuses of the buffer list's prepares. [render]
    OSStatus PullInput(AudioUnitRenderActionFlags& ioActionFlags, const AudioTimeStamp& inTimeStamp,
                       AudioUnitElement inElement, UInt32 nFrames);

private:
    // Whether every buffer the format has holds sample memory for nFrames
    // frames (always so for none). [render]
    bool HoldsSamples(const AudioBufferList& inList, UInt32 nFrames) const;

    EInputType mSourceKind;
    AURenderCallback mCallbackProc;
    void* mCallbackRefCon;
    AudioUnitConnection mConnection;
    AudioUnitRenderProc mFastRenderProc;
    void* mFastRenderInstance;
};

#endif
