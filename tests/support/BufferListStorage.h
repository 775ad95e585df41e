// An AudioBufferList with room for a chosen number of buffer records, as a
// host builds one. The record is variable-length, so it lives in storage this
// object owns (8-byte words, aligned for the pointers inside); it never has
// less room than the declared record, one buffer. Records start zeroed and
// mNumberBuffers holds the count. Moving keeps the list's address.
#ifndef BUFFERLISTSTORAGE_H
#define BUFFERLISTSTORAGE_H

#include <CoreAudio/CoreAudioTypes.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

class BufferListStorage
{
public:
    explicit BufferListStorage(UInt32 inBuffers)
        : mWords((std::max(sizeof(AudioBufferList),
                           offsetof(AudioBufferList, mBuffers) + inBuffers * sizeof(AudioBuffer)) +
                  sizeof(std::uint64_t) - 1) /
                     sizeof(std::uint64_t),
                 0)
    {
        List().mNumberBuffers = inBuffers;
    }

    AudioBufferList& List() { return *reinterpret_cast<AudioBufferList*>(mWords.data()); }

private:
    std::vector<std::uint64_t> mWords;
};

#endif
