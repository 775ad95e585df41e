#include "AUEffectBase.h"

#include "AUInputElement.h"
#include "AUOutputElement.h"
#include "CAException.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace {

constexpr UInt32 kFractionBitsMask = 0x1F80; // flag bits 7-12 of a float format

// A 32-bit property value; the data may be unaligned. The caller has
// checked that four bytes are there.
UInt32 ReadUInt32(const void* inData)
{
    UInt32 value;
    std::memcpy(&value, inData, sizeof value);
    return value;
}

void WriteUInt32(void* outData, UInt32 inValue)
{
    std::memcpy(outData, &inValue, sizeof inValue);
}

// Whether (inChannels, outChannels) is allowed by a channel-table entry: -1 on
// a side means any count there; (-1, -2) and (-2, -1) allow any pair; (-1, -1)
// any equal pair. Other entries with two negative counts never match.
bool ChannelInfoMatches(const AUChannelInfo& inInfo, SInt16 inInputs, SInt16 inOutputs)
{
    const SInt16 infoIn = inInfo.inChannels;
    const SInt16 infoOut = inInfo.outChannels;
    if (infoIn < 0 && infoOut < 0) {
        if ((infoIn == -1 && infoOut == -2) || (infoIn == -2 && infoOut == -1)) {
            return true;
        }
        return infoIn == -1 && infoOut == -1 && inInputs == inOutputs;
    }
    return (infoIn == -1 || infoIn == inInputs) && (infoOut == -1 || infoOut == inOutputs);
}

// The silence timeout in whole frames, truncated toward zero. A host may set
// any latency, so a timeout beyond the counter's range saturates instead of
// wrapping into a negative count (which would report silence at once), and a
// NaN counts as no timeout.
SInt32 TimeoutFrames(Float64 inFrames)
{
    if (!(inFrames > 0.0)) {
        return 0;
    }
    if (inFrames >= Float64(std::numeric_limits<SInt32>::max())) {
        return std::numeric_limits<SInt32>::max();
    }
    return static_cast<SInt32>(inFrames);
}

// Moves every buffer's data pointer back by its share of inChannelSize bytes
// per channel and sizes it to that share: undoes the advances of the slices.
void RewindBuffers(AudioBufferList& ioList, UInt32 inChannelSize)
{
    for (UInt32 i = 0; i < ioList.mNumberBuffers; ++i) {
        AudioBuffer& buffer = ioList.mBuffers[i];
        const UInt32 bytes = buffer.mNumberChannels * inChannelSize;
        buffer.mData = static_cast<Byte*>(buffer.mData) - bytes;
        buffer.mDataByteSize = bytes;
    }
}

void SizeBuffers(AudioBufferList& ioList, UInt32 inChannelSize)
{
    for (UInt32 i = 0; i < ioList.mNumberBuffers; ++i) {
        ioList.mBuffers[i].mDataByteSize = ioList.mBuffers[i].mNumberChannels * inChannelSize;
    }
}

void AdvanceBuffers(AudioBufferList& ioList, UInt32 inChannelSize)
{
    for (UInt32 i = 0; i < ioList.mNumberBuffers; ++i) {
        AudioBuffer& buffer = ioList.mBuffers[i];
        buffer.mData = static_cast<Byte*>(buffer.mData) + buffer.mNumberChannels * inChannelSize;
    }
}

} // namespace

AUEffectBase::AUEffectBase(AudioComponentInstance inInstance, bool inProcessesInPlace)
    : AUBase(inInstance, 1, 1, 0), mBypassEffect(false), mProcessesInPlace(inProcessesInPlace),
      mSilentTimeoutCounter(0), mSilentTimeoutReset(true), mMainOutputElement(nullptr),
      mMainInputElement(nullptr), mSampleKind(kSampleKindFloat32), mFrameBytes(4)
{
}

AUEffectBase::~AUEffectBase()
{
    AUEffectBase::Cleanup();
}

OSStatus AUEffectBase::Initialize()
{
    const auto inputChannels =
        static_cast<SInt16>(GetInput(0)->GetStreamFormat().mChannelsPerFrame);
    const auto outputChannels =
        static_cast<SInt16>(GetOutput(0)->GetStreamFormat().mChannelsPerFrame);

    const AUChannelInfo* channelTable = nullptr;
    const UInt32 tableSize = SupportedNumChannels(&channelTable);
    if (tableSize > 0 && channelTable != nullptr) {
        bool matched = false;
        for (UInt32 i = 0; i < tableSize && !matched; ++i) {
            matched = ChannelInfoMatches(channelTable[i], inputChannels, outputChannels);
        }
        if (!matched) {
            return kAudioUnitErr_FormatNotSupported;
        }
    } else if (inputChannels != outputChannels || inputChannels == 0) {
        return kAudioUnitErr_FormatNotSupported;
    }

    MaintainKernels();

    mMainOutputElement = GetOutput(0);
    mMainInputElement = GetInput(0);

    const CAStreamBasicDescription& format = GetStreamFormat(kAudioUnitScope_Output, 0);
    mSampleKind = IdentifySampleKind(format);
    mFrameBytes = format.mBytesPerFrame;
    return noErr;
}

void AUEffectBase::Cleanup()
{
    for (AUKernelBase* kernel : mKernelList) {
        delete kernel;
    }
    mKernelList.clear();
    mMainOutputElement = nullptr;
    mMainInputElement = nullptr;
}

OSStatus AUEffectBase::Reset(AudioUnitScope inScope, AudioUnitElement inElement)
{
    for (AUKernelBase* kernel : mKernelList) {
        if (kernel != nullptr) {
            kernel->Reset();
        }
    }
    return AUBase::Reset(inScope, inElement);
}

void AUEffectBase::MaintainKernels()
{
    const UInt32 channels = GetNumberOfChannels();
    if (mKernelList.size() < channels) {
        // Reserved first, so that appending a new kernel cannot throw and leak it.
        mKernelList.reserve(channels);
        while (mKernelList.size() < channels) {
            mKernelList.push_back(NewKernel());
        }
    } else {
        while (mKernelList.size() > channels) {
            delete mKernelList.back();
            mKernelList.pop_back();
        }
    }
    for (UInt32 i = 0; i < channels; ++i) {
        if (mKernelList[i] != nullptr) {
            mKernelList[i]->SetChannelNum(i);
        }
    }
}

UInt32 AUEffectBase::GetNumberOfChannels()
{
    return GetOutput(0)->GetStreamFormat().mChannelsPerFrame;
}

AUKernelBase* AUEffectBase::NewKernel()
{
    return nullptr;
}

bool AUEffectBase::ShouldBypassEffect()
{
    return mBypassEffect;
}

void AUEffectBase::SetBypassEffect(bool inFlag)
{
    mBypassEffect = inFlag;
}

bool AUEffectBase::StreamFormatWritable(AudioUnitScope, AudioUnitElement)
{
    return !mInitialized;
}

OSStatus AUEffectBase::ChangeStreamFormat(AudioUnitScope inScope, AudioUnitElement inElement,
                                          const CAStreamBasicDescription& inPrevFormat,
                                          const CAStreamBasicDescription& inNewFormat)
{
    return AUBase::ChangeStreamFormat(inScope, inElement, inPrevFormat, inNewFormat);
}

OSStatus AUEffectBase::GetPropertyInfo(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                       AudioUnitElement inElement, UInt32& outDataSize,
                                       bool& outWritable)
{
    if (inScope == kAudioUnitScope_Global &&
        (inID == kAudioUnitProperty_BypassEffect || inID == kAudioUnitProperty_InPlaceProcessing)) {
        outDataSize = sizeof(UInt32);
        outWritable = true;
        return noErr;
    }
    return AUBase::GetPropertyInfo(inID, inScope, inElement, outDataSize, outWritable);
}

OSStatus AUEffectBase::GetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                   AudioUnitElement inElement, void* outData)
{
    if (inScope == kAudioUnitScope_Global) {
        if (inID == kAudioUnitProperty_BypassEffect) {
            WriteUInt32(outData, ShouldBypassEffect() ? 1 : 0);
            return noErr;
        }
        if (inID == kAudioUnitProperty_InPlaceProcessing) {
            WriteUInt32(outData, mProcessesInPlace ? 1 : 0);
            return noErr;
        }
    }
    return AUBase::GetProperty(inID, inScope, inElement, outData);
}

// Both flags refuse values shorter than a u32, rather than reading past the
// caller's data.
OSStatus AUEffectBase::SetProperty(AudioUnitPropertyID inID, AudioUnitScope inScope,
                                   AudioUnitElement inElement, const void* inData,
                                   UInt32 inDataSize)
{
    if (inScope == kAudioUnitScope_Global) {
        if (inID == kAudioUnitProperty_BypassEffect) {
            if (inDataSize < sizeof(UInt32)) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            const bool bypass = ReadUInt32(inData) != 0;
            if (bypass == ShouldBypassEffect()) {
                return noErr;
            }
            // Leaving bypass starts the processing from a clean state rather
            // than from whatever was left when bypass began.
            if (!bypass && mInitialized) {
                Reset(kAudioUnitScope_Global, 0);
            }
            SetBypassEffect(bypass);
            return noErr;
        }
        if (inID == kAudioUnitProperty_InPlaceProcessing) {
            if (inDataSize < sizeof(UInt32)) {
                return kAudioUnitErr_InvalidPropertyValue;
            }
            mProcessesInPlace = ReadUInt32(inData) != 0;
            return noErr;
        }
    }
    return AUBase::SetProperty(inID, inScope, inElement, inData, inDataSize);
}

AUEffectBase::SampleKind
AUEffectBase::IdentifySampleKind(const AudioStreamBasicDescription& inFormat)
{
    if (inFormat.mFormatID != kAudioFormatLinearPCM || inFormat.mFramesPerPacket != 1 ||
        inFormat.mBytesPerFrame != inFormat.mBytesPerPacket ||
        inFormat.mBitsPerChannel / 8 > inFormat.mBytesPerFrame || inFormat.mChannelsPerFrame == 0) {
        return kSampleKindOther;
    }
    UInt32 sampleBytes = inFormat.mBytesPerFrame;
    if ((inFormat.mFormatFlags & kAudioFormatFlagIsNonInterleaved) == 0) {
        if (inFormat.mBytesPerFrame % inFormat.mChannelsPerFrame != 0) {
            return kSampleKindOther;
        }
        sampleBytes = inFormat.mBytesPerFrame / inFormat.mChannelsPerFrame;
    }
    const UInt32 flags = inFormat.mFormatFlags;
    if ((flags & kAudioFormatFlagIsPacked) == 0 || (flags & kAudioFormatFlagIsBigEndian) != 0 ||
        sampleBytes * 8 != inFormat.mBitsPerChannel) {
        return kSampleKindOther;
    }
    if ((flags & kAudioFormatFlagIsFloat) != 0) {
        if ((flags & kAudioFormatFlagIsSignedInteger) == 0 && (flags & kFractionBitsMask) == 0 &&
            sampleBytes == 4) {
            return kSampleKindFloat32;
        }
        return kSampleKindOther;
    }
    if ((flags & kAudioFormatFlagIsSignedInteger) != 0) {
        const UInt32 fractionBits = (flags >> 7) & 0x3F;
        if (sampleBytes == 4 && fractionBits == 24) {
            return kSampleKindFixed824;
        }
        if (sampleBytes == 2 && fractionBits == 0) {
            return kSampleKindInt16;
        }
    }
    return kSampleKindOther;
}

bool AUEffectBase::IsInputSilent(AudioUnitRenderActionFlags inActionFlags, UInt32 inFramesToProcess)
{
    const bool silent = (inActionFlags & kAudioUnitRenderAction_OutputIsSilence) != 0;
    const Float64 sampleRate = GetOutput(0)->GetStreamFormat().mSampleRate;
    const Float64 latency = GetLatency();
    const Float64 tail = GetTailTime();
    if (!silent) {
        mSilentTimeoutReset = true;
        return false;
    }
    if (mSilentTimeoutReset) {
        mSilentTimeoutCounter = TimeoutFrames(sampleRate * (latency + tail));
        mSilentTimeoutReset = false;
    }
    if (mSilentTimeoutCounter <= 0) {
        return true;
    }
    mSilentTimeoutCounter = static_cast<SInt32>(std::max<SInt64>(
        SInt64(mSilentTimeoutCounter) - inFramesToProcess, std::numeric_limits<SInt32>::min()));
    return false;
}

template <typename T>
void AUEffectBase::ProcessBufferListsT(AudioUnitRenderActionFlags& ioActionFlags,
                                       const AudioBufferList& inBuffer, AudioBufferList& outBuffer,
                                       UInt32 inFramesToProcess)
{
    const bool silent = IsInputSilent(ioActionFlags, inFramesToProcess);
    ioActionFlags |= kAudioUnitRenderAction_OutputIsSilence;

    // Kernels beyond the channels both lists carry (a channel table may allow
    // unequal counts) are skipped rather than pointed outside the buffers.
    const bool interleaved = inBuffer.mNumberBuffers == 1;
    UInt32 kernelCount = static_cast<UInt32>(mKernelList.size());
    if (interleaved) {
        kernelCount = std::min({kernelCount, inBuffer.mBuffers[0].mNumberChannels,
                                outBuffer.mBuffers[0].mNumberChannels});
    } else {
        kernelCount = std::min({kernelCount, inBuffer.mNumberBuffers, outBuffer.mNumberBuffers});
    }
    for (UInt32 i = 0; i < kernelCount; ++i) {
        AUKernelBase* kernel = mKernelList[i];
        if (kernel == nullptr) {
            continue;
        }
        const T* source;
        T* destination;
        UInt32 stride;
        if (interleaved) {
            source = static_cast<const T*>(inBuffer.mBuffers[0].mData) + i;
            destination = static_cast<T*>(outBuffer.mBuffers[0].mData) + i;
            stride = inBuffer.mBuffers[0].mNumberChannels;
        } else {
            source = static_cast<const T*>(inBuffer.mBuffers[i].mData);
            destination = static_cast<T*>(outBuffer.mBuffers[i].mData);
            stride = 1;
        }
        bool ioSilence = silent;
        kernel->Process(source, destination, inFramesToProcess, stride, ioSilence);
        if (!ioSilence) {
            ioActionFlags &= ~kAudioUnitRenderAction_OutputIsSilence;
        }
    }
}

OSStatus AUEffectBase::ProcessBufferLists(AudioUnitRenderActionFlags& ioActionFlags,
                                          const AudioBufferList& inBuffer,
                                          AudioBufferList& outBuffer, UInt32 inFramesToProcess)
{
    switch (mSampleKind) {
    case kSampleKindFloat32:
        ProcessBufferListsT<Float32>(ioActionFlags, inBuffer, outBuffer, inFramesToProcess);
        break;
    case kSampleKindInt16:
        ProcessBufferListsT<SInt16>(ioActionFlags, inBuffer, outBuffer, inFramesToProcess);
        break;
    case kSampleKindFixed824:
        ProcessBufferListsT<SInt32>(ioActionFlags, inBuffer, outBuffer, inFramesToProcess);
        break;
    default:
        throw CAException(kAudio_UnimplementedError);
    }
    return noErr;
}

OSStatus AUEffectBase::ProcessScheduledSlice(void* inUserData, UInt32,
                                             UInt32 inSliceFramesToProcess, UInt32)
{
    auto* record = static_cast<SliceProcessRecord*>(inUserData);
    const UInt32 channelSize = inSliceFramesToProcess * mFrameBytes;
    SizeBuffers(*record->mInputBufferList, channelSize);
    SizeBuffers(*record->mOutputBufferList, channelSize);
    const OSStatus result = ProcessBufferLists(*record->mActionFlags, *record->mInputBufferList,
                                               *record->mOutputBufferList, inSliceFramesToProcess);
    AdvanceBuffers(*record->mInputBufferList, channelSize);
    AdvanceBuffers(*record->mOutputBufferList, channelSize);
    return result;
}

OSStatus AUEffectBase::Render(AudioUnitRenderActionFlags& ioActionFlags,
                              const AudioTimeStamp& inTimeStamp, UInt32 inFramesToProcess)
{
    if (mMainInputElement == nullptr || !mMainInputElement->HasSource()) {
        return kAudioUnitErr_NoConnection;
    }
    OSStatus result =
        mMainInputElement->PullInput(ioActionFlags, inTimeStamp, 0, inFramesToProcess);
    if (result != noErr) {
        return result;
    }
    AUBufferList& inputBuffers = mMainInputElement->GetBufferList();
    AUBufferList& outputBuffers = mMainOutputElement->GetBufferList();
    if (mProcessesInPlace && mMainOutputElement->WillAllocateBuffer()) {
        outputBuffers.UseCallerList(inputBuffers.GetPreparedList());
    }

    if (ShouldBypassEffect()) {
        result = noErr;
        if (!mProcessesInPlace) {
            inputBuffers.CopyContentsTo(outputBuffers.GetPreparedList());
        }
    } else if (!mParamList.empty()) {
        AudioBufferList& inputList = inputBuffers.GetPreparedList();
        AudioBufferList& outputList = outputBuffers.GetPreparedList();
        SliceProcessRecord record = {&ioActionFlags, &inputList, &outputList};
        result = ProcessForScheduledParams(mParamList, inFramesToProcess, &record);
        const UInt32 channelSize = inFramesToProcess * mFrameBytes;
        RewindBuffers(inputList, channelSize);
        RewindBuffers(outputList, channelSize);
    } else {
        result = ProcessBufferLists(ioActionFlags, inputBuffers.GetPreparedList(),
                                    outputBuffers.GetPreparedList(), inFramesToProcess);
    }

    if ((ioActionFlags & kAudioUnitRenderAction_OutputIsSilence) != 0 && !mProcessesInPlace) {
        AudioBufferList& outputList = outputBuffers.GetPreparedList();
        for (UInt32 i = 0; i < outputList.mNumberBuffers; ++i) {
            std::memset(outputList.mBuffers[i].mData, 0, outputList.mBuffers[i].mDataByteSize);
        }
    }
    return result;
}
