// Saved states: the input is read as a property list (XML or binary) by the
// object library; a tree that parses is written back in both formats and
// read again, then handed to an open unit as its class info. A state refused as
// malformed must leave every parameter and the current preset as they were; accepted or
// not, the unit must still answer its parameters and render.
#include "FuzzSupport.h"

namespace {

struct Snapshot
{
    AudioUnitParameterValue values[fuzz::kParameterCount];
    AUPreset preset;
};

Snapshot Take(AudioUnit unit)
{
    Snapshot snapshot{};
    for (AudioUnitParameterID id = 0; id < fuzz::kParameterCount; ++id) {
        if (AudioUnitGetParameter(unit, id, kAudioUnitScope_Global, 0, &snapshot.values[id]) !=
            noErr) {
            std::abort();
        }
    }
    UInt32 size = sizeof(AUPreset);
    if (AudioUnitGetProperty(unit, kAudioUnitProperty_PresentPreset, kAudioUnitScope_Global, 0,
                             &snapshot.preset, &size) != noErr) {
        std::abort();
    }
    return snapshot;
}

bool Same(const Snapshot& a, const Snapshot& b)
{
    return std::memcmp(a.values, b.values, sizeof a.values) == 0 &&
           a.preset.presetNumber == b.preset.presetNumber &&
           CFEqual(a.preset.presetName, b.preset.presetName);
}

// Writing a tree the parser made must succeed, and reading it back must too.
void RoundTrip(CFPropertyListRef tree)
{
    for (CFPropertyListFormat format :
         {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
        CFDataRef data = CFPropertyListCreateData(kCFAllocatorDefault, tree, format, 0, nullptr);
        if (data == nullptr) {
            std::abort();
        }
        CFPropertyListRef again = CFPropertyListCreateWithData(
            kCFAllocatorDefault, data, kCFPropertyListImmutable, nullptr, nullptr);
        if (again == nullptr) {
            std::abort();
        }
        CFRelease(again);
        CFRelease(data);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    CFDataRef bytes = CFDataCreate(kCFAllocatorDefault, data, static_cast<CFIndex>(size));
    CFErrorRef error = nullptr;
    CFPropertyListRef tree =
        CFPropertyListCreateWithData(kCFAllocatorDefault, bytes, size % 3, nullptr, &error);
    CFRelease(bytes);
    if (tree == nullptr) {
        if (error == nullptr) {
            std::abort(); // a refusal always says why
        }
        CFRelease(error);
        return 0;
    }
    RoundTrip(tree);

    // A fresh instance for every input, so that an input replays alone.
    const AudioUnit unit = fuzz::OpenUnit(size % 2 == 0);
    const AudioStreamBasicDescription format = fuzz::FloatFormat(2, 44100.0);
    const AURenderCallbackStruct callback{fuzz::FeedSignal, nullptr};
    if (AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Input, 0,
                             &format, sizeof format) != noErr ||
        AudioUnitSetProperty(unit, kAudioUnitProperty_StreamFormat, kAudioUnitScope_Output, 0,
                             &format, sizeof format) != noErr ||
        AudioUnitSetProperty(unit, kAudioUnitProperty_SetRenderCallback, kAudioUnitScope_Input, 0,
                             &callback, sizeof callback) != noErr ||
        AudioUnitInitialize(unit) != noErr) {
        std::abort();
    }
    const Snapshot before = Take(unit);
    const OSStatus status = AudioUnitSetProperty(unit, kAudioUnitProperty_ClassInfo,
                                                 kAudioUnitScope_Global, 0, &tree, sizeof tree);
    CFRelease(tree);
    const Snapshot after = Take(unit);
    // A malformed state is refused whole. A blob record naming a scope the
    // unit lacks, or a parameter past its array, ends the restore with the
    // records before it applied, as the state format defines.
    const bool partial =
        status == kAudioUnitErr_InvalidScope || status == kAudioUnitErr_InvalidParameter;
    if (status != noErr && !partial && !Same(before, after)) {
        std::abort(); // a refused state changed the unit
    }
    fuzz::Release(before.preset.presetName);
    fuzz::Release(after.preset.presetName);

    fuzz::Buffers buffers(2, 256 * 4, true);
    AudioTimeStamp stamp{};
    stamp.mFlags = kAudioTimeStampSampleTimeValid;
    AudioUnitRenderActionFlags flags = 0;
    if (AudioUnitRender(unit, &flags, &stamp, 0, 256, buffers.list()) != noErr) {
        std::abort();
    }
    // A state that was taken can be saved again.
    CFPropertyListRef saved = nullptr;
    UInt32 size2 = sizeof saved;
    if (AudioUnitGetProperty(unit, kAudioUnitProperty_ClassInfo, kAudioUnitScope_Global, 0, &saved,
                             &size2) != noErr ||
        saved == nullptr) {
        std::abort();
    }
    CFRelease(saved);
    fuzz::CloseUnit(unit, size % 2 == 0);
    return 0;
}
