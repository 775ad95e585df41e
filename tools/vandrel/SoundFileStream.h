// A stdio file with a large buffer, handed to libsndfile through its virtual
// I/O interface. libsndfile's own file access moves a few kilobytes per
// system call; through this stream it moves a buffer's worth. Each write
// call into the page cache has a fixed cost well above a read's, so the
// output gets a larger buffer than the input: 256 KiB writes take about a
// millisecond less kernel time per 20 MB than 64 KiB ones, while larger
// reads gain nothing.
#pragma once

#include <sndfile.h>

#include <cstdio>
#include <memory>
#include <string>

class SoundFileStream
{
public:
    static constexpr size_t kReadBufferBytes = 1 << 16;
    static constexpr size_t kWriteBufferBytes = 1 << 18;

    // Takes ownership of an open file (not null) and gives it a buffer of
    // `bufferBytes`. [control]
    SoundFileStream(std::FILE* file, size_t bufferBytes);
    // Closes the file if close() was not called. [control]
    ~SoundFileStream();
    SoundFileStream(const SoundFileStream&) = delete;
    SoundFileStream& operator=(const SoundFileStream&) = delete;

    // The callbacks for sf_open_virtual; pass this object as its user data. [any]
    static SF_VIRTUAL_IO* callbacks();

    // Flushes and closes the file; false (errno set) when buffered data or
    // any earlier write could not be written. [control]
    bool close();

    // Why a libsndfile call on this stream failed: the system's reason when a
    // read or write did, else libsndfile's message (as sf_strerror or
    // sf_error_number gives it) without its closing period. [control]
    std::string failure(const char* libraryMessage) const;

private:
    static sf_count_t length(void* user);
    static sf_count_t seek(sf_count_t offset, int whence, void* user);
    static sf_count_t read(void* data, sf_count_t bytes, void* user);
    static sf_count_t write(const void* data, sf_count_t bytes, void* user);
    static sf_count_t tell(void* user);
    // Keeps errno as the reason of the first failure.
    void noteError();

    std::FILE* mFile;
    std::unique_ptr<char[]> mBuffer; // left uninitialized: stdio fills it
    int mError = 0;                  // errno of the first failed read or write
};
