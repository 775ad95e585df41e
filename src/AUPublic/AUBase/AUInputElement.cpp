#include "AUInputElement.h"

#include "ComponentBase.h"

AUInputElement::AUInputElement(AUBase* inAudioUnit)
    : AUIOElement(inAudioUnit), mSourceKind(kSourceNone), mCallbackProc(nullptr),
      mCallbackRefCon(nullptr), mConnection(), mFastRenderProc(nullptr),
      mFastRenderInstance(nullptr)
{
}

AUInputElement::~AUInputElement() = default;

OSStatus AUInputElement::SetStreamFormat(const CAStreamBasicDescription& inFormat)
{
    const OSStatus result = AUIOElement::SetStreamFormat(inFormat);
    if (result == noErr) {
        AllocateBuffer();
    }
    return result;
}

void AUInputElement::SetConnection(const AudioUnitConnection& inConnection)
{
    if (inConnection.sourceAudioUnit == nullptr) {
        mSourceKind = kSourceNone;
        mIOBuffer.Deallocate();
        return;
    }
    mSourceKind = kSourceConnection;
    mConnection = inConnection;
    AllocateBuffer();

    // A source that hands out its render function is called directly on
    // every pull, bypassing the runtime's routing.
    mFastRenderProc = nullptr;
    mFastRenderInstance = nullptr;
    UInt32 size = sizeof(mFastRenderProc);
    if (AudioUnitGetProperty(inConnection.sourceAudioUnit, kAudioUnitProperty_FastDispatch,
                             kAudioUnitScope_Global, kAudioUnitRenderSelect, &mFastRenderProc,
                             &size) == noErr) {
        mFastRenderInstance = CMgr_GetComponentInstanceStorage(inConnection.sourceAudioUnit);
    } else {
        mFastRenderProc = nullptr;
    }
}

void AUInputElement::SetInputCallback(AURenderCallback inProc, void* inRefCon)
{
    if (inProc == nullptr) {
        mSourceKind = kSourceNone;
        mIOBuffer.Deallocate();
        return;
    }
    mSourceKind = kSourceCallback;
    mCallbackProc = inProc;
    mCallbackRefCon = inRefCon;
    AllocateBuffer();
}

OSStatus AUInputElement::PullInput(AudioUnitRenderActionFlags& ioActionFlags,
                                   const AudioTimeStamp& inTimeStamp, AudioUnitElement inElement,
                                   UInt32 nFrames)
{
    if (mSourceKind == kSourceNone) {
        return kAudioUnitErr_NoConnection;
    }
    // A callback fills the bus's own memory; a connected source (or a host
    // that supplies the buffers) puts its own pointers into the records.
    const bool ownMemory = mSourceKind == kSourceCallback && mWillAllocate;
    AudioBufferList& list = ownMemory ? mIOBuffer.PrepareBuffer(mStreamFormat, nFrames)
                                      : mIOBuffer.PrepareNullBuffer(mStreamFormat, nFrames);

    OSStatus result;
    if (mSourceKind == kSourceCallback) {
        result =
            mCallbackProc(mCallbackRefCon, &ioActionFlags, &inTimeStamp, inElement, nFrames, &list);
    } else if (mFastRenderProc != nullptr) {
        result = mFastRenderProc(mFastRenderInstance, &ioActionFlags, &inTimeStamp,
                                 mConnection.sourceOutputNumber, nFrames, &list);
    } else {
        result = AudioUnitRender(mConnection.sourceAudioUnit, &ioActionFlags, &inTimeStamp,
                                 mConnection.sourceOutputNumber, nFrames, &list);
    }
    // The source may have been removed by a call made during the pull.
    if (mSourceKind == kSourceNone) {
        return kAudioUnitErr_NoConnection;
    }
    // A source may hand back records without sample memory; whatever reads
    // the input (and an in-place effect writes it) would go through null.
    if (result == noErr && !HoldsSamples(list, nFrames)) {
        return kPulledNoSamples;
    }
    return result;
}

bool AUInputElement::HoldsSamples(const AudioBufferList& inList, UInt32 nFrames) const
{
    if (nFrames == 0) {
        return true;
    }
    const UInt32 buffers =
        mStreamFormat.IsInterleavedFormat() ? 1 : mStreamFormat.mChannelsPerFrame;
    if (inList.mNumberBuffers < buffers) {
        return false;
    }
    for (UInt32 i = 0; i < buffers; ++i) {
        if (inList.mBuffers[i].mData == nullptr) {
            return false;
        }
    }
    return true;
}
